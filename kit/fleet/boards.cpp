#include "kit/fleet/boards.h"

#include <algorithm>
#include <map>

#include "kit/common/fault.h"
#include "kit/common/file_identity.h"
#include "kit/common/file_place.h"
#include "kit/common/nearest.h"
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
constexpr std::string_view kVariableCharacters =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_";

// What a board is called where nobody called it: the host without what no file name should have.
std::string NameOfHost(const std::string& host) {
  std::string name = host.substr(host.find('@') + 1);
  std::replace_if(
      name.begin(), name.end(),
      [](char c) { return kNameCharacters.find(c) == std::string_view::npos; }, '-');
  return name.starts_with('.') ? "-" + name : name;
}

// `member` is named as a person finds it in the file: "boards[1].slots".
[[noreturn]] void RefuseMember(const std::string& member, const std::string& why) {
  throw JsonError(member + ": " + why);
}

[[noreturn]] void RefuseValue(const std::string& member, const std::string& takes,
                              const Json& value) {
  RefuseMember(member, "takes " + takes + ", and has " + ShownValue(value));
}

std::string CheckedText(const Json& value, const std::string& member) {
  if (!value.IsText()) RefuseValue(member, "a text", value);
  const std::string& text = value.AsText();
  if (text.find_first_of(std::string_view("\n\r\0", 3)) != std::string::npos) {
    RefuseMember(member, "holds a line end or a zero, which no shell would keep; leave it out");
  }
  return text;
}

void HoldToMembers(const Json& object, const std::string& place,
                   const std::vector<std::string>& known) {
  for (const auto& [key, value] : object.Members()) {
    if (std::find(known.begin(), known.end(), key) != known.end()) continue;
    RefuseMember(place + PrintableExcerpt(key), "is not known here" + DidYouMean(key, known));
  }
}

class BoardReader {
 public:
  /// `place` is the board's: "boards[1]".
  BoardReader(const Json& object, std::string place, const std::string& folder)
      : object_(object), place_(std::move(place)), folder_(folder) {}

  Board Read() const {
    if (!object_.IsObject()) RefuseValue(place_, R"(an object such as {"host": "NAME"})", object_);
    HoldToMembers(
        object_, Named(""),
        {"name", "host", "slots", "work", "runtime", "config", "tools", "environment", "ssh"});
    Board board;
    board.host = Host();
    board.name = Name(board.host);
    TakeSlots(board.slots);
    board.work = TextOf("work", board.work);
    if (board.work.empty())
      RefuseMember(Named("work"), "names no folder; give one, or leave it out");
    // Words are handed over as they are, so that no shell there makes a folder of it.
    if (board.work.starts_with('~')) {
      RefuseMember(Named("work"),
                   "begins with '~', which means nothing there; what does not begin with '/' "
                   "counts from the home of the login on");
    }
    board.runtime = TextOf("runtime", "");
    if (!board.runtime.empty() && !board.runtime.starts_with('/')) {
      RefuseValue(Named("runtime"), "the path of a libvorn.so there, from '/' on",
                  Json(board.runtime));
    }
    board.config = PathOf("config");
    board.tools = PathOf("tools");
    TakeEnvironment(board);
    TakeSsh(board);
    return board;
  }

 private:
  std::string Named(const char* member) const { return place_ + "." + member; }

  std::string TextOf(const char* member, const std::string& otherwise) const {
    const Json* found = object_.Find(member);
    return found == nullptr ? otherwise : CheckedText(*found, Named(member));
  }

  std::string PathOf(const char* member) const {
    const std::string path = TextOf(member, "");
    return path.empty() ? path : Below(folder_, path);
  }

  std::string Host() const {
    const Json* found = object_.Find("host");
    if (found == nullptr) {
      RefuseMember(Named("host"), "is missing; it names the board as ssh takes it");
    }
    std::string host = CheckedText(*found, Named("host"));
    if (host.empty() || host.starts_with('-')) {
      RefuseValue(Named("host"), "the name of a host as ssh takes it", *found);
    }
    return host;
  }

