#include "kit/fleet/boards.h"

#include <algorithm>
#include <set>

#include "kit/common/fault.h"
#include "kit/common/file_identity.h"
#include "kit/common/file_place.h"
#include "kit/common/printable.h"
#include "kit/json/json.h"
#include "kit/json/json_members.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kMostBytes = 16 << 20;
constexpr uint64_t kMostSlots = 64;
constexpr size_t kMostNameBytes = 100;
constexpr std::string_view kNameCharacters =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._-";

// What a board is called where nobody called it: the host without what no file name should have.
std::string NameOfHost(const std::string& host) {
  std::string name = host.substr(host.find('@') + 1);
  std::replace_if(
      name.begin(), name.end(),
      [](char c) { return kNameCharacters.find(c) == std::string_view::npos; }, '-');
  return name.starts_with('.') ? "-" + name : name;
}

void CheckText(const std::string& text, const char* member) {
  if (text.find_first_of(std::string_view("\n\r\0", 3)) == std::string::npos) return;
  throw JsonError("'" + std::string(member) + "' holds a line end, which no shell would keep");
}

std::string TextOf(const Json& object, const char* member, const std::string& otherwise) {
  const Json* found = object.Find(member);
  if (found == nullptr) return otherwise;
  CheckText(found->AsText(), member);
  return found->AsText();
}

std::string PathOf(const Json& object, const char* member, const std::string& folder) {
  const std::string path = TextOf(object, member, "");
  return path.empty() ? path : Below(folder, path);
}

void CheckName(const std::string& name) {
  const bool isFit = !name.empty() && name.size() <= kMostNameBytes && !name.starts_with('.') &&
                     name.find_first_not_of(kNameCharacters) == std::string::npos;
  if (isFit) return;
  throw JsonError("'name' is " + Quoted(name) +
                  "; it becomes a part of file names: up to 100 letters, digits and '._-'");
}

void TakeEnvironment(const Json& object, Board& board) {
  for (const auto& [name, value] : object.Members()) {
    const bool isName =
        !name.empty() && name.find_first_of("0123456789") != 0 &&
        name.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_") ==
            std::string::npos;
    if (!isName) throw JsonError(Quoted(name) + " is no name of an environment variable");
    CheckText(value.AsText(), "environment");
    board.environment.emplace_back(name, value.AsText());
  }
}

Board ToBoard(const Json& object, const std::string& folder) {
  HoldToKeys(object,
             {"name", "host", "slots", "work", "runtime", "config", "tools", "environment", "ssh"});
  Board board;
  board.host = object.At("host").AsText();
  CheckText(board.host, "host");
  if (board.host.empty() || board.host.starts_with('-')) {
    throw JsonError("'host' is " + Quoted(board.host) + ", and has to name one as ssh takes it");
  }
  board.name = TextOf(object, "name", NameOfHost(board.host));
  CheckName(board.name);
  if (const Json* slots = object.Find("slots")) board.slots = slots->AsUnsigned();
  if (board.slots < 1 || board.slots > kMostSlots) {
    throw JsonError("'slots' is " + std::to_string(board.slots) + "; 1 to " +
                    std::to_string(kMostSlots) + " attempts run on a board at once");
  }
  board.work = TextOf(object, "work", board.work);
  if (board.work.empty()) throw JsonError("'work' names no folder");
  board.runtime = TextOf(object, "runtime", "");
  board.config = PathOf(object, "config", folder);
  board.tools = PathOf(object, "tools", folder);
  if (const Json* environment = object.Find("environment")) TakeEnvironment(*environment, board);
  if (const Json* words = object.Find("ssh")) {
    for (const Json& word : words->Items()) {
      CheckText(word.AsText(), "ssh");
      board.ssh.push_back(word.AsText());
    }
  }
  return board;
}

}  // namespace

std::vector<Board> BoardsFromJson(const std::string& text, const std::string& folder) {
  const Json object = ParseJson(text);
  HoldToKeys(object, {"schema", "boards"});
  if (const uint64_t schema = object.At("schema").AsUnsigned(); schema != 1) {
    throw JsonError("it has schema " + std::to_string(schema) + ", and this reads 1");
  }
  std::vector<Board> boards;
  std::set<std::string> names;
  for (const Json& item : object.At("boards").Items()) {
    try {
      boards.push_back(ToBoard(item, folder));
    } catch (const JsonError& error) {
      throw JsonError("board " + std::to_string(boards.size() + 1) + ": " + error.what());
    }
    if (!names.insert(boards.back().name).second) {
      throw JsonError("board " + std::to_string(boards.size()) + ": another one is called " +
                      Quoted(boards.back().name) + "; give each a 'name' of its own");
    }
  }
  if (boards.empty()) throw JsonError("it names no board");
  return boards;
}

std::vector<Board> ReadBoards(const std::string& path) {
  const std::string text =
      ReadWholeFile(path, "the file of boards", ExitStatus::kInput, kMostBytes);
  const size_t slash = path.rfind('/');
  try {
    return BoardsFromJson(
        text, slash == std::string::npos ? "" : path.substr(0, std::max<size_t>(slash, 1)));
  } catch (const JsonError& error) {
    throw Fault(ExitStatus::kInput, "the file of boards " + Quoted(path) + ": " + error.what());
  }
}

std::string ToJson(const std::vector<Board>& boards) {
  Json items = Json::Array();
  for (const Board& board : boards) {
    Json environment = Json::Object();
    for (const auto& [name, value] : board.environment) environment.Set(name, value);
    items.Append(Json::Object({{"name", board.name},
                               {"host", board.host},
                               {"slots", board.slots},
                               {"work", board.work},
                               {"runtime", board.runtime},
                               {"config", board.config},
                               {"tools", board.tools},
                               {"environment", std::move(environment)},
                               {"ssh", Json::ArrayOf(board.ssh)}}));
  }
  return ToText(Json::Object({{"schema", 1}, {"boards", std::move(items)}}), 1) + "\n";
}

std::vector<BoardSlot> SlotsOf(const std::vector<Board>& boards) {
  std::vector<BoardSlot> slots;
  for (size_t i = 0; i < boards.size(); ++i) {
    for (uint64_t slot = 1; slot <= boards[i].slots; ++slot) {
      slots.push_back({.board = i, .slot = slot});
    }
  }
  return slots;
}

}  // namespace vorn::kit
