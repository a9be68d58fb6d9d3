// WebP, by libwebp and, for animations, libwebpdemux.
#include <webp/decode.h>
#include <webp/demux.h>

#include <cstring>
#include <memory>
#include <string>

#include "kit/picture/decoders.h"

namespace vorn::kit {
namespace {

std::string VersionText(int version) {
  return std::to_string(version >> 16) + "." + std::to_string(version >> 8 & 0xff) + "." +
         std::to_string(version & 0xff);
}

const char* WordsOf(VP8StatusCode status) {
  switch (status) {
    case VP8_STATUS_OUT_OF_MEMORY:
      return "there is not enough memory";
    case VP8_STATUS_BITSTREAM_ERROR:
      return "its data are corrupt";
    case VP8_STATUS_UNSUPPORTED_FEATURE:
      return "it has a feature that the library does not know";
    case VP8_STATUS_NOT_ENOUGH_DATA:
      return "the file ends too early";
    default:
      return "the library refuses it";
  }
}

WebPData DataOf(std::string_view bytes) {
  return {reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()};
}

void DecodeStill(const PictureFile& file, bool hasAlpha, Picture& picture) {
  WebPDecoderConfig config;
  if (WebPInitDecoderConfig(&config) == 0) {
    RefuseAsSaid(file, PictureFormat::kWebp, "the library is of another version");
  }
  config.output.colorspace = hasAlpha ? MODE_RGBA : MODE_RGB;
  config.output.is_external_memory = 1;
  config.output.u.RGBA.rgba = picture.Row<uint8_t>(0);
  config.output.u.RGBA.stride = static_cast<int>(picture.RowBytes());
  config.output.u.RGBA.size = picture.pixels.size();
  const WebPData data = DataOf(file.bytes);
  const VP8StatusCode status = WebPDecode(data.bytes, data.size, &config);
  WebPFreeDecBuffer(&config.output);
  if (status != VP8_STATUS_OK) RefuseAsSaid(file, PictureFormat::kWebp, WordsOf(status));
}

// The first frame on the canvas of all; the library has that as RGBA only.
void DecodeAnimation(const PictureFile& file, Picture& picture) {
  WebPAnimDecoderOptions options;
  if (WebPAnimDecoderOptionsInit(&options) == 0) {
    RefuseAsSaid(file, PictureFormat::kWebp, "the library is of another version");
  }
  options.color_mode = MODE_RGBA;
  const WebPData data = DataOf(file.bytes);
  const std::unique_ptr<WebPAnimDecoder, decltype(&WebPAnimDecoderDelete)> decoder(
      WebPAnimDecoderNew(&data, &options), WebPAnimDecoderDelete);
  uint8_t* frame = nullptr;
  int time = 0;
  if (!decoder || WebPAnimDecoderGetNext(decoder.get(), &frame, &time) == 0) {
    RefuseAsSaid(file, PictureFormat::kWebp, "its first frame is corrupt");
  }
  std::memcpy(picture.pixels.data(), frame, picture.pixels.size());
}

}  // namespace

std::string WebpDecoder() { return "libwebp " + VersionText(WebPGetDecoderVersion()); }

void DecodeWebp(const PictureFile& file, DecodedPicture& decoded) {
  const WebPData data = DataOf(file.bytes);
  WebPBitstreamFeatures features;
  const VP8StatusCode status = WebPGetFeatures(data.bytes, data.size, &features);
  if (status != VP8_STATUS_OK) RefuseAsSaid(file, PictureFormat::kWebp, WordsOf(status));
  const bool isAnimation = features.has_animation != 0;
  const bool hasAlpha = features.has_alpha != 0;
  Picture picture = MakeWithinLimits(file, features.width, features.height,
                                     isAnimation || hasAlpha ? 4 : 3, PixelType::kUint8);
  if (isAnimation) {
    DecodeAnimation(file, picture);
    decoded.remarks.emplace_back(kAnimationRemark);
  } else {
    DecodeStill(file, hasAlpha, picture);
  }
  decoded.picture = hasAlpha ? std::move(picture) : WithoutAlpha(std::move(picture));

  const std::unique_ptr<WebPDemuxer, decltype(&WebPDemuxDelete)> parts(WebPDemux(&data),
                                                                       WebPDemuxDelete);
  if (!parts) return;  // a plain file without parts
  WebPChunkIterator chunk;
  if (WebPDemuxGetChunk(parts.get(), "EXIF", 1, &chunk) != 0) {
    std::string_view exif(reinterpret_cast<const char*>(chunk.chunk.bytes), chunk.chunk.size);
    constexpr std::string_view kMark{"Exif\0\0", 6};
    if (exif.starts_with(kMark)) exif.remove_prefix(kMark.size());
    decoded.orientation = OrientationOf(exif);
    WebPDemuxReleaseChunkIterator(&chunk);
  }
  if (WebPDemuxGetChunk(parts.get(), "ICCP", 1, &chunk) != 0) {
    decoded.remarks.emplace_back(kProfileRemark);
    WebPDemuxReleaseChunkIterator(&chunk);
  }
}

}  // namespace vorn::kit
