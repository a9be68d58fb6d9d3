#include "kit/launch/explanations.h"

#include "shared/text/glob.h"

namespace vorn::kit {
namespace {

constexpr auto kCause = LineRole::kCause;
constexpr auto kFollows = LineRole::kFollows;
constexpr auto kOrdinary = LineRole::kOrdinary;
constexpr auto kUsage = ExitStatus::kUsage;
constexpr auto kInput = ExitStatus::kInput;
constexpr auto kModel = ExitStatus::kModel;
constexpr auto kRuntime = ExitStatus::kRuntime;
constexpr auto kLimit = ExitStatus::kLimit;

constexpr std::string_view kTellsMore = "standard error tells what the runtime said";
constexpr std::string_view kSeeInspect = "vorn inspect shows what the model takes";
constexpr std::string_view kSeeAbove = "the line above it tells why";

// The first pattern that fits counts.
constexpr Explanation kExplanations[] = {
    // Command line and paths
    {"usage",
     "[ERROR] example: -m modelPath -i imagePath -j vornJsonPath [-t nlpTotalT] [-b batchSize] "
     "[-r rpnData] [-p profile] [-o outputPath]",
     kCause, kUsage, "an option is not known, or its value is missing", "see vorn launch --help"},
    {"path-length", "[ERROR] inputPath size = *, out of range (*, *] error", kCause, kInput,
     "a path is empty or too long", "use a shorter path, or a link"},
    {"path-unresolved", "[ERROR] realpath fail, input: *", kCause, kInput,
     "a path leads through something that is no folder or may not be entered",
     "look at each folder of the path"},
    {"file-missing", "[ERROR] failed to get file *", kCause, kInput, "a file is not there",
     "look at the list and at its folder, from which paths count"},
    {"file-no-file", "[ERROR] * is not a file, please enter a file", kCause, kInput,
     "a path names a folder or a device", "name a file"},
    {"file-unreadable", "[ERROR] open file * failed", kCause, kInput, "a file may not be read",
     "look at its rights"},

    // The runtime comes up
    {"init", "[ERROR] vorn init failed", kCause, kModel,
     "the runtime refused its configuration or could not start", kTellsMore},
    {"device", "[ERROR] vorn open device * failed", kCause, kRuntime,
     "the device cannot be opened, or another program has it", kTellsMore},
    {"op-wait", "[ERROR] vorn set op wait time failed", kCause, kRuntime,
     "the runtime refused a time-out", kTellsMore},
    {"context", "[ERROR] vorn create context failed", kCause, kRuntime,
     "the device gave no context", kTellsMore},
    {"stream", "[ERROR] vorn create stream failed", kCause, kRuntime, "the device gave no stream",
     kTellsMore},
    {"run-mode-unknown", "[ERROR] vorn get run mode failed", kCause, kRuntime,
     "the runtime does not tell its mode", kTellsMore},
    {"run-mode", "[ERROR] vorn run mode failed", kCause, kRuntime,
     "the runtime runs on the host where one on the device was expected",
     "use the runtime of the device"},
    {"init-resource", "[ERROR] sample init resource failed", kFollows, kRuntime,
     "the runtime did not come up", kSeeAbove},

    // The model
    {"model-empty", "[ERROR] binfile is empty, filename is *", kCause, kModel,
     "the model file is empty", "copy the model anew"},
    {"model-load", "[ERROR] load model from file failed, model file is *", kFollows, kModel,
     "the model was not read", kSeeAbove},
    {"model-load-step", "[ERROR] execute LoadModelFromFileWithMem failed", kFollows, kModel,
     "the model was not loaded", kSeeAbove},
    {"model-no-description", "[ERROR] create model description failed", kCause, kRuntime,
     "the runtime gave no description", kTellsMore},
    {"model-refused", "[ERROR] get model description failed", kCause, kModel,
     "the runtime refused the model", "standard error tells why; see vorn inspect -m MODEL"},
    {"model-input-dims", "[ERROR] get input dims failed", kCause, kModel,
     "the runtime does not tell the shape of an input", kTellsMore},
    {"model-output-dims", "[ERROR] get output dims failed", kCause, kModel,
     "the runtime does not tell the shape of an output", kTellsMore},
    {"model-describe-step", "[ERROR] execute CreateDesc failed", kFollows, kModel,
     "the model was not described", kSeeAbove},
    {"model-not-loaded", "[WARN]  no model had been loaded, unload failed", kFollows, kModel,
     "there was no model to unload", kSeeAbove},
    {"model-unload", "[ERROR] unload model failed, modelId is *", kCause, kRuntime,
     "the runtime did not unload the model", kTellsMore},

    // Outputs are prepared
    {"output-dataset", "[ERROR] can't create dataset, create output failed", kCause, kRuntime,
     "the runtime gave no dataset", kTellsMore},
    {"output-memory", "[ERROR] can't malloc buffer, size is *, create output failed", kCause,
     kLimit, "the device has not enough memory for an output",
     "give a smaller -b, or end other programs"},
    {"output-buffer", "[ERROR] can't create data buffer, create output failed", kCause, kRuntime,
     "the runtime gave no buffer", kTellsMore},
    {"output-add", "[ERROR] can't add data buffer, create output failed", kCause, kRuntime,
     "the runtime did not take a buffer", kTellsMore},
    {"output-no-stride", "[ERROR] Error, output default stride is *.", kCause, kModel,
     "an output has rows of no bytes", kSeeInspect},
    {"output-no-size", "[ERROR] Error, output size is *.", kCause, kModel,
     "an output has no bytes, or -b is 0", kSeeInspect},
    {"output-step", "[ERROR] execute CreateOutput failed", kFollows, kRuntime,
     "the outputs were not prepared", kSeeAbove},

    // Inputs are read
    {"input-dataset", "[ERROR] can't create dataset, create input failed", kCause, kRuntime,
     "the runtime gave no dataset", kTellsMore},
    {"input-step", "[ERROR] execute InitInput failed", kFollows, kRuntime,
     "the inputs were not prepared", kSeeAbove},
    {"input-dims", "[ERROR] vorn_mdl_get_input_dims error!", kCause, kRuntime,
     "the runtime does not tell the shape of an input", kTellsMore},
    {"input-no-stride", "[ERROR] vorn_mdl_get_input_default_stride error!", kCause, kModel,
     "an input has rows of no bytes", kSeeInspect},
    {"input-no-size", "[ERROR] vorn_mdl_get_input_size_by_index error!", kCause, kModel,
     "an input has no bytes, or the batch became 0", kSeeInspect},
    {"input-stride-step", "[ERROR] GetStrideParam error", kFollows, kRuntime,
     "the layout of an input is not known", kSeeAbove},
    {"input-layout-step", "[ERROR] Error, GetInputStrideParam failed", kFollows, kRuntime,
     "the layout of a buffer is not known", kSeeAbove},
    {"input-type", "[ERROR] GetInputDataSize == 0 error", kCause, kModel,
     "the elements of an input have no whole bytes", kSeeInspect},
    {"input-empty", "[ERROR] Empty file: *", kCause, kInput, "an input file is empty",
     "make it anew"},
    {"input-shape", "[WARN]  The input data shape not match model's input shape [N,C,H,W]", kCause,
     kInput, "a file holds another number of bytes than the batch takes",
     "compare its size with what vorn inspect shows"},
    {"batch-reset", "[WARN]  Reset the batchSize to [*]", kCause, kInput,
     "a file changed the batch for itself and for all files behind it",
     "give the batch with -b, and files that hold it"},
    {"input-too-large", "[ERROR] Input data size[*] must be smaller than malloc size[*]", kCause,
     kInput, "a file holds more than the input takes",
     "compare its size with what vorn inspect shows"},
    {"too-many-frames",
     "[ERROR] Current number of frames[*] must be smaller than the recurrent_max_total_t[*]",
     kCause, kInput, "a sequence has more frames than the model takes; the rest was left out",
     "cut the sequence"},
    {"net-type", "[ERROR] vorn_ext_get_mdl_net_type fail! ret = *", kCause, kRuntime,
     "the runtime does not tell what kind of network it is", kTellsMore},
    {"input-memory", "[ERROR] malloc device buffer failed. size is *", kCause, kLimit,
     "the device has not enough memory", "give a smaller -b, or end other programs"},
    {"thresholds-memory", "[ERROR] malloc device buffer failed", kCause, kLimit,
     "the device has not enough memory for thresholds", "end other programs"},
    {"input-read-step", "[ERROR] get pic device buffer failed", kFollows, kInput,
     "an input was not read", kSeeAbove},
    {"input-buffer", "[ERROR] can't create data buffer, create input failed", kCause, kRuntime,
     "the runtime gave no buffer", kTellsMore},
    {"input-add", "[ERROR] add input dataset buffer failed", kCause, kRuntime,
     "the runtime did not take a buffer", kTellsMore},
    {"input-create-step", "[ERROR] execute CreateInput failed", kFollows, kRuntime,
     "an input did not reach the runtime", kSeeAbove},
    {"input-buffers-step", "[ERROR] CreateInputBuf failed", kFollows, kInput,
     "the inputs were not read", kSeeAbove},
    {"batch-refused", "[ERROR] vorn_mdl_set_dynamic_batch_size fail! ret = *", kCause, kUsage,
     "the model does not take this batch", "give another -b"},
    {"batch-set", "[WARN]  vorn_mdl_set_dynamic_batch_size set batchsize to *", kOrdinary, kRuntime,
     "the batch that was set", ""},
    {"batch-step", "[ERROR] Set batch size failed", kFollows, kUsage, "the batch was not set",
     kSeeAbove},

    // Thresholds
    {"thresholds-unreadable", "[ERROR] read rpn para error", kCause, kInput,
     "a thresholds file is missing or holds something else than numbers",
     "look at the files of -r"},
    {"thresholds-shape", "[ERROR] vorn_mdl_get_input_dims rpn_data error!", kCause, kUsage,
     "the model has no input for thresholds", "leave out -r"},
    {"thresholds-count", "[ERROR] [single thr]: detPara.size * should be 4, Please check rpn file.",
     kCause, kInput, "a thresholds file does not hold 4 numbers",
     "white space behind the last number counts it twice"},
    {"thresholds-classes", "[ERROR] [multi thr]: detPara.size * should be *", kCause, kInput,
     "a thresholds file does not hold 4 numbers a class",
     "white space behind the last number counts it twice"},
    {"thresholds-kind", "[ERROR] only support single or multi class", kCause, kModel,
     "the thresholds input is of neither one class nor several", kSeeInspect},
    {"thresholds-set-step", "[ERROR] SetDetParas error", kFollows, kRuntime,
     "thresholds did not reach the runtime", kSeeAbove},
    {"thresholds-step", "[ERROR] Set rpn data failed", kFollows, kInput, "thresholds were not set",
     kSeeAbove},

    // Buffers, execution
    {"input-count", "[ERROR] input dataset Num is error.", kCause, kModel,
     "the model has no inputs besides its buffers", kSeeInspect},
    {"input-none", "[ERROR] input dataset Num is 0.", kCause, kInput,
     "an inference has no data inputs", "look at -r, which may name too many files"},
    {"scratch-step", "[ERROR] execute Create taskBuffer and workBuffer failed", kFollows, kLimit,
     "a buffer was not made", kSeeAbove},
    {"scratch-all-step", "[ERROR] CreateTaskBufAndWorkBuf failed", kFollows, kLimit,
     "the buffers were not made", kSeeAbove},
    {"total-t-refused", "[ERROR] vorn_mdl_set_total_t failed, ret = *", kCause, kInput,
     "the model does not take this number of frames", "cut the sequence"},
    {"total-t-set", "[WARN]  vorn_mdl_set_total_t set total_t to *", kOrdinary, kRuntime,
     "the frames that were set", ""},
    {"total-t-step", "[ERROR] Set nlpTotalt failed", kFollows, kInput, "the frames were not set",
     kSeeAbove},
    {"execute", "[ERROR] execute model failed, modelId is *", kCause, kRuntime,
     "the runtime failed to execute the model", kTellsMore},
    {"execute-step", "[ERROR] execute inference failed", kFollows, kRuntime,
     "an inference was not executed", kSeeAbove},

    // Dumps
    {"dump-block", "[ERROR] output[*] dataBuffer nullptr invalid", kCause, kRuntime,
     "an output has no buffer", kTellsMore},
    {"dump-empty", "[ERROR] output[*] data or size(*) invalid", kCause, kRuntime,
     "the buffer of an output is empty", kTellsMore},
    {"dump-dims", "[ERROR] vorn_mdl_get_output_dims error!", kCause, kRuntime,
     "the runtime does not tell the shape of an output", kTellsMore},
    {"dump-no-stride", "[ERROR] vorn_mdl_get_output_default_stride error!", kCause, kModel,
     "an output has rows of no bytes", kSeeInspect},
    {"dump-no-size", "[ERROR] vorn_mdl_get_output_size_by_index error!", kCause, kModel,
     "an output has no bytes", kSeeInspect},
    {"dump-layout-step", "[ERROR] Error, GetOutputStrideParam failed", kFollows, kRuntime,
     "the layout of an output is not known", kSeeAbove},
    {"dump-shape", "[ERROR] Error, dims para invalid", kCause, kModel,
     "an output has no last dimension", kSeeInspect},
    {"dump-type", "[ERROR] Error, dataSize == 0 invalid", kCause, kModel,
     "the elements of an output have no whole bytes", kSeeInspect},
    {"dump-step", "[ERROR] GetOutputWithOutStride fail", kFollows, kRuntime,
     "an output was not read", kSeeAbove},
    {"dump-file", "[ERROR] create output file [*] failed", kCause, kLimit,
     "a dump cannot be written", "look at the folder's rights, and at the length of the name"},

    // The end
    {"process-step", "[ERROR] sample process failed", kFollows, kRuntime, "the run ended early",
     kSeeAbove},
    {"end-stream", "[ERROR] destroy stream failed", kCause, kRuntime,
     "the runtime did not take back a stream", kTellsMore},
    {"end-context", "[ERROR] destroy context failed", kCause, kRuntime,
     "the runtime did not take back a context", kTellsMore},
    {"end-device", "[ERROR] reset device failed", kCause, kRuntime, "the device was not closed",
     kTellsMore},
    {"end-finalize", "[ERROR] finalize vorn failed", kCause, kRuntime,
     "the runtime was not taken down", kTellsMore},
};

}  // namespace

std::span<const Explanation> AllExplanations() { return kExplanations; }

const Explanation* Explain(std::string_view line) {
  for (const Explanation& explanation : kExplanations) {
    if (text::FitsGlob(line, explanation.pattern)) return &explanation;
  }
  return nullptr;
}

bool IsWarningOrError(std::string_view line) {
  return line.starts_with("[ERROR]") || line.starts_with("[WARN]");
}

}  // namespace vorn::kit
