#include "kit/fleet/fleet_plan.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cctype>
#include <filesystem>
#include <functional>

#include "kit/common/fault.h"
#include "kit/fleet/made_fleet.h"
#include "kit/json/json.h"
#include "support/files.h"
#include "support/json_schema.h"

namespace {

using fleet_test::MadeFleet;
using support::FaultBySchema;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using vorn::kit::AttemptsIn;
using vorn::kit::FileIdentity;
using vorn::kit::FleetPlan;
using vorn::kit::ReadFleetPlan;
using vorn::kit::SampleRecord;

FileIdentity File(const std::string& name) {
  return {.path = name, .sizeBytes = 1, .xxh3 = vorn::kit::Xxh3Of(name)};
}

FleetPlan Full() {
  FleetPlan plan;
  plan.version = "0.1.0";
  plan.command = {"vorn", "fleet", "plan"};
  plan.from = "/home/me";
  plan.model = File("m");
  plan.configuration = File("c");
  plan.configurationFiles = {File("t"), File("/opt/u")};
  plan.thresholds = {File("a"), File("b")};
  plan.list = File("l");
  plan.runtime = File("r");
  plan.program = File("p");
  plan.ownFiles = {File("inputs.jsonl")};
  plan.options = {.batch = 2,
                  .totalT = 3,
                  .isProfiled = true,
                  .isTextKept = false,
                  .areArrays = true,
                  .isTraced = false,
                  .sampleLimitS = 4};
  plan.inferences = 5;
  plan.perInference = 2;
  plan.outputs = 3;
  plan.areNamesKept = true;
  plan.cost = {.startNs = 6, .sampleNs = 7};
  plan.crossCheck = {0, 4};
  plan.chunks = {{.first = 0, .inferences = 3, .inputsAt = 0, .pathsAt = 0},
                 {.first = 3, .inferences = 2, .inputsAt = 100, .pathsAt = 20}};
  plan.id = IdOf(plan);
  return plan;
}

class PlanFile : public testing::Test {
 protected:
  std::string Fleet() const { return folder_.Path(); }

  void Write(const std::string& text) const { support::WriteFile(Fleet() + "/plan.json", text); }

  /// With the id that belongs to it.
  void Write(const std::function<void(FleetPlan&)>& change) const {
    FleetPlan plan = Full();
    change(plan);
    plan.id = IdOf(plan);
    Write(ToJson(plan));
  }

  std::string Fault() const {
    try {
      (void)ReadFleetPlan(Fleet());
    } catch (const vorn::kit::Fault& fault) {
      EXPECT_EQ(fault.Status(), vorn::kit::ExitStatus::kInput);
      EXPECT_THAT(fault.what(), HasSubstr("plan.json"));
      return fault.what();
    }
    return "";
  }

