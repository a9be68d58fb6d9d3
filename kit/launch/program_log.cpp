#include "kit/launch/program_log.h"

#include <algorithm>

namespace vorn::kit {
namespace {

constexpr std::string_view kPathFront = "[INFO]  inputPath: ";
constexpr size_t kMostKeptBytes = 512;  // of a line; a path may be megabytes long

}  // namespace

void FilesTrace::Add(std::string_view file) {
  const auto take = [&](unsigned char byte) { hash_ = (hash_ ^ byte) * 1099511628211U; };
  for (const char c : file) take(static_cast<unsigned char>(c));
  take('\n');
  ++files_;
}

void ProgramLog::Take(std::string_view piece) {
  while (!piece.empty()) {
    const size_t end = piece.find('\n');
    if (end == piece.npos) {
      cut_ += piece;
      return;
    }
    if (cut_.empty()) {
      TakeLine(piece.substr(0, end));
    } else {
      cut_ += piece.substr(0, end);
      TakeLine(cut_);
      cut_.clear();
    }
    piece.remove_prefix(end + 1);
  }
}

uint64_t ProgramLog::Begun(uint64_t inputsAnInference) const {
  return inputsAnInference == 0 ? 0 : (files_ + inputsAnInference - 1) / inputsAnInference;
}

void ProgramLog::TakeLine(std::string_view line) {
  if (line.starts_with("[INFO]  start to process file:")) {
    ++files_;
  } else if (line == "[INFO]  model execute success") {
    ++executed_;
  } else if (line == "[INFO]  dump data success") {
    ++dumped_;
    cause_.clear();
  } else if (line == "[INFO]  create model description success") {
    isModelLoaded_ = true;
  } else if (isModelLoaded_ && files_ == 0 && line.starts_with(kPathFront)) {
    listed_.Add(line.substr(kPathFront.size()));
  } else if (IsWarningOrError(line)) {
    Complain(line);
  }
  if (!line.starts_with("[INFO]  end to ")) lastLine_ = line.substr(0, kMostKeptBytes);
}

void ProgramLog::Complain(std::string_view line) {
  const Explanation* explanation = Explain(line);
  if (explanation != nullptr && explanation->role == LineRole::kOrdinary) return;
  const std::string_view id = explanation == nullptr ? "unknown" : explanation->id;
  Complaint& complaint = complaints_[std::string(id)];
  if (complaint.count++ == 0) {
    complaint.firstLine = line.substr(0, kMostKeptBytes);
    complaint.explanation = explanation;
  }
  if (explanation != nullptr && explanation->role == LineRole::kFollows) return;
  ++faults_;
  if (cause_.empty()) cause_ = line.substr(0, kMostKeptBytes);
}

}  // namespace vorn::kit
