#include "kit/common/command_line.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <functional>
#include <new>

namespace vorn::kit {
namespace {

using testing::ElementsAre;

constexpr std::string_view kForms[] = {"-m MODEL [--json]"};
constexpr Option kOptions[] = {
    {"model", 'm', "FILE", "The model."},    {"json", 0, "", "For programs."},
    {"batch", 'b', "N", "Items."},           {"quiet", 'q', "", "No remarks."},
    {"input", 0, "FILE", "An input.", true},
};
constexpr Verb kVerb{.name = "try",
                     .summary = "a trial",
                     .forms = kForms,
                     .about = "About.",
                     .options = kOptions,
                     .example = "vorn try -m x",
                     .mostOperands = 1};

Arguments Parse(const std::vector<std::string>& words) { return {kVerb, words}; }

std::string FaultOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const Fault& fault) {
    EXPECT_EQ(fault.Status(), ExitStatus::kUsage);
    return fault.what();
  }
  return "no fault";
}

std::string FaultOf(const std::vector<std::string>& words) {
  return FaultOf([&] { Parse(words); });
}

TEST(Arguments, TakesEveryWayToGiveAValue) {
  for (const std::vector<std::string>& words :
       {std::vector<std::string>{"--model", "a=b"}, {"--model=a=b"}, {"-m", "a=b"}, {"-ma=b"}}) {
    EXPECT_EQ(Parse(words).Get("model"), "a=b") << words[0];
  }
  EXPECT_EQ(Parse({"--model="}).Get("model"), "");
  EXPECT_EQ(Parse({"--model", "--json"}).Get("model"), "--json");  // a file may be called so
}

TEST(Arguments, KnowsWhatWasNotGiven) {
  const Arguments arguments = Parse({"--json"});
  EXPECT_TRUE(arguments.Has("json"));
  EXPECT_FALSE(arguments.Has("model"));
  EXPECT_EQ(arguments.Get("model"), std::nullopt);
  EXPECT_EQ(FaultOf([&] { (void)arguments.Need("model"); }),
            "--model FILE is missing; --help tells more");
}

TEST(Arguments, RefusesTwoValuesOfWhatTakesOne) {
  EXPECT_EQ(FaultOf({"-m", "first", "--model", "last"}),
            "--model is given twice, with 'first' and 'last'; it takes one value");
  EXPECT_EQ(Parse({"-m", "same", "--model=same"}).Need("model"), "same");
}

TEST(Arguments, KeepsAllValuesOfWhatMayBeRepeated) {
  const Arguments arguments = Parse({"--input", "b", "--input=a", "--input", "b"});
  EXPECT_THAT(arguments.GetAll("input"), ElementsAre("b", "a", "b"));
  EXPECT_THAT(Parse({}).GetAll("input"), ElementsAre());
}

TEST(Arguments, GathersOperands) {
  EXPECT_THAT(Parse({"run", "--json"}).Operands(), ElementsAre("run"));
  EXPECT_THAT(Parse({"--", "--json"}).Operands(), ElementsAre("--json"));
  EXPECT_THAT(Parse({"-"}).Operands(), ElementsAre("-"));
  EXPECT_EQ(FaultOf({"one", "two words"}),
            "'two words' is one word too many; see --help, and put what holds blanks into quotes");
}

TEST(Arguments, NamesTheNearestOption) {
  EXPECT_EQ(FaultOf({"--modle=x"}),
            "there is no option '--modle=x'; did you mean '--model'?; --help lists them");
  EXPECT_EQ(FaultOf({"--something"}), "there is no option '--something'; --help lists them");
  EXPECT_EQ(FaultOf({"-x"}), "there is no option '-x'; --help lists them");
  EXPECT_EQ(FaultOf({"--jso\n"}),
            "there is no option '--jso\\x0A'; did you mean '--json'?; --help lists them");
  EXPECT_EQ(
      FaultOf({"--mode"}),  // no short forms: they would change their meaning with a new option
      "there is no option '--mode'; did you mean '--model'?; --help lists them");
}

TEST(Arguments, RefusesAValueTooFewOrTooMany) {
  EXPECT_EQ(FaultOf({"--model"}), "--model needs FILE behind it");
  EXPECT_EQ(FaultOf({"-m"}), "--model needs FILE behind it");
  EXPECT_EQ(FaultOf({"--json=yes"}), "--json takes no value, and got 'yes'");
  EXPECT_EQ(FaultOf({"-qm"}), "--quiet takes no value, and got 'm'");
}

