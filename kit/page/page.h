// A page in one file: nothing is fetched, nothing is sent, and what it says it says without
// scripts.
//
// Its Content-Security-Policy is `default-src 'none'` with the hashes of the one style and of the
// scripts that stand in it. So a name of a tensor that got past all escaping could still run
// nothing, load nothing and send nothing. `style=` attributes are forbidden with that; pictures are
// allowed as `data:` alone (img-src data:), since a picture is a tenth of the same drawn in
// rectangles, and one in an <img> can neither run nor load anything.
#ifndef VORN_KIT_PAGE_PAGE_H_
#define VORN_KIT_PAGE_PAGE_H_

#include <string>
#include <vector>

#include "kit/page/html.h"

namespace vorn::kit {

/// How what is said on top looks: a colour and a sign, beside words that say the same.
enum class Tone { kGood, kBad, kOpen };

/// A part of the page with an entry in its navigation.
struct PageSection {
  std::string id;     ///< what links lead to; made of letters, digits and hyphens, unique
  std::string title;  ///< any text
  Html content;
};

struct Page {
  std::string title;  ///< any text: of the window, and of the head's small line
  Tone tone = Tone::kOpen;
  std::string verdict;                ///< a word or two in a pill: "WRONG"; may be empty
  std::string answer;                 ///< the page's heading: a sentence that a person can repeat
  Html head;                          ///< under the answer
  std::vector<PageSection> sections;  ///< those without content are left out
  Html foot;
  bool hasTimeline = false;  ///< brings the scripts that `Timeline` (timeline.h) needs
};

/// The whole file. The same page is the same bytes.
[[nodiscard]] std::string PageText(const Page& page);

/// Key figures in a row: "samples" "10,000" "of 10,000 done".
struct Tile {
  std::string title;
  std::string value;
  std::string more;
  Tone tone = Tone::kOpen;
  bool isToned = false;  ///< else it is neither good nor bad
};
[[nodiscard]] Html Tiles(const std::vector<Tile>& tiles);

/// A verdict as a pill with its sign, for tables.
[[nodiscard]] Html Pill(Tone tone, std::string_view text);

/// A heading of a part of a section. `level` is 3 or 4.
[[nodiscard]] Html Heading(int level, std::string_view text, std::string_view id = {});

/// A paragraph, and a quieter one.
[[nodiscard]] Html Paragraph(const Html& content);
[[nodiscard]] Html Note(const Html& content);

/// What others printed, as it stands, in a box that scrolls.
[[nodiscard]] Html Printout(std::string_view label, std::string_view text);

/// Names and values: <dl>.
struct Fact {
  std::string name;
  Html value;
};
[[nodiscard]] Html FactList(const std::vector<Fact>& facts);

/// Side by side where there is room.
[[nodiscard]] Html SideBySide(const std::vector<Html>& parts);

/// A link to an id of the page.
[[nodiscard]] Html LinkTo(std::string_view id, const Html& content);

/// A link to a file, by a path below or beside the page. What is no relative path is text, not a
/// link: a path of others must not become "javascript:…".
[[nodiscard]] Html LinkToFile(std::string_view path, const Html& content);

}  // namespace vorn::kit

#endif  // VORN_KIT_PAGE_PAGE_H_
