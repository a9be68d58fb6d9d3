// SHA-256, for the page's own policy: a browser runs the scripts whose hashes stand there, and no
// others.
#ifndef VORN_KIT_PAGE_SHA256_H_
#define VORN_KIT_PAGE_SHA256_H_

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace vorn::kit {

/// FIPS 180-4.
[[nodiscard]] std::array<uint8_t, 32> Sha256(std::string_view bytes);

/// RFC 4648, with its padding.
[[nodiscard]] std::string Base64(std::string_view bytes);

/// "sha256-…" as a Content-Security-Policy names a script or style.
[[nodiscard]] std::string PolicyHash(std::string_view bytes);

}  // namespace vorn::kit

#endif  // VORN_KIT_PAGE_SHA256_H_
