#include "kit/fleet/boards.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kit/common/fault.h"
#include "kit/json/json.h"
#include "support/files.h"

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;
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

TEST(Boards, AreRefusedWithWhatIsWrong) {
  const std::string host = R"("host":"h")";
  for (const auto& [item, why] : std::vector<std::pair<std::string, std::string>>{
           {R"({})", "board 1: 'host' is missing"},
           {R"({"host":""})", "board 1: 'host' is ''"},
           {R"({"host":"-oProxyCommand=sh"})", "board 1: 'host' is '-oProxyCommand=sh'"},
           {R"({"host":"h\nx"})", "'host' holds a line end"},
           {R"({"host":"h\u0000"})", "'host' holds a line end"},
           {"{" + host + R"(,"work":"a\rb"})", "'work' holds a line end"},
           {"{" + host + R"(,"work":""})", "'work' names no folder"},
           {"{" + host + R"(,"runtime":"a\nb"})", "'runtime' holds a line end"},
           {"{" + host + R"(,"environment":{"A":"a\nb"}})", "'environment' holds a line end"},
           {"{" + host + R"(,"environment":{"1A":"a"}})", "'1A' is no name of an environment"},
           {"{" + host + R"(,"environment":{"A=B":"a"}})", "is no name of an environment"},
           {"{" + host + R"(,"environment":{"":"a"}})", "is no name of an environment"},
           {"{" + host + R"(,"slots":0})", "'slots' is 0; 1 to 64"},
           {"{" + host + R"(,"slots":65})", "'slots' is 65; 1 to 64"},
           {"{" + host + R"(,"slots":-1})", "board 1: "},
           {"{" + host + R"(,"slots":"2"})", "board 1: "},
           {"{" + host + R"(,"slot":2})", "'slots'"},  // the nearest one
           {"{" + host + R"(,"name":""})", "'name' is ''"},
           {"{" + host + R"(,"name":"a/b"})", "'name' is 'a/b'"},
           {"{" + host + R"(,"name":".."})", "'name' is '..'"},
           {"{" + host + R"(,"name":"a b"})", "'name' is 'a b'"},
           {"{" + host + R"(,"name":")" + std::string(101, 'x') + "\"}", "up to 100 letters"},
           {"{" + host + R"(,"ssh":"-p 22"})", "board 1: "},
           {"{" + host + R"(,"ssh":["-p",22]})", "board 1: "},
       }) {
    EXPECT_THAT(FaultOf(item), HasSubstr(why)) << item;
  }
  EXPECT_EQ(FaultOf("{" + host + R"(,"name":")" + std::string(100, 'x') + "\"}"), "");
  EXPECT_THAT(FaultOf("{" + host + "},{}"), HasSubstr("board 2: "));
}

TEST(Boards, WithWordsThatNoShellWouldKeepAreRefused) {
  EXPECT_THAT(FaultOf(R"({"host":"h","ssh":["-o","A\nB"]})"), HasSubstr("'ssh' holds a line end"));
  EXPECT_THAT(FaultOf(R"({"host":"h","ssh":["a\u0000b"]})"), HasSubstr("'ssh' holds a line end"));
}

TEST(Boards, HaveNamesOfTheirOwn) {
  EXPECT_THAT(FaultOf(R"({"host":"a@h"},{"host":"b@h"})"),
              AllOf(HasSubstr("board 2: another one is called 'h'"), HasSubstr("'name'")));
}

TEST(Boards, FileIsRefusedAsAWhole) {
  EXPECT_EQ(FaultOf(""), "it names no board");
  EXPECT_THAT(FaultOfText(R"({"schema":2,"boards":[]})"), HasSubstr("it has schema 2"));
  EXPECT_THAT(FaultOfText(R"({"schema":1,"board":[]})"), HasSubstr("'boards'"));
  EXPECT_NE(FaultOfText("[]"), "");
  EXPECT_NE(FaultOfText(R"({"schema":1,"boards":{}})"), "");
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
      EXPECT_THAT(fault.what(), HasSubstr(path));
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