  std::string Name(const std::string& host) const {
    std::string name = TextOf("name", NameOfHost(host));
    const bool isFit = !name.empty() && name.size() <= kMostNameBytes && !name.starts_with('.') &&
                       name.find_first_not_of(kNameCharacters) == std::string::npos;
    if (!isFit) {
      RefuseValue(Named("name"),
                  "up to 100 letters, digits and '._-', with no '.' in front, since it becomes a "
                  "part of file names",
                  Json(name));
    }
    return name;
  }

  void TakeSlots(uint64_t& slots) const {
    const Json* found = object_.Find("slots");
    if (found == nullptr) return;
    try {
      slots = found->AsUnsigned();
    } catch (const JsonError&) {
      slots = 0;
    }
    if (slots >= 1 && slots <= kMostSlots) return;
    RefuseValue(Named("slots"), "a whole number of 1 to " + std::to_string(kMostSlots), *found);
  }

  void TakeEnvironment(Board& board) const {
    const Json* found = object_.Find("environment");
    if (found == nullptr) return;
    if (!found->IsObject()) {
      RefuseValue(Named("environment"), R"(an object such as {"NAME": "value"})", *found);
    }
    for (const auto& [name, value] : found->Members()) {
      const std::string member = Named("environment") + "." + PrintableExcerpt(name);
      const bool isName = !name.empty() && name.find_first_of("0123456789") != 0 &&
                          name.find_first_not_of(kVariableCharacters) == std::string::npos;
      if (!isName) {
        RefuseMember(member,
                     "is no name of a variable; give it letters, digits and '_', and no digit in "
                     "front");
      }
      board.environment.emplace_back(name, CheckedText(value, member));
    }
  }

  void TakeSsh(Board& board) const {
    const Json* found = object_.Find("ssh");
    if (found == nullptr) return;
    if (!found->IsArray()) {
      RefuseValue(Named("ssh"), R"(a list of words such as ["-p", "2222"])", *found);
    }
    for (const Json& word : found->Items()) {
      board.ssh.push_back(
          CheckedText(word, Named("ssh") + "[" + std::to_string(board.ssh.size()) + "]"));
    }
  }

  const Json& object_;
  std::string place_;
  const std::string& folder_;
};

std::string PlaceOfBoard(size_t index) { return "boards[" + std::to_string(index) + "]"; }

const std::vector<Json>& ItemsOf(const Json& object) {
  constexpr const char* kExample = R"({"schema": 1, "boards": [{"host": "NAME"}]})";
  if (!object.IsObject()) {
    throw JsonError("takes an object such as " + std::string(kExample) + ", and has " +
                    ShownValue(object));
  }
  HoldToMembers(object, "", {"schema", "boards"});
  for (const char* needed : {"schema", "boards"}) {
    if (object.Find(needed) != nullptr) continue;
    RefuseMember(needed, "is missing; a whole file is " + std::string(kExample));
  }
  const Json& schema = object.At("schema");
  const bool isKnown = schema.IsNumber() && schema.AsNumber() == 1;
  if (!isKnown) RefuseValue("schema", "1", schema);
  const Json& items = object.At("boards");
  if (!items.IsArray()) RefuseValue("boards", R"(a list such as [{"host": "NAME"}])", items);
  if (items.Items().empty()) RefuseMember("boards", R"(names no board; add {"host": "NAME"})");
  return items.Items();
}

}  // namespace

std::vector<Board> BoardsFromJson(const std::string& text, const std::string& folder) {
  const Json object = ParseJson(text);
  std::vector<Board> boards;
  std::map<std::string, std::string> places;  // by names
  for (const Json& item : ItemsOf(object)) {
    const std::string place = PlaceOfBoard(boards.size());
    boards.push_back(BoardReader(item, place, folder).Read());
    const std::string& name = boards.back().name;
    if (const auto [other, isNew] = places.emplace(name, place); !isNew) {
      RefuseMember(place + ".name", "is " + Quoted(name) + ", as that of " + other->second +
                                        "; give each a name of its own");
    }
  }
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
    throw Fault(ExitStatus::kInput, Printable(path) + ": " + error.what());
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
