#include "kit/prepare/workers.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <map>
#include <vector>

namespace vorn::kit {
namespace {

std::map<uint64_t, TaskAnswer> AnswersOf(uint64_t tasks, const WorkerLimits& limits,
                                         const std::function<std::string(uint64_t)>& work) {
  std::map<uint64_t, TaskAnswer> answers;
  RunTasks(
      tasks, limits, work,
      [&](const TaskAnswer& answer) {
        EXPECT_TRUE(answers.emplace(answer.task, answer).second) << "two answers of a task";
        return true;
      },
      [] {});
  return answers;
}

[[noreturn]] void Hang() {
  for (;;) pause();
}

TEST(RunTasks, AnswersEachTaskOnce) {
  const auto answers = AnswersOf(100, {.workers = 3}, [](uint64_t task) {
    return std::string(task, 'x') + std::to_string(getpid());
  });
  ASSERT_EQ(answers.size(), 100U);
  for (const auto& [task, answer] : answers) {
    EXPECT_EQ(answer.status, ExitStatus::kDone);
    EXPECT_EQ(answer.text.substr(0, task), std::string(task, 'x'));
    EXPECT_NE(answer.text.substr(task), std::to_string(getpid())) << "it was done here";
  }
}

TEST(RunTasks, TellsAFaultFromACrashAndGoesOn) {
  const auto answers = AnswersOf(9, {.workers = 2}, [](uint64_t task) -> std::string {
    if (task == 2) throw Fault(ExitStatus::kInput, "is no picture");
    if (task == 4) raise(SIGKILL);
    if (task == 6) _exit(3);
    if (task == 7) throw std::runtime_error("something else");
    return "well";
  });
  ASSERT_EQ(answers.size(), 9U);
  for (const uint64_t task : {0, 1, 3, 5, 8}) EXPECT_EQ(answers.at(task).text, "well") << task;
  EXPECT_EQ(answers.at(2).status, ExitStatus::kInput);
  EXPECT_EQ(answers.at(2).text, "is no picture");
  EXPECT_EQ(answers.at(4).status, ExitStatus::kInput);
  EXPECT_EQ(answers.at(4).text, "ended its process by signal 9 (Killed)");
  EXPECT_EQ(answers.at(6).text, "ended its process");
  EXPECT_EQ(answers.at(7).status, ExitStatus::kOwnFault);
  EXPECT_EQ(answers.at(7).text, "something else");
}

TEST(RunTasks, EndsOneThatTakesTooLong) {
  const auto answers = AnswersOf(3, {.workers = 2, .time = std::chrono::seconds(1)},
                                 [](uint64_t task) -> std::string {
                                   if (task == 1) Hang();
                                   return "well";
                                 });
  EXPECT_EQ(answers.at(1).status, ExitStatus::kLimit);
  EXPECT_EQ(answers.at(1).text, "takes longer than the 1 second that it may");
  EXPECT_EQ(answers.at(0).text, "well");
  EXPECT_EQ(answers.at(2).text, "well");
}

// A child has the next task at hand while it is at one.
TEST(RunTasks, GivesWhatADeadOneHadNotBegunToTheNext) {
  const auto answers = AnswersOf(20, {.workers = 1}, [](uint64_t task) -> std::string {
    if (task % 3 == 1) _exit(3);
    return "well";
  });
  ASSERT_EQ(answers.size(), 20U);
  for (const auto& [task, answer] : answers) {
    EXPECT_EQ(answer.text, task % 3 == 1 ? "ended its process" : "well") << task;
  }
}

TEST(RunTasks, GivesWhatALateOneHadNotBegunToTheNext) {
  const auto answers = AnswersOf(4, {.workers = 1, .time = std::chrono::seconds(1)},
                                 [](uint64_t task) -> std::string {
                                   if (task == 1) Hang();
                                   return "well";
                                 });
  ASSERT_EQ(answers.size(), 4U);
  EXPECT_EQ(answers.at(1).text, "takes longer than the 1 second that it may");
  for (const uint64_t task : {0, 2, 3}) EXPECT_EQ(answers.at(task).text, "well") << task;
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST(RunTasks, EndsOneThatEatsMemory) {
  const auto answers =
      AnswersOf(2, {.workers = 1, .memoryBytes = 64 << 20}, [](uint64_t task) -> std::string {
        const std::vector<char> room(task == 0 ? 128 << 20 : 1 << 20);
        return std::to_string(room.size());
      });
  EXPECT_EQ(answers.at(0).status, ExitStatus::kLimit);
  EXPECT_EQ(answers.at(0).text, "takes more memory than the 64.0 MiB that it may");
  EXPECT_EQ(answers.at(1).text, std::to_string(1 << 20));
}
#endif

TEST(RunTasks, CutsAnAnswerAtItsMost) {
  constexpr size_t kMost = 16 << 20;
  const auto answers = AnswersOf(3, {.workers = 1},
                                 [](uint64_t task) { return std::string(kMost - 1 + task, 'x'); });
  ASSERT_EQ(answers.size(), 3U);
  for (const uint64_t task : {0, 1, 2}) {
    EXPECT_EQ(answers.at(task).status, ExitStatus::kDone) << task;
    EXPECT_EQ(answers.at(task).text.size(), task == 0 ? kMost - 1 : kMost) << task;
  }
}

TEST(RunTasks, StopsWhereItIsToldTo) {
  uint64_t taken = 0;
  RunTasks(
      1000, {.workers = 2}, [](uint64_t) { return std::string(); },
      [&](const TaskAnswer&) { return ++taken < 5; }, [] {});
  EXPECT_EQ(taken, 5U);
}

TEST(RunTasks, HasNothingToDoForNoTask) {
  EXPECT_TRUE(AnswersOf(0, {}, [](uint64_t) { return std::string(); }).empty());
}

}  // namespace
}  // namespace vorn::kit
