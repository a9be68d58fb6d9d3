#include "kit/fleet/boards.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kit/common/fault.h"
#include "kit/json/json.h"
#include "support/files.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;
using testing::StartsWith;
using vorn::kit::Board;
using vorn::kit::BoardsFromJson;

std::vector<Board> Read(const std::string& items) {
  return BoardsFromJson(R"({"schema":1,"boards":[)" + items + "]}", "/folder");
}

std::string FaultOfText(const std::string& text) {
  try {
    (void)BoardsFromJson(text, "");
  } catch (const vorn::kit::JsonError& error) {
    return error.what();
  }
  return "";
}

std::string FaultOf(const std::string& items) {
  return FaultOfText(R"({"schema":1,"boards":[)" + items + "]}");
}

TEST(Boards, NeedTheirHostAlone) {
  const std::vector<Board> boards = Read(R"({"host":"root@192.0.2.1"},{"host":"b2"})");
  ASSERT_EQ(boards.size(), 2U);
  EXPECT_EQ(boards[0].name, "192.0.2.1");
  EXPECT_EQ(boards[0].host, "root@192.0.2.1");
  EXPECT_EQ(boards[0].slots, 1U);
  EXPECT_EQ(boards[0].work, ".vorn-fleet");
  EXPECT_EQ(boards[0].config, "");
  EXPECT_EQ(boards[1].name, "b2");
}

TEST(Boards, TakeAllThatCanBeSaid) {
  const Board board = Read(R"({"name":"b1","host":"h","slots":64,"work":"/data/it's mine",
      "runtime":"/opt/libvorn.so","config":"b.json","tools":"/t.tar.gz",
      "environment":{"A_1":"x y","_B":""},"ssh":["-p","2222"]})")
                          .at(0);
  EXPECT_EQ(board.name, "b1");
  EXPECT_EQ(board.slots, 64U);
  EXPECT_EQ(board.work, "/data/it's mine");
  EXPECT_EQ(board.runtime, "/opt/libvorn.so");
  EXPECT_EQ(board.config, "/folder/b.json");  // of this machine, from the file's folder on
  EXPECT_EQ(board.tools, "/t.tar.gz");
  EXPECT_THAT(board.environment, ElementsAre(Pair("A_1", "x y"), Pair("_B", "")));
  EXPECT_THAT(board.ssh, ElementsAre("-p", "2222"));
}

TEST(Boards, ComeBackAsTheyWere) {
  const std::vector<Board> boards = Read(R"({"name":"b1","host":"h","slots":3,"config":"b.json",
      "environment":{"A":"\"\\x"},"ssh":["-o","X=y z"]},{"host":"[::1]"})");
  EXPECT_EQ(BoardsFromJson(ToJson(boards), "/other"), boards);
}

