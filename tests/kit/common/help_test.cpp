// The four forms of help, of one small table.
#include <gtest/gtest.h>

#include "kit/common/command_line.h"

namespace vorn::kit {
namespace {

constexpr std::string_view kForms[] = {"-m MODEL", "--log FILE"};
constexpr Option kOptions[] = {
    {"model", 'm', "FILE",
     "The model, of which nothing is changed, whatever the runtime makes of it "
     "in the end."},
    {"a-very-long-name", 0, "VALUE", "Long."},
};
constexpr Verb kVerb{.name = "try",
                     .summary = "a trial",
                     .forms = kForms,
                     .about = "One line.\n.Another \\ line.",
                     .options = kOptions,
                     .example = "vorn try -m 'x'"};

TEST(Help, IsTextForATerminal) {
  EXPECT_EQ(HelpText(kVerb),
            "vorn try: a trial\n"
            "\n"
            "  vorn try -m MODEL\n"
            "  vorn try --log FILE\n"
            "\n"
            "One line.\n"
            ".Another \\ line.\n"
            "\n"
            "  -m, --model FILE        The model, of which nothing is changed, whatever the\n"
            "                          runtime makes of it in the end.\n"
            "      --a-very-long-name VALUE\n"
            "                          Long.\n"
            "  -h, --help              Print this, and nothing else happens. --help=page,\n"
            "                          =man and =names print the same as Markdown, as a\n"
            "                          manual page and for completion.\n"
            "\n"
            "For example:\n"
            "\n"
            "  vorn try -m 'x'\n");
}

TEST(Help, IsAPageOfMarkdown) {
  EXPECT_EQ(HelpPage(kVerb),
            "# vorn try\n"
            "\n"
            "a trial\n"
            "\n"
            "```text\n"
            "vorn try -m MODEL\n"
            "vorn try --log FILE\n"
            "```\n"
            "\n"
            "One line.\n"
            ".Another \\ line.\n"
            "\n"
            "| Option | What it is |\n"
            "|---|---|\n"
            "| `-m, --model FILE` | The model, of which nothing is changed, whatever the runtime "
            "makes of it in the end. |\n"
            "| `--a-very-long-name VALUE` | Long. |\n"
            "| `-h, --help` | Print this, and nothing else happens. --help=page, =man and =names "
            "print the same as Markdown, as a manual page and for completion. |\n"
            "\n"
            "For example:\n"
            "\n"
            "```sh\n"
            "vorn try -m 'x'\n"
            "```\n");
}

TEST(Help, IsAManualPageWithoutRequestsOfTheText) {
  EXPECT_EQ(ManualPage(kVerb),
            ".TH vorn\\-try 1\n"
            ".SH NAME\n"
            "vorn\\-try \\- a trial\n"
            ".SH SYNOPSIS\n"
            ".nf\n"
            "vorn try \\-m MODEL\n"
            "vorn try \\-\\-log FILE\n"
            ".fi\n"
            ".SH DESCRIPTION\n"
            "One line.\n"
            "\\&.Another \\e line.\n"
            ".SH OPTIONS\n"
            ".TP\n"
            ".B \\-m, \\-\\-model FILE\n"
            "The model, of which nothing is changed, whatever the runtime makes of it in the end.\n"
            ".TP\n"
            ".B \\-\\-a\\-very\\-long\\-name VALUE\n"
            "Long.\n"
            ".TP\n"
            ".B \\-h, \\-\\-help\n"
            "Print this, and nothing else happens. \\-\\-help=page, =man and =names print the same "
            "as Markdown, as a manual page and for completion.\n"
            ".SH EXAMPLES\n"
            ".nf\n"
            "vorn try \\-m 'x'\n"
            ".fi\n");
}

TEST(Help, ListsTheNames) {
  EXPECT_EQ(OptionNames(kVerb), "--model\n-m\n--a-very-long-name\n--help\n-h\n");
}

// ---- A verb that does several things ------------------------------------------------------------

constexpr std::string_view kPartForms[] = {"make -m MODEL", "make --again", "makers THING"};
constexpr Option kPartOptions[] = {
    {"model", 'm', "FILE", "The model."},
    {"thing", 0, "NAME", "A thing."},
    {"number", 0, "N", "For a call.", false, true},
    {"quiet", 'q', "", "Be quiet."},
};
constexpr std::string_view kOfMake[] = {"model", "number"};
constexpr std::string_view kOfMakers[] = {"thing"};
constexpr VerbPart kParts[] = {{"make", "Makes it.", kOfMake},
                               {"makers", "Tells of them.", kOfMakers}};
constexpr Verb kPartVerb{.name = "try",
                         .summary = "a trial",
                         .forms = kPartForms,
                         .about = "About.",
                         .options = kPartOptions,
                         .example = "vorn try make",
                         .mostOperands = 2,
                         .parts = kParts};

TEST(Help, OfAPartIsItsOwnFormsAndOptions) {
  EXPECT_EQ(HelpText(kPartVerb, kParts[0]),
            "vorn try make\n"
            "\n"
            "  vorn try make -m MODEL\n"
            "  vorn try make --again\n"
            "\n"
            "Makes it.\n"
            "\n"
            "  -m, --model FILE        The model.\n"
            "  -q, --quiet             Be quiet.\n"
            "  -h, --help              Print this, and nothing else happens. --help=page,\n"
            "                          =man and =names print the same as Markdown, as a\n"
            "                          manual page and for completion.\n"
            "\n"
            "'vorn try --help' tells of the rest.\n");
}

TEST(Help, KeepsToItselfWhatIsInternal) {
  for (const std::string& text :
       {HelpText(kPartVerb), HelpPage(kPartVerb), ManualPage(kPartVerb), OptionNames(kPartVerb)}) {
    EXPECT_EQ(text.find("number"), std::string::npos) << text;
    EXPECT_NE(text.find("thing"), std::string::npos) << text;
  }
}

TEST(TakesOption, IsSoOfItsOwnAndOfThoseOfAll) {
  EXPECT_TRUE(TakesOption(kPartVerb, kParts[0], "number"));
  EXPECT_TRUE(TakesOption(kPartVerb, kParts[1], "quiet"));
  EXPECT_FALSE(TakesOption(kPartVerb, kParts[1], "model"));
}

}  // namespace
}  // namespace vorn::kit
