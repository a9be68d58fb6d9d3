#include "scripted/script.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "scripted/operations.h"
#include "vorn/vorn.h"

namespace scripted {
namespace {

[[noreturn]] void Refuse(const std::string& what) { throw std::runtime_error(what); }

struct Word {
  std::string text;
  bool quoted = false;  // some part of it stood in quotes
};

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

/// The byte that two hexadecimal digits at `at` stand for.
char HexByte(const std::string& text, size_t at) {
  const int high = at < text.size() ? HexDigit(text[at]) : -1;
  const int low = at + 1 < text.size() ? HexDigit(text[at + 1]) : -1;
  if (high < 0 || low < 0) Refuse("two hexadecimal digits are wanted in '" + text + "'");
  return static_cast<char>(high * 16 + low);
}

/// Reads the escape whose letter stands at *at; leaves *at on its last character.
char Unescape(const std::string& line, size_t* at) {
  switch (*at < line.size() ? line[*at] : '\0') {
    case 'n':
      return '\n';
    case 't':
      return '\t';
    case '\\':
      return '\\';
    case '"':
      return '"';
    case 'x':
      *at += 2;
      return HexByte(line, *at - 1);
    default:
      Refuse("unknown escape");
  }
}

std::vector<Word> SplitWords(const std::string& line) {
  std::vector<Word> words;
  size_t at = 0;
  while (at < line.size()) {
    if (std::isspace(static_cast<unsigned char>(line[at]))) {
      ++at;
      continue;
    }
    if (line[at] == '#') break;
    Word word;
    bool inQuotes = false;
    for (; at < line.size(); ++at) {
      const char c = line[at];
      if (c == '"') {
        inQuotes = !inQuotes;
        word.quoted = true;
      } else if (inQuotes && c == '\\') {
        ++at;
        word.text += Unescape(line, &at);
      } else if (!inQuotes && std::isspace(static_cast<unsigned char>(c))) {
        break;
      } else {
        word.text += c;
      }
    }
    if (inQuotes) Refuse("a quote is left open");
    words.push_back(word);
  }
  return words;
}

uint64_t ReadNumber(const std::string& text) {
  if (text.empty()) Refuse("a number is missing");
  const bool negative = text[0] == '-';
  const std::string digits = text.substr(negative || text[0] == '+' ? 1 : 0);
  const int base = digits.compare(0, 2, "0x") == 0 ? 16 : 10;
  errno = 0;
  char* end = nullptr;
  const unsigned long long value = std::strtoull(digits.c_str(), &end, base);
  const bool startsWell = !digits.empty() && std::isdigit(static_cast<unsigned char>(digits[0]));
  if (!startsWell || *end != '\0' || errno != 0) Refuse("'" + text + "' is not a number");
  return negative ? uint64_t{0} - value : value;
}

Calls ReadCalls(const std::string& text) {
  if (text == "always") return {};
  const size_t dash = text.find('-');
  Calls calls;
  calls.first = ReadNumber(text.substr(0, dash));
  if (dash == std::string::npos) {
    calls.last = calls.first;
  } else if (dash + 1 < text.size()) {
    calls.last = ReadNumber(text.substr(dash + 1));
  }
  if (calls.first == 0 || calls.last < calls.first) Refuse("calls are counted from 1 upwards");
  return calls;
}

std::vector<int64_t> ReadDims(const std::string& text) {
  std::vector<int64_t> dims;
  for (size_t at = 0; at < text.size();) {
    const size_t comma = std::min(text.find(',', at), text.size());
    dims.push_back(static_cast<int64_t>(ReadNumber(text.substr(at, comma - at))));
    at = comma + 1;
  }
  if (dims.size() > VORN_MAX_DIMS) Refuse("there is room for 128 dimensions");
  return dims;
}

/// The words of one line, taken from the left.
class Line {
 public:
  explicit Line(std::vector<Word> words) : words_(std::move(words)) {}

  [[nodiscard]] bool AtEnd() const { return next_ == words_.size(); }

  Word Take() {
    if (AtEnd()) Refuse("a word is missing");
    return words_[next_++];
  }

  uint64_t TakeNumber() { return ReadNumber(Take().text); }

