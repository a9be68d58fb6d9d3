// `vorn prepare` as a program.
#include "kit/prepare/prepare.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>

#include "kit/model/model_json.h"
#include "support/command.h"
#include "support/files.h"
#include "support/json_schema.h"
#include "vorn/vorn.h"

namespace vorn::kit {
namespace {

namespace fs = std::filesystem;
using support::Bytes;
using support::Outcome;
using testing::ElementsAre;
using testing::HasSubstr;

TensorDescription Input(const std::string& name, std::vector<int64_t> shape, uint32_t type) {
  TensorDescription input;
  input.name = name;
  input.shape = std::move(shape);
  input.type = type;
  input.elementBits = BitsOfType(type);
  input.format = VORN_FORMAT_NCHW;
  return input;
}

class PrepareVerb : public testing::Test {
 protected:
  std::string Path(const std::string& name) const { return folder_.Path() / name; }

  void Write(const std::string& name, const std::string& bytes) const {
    support::WriteFile(Path(name), bytes);
  }

  // A picture of one colour.
  void Colour(const std::string& name, int red, int green, int blue, int side = 2) const {
    std::string bytes = "P6\n" + std::to_string(side) + " " + std::to_string(side) + "\n255\n";
    for (int i = 0; i < side * side; ++i) {
      for (const int value : {red, green, blue}) bytes += static_cast<char>(value);
    }
    Write(name, bytes);
  }

  void Model(const std::vector<TensorDescription>& inputs,
             int32_t netType = VORN_NET_FEED_FORWARD) const {
    ModelDescription model;
    model.netType = netType;
    model.inputs = inputs;
    for (const TensorRole role : {TensorRole::kTask, TensorRole::kWork}) {
      TensorDescription scratch = Input("scratch", {64}, VORN_UINT8);
      scratch.role = role;
      model.inputs.push_back(scratch);
    }
    model.model.path = "model.om";
    Write("model.json", ToJson(model));
  }

  Outcome Run(std::vector<std::string> words) const {
    words.insert(words.begin(), "prepare");
    support::Command command;
    command.program = VORN_COMMAND;
    command.arguments = words;
    command.directory = folder_.Path();
    return RunCommand(command);
  }

  Outcome Prepare(std::vector<std::string> words) const {
    words.insert(words.begin(), {"--model-json", "model.json", "-o", "out"});
    return Run(words);
  }

  std::string Out(const std::string& name) const { return support::ReadFile(Path("out/" + name)); }

  support::TempDir folder_;
};

TEST_F(PrepareVerb, MakesAFolderOfPicturesIntoTensorsAndAList) {
  Model({Input("picture", {1, 3, 2, 2}, VORN_FLOAT32)});
  Colour("photos/b.ppm", 0, 255, 0);
  Colour("photos/a.ppm", 255, 0, 51);
  Write("photos/README", "no picture");
  const Outcome ended = Prepare({"--input", "photos", "--recipe", "zero-one"});
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_EQ(Out("list.txt"), "tensors/000000.bin\ntensors/000001.bin\n");
  EXPECT_EQ(Out("tensors/000000.bin"),
            Bytes<float>({1, 1, 1, 1, 0, 0, 0, 0, 0.2F, 0.2F, 0.2F, 0.2F}));
  EXPECT_EQ(Out("tensors/000001.bin"), Bytes<float>({0, 0, 0, 0, 1, 1, 1, 1, 0, 0, 0, 0}));
  EXPECT_EQ(support::FaultBySchema("manifest", Out("manifest.json")), "");
  EXPECT_THAT(Out("manifest.json"), HasSubstr("photos/a.ppm"));
  EXPECT_THAT(ended.err,
              HasSubstr("1 file in 'photos' is no picture and no array, and passed over: "
                        "README\n"));
  EXPECT_THAT(ended.err, HasSubstr("2 tensors of 2 samples; the list is 'out/list.txt'\n"));
  EXPECT_EQ(ended.out, "");
  EXPECT_FALSE(fs::exists(Path("out/prepared.jsonl")));
}

// What is neither file nor folder makes no sample, and is not missed in silence.
TEST_F(PrepareVerb, NamesLinksToNothingAndPipesInAFolder) {
  Model({Input("picture", {1, 3, 2, 2}, VORN_FLOAT32)});
  Colour("photos/a.ppm", 255, 0, 51);
  fs::create_symlink("nowhere.ppm", Path("photos/b.ppm"));
  ASSERT_EQ(mkfifo(Path("photos/c.ppm").c_str(), 0600), 0);
  const Outcome ended = Prepare({"--input", "photos", "--recipe", "zero-one"});
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_THAT(ended.err, HasSubstr("passed over: b.ppm, c.ppm\n"));
  EXPECT_EQ(Out("list.txt"), "tensors/000000.bin\n");
}

TEST_F(PrepareVerb, HoldsABatchThatIsFilledUpAgainstTheRoom) {
  Model({Input("numbers", {1, 3, 1000, 1000}, VORN_FLOAT32)});
  const Outcome ended = Prepare({"--random", "uniform", "-b", "2147483647", "--dry-run"});
  EXPECT_EQ(ended.status, 7) << ended.Describe();
  EXPECT_THAT(ended.err, HasSubstr("and there is room for "));
}

TEST_F(PrepareVerb, TakesNoMoreSamplesThanItCanNote) {
  Model({Input("x", {1}, VORN_UINT8)});
  for (const char* count : {"0", "2000001", "18446744073709551615"}) {
    Write("job.json", R"({"schema": 1, "inputs": [{"name": "x", "random": {"distribution":
          "integers", "low": 0, "high": 9}}], "count": )" +
                          std::string(count) + "}");
    const Outcome ended = Prepare({"--job", "job.json"});
    EXPECT_EQ(ended.status, 3) << ended.Describe();
    EXPECT_THAT(ended.err, HasSubstr("the job 'job.json': count is " + std::string(count) +
                                     ", and has to be from 1 to 2000000\n"));
  }
  const Outcome named = Prepare({"--random", "uniform", "--count", "2000001"});
  EXPECT_EQ(named.status, 2);
  EXPECT_THAT(named.err, HasSubstr("from 1 to 2000000, and got '2000001'"));
  // A file with a hole in it takes no room, and tells of items all the same.
  Write("holes.bin", "");
  ASSERT_EQ(truncate(Path("holes.bin").c_str(), off_t{1} << 40), 0);
  const Outcome raw = Prepare({"--input", "holes.bin"});
  EXPECT_EQ(raw.status, 3) << raw.Describe();
  EXPECT_THAT(raw.err, HasSubstr("holds 1099511627776 items, and 2000000 are taken at most"));
}

