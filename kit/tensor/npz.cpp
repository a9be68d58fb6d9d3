#include "kit/tensor/npz.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>
#include <zip.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <set>
#include <span>
#include <string_view>

#include "kit/common/fault.h"
#include "kit/common/owned_file.h"
#include "kit/common/printable.h"
#include "kit/tensor/input_file.h"
#include "kit/tensor/npy.h"

namespace vorn::kit {
namespace {

constexpr std::string_view kArrayEnding = ".npy";
constexpr uint64_t kMostInMemory = 64 << 20;
constexpr size_t kPieceBytes = 1 << 20;
// Deflate makes no more than 258 bytes of two bits, so no archive that tells the truth claims more.
constexpr uint64_t kMostRatio = 1032;
constexpr size_t kMostNamesShown = 8;

std::string ReasonOf(int code) {
  zip_error_t error;
  zip_error_init_with_code(&error, code);
  std::string reason = zip_error_strerror(&error);
  zip_error_fini(&error);
  return reason;
}

// ---- One entry, read from its begin to its end --------------------------------------------------

class EntryReader {
 public:
  EntryReader(zip_t* archive, uint64_t place, std::string path)
      : file_(zip_fopen_index(archive, place, 0)), path_(std::move(path)) {
    if (file_ == nullptr) Refuse(zip_strerror(archive));
  }
  ~EntryReader() { zip_fclose(file_); }
  EntryReader(const EntryReader&) = delete;
  EntryReader& operator=(const EntryReader&) = delete;

  void Fill(std::span<std::byte> room) {
    while (!room.empty()) {
      const size_t got = Read(room);
      if (got == 0) Refuse("it ends before the size that the archive tells");
      room = room.subspan(got);
    }
  }

  // The sum behind the values is looked at only when their end is reached.
  void NeedEnd() {
    std::byte further{};
    if (Read({&further, 1}) != 0) Refuse("it goes on behind the size that the archive tells");
  }

 private:
  size_t Read(std::span<std::byte> room) {
    const zip_int64_t got = zip_fread(file_, room.data(), room.size());
    if (got < 0) Refuse(zip_file_strerror(file_));
    return static_cast<size_t>(got);
  }

  [[noreturn]] void Refuse(const std::string& reason) const {
    throw Fault(ExitStatus::kInput,
                "the array '" + Printable(path_) + "' cannot be unpacked: " + reason);
  }