TEST(Arguments, ReadsNumbersWithinTheirLimits) {
  EXPECT_EQ(Parse({}).GetNumber("batch", 7, 1, 9), 7U);
  EXPECT_EQ(Parse({"-b1"}).GetNumber("batch", 7, 1, 9), 1U);
  EXPECT_EQ(Parse({"-b9"}).GetNumber("batch", 7, 1, 9), 9U);
  for (const std::string value : {"0", "10", "-1", "3x", "", " 3", "0x3", "18446744073709551616"}) {
    const Arguments arguments = Parse({"--batch=" + value});
    EXPECT_EQ(FaultOf([&] { (void)arguments.GetNumber("batch", 7, 1, 9); }),
              "--batch takes a whole number from 1 to 9, and got '" + value + "'");
  }
}

TEST(Arguments, AnswersForOptionsOfItsTableOnly) {
  EXPECT_THROW((void)Parse({}).Has("unknown"), std::logic_error);
}

// ---- A whole main -------------------------------------------------------------------------------

struct Ended {
  int status;
  std::string out;
  std::string err;
};

Ended RunMain(std::vector<std::string> words, ExitStatus (*run)(const Arguments&)) {
  words.insert(words.begin(), "vorn-try");
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  const int status = RunVerb(kVerb, static_cast<int>(argv.size()), argv.data(), run);
  const std::string out = testing::internal::GetCapturedStdout();
  return {status, out, testing::internal::GetCapturedStderr()};
}

TEST(RunVerb, EndsWithWhatTheVerbSays) {
  EXPECT_EQ(RunMain({}, [](const Arguments&) { return ExitStatus::kDiffers; }).status, 6);
  EXPECT_EQ(RunMain({}, [](const Arguments&) { return ExitStatus::kDone; }).status, 0);
}

TEST(RunVerb, TellsAFaultInOneLine) {
  const Ended ended = RunMain({}, [](const Arguments&) -> ExitStatus {
    throw Fault(ExitStatus::kInput, "line 3 names no file");
  });
  EXPECT_EQ(ended.status, 3);
  EXPECT_EQ(ended.out, "");
  EXPECT_EQ(ended.err, "vorn try: line 3 names no file\n");
}

TEST(RunVerb, HearsOfChildrenWhereItsParentDidNot) {
  const auto before = std::signal(SIGCHLD, SIG_IGN);
  const Ended ended = RunMain({}, [](const Arguments&) {
    const pid_t child = fork();
    if (child == 0) _exit(3);
    int status = 0;
    const bool isTold = waitpid(child, &status, 0) == child && WEXITSTATUS(status) == 3;
    return isTold ? ExitStatus::kDone : ExitStatus::kDiffers;
  });
  (void)std::signal(SIGCHLD, before);
  EXPECT_EQ(ended.status, 0);
}

TEST(RunVerb, TellsOfTheCommandLine) {
  const Ended ended = RunMain({"--nothing"}, [](const Arguments&) { return ExitStatus::kDone; });
  EXPECT_EQ(ended.status, 2);
  EXPECT_EQ(ended.err, "vorn try: there is no option '--nothing'; --help lists them\n");
}

TEST(RunVerb, TellsOfMissingMemoryAndOfItsOwnFaults) {
  const Ended memory = RunMain({}, [](const Arguments&) -> ExitStatus { throw std::bad_alloc(); });
  EXPECT_EQ(memory.status, 7);
  EXPECT_EQ(memory.err, "vorn try: there is no memory left\n");
  const Ended own =
      RunMain({}, [](const Arguments&) -> ExitStatus { throw std::logic_error("oops"); });
  EXPECT_EQ(own.status, 1);
  EXPECT_EQ(own.err, "vorn try: a fault of the kit's own, which somebody should hear of: oops\n");
}

TEST(RunVerb, HelpsWhateverElseIsWrong) {
  const auto never = [](const Arguments&) -> ExitStatus { throw std::logic_error("ran"); };
  for (const std::vector<std::string>& words :
       {std::vector<std::string>{"--help"}, {"-h"}, {"--nothing", "--help"}}) {
    const Ended ended = RunMain(words, never);
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.out, HelpText(kVerb));
    EXPECT_EQ(ended.err, "");
  }
  EXPECT_EQ(RunMain({"--help=page"}, never).out, HelpPage(kVerb));
  EXPECT_EQ(RunMain({"--help=man"}, never).out, ManualPage(kVerb));
  EXPECT_EQ(RunMain({"--help=names"}, never).out, OptionNames(kVerb));
  EXPECT_EQ(RunMain({"--help=summary"}, never).out, std::string(kVerb.summary) + "\n");
  EXPECT_EQ(RunMain({"--help=x"}, never).err,
            "vorn try: there is no help of the form 'x'; --help, --help=page, --help=man or "
            "--help=names\n");
  EXPECT_EQ(RunMain({"--", "--help"}, [](const Arguments&) { return ExitStatus::kNothing; }).status,
            9);
}

}  // namespace
}  // namespace vorn::kit
