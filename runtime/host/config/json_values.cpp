// JSON values by kind.
#include "host/config/json_values.h"

#include <set>

namespace vorn::host {

using nlohmann::json;

namespace {

constexpr size_t kDeepestNesting = 16;  // four times what any key takes

std::string PathOf(const std::vector<std::string>& names) {
  std::string path;
  for (const std::string& name : names) path += (path.empty() ? "" : ".") + Excerpt(name);
  return path;
}

/// Looks at the parser's events while values come to be. What is nested deep must not become one:
/// printing and copying it would recurse as deep.
class Guard {
 public:
  explicit Guard(std::string_view what) : what_(what) {}

  void See(size_t depth, json::parse_event_t event, const json& parsed) {
    switch (event) {
      case json::parse_event_t::object_start:
      case json::parse_event_t::array_start:
        if (depth >= kDeepestNesting) {
          throw Failure(VORN_ERROR_CONFIG, what_, " is nested more than ", kDeepestNesting,
                        " deep; no key takes a value like that");
        }
        levels_.resize(depth + 1);
        levels_[depth].clear();
        break;
      case json::parse_event_t::key:
        SeeKey(depth - 1, parsed.get_ref<const std::string&>());
        break;
      default:
        break;
    }
  }

 private:
  void SeeKey(size_t level, const std::string& name) {
    path_.resize(level);
    path_.push_back(name);
    // The execution library would take the name to end there.
    if (name.find('\0') != std::string::npos) {
      throw Failure(VORN_ERROR_CONFIG, "key '", PathOf(path_),
                    "' holds a zero character, which no name has");
    }
    if (levels_[level].insert(name).second) return;
    throw Failure(VORN_ERROR_CONFIG, what_, " gives '", PathOf(path_), "' twice; leave one");
  }

  std::string_view what_;
  std::vector<std::string> path_;              // of the last key; of a list's, that of the list
  std::vector<std::set<std::string>> levels_;  // the keys that each open object has so far
};

/// What the parser complains of, without its own numbers in front: "[json.exception...] parse ...".
std::string Cause(const json::exception& e) {
  constexpr size_t kLongest = 160;
  std::string_view text = e.what();
  const size_t front = text.find("] ");
  if (front != std::string_view::npos) text.remove_prefix(front + 2);
  return Excerpt(text, kLongest);
}

json Parse(std::string_view what, std::string_view text) {
  Guard guard(what);
  try {
    return json::parse(text, [&guard](int depth, json::parse_event_t event, const json& parsed) {
      guard.See(static_cast<size_t>(depth), event, parsed);
      return true;
    });
  } catch (const json::out_of_range& e) {
    throw Failure(VORN_ERROR_CONFIG, what, " has a number that is too large (", Cause(e), ")");
  } catch (const json::exception& e) {
    throw Failure(VORN_ERROR_CONFIG, what, " is not JSON (", Cause(e),
                  "); the smallest valid one is {}");
  }
}

}  // namespace

std::string Shown(const json& value) {
  return Excerpt(value.dump(-1, ' ', false, json::error_handler_t::replace));
}

json ParseJsonObject(std::string_view what, std::string_view text) {
  if (text.size() > kMaxJsonBytes) {
    throw Failure(VORN_ERROR_CONFIG, what, " is longer than ", kMaxJsonBytes, " bytes");
  }
  // The parser takes a zero for the end and what stands behind it for nothing.
  const size_t zero = text.find('\0');
  if (zero != std::string_view::npos) {
    throw Failure(VORN_ERROR_CONFIG, what, " is not JSON (byte ", zero,
                  " is zero); the smallest valid one is {}");
  }
  json root = Parse(what, text);
  if (!root.is_object()) {
    throw Failure(VORN_ERROR_CONFIG, what, " is ", Shown(root),
                  "; give a JSON object, at least {}");
  }
  return root;
}

int64_t IntegerInRange(const std::string& key, const json& value, int64_t least, int64_t most) {
  // An unsigned number beyond int64 would come out negative, so it is looked at as what it is.
  const bool isTooLarge =
      value.is_number_unsigned() && value.get<uint64_t>() > static_cast<uint64_t>(INT64_MAX);
  const bool fits = value.is_number_integer() && !isTooLarge && value.get<int64_t>() >= least &&
                    value.get<int64_t>() <= most;
  if (!fits) {
    throw Failure(VORN_ERROR_CONFIG, "'", key, "' is ", Shown(value), "; give a whole number from ",
                  least, " to ", most);
  }
  return value.get<int64_t>();
}

std::string Text(const std::string& key, const json& value) {
  if (value.is_string() && !value.get_ref<const std::string&>().empty()) {
    return value.get<std::string>();
  }
  throw Failure(VORN_ERROR_CONFIG, "'", key, "' is ", Shown(value), "; give a name in quotes");
}

int64_t Dim(const std::string& key, const json& value) {
  return IntegerInRange(key, value, 1, kLargestDim);
}

}  // namespace vorn::host
