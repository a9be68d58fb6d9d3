// Finding places and signatures in a text.
#include "host/engine/engine_cause.h"

#include <algorithm>
#include <optional>

#include "host/common/excerpt.h"
#include "host/common/log.h"

namespace vorn::host {
namespace {

constexpr size_t kLongestCause = 300;

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

/// Where a place, "/a/b.cc:413 ", begins and ends.
struct Span {
  size_t begin = 0;
  size_t end = 0;
};

/// The first one.
std::optional<Span> FindPlace(std::string_view text) {
  for (size_t colon = text.find(':'); colon != text.npos; colon = text.find(':', colon + 1)) {
    const std::string_view front = text.substr(0, colon);
    size_t end = colon + 1;
    while (end < text.size() && IsDigit(text[end])) ++end;
    const bool isNumbered = end > colon + 1 && end < text.size() && text[end] == ' ';
    const bool isSource = front.ends_with(".cc") || front.ends_with(".cpp") ||
                          front.ends_with(".h") || front.ends_with(".hpp");
    if (!isNumbered || !isSource) continue;
    const size_t blank = front.rfind(' ');
    return Span{.begin = blank == front.npos ? 0 : blank + 1, .end = end + 1};
  }
  return std::nullopt;
}

/// Behind the bracket that closes the one at `at`; nothing where there is none.
std::optional<size_t> BehindClosing(std::string_view text, size_t at) {
  int depth = 0;
  for (; at < text.size(); ++at) {
    if (text[at] == '(' || text[at] == '[') ++depth;
    if ((text[at] == ')' || text[at] == ']') && --depth == 0) return at + 1;
  }
  return std::nullopt;
}

/// Where the parameters of the signature at the front begin: the first bracket that is no part of a
/// template's arguments or of a name such as "operator()".
size_t FindParameters(std::string_view text) {
  int angles = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '<') ++angles;
    if (text[i] == '>') --angles;
    if (text[i] == '(' && angles == 0 && !text.substr(0, i).ends_with("operator")) return i;
  }
  return text.npos;
}

/// The length of a signature, "ns::T ns::F(const ns::T&) const [with X = Y]", at the front; 0 where
/// there is none.
size_t SignatureLength(std::string_view text) {
  const size_t parameters = FindParameters(text);
  const std::string_view front = text.substr(0, parameters);
  if (parameters == text.npos || front.find("::") == text.npos) return 0;
  std::optional<size_t> end = BehindClosing(text, parameters);
  // A signature that goes on: qualifiers, a function within the function, template arguments.
  while (end) {
    const std::string_view rest = text.substr(*end);
    if (rest.starts_with(" const")) {
      *end += 6;
    } else if (rest.starts_with("::<lambda(")) {
      end = BehindClosing(text, *end + 9);
      if (end && text.substr(*end).starts_with(">")) ++*end;
    } else if (rest.starts_with(" [with ")) {
      end = BehindClosing(text, *end + 1);
    } else {
      break;
    }
  }
  return end.value_or(text.size());
}

}  // namespace

std::string ShortCause(std::string_view text) {
  std::string kept;
  while (const std::optional<Span> place = FindPlace(text)) {
    kept += text.substr(0, place->begin);
    text.remove_prefix(place->end);
    text.remove_prefix(SignatureLength(text));
    while (text.starts_with(' ')) text.remove_prefix(1);
  }
  kept += text;
  // Of several lines the first one says what is wrong, and the others where.
  kept.resize(std::min(kept.find('\n'), kept.size()));
  while (!kept.empty() && kept.back() == ' ') kept.pop_back();
  return Excerpt(kept, kLongestCause);
}

std::string CauseOf(const std::exception& e) {
  const std::string_view whole = e.what();
  std::string cause = ShortCause(whole);
  if (cause != whole) Log(LogLevel::kInfo, "engine", whole);
  return cause;
}

}  // namespace vorn::host