TEST_F(PrepareVerb, RemovesFilesThatAKilledOneHadBegun) {
  Model({Input("picture", {1, 3, 2, 2}, VORN_FLOAT32)});
  Colour("photos/a.ppm", 255, 0, 51);
  const std::vector<std::string> words{"--input", "photos", "--recipe", "zero-one", "--resume"};
  for (const char* file : {"manifest.json", "list.txt", "prepared.jsonl"}) {
    Write("out/" + std::string(file) + ".4711.part", "half");
  }
  Write("out/mine.part", "of a person");
  EXPECT_EQ(Prepare(words).status, 0);
  for (const char* file : {"manifest.json", "list.txt", "prepared.jsonl"}) {
    EXPECT_FALSE(fs::exists(Path("out/" + std::string(file) + ".4711.part"))) << file;
  }
  EXPECT_TRUE(fs::exists(Path("out/mine.part")));
}

// Here for want of descriptors, which holds for every user.
TEST_F(PrepareVerb, RefusesAFolderThatCannotBeListedToItsEnd) {
  Model({Input("picture", {1, 3, 2, 2}, VORN_FLOAT32)});
  Colour("photos/a.ppm", 255, 0, 51);
  std::string deep = "photos";
  for (int i = 0; i < 40; ++i) deep += "/d";
  Colour(deep + "/b.ppm", 0, 255, 0);
  support::Command command;
  command.program = "/bin/sh";
  command.arguments = {"-c",
                       "ulimit -n 24; exec \"$0\" prepare --model-json model.json -o out --input "
                       "photos --recipe zero-one",
                       VORN_COMMAND};
  command.directory = folder_.Path();
  const Outcome ended = RunCommand(command);
  EXPECT_EQ(ended.status, 3) << ended.Describe();
  EXPECT_THAT(ended.err, HasSubstr("/d' cannot be listed: "));
  EXPECT_FALSE(fs::exists(Path("out/list.txt")));
}

TEST_F(PrepareVerb, TakesNamedInputsInTheModelsOrder) {
  Model({Input("a=b", {2}, VORN_INT32), Input("a", {1}, VORN_UINT8)});
  Write("first", Bytes<int32_t>({1, 2, 3, 4}));
  Write("second", std::string("\x07\x08", 2));
  const Outcome ended = Prepare({"--input", "a=second", "--input", "a=b=first"});
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_EQ(Out("list.txt"),
            "tensors/000000.0.bin\ntensors/000000.1.bin\ntensors/000001.0.bin\n"
            "tensors/000001.1.bin\n");
  EXPECT_EQ(Out("tensors/000001.0.bin"), Bytes<int32_t>({3, 4}));
  EXPECT_EQ(Out("tensors/000001.1.bin"), "\x08");
}

