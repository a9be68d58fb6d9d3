#include "kit/launch/input_list.h"

#include <fcntl.h>
#include <libgen.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "kit/common/fault.h"
#include "kit/common/owned_file.h"
#include "kit/common/printable.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kLinesAMark = 4096;
constexpr size_t kListPieceBytes = 64 * 1024;
constexpr size_t kMostLineBytes = 1 << 20;

// A name is looked for in the line and then once more in what became of it, where a ':' of the
// folder counts too.
std::string EntryOf(const std::string& line, const std::string& folder) {
  const size_t path = NameInLine(line) ? line.find(':') + 1 : 0;
  return line.substr(0, path) + folder + "/" + line.substr(path);
}

size_t PlaceOf(std::string_view name, const std::vector<std::string>& names) {
  // Of inputs with one name the last one is meant.
  for (size_t i = names.size(); i > 0; --i) {
    if (names[i - 1] == name) return i - 1;
  }
  return names.size();
}

bool HasNameOf(std::string_view line, const std::vector<std::string>& names) {
  const auto name = NameInLine(line);
  return name && PlaceOf(*name, names) < names.size();
}

}  // namespace

std::optional<std::string_view> NameInLine(std::string_view line) {
  const size_t colon = line.find(':');
  const bool isName = colon != line.npos && colon != 0 && colon + 1 != line.size();
  return isName ? std::optional(line.substr(0, colon)) : std::nullopt;
}

std::string FolderOfList(const std::string& listFile) {
  std::string path = listFile;
  return dirname(path.data());
}

// ---- Reading ------------------------------------------------------------------------------------

// One open file for all lists that are made of it: who puts another in its place changes none.
struct InputList::Source {
  std::string bytes;  // of a list in memory
  OwnedFile file;     // of one that is not
  FileIdentity identity;
  struct stat opened {};

  // Throws a Fault of kInput.
  static std::shared_ptr<const Source> OfFile(const std::string& path) {
    auto source = std::make_shared<Source>();
    source->identity.path = path;
    // Without O_NONBLOCK a pipe without a writer would be waited for.
    source->file = OwnedFile(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!source->file.IsOpen() || fstat(source->file.Get(), &source->opened) != 0) {
      source->Refuse("cannot be opened: " + SystemReason(errno));
    }
    if (S_ISDIR(source->opened.st_mode)) source->Refuse("is a folder, and a file is needed");
    if (!S_ISREG(source->opened.st_mode))
      source->Refuse("is no regular file; it is read more than once, so write it into one");
    source->TakeHash();
    return source;
  }

  static std::shared_ptr<const Source> OfBytes(std::string bytes) {
    auto source = std::make_shared<Source>();
    source->bytes = std::move(bytes);
    return source;
  }

  // What stands from a byte on, as much as there is room for; all of it if it is in memory. Nothing
  // behind the end.
  std::string_view Read(uint64_t at, std::string& room) const {
    if (!file.IsOpen()) return std::string_view(bytes).substr(std::min<uint64_t>(at, bytes.size()));
    room.resize(kListPieceBytes);
    ssize_t got = 0;
    do {
      got = pread(file.Get(), room.data(), room.size(), static_cast<off_t>(at));
    } while (got < 0 && errno == EINTR);
    if (got < 0) Refuse("cannot be read: " + SystemReason(errno));
    // Asked behind the reading, so that what was read is what was there when it was opened.
    struct stat now {};
    const bool isSame = fstat(file.Get(), &now) == 0 && now.st_size == opened.st_size &&
                        now.st_mtim.tv_sec == opened.st_mtim.tv_sec &&
                        now.st_mtim.tv_nsec == opened.st_mtim.tv_nsec;
    if (!isSame) RefuseAsChanged();
    return std::string_view(room).substr(0, static_cast<size_t>(got));
  }

  [[noreturn]] void RefuseAsChanged() const {
    Refuse("was changed while it was read; start again");
  }

  [[noreturn]] void Refuse(const std::string& why) const {
    throw Fault(ExitStatus::kInput, "the list " + Quoted(identity.path) + " " + why);
  }

 private:
  void TakeHash() {
    Xxh3Stream hash;
    std::string room;
    uint64_t at = 0;
    for (std::string_view piece; !(piece = Read(at, room)).empty(); at += piece.size()) {
      hash.Add(piece);
    }
    identity.sizeBytes = at;
    identity.xxh3 = hash.Digits();
  }
};

class InputList::Reader {
 public:
  explicit Reader(std::shared_ptr<const Source> source) : source_(std::move(source)) {}
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;

  void GoTo(const Mark& mark) {
    here_ = mark;
    left_ = {};
  }

  // The next line that is not empty; false behind the last one. `begin` is where it stands.
  bool Next(ListedInput& line, Mark& begin) {
    while (source_ != nullptr) {
      begin = here_;
      line.text.clear();
      if (!TakeLine(line.text)) return false;
      if (line.text.empty()) continue;
      line.line = here_.number;
      return true;
    }
    return false;
  }

  [[noreturn]] void RefuseAsChanged() const { source_->RefuseAsChanged(); }

