// The names are those of vorn-run: <output name>.<duplicate>.<microseconds>.bin, where the name has
// no full stop of its own.
#include "kit/launch/dumps.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <memory>

#include "kit/common/fault.h"
#include "kit/common/folder_names.h"
#include "kit/common/owned_file.h"
#include "kit/common/printable.h"
#include "kit/launch/checks.h"
#include "kit/model/dump_array.h"
#include "shared/text/characters.h"
#include "vorn/vorn.h"

namespace vorn::kit {
namespace {

constexpr std::string_view kBinary = ".bin";
constexpr std::string_view kText = ".float";
constexpr std::string_view kArray = ".npy";
constexpr uint64_t kValueBytes = sizeof(float);

std::string NameInFiles(const std::string& output) {
  if (output.empty()) return "output";
  std::string name = output;
  std::replace_if(
      name.begin(), name.end(), [](char c) { return c == '.' || c == '/' || c == '\\'; }, '_');
  return name;
}

struct Folder {
  std::string path;
  std::vector<std::string> files;  // sorted
};

Folder ListFolder(const std::string& path) { return {.path = path, .files = NamesIn(path)}; }

// Files "<front><digits><ending>".
std::vector<std::string> FilesOf(const Folder& folder, const std::string& front,
                                 std::string_view ending) {
  std::vector<std::string> files;
  for (auto file = std::lower_bound(folder.files.begin(), folder.files.end(), front);
       file != folder.files.end() && file->starts_with(front); ++file) {
    if (!file->ends_with(ending) || file->size() <= front.size() + ending.size()) continue;
    const std::string stamp =
        file->substr(front.size(), file->size() - front.size() - ending.size());
    if (stamp.find_first_not_of("0123456789") == std::string::npos) files.push_back(*file);
  }
  return files;
}

// Names with bytes that are no UTF-8 could not be told in a JSON file, and nobody could find them.
std::string TellableName(const std::string& name) {
  std::string told;
  std::string_view rest = name;
  while (!rest.empty()) {
    const size_t length = text::CharacterLength(rest);
    told += length == 0 ? std::string_view("_") : rest.substr(0, length);
    rest.remove_prefix(std::max<size_t>(length, 1));
  }
  return told;
}

void Rename(const std::string& from, const std::string& to) {
  if (from == to || std::rename(from.c_str(), to.c_str()) == 0) return;
  throw Fault(ExitStatus::kLimit,
              "cannot rename '" + Printable(from) + "': " + SystemReason(errno));
}

struct Census {
  uint64_t nans = 0;
  uint64_t infinities = 0;

  // By bits: nothing here depends on how the compiler treats such numbers.
  void Count(std::string_view bytes) {
    constexpr uint32_t kExponent = 0x7F800000;
    constexpr uint32_t kWithoutSign = 0x7FFFFFFF;
    for (; bytes.size() >= kValueBytes; bytes.remove_prefix(kValueBytes)) {
      uint32_t bits = 0;
      std::memcpy(&bits, bytes.data(), sizeof(bits));
      bits &= kWithoutSign;
      nans += bits > kExponent ? 1 : 0;
      infinities += bits == kExponent ? 1 : 0;
    }
  }
};

class ArrayFile {
 public:
  ArrayFile(std::string path, std::string_view header) : path_(std::move(path)) {
    file_ = OwnedFile(open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
    if (!file_.IsOpen()) Refuse();
    Write(header);
  }

  void Write(std::string_view bytes) {
    while (!bytes.empty()) {
      const ssize_t put = write(file_.Get(), bytes.data(), bytes.size());
      if (put < 0 && errno == EINTR) continue;
      if (put < 0) Refuse();
      bytes.remove_prefix(static_cast<size_t>(put));
    }
  }

 private:
  [[noreturn]] void Refuse() const {
    throw Fault(ExitStatus::kLimit,
                "cannot write '" + Printable(path_) + "': " + SystemReason(errno));
  }

  std::string path_;
  OwnedFile file_;
};

class DumpInspector {
 public:
  DumpInspector(Folder folder, const ModelDescription& model, const DumpRequest& request)
      : folder_(std::move(folder)), model_(model), request_(request) {}

  DumpsFound Inspect() {
    std::map<std::string, uint64_t> duplicates;
    for (size_t i = 0; i < model_.outputs.size(); ++i) {
      const std::string name = NameInFiles(model_.outputs[i].name);
      InspectOutput(i, name + "." + std::to_string(duplicates[name]++) + ".");
    }
    return found_;
  }