TEST_F(PrepareVerb, SharesAnItemThatAllSamplesTake) {
  Model({Input("x", {1}, VORN_UINT8), Input("mask", {1}, VORN_UINT8)});
  Write("x", "abc");
  Write("mask", "m");
  const Outcome ended = Prepare({"--input", "x=x", "--input", "mask=mask"});
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_EQ(Out("list.txt"),
            "tensors/000000.0.bin\ntensors/000000.1.bin\ntensors/000001.0.bin\n"
            "tensors/000000.1.bin\ntensors/000002.0.bin\ntensors/000000.1.bin\n");
}

TEST_F(PrepareVerb, ReadsNumbersOutOfTexts) {
  Model({Input("x", {1, 3}, VORN_FLOAT32)});
  Write("rows.csv", "# three a row\n1, 2, 3\n4, 5, 6.5\n");
  const Outcome ended = Prepare({"--input", "rows.csv"});
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_EQ(Out("tensors/000000.bin"), Bytes<float>({1, 2, 3}));
  EXPECT_EQ(Out("tensors/000001.bin"), Bytes<float>({4, 5, 6.5F}));
}

TEST_F(PrepareVerb, ComputesWithValuesThatAreNoPicture) {
  Model({Input("x", {4}, VORN_FLOAT32)});
  Write("values.txt", "1 2 3 4");
  Write("mine.json", R"({"schema": 1, "name": "mine",
                         "values": [{"divide": 2}, {"subtract": 1}]})");
  const std::vector<std::string> words{"--input", "values.txt", "--recipe", "mine.json",
                                       "--resume"};
  const Outcome ended = Prepare(words);
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_EQ(Out("tensors/000000.bin"), Bytes<float>({-0.5, 0, 0.5, 1}));
  Write("mine.json", R"({"schema": 1, "name": "mine", "values": [{"subtract": [1, 2, 3]}]})");
  const Outcome refused = Prepare(words);
  EXPECT_EQ(refused.status, 3) << refused.Describe();
  EXPECT_THAT(refused.err, HasSubstr("the recipe has a number a channel, and the array is no "
                                     "picture of [height, width, channels]"));
}

TEST_F(PrepareVerb, PacksBatchesAndFillsUpTheLast) {
  Model({Input("x", {1, 2}, VORN_UINT8)});
  Write("x", "aabbccddee");
  const Outcome ended = Prepare({"--input", "x", "-b", "3"});
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_EQ(Out("tensors/000000.bin"), "aabbcc");
  EXPECT_EQ(Out("tensors/000001.bin"), "ddeeee");
  EXPECT_THAT(ended.err, HasSubstr("the last batch has 2 items of its own and 1 copy of"));
  EXPECT_THAT(Out("manifest.json"), HasSubstr("\"filled\":1"));
  EXPECT_EQ(support::FaultBySchema("manifest", Out("manifest.json")), "");
}

TEST_F(PrepareVerb, NamesEachFaultAndWritesNoList) {
  Model({Input("picture", {1, 3, 2, 2}, VORN_FLOAT32)});
  Colour("photos/a.ppm", 1, 2, 3);
  Write("photos/b.ppm", "P6\n2 2\n255\nxx");
  Write("photos/c.png", "\x89PNG\r\n\x1a\nrubbish");
  const Outcome ended = Prepare({"--input", "photos", "--recipe", "zero-one"});
  EXPECT_EQ(ended.status, 3) << ended.Describe();
  EXPECT_THAT(ended.err,
              HasSubstr("2 sources cannot be used, and no list is written; --keep-going"));
  EXPECT_THAT(ended.err, HasSubstr("photos/b.ppm"));
  EXPECT_THAT(ended.err, HasSubstr("photos/c.png"));
  EXPECT_FALSE(fs::exists(Path("out/list.txt")));
  EXPECT_FALSE(fs::exists(Path("out/manifest.json")));

  const Outcome rest =
      Prepare({"--input", "photos", "--recipe", "zero-one", "--keep-going", "--resume"});
  EXPECT_EQ(rest.status, 8) << rest.Describe();
  EXPECT_EQ(Out("list.txt"), "tensors/000000.bin\n");
  EXPECT_THAT(rest.err, HasSubstr("1 tensor of 1 sample, 1 of them as they were"));
  EXPECT_THAT(Out("manifest.json"), HasSubstr("\"left\": [\n"));
  EXPECT_EQ(support::FaultBySchema("manifest", Out("manifest.json")), "");
}

