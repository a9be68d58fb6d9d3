// The child writes what it has made to a pipe:
//
//     'P' width height sourceWidth sourceHeight (4 bytes each, as this machine has them) | PNG
//     'E' why there is no picture
#include "kit/report/thumbnail.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <exception>
#include <limits>

#include "kit/common/fault.h"
#include "kit/common/file_identity.h"
#include "kit/common/printable.h"
#include "kit/picture/decode.h"
#include "kit/picture/encode_png.h"
#include "kit/picture/resize.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kMostPictureBytes = 256 << 20;
constexpr uint64_t kMostPixels = 1 << 26;
constexpr size_t kMostAnswerBytes = 4 << 20;
constexpr unsigned kMostSeconds = 20;  // of the processor

[[noreturn]] void Refuse(const std::string& path, const std::string& reason) {
  throw Fault(ExitStatus::kInput, "there is no picture of " + Quoted(path) + ": " + reason);
}

// ---- Pixels -------------------------------------------------------------------------------------

// Values from the least to the greatest as 0 to 255.
class Greys {
 public:
  void Take(float value) {
    if (!std::isfinite(value)) return;
    least_ = std::min(least_, value);
    most_ = std::max(most_, value);
  }
  [[nodiscard]] std::byte Of(float value) const {
    if (!std::isfinite(value) || !(least_ < most_)) return std::byte{0};
    const double share = (static_cast<double>(value) - static_cast<double>(least_)) /
                         (static_cast<double>(most_) - static_cast<double>(least_));
    return static_cast<std::byte>(std::lround(255 * share));
  }

 private:
  float least_ = std::numeric_limits<float>::infinity();
  float most_ = -std::numeric_limits<float>::infinity();
};

Picture FloatsAsBytes(const Picture& picture) {
  Greys greys;
  Picture bytes = MakePicture(picture.width, picture.height, picture.channels, PixelType::kUint8);
  for (uint32_t y = 0; y < picture.height; ++y) {
    const auto* row = picture.Row<float>(y);
    for (size_t i = 0; i < picture.RowValues(); ++i) greys.Take(row[i]);
  }
  for (uint32_t y = 0; y < picture.height; ++y) {
    const auto* row = picture.Row<float>(y);
    auto* out = bytes.Row<std::byte>(y);
    for (size_t i = 0; i < picture.RowValues(); ++i) out[i] = greys.Of(row[i]);
  }
  return bytes;
}

// No side longer than the most, and none of 0.
Picture Fitted(const Picture& picture) {
  const uint32_t longer = std::max(picture.width, picture.height);
  if (longer <= kMostReportPicture) return picture;
  const auto fitted = [&](uint32_t side) {
    return std::max<uint32_t>(static_cast<uint32_t>(uint64_t{side} * kMostReportPicture / longer),
                              1);
  };
  return Resize(picture, fitted(picture.width), fitted(picture.height), ResizeRule::kPilBox);
}

ReportPicture Shown(Picture picture) {
  ReportPicture shown;
  shown.sourceWidth = picture.width;
  shown.sourceHeight = picture.height;
  if (picture.HasAlpha()) picture = WithoutAlpha(std::move(picture));
  picture =
      picture.type == PixelType::kFloat32 ? FloatsAsBytes(picture) : UpperBytes(std::move(picture));
  const Picture fitted = Fitted(picture);
  shown.width = fitted.width;
  shown.height = fitted.height;
  shown.png = EncodePng(fitted);
  return shown;
}

// ---- The child ----------------------------------------------------------------------------------

void Write(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t wrote = write(fd, bytes.data(), bytes.size());
    if (wrote < 0 && errno == EINTR) continue;
    if (wrote <= 0) return;
    bytes.remove_prefix(static_cast<size_t>(wrote));
  }
}

std::string ChildsAnswer(const std::string& path, std::string_view bytes) {
  try {
    DecodedPicture decoded =
        DecodePicture(path, bytes, {.mostPixels = kMostPixels, .mostBytes = 4 * kMostPixels});
    const ReportPicture shown =
        Shown(ApplyOrientation(std::move(decoded.picture), decoded.orientation));
    const std::array<uint32_t, 4> sizes{shown.width, shown.height, shown.sourceWidth,
                                        shown.sourceHeight};
    std::string answer = "P";
    answer.append(reinterpret_cast<const char*>(sizes.data()), sizeof sizes);
    return answer + shown.png;
  } catch (const std::exception& error) {
    return std::string("E") + error.what();
  }
}