 private:
  void InspectOutput(size_t index, const std::string& front) {
    const TensorDescription& output = model_.outputs[index];
    const std::string told = "output '" + Printable(output.name) + "'";
    const auto binaries = FilesOf(folder_, front, kBinary);
    if (binaries.size() != 1) {
      found_.faults.push_back(binaries.empty() ? told + " was not dumped"
                                               : told + " was dumped twice");
      return;
    }
    SampleOutput noted{.index = index,
                       .name = output.name,
                       .path = Told(binaries[0]),
                       .text = {},
                       .sizeBytes = 0,
                       .xxh3 = {}};
    const uint64_t values = DumpValues(output, request_.batch);
    struct stat about {};
    if (stat((folder_.path + "/" + noted.path).c_str(), &about) != 0 || !S_ISREG(about.st_mode)) {
      found_.faults.push_back(told + " was dumped as what is no regular file");
      return;
    }
    noted.sizeBytes = static_cast<uint64_t>(about.st_size);
    Census census;
    if (noted.sizeBytes == values * kValueBytes) Measure(noted, output, values, census);
    if (noted.sizeBytes != values * kValueBytes) {
      found_.faults.push_back(told + " was dumped with " + std::to_string(noted.sizeBytes) +
                              " bytes instead of " + std::to_string(values * kValueBytes) + " (" +
                              std::to_string(values) + " values)");
      return;
    }
    const auto texts = FilesOf(folder_, front, kText);
    if (request_.isTextKept) {
      if (texts.size() != 1 || !IsWholeText(texts[0], values)) {
        found_.faults.push_back(told + " has no whole text beside its dump");
        return;
      }
      noted.text = Told(texts[0]);
    } else {
      for (const std::string& text : texts) unlink((folder_.path + "/" + text).c_str());
    }
    if (census.nans + census.infinities > 0) found_.unfit.push_back(output.name);
    found_.nans += census.nans;
    found_.infinities += census.infinities;
    found_.outputs.push_back(std::move(noted));
  }

  // A disk that was full for a moment has cut it between two dumps that are whole.
  bool IsWholeText(const std::string& file, uint64_t values) const {
    const std::string path = folder_.path + "/" + file;
    struct stat about {};
    if (stat(path.c_str(), &about) != 0 || static_cast<uint64_t>(about.st_size) < values) {
      return false;
    }
    if (values == 0) return true;
    const OwnedFile text(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    char last = '\0';
    return pread(text.Get(), &last, 1, about.st_size - 1) == 1 && last == '\n';
  }

  std::string Told(const std::string& file) const {
    std::string told = TellableName(file);
    Rename(folder_.path + "/" + file, folder_.path + "/" + told);
    return told;
  }

  void Measure(SampleOutput& noted, const TensorDescription& output, uint64_t values,
               Census& census) const {
    const std::string path = folder_.path + "/" + noted.path;
    std::unique_ptr<ArrayFile> array;
    if (request_.areArrays && AreValuesDumped(output)) {
      array = std::make_unique<ArrayFile>(
          path.substr(0, path.size() - kBinary.size()) + std::string(kArray),
          ArrayHeader(output, ShapeOfDump(output, request_.batch, values)));
    }
    const bool isFloat = output.type == uint32_t{VORN_FLOAT32};
    const FileIdentity file =
        IdentifyFile(path, "the dump", ExitStatus::kLimit, [&](std::string_view bytes) {
          if (isFloat) census.Count(bytes);
          if (array != nullptr) array->Write(ArrayValues(output, bytes));
        });
    noted.sizeBytes = file.sizeBytes.value_or(0);
    noted.xxh3 = file.xxh3.value_or("");
  }

  Folder folder_;
  const ModelDescription& model_;
  const DumpRequest& request_;
  DumpsFound found_;
};

}  // namespace

DumpsFound InspectDumps(const std::string& folder, const ModelDescription& model,
                        const DumpRequest& request) {
  return DumpInspector(ListFolder(folder), model, request).Inspect();
}

void RemoveWholeTexts(const std::string& folder) {
  const std::vector<std::string> files = NamesIn(folder);
  for (const std::string& file : files) {
    if (!file.ends_with(kText)) continue;
    const std::string front = file.substr(0, file.size() - kText.size());
    const std::string dump = front + std::string(kBinary);
    if (!std::binary_search(files.begin(), files.end(), dump)) continue;
    unlink((folder + "/" + file).c_str());
  }
}

bool DoesVerify(const std::string& run, const SampleOutput& output,
                const std::function<bool()>& mayGoOn) {
  struct CutOff {};
  // A path that leads out of the run was not written by this verb.
  if (output.path.find("..") != std::string::npos || output.path.starts_with('/')) return false;
  struct stat about {};
  if (stat((run + "/" + output.path).c_str(), &about) != 0 ||
      static_cast<uint64_t>(about.st_size) != output.sizeBytes) {
    return false;
  }
  try {
    if (output.text && access((run + "/" + *output.text).c_str(), R_OK) != 0) return false;
    const FileIdentity file = IdentifyFile(run + "/" + output.path, "the dump", ExitStatus::kInput,
                                           [&](std::string_view) {
                                             if (!mayGoOn()) throw CutOff();
                                           });
    return file.sizeBytes == output.sizeBytes && file.xxh3 == output.xxh3;
  } catch (const Fault&) {
    return false;
  } catch (const CutOff&) {
    return false;
  }
}

}  // namespace vorn::kit
