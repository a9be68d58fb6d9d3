// From an output to its text and binary file.
#include "output/dump.h"

#include <sys/stat.h>

#include <span>

#include "common/file.h"
#include "common/log.h"
#include "common/wall_clock.h"
#include "output/dump_names.h"
#include "output/text_lines.h"

namespace vorn::run {
namespace {

constexpr mode_t kFolderMode = 0775;

using ValueReader = int (*)(const OutputSource&, uint64_t, ValueBuffer&, std::span<const float>&);

// Which reader serves a data type code. All codes but those of small integers, unknown ones
// included, are read as float bit patterns; code 1 is read as an unsigned integer.
ValueReader ReaderOf(vorn_data_type code) {
  switch (code) {
    case 1:
    case VORN_UINT16:
      return GetOutputWithOutStride<uint16_t>;
    case VORN_INT8:
      return GetOutputWithOutStride<int8_t>;
    case VORN_UINT8:
      return GetOutputWithOutStride<uint8_t>;
    case VORN_INT16:
      return GetOutputWithOutStride<int16_t>;
    default:
      return GetOutputWithOutStride<float>;
  }
}

struct Output {
  const OutputSource& source;
  uint64_t index;
  ValueReader readValues;
  ValueBuffer& buffer;
};

int ReadValues(const Output& output, std::span<const float>& values) {
  if (output.readValues(output.source, output.index, output.buffer, values) != 0) {
    PrintLine("[ERROR] GetOutputWithOutStride fail\n");
    return 1;
  }
  return 0;
}

FileDescriptor CreateOutputFile(const std::string& fileName) {
  FileDescriptor file = OpenForWriting(fileName);
  if (!file.IsOpen()) PrintLine("[ERROR] create output file [%s] failed\n", fileName.c_str());
  return file;
}

void WriteOutputText(const std::string& fileName, const Output& output) {
  std::span<const float> values;
  if (ReadValues(output, values) != 0) return;
  const FileDescriptor file = CreateOutputFile(fileName);
  if (file.IsOpen()) WriteTextLines(file.Get(), values);
}

void WriteOutputBinary(const std::string& fileName, const Output& output) {
  std::span<const float> values;
  if (ReadValues(output, values) != 0) return;
  const FileDescriptor file = CreateOutputFile(fileName);
  if (file.IsOpen()) WriteFully(file.Get(), values.data(), values.size_bytes());
}

// The values are read anew for each file: a reading that fails is to be reported for both.
void WriteOutputFiles(const std::string& baseName, const OutputSource& source, uint64_t index,
                      ValueBuffer& buffer) {
  const vorn_data_type code = vorn_mdl_get_output_data_type(source.modelDesc, index);
  PrintLine("[INFO]  The value of vorn_data_type is [%zu]\n", size_t{code});
  const Output output{source, index, ReaderOf(code), buffer};
  WriteOutputText(baseName + ".float", output);
  WriteOutputBinary(baseName + ".bin", output);
}

}  // namespace

void DumpOutputs(const OutputSource& source, const std::string& outputPath, uint32_t inference,
                 ValueBuffer& buffer) {
  const uint64_t outputs = vorn_mdl_get_dataset_num_buffers(source.outputDataset);
  const std::string folder = InferenceFolder(outputPath, inference);
  // A folder that cannot be made shows where its files cannot be created.
  mkdir(folder.c_str(), kFolderMode);

  DuplicateCounter duplicates;
  for (uint64_t i = 0; i < outputs; ++i) {
    const char* outputName = vorn_mdl_get_output_name_by_index(source.modelDesc, i);
    const std::string name = FileNameOfOutput(outputName == nullptr ? "" : outputName);
    const uint64_t duplicate = duplicates.Next(name);
    const std::string baseName = DumpBaseName(folder, name, duplicate, GetCurrentTimeUs());
    WriteOutputFiles(baseName, source, i, buffer);
  }
  PrintLine("[INFO]  dump data success\n");
}

}  // namespace vorn::run
