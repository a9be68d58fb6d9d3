// Files as they are noted in what the kit writes, and files read whole.
#ifndef VORN_KIT_COMMON_FILE_IDENTITY_H_
#define VORN_KIT_COMMON_FILE_IDENTITY_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "kit/common/fault.h"

namespace vorn::kit {

struct Xxh3State;

/// A file that something was made from.
struct FileIdentity {
  std::string path;
  std::optional<uint64_t> sizeBytes;
  std::optional<std::string> xxh3;  ///< XXH3-128 in hexadecimal digits, the upper half first

  bool operator==(const FileIdentity&) const = default;
};

/// XXH3-128 of bytes in memory, in hexadecimal digits as above.
[[nodiscard]] std::string Xxh3Of(std::string_view bytes);

/// The same of bytes that come in pieces.
class Xxh3Stream {
 public:
  Xxh3Stream();
  ~Xxh3Stream();
  Xxh3Stream(const Xxh3Stream&) = delete;
  Xxh3Stream& operator=(const Xxh3Stream&) = delete;

  void Add(std::string_view bytes);

  /// Of all that was added until now.
  [[nodiscard]] std::string Digits() const;

 private:
  std::unique_ptr<Xxh3State> state_;
};

/// Reads the file once, in pieces. Throws a Fault of `status` that says what `what` is ("the
/// model") and what is wrong with it.
[[nodiscard]] FileIdentity IdentifyFile(const std::string& path, const std::string& what,
                                        ExitStatus status);

/// The same, and shows each piece on its way. All but the last have a multiple of 64 bytes, unless
/// the file changes meanwhile.
[[nodiscard]] FileIdentity IdentifyFile(const std::string& path, const std::string& what,
                                        ExitStatus status,
                                        const std::function<void(std::string_view)>& show);

/// The whole file. Refuses one of more than `mostBytes`; throws as above.
[[nodiscard]] std::string ReadWholeFile(const std::string& path, const std::string& what,
                                        ExitStatus status, uint64_t mostBytes);

}  // namespace vorn::kit

#endif  // VORN_KIT_COMMON_FILE_IDENTITY_H_
