#include "kit/launch/input_list.h"

#include <libgen.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "kit/common/fault.h"
#include "kit/common/printable.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kLinesAMark = 4096;

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

class InputList::Reader {
 public:
  explicit Reader(std::shared_ptr<const Source> source) : source_(std::move(source)) {
    if (source_ == nullptr) return;  // there is no list
    const std::string& bytes = source_->bytes;
    if (!source_->path.empty()) {
      file_.reset(std::fopen(source_->path.c_str(), "rbe"));
    } else if (bytes.empty()) {
      return;  // which fmemopen may refuse
    } else {
      file_.reset(fmemopen(const_cast<char*>(bytes.data()), bytes.size(), "rb"));
    }
    if (file_ == nullptr) Refuse("cannot be opened: " + SystemReason(errno));
  }
  ~Reader() { std::free(text_); }
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;

  void GoTo(const Mark& mark) {
    here_ = mark;
    if (file_ == nullptr || fseeko(file_.get(), static_cast<off_t>(mark.at), SEEK_SET) == 0) return;
    Refuse("cannot be read: " + SystemReason(errno));
  }

  // The next line that is not empty; false behind the last one. `begin` is where it stands.
  bool Next(ListedInput& line, Mark& begin) {
    while (file_ != nullptr) {
      begin = here_;
      const ssize_t got = getline(&text_, &room_, file_.get());
      if (got < 0) {
        if (std::ferror(file_.get()) != 0) Refuse("cannot be read: " + SystemReason(errno));
        return false;
      }
      auto length = static_cast<size_t>(got);
      here_.at += length;
      ++here_.number;
      if (text_[length - 1] == '\n') --length;
      if (length == 0) continue;
      line.line = here_.number;
      line.text.assign(text_, length);
      return true;
    }
    return false;
  }

  [[noreturn]] void RefuseAsChanged() const {
    Refuse("was changed while it was read; start again");
  }

 private:
  struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };

  [[noreturn]] void Refuse(const std::string& why) const {
    throw Fault(ExitStatus::kInput, "the list " + Quoted(source_->path) + " " + why);
  }

  std::shared_ptr<const Source> source_;
  std::unique_ptr<std::FILE, CloseFile> file_;
  Mark here_;
  char* text_ = nullptr;  // of getline
  size_t room_ = 0;
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
  recipe.source = std::make_shared<const Source>(Source{.path = path, .bytes = ""});
  recipe.folder = FolderOfList(path);
  return InputList(std::move(recipe));
}

InputList InputList::OfBytes(std::string bytes, const std::string& folder) {
  Recipe recipe;
  recipe.source = std::make_shared<const Source>(Source{.path = "", .bytes = std::move(bytes)});
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
  recipe.source = std::make_shared<const Source>(Source{.path = "", .bytes = std::move(bytes)});
  return InputList(std::move(recipe));
}

const ListedInput& InputList::Input(uint64_t place) const {
  const uint64_t first = place - place % GroupSize();
  if (group_.empty() || groupAt_ != first) ReadGroup(first);
  return group_[place - first];
}

void InputList::ReadGroup(uint64_t first) const {
  group_.clear();
  const uint64_t mark = first / kLinesAMark;
  if (next_ > first || next_ / kLinesAMark != mark) {
    reader_->GoTo(marks_.at(mark));
    next_ = mark * kLinesAMark;
  }
  const uint64_t end = first + GroupSize();
  std::vector<ListedInput> group;
  Mark begin;
  for (ListedInput line; next_ < end; ++next_) {
    if (!reader_->Next(line, begin)) reader_->RefuseAsChanged();
    if (next_ >= first) group.push_back(TakeApart(std::move(line)));
  }
  if (areNamesUsed_) {
    std::stable_sort(group.begin(), group.end(), [&](const auto& one, const auto& other) {
      return PlaceOf(*one.name, recipe_.names) < PlaceOf(*other.name, recipe_.names);
    });
  }
  group_ = std::move(group);
  groupAt_ = first;
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