// A recipe that was forgotten is forgotten of all pictures.
TEST_F(PrepareVerb, SaysOnceWhatIsWrongWithAll) {
  Model({Input("picture", {1, 3, 2, 2}, VORN_FLOAT32)});
  for (const char* name : {"a", "b", "c", "d", "e", "f"}) {
    Colour("photos/" + std::string(name) + ".ppm", 1, 2, 3);
  }
  Write("photos/g.ppm", "P6\n2 2\n255\nxx");
  const Outcome ended = Prepare({"--input", "photos"});
  EXPECT_EQ(ended.status, 3) << ended.Describe();
  EXPECT_THAT(ended.err, HasSubstr("sources cannot be used"));
  size_t lines = 0;
  for (const std::string& line : support::SplitLines(ended.err)) {
    lines += line.find("recipe") != std::string::npos ? 1 : 0;
  }
  EXPECT_EQ(lines, 1U) << ended.err;
  EXPECT_THAT(ended.err, HasSubstr("; the same of "));
  EXPECT_THAT(ended.err, HasSubstr("more: 'photos/b.ppm', 'photos/c.ppm', 'photos/d.ppm', ...\n"));
}

TEST(FoldedReasons, KeepsWhatIsSaidOfFew) {
  const std::vector<LeftOut> left{
      {"a", "'a' is short"}, {"b", "'b' is short"}, {"c", "c: empty"}, {"d", "'d' is short"}};
  EXPECT_THAT(FoldedReasons(left),
              testing::ElementsAre("'a' is short", "'b' is short", "'d' is short", "c: empty"));
  std::vector<LeftOut> more = left;
  more.push_back({"e", "'e' is short"});
  EXPECT_THAT(FoldedReasons(more),
              testing::ElementsAre("'a' is short; the same of 3 more: 'b', 'd', 'e'", "c: empty"));
}

TEST_F(PrepareVerb, NamesTheInputWhereAnotherIsNamed) {
  Model({Input("picture", {1, 3, 2, 2}, VORN_FLOAT32)});
  Colour("a.ppm", 1, 2, 3);
  const auto given = [&](const std::string& word) {
    return Prepare({"--input", word, "--recipe", "zero-one"});
  };
  Outcome ended = given("pictures=a.ppm");
  EXPECT_EQ(ended.status, 2) << ended.Describe();
  EXPECT_EQ(ended.err,
            "vorn prepare: --input 'pictures=a.ppm': the model has no input 'pictures'; did you "
            "mean 'picture'?; it takes picture\n");
  // A file may have such a name.
  Colour("x=a.ppm", 1, 2, 3);
  ended = given("x=a.ppm");
  EXPECT_EQ(ended.status, 0) << ended.Describe();
}

TEST_F(PrepareVerb, SaysWhatStandsInTheWayOfATensor) {
  Model({Input("x", {1}, VORN_UINT8)});
  Write("x", "a");
  fs::create_directories(Path("out/tensors/000000.bin/in"));
  const Outcome ended = Prepare({"--input", "x", "--resume"});
  EXPECT_EQ(ended.status, 7) << ended.Describe();
  EXPECT_THAT(ended.err, HasSubstr("000000.bin': Is a directory; remove that folder, and --resume "
                                   "makes the rest\n"));
}

TEST_F(PrepareVerb, MakesAgainOnlyWhatChanged) {
  Model({Input("picture", {1, 3, 2, 2}, VORN_FLOAT32)});
  for (const char* name : {"a", "b", "c"}) Colour(std::string("photos/") + name + ".ppm", 1, 2, 3);
  const std::vector<std::string> words{"--input", "photos", "--recipe", "zero-one"};
  ASSERT_EQ(Prepare(words).status, 0);
  const std::string list = Out("list.txt");

  std::vector<std::string> again = words;
  again.emplace_back("--resume");
  EXPECT_THAT(Prepare(again).err, HasSubstr("3 of them as they were"));
  EXPECT_EQ(Out("list.txt"), list);
  Colour("photos/b.ppm", 9, 9, 9);
  Write("out/tensors/000002.bin", Bytes<float>(std::vector<float>(12, 5)));
  EXPECT_THAT(Prepare(again).err, HasSubstr("1 of them as they were"));
  EXPECT_EQ(Out("tensors/000001.bin").substr(0, 4), Bytes<float>({9.0F / 255}));
  EXPECT_EQ(Out("tensors/000002.bin"), Out("tensors/000000.bin"));
  // Another recipe makes all of them anew.
  const Outcome other = Prepare({"--input", "photos", "--recipe", "bytes", "--resume"});
  EXPECT_THAT(other.err, HasSubstr("3 tensors of 3 samples; the list"));
  // A picture less leaves no tensor behind.
  fs::remove(Path("photos/c.ppm"));
  EXPECT_EQ(Prepare(again).status, 0);
  EXPECT_FALSE(fs::exists(Path("out/tensors/000002.bin")));
}

