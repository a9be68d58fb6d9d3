#include "kit/common/file_identity.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <memory>

#include "kit/common/owned_file.h"
#include "kit/common/printable.h"
#include "kit/common/xxh3.h"

namespace vorn::kit {
namespace {

constexpr size_t kPieceBytes = 256 * 1024;

class OpenFile {
 public:
  OpenFile(const std::string& path, std::string what, ExitStatus status)
      : path_(path), what_(std::move(what)), status_(status) {
    // Without O_NONBLOCK a pipe without a writer would be waited for.
    file_ = OwnedFile(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file_.IsOpen()) Refuse("cannot be opened: " + SystemReason(errno));
    struct stat about {};
    if (fstat(file_.Get(), &about) != 0 || !S_ISREG(about.st_mode)) {
      Refuse(S_ISDIR(about.st_mode) ? "is a folder, and a file is needed" : "is no regular file");
    }
    size_ = static_cast<uint64_t>(about.st_size);
  }

  /// The bytes that came; 0 at the end.
  size_t Read(char* place, size_t size) {
    ssize_t got = 0;
    do {
      got = read(file_.Get(), place, size);
    } while (got < 0 && errno == EINTR);
    if (got < 0) Refuse("cannot be read: " + SystemReason(errno));
    return static_cast<size_t>(got);
  }

  /// When it was opened; 0 also of a file that the kernel makes while it is read.
  uint64_t Size() const { return size_; }

  [[noreturn]] void Refuse(const std::string& reason) const {
    throw Fault(status_, what_ + " '" + Printable(path_) + "' " + reason);
  }

 private:
  std::string path_;
  std::string what_;
  ExitStatus status_;
  OwnedFile file_;
  uint64_t size_ = 0;
};

std::string Digits(const Xxh3Hash& hash) {
  std::array<char, 33> text{};
  std::snprintf(text.data(), text.size(), "%016llx%016llx",
                static_cast<unsigned long long>(hash.high),
                static_cast<unsigned long long>(hash.low));
  return text.data();
}

}  // namespace

std::string Xxh3Of(std::string_view bytes) {
  return Digits(BestXxh3().hash(bytes.data(), bytes.size()));
}

Xxh3Stream::Xxh3Stream() : state_(std::make_unique<Xxh3State>()) { BestXxh3().start(*state_); }

Xxh3Stream::~Xxh3Stream() = default;

void Xxh3Stream::Add(std::string_view bytes) {
  BestXxh3().add(*state_, bytes.data(), bytes.size());
}

std::string Xxh3Stream::Digits() const { return kit::Digits(BestXxh3().hashUntilNow(*state_)); }

FileIdentity IdentifyFile(const std::string& path, const std::string& what, ExitStatus status) {
  return IdentifyFile(path, what, status, [](std::string_view) {});
}

FileIdentity IdentifyFile(const std::string& path, const std::string& what, ExitStatus status,
                          const std::function<void(std::string_view)>& show) {
  OpenFile file(path, what, status);
  const auto piece = std::make_unique_for_overwrite<char[]>(kPieceBytes);
  Xxh3Stream hash;
  FileIdentity identity{.path = path, .sizeBytes = 0, .xxh3 = {}};
  while (const size_t got = file.Read(piece.get(), kPieceBytes)) {
    hash.Add({piece.get(), got});
    show({piece.get(), got});
    identity.sizeBytes = *identity.sizeBytes + got;
    // To ask for the end, too, would take a small file half as long again.
    if (identity.sizeBytes == file.Size()) break;
  }
  identity.xxh3 = hash.Digits();
  return identity;
}

std::string ReadWholeFile(const std::string& path, const std::string& what, ExitStatus status,
                          uint64_t mostBytes) {
  OpenFile file(path, what, status);
  const auto piece = std::make_unique_for_overwrite<char[]>(kPieceBytes);
  std::string bytes;
  while (const size_t got = file.Read(piece.get(), kPieceBytes)) {
    bytes.append(piece.get(), got);
    if (bytes.size() > mostBytes) {
      file.Refuse("is larger than " + SizeText(mostBytes) + ", which nothing of its kind is");
    }
  }
  return bytes;
}

}  // namespace vorn::kit
