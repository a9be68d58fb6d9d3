// The manifest of vorn prepare and its notes: the first byte says which reader, the rest is the
// file. It is refused with a line that a person can read, or survives being written; and both that
// read a manifest, prepare and judge, read the same in it.
#include <array>
#include <cstdint>
#include <exception>
#include <map>
#include <span>
#include <string>

#include "fuzz/property.h"
#include "fuzz/scratch_folder.h"
#include "fuzz/targets.h"
#include "kit/common/fault.h"
#include "kit/common/file_place.h"
#include "kit/common/whole_file.h"
#include "kit/json/json.h"
#include "kit/judge/manifest_facts.h"
#include "kit/prepare/manifest.h"

namespace fuzz {
namespace {

namespace kit = vorn::kit;

constexpr uint64_t kMostBytes = 64 << 20;

std::string Written(const kit::Manifest& manifest) {
  static const ScratchFolder& folder = *new ScratchFolder;
  kit::WriteManifest(folder.Path(), manifest);
  return kit::ReadWholeFile(folder.Path() + "/" + kit::kManifestFile, "what was written",
                            kit::ExitStatus::kInput, kMostBytes);
}

bool AreSame(const kit::SourceOfItem& told, const kit::ItemRecord& item) {
  const std::string path = item.source.xxh3 ? kit::Absolute(item.source.path) : "";
  return told.path == path && told.xxh3 == item.source.xxh3 && told.array == item.array &&
         told.item == item.item;
}

kit::ManifestFacts FactsOf(const std::string& text) {
  try {
    return kit::ParseManifestFacts(text);
  } catch (const kit::JsonError& error) {
    throw Violation{"only one of the readers takes it: " + std::string(error.what())};
  }
}

// Of tensors of one path the first that has items counts.
void CompareFacts(const kit::Manifest& manifest, const kit::ManifestFacts& facts) {
  Require(facts.batch == manifest.batch, "the same batch");
  std::map<std::string, const kit::TensorRecord*> byPath;
  for (const kit::TensorRecord& tensor : manifest.tensors) {
    const kit::TensorRecord*& known = byPath[tensor.file.path];
    if (known == nullptr || known->items.empty()) known = &tensor;
  }
  Require(facts.tensors.size() == byPath.size(), "the same files");
  for (const auto& [path, tensor] : byPath) {
    const auto found = facts.tensors.find(path);
    Require(found != facts.tensors.end(), "each file");
    Require(found->second.size() == tensor->items.size(), "as many items");
    for (size_t i = 0; i < tensor->items.size(); ++i) {
      Require(AreSame(found->second[i], tensor->items[i]), "the same items");
    }
  }
}

void ReadWhole(const std::string& text) {
  const kit::Manifest manifest = kit::ParseManifest(text);
  CompareFacts(manifest, FactsOf(text));
  const std::string written = Written(manifest);
  Require(Written(kit::ParseManifest(written)) == written, "a manifest survives being written");
}

void ReadFacts(const std::string& text) {
  for (const auto& [path, items] : kit::ParseManifestFacts(text).tensors) {
    for (const kit::SourceOfItem& item : items) {
      Require(item.path.empty() || item.path.starts_with('/'), "a path from the root on");
      Require(item.path.empty() || item.xxh3.has_value(), "a file has a hash");
    }
  }
}

void ReadNotes(const std::string& text) {
  static ScratchFolder& folder = *new ScratchFolder;
  folder.Write(kit::kPreparedNotes, text);
  for (const auto& [path, record] : kit::ReadRecords(folder.Path())) {
    Require(path == record.path, "by their paths");
    const std::string line = kit::ToText(kit::ToJson(record));
    Require(kit::ToText(kit::ToJson(kit::ItemFromJson(kit::ParseJson(line)))) == line,
            "a record survives being written");
  }
}

constexpr std::array kManifestReaders{ReadWhole, ReadFacts, ReadNotes};

}  // namespace

void Manifests(std::span<const uint8_t> bytes) {
  if (bytes.empty()) return;
  const std::string rest(bytes.begin() + 1, bytes.end());
  try {
    kManifestReaders[bytes[0] % kManifestReaders.size()](rest);
  } catch (const kit::Fault& fault) {
    RequireReason(fault.what());
  } catch (const kit::JsonError& error) {
    RequireReason(error.what());
  } catch (const std::exception& error) {
    throw Violation{"another exception than a fault: " + std::string(error.what())};
  }
}

}  // namespace fuzz
