#include "kit/picture/decode.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>
#include <zlib.h>

#include <bitset>
#include <sstream>

#include "kit/common/fault.h"
#include "picture/reference.h"
#include "support/files.h"

namespace vorn::kit {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

std::string FileNamed(const std::string& name) {
  return support::ReadFile(std::string(VORN_PICTURES "/files/") + name);
}

// A line of decoded.txt.
struct Reference {
  std::string name;
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t channels = 0;
  std::string type;
  int orientation = 0;
  std::string hash;
};

std::vector<Reference> References() {
  std::vector<Reference> references;
  for (const std::string& line :
       support::SplitLines(support::ReadFile(VORN_PICTURES "/decoded.txt"))) {
    std::istringstream words(line);
    Reference reference;
    words >> reference.name >> reference.width >> reference.height >> reference.channels >>
        reference.type >> reference.orientation >> reference.hash;
    references.push_back(reference);
  }
  return references;
}

TEST(DecodePicture, GivesWhatPillowGives) {
  size_t files = 0;
  for (const Reference& reference : References()) {
    SCOPED_TRACE(reference.name);
    const DecodedPicture decoded = DecodePicture(reference.name, FileNamed(reference.name));
    EXPECT_EQ(decoded.orientation, reference.orientation);
    Picture picture = ApplyOrientation(decoded.picture, decoded.orientation);
    if (reference.type == "uint8") picture = UpperBytes(std::move(picture));
    EXPECT_EQ(picture.width, reference.width);
    EXPECT_EQ(picture.height, reference.height);
    EXPECT_EQ(picture.channels, reference.channels);
    EXPECT_EQ(NameOf(picture.type), reference.type);
    EXPECT_EQ(HashOf(picture.pixels), reference.hash);
    ++files;
  }
  EXPECT_GE(files, 99U);
}

std::string TextOf(const PixelBytes& bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

TEST(DecodePicture, ShowsAllPixelsInOrder) {
  for (const Reference& reference : References()) {
    std::string shown;
    const DecodedPicture decoded = DecodePicture(reference.name, FileNamed(reference.name), {},
                                                 [&](std::string_view pixels) { shown += pixels; });
    EXPECT_EQ(shown, TextOf(decoded.picture.pixels)) << reference.name;
  }
}

// A grey JPEG with the simplest codes that there are. Of a block of 8 x 8, "00" leaves the grey of
// the one before, "01" and four bits change it by 8 to 15; "0" ends it.
std::string SimpleJpeg(uint32_t width, uint32_t height) {
  const auto byte = [](uint32_t value) { return static_cast<char>(value); };
  const auto word = [&](uint32_t value) { return std::string{byte(value >> 8), byte(value)}; };
  const std::string oneCode = std::string(1, '\1') + std::string(15, '\0') + std::string(1, '\0');
  const std::string twoCodes =
      std::string("\0\2", 2) + std::string(14, '\0') + std::string("\0\4", 2);
  std::string bytes = "\xff\xd8\xff\xdb" + word(67) + '\0' + std::string(64, '\10');
  bytes +=
      "\xff\xc0" + word(11) + '\10' + word(height) + word(width) + std::string("\1\1\x11\0", 4);
  bytes += "\xff\xc4" + word(3 + 18) + '\0' + twoCodes;
  bytes += "\xff\xc4" + word(3 + 17) + '\x10' + oneCode;
  bytes += "\xff\xda" + word(8) + std::string("\1\1\0\0\x3f\0", 6);
  std::string bits;
  int grey = 0;
  uint32_t state = 1;
  for (uint32_t block = 0; block < (width + 7) / 8 * ((height + 7) / 8); ++block) {
    state = state * 1664525U + 1013904223U;
    const bool isUp = grey <= 0;
    const uint32_t change = 8 + (state >> 29);
    bits += state >> 28 & 1 ? "00" : "01" + std::bitset<4>(isUp ? change : 15 - change).to_string();
    if ((state >> 28 & 1) == 0) grey += isUp ? static_cast<int>(change) : -static_cast<int>(change);
    bits += '0';
  }
  bits.resize((bits.size() + 7) / 8 * 8, '1');
  for (size_t i = 0; i < bits.size(); i += 8) {
    bytes += byte(static_cast<uint32_t>(std::bitset<8>(bits, i, 8).to_ulong()));
    if (bytes.back() == '\xff') bytes += '\0';
  }
  return bytes + "\xff\xd9";
}

TEST(DecodePicture, ShowsALargePictureInPieces) {
  std::string shown;
  size_t pieces = 0;
  const DecodedPicture decoded =
      DecodePicture("large.jpg", SimpleJpeg(1001, 403), {}, [&](std::string_view pixels) {
        shown += pixels;
        ++pieces;
      });
  EXPECT_EQ(decoded.picture.Description(), "1001x403, 1 channel of uint8");
  EXPECT_GT(pieces, 2U);
  EXPECT_EQ(shown, TextOf(decoded.picture.pixels));
  EXPECT_EQ(shown.find_first_not_of(shown.front()) < 100, true) << "it is of one grey";
}

// Takes rows, or does not; and holds them to what its head said.
class Rows final : public RowTaker {
 public:
  explicit Rows(bool isWilling) : isWilling_(isWilling) {}

  bool Begin(const PictureHead& head) override {
    heads.push_back(head);
    return isWilling_;
  }
  void Take(const std::byte* rows, uint32_t count) override {
    const size_t bytes = size_t{count} * heads.front().width * heads.front().channels;
    pixels.insert(pixels.end(), rows, rows + bytes);
    largest = std::max(largest, bytes);
  }

  std::vector<PictureHead> heads;
  PixelBytes pixels;
  size_t largest = 0;

 private:
  bool isWilling_;
};

TEST(DecodePicture, GivesTheRowsOfAJpegToWhoeverTakesThem) {
  size_t taken = 0;
  for (const Reference& reference : References()) {
    SCOPED_TRACE(reference.name);
    const std::string bytes = FileNamed(reference.name);
    const DecodedPicture whole = DecodePicture(reference.name, bytes);
    Rows rows(true);
    std::string shown;
    const DecodedPicture decoded = DecodePicture(
        reference.name, bytes, {}, [&](std::string_view pixels) { shown += pixels; }, &rows);
    EXPECT_EQ(decoded.orientation, whole.orientation);
    EXPECT_EQ(decoded.remarks, whole.remarks);
    EXPECT_EQ(shown, std::string(reinterpret_cast<const char*>(whole.picture.pixels.data()),
                                 whole.picture.pixels.size()));
    EXPECT_EQ(decoded.isTaken, !rows.heads.empty());
    if (!decoded.isTaken) {
      EXPECT_EQ(decoded.picture.pixels, whole.picture.pixels);
      continue;
    }
    ++taken;
    EXPECT_EQ(decoded.format, "JPEG");
    const PictureHead& head = rows.heads.front();
    EXPECT_EQ(head.width, whole.picture.width);
    EXPECT_EQ(head.height, whole.picture.height);
    EXPECT_EQ(head.channels, whole.picture.channels);
    EXPECT_EQ(head.type, whole.picture.type);
    EXPECT_EQ(head.orientation, whole.orientation);
    EXPECT_EQ(rows.pixels, whole.picture.pixels);
    EXPECT_TRUE(decoded.picture.pixels.empty());
    // Who does not want them has the picture.
    Rows unwilling(false);
    const DecodedPicture kept = DecodePicture(reference.name, bytes, {}, nullptr, &unwilling);
    EXPECT_FALSE(kept.isTaken);
    EXPECT_EQ(unwilling.heads.size(), 1U);
    EXPECT_TRUE(unwilling.pixels.empty());
    EXPECT_EQ(kept.picture.pixels, whole.picture.pixels);
  }
  EXPECT_GT(taken, 3U);
}

TEST(DecodePicture, HoldsOnlyAPartOfALargeJpegWhoseRowsAreTaken) {
  const std::string bytes = SimpleJpeg(1001, 403);
  Rows rows(true);
  const DecodedPicture decoded = DecodePicture("large.jpg", bytes, {}, nullptr, &rows);
  EXPECT_TRUE(decoded.isTaken);
  EXPECT_EQ(rows.pixels, DecodePicture("large.jpg", bytes).picture.pixels);
  EXPECT_LT(rows.largest, rows.pixels.size() / 2);
}

TEST(DecodePicture, RefusesATruncatedJpegWhoseRowsAreTaken) {
  const std::string bytes = SimpleJpeg(1001, 403);
  Rows rows(true);
  EXPECT_THROW((void)DecodePicture("x", std::string_view(bytes).substr(0, bytes.size() / 2), {},
                                   nullptr, &rows),
               Fault);
  EXPECT_EQ(rows.heads.size(), 1U);
  EXPECT_FALSE(rows.pixels.empty());
}

TEST(DecodePicture, KeepsSixteenBitsOfAColour) {
  for (const char* name : {"rgb16.png", "rgba16i.png", "greyalpha16.png", "rgb16.tif"}) {
    const DecodedPicture decoded = DecodePicture(name, FileNamed(name));
    EXPECT_EQ(decoded.picture.type, PixelType::kUint16) << name;
    EXPECT_THAT(decoded.remarks,
                ElementsAre("it has 16 bits a colour, of which Pillow keeps the upper 8"));
  }
}

TEST(DecodePicture, NamesFormatAndDecoder) {
  const std::vector<std::pair<std::string, std::string>> kinds = {
      {"rgb420.jpg", "JPEG libjpeg-turbo "},
      {"rgb8.png", "PNG libpng 1."},
      {"lossy.webp", "WebP libwebp 1."},
      {"rgb.tif", "TIFF libtiff 4."},
      {"rgb.ppm", "PNM vorn"},
      {"rgb.bmp", "BMP vorn"}};
  for (const auto& [name, words] : kinds) {
    const DecodedPicture decoded = DecodePicture("x", FileNamed(name));
    EXPECT_THAT(decoded.format + " " + decoded.decoder, StartsWith(words));
  }
}

TEST(DecodePicture, RemarksWhatIsLeftOut) {
  const auto remarksOf = [](const char* name) {
    return DecodePicture(name, FileNamed(name)).remarks;
  };
  EXPECT_THAT(remarksOf("rgb420.jpg"), IsEmpty());
  EXPECT_THAT(remarksOf("profile.jpg"),
              ElementsAre("its colour profile is not applied: the values are as they are stored"));
  EXPECT_THAT(remarksOf("animated.webp"),
              ElementsAre("it is an animation; its first picture is taken"));
  EXPECT_THAT(remarksOf("cmyk.jpg"),
              ElementsAre("its ink (CMYK) is turned into RGB by the plain formula"));
  EXPECT_THAT(remarksOf("two.tif"), ElementsAre("it has several pictures; the first one is taken"));
  EXPECT_THAT(remarksOf("five.tif"),
              ElementsAre("its further samples, which are no colours, are left out"));
  EXPECT_THAT(remarksOf("white16.tif"),
              ElementsAre("its white is 0, and left so, as Pillow leaves it"));
}

// Status and line of the refusal.
std::string RefusalOf(std::string_view bytes, const DecodeLimits& limits = {}) {
  try {
    (void)DecodePicture("a\nb.jpg", bytes, limits);
  } catch (const Fault& fault) {
    return std::to_string(static_cast<int>(fault.Status())) + " " + fault.what();
  }
  return "not refused";
}

TEST(DecodePicture, RefusesWhatIsNoPicture) {
  EXPECT_EQ(RefusalOf(""), "3 the picture 'a\\x0Ab.jpg' is empty");
  EXPECT_EQ(RefusalOf("GIF89a..."),
            "3 the picture 'a\\x0Ab.jpg' is a GIF; JPEG, PNG, WebP, TIFF, PNM and BMP are read");
  EXPECT_THAT(RefusalOf("hello, world"), HasSubstr("it begins with 'hello, w';"));
  EXPECT_THAT(RefusalOf("\x93NUMPY\1\0"), HasSubstr("is an array (.npy)"));
  EXPECT_THAT(RefusalOf("BM is how this text begins"), HasSubstr("of no kind that is known"));
}

// Whatever is missing: a line, or what the whole file gives where the rest was not needed. Never
// half a picture, and nothing on standard error. Of a text the last number can be cut unseen.
TEST(DecodePicture, RefusesWhatIsTruncated) {
  testing::internal::CaptureStderr();
  for (const Reference& reference : References()) {
    if (reference.name.starts_with("plain.")) continue;
    const std::string whole = FileNamed(reference.name);
    const DecodedPicture decoded = DecodePicture(reference.name, whole);
    size_t refused = 0;
    for (size_t length = 0; length < whole.size(); length += length < 40 ? 1 : 13) {
      try {
        const DecodedPicture cut = DecodePicture("cut", whole.substr(0, length));
        EXPECT_EQ(cut.picture.pixels, decoded.picture.pixels) << reference.name << " at " << length;
      } catch (const Fault& fault) {
        ++refused;
        EXPECT_THAT(fault.what(),
                    AllOf(StartsWith("the picture 'cut' "), testing::Not(HasSubstr("\n"))));
      }
    }
    EXPECT_GT(refused, 2U) << reference.name;
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

// No prediction of what comes out: a picture or a line, and nothing on standard error. The
// sanitizers see the rest.
TEST(DecodePicture, SurvivesWhatIsSpoilt) {
  testing::internal::CaptureStderr();
  uint32_t state = 1;
  const auto below = [&](size_t count) {
    state = state * 1664525U + 1013904223U;
    return (state >> 8) % count;
  };
  size_t refused = 0;
  DecodeLimits limits;
  limits.mostPixels = 1 << 20;
  for (const Reference& reference : References()) {
    const std::string whole = FileNamed(reference.name);
    for (int round = 0; round < 40; ++round) {
      std::string spoilt = whole;
      for (size_t i = 0; i <= below(4); ++i) {
        spoilt[below(spoilt.size())] = static_cast<char>(below(256));
      }
      try {
        const DecodedPicture decoded = DecodePicture("spoilt", spoilt, limits);
        EXPECT_EQ(decoded.picture.pixels.size(),
                  decoded.picture.RowBytes() * decoded.picture.height);
      } catch (const Fault&) {
        ++refused;
      }
    }
  }
  EXPECT_GT(refused, 500U);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(DecodePicture, RefusesLimitsBeforeItAllocates) {
  DecodeLimits limits;
  limits.mostPixels = 23 * 17;
  for (const Reference& reference : References()) {
    const std::string bytes = FileNamed(reference.name);
    EXPECT_NO_THROW((void)DecodePicture("x", bytes, limits)) << reference.name;
  }
  limits.mostPixels = 23 * 17 - 1;
  EXPECT_EQ(RefusalOf(FileNamed("grey.jpg"), limits),
            "7 the picture 'a\\x0Ab.jpg' is 23x17 pixels, more than the limit of 390 pixels");
  limits = {};
  limits.mostBytes = 23 * 17 * 3 - 1;
  for (const char* name :
       {"rgb444.jpg", "rgb8.png", "lossy.webp", "rgb.tif", "rgb.ppm", "rgb.bmp"}) {
    EXPECT_THAT(RefusalOf(FileNamed(name), limits),
                StartsWith("7 the picture 'a\\x0Ab.jpg' is 23x17 pixels, more than the limit of"))
        << name;
  }
  limits = {};
  limits.mostFileBytes = 100;
  EXPECT_THAT(RefusalOf(FileNamed("rgb.bmp"), limits),
              HasSubstr("is a file of 1.2 KiB, more than the limit of 100 bytes"));
}

// Heads that promise more than anybody has.
TEST(DecodePicture, RefusesAbsurdSizes) {
  std::string png = FileNamed("rgb8.png");
  png.replace(16, 8, std::string("\x7f\xff\xff\xff\x7f\xff\xff\xff", 8));
  EXPECT_THAT(RefusalOf(png), StartsWith("3 "));  // its checksum is wrong by now
  std::string bmp = FileNamed("rgb.bmp");
  bmp.replace(18, 8, std::string("\xff\xff\xff\x7f\xff\xff\xff\x7f", 8));
  EXPECT_THAT(RefusalOf(bmp), HasSubstr("is 2147483647x2147483647 pixels, more than the limit"));
  bmp.replace(22, 4, std::string("\0\0\0\x80", 4));
  EXPECT_THAT(RefusalOf(bmp), HasSubstr("is 2147483647x2147483648 pixels"));
  std::string jpeg = FileNamed("grey.jpg");
  const size_t frame = jpeg.find("\xff\xc0");
  ASSERT_NE(frame, std::string::npos);
  jpeg.replace(frame + 5, 4, "\xff\xdc\xff\xdc");
  EXPECT_THAT(RefusalOf(jpeg), HasSubstr("is 65500x65500 pixels, more than the limit"));
  jpeg.replace(frame + 5, 4, std::string("\0\0\0\0", 4));
  EXPECT_THAT(RefusalOf(jpeg), StartsWith("3 "));
  EXPECT_THAT(RefusalOf("P5 99999999999999999999 99999999999999999999 255 "),
              HasSubstr("is 4294967296x4294967296 pixels"));
  EXPECT_THAT(RefusalOf("P5 0 7 255 "), HasSubstr("has no pixels: it is 0x7"));
  std::string tiff = FileNamed("big.tif");
  const size_t width = tiff.find(std::string("\x01\x00\x00\x04\x00\x00\x00\x01", 8)) + 8;
  tiff.replace(width, 4, "\xff\xff\xff\xff");
  EXPECT_THAT(RefusalOf(tiff), HasSubstr("is 4294967295x17 pixels, more than the limit"));
}

// What a chunk of a PNG is in the file.
std::string ChunkOf(const std::string& type, const std::string& data) {
  const auto number = [](uint64_t value) {
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(value >> shift);
    return bytes;
  };
  const std::string body = type + data;
  return number(data.size()) + body +
         number(
             crc32(0, reinterpret_cast<const Bytef*>(body.data()), static_cast<uInt>(body.size())));
}

// 60 KB of a text that is 60 MB. In a process of its own, whose most memory is its own.
TEST(DecodePicture, UnpacksNoTextsOfAPng) {
  const std::string text(60 << 20, 'x');
  uLongf packedBytes = compressBound(text.size());
  std::string packed(packedBytes, '\0');
  ASSERT_EQ(compress(reinterpret_cast<Bytef*>(packed.data()), &packedBytes,
                     reinterpret_cast<const Bytef*>(text.data()), text.size()),
            Z_OK);
  packed.resize(packedBytes);
  std::string png = FileNamed("rgb8.png");
  constexpr size_t kHeadEnd = 33;
  png.insert(kHeadEnd, ChunkOf("zTXt", std::string("key\0\0", 5) + packed));
  EXPECT_EXIT(
      {
        const auto most = [] {
          rusage usage{};
          getrusage(RUSAGE_SELF, &usage);
          return usage.ru_maxrss;
        };
        const long before = most();
        const bool isWhole = DecodePicture("x", png).picture.width == 23;
        _exit(isWhole && most() - before < 30 << 10 ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

TEST(DecodePicture, KnowsAnAnimatedPngByWhatStandsBeforeItsPixels) {
  constexpr size_t kHeadEnd = 33;
  constexpr size_t kEndBytes = 12;
  const std::string still = FileNamed("rgb8.png");
  const std::string animation = ChunkOf("acTL", std::string("\0\0\0\2\0\0\0\0", 8));
  std::string png = still;
  png.insert(kHeadEnd, ChunkOf("tIME", std::string("\x07\xea\x01\x02\x03\x04\x05", 7)) + animation);
  const DecodedPicture decoded = DecodePicture("x", png);
  EXPECT_THAT(decoded.remarks, ElementsAre("it is an animation; its first picture is taken"));
  EXPECT_EQ(decoded.picture.pixels, DecodePicture("x", still).picture.pixels);
  // Behind the pixels it says nothing.
  png = still;
  png.insert(png.size() - kEndBytes, animation);
  EXPECT_THAT(DecodePicture("x", png).remarks, IsEmpty());
}

TEST(DecodePicture, SaysWhatIsWrongWithAWebp) {
  const std::string front = "3 the picture 'a\\x0Ab.jpg' cannot be decoded as WebP: ";
  for (const char* name : {"lossy.webp", "lossless.webp"}) {
    const std::string whole = FileNamed(name);
    EXPECT_EQ(RefusalOf(whole.substr(0, 20)), front + "the file ends too early") << name;
    EXPECT_EQ(RefusalOf(whole.substr(0, whole.size() / 2)), front + "the file ends too early")
        << name;
    std::string corrupt = whole;
    corrupt.replace(20, 10, std::string(10, '\xff'));
    EXPECT_EQ(RefusalOf(corrupt), front + "its data are corrupt") << name;
  }
}

TEST(DecodePicture, RefusesUnknownKindsByTheirNumbers) {
  std::string bmp = FileNamed("rgb.bmp");
  bmp[30] = 1;
  EXPECT_THAT(RefusalOf(bmp), HasSubstr("is a BMP of 24 bits and compression 1;"));
  EXPECT_THAT(RefusalOf("P5 2 2 70000 "), HasSubstr("has values up to 70000; 1 to 65535 are read"));
  EXPECT_THAT(RefusalOf("P2 1 1 7 8 "), HasSubstr("has the value 8, above the 7"));
}

TEST(DecodePictureFile, ReadsFilesAndNamesThoseItCannotRead) {
  const std::string path = VORN_PICTURES "/files/grey.jpg";
  EXPECT_EQ(DecodePictureFile(path).picture.pixels,
            DecodePicture("x", FileNamed("grey.jpg")).picture.pixels);
  const auto refusalOf = [](const std::string& name) -> std::string {
    try {
      (void)DecodePictureFile(name);
    } catch (const Fault& fault) {
      return fault.what();
    }
    return "not refused";
  };
  EXPECT_EQ(refusalOf("/nowhere/x.jpg"),
            "the picture '/nowhere/x.jpg' cannot be read: No such file or directory");
  EXPECT_EQ(refusalOf("/dev/zero"), "the picture '/dev/zero' is not a file");
  EXPECT_EQ(refusalOf("/tmp"), "the picture '/tmp' is not a file");
}

}  // namespace
}  // namespace vorn::kit
