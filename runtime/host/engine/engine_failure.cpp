// Reading the library's texts, of version 1.x:
//
//     std::bad_alloc
//     Exception during initialization: std::bad_alloc
//     Non-zero status code returned while running Add node. Name:'a' Status Message: std::bad_alloc
//     ... Status Message: /src/bfc_arena.cc:358 void* ...(...) Failed to allocate memory for
//         requested buffer of size 4096
//
// The first three are those of an exception that the library did not throw itself; the last one is
// that of its own arena, which serves models without a limit. A node that has nodes in it gives
// their whole text as its reason.
#include "host/engine/engine_failure.h"

namespace vorn::host {
namespace {

/// `text` from behind the last such words; all of it without them.
std::string_view Behind(std::string_view text, std::string_view words) {
  const size_t at = text.rfind(words);
  return at == std::string_view::npos ? text : text.substr(at + words.size());
}

/// Without the white space behind it.
std::string_view Trimmed(std::string_view text) {
  return text.substr(0, text.find_last_not_of(" \n\r\t") + 1);
}

bool IsNumber(std::string_view text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

/// "<folder>/bfc_arena.cc:<line> <function> Failed ... of size <bytes>".
bool IsOfArena(std::string_view reason) {
  const std::string_view place = reason.substr(0, reason.find(' '));
  const std::string_view words = "Failed to allocate memory for requested buffer of size ";
  return place.find("bfc_arena.cc:") != std::string_view::npos &&
         reason.find(words) != std::string_view::npos && IsNumber(Behind(reason, words));
}

}  // namespace

bool IsOutOfMemory(OrtErrorCode code, std::string_view text) {
  const std::string_view reason = Trimmed(Behind(text, " Status Message: "));
  switch (code) {
    case ORT_RUNTIME_EXCEPTION:
      return reason == "std::bad_alloc" ||
             reason == "Exception during initialization: std::bad_alloc";
    case ORT_FAIL:
    case ORT_EP_FAIL:
      return IsOfArena(reason);
    default:
      return false;
  }
}

}  // namespace vorn::host
