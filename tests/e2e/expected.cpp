#include "e2e/expected.h"

#include <gtest/gtest.h>
#include <limits.h>
#include <stdlib.h>

#include <algorithm>
#include <cstdio>

#include "support/files.h"

namespace e2e {

using support::ModelScript;
using support::Sight;
using support::Stage;
using support::TensorSpec;
using support::Transcript;

namespace {

void AppendInfo(const std::string& side, const std::vector<TensorSpec>& tensors, uint64_t batchSize,
                Lines* lines) {
  lines->push_back("[INFO]  ------------------ " + side + " Info ------------------");
  for (size_t i = 0; i < tensors.size(); ++i) {
    const TensorSpec& tensor = tensors[i];
    lines->push_back("[INFO]  " + side + " index: " + std::to_string(i) + ", name: " + tensor.name);
    lines->push_back("[INFO]  Shape: " + InfoShape(tensor.dims));
    lines->push_back("[INFO]  DataType: " + std::to_string(static_cast<int32_t>(tensor.type)) +
                     ", stride: " + std::to_string(tensor.stride) +
                     ", format: " + std::to_string(tensor.format) +
                     ", dataSizeWithStride: " + std::to_string(batchSize * tensor.size));
  }
}

}  // namespace

Lines Join(const std::vector<Lines>& blocks) {
  Lines all;
  for (const Lines& block : blocks) all.insert(all.end(), block.begin(), block.end());
  return all;
}

Lines PathChecks(const std::vector<std::string>& paths) {
  Lines lines;
  for (const std::string& path : paths) lines.push_back("[INFO]  inputPath: " + path);
  return lines;
}

Lines UpToInfo() {
  return Join(
      {PathChecks({"model.om", "vorn.json"}),
       BringUp(),
       {"[INFO]  load model $DIR/model.om success", "[INFO]  create model description success"}});
}

Lines BringUp() {
  return {"[INFO]  vorn init success",        "[INFO]  open device 0 success",
          "[INFO]  set op wait time success", "[INFO]  create context success",
          "[INFO]  create stream success",    "[INFO]  get run mode success"};
}

Lines Info(const ModelScript& script, uint64_t batchSize) {
  Lines lines;
  AppendInfo("Input", script.inputs(), batchSize, &lines);
  AppendInfo("Output", script.outputs(), batchSize, &lines);
  return lines;
}

Lines Plan(uint64_t inputNum, uint64_t iterations) {
  return {"[INFO]  create model output success",
          "[INFO]  Model inputNum: " + std::to_string(inputNum),
          "[INFO]  Model Iters : " + std::to_string(iterations)};
}

Lines ReadingHead(const std::string& path, const TensorSpec& tensor, uint64_t elementBytes) {
  return {"[INFO]  start to process file:" + path,
          "[INFO]  The amount of data required for inference in a single batch is [" +
              std::to_string(tensor.size) + "]",
          "[INFO]  The stride of model is [" + std::to_string(tensor.stride) + "]",
          "[INFO]  The data size of data type is [" + std::to_string(elementBytes) + "]",
          "[INFO]  Reading bin file [" + path + "]"};
}

Lines Reading(const std::string& path, const TensorSpec& tensor, uint64_t elementBytes,
              bool withShape) {
  Lines lines = ReadingHead(path, tensor, elementBytes);
  if (withShape) {
    lines.push_back("[INFO]  The shape of the model is [" + ReadShape(tensor.dims) + "]");
  }
  return lines;
}

Lines BatchSet(uint64_t batchSize) {
  return {"[WARN]  vorn_mdl_set_dynamic_batch_size set batchsize to " + std::to_string(batchSize)};
}

Lines ExecutedAndDumped(const std::vector<uint32_t>& types) {
  Lines lines{"[INFO]  model execute success"};
  for (const uint32_t type : types) {
    lines.push_back("[INFO]  The value of vorn_data_type is [" + std::to_string(type) + "]");
  }
  lines.push_back("[INFO]  dump data success");
  return lines;
}

Lines Unloaded(uint32_t modelId) {
  return {"[INFO]  unload model success, modelId is " + std::to_string(modelId)};
}

Lines Success() { return Join({{"[INFO]  execute sample success"}, Closing()}); }

Lines ProcessFailed() { return Join({{"[ERROR] sample process failed"}, Closing()}); }

Lines Closing() {
  return {"[INFO]  end to destroy stream", "[INFO]  end to destroy context",
          "[INFO]  end to reset device is 0", "[INFO]  end to finalize vorn"};
}

std::string InfoShape(const std::vector<int64_t>& dims) {
  std::string text = "[";
  for (const int64_t dim : dims) text += std::to_string(dim) + ", ";
  return text + "]";
}

std::string ReadShape(const std::vector<int64_t>& dims) {
  std::string text;
  for (size_t i = 0; i < dims.size(); ++i) text += (i == 0 ? "" : ",") + std::to_string(dims[i]);
  return text;
}

std::string TextDump(const std::vector<float>& values) {
  std::string text;
  for (const float value : values) {
    char line[128];
    std::snprintf(line, sizeof line, "%.16f\n", static_cast<double>(value));
    text += line;
  }
  return text;
}

ModelScript PlainScript() {
  ModelScript script;
  script.Input({"in0", {1, 2, 3}, 0, 16, 32, 0})
      .Scratch()
      .Output({"prob", {1, 3}, 0, 16, 16, 2})
      .WriteRows(0, 12, 16, support::Bytes(kPlainOutput))
      .Line("see inputs hex");
  return script;
}

void SetPlain(Stage* stage) {
  stage->script = PlainScript();
  stage->File("a.bin", support::Bytes(kPlainInput)).List({"a.bin"});
}

Lines PlainRun(const ModelScript& script) {
  return Join({UpToInfo(), Info(script), PathChecks({"./a.bin"}), Plan(1, 1),
               Reading("$DIR/a.bin", script.inputs()[0], 4), BatchSet(), ExecutedAndDumped({0}),
               Unloaded(), Success()});
}

void ExpectClean(const Transcript& transcript) {
  EXPECT_EQ(transcript.record.Violations(), Lines{}) << transcript.Describe();
  EXPECT_EQ(transcript.record.Notes(), Lines{});
  EXPECT_EQ(transcript.record.Live(), support::kNothingLive) << transcript.Describe();
  EXPECT_EQ(transcript.err, "");
}

void ExpectStatus(const Transcript& transcript, int status) {
  EXPECT_EQ(transcript.status, status) << transcript.Describe();
}

void ExpectLinesInOrder(const Transcript& transcript, const Lines& lines) {
  auto at = transcript.lines.begin();
  for (const std::string& line : lines) {
    at = std::find(at, transcript.lines.end(), line);
    if (at == transcript.lines.end()) {
      ADD_FAILURE() << "missing, or not in its place: " << line << "\n" << transcript.Describe();
      return;
    }
    ++at;
  }
}

Lines FilesRead(const Transcript& transcript) {
  const std::string start = "[INFO]  start to process file:";
  Lines files;
  for (const std::string& line : transcript.lines) {
    if (line.compare(0, start.size(), start) == 0) files.push_back(line.substr(start.size()));
  }
  return files;
}

Lines EntriesChecked(const Transcript& transcript) {
  const std::string start = "[INFO]  inputPath: ";
  const std::string model = "[INFO]  create model description success";
  Lines entries;
  auto line = std::find(transcript.lines.begin(), transcript.lines.end(), model);
  for (; line != transcript.lines.end(); ++line) {
    if (line->compare(0, start.size(), start) == 0) entries.push_back(line->substr(start.size()));
  }
  return entries;
}

std::string Resolved(const Stage& stage, const std::string& path) {
  std::string buffer(PATH_MAX + 1, '\0');
  if (realpath((stage.Folder() / path).c_str(), buffer.data()) == nullptr) {
    // What it left behind is what is asked for.
  }
  return stage.Normalise(buffer.c_str());
}

Lines FailedInput(const Lines& cause) {
  return Join({cause, {"[ERROR] CreateInputBuf failed"}, Unloaded(), ProcessFailed()});
}

Lines FromFirstError(const Transcript& transcript) {
  const auto first =
      std::find_if(transcript.lines.begin(), transcript.lines.end(),
                   [](const std::string& line) { return line.compare(0, 7, "[ERROR]") == 0; });
  return {first, transcript.lines.end()};
}

std::vector<Sight> InputsSeen(const Transcript& transcript, uint64_t execution) {
  std::vector<Sight> inputs;
  for (const Sight& sight : transcript.record.Sights()) {
    if (sight.isInput && sight.execution == execution) inputs.push_back(sight);
  }
  return inputs;
}

}  // namespace e2e