TEST_F(PrepareVerb, WritesIntoAnEmptyFolderOnly) {
  Model({Input("x", {1}, VORN_UINT8)});
  Write("x", "a");
  Write("out/mine", "precious");
  const Outcome ended = Prepare({"--input", "x"});
  EXPECT_EQ(ended.status, 2);
  EXPECT_THAT(ended.err, HasSubstr("the folder 'out' is not empty ('mine'); give another one"));
  fs::remove_all(Path("out"));
  ASSERT_EQ(Prepare({"--input", "x"}).status, 0);
  EXPECT_THAT(Prepare({"--input", "x"}).err, HasSubstr("--resume makes again only what changed"));
}

TEST_F(PrepareVerb, TakesAFolderInWhichNothingWasMade) {
  Model({Input("picture", {1, 3, 2, 2}, VORN_FLOAT32)});
  Colour("photos/a.ppm", 1, 2, 3);
  ASSERT_EQ(Prepare({"--input", "photos"}).status, 3) << "there is no recipe";
  ASSERT_TRUE(fs::exists(Path("out/tensors")));
  EXPECT_EQ(Prepare({"--input", "photos", "--recipe", "zero-one"}).status, 0);
}

TEST_F(PrepareVerb, WritesNothingWhenDry) {
  Model({Input("x", {1}, VORN_UINT8)});
  Write("x", "abc");
  const Outcome ended = Prepare({"--input", "x", "--dry-run"});
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_THAT(ended.err, HasSubstr("3 samples, 3 bytes; nothing is written"));
  EXPECT_FALSE(fs::exists(Path("out")));
}

TEST_F(PrepareVerb, NamesTheFaultsThatItFindsWhenDry) {
  Model({Input("picture", {1, 3, 2, 2}, VORN_FLOAT32)});
  Colour("photos/a.ppm", 1, 2, 3);
  Write("photos/b.png", "no picture");
  const Outcome ended = Prepare({"--input", "photos", "--recipe", "zero-one", "--dry-run"});
  EXPECT_EQ(ended.status, 3) << ended.Describe();
  EXPECT_THAT(ended.err, HasSubstr("1 source cannot be used, and no list is written"));
  EXPECT_THAT(ended.err, HasSubstr("photos/b.png"));
  EXPECT_FALSE(fs::exists(Path("out")));
}

// By its ending it is meant for a tensor, and is not passed over as a README is.
TEST_F(PrepareVerb, NamesABinaryFileOfAnotherSizeInAFolder) {
  Model({Input("x", {4}, VORN_UINT8)});
  Write("values/a.bin", "abcd");
  Write("values/b.bin", "abc?!");
  const Outcome ended = Prepare({"--input", "values"});
  EXPECT_EQ(ended.status, 3) << ended.Describe();
  EXPECT_THAT(ended.err, HasSubstr("values/b.bin"));
  EXPECT_THAT(ended.err, HasSubstr("as raw values it has 5 bytes; the input 'x' takes 4 of uint8"));
}

TEST_F(PrepareVerb, CountsWhatIsDoneUpToAll) {
  Write("x", "abc");
  InputRequest input;
  input.name = "x";
  input.source = Path("x");
  PrepareRequest request;
  request.model.inputs = {Input("x", {1}, VORN_UINT8)};
  request.inputs = {input};
  request.folder = Path("out");
  std::vector<uint64_t> done;
  const PrepareResult result = kit::Prepare(
      request,
      [&](const PrepareProgress& progress) {
        EXPECT_EQ(progress.all, 3U);
        done.push_back(progress.done);
      },
      [] { return false; });
  EXPECT_THAT(done, ElementsAre(1, 2, 3));
  EXPECT_EQ(result.made, 3U);
}

TEST_F(PrepareVerb, SaysWhatAnInputTakes) {
  Model({Input("picture", {1, 3, 2, 2}, VORN_FLOAT32)});
  Write("short.bin", "abc");
  Outcome ended = Prepare({"--input", "short.bin"});
  EXPECT_EQ(ended.status, 3);
  EXPECT_THAT(ended.err, HasSubstr("as raw values it has 3 bytes; the input 'picture' takes "
                                   "1x3x2x2 of float32, 48 bytes"));
  Colour("a.ppm", 1, 2, 3);
  ended = Prepare({"--input", "a.ppm"});
  EXPECT_EQ(ended.status, 3);
  EXPECT_THAT(ended.err, HasSubstr("is a picture, and no recipe says how it becomes a tensor: "));
  ended = Prepare({"--input", "pictur=a.ppm"});
  EXPECT_EQ(ended.status, 2);
  EXPECT_THAT(ended.err, HasSubstr("the model has no input 'pictur'; did you mean 'picture'?"));
  ended = Prepare({"--recipe", "zero-one"});
  EXPECT_EQ(ended.status, 2);
  ended = Prepare({"--input", "picture=a.ppm", "--input", "picture=short.bin"});
  EXPECT_EQ(ended.status, 2);
  EXPECT_THAT(ended.err, HasSubstr("--input gives the input 'picture' two sources, 'a.ppm' and "
                                   "'short.bin'\n"));
  ended = Prepare({});
  EXPECT_EQ(ended.status, 2);
  EXPECT_THAT(ended.err, HasSubstr("nothing is given for the input 'picture'"));
}