  support::TempDir folder_;
};

// ---- plan.json ----------------------------------------------------------------------------------

TEST_F(PlanFile, ComesBackAsItWas) {
  Write(ToJson(Full()));
  EXPECT_EQ(ReadFleetPlan(Fleet()), Full());
  FleetPlan least;
  least.id = IdOf(least);
  Write(ToJson(least));
  EXPECT_EQ(ReadFleetPlan(Fleet()), least);
}

TEST_F(PlanFile, IsWhatTheSchemaSays) {
  EXPECT_EQ(FaultBySchema("fleet_plan", ToJson(Full())), "");
  FleetPlan least;
  least.id = IdOf(least);
  EXPECT_EQ(FaultBySchema("fleet_plan", ToJson(least)), "");
  EXPECT_NE(FaultBySchema("fleet_plan", "{}"), "");
  least.id = "x";
  EXPECT_NE(FaultBySchema("fleet_plan", ToJson(least)), "");
}

TEST_F(PlanFile, IsRefusedWhereACharacterWasChanged) {
  const std::string text = ToJson(Full());
  for (size_t at = 0; at < text.size(); at += 5) {
    if (std::isalnum(static_cast<unsigned char>(text[at])) == 0) continue;
    std::string changed = text;
    changed[at] = text[at] == '7' ? '8' : '7';
    if (changed == text) continue;
    Write(changed);
    EXPECT_NE(Fault(), "") << at << ": " << text.substr(at, 30);
  }
}

TEST_F(PlanFile, IsRefusedWhereItWasCutShort) {
  const std::string text = ToJson(Full());
  for (size_t size = 0; size + 2 < text.size(); size += 7) {
    Write(text.substr(0, size));
    EXPECT_NE(Fault(), "") << size;
  }
  Write(text);
  EXPECT_EQ(Fault(), "");
}

TEST_F(PlanFile, SaysWhyItIsRefused) {
  EXPECT_THAT(Fault(), HasSubstr("is no folder of a fleet: there is no plan.json in it"));
  Write("[]");
  EXPECT_THAT(Fault(), HasSubstr("make it again with 'vorn fleet plan'"));
  std::string text = ToJson(Full());
  text.replace(text.find("\"schema\": 1"), 11, "\"schema\": 2");
  Write(text);
  EXPECT_THAT(Fault(), HasSubstr("its schema is 2, and this program reads 1"));
  text = ToJson(Full());
  text.replace(text.find("/home/me"), 8, "/home/us");
  Write(text);
  EXPECT_THAT(Fault(), HasSubstr("it was changed since it was made"));
}

TEST_F(PlanFile, HasChunksThatFollowEachOther) {
  for (const auto& [change, why] :
       std::vector<std::pair<std::function<void(FleetPlan&)>, std::string>>{
           {[](FleetPlan& plan) { plan.chunks[0].first = 1; }, "chunk of inference 1 does not"},
           {[](FleetPlan& plan) { plan.chunks[1].first = 2; }, "chunk of inference 2 does not"},
           {[](FleetPlan& plan) { plan.chunks[1].first = 4; }, "chunk of inference 4 does not"},
           {[](FleetPlan& plan) { plan.chunks[1].inferences = 0; }, "of inference 3 does not"},
           {[](FleetPlan& plan) { plan.chunks[1].inferences = 3; }, "of inference 3 does not"},
           {[](FleetPlan& plan) { plan.chunks[1].inferences = UINT64_MAX; }, "3 does not follow"},
           {[](FleetPlan& plan) { plan.chunks[1].inferences = 1; }, "end at inference 4 of 5"},
           {[](FleetPlan& plan) { plan.chunks.clear(); }, "end at inference 0 of 5"},
           {[](FleetPlan& plan) { std::swap(plan.chunks[0], plan.chunks[1]); }, "does not follow"},
           {[](FleetPlan& plan) { plan.crossCheck = {5}; }, "by inference 5, and has 5"},
       }) {
    Write(change);
    EXPECT_THAT(Fault(), HasSubstr(why));
  }
}

TEST_F(PlanFile, KnowsTheFilesBesideIt) {
  const FleetPlan plan = Full();
  support::WriteFile(Fleet() + "/inputs.jsonl", "inputs.jsonl");  // as File has it
  HoldToOwnFiles(Fleet(), plan);
  for (const char* text : {"inputs.jsonk", "inputs", ""}) {
    support::WriteFile(Fleet() + "/inputs.jsonl", text);
    EXPECT_THAT([&] { HoldToOwnFiles(Fleet(), plan); },
                testing::ThrowsMessage<vorn::kit::Fault>(
                    HasSubstr("inputs.jsonl' was changed since the plan was made")))
        << text;
  }
  std::filesystem::remove(Fleet() + "/inputs.jsonl");
  EXPECT_THROW(HoldToOwnFiles(Fleet(), plan), vorn::kit::Fault);
}

TEST(FleetPlanId, IsOfAllButItself) {
  FleetPlan plan = Full();
  const std::string id = plan.id;
  plan.id = "other";
  EXPECT_EQ(IdOf(plan), id);
  plan.options.batch.reset();
  EXPECT_NE(IdOf(plan), id);
}

// ---- Chunks and their lines ---------------------------------------------------------------------

TEST(FleetChunks, KnowTheirInferences) {
  const FleetPlan plan = Full();
  std::vector<uint64_t> chunks;
  for (uint64_t i = 0; i < plan.inferences; ++i) chunks.push_back(ChunkOf(plan, i));
  EXPECT_THAT(chunks, ElementsAre(0, 0, 0, 1, 1));
}

TEST(FleetChunks, ReadTheirInputs) {
  const MadeFleet fleet(7, 3);
  for (const auto& chunk : fleet.Plan().chunks) {
    std::vector<uint64_t> indices;
    vorn::kit::ForEachInput(fleet.Folder(), chunk.inputsAt, chunk.inferences,
                            [&](const SampleRecord& record) { indices.push_back(record.index); });
    ASSERT_EQ(indices.size(), chunk.inferences);
    EXPECT_EQ(indices.front(), chunk.first);
    EXPECT_EQ(indices.back(), chunk.first + chunk.inferences - 1);
  }
}

TEST(FleetChunks, ReadTheirPathsByteForByte) {
  const MadeFleet fleet(1, 1);
  support::WriteFile(fleet.Folder() + "/paths.txt", "/a\n/\xFF:\" b\n/c\n");
  EXPECT_THAT(vorn::kit::ReadPaths(fleet.Folder(), 0, 3), ElementsAre("/a", "/\xFF:\" b", "/c"));
  EXPECT_THAT(vorn::kit::ReadPaths(fleet.Folder(), 3, 1), ElementsAre("/\xFF:\" b"));
  EXPECT_THAT(vorn::kit::ReadPaths(fleet.Folder(), 3, 0), IsEmpty());
}

TEST(FleetChunks, AreRefusedWhereTheirLinesAreCutShort) {
  const MadeFleet fleet(7, 3);
  const auto fault = [&](const std::function<void()>& read) -> std::string {
    try {
      read();
    } catch (const vorn::kit::Fault& refused) {
      EXPECT_EQ(refused.Status(), vorn::kit::ExitStatus::kInput);
      return refused.what();
    }
    return "";
  };
  const auto inputs = [&] {
    vorn::kit::ForEachInput(fleet.Folder(), 0, 7, [](const SampleRecord&) {});
  };
  EXPECT_EQ(fault(inputs), "");
  const std::string path = fleet.Folder() + "/inputs.jsonl";
  const std::string text = support::ReadFile(path);
  for (const size_t size : {text.size() - 1, text.size() / 2, size_t{0}}) {
    support::WriteFile(path, text.substr(0, size));
    EXPECT_THAT(fault(inputs), AllOf(HasSubstr("inputs.jsonl"), HasSubstr("make the plan again")));
  }
  support::WriteFile(path, "{}\n");
  EXPECT_THAT(fault(inputs), HasSubstr("inputs.jsonl"));
  const auto paths = [&] { (void)vorn::kit::ReadPaths(fleet.Folder(), 0, 2); };
  support::WriteFile(fleet.Folder() + "/paths.txt", "/a\n/b");
  EXPECT_THAT(fault(paths), HasSubstr("paths.txt' ends before its plan does"));
  std::filesystem::remove(fleet.Folder() + "/paths.txt");
  EXPECT_THAT(fault(paths), HasSubstr("paths.txt' cannot be read"));
}

// ---- Folders of attempts ------------------------------------------------------------------------

TEST(FleetAttempts, AreThoseThatAreWhole) {
  const support::TempDir folder;
  for (const char* name : {"10", "9", "3.part", "4.said", "0", "-1", "007", "1x", "+5", " 6",
                           "99999999999999999999999"}) {
    std::filesystem::create_directories(folder.Path() / name);
  }
  EXPECT_THAT(AttemptsIn(folder.Path()), ElementsAre(9, 10));
  EXPECT_THAT(AttemptsIn(folder.Path() / "none"), IsEmpty());
}

}  // namespace