TEST(Boards, AreCalledByTheirHostAsAFileNameCanBe) {
  EXPECT_EQ(Read(R"({"host":"user@[2001:db8::1]"})").at(0).name, "-2001-db8--1-");
  EXPECT_EQ(Read(R"({"host":"ssh://u@h:22/"})").at(0).name, "h-22-");
  EXPECT_EQ(Read(R"({"host":"u@.hidden"})").at(0).name, "-.hidden");
  EXPECT_EQ(Read(R"({"host":"u@../x"})").at(0).name, "-..-x");
}

TEST(Boards, AreRefusedByTheMemberThatIsWrong) {
  const std::string host = R"("host":"h")";
  for (const auto& [item, why] : std::vector<std::pair<std::string, std::string>>{
           {"3", R"(boards[0]: takes an object such as {"host": "NAME"}, and has 3)"},
           {R"({})", "boards[0].host: is missing; it names the board as ssh takes it"},
           {R"({"host":7})", "boards[0].host: takes a text, and has 7"},
           {R"({"host":""})",
            R"(boards[0].host: takes the name of a host as ssh takes it, and has "")"},
           {R"({"host":"-oProxyCommand=sh"})", R"(and has "-oProxyCommand=sh")"},
           {R"({"host":"h\nx"})", "boards[0].host: holds a line end"},
           {R"({"host":"h\u0000"})", "boards[0].host: holds a line end or a zero"},
           {"{" + host + R"(,"work":"a\rb"})", "boards[0].work: holds a line end"},
           {"{" + host + R"(,"work":""})", "boards[0].work: names no folder"},
           {"{" + host + R"(,"work":"~/fleet"})", "boards[0].work: begins with '~'"},
           {"{" + host + R"(,"runtime":"a\nb"})", "boards[0].runtime: holds a line end"},
           {"{" + host + R"(,"runtime":"lib/libvorn.so"})",
            "boards[0].runtime: takes the path of a libvorn.so there, from '/' on, and has "
            "\"lib/libvorn.so\""},
           {"{" + host + R"(,"runtime":"~/libvorn.so"})", "boards[0].runtime: takes the path"},
           {"{" + host + R"(,"config":null})", "boards[0].config: takes a text, and has null"},
           {"{" + host + R"(,"environment":["A=b"]})",
            R"(boards[0].environment: takes an object such as {"NAME": "value"}, and has ["A=b"])"},
           {"{" + host + R"(,"environment":{"A":"a\nb"}})",
            "boards[0].environment.A: holds a line end"},
           {"{" + host + R"(,"environment":{"A":1}})",
            "boards[0].environment.A: takes a text, and has 1"},
           {"{" + host + R"(,"environment":{"1A":"a"}})",
            "boards[0].environment.1A: is no name of a variable"},
           {"{" + host + R"(,"environment":{"A=B":"a"}})", "is no name of a variable"},
           {"{" + host + R"(,"environment":{"":"a"}})", "is no name of a variable"},
           {"{" + host + R"(,"slots":0})",
            "boards[0].slots: takes a whole number of 1 to 64, and has 0"},
           {"{" + host + R"(,"slots":65})", "and has 65"},
           {"{" + host + R"(,"slots":-1})", "and has -1"},
           {"{" + host + R"(,"slots":1.5})", "and has 1.5"},
           {"{" + host + R"(,"slots":"2"})",
            R"(boards[0].slots: takes a whole number of 1 to 64, and has "2")"},
           {"{" + host + R"(,"slot":2})",
            "boards[0].slot: is not known here; did you mean 'slots'?"},
           {"{" + host + R"(,"name":""})", R"(boards[0].name: takes up to 100 letters)"},
           {"{" + host + R"(,"name":"a/b"})", R"(and has "a/b")"},
           {"{" + host + R"(,"name":".."})", R"(and has "..")"},
           {"{" + host + R"(,"name":"a b"})", R"(and has "a b")"},
           {"{" + host + R"(,"name":")" + std::string(101, 'x') + "\"}", "up to 100 letters"},
           {"{" + host + R"(,"ssh":"-p 22"})",
            R"(boards[0].ssh: takes a list of words such as ["-p", "2222"], and has "-p 22")"},
           {"{" + host + R"(,"ssh":["-p",22]})", "boards[0].ssh[1]: takes a text, and has 22"},
           {"{" + host + R"(,"ssh":["-o","A\nB"]})", "boards[0].ssh[1]: holds a line end"},
           {"{" + host + R"(,"ssh":["a\u0000b"]})", "boards[0].ssh[0]: holds a line end"},
       }) {
    EXPECT_THAT(FaultOf(item), HasSubstr(why)) << item;
  }
  EXPECT_EQ(FaultOf("{" + host + R"(,"name":")" + std::string(100, 'x') + "\"}"), "");
  EXPECT_THAT(FaultOf("{" + host + "},{}"), HasSubstr("boards[1].host: is missing"));
}

TEST(Boards, HaveNamesOfTheirOwn) {
  EXPECT_EQ(FaultOf(R"({"host":"a@h"},{"host":"b@h"})"),
            "boards[1].name: is 'h', as that of boards[0]; give each a name of its own");
}

TEST(Boards, FileIsRefusedAsAWhole) {
  EXPECT_THAT(FaultOf(""), HasSubstr("boards: names no board"));
  EXPECT_EQ(FaultOfText(R"({"schema":2,"boards":[]})"), "schema: takes 1, and has 2");
  EXPECT_EQ(FaultOfText(R"({"schema":"1","boards":[]})"), R"(schema: takes 1, and has "1")");
  EXPECT_THAT(FaultOfText(R"({"boards":[]})"), HasSubstr("schema: is missing"));
  EXPECT_THAT(FaultOfText(R"({"schema":1})"), HasSubstr("boards: is missing"));
  EXPECT_THAT(FaultOfText(R"({"schema":1,"board":[]})"),
              HasSubstr("board: is not known here; did you mean 'boards'?"));
  EXPECT_THAT(FaultOfText("[]"), HasSubstr("takes an object such as"));
  EXPECT_THAT(FaultOfText(R"({"schema":1,"boards":{}})"), HasSubstr("boards: takes a list"));
}

TEST(Boards, FaultsNameTheFile) {
  const support::TempDir folder;
  const std::string path = folder.Path() / "boards.json";
  for (const char* text : {"", "{", R"({"schema":1,"boards":[{"host":""}]})"}) {
    support::WriteFile(path, text);
    try {
      (void)vorn::kit::ReadBoards(path);
      ADD_FAILURE() << text;
    } catch (const vorn::kit::Fault& fault) {
      EXPECT_EQ(fault.Status(), vorn::kit::ExitStatus::kInput);
      EXPECT_THAT(fault.what(), StartsWith(path + ": "));
    }
  }
  support::WriteFile(path, R"({"schema":1,"boards":[{"host":"h","config":"c"}]})");
  EXPECT_EQ(vorn::kit::ReadBoards(path).at(0).config, folder.Path() / "c");
}

TEST(Boards, HaveTheirSlotsInTheirOrder) {
  const auto slots = vorn::kit::SlotsOf(Read(R"({"host":"a","slots":2},{"host":"b"})"));
  ASSERT_EQ(slots.size(), 3U);
  EXPECT_EQ(slots[1].board, 0U);
  EXPECT_EQ(slots[1].slot, 2U);
  EXPECT_EQ(slots[2].board, 1U);
  EXPECT_EQ(slots[2].slot, 1U);
}

}  // namespace
