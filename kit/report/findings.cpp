#include "kit/report/findings.h"

#include <string>

#include "kit/json/json.h"

namespace vorn::kit {
namespace {

std::string TextIn(const Json& object, const char* key) {
  const Json* value = object.Find(key);
  return value != nullptr && value->IsText() ? value->AsText() : "";
}

}  // namespace

ReportFinding FindingFromLine(std::string_view line) {
  const Json json = ParseJson(line);
  if (!json.IsObject()) throw JsonError("a finding is an object");
  ReportFinding finding;
  finding.id = TextIn(json, "id");
  finding.severity = TextIn(json, "severity");
  finding.message = TextIn(json, "message");
  finding.operation = TextIn(json, "operation");
  if (const Json* count = json.Find("count")) finding.count = count->AsUnsigned();
  if (finding.id.empty() && finding.message.empty()) {
    throw JsonError("a finding has an id or a message");
  }
  return finding;
}

}  // namespace vorn::kit
