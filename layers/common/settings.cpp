#include "layers/common/settings.h"

#include <fcntl.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "layers/common/say.h"

extern char** environ;

namespace vorn::layers {
namespace {

constexpr const char* kPrefix = "VORN_";

char g_file[65536];  // values of a file lie in here

char Capital(char letter) {
  return static_cast<char>(std::toupper(static_cast<unsigned char>(letter)));
}

// Where a variable's name goes on behind VORN_LAYER_; null where it is of another layer.
const char* BehindLayer(const char* variable, const char* layer) {
  if (std::strncmp(variable, kPrefix, std::strlen(kPrefix)) != 0) return nullptr;
  variable += std::strlen(kPrefix);
  for (; *layer != '\0'; ++layer, ++variable) {
    if (*variable != Capital(*layer)) return nullptr;
  }
  return *variable == '_' ? variable + 1 : nullptr;
}

// Which setting a name means, in capitals or not. The count if none.
size_t FindSetting(const SettingsTable& table, const char* name, size_t length, bool isCapital) {
  size_t i = 0;
  for (; i < table.count; ++i) {
    const char* known = table.settings[i].name;
    if (std::strlen(known) != length) continue;
    size_t same = 0;
    while (same < length && name[same] == (isCapital ? Capital(known[same]) : known[same])) ++same;
    if (same == length) break;
  }
  return i;
}

void ListSettings(const SettingsTable& table, char* text, size_t size) {
  text[0] = '\0';
  for (size_t i = 0; i < table.count; ++i) {
    const size_t length = std::strlen(text);
    std::snprintf(text + length, size - length, "%s%s", i == 0 ? "" : ", ", table.settings[i].name);
  }
}

bool RefuseName(const SettingsTable& table, const char* where, const char* name, size_t length) {
  char known[200];
  ListSettings(table, known, sizeof(known));
  Say("%s: there is no setting '%.*s' of the layer %s, which has %s; it does nothing", where,
      static_cast<int>(length), name, table.layer, known);
  return false;
}

char* WithoutBlanks(char* text) {
  text += std::strspn(text, " \t\r");
  size_t length = std::strlen(text);
  while (length > 0 && std::strchr(" \t\r", text[length - 1]) != nullptr) text[--length] = '\0';
  return text;
}

bool TakeLine(const SettingsTable& table, const char* path, size_t number, char* line,
              const char** values) {
  char* equals = std::strchr(line, '=');
  char where[300];
  std::snprintf(where, sizeof(where), "%.200s, line %zu", path, number);
  if (equals == nullptr) {
    Say("%s: a setting is 'layer.name = value'; the layer %s does nothing", where, table.layer);
    return false;
  }
  *equals = '\0';
  char* key = WithoutBlanks(line);
  const size_t length = std::strlen(table.layer);
  if (std::strncmp(key, table.layer, length) != 0 || key[length] != '.') {
    if (std::strchr(key, '.') != nullptr) return true;  // another layer's
    return RefuseName(table, where, key, std::strlen(key));
  }
  const char* name = key + length + 1;
  const size_t which = FindSetting(table, name, std::strlen(name), false);
  if (which == table.count) return RefuseName(table, where, name, std::strlen(name));
  values[which] = WithoutBlanks(equals + 1);
  return true;
}

bool TakeFile(const SettingsTable& table, const char* path, const char** values) {
  if (!ReadTextFile(path, g_file, sizeof(g_file))) {
    Say("%s names '%s', which cannot be read, or is longer than 65535 bytes; the layer %s does "
        "nothing",
        kSettingsVariable, path, table.layer);
    return false;
  }
  size_t number = 0;
  for (char* at = g_file; at != nullptr;) {
    char* line = at;
    at = std::strchr(at, '\n');
    if (at != nullptr) *at++ = '\0';
    ++number;
    line = WithoutBlanks(line);
    if (*line == '\0' || *line == '#') continue;
    if (!TakeLine(table, path, number, line, values)) return false;
  }
  return true;
}

bool TakeEnvironment(const SettingsTable& table, const char** values) {
  for (char** variable = environ; variable != nullptr && *variable != nullptr; ++variable) {
    const char* name = BehindLayer(*variable, table.layer);
    const char* equals = name == nullptr ? nullptr : std::strchr(name, '=');
    if (equals == nullptr || equals[1] == '\0') continue;
    const auto length = static_cast<size_t>(equals - name);
    const size_t which = FindSetting(table, name, length, true);
    if (which == table.count) return RefuseName(table, "environment", name, length);
    values[which] = equals + 1;
  }
  return true;
}

}  // namespace

bool ReadSettings(const SettingsTable& table, const char** values) {
  for (size_t i = 0; i < table.count; ++i) values[i] = table.settings[i].otherwise;
  const char* path = std::getenv(kSettingsVariable);
  if (path != nullptr && *path != '\0' && !TakeFile(table, path, values)) return false;
  return TakeEnvironment(table, values);
}

void DescribeSettings(const SettingsTable& table, const char* const* values, char* text,
                      size_t size) {
  text[0] = '\0';
  for (size_t i = 0; i < table.count; ++i) {
    const size_t length = std::strlen(text);
    std::snprintf(text + length, size - length, "%s=%s\n", table.settings[i].name, values[i]);
  }
}

bool ReadTextFile(const char* path, char* text, size_t size) {
  // A pipe without a writer would be waited for, in somebody else's program.
  const int fd = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) return false;
  // A pipe has no place to go to. Asking what kind of file it is takes a newer C library.
  if (lseek(fd, 0, SEEK_CUR) < 0) {
    close(fd);
    return false;
  }
  size_t length = 0;
  ssize_t got = 1;
  while (length < size && got != 0) {
    got = read(fd, text + length, size - length);
    if (got < 0 && errno != EINTR) break;
    length += got > 0 ? static_cast<size_t>(got) : 0;
  }
  close(fd);
  if (got != 0 || length == size) return false;
  text[length] = '\0';
  return std::strlen(text) == length;
}

}  // namespace vorn::layers
