// Holds JSON to a schema of docs/schema, with the keywords that stand there and no others.
#ifndef VORN_TESTS_SUPPORT_JSON_SCHEMA_H_
#define VORN_TESTS_SUPPORT_JSON_SCHEMA_H_

#include <string>

namespace support {

/// What is wrong with `text` by docs/schema/`schema`.json, or an empty text. A member that the
/// schema does not name is wrong too: readers pass over such, but writers of this version make
/// none. Throws std::runtime_error for a keyword that is not known here.
[[nodiscard]] std::string FaultBySchema(const std::string& schema, const std::string& text);

}  // namespace support

#endif  // VORN_TESTS_SUPPORT_JSON_SCHEMA_H_
