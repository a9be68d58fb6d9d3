#include "kit/page/html.h"

#include <algorithm>
#include <cctype>
#include <utility>

#include "kit/common/printable.h"
#include "kit/page/number_text.h"

namespace vorn::kit {

// The one place where bytes become markup.
class HtmlMaker {
 public:
  static Html Of(std::string bytes) { return Html(std::move(bytes)); }
};

namespace {

// For text and for attributes between double quotes.
std::string Escaped(std::string_view text) {
  std::string escaped;
  escaped.reserve(text.size());
  for (const char c : text) {
    switch (c) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      case '\'':
        escaped += "&#39;";
        break;
      default:
        escaped += c;
    }
  }
  return escaped;
}

template <typename Attributes>
std::string StartTag(Literal tag, const Attributes& attributes) {
  std::string text = "<" + std::string(tag.Characters());
  for (const Attribute& attribute : attributes) {
    text += ' ';
    text += attribute.name.Characters();
    if (attribute.value.empty()) continue;
    text += "=\"" + Escaped(Printable(attribute.value)) + '"';
  }
  return text + ">";
}

template <typename Attributes>
Html WholeElement(Literal tag, const Attributes& attributes, const Html& content) {
  std::string text = StartTag(tag, attributes);
  text += content.Bytes();
  text += "</";
  text += tag.Characters();
  return HtmlMaker::Of(text + ">");
}

bool IsContinuation(char byte) { return (static_cast<unsigned char>(byte) & 0xC0) == 0x80; }

// The byte at which the n-th character of a UTF-8 text begins.
size_t ByteOfCharacter(std::string_view text, size_t n) {
  size_t at = 0;
  for (; at < text.size(); ++at) {
    if (IsContinuation(text[at])) continue;
    if (n == 0) break;
    --n;
  }
  return at;
}

}  // namespace

Html Text(std::string_view text) { return HtmlMaker::Of(Escaped(Printable(text))); }

Html Lines(std::string_view text) {
  std::string lines;
  while (!text.empty()) {
    const size_t end = std::min(text.find_first_of("\n\t"), text.size());
    lines += Escaped(Printable(text.substr(0, end)));
    if (end < text.size()) lines += text[end];
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return HtmlMaker::Of(lines);
}

std::string NameExcerpt(std::string_view name, size_t most) {
  // What is cut is what is seen: a byte that cannot be shown takes four characters.
  std::string shown = Printable(name.substr(0, 8 * most));
  const size_t length = DisplayWidth(shown);
  if (length <= most && name.size() <= 8 * most) return shown;
  const size_t back = most / 3;
  const std::string ending = Printable(name.substr(name.size() - std::min(name.size(), 8 * most)));
  const size_t endingLength = DisplayWidth(ending);
  const size_t from = endingLength > back ? ByteOfCharacter(ending, endingLength - back) : 0;
  return shown.substr(0, ByteOfCharacter(shown, most - back)) + "…" + ending.substr(from) + " (" +
         CountText(name.size()) + " bytes)";
}

Html Name(std::string_view name) {
  // Tables keep short ones on a line.
  constexpr size_t kShort = 24;
  return Element("bdi", {{"class", name.size() <= kShort ? "name short" : "name"}},
                 HtmlMaker::Of(Escaped(NameExcerpt(name))));
}

Html Raw(Literal markup) { return HtmlMaker::Of(std::string(markup.Characters())); }

Html Element(Literal tag, std::initializer_list<Attribute> attributes, const Html& content) {
  return WholeElement(tag, attributes, content);
}

Html Element(Literal tag, const Html& content) {
  return WholeElement(tag, std::initializer_list<Attribute>{}, content);
}

Html ElementOf(Literal tag, const std::vector<Attribute>& attributes, const Html& content) {
  return WholeElement(tag, attributes, content);
}

Html VoidElement(Literal tag, std::initializer_list<Attribute> attributes) {
  return HtmlMaker::Of(StartTag(tag, attributes));
}

Html Details(const Html& summary, const Html& content, bool isOpen) {
  std::vector<Attribute> attributes;
  if (isOpen) attributes.push_back({"open", ""});
  return ElementOf("details", attributes, Element("summary", summary) + content);
}

Html ScriptData(std::string_view id, std::string_view json) {
  std::string data;
  data.reserve(json.size());
  for (const char c : json) {
    // In JSON these stand in texts alone, where their codes mean the same.
    switch (c) {
      case '<':
        data += "\\u003c";
        break;
      case '>':
        data += "\\u003e";
        break;
      case '&':
        data += "\\u0026";
        break;
      default:
        data += c;
    }
  }
  return Element("script", {{"type", "application/json"}, {"id", std::string(id)}},
                 HtmlMaker::Of(std::move(data)));
}

std::string Slug(std::string_view text) {
  std::string slug;
  for (const char c : text) {
    if (slug.size() == 60) break;
    if (std::isalnum(static_cast<unsigned char>(c)) != 0 && static_cast<unsigned char>(c) < 0x80) {
      slug += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    } else if (!slug.empty() && slug.back() != '-') {
      slug += '-';
    }
  }
  return slug;
}

}  // namespace vorn::kit
