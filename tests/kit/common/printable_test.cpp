#include "kit/common/printable.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace vorn::kit {
namespace {

TEST(Printable, LeavesWhatPeopleWrite) {
  EXPECT_EQ(Printable("input:0, gpu_0/data_0"), "input:0, gpu_0/data_0");
  EXPECT_EQ(Printable("größe 画像 😀"), "größe 画像 😀");
  EXPECT_EQ(Printable(""), "");
}

TEST(Printable, ShowsWhatSteersATerminal) {
  EXPECT_EQ(Printable("a\nb\tc\x1B[31m\x7F"), "a\\x0Ab\\x09c\\x1B[31m\\x7F");
  EXPECT_EQ(Printable(std::string_view("\0", 1)), "\\x00");
  EXPECT_EQ(Printable("\xC2\x9B"
                      "31m"),
            "\\xC2\\x9B31m");  // the same command, in UTF-8
  EXPECT_EQ(Printable("\xE2\x80\xAE"
                      "txt"),
            "\\xE2\\x80\\xAEtxt");  // turns the writing round
  EXPECT_EQ(Printable("\xE2\x81\xA6"), "\\xE2\\x81\\xA6");
  EXPECT_EQ(Printable("\xEF\xBB\xBF"), "\\xEF\\xBB\\xBF");
  EXPECT_EQ(Printable("\xC2\xA0"), "\xC2\xA0");
}

TEST(Quoted, PutsWhatIsPrintableBetweenQuotes) { EXPECT_EQ(Quoted("a\nb"), "'a\\x0Ab'"); }

TEST(Counted, SaysOneAndMany) {
  EXPECT_EQ(Counted(0, "file"), "0 files");
  EXPECT_EQ(Counted(1, "file"), "1 file");
  EXPECT_EQ(Counted(2, "file"), "2 files");
}

TEST(PrintableExcerpt, IsTheWholeTextOrItsBeginning) {
  EXPECT_EQ(PrintableExcerpt("a\nb"), "a\\x0Ab");
  EXPECT_EQ(PrintableExcerpt(std::string(200, 'x')), std::string(200, 'x'));
  EXPECT_EQ(PrintableExcerpt(std::string(201, '\n')), Printable(std::string(200, '\n')) + "...");
}

TEST(Printable, DoublesTheBackslashSoThatTextsStayApart) {
  EXPECT_EQ(Printable("a\\x0A"), "a\\\\x0A");
}

TEST(Printable, ShowsTheBytesOfWhatIsNoUtf8) {
  EXPECT_EQ(Printable("\xFF"), "\\xFF");
  EXPECT_EQ(Printable("\x80"), "\\x80");
  EXPECT_EQ(Printable("\xC3"), "\\xC3");  // cut off
  EXPECT_EQ(Printable("\xE2\x82"), "\\xE2\\x82");
  EXPECT_EQ(Printable("\xC3"
                      "a"),
            "\\xC3"
            "a");                                  // not continued
  EXPECT_EQ(Printable("\xC0\xAF"), "\\xC0\\xAF");  // a longer form of '/'
  EXPECT_EQ(Printable("\xE0\x82\xA9"), "\\xE0\\x82\\xA9");
  EXPECT_EQ(Printable("\xF0\x82\x82\xAC"), "\\xF0\\x82\\x82\\xAC");
  EXPECT_EQ(Printable("\xED\xA0\x80"), "\\xED\\xA0\\x80");           // half of a pair
  EXPECT_EQ(Printable("\xF4\x90\x80\x80"), "\\xF4\\x90\\x80\\x80");  // behind the last code point
  EXPECT_EQ(Printable("\xF4\x8F\xBF\xBF"), "\xF4\x8F\xBF\xBF");
}

TEST(DisplayWidth, CountsCodePoints) {
  EXPECT_EQ(DisplayWidth("abc"), 3U);
  EXPECT_EQ(DisplayWidth("größe"), 5U);
  EXPECT_EQ(DisplayWidth(""), 0U);
}

TEST(SizeText, HasTheUnitThatReadsBest) {
  EXPECT_EQ(SizeText(0), "0 bytes");
  EXPECT_EQ(SizeText(1), "1 byte");
  EXPECT_EQ(SizeText(1023), "1023 bytes");
  EXPECT_EQ(SizeText(1024), "1.0 KiB");
  EXPECT_EQ(SizeText(40505), "39.6 KiB");
  EXPECT_EQ(SizeText((1 << 20) - 1), "1.0 MiB");  // and not 1024.0 KiB
  EXPECT_EQ(SizeText(uint64_t{5} << 30), "5.0 GiB");
  EXPECT_EQ(SizeText(UINT64_MAX), "16.0 EiB");
}

TEST(SystemReason, IsTheSystems) { EXPECT_EQ(SystemReason(ENOENT), "No such file or directory"); }

TEST(QuotedCommand, IsTakenByAShellAsItWas) {
  EXPECT_EQ(QuotedCommand({"vorn", "launch", "--run", "a b", "it's", ""}),
            "vorn launch --run 'a b' 'it'\\''s' ''");
  EXPECT_EQ(QuotedCommand({"n/\x1b[31m", "a\\b", "\xff'\n"}),
            "$'n/\\x1B[31m' $'a\\\\b' $'\\xFF\\'\\x0A'");
}

}  // namespace
}  // namespace vorn::kit
