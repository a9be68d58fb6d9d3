#include "kit/page/page.h"

#include <charconv>
#include <string_view>

#include "kit/page/assets.h"
#include "kit/page/base64.h"

namespace vorn::kit {
namespace {

const char* ClassOf(Tone tone) {
  switch (tone) {
    case Tone::kGood:
      return "good";
    case Tone::kBad:
      return "bad";
    case Tone::kOpen:
      return "open";
  }
  return "open";
}

// A form beside the colour.
Html SignOf(Tone tone) {
  switch (tone) {
    case Tone::kGood:
      return Raw("✓ ");
    case Tone::kBad:
      return Raw("✗ ");
    case Tone::kOpen:
      return Raw("? ");
  }
  return {};
}

std::string StyleElement(const EmbeddedText& style) {
  return "<style>" + std::string(style.text) + "</style>\n";
}

std::string ScriptElement(const EmbeddedText& script) {
  return "<script>" + std::string(script.text) + "</script>\n";
}

// As the policy names a text that it allows.
std::string PolicyHash(const EmbeddedText& text) {
  std::string hash;
  for (size_t i = 0; i + 1 < text.sha256.size(); i += 2) {
    unsigned char byte = 0;
    (void)std::from_chars(&text.sha256[i], &text.sha256[i] + 2, byte, 16);
    hash += static_cast<char>(byte);
  }
  return " 'sha256-" + Base64(hash) + "'";
}

std::string Policy(const std::vector<EmbeddedText>& styles,
                   const std::vector<EmbeddedText>& scripts) {
  std::string policy = "default-src 'none'; style-src";
  for (const EmbeddedText& style : styles) policy += PolicyHash(style);
  policy += "; script-src";
  for (const EmbeddedText& script : scripts) policy += PolicyHash(script);
  return policy + "; img-src data:; base-uri 'none'; form-action 'none'";
}

Html Navigation(const std::vector<PageSection>& sections) {
  Html links;
  for (const PageSection& section : sections) {
    if (section.content.IsEmpty()) continue;
    links += Element("li", LinkTo(section.id, Text(section.title)));
  }
  return Element("nav", {{"aria-label", "Parts of this page"}}, Element("ul", links));
}

Html HeadOf(const Page& page) {
  Html line =
      Element("span", Text(page.title)) +
      Element("button",
              {{"type", "button"}, {"class", "button"}, {"data-switch", "auto"}, {"hidden", ""}},
              Text("Theme: auto"));
  Html content = Element("div", {{"class", "eyebrow"}}, line);
  if (!page.verdict.empty()) content += Pill(page.tone, page.verdict);
  content += Element("h1", Text(page.answer)) + page.head;
  return Element("header", {{"class", ClassOf(page.tone)}},
                 Element("div", {{"class", "wide"}}, content));
}

}  // namespace

std::string PageText(const Page& page) {
  std::vector<EmbeddedText> styles{StyleText()};
  std::vector<EmbeddedText> scripts{PageScriptText()};
  if (page.hasTimeline) {
    styles.push_back(PlotStyleText());
    scripts.push_back(PlotScriptText());
    scripts.push_back(TimelineScriptText());
  }

  Html sections;
  for (const PageSection& section : page.sections) {
    if (section.content.IsEmpty()) continue;
    const std::string heading = section.id + "-heading";
    sections += Element("section", {{"id", section.id}, {"aria-labelledby", heading}},
                        Element("h2", {{"id", heading}}, Text(section.title)) + section.content);
  }
  const Html body = Element("a", {{"class", "skip"}, {"href", "#main"}}, Text("To the content")) +
                    HeadOf(page) + Navigation(page.sections) +
                    Element("main", {{"class", "wide"}, {"id", "main"}}, sections) +
                    Element("footer", {{"class", "wide"}}, page.foot);

  // The policy stands before all that it is about.
  const Html head = VoidElement("meta", {{"charset", "utf-8"}}) +
                    VoidElement("meta", {{"http-equiv", "Content-Security-Policy"},
                                         {"content", Policy(styles, scripts)}}) +
                    VoidElement("meta", {{"name", "viewport"},
                                         {"content", "width=device-width, initial-scale=1"}}) +
                    VoidElement("meta", {{"name", "referrer"}, {"content", "no-referrer"}}) +
                    Element("title", Text(page.title));
  std::string text = "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n" + head.Bytes() + "\n";
  for (const EmbeddedText& style : styles) text += StyleElement(style);
  text += "</head>\n<body>\n" + body.Bytes() + "\n";
  for (const EmbeddedText& script : scripts) text += ScriptElement(script);
  return text + "</body>\n</html>\n";
}

Html Tiles(const std::vector<Tile>& tiles) {
  Html items;
  for (const Tile& tile : tiles) {
    std::vector<Attribute> attributes;
    if (tile.isToned) attributes.push_back({"class", ClassOf(tile.tone)});
    Html content = Element("span", {{"class", "what"}}, Text(tile.title)) +
                   Element("span", {{"class", "value"}}, Text(tile.value));
    if (!tile.more.empty()) content += Element("span", {{"class", "more"}}, Text(tile.more));
    items += ElementOf("li", attributes, content);
  }
  return Element("ul", {{"class", "tiles"}}, items);
}

Html Pill(Tone tone, std::string_view text) {
  return Element("span", {{"class", std::string("pill ") + ClassOf(tone)}},
                 Element("span", {{"aria-hidden", "true"}}, SignOf(tone)) + Text(text));
}

Html Heading(int level, std::string_view text, std::string_view id) {
  std::vector<Attribute> attributes;
  if (!id.empty()) attributes.push_back({"id", std::string(id)});
  return level <= 3 ? ElementOf("h3", attributes, Text(text))
                    : ElementOf("h4", attributes, Text(text));
}

Html Paragraph(const Html& content) { return Element("p", content); }

Html Note(const Html& content) { return Element("p", {{"class", "note"}}, content); }

Html Printout(std::string_view label, std::string_view text) {
  return Element(
      "pre",
      {{"tabindex", "0"}, {"role", "group"}, {"class", "wrap"}, {"aria-label", std::string(label)}},
      Lines(text));
}

Html FactList(const std::vector<Fact>& facts) {
  Html items;
  for (const Fact& fact : facts) {
    if (fact.value.IsEmpty()) continue;
    items += Element("dt", Text(fact.name)) + Element("dd", fact.value);
  }
  return items.IsEmpty() ? items : Element("dl", {{"class", "facts"}}, items);
}

Html SideBySide(const std::vector<Html>& parts) {
  Html whole;
  for (const Html& part : parts) {
    if (!part.IsEmpty()) whole += Element("div", part);
  }
  return whole.IsEmpty() ? whole : Element("div", {{"class", "side"}}, whole);
}

Html LinkTo(std::string_view id, const Html& content) {
  return Element("a", {{"href", "#" + std::string(id)}}, content);
}

Html LinkToFile(std::string_view path, const Html& content) {
  constexpr std::string_view kPlain =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_./~";
  constexpr std::string_view kHex = "0123456789ABCDEF";
  if (path.empty() || path.front() == '/') return content;
  // In front of the first slash a colon would make a scheme of what stands before it, and it is
  // written as its code like all that is not plain. "./" makes a path even of what looks like a
  // host.
  std::string address = "./";
  for (const char c : path) {
    if (kPlain.find(c) != std::string_view::npos) {
      address += c;
    } else {
      const auto byte = static_cast<unsigned char>(c);
      address += {'%', kHex[byte >> 4], kHex[byte & 15]};
    }
  }
  return Element("a", {{"href", address}}, content);
}

}  // namespace vorn::kit