  /// Takes the next word if it is `key=...`; the value is what follows.
  std::optional<std::string> TakeOption(const std::string& key) {
    if (AtEnd() || words_[next_].text.compare(0, key.size() + 1, key + "=") != 0) return {};
    return Take().text.substr(key.size() + 1);
  }

  std::string TakeRest() {
    std::string rest;
    while (!AtEnd()) rest += (rest.empty() ? "" : " ") + Take().text;
    return rest;
  }

  void End() const {
    if (!AtEnd()) Refuse("'" + words_[next_].text + "' is one word too many");
  }

 private:
  std::vector<Word> words_;
  size_t next_ = 0;
};

Tensor ReadTensor(Line* line) {
  Tensor tensor;
  while (!line->AtEnd()) {
    const std::string word = line->Take().text;
    const size_t equals = word.find('=');
    if (equals == std::string::npos) Refuse("'" + word + "' is not of the form key=value");
    const std::string key = word.substr(0, equals);
    const std::string value = word.substr(equals + 1);
    if (key == "name") {
      tensor.name = value;
    } else if (key == "full-name") {
      tensor.fullName = value;
    } else if (key == "dims") {
      tensor.dims = ReadDims(value);
    } else if (key == "rank") {
      tensor.rank = ReadNumber(value);
    } else if (key == "type") {
      tensor.type = static_cast<uint32_t>(ReadNumber(value));
    } else if (key == "stride") {
      tensor.stride = ReadNumber(value);
    } else if (key == "size") {
      tensor.size = ReadNumber(value);
    } else if (key == "format") {
      tensor.format = static_cast<int32_t>(ReadNumber(value));
    } else {
      Refuse("'" + key + "' says nothing about a tensor");
    }
  }
  return tensor;
}

std::string ReadOperation(Line* line) {
  std::string name = line->Take().text;
  if (FindOperation(name) == nullptr) Refuse("there is no operation '" + name + "'");
  return name;
}

AnswerRule ReadAnswer(Line* line) {
  AnswerRule rule;
  rule.operation = ReadOperation(line);
  if (const auto index = line->TakeOption("index")) rule.index = ReadNumber(*index);
  rule.calls = ReadCalls(line->Take().text);
  const Word value = line->Take();
  if (value.quoted) {
    rule.kind = AnswerKind::kText;
    rule.text = value.text;
  } else if (value.text == "null") {
    rule.kind = AnswerKind::kNull;
  } else {
    rule.number = ReadNumber(value.text);
  }
  if (!line->AtEnd()) {
    if (line->Take().text != "effect") Refuse("only 'effect' can follow the answer");
    rule.effect = true;
  }
  return rule;
}

FailRule ReadFail(Line* line) {
  FailRule rule;
  rule.calls = ReadCalls(line->Take().text);
  if (!line->AtEnd()) rule.status = static_cast<int32_t>(line->TakeNumber());
  return rule;
}

std::string ReadHexBytes(Line* line) {
  std::string bytes;
  while (!line->AtEnd()) {
    const std::string digits = line->Take().text;
    for (size_t at = 0; at < digits.size(); at += 2) bytes += HexByte(digits, at);
  }
  return bytes;
}

std::string ReadFloats(Line* line) {
  std::string bytes;
  while (!line->AtEnd()) {
    const std::string text = line->Take().text;
    char pattern[4];
    if (text.compare(0, 2, "0x") == 0) {
      const auto bits = static_cast<uint32_t>(ReadNumber(text));
      std::memcpy(pattern, &bits, sizeof pattern);
    } else {
      char* end = nullptr;
      const float value = std::strtof(text.c_str(), &end);
      if (end == text.c_str() || *end != '\0') Refuse("'" + text + "' is not a float");
      std::memcpy(pattern, &value, sizeof pattern);
    }
    bytes.append(pattern, sizeof pattern);
  }
  return bytes;
}

void ReadPlace(Line* line, WriteRule* rule) {
  for (;;) {
    if (const auto calls = line->TakeOption("execute")) {
      rule->executions = ReadCalls(*calls);
    } else if (const auto offset = line->TakeOption("at")) {
      rule->offset = ReadNumber(*offset);
    } else if (const auto frame = line->TakeOption("frame")) {
      const size_t comma = frame->find(',');
      if (comma == std::string::npos) Refuse("a frame is the bytes of a row, a comma, a stride");
      rule->rowBytes = ReadNumber(frame->substr(0, comma));
      rule->strideBytes = ReadNumber(frame->substr(comma + 1));
    } else {
      return;
    }
  }
}

WriteRule ReadWrite(Line* line) {
  WriteRule rule;
  rule.output = line->TakeNumber();
  ReadPlace(line, &rule);
  const std::string source = line->Take().text;
  if (source == "bytes") {
    rule.bytes = ReadHexBytes(line);
  } else if (source == "floats") {
    rule.bytes = ReadFloats(line);
  } else if (source == "fill") {
    rule.source = WriteSource::kFill;
    rule.number = static_cast<unsigned char>(HexByte(line->Take().text, 0));
  } else if (source == "counter") {
    rule.source = WriteSource::kCounter;
    rule.number = line->TakeNumber();
  } else if (source == "file") {
    rule.source = WriteSource::kFile;
    rule.bytes = line->TakeRest();
  } else if (source == "copy") {
    rule.source = WriteSource::kCopy;
    rule.number = line->TakeNumber();
  } else {
    Refuse("'" + source + "' is nothing that can be written");
  }
  return rule;
}

void ReadSight(Line* line, Script* script) {
  const std::string whose = line->Take().text;
  const std::string how = line->Take().text;
  if (how != "hex" && how != "hash") Refuse("a block is seen as hex or as hash");
  const Sight sight = how == "hex" ? Sight::kHex : Sight::kHash;
  if (whose == "inputs") {
    script->inputSight = sight;
  } else if (whose == "outputs") {
    script->outputSight = sight;
  } else {
    Refuse("inputs or outputs can be seen");
  }
}

void ReadLine(Line* line, Script* script) {
  const std::string verb = line->Take().text;
  if (verb == "net") {
    script->netType = static_cast<int32_t>(line->TakeNumber());
  } else if (verb == "model-id") {
    script->firstModelId = static_cast<uint32_t>(line->TakeNumber());
  } else if (verb == "run-mode") {
    script->runMode = static_cast<int32_t>(line->TakeNumber());
  } else if (verb == "bits") {
    const auto code = static_cast<uint32_t>(line->TakeNumber());
    script->bits.emplace_back(code, line->TakeNumber());
  } else if (verb == "input") {
    script->inputs.push_back(ReadTensor(line));
  } else if (verb == "output") {
    script->outputs.push_back(ReadTensor(line));
  } else if (verb == "limit") {
    script->limitBytes = line->TakeNumber();
  } else if (verb == "fill") {
    script->fill = static_cast<unsigned char>(line->TakeNumber());
  } else if (verb == "answer") {
    script->answers.push_back(ReadAnswer(line));
  } else if (verb == "fail") {
    script->failures.push_back(ReadFail(line));
  } else if (verb == "pause") {
    const std::string operation = ReadOperation(line);
    script->pauses[operation] = line->TakeNumber();
  } else if (verb == "write") {
    script->writes.push_back(ReadWrite(line));
  } else if (verb == "see") {
    ReadSight(line, script);
  } else if (verb == "dump") {
    script->dumpDirectory = line->TakeRest();
  } else if (verb == "dump-image") {
    script->imageFile = line->TakeRest();
  } else {
    Refuse("'" + verb + "' starts no statement");
  }
  line->End();
}

}  // namespace

uint64_t Script::BitsOf(uint32_t code) const {
  for (auto pair = bits.rbegin(); pair != bits.rend(); ++pair) {
    if (pair->first == code) return pair->second;
  }
  static constexpr uint64_t kKnown[] = {32, 16, 8, 32, 8, 32, 16, 16, 64, 64, 64, 8};
  return code < std::size(kKnown) ? kKnown[code] : 0;
}

std::string ParseScript(const std::string& text, Script* script) {
  Script read;
  size_t number = 0;
  for (size_t at = 0; at < text.size();) {
    const size_t end = std::min(text.find('\n', at), text.size());
    ++number;
    try {
      const std::vector<Word> words = SplitWords(text.substr(at, end - at));
      Line line(words);
      if (!words.empty()) ReadLine(&line, &read);
    } catch (const std::exception& error) {
      return "line " + std::to_string(number) + ": " + error.what();
    }
    at = end + 1;
  }
  *script = std::move(read);
  return "";
}

}  // namespace scripted