TEST_F(PrepareVerb, TakesAJobWithNamesThatNoWordHolds) {
  Model({Input("x:0\n", {2}, VORN_UINT8)});
  Write("here/values", "ab");
  Write("here/job.json", R"({"schema": 1, "inputs": [{"name": "x:0\n", "source": "values"}]})");
  EXPECT_EQ(Prepare({"--job", "here/job.json"}).status, 0);
  EXPECT_EQ(Out("tensors/000000.bin"), "ab");
  Write("here/job.json", R"({"schema": 1, "inputs": [{"name": "y", "source": "values"}]})");
  const Outcome ended = Prepare({"--job", "here/job.json", "--resume"});
  EXPECT_EQ(ended.status, 2);
  EXPECT_THAT(ended.err, HasSubstr("the model has no input 'y'"));
  Write("here/job.json", R"({"schema": 1, "inputs": [{"name": "x:0\n", "source": "values",
                                                      "recip": "bytes"}]})");
  const Outcome other = Prepare({"--job", "here/job.json", "--resume"});
  EXPECT_EQ(other.status, 3);
  EXPECT_THAT(other.err, HasSubstr("there is no key 'recip'; did you mean 'recipe'?"));
}

TEST_F(PrepareVerb, MakesRandomNumbersThatAreTheSameAgain) {
  Model({Input("x", {4}, VORN_FLOAT32), Input("ids", {3}, VORN_INT64)});
  const std::vector<std::string> words{
      "--random", "x=normal",
      "--random", R"(ids={"distribution": "integers", "low": 5, "high": 7, "seed": 3})",
      "--count",  "4"};
  ASSERT_EQ(Prepare(words).status, 0);
  EXPECT_EQ(support::SplitLines(Out("list.txt")).size(), 8U);
  EXPECT_NE(Out("tensors/000000.0.bin"), Out("tensors/000001.0.bin"));
  const std::string ids = Out("tensors/000003.1.bin");
  ASSERT_EQ(ids.size(), 3 * sizeof(int64_t));
  for (size_t i = 0; i < 3; ++i) {
    int64_t id = 0;
    std::memcpy(&id, ids.data() + i * sizeof id, sizeof id);
    EXPECT_TRUE(id >= 5 && id <= 7) << id;
  }
  const auto before = support::ReadTree(Path("out/tensors"));
  fs::remove_all(Path("out"));
  ASSERT_EQ(Prepare(words).status, 0);
  EXPECT_EQ(support::ReadTree(Path("out/tensors")), before);
  EXPECT_EQ(support::FaultBySchema("manifest", Out("manifest.json")), "");
}

TEST_F(PrepareVerb, MakesAsManyRandomSamplesAsThereAreOthers) {
  Model({Input("x", {1}, VORN_UINT8), Input("noise", {1}, VORN_FLOAT32)});
  Write("x", "abc");
  EXPECT_EQ(Prepare({"--input", "x=x", "--random", "noise=uniform"}).status, 0);
  EXPECT_EQ(support::SplitLines(Out("list.txt")).size(), 6U);
  const Outcome both =
      Prepare({"--input", "x=x", "--random", "noise=uniform", "--count", "2", "--resume"});
  EXPECT_EQ(both.status, 2);
  EXPECT_THAT(both.err, HasSubstr("a count is for random numbers alone"));
}

TEST_F(PrepareVerb, CutsASignalIntoSequencesAndMakesTheFlagsFit) {
  // Three frames at most, of two samples.
  Model({Input("frames", {3, 2}, VORN_FLOAT32), Input("flags", {3, 1}, VORN_UINT8)},
        VORN_NET_RECURRENT);
  Write("samples.raw", Bytes<int16_t>({0, 16384, -32768, 1, 2, 3, 4, 5, 6, 7}));
  Write("job.json", R"({"schema": 1, "inputs": [{"name": "frames", "source": "samples.raw",
      "signal": {"window": 2, "hop": 2}, "raw": {"type": "int16"}}]})");
  const Outcome ended = Prepare({"--job", "job.json"});
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  // Five frames: three, and the two that are left.
  EXPECT_EQ(Out("tensors/000000.0.bin"), Bytes<float>({0, 0.5F, -1, 0x1p-15F, 0x2p-15F, 0x3p-15F}));
  EXPECT_EQ(Out("tensors/000000.1.bin"), std::string("\0\1\1", 3));
  EXPECT_EQ(Out("tensors/000001.0.bin").size(), 4 * sizeof(float));
  EXPECT_EQ(Out("tensors/000001.1.bin"), std::string("\0\1", 2));
  EXPECT_THAT(Out("manifest.json"), HasSubstr("\"hop\": 2"));
  EXPECT_EQ(support::FaultBySchema("manifest", Out("manifest.json")), "");
}

