#include "layers/common/call_set.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "shared/text/glob.h"

namespace vorn::layers {
namespace {

constexpr const char* kBetween = ", \t\r\n";
constexpr size_t kLongestItem = 1024;

// A text read from a file. Not on the stack of somebody else's thread.
char g_text[kMostCallText];

// A whole number from 1 on at the front of a text, which then begins behind it. 0: there is none.
uint64_t TakeNumber(const char*& text) {
  uint64_t number = 0;
  while (*text >= '0' && *text <= '9') {
    const auto digit = static_cast<uint64_t>(*text - '0');
    if (number > (UINT64_MAX - digit) / 10) return 0;
    number = 10 * number + digit;
    ++text;
  }
  return number;
}

class Parser {
 public:
  Parser(const OperationNames& operations, ReadText read, CallSet& set, char* reason, size_t size)
      : operations_(operations), read_(read), set_(set), reason_(reason), reasonSize_(size) {}

  bool Parse(const char* text, bool mayRead) {
    while (true) {
      text += std::strspn(text, kBetween);
      if (*text == '\0') return true;
      if (*text == '#') {
        text += std::strcspn(text, "\n");
        continue;
      }
      const size_t length = std::strcspn(text, kBetween);
      char item[kLongestItem];
      if (length >= sizeof(item)) return Refuse("an item is longer than 1023 characters", "");
      std::memcpy(item, text, length);
      item[length] = '\0';
      text += length;
      if (!(item[0] == '@' ? ReadItems(item, mayRead) : AddItem(item))) return false;
    }
  }

 private:
  bool Refuse(const char* what, const char* item) {
    const char* between = *item == '\0' ? "" : ": ";
    std::snprintf(reason_, reasonSize_, "%s%s%s", what, between, item);
    return false;
  }

  bool ReadItems(const char* item, bool mayRead) {
    if (!mayRead) return Refuse("a file of calls names no further one", item);
    if (!read_(item + 1, g_text, sizeof(g_text))) {
      return Refuse("a file of calls cannot be read, or is longer than 16383 bytes", item);
    }
    return Parse(g_text, false);
  }

  bool AddItem(char* item) {
    if (set_.count == kMostCallItems) return Refuse("there are more than 64 items", "");
    CallItem& added = set_.items[set_.count];
    added = {.operations = UINT64_MAX, .every = 1, .from = 1, .to = UINT64_MAX};
    const bool isNumber = item[0] >= '0' && item[0] <= '9';
    if (!(isNumber ? TakeNumbers(item, added) : TakeOperations(item, added))) return false;
    ++set_.count;
    return true;
  }

  bool TakeNumbers(const char* item, CallItem& added) {
    const char* at = item;
    added.from = TakeNumber(at);
    added.to = added.from;
    if (*at == '-') {
      ++at;
      added.to = *at == '\0' ? UINT64_MAX : TakeNumber(at);
    }
    if (*at == '\0' && added.from >= 1 && added.from <= added.to) return true;
    return Refuse("calls are numbered from 1, as 7, 10-20 or 500-, and not", item);
  }

  bool TakeOperations(char* item, CallItem& added) {
    if (char* slash = std::strchr(item, '/')) {
      const char* at = slash + 1;
      added.every = TakeNumber(at);
      if (*at != '\0' || added.every == 0) {
        return Refuse("behind a slash stands a whole number from 1 on", item);
      }
      *slash = '\0';
    }
    added.operations = 0;
    for (size_t i = 0; i < operations_.count; ++i) {
      if (text::FitsGlob(operations_.names[i], item)) added.operations |= uint64_t{1} << i;
    }
    return added.operations != 0 || Refuse("there is no operation of this name", item);
  }

  OperationNames operations_;
  ReadText read_;
  CallSet& set_;
  char* reason_;
  size_t reasonSize_;
};

}  // namespace

bool CallSet::Holds(size_t operation, uint64_t number, uint64_t ownNumber) const {
  for (size_t i = 0; i < count; ++i) {
    const CallItem& item = items[i];
    if ((item.operations >> operation & 1) != 0 && number >= item.from && number <= item.to &&
        ownNumber % item.every == 0) {
      return true;
    }
  }
  return count == 0;
}

bool ParseCallSet(const char* text, const OperationNames& operations, ReadText read, CallSet& set,
                  char* reason, size_t reasonSize) {
  set.count = 0;
  return Parser(operations, read, set, reason, reasonSize).Parse(text, true);
}

}  // namespace vorn::layers