 private:
  bool TakeLine(std::string& text) {
    for (bool isBegun = false;; isBegun = true) {
      if (left_.empty()) left_ = source_->Read(here_.at, room_);
      if (left_.empty()) {
        if (isBegun) ++here_.number;
        return isBegun;
      }
      const size_t end = left_.find('\n');
      const bool isWhole = end != left_.npos;
      const size_t length = isWhole ? end : left_.size();
      if (text.size() + length > kMostLineBytes) RefuseLine();
      text.append(left_.substr(0, length));
      here_.at += length + (isWhole ? 1 : 0);
      left_.remove_prefix(length + (isWhole ? 1 : 0));
      if (!isWhole) continue;
      ++here_.number;
      return true;
    }
  }

  [[noreturn]] void RefuseLine() const {
    source_->Refuse("has more than " + SizeText(kMostLineBytes) + " in line " +
                    std::to_string(here_.number + 1) + "; a list has a path in each line");
  }

  std::shared_ptr<const Source> source_;  // null: there is no list
  Mark here_;
  std::string room_;
  std::string_view left_;  // of what was read, from here on
};

// ---- The list -----------------------------------------------------------------------------------

InputList::InputList() = default;
InputList::~InputList() = default;
InputList::InputList(InputList&&) noexcept = default;
InputList& InputList::operator=(InputList&&) noexcept = default;

InputList::InputList(Recipe recipe)
    : recipe_(std::move(recipe)), reader_(std::make_unique<Reader>(recipe_.source)) {
  reader_->GoTo({.at = recipe_.begin, .number = 0});
  const std::vector<std::string>& names = recipe_.names;
  uint64_t sortable = 0;
  Mark mark;
  for (ListedInput input; lines_ < recipe_.most && reader_->Next(input, mark); ++lines_) {
    if (lines_ % kLinesAMark == 0) marks_.push_back(mark);
    lastNumber_ = input.line;
    if (NameInLine(input.text)) ++named_;
    if (names.empty()) continue;
    if (HasNameOf(input.text, names)) ++known_;
    if (HasNameOf(EntryOf(input.text, recipe_.folder), names)) ++sortable;
  }
  areNamesUsed_ = !names.empty() && sortable == lines_ && lines_ % names.size() == 0;
  next_ = lines_;
}

InputList InputList::OfFile(const std::string& path) {
  Recipe recipe;
  recipe.source = Source::OfFile(path);
  recipe.folder = FolderOfList(path);
  return InputList(std::move(recipe));
}

InputList InputList::OfBytes(std::string bytes, const std::string& folder) {
  Recipe recipe;
  recipe.source = Source::OfBytes(std::move(bytes));
  recipe.folder = folder;
  return InputList(std::move(recipe));
}

InputList InputList::SortedBy(const std::vector<std::string>& names) const {
  Recipe recipe = recipe_;
  recipe.names = names;
  return InputList(std::move(recipe));
}

InputList InputList::FirstOf(uint64_t lines) const {
  Recipe recipe = recipe_;
  recipe.most = std::min(recipe.most, lines);
  return InputList(std::move(recipe));
}

InputList InputList::Without(uint64_t bytes) const {
  Recipe recipe = recipe_;
  recipe.begin += bytes;
  return InputList(std::move(recipe));
}

InputList InputList::HeldIn(std::string bytes) const {
  Recipe recipe = recipe_;
  recipe.source = Source::OfBytes(std::move(bytes));
  return InputList(std::move(recipe));
}

FileIdentity InputList::File() const {
  return recipe_.source == nullptr ? FileIdentity{} : recipe_.source->identity;
}

const ListedInput& InputList::Input(uint64_t place) const {
  const uint64_t first = place - place % GroupSize();
  if (group_.empty() || groupAt_ != first) ReadGroup(first);
  return group_[place - first];
}

void InputList::ReadGroup(uint64_t first) const {
  group_.clear();
  const uint64_t mark = first / kLinesAMark;
  uint64_t next = std::exchange(next_, lines_);  // nothing goes on behind a line that failed
  if (next > first || next / kLinesAMark != mark) {
    reader_->GoTo(marks_.at(mark));
    next = mark * kLinesAMark;
  }
  const uint64_t end = first + GroupSize();
  std::vector<ListedInput> group;
  Mark begin;
  for (ListedInput line; next < end; ++next) {
    if (!reader_->Next(line, begin)) reader_->RefuseAsChanged();
    if (next >= first) group.push_back(TakeApart(std::move(line)));
  }
  if (areNamesUsed_) {
    std::stable_sort(group.begin(), group.end(), [&](const auto& one, const auto& other) {
      return PlaceOf(*one.name, recipe_.names) < PlaceOf(*other.name, recipe_.names);
    });
  }
  group_ = std::move(group);
  groupAt_ = first;
  next_ = end;
}

ListedInput InputList::TakeApart(ListedInput line) const {
  const size_t path = NameInLine(line.text) ? line.text.find(':') + 1 : 0;
  line.path = line.text.substr(path);
  line.file = EntryOf(line.text, recipe_.folder);
  if (!areNamesUsed_) return line;
  const auto name = NameInLine(line.file);
  if (!name) reader_->RefuseAsChanged();
  line.name = std::string(*name);
  line.file.erase(0, name->size() + 1);
  return line;
}

}  // namespace vorn::kit