TEST_F(PrepareVerb, MakesFlagsAgainWhereTheFramesChange) {
  Model({Input("frames", {8, 2}, VORN_FLOAT32), Input("flags", {8, 1}, VORN_UINT8)},
        VORN_NET_RECURRENT);
  Write("samples.raw", Bytes<int16_t>({0, 1, 2, 3, 4, 5, 6, 7}));
  const auto job = [&](const char* hop) {
    Write("job.json", R"({"schema": 1, "inputs": [{"name": "frames", "source": "samples.raw",
        "signal": {"window": 2, "hop": )" +
                          std::string(hop) + R"(}, "raw": {"type": "int16"}}]})");
  };
  job("2");
  ASSERT_EQ(Prepare({"--job", "job.json"}).status, 0);
  EXPECT_EQ(Out("tensors/000000.1.bin").size(), 4U);
  job("1");
  const Outcome ended = Prepare({"--job", "job.json", "--resume"});
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_EQ(Out("tensors/000000.1.bin").size(), 7U);
}

// What makes the same again for a model that calls its input otherwise.
TEST_F(PrepareVerb, MakesTheNumbersOfAnotherInput) {
  Model({Input("x", {4}, VORN_FLOAT32)});
  ASSERT_EQ(Prepare({"--random", R"(x={"distribution": "normal", "seed": 3})"}).status, 0);
  const std::string numbers = Out("tensors/000000.bin");
  fs::remove_all(Path("out"));
  Model({Input("image", {4}, VORN_FLOAT32)});
  ASSERT_EQ(Prepare({"--random", R"(image={"distribution": "normal", "seed": 3})"}).status, 0);
  EXPECT_NE(Out("tensors/000000.bin"), numbers);
  fs::remove_all(Path("out"));
  ASSERT_EQ(
      Prepare({"--random", R"(image={"distribution": "normal", "seed": 3, "series": "x"})"}).status,
      0);
  EXPECT_EQ(Out("tensors/000000.bin"), numbers);
  EXPECT_EQ(support::FaultBySchema("manifest", Out("manifest.json")), "");
}

TEST_F(PrepareVerb, MakesFlagsOfRandomFrames) {
  Model({Input("frames", {4, 2}, VORN_FLOAT32), Input("flags", {4, 1}, VORN_UINT8)},
        VORN_NET_RECURRENT);
  const Outcome ended = Prepare({"--random", "frames=normal", "--count", "2"});
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_EQ(Out("tensors/000001.1.bin"), std::string("\0\1\1\1", 4));
}

TEST_F(PrepareVerb, WritesThresholdsForTheirOption) {
  TensorDescription thresholds = Input("rpn", {1, 4}, VORN_FLOAT32);
  thresholds.role = TensorRole::kThresholds;
  Model({Input("x", {1}, VORN_UINT8), thresholds}, VORN_NET_DETECTION);
  Write("x", "a");
  Write("job.json", R"({"schema": 1, "inputs": [{"name": "x", "source": "x"}],
                        "thresholds": {"rpn": [0.5, 0.25, 0, 1]}})");
  const Outcome ended = Prepare({"--job", "job.json"});
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_EQ(Out("thresholds.0.txt"), "0.5 0.25 0 1");
  EXPECT_THAT(ended.err, HasSubstr("the thresholds are -r out/thresholds.0.txt\n"));
}

// The numbers of its bytes may fit all the same.
TEST_F(PrepareVerb, SaysWhatToDoWithAListOfItsOwn) {
  Model({Input("x", {19}, VORN_UINT8)});
  Write("a.bin", std::string(19, 'a'));
  ASSERT_EQ(Prepare({"--input", "a.bin"}).status, 0);
  const Outcome ended =
      Run({"--model-json", "model.json", "-o", "more", "--input", "out/list.txt"});
  EXPECT_EQ(ended.status, 3) << ended.Describe();
  EXPECT_THAT(ended.err,
              HasSubstr("'out/list.txt' tells of tensors that vorn prepare has made; give "
                        "their folder 'out/tensors' as the source, or the list as it is "
                        "to vorn launch -i\n"));
  const Outcome whole = Run({"--model-json", "model.json", "-o", "more", "--input", "out"});
  EXPECT_EQ(whole.status, 0) << whole.Describe();
  EXPECT_THAT(whole.err, HasSubstr("1 tensor of 1 sample"));
}

