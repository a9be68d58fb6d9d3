// HTML that is put together out of pieces. What a piece is made of is escaped where the piece is
// made, so no text of others can become an element: names of tensors and files are hostile until
// proven otherwise.
//
// Markup is written as literals of this program (`Literal`, which takes nothing else) and text as
// anything (`Text`, `Name`, `Lines`). There is no way from a std::string to markup.
#ifndef VORN_KIT_PAGE_HTML_H_
#define VORN_KIT_PAGE_HTML_H_

#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace vorn::kit {

/// Characters that stand in this program's source: only a constant becomes one.
class Literal {
 public:
  consteval Literal(const char* text) : text_(text) {}
  [[nodiscard]] constexpr std::string_view Characters() const { return text_; }

 private:
  std::string_view text_;
};

/// Elements and text that may stand wherever elements may.
class Html {
 public:
  Html() = default;

  Html& operator+=(const Html& next) {
    bytes_ += next.bytes_;
    return *this;
  }
  friend Html operator+(Html front, const Html& back) {
    front += back;
    return front;
  }

  [[nodiscard]] const std::string& Bytes() const { return bytes_; }
  [[nodiscard]] bool IsEmpty() const { return bytes_.empty(); }

 private:
  friend class HtmlMaker;
  explicit Html(std::string bytes) : bytes_(std::move(bytes)) {}
  std::string bytes_;
};

/// `style`, `src` of anything but PictureUri and `on…` are no use: the page's policy forbids them.
struct Attribute {
  Literal name;
  std::string value;  ///< any text; escaped
};

/// The text with the five characters that mean something in HTML written as references. What steers
/// a terminal or turns the writing direction, and what is no UTF-8, comes out visibly, as Printable
/// has it, on one line.
[[nodiscard]] Html Text(std::string_view text);

/// A text of several lines; ends of lines and tabs stay, the rest is as in Text.
[[nodiscard]] Html Lines(std::string_view text);

/// What others named (a tensor, a file, a host), kept apart from the writing direction of its
/// neighbours. Of a long one the beginning and the end are shown, and how many bytes it has.
[[nodiscard]] Html Name(std::string_view name);

/// The same as plain text, for a chart's labels and for data of scripts. `most` is in characters.
[[nodiscard]] std::string NameExcerpt(std::string_view name, size_t most = 120);

/// Markup as it stands.
[[nodiscard]] Html Raw(Literal markup);

/// <tag name="value"…>content</tag>
[[nodiscard]] Html Element(Literal tag, std::initializer_list<Attribute> attributes,
                           const Html& content = {});
[[nodiscard]] Html Element(Literal tag, const Html& content);

/// The same with attributes that were collected.
[[nodiscard]] Html ElementOf(Literal tag, const std::vector<Attribute>& attributes,
                             const Html& content = {});

/// An element that has no content and no end: img, meta, input.
[[nodiscard]] Html VoidElement(Literal tag, std::initializer_list<Attribute> attributes);

/// <details><summary>…</summary>…</details>: what is there for who asks.
[[nodiscard]] Html Details(const Html& summary, const Html& content, bool isOpen = false);

/// JSON for scripts in an element that no browser executes. Nothing in it can end the element.
[[nodiscard]] Html ScriptData(std::string_view id, std::string_view json);

/// An id, or a part of one, out of any text: letters, digits and hyphens, at most 60.
[[nodiscard]] std::string Slug(std::string_view text);

}  // namespace vorn::kit

#endif  // VORN_KIT_PAGE_HTML_H_
