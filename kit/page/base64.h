// Bytes as text that a page can hold.
#ifndef VORN_KIT_PAGE_BASE64_H_
#define VORN_KIT_PAGE_BASE64_H_

#include <string>
#include <string_view>

namespace vorn::kit {

/// RFC 4648, with its padding.
[[nodiscard]] std::string Base64(std::string_view bytes);

}  // namespace vorn::kit

#endif  // VORN_KIT_PAGE_BASE64_H_