  zip_file_t* file_;
  std::string path_;
};

// ---- Where unpacked values lie ------------------------------------------------------------------

/// A file that is gone with its last user, also where the process is killed.
class NamelessFile {
 public:
  explicit NamelessFile(const std::string& array) : array_(array) {
    const char* wanted = std::getenv("TMPDIR");
    folder_ = wanted != nullptr && *wanted != '\0' ? wanted : "/tmp";
    file_ = OwnedFile(open(folder_.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
    if (!file_.IsOpen()) {
      // Not every file system makes a file without a name.
      std::string path = folder_ + "/vorn-array-XXXXXX";
      file_ = OwnedFile(mkostemp(path.data(), O_CLOEXEC));
      if (!file_.IsOpen()) Refuse(errno);
      unlink(path.c_str());
    }
  }

  void Append(std::span<const std::byte> bytes) {
    while (!bytes.empty()) {
      const ssize_t put = write(file_.Get(), bytes.data(), bytes.size());
      if (put < 0 && errno == EINTR) continue;
      if (put < 0) Refuse(errno);
      bytes = bytes.subspan(static_cast<size_t>(put));
      bytes_ += static_cast<size_t>(put);
    }
  }

  [[nodiscard]] std::shared_ptr<const std::byte> Map() const {
    void* mapping = mmap(nullptr, bytes_, PROT_READ, MAP_SHARED, file_.Get(), 0);
    if (mapping == MAP_FAILED) Refuse(errno);
    return {static_cast<const std::byte*>(mapping), [bytes = bytes_](const std::byte* values) {
              munmap(const_cast<std::byte*>(values), bytes);
            }};
  }

 private:
  [[noreturn]] void Refuse(int error) const {
    throw Fault(ExitStatus::kLimit, "the array '" + Printable(array_) +
                                        "' cannot be unpacked into the folder '" +
                                        Printable(folder_) + "': " + SystemReason(error) +
                                        "; set TMPDIR to a folder with more room");
  }

  std::string array_;
  std::string folder_;
  OwnedFile file_;
  size_t bytes_ = 0;
};

// `bytes` values, of which `first` are read already.
std::shared_ptr<const std::byte> Unpack(EntryReader& entry, std::span<const std::byte> first,
                                        uint64_t bytes, const std::string& path) {
  if (bytes <= kMostInMemory) {
    // One byte at least, so that an array without elements has an address, too.
    auto values = std::make_shared<std::vector<std::byte>>(std::max<uint64_t>(bytes, 1));
    std::copy(first.begin(), first.end(), values->begin());
    entry.Fill(std::span(*values).subspan(first.size(), bytes - first.size()));
    return {values, values->data()};
  }
  NamelessFile file(path);
  file.Append(first);
  std::vector<std::byte> piece(kPieceBytes);
  for (uint64_t left = bytes - first.size(); left > 0;) {
    const auto room = std::span(piece).first(std::min<uint64_t>(left, piece.size()));
    entry.Fill(room);
    file.Append(room);
    left -= room.size();
  }
  return file.Map();
}

std::string WhatHinders(const zip_stat_t& about, uint64_t bytes, uint64_t packedBytes) {
  if (about.encryption_method != ZIP_EM_NONE) {
    return "is encrypted, which no array has to be; save it again without a password";
  }
  if (about.comp_method != ZIP_CM_STORE && about.comp_method != ZIP_CM_DEFLATE) {
    return "is packed by method " + std::to_string(about.comp_method) +
           " of zip; those of savez and savez_compressed are read, 0 and 8";
  }
  const std::string claim = "claims to be " + SizeText(bytes) + " of " + SizeText(packedBytes) +
                            " in the archive, which cannot be; ";
  const bool isStored = about.comp_method == ZIP_CM_STORE;
  if (isStored ? bytes != packedBytes : bytes / kMostRatio > packedBytes) {
    return claim + "the archive is broken, or made to fill memory";
  }
  return {};
}

}  // namespace

void ArrayArchive::Closer::operator()(zip* archive) const { zip_discard(archive); }

ArrayArchive::ArrayArchive(std::string path) : path_(std::move(path)) {
  // A pipe or a folder is told here.
  const uint64_t fileBytes = InputFile(path_, "the archive").Bytes();
  int code = 0;
  archive_.reset(zip_open(path_.c_str(), ZIP_RDONLY, &code));
  if (archive_ == nullptr) Refuse("is no archive of arrays (.npz): " + ReasonOf(code));
  const zip_int64_t count = zip_get_num_entries(archive_.get(), 0);
  std::set<std::string> names;
  uint64_t packedBytes = 0;
  for (uint64_t place = 0; place < static_cast<uint64_t>(count); ++place) {
    Entry entry = Describe(place);
    if (entry.packedBytes > fileBytes - packedBytes) {
      Refuse(
          "has entries that are more than the archive together; it is broken, or made to fill "
          "memory");
    }
    packedBytes += entry.packedBytes;
    if (!entry.name.ends_with(kArrayEnding)) continue;
    entry.name.resize(entry.name.size() - kArrayEnding.size());
    if (!names.insert(entry.name).second) {
      Refuse("holds two arrays of the name " + Quoted(entry.name) +
             ", and which is meant nothing tells; save them under names of their own");
    }
    entries_.push_back(std::move(entry));
  }
}

std::vector<std::string> ArrayArchive::Names() const {
  std::vector<std::string> names;
  for (const Entry& entry : entries_) names.push_back(entry.name);
  return names;
}

ArrayArchive::Entry ArrayArchive::Describe(uint64_t place) const {
  constexpr zip_uint64_t kNeeded = ZIP_STAT_NAME | ZIP_STAT_SIZE | ZIP_STAT_COMP_SIZE |
                                   ZIP_STAT_COMP_METHOD | ZIP_STAT_ENCRYPTION_METHOD;
  zip_stat_t about;
  // Names as they lie there: others than UTF-8 would be taken for those of another century.
  if (zip_stat_index(archive_.get(), place, ZIP_FL_ENC_RAW, &about) != 0 ||
      (about.valid & kNeeded) != kNeeded) {
    Refuse("has an entry, number " + std::to_string(place) + ", that cannot be read");
  }
  Entry entry;
  entry.name = about.name;
  entry.place = place;
  entry.bytes = about.size;
  entry.packedBytes = about.comp_size;
  entry.obstacle = WhatHinders(about, entry.bytes, entry.packedBytes);
  return entry;
}

const ArrayArchive::Entry& ArrayArchive::Find(const std::string& name) const {
  const auto at = std::find_if(entries_.begin(), entries_.end(),
                               [&](const Entry& entry) { return entry.name == name; });
  if (at != entries_.end()) return *at;
  if (entries_.empty()) Refuse(kNoArrays);
  std::string there;
  for (size_t i = 0; i < std::min(entries_.size(), kMostNamesShown); ++i) {
    there += (there.empty() ? "" : ", ") + Quoted(entries_[i].name);
  }
  if (entries_.size() > kMostNamesShown) there += ", …";
  Refuse("has no array " + Quoted(name) + "; there is " + there);
}

StoredTensor ArrayArchive::Open(const std::string& name, uint64_t mostBytes) const {
  const Entry& entry = Find(name);
  const std::string path = path_ + "/" + name + std::string(kArrayEnding);
  if (!entry.obstacle.empty()) {
    throw Fault(ExitStatus::kInput, "the array '" + Printable(path) + "' " + entry.obstacle);
  }
  if (entry.bytes > mostBytes) {
    throw Fault(ExitStatus::kLimit, "the array '" + Printable(path) + "' has " +
                                        SizeText(entry.bytes) + " unpacked, more than the " +
                                        SizeText(mostBytes) +
                                        " that are taken; save it in several parts");
  }
  EntryReader reader(archive_.get(), entry.place, path);
  std::string head(std::min(entry.bytes, kMostNpyHead), '\0');
  reader.Fill(std::as_writable_bytes(std::span(head)));
  StoredTensor tensor = ParseNpy(path, head, entry.bytes);
  const auto first = std::as_bytes(std::span(head)).subspan(tensor.offsetBytes);
  tensor.unpacked = Unpack(reader, first, entry.bytes - tensor.offsetBytes, path);
  tensor.offsetBytes = 0;
  reader.NeedEnd();
  return tensor;
}

void ArrayArchive::Refuse(const std::string& reason) const {
  throw Fault(ExitStatus::kInput, "the archive '" + Printable(path_) + "' " + reason);
}

}  // namespace vorn::kit
