#include "kit/json/identity_json.h"

namespace vorn::kit {

Json FromIdentity(const FileIdentity& file) {
  Json object = Json::Object({{"path", file.path}});
  if (file.sizeBytes) object.Set("sizeBytes", *file.sizeBytes);
  if (file.xxh3) object.Set("xxh3_128", *file.xxh3);
  return object;
}

FileIdentity ToIdentity(const Json& object) {
  FileIdentity file;
  file.path = object.At("path").AsText();
  if (const Json* size = object.Find("sizeBytes")) file.sizeBytes = size->AsUnsigned();
  if (const Json* hash = object.Find("xxh3_128")) file.xxh3 = hash->AsText();
  return file;
}

}  // namespace vorn::kit
