#include "kit/page/html.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace vorn::kit {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

TEST(Text, WritesWhatMeansSomethingAsReferences) {
  EXPECT_EQ(Text("<a href=\"x\">'&'</a>").Bytes(),
            "&lt;a href=&quot;x&quot;&gt;&#39;&amp;&#39;&lt;/a&gt;");
}

TEST(Text, ShowsWhatSteers) {
  EXPECT_EQ(Text("a\nb").Bytes(), "a\\x0Ab");
  EXPECT_EQ(Text("\xE2\x80\xAEgpj.exe").Bytes(), "\\xE2\\x80\\xAEgpj.exe");
  EXPECT_EQ(Text("\xC3(").Bytes(), "\\xC3(");
  EXPECT_EQ(Text(std::string_view("a\0b", 3)).Bytes(), "a\\x00b");
}

TEST(Text, LeavesWordsOfOtherLanguagesAlone) {
  EXPECT_EQ(Text("größe 高さ").Bytes(), "größe 高さ");
}

TEST(Lines, KeepsEndsOfLinesAndTabs) {
  EXPECT_EQ(Lines("a\n\t<b>\x1b[0m\n").Bytes(), "a\n\t&lt;b&gt;\\x1B[0m\n");
  EXPECT_EQ(Lines("").Bytes(), "");
}

TEST(Name, IsKeptApartFromTheWritingDirectionAround) {
  EXPECT_EQ(Name("input:0").Bytes(), "<bdi class=\"name short\">input:0</bdi>");
  EXPECT_THAT(Name(std::string(25, 'n')).Bytes(), StartsWith("<bdi class=\"name\">n"));
}

TEST(NameExcerpt, ShowsShortNamesWhole) {
  const std::string name(120, 'n');
  EXPECT_EQ(NameExcerpt(name), name);
}

TEST(NameExcerpt, ShowsBothEndsOfALongName) {
  const std::string name = "begin" + std::string(10000, 'n') + "end";
  const std::string shown = NameExcerpt(name);
  EXPECT_THAT(shown, StartsWith("beginnnn"));
  EXPECT_THAT(shown, HasSubstr("…"));
  EXPECT_THAT(shown, EndsWith("nnnend (10,008 bytes)"));
  EXPECT_LT(shown.size(), 160U);
}

TEST(NameExcerpt, IsShortAlsoOfBytesThatTakeFourCharacters) {
  const std::string shown = NameExcerpt(std::string(10000, '\xff'));
  EXPECT_LT(shown.size(), 160U);
  EXPECT_THAT(shown, EndsWith("(10,000 bytes)"));
}

TEST(NameExcerpt, CutsBetweenCharacters) {
  std::string name;
  for (int i = 0; i < 200; ++i) name += "高";
  const std::string shown = NameExcerpt(name, 30);
  // What was cut within a character would be shown by its bytes.
  EXPECT_THAT(shown, Not(HasSubstr("\\x")));
  EXPECT_EQ(Text(shown).Bytes(), shown);
}

TEST(Element, EscapesAttributes) {
  EXPECT_EQ(Element("p", {{"title", "\"><script>"}}, Text("x")).Bytes(),
            "<p title=\"&quot;&gt;&lt;script&gt;\">x</p>");
}

TEST(Element, OfAnEmptyValueIsAnAttributeAlone) {
  EXPECT_EQ(Element("details", {{"open", ""}}).Bytes(), "<details open></details>");
  EXPECT_EQ(VoidElement("input", {{"disabled", ""}}).Bytes(), "<input disabled>");
}

TEST(ScriptData, CannotEndItsElement) {
  const std::string data = ScriptData("d", R"(["</script><!--<script>&"])").Bytes();
  EXPECT_EQ(data,
            "<script type=\"application/json\" id=\"d\">[\"\\u003c/script\\u003e\\u003c!--"
            "\\u003cscript\\u003e\\u0026\"]</script>");
}

TEST(Slug, IsMadeOfLettersDigitsAndHyphens) {
  EXPECT_EQ(Slug("gpu_0/Data: 0"), "gpu-0-data-0");
  EXPECT_EQ(Slug("<高さ>"), "");
  EXPECT_EQ(Slug(std::string(100, 'a')).size(), 60U);
}

TEST(Details, OpensWhereItIsSaid) {
  EXPECT_EQ(Details(Text("s"), Text("c")).Bytes(), "<details><summary>s</summary>c</details>");
  EXPECT_THAT(Details(Text("s"), Text("c"), true).Bytes(), StartsWith("<details open>"));
}

}  // namespace
}  // namespace vorn::kit