[[noreturn]] void BeChild(int fd, const std::string& path, std::string_view bytes) {
  const rlimit seconds{kMostSeconds, kMostSeconds};
  const rlimit none{0, 0};
  (void)setrlimit(RLIMIT_CPU, &seconds);
  (void)setrlimit(RLIMIT_CORE, &none);
  Write(fd, ChildsAnswer(path, bytes));
  _exit(0);
}

// All that the child writes; it ends by itself, or by its limits.
std::string ReadAnswer(int fd) {
  std::string answer;
  std::array<char, 65536> piece{};
  while (answer.size() < kMostAnswerBytes) {
    const ssize_t got = read(fd, piece.data(), piece.size());
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    answer.append(piece.data(), static_cast<size_t>(got));
  }
  return answer;
}

std::string AskChild(const std::string& path, std::string_view bytes) {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) Refuse(path, SystemReason(errno));
  const pid_t child = fork();
  if (child < 0) {
    const int error = errno;
    close(ends[0]);
    close(ends[1]);
    Refuse(path, SystemReason(error));
  }
  if (child == 0) BeChild(ends[1], path, bytes);
  close(ends[1]);
  std::string answer = ReadAnswer(ends[0]);
  close(ends[0]);
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (WIFSIGNALED(status)) {
    Refuse(path, "the decoder was ended by signal " + std::to_string(WTERMSIG(status)));
  }
  return answer;
}

}  // namespace

ReportPicture ThumbnailOf(const std::string& path, const std::optional<std::string>& xxh3) {
  const std::string bytes =
      ReadWholeFile(path, "the picture", ExitStatus::kInput, kMostPictureBytes);
  if (!FormatOf(bytes)) Refuse(path, "it is no picture of a kind that is known here");
  if (xxh3 && Xxh3Of(bytes) != *xxh3)
    Refuse(path, "it has changed since the sample was made of it");
  const std::string answer = AskChild(path, bytes);
  constexpr size_t kHead = 1 + 4 * sizeof(uint32_t);
  if (answer.starts_with('E')) Refuse(path, answer.substr(1));
  if (!answer.starts_with('P') || answer.size() <= kHead) Refuse(path, "the decoder said nothing");
  std::array<uint32_t, 4> sizes{};
  std::memcpy(sizes.data(), answer.data() + 1, sizeof sizes);
  ReportPicture picture;
  picture.name = path;
  picture.width = sizes[0];
  picture.height = sizes[1];
  picture.sourceWidth = sizes[2];
  picture.sourceHeight = sizes[3];
  picture.png = answer.substr(kHead);
  return picture;
}

std::optional<PictureTensor> PictureTensorOf(const std::vector<int64_t>& shape,
                                             bool areChannelsLast) {
  constexpr int64_t kMostSide = 8192;
  if (shape.size() < 3 || shape.size() > 4) return std::nullopt;
  const size_t first = shape.size() - 3;  // behind the batch
  const int64_t channels = shape[areChannelsLast ? first + 2 : first];
  const int64_t rows = shape[areChannelsLast ? first : first + 1];
  const int64_t columns = shape[areChannelsLast ? first + 1 : first + 2];
  if (channels != 1 && channels != 3) return std::nullopt;
  if (rows < 2 || columns < 2 || rows > kMostSide || columns > kMostSide) return std::nullopt;
  return PictureTensor{static_cast<uint32_t>(rows), static_cast<uint32_t>(columns),
                       static_cast<uint32_t>(channels), areChannelsLast};
}

ReportPicture DrawTensor(std::span<const float> values, const PictureTensor& shape) {
  Greys greys;
  for (const float value : values) greys.Take(value);
  Picture picture = MakePicture(shape.columns, shape.rows, shape.channels, PixelType::kUint8);
  const size_t places = size_t{shape.rows} * shape.columns;
  auto* pixels = picture.pixels.data();
  for (size_t place = 0; place < places; ++place) {
    for (size_t channel = 0; channel < shape.channels; ++channel) {
      const size_t from =
          shape.areChannelsLast ? place * shape.channels + channel : channel * places + place;
      pixels[place * shape.channels + channel] = greys.Of(values[from]);
    }
  }
  ReportPicture shown = Shown(std::move(picture));
  shown.isTensor = true;
  return shown;
}

}  // namespace vorn::kit
