#include "kit/runtime/model_source.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>

#include "kit/common/printable.h"
#include "kit/common/whole_file.h"
#include "kit/model/model_json.h"
#include "kit/runtime/describe.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kMostDescriptionBytes = 64 << 20;

ModelDescription ReadDescription(const std::string& path, const char* what) {
  return FromJson(ReadWholeFile(path, what, ExitStatus::kModel, kMostDescriptionBytes));
}

void WithFiles(ModelDescription& description, const ModelSource& source) {
  description.model = source.model;
  description.configuration = source.configuration;
  description.runtime = source.runtime;
}

std::string KeptFile(const ModelSource& source) {
  const std::string folder = CacheFolder();
  const bool areKnown = source.model.xxh3 && source.configuration.xxh3 && source.runtime->xxh3;
  if (folder.empty() || !areKnown) return "";
  return folder + "/" + *source.model.xxh3 + "-" + *source.configuration.xxh3 + "-" +
         *source.runtime->xxh3 + ".json";
}

std::optional<ModelDescription> ReadKept(const std::string& file) {
  if (file.empty()) return std::nullopt;
  try {
    return ReadDescription(file, "what was kept of the model");
  } catch (const Fault&) {
    return std::nullopt;  // not there, or of no use
  }
}

// Folders above the file are made, too.
void Keep(const std::string& file, const ModelDescription& description) {
  if (file.empty()) return;
  struct stat about {};
  const bool isOther = stat(file.c_str(), &about) == 0 && !S_ISREG(about.st_mode);
  if (isOther) return;  // a pipe would be waited for
  for (size_t slash = file.find('/', 1); slash != std::string::npos;
       slash = file.find('/', slash + 1)) {
    mkdir(file.substr(0, slash).c_str(), 0700);
  }
  try {
    WriteWholeFile(file, ToJson(description));
  } catch (const Fault&) {
    // The model will be loaded again.
  }
}

}  // namespace

std::string CacheFolder() {
  const char* cache = std::getenv("XDG_CACHE_HOME");
  if (cache != nullptr && *cache == '/') return std::string(cache) + "/vorn";
  const char* home = std::getenv("HOME");
  if (home != nullptr && *home == '/') return std::string(home) + "/.cache/vorn";
  return "";
}

ModelDescription DescribeFrom(const ModelSource& source) {
  if (source.file) {
    ModelDescription description = ReadDescription(*source.file, "the description");
    if (description.model.xxh3 && description.model.xxh3 != source.model.xxh3) {
      throw Fault(ExitStatus::kModel,
                  "'" + Printable(*source.file) + "' describes another model than '" +
                      Printable(source.model.path) + "'; vorn inspect --json writes it anew");
    }
    WithFiles(description, source);
    return description;
  }
  const std::string kept = KeptFile(source);
  std::optional<ModelDescription> description = ReadKept(kept);
  if (!description) {
    description = DescribeWithRuntime({.modelPath = source.model.path,
                                       .configPath = source.configuration.path,
                                       .runtimePath = source.runtime->path});
    WithFiles(*description, source);
    Keep(kept, *description);
  }
  WithFiles(*description, source);
  return *description;
}

}  // namespace vorn::kit