TEST_F(PrepareVerb, SaysTheRateThatNobodyAskedFor) {
  Model({Input("x", {1, 2}, VORN_FLOAT32)});
  Write("a.wav", std::string("RIFF\x28\0\0\0WAVEfmt \x10\0\0\0\1\0\1\0\x44\xAC\0\0\x88\x58\1\0"
                             "\2\0\x10\0data\4\0\0\0\1\0\2\0",
                             48));
  const auto run = [&](const std::string& more) {
    Write("job.json", R"({"schema": 1, "inputs": [{"name": "x", "source": "a.wav",
        "signal": {"window": 2, "hop": 2)" +
                          more + "}}]}");
    fs::remove_all(Path("out"));
    return Prepare({"--job", "job.json"});
  };
  const Outcome ended = run("");
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_THAT(ended.err,
              testing::ContainsRegex("the sound '.*a.wav' has 44100 samples a second, and "
                                     "no \"rate\" of \"signal\" says"));
  EXPECT_THAT(run(", \"rate\": 44100").err, testing::Not(HasSubstr("44100")));
}

TEST_F(PrepareVerb, SaysWhatToDoWithSequencesOfAnotherLength) {
  Model({Input("x", {1, 3, 2}, VORN_FLOAT32)});
  Write("a.txt", "1 2\n3 4\n");
  const Outcome ended = Prepare({"--input", "a.txt"});
  EXPECT_EQ(ended.status, 3) << ended.Describe();
  EXPECT_THAT(ended.err, HasSubstr("; a sequence of 2 has to be filled up to 3, or the model be "
                                   "opened for that many"));
}

TEST_F(PrepareVerb, SaysWhatASoundNeeds) {
  Model({Input("x", {1, 2}, VORN_FLOAT32)});
  Write("a.wav", std::string("RIFF\x24\0\0\0WAVEfmt ", 16) + std::string(20, '\0'));
  const Outcome ended = Prepare({"--input", "a.wav"});
  EXPECT_EQ(ended.status, 3);
  EXPECT_THAT(ended.err, HasSubstr("is a sound, and nothing says how it becomes"));
}

TEST_F(PrepareVerb, TakesSourcesOneByOne) {
  Model({Input("x", {2}, VORN_UINT8)});
  Write("here/stack", "aabbcc");
  Write("here/one", "zz");
  Write("here/job.json", R"({"schema": 1, "inputs": [{"name": "x", "source": [
      "one", {"path": "stack", "item": 2}, {"path": "stack", "item": 0}, {"path": "stack"}]}]})");
  const Outcome ended = Prepare({"--job", "here/job.json"});
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  std::string all;
  for (int i = 0; i < 6; ++i) all += Out("tensors/00000" + std::to_string(i) + ".bin");
  EXPECT_EQ(all, "zzccaaaabbcc");
  EXPECT_FALSE(fs::exists(Path("out/tensors/000006.bin")));
  EXPECT_EQ(support::FaultBySchema("manifest", Out("manifest.json")), "");
}

TEST_F(PrepareVerb, NamesWhatIsWrongInAListOfSources) {
  Model({Input("x", {2}, VORN_UINT8)});
  Write("stack", "aabbcc");
  Write("one", "zz");
  Write("job.json", R"({"schema": 1, "inputs": [{"name": "x", "source": [
      "one", "nowhere", {"path": "stack", "item": 3}, {"path": "one", "item": 0}]}]})");
  const Outcome ended = Prepare({"--job", "job.json"});
  EXPECT_EQ(ended.status, 3);
  EXPECT_THAT(ended.err, HasSubstr("'nowhere' is not there"));
  EXPECT_THAT(ended.err, HasSubstr("'stack' has no item 3: it holds 3"));
  EXPECT_THAT(ended.err, HasSubstr("'one' has no item 0: it is one item as a whole"));
  const Outcome rest = Prepare({"--job", "job.json", "--keep-going", "--resume"});
  EXPECT_EQ(rest.status, 8) << rest.Describe();
  EXPECT_EQ(Out("list.txt"), "tensors/000000.bin\n");
  Write("job.json", R"({"schema": 1, "inputs": [{"name": "x", "source": []}]})");
  EXPECT_THAT(Prepare({"--job", "job.json", "--resume"}).err,
              HasSubstr("the input 'x' has a list of no sources"));
  Write("job.json", R"({"schema": 1, "inputs": [{"name": "x", "source": [{"pth": "one"}]}]})");
  EXPECT_THAT(Prepare({"--job", "job.json", "--resume"}).err, HasSubstr("pth"));
}

TEST_F(PrepareVerb, ListsAndShowsRecipes) {
  EXPECT_THAT(Run({"--recipes"}).out, HasSubstr("imagenet-torchvision"));
  const Outcome shown = Run({"--show-recipe", "imagenet-torchvision"});
  EXPECT_EQ(shown.status, 0);
  EXPECT_THAT(shown.out, HasSubstr("0.485"));
}

}  // namespace
}  // namespace vorn::kit
