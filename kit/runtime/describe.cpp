// The child asks and leaves model.json, or why not, in a file that both share. The operation that
// it is inside of stands in a page that both share, in case it does not come back.
#include "kit/runtime/describe.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <type_traits>
#include <vector>

#include "kit/common/fault.h"
#include "kit/common/owned_file.h"
#include "kit/common/printable.h"
#include "kit/model/model_json.h"
#include "kit/runtime/draft.h"
#include "kit/runtime/runtime_library.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kMostModelBytes = std::numeric_limits<uint32_t>::max();  // as vorn-run reads
constexpr uint64_t kMostTensors = 4096;
constexpr size_t kMostSaidBytes = 4096;
constexpr int32_t kDevice = 0;

// ---- In the child -------------------------------------------------------------------------------

// The name of an operation, zero-terminated; empty outside of any. Shared by parent and child.
using Inside = std::array<char, 64>;

// The same queries for inputs and for outputs.
struct TensorQueries {
  const char* name;  // of the one that may fail
  decltype(&vorn_mdl_get_input_dims) dims;
  decltype(&vorn_mdl_get_input_data_type) type;
  decltype(&vorn_mdl_get_input_format) format;
  decltype(&vorn_mdl_get_input_default_stride) stride;
  decltype(&vorn_mdl_get_input_size_by_index) size;
};

class Asker {
 public:
  Asker(const DescribeRequest& request, Inside& inside) : request_(request), inside_(inside) {}

  ModelDescription Ask() {
    runtime_ = OpenRuntime(request_.runtimePath);
    image_ = ReadWholeFile(request_.modelPath, "the model", ExitStatus::kModel, kMostModelBytes);
    BringUp();
    uint32_t modelId = 0;
    vorn_mdl_desc* desc = Load(modelId);

    ModelDescription description;
    description.netType = AskNetType(modelId);
    description.inputs = AskTensors(
        desc, Call("vorn_mdl_get_num_inputs", runtime_.vorn_mdl_get_num_inputs, desc),
        {"vorn_mdl_get_input_dims", runtime_.vorn_mdl_get_input_dims,
         runtime_.vorn_mdl_get_input_data_type, runtime_.vorn_mdl_get_input_format,
         runtime_.vorn_mdl_get_input_default_stride, runtime_.vorn_mdl_get_input_size_by_index});
    description.outputs = AskTensors(
        desc, Call("vorn_mdl_get_num_outputs", runtime_.vorn_mdl_get_num_outputs, desc),
        {"vorn_mdl_get_output_dims", runtime_.vorn_mdl_get_output_dims,
         runtime_.vorn_mdl_get_output_data_type, runtime_.vorn_mdl_get_output_format,
         runtime_.vorn_mdl_get_output_default_stride, runtime_.vorn_mdl_get_output_size_by_index});
    CompleteNames(desc, description.outputs);
    TakeDown(desc, modelId);
    AssignRoles(description);
    description.runtime = FileIdentity{.path = runtime_.path, .sizeBytes = {}, .xxh3 = {}};
    return description;
  }

 private:
  // The name is noted before the call, since it may not return.
  template <typename Function, typename... Words>
  std::invoke_result_t<Function, Words...> Call(const char* name, Function function,
                                                Words... words) {
    std::strncpy(inside_.data(), name, inside_.size() - 1);
    const auto answer = function(words...);
    inside_.front() = '\0';
    return answer;
  }

  template <typename Function, typename... Words>
  void Need(ExitStatus status, const char* name, Function function, Words... words) {
    const vorn_status answer = Call(name, function, words...);
    if (answer != VORN_SUCCESS) {
      throw Fault(status, std::string(name) + " failed with status " + std::to_string(answer));
    }
  }

  // Without a configuration the runtime gets an empty one, in a file that has no name.
  std::string ConfigPath() {
    if (request_.configPath) return *request_.configPath;
    const int fd = memfd_create("configuration", 0);
    if (fd < 0 || write(fd, "{}", 2) != 2) {
      throw Fault(ExitStatus::kLimit, "cannot make an empty configuration: " + SystemReason(errno) +
                                          ". Give one with --config");
    }
    return "/proc/self/fd/" + std::to_string(fd);
  }

  void BringUp() {
    Need(ExitStatus::kModel, "vorn_init", runtime_.vorn_init, ConfigPath().c_str());
    Need(ExitStatus::kRuntime, "vorn_rt_set_device", runtime_.vorn_rt_set_device, kDevice);
    Need(ExitStatus::kRuntime, "vorn_rt_create_context", runtime_.vorn_rt_create_context, &context_,
         kDevice);
  }

  vorn_mdl_desc* Load(uint32_t& modelId) {
    Need(ExitStatus::kModel, "vorn_mdl_load_from_mem", runtime_.vorn_mdl_load_from_mem,
         static_cast<const void*>(image_.data()), uint64_t{image_.size()}, &modelId);
    vorn_mdl_desc* desc = Call("vorn_mdl_create_desc", runtime_.vorn_mdl_create_desc);
    if (desc == nullptr) throw Fault(ExitStatus::kRuntime, "vorn_mdl_create_desc failed");
    Need(ExitStatus::kModel, "vorn_mdl_get_desc", runtime_.vorn_mdl_get_desc, desc, modelId);
    return desc;
  }

  std::optional<int32_t> AskNetType(uint32_t modelId) {
    vorn_net_type netType = VORN_NET_FEED_FORWARD;
    const vorn_status answer =
        Call("vorn_ext_get_mdl_net_type", runtime_.vorn_ext_get_mdl_net_type, modelId, &netType);
    return answer == VORN_SUCCESS ? std::optional(netType) : std::nullopt;
  }

  // The record of the dimensions cuts it, and dumps of an output have the whole one.
  void CompleteNames(const vorn_mdl_desc* desc, std::vector<TensorDescription>& outputs) {
    for (size_t i = 0; i < outputs.size(); ++i) {
      std::string& name = outputs[i].name;
      if (name.size() + 1 < sizeof(vorn_mdl_io_dims::name)) continue;
      const char* whole = Call("vorn_mdl_get_output_name_by_index",
                               runtime_.vorn_mdl_get_output_name_by_index, desc, uint64_t{i});
      if (whole != nullptr && std::string_view(whole).starts_with(name)) name = whole;
    }
  }

  std::vector<TensorDescription> AskTensors(const vorn_mdl_desc* desc, uint64_t count,
                                            const TensorQueries& ask) {
    if (count > kMostTensors) {
      throw Fault(ExitStatus::kRuntime, "the runtime tells of " + std::to_string(count) +
                                            " inputs or outputs, which no model has");
    }
    std::vector<TensorDescription> tensors;
    for (uint64_t i = 0; i < count; ++i) {
      const auto dims = std::make_unique<vorn_mdl_io_dims>();
      Need(ExitStatus::kModel, ask.name, ask.dims, desc, i, dims.get());
      if (dims->dimCount > VORN_MAX_DIMS) {
        throw Fault(ExitStatus::kRuntime, std::string(ask.name) + " tells of " +
                                              std::to_string(dims->dimCount) + " dimensions");
      }
      TensorDescription& tensor = tensors.emplace_back();
      tensor.name.assign(dims->name, strnlen(dims->name, sizeof(dims->name)));
      tensor.shape.assign(dims->dims, dims->dims + dims->dimCount);
      tensor.type = ask.type(desc, i);
      tensor.elementBits = runtime_.vorn_data_type_size(*tensor.type);
      tensor.format = ask.format(desc, i);
      tensor.strideBytes = ask.stride(desc, i);
      tensor.deviceBytes = ask.size(desc, i);
    }
    return tensors;
  }

  // What fails here changes nothing about what was told.
  void TakeDown(vorn_mdl_desc* desc, uint32_t modelId) {
    Call("vorn_mdl_destroy_desc", runtime_.vorn_mdl_destroy_desc, desc);
    Call("vorn_mdl_unload", runtime_.vorn_mdl_unload, modelId);
    Call("vorn_rt_destroy_context", runtime_.vorn_rt_destroy_context, context_);
    Call("vorn_rt_reset_device", runtime_.vorn_rt_reset_device, kDevice);
    Call("vorn_finalize", runtime_.vorn_finalize);
  }

  const DescribeRequest& request_;
  Inside& inside_;
  RuntimeLibrary runtime_;
  std::string image_;  // a model refers to it
  vorn_rt_context* context_ = nullptr;
};

bool WriteAll(int fd, const std::string& text) {
  size_t done = 0;
  while (done < text.size()) {
    const ssize_t got = write(fd, text.data() + done, text.size() - done);
    if (got < 0 && errno != EINTR) return false;
    if (got > 0) done += static_cast<size_t>(got);
  }
  return true;
}

// Returns the status to end with. What was found, or the fault, is in `answer` then.
int AskInChild(const DescribeRequest& request, Inside& inside, int answer, int said) {
  // Whatever the runtime prints is for us; and a runtime that crashes leaves no file behind.
  dup2(said, STDOUT_FILENO);
  dup2(said, STDERR_FILENO);
  const rlimit none{0, 0};
  setrlimit(RLIMIT_CORE, &none);
  setenv("VORN_LOG", "1", 0);
  std::string text;
  auto status = ExitStatus::kOwnFault;
  try {
    text = ToJson(Asker(request, inside).Ask());
    status = ExitStatus::kDone;
  } catch (const Fault& fault) {
    status = fault.Status();
    text = fault.what();
  } catch (const std::bad_alloc&) {
    status = ExitStatus::kLimit;
    text = "there is no memory left for the model";
  } catch (const std::exception& error) {
    text = error.what();
  }
  if (!WriteAll(answer, text)) return static_cast<int>(ExitStatus::kOwnFault);
  return static_cast<int>(status);
}

// ---- In the parent ------------------------------------------------------------------------------

// A file without a name.
class MemoryFile {
 public:
  explicit MemoryFile(const char* name) : file_(memfd_create(name, MFD_CLOEXEC)) {
    if (!file_.IsOpen()) {
      throw Fault(ExitStatus::kLimit, "cannot make a file in memory: " + SystemReason(errno));
    }
  }

  [[nodiscard]] int Descriptor() const { return file_.Get(); }

  [[nodiscard]] std::string Read(size_t mostBytes) const {
    std::string text;
    std::array<char, 4096> piece{};
    ssize_t got = 0;
    while (text.size() < mostBytes && (got = pread(file_.Get(), piece.data(), piece.size(),
                                                   static_cast<off_t>(text.size()))) > 0) {
      text.append(piece.data(), static_cast<size_t>(got));
    }
    text.resize(std::min(text.size(), mostBytes));
    return text;
  }

 private:
  OwnedFile file_;
};

class SharedPage {
 public:
  SharedPage() {
    void* page =
        mmap(nullptr, sizeof(Inside), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (page == MAP_FAILED) throw std::bad_alloc();
    inside_ = new (page) Inside{};
  }
  ~SharedPage() { munmap(inside_, sizeof(Inside)); }
  SharedPage(const SharedPage&) = delete;
  SharedPage& operator=(const SharedPage&) = delete;

  [[nodiscard]] Inside& Get() const { return *inside_; }

 private:
  Inside* inside_ = nullptr;
};

// The last line that says something: a runtime ends with its reason.
std::string LastLine(const std::string& said) {
  std::string line;
  size_t start = 0;
  while (start < said.size()) {
    size_t end = said.find('\n', start);
    if (end == std::string::npos) end = said.size();
    if (end > start) line = said.substr(start, end - start);
    start = end + 1;
  }
  return line;
}

std::string WithWords(const std::string& message, const std::string& said) {
  const std::string line = LastLine(said);
  return line.empty() ? message : message + "; it said: " + Printable(line);
}

std::string WithDraft(const std::string& message) {
  const auto draft = DraftConfiguration(message);
  if (!draft) return message;
  return message +
         "\nA configuration for -j that would do, with your numbers in the place of 1:\n" + *draft;
}

int WaitFor(pid_t child) {
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) {
      throw Fault(ExitStatus::kOwnFault, "cannot wait for a process: " + SystemReason(errno));
    }
  }
  return status;
}

[[noreturn]] void TellOfSignal(int number, const Inside& inside, const std::string& said) {
  std::string message = "the runtime ended the process by signal " + std::to_string(number) + " (" +
                        strsignal(number) + ")";
  if (inside.front() != '\0') message += " inside " + std::string(inside.data());
  throw Fault(ExitStatus::kRuntime, WithWords(message, said));
}

}  // namespace

ModelDescription DescribeWithRuntime(const DescribeRequest& request) {
  const MemoryFile answer("answer");
  const MemoryFile said("said");
  const SharedPage inside;
  const pid_t child = fork();
  if (child < 0) throw Fault(ExitStatus::kLimit, "cannot start a process: " + SystemReason(errno));
  if (child == 0) {
    // _exit: what this process has not printed yet is the parent's to print.
    _exit(AskInChild(request, inside.Get(), answer.Descriptor(), said.Descriptor()));
  }
  const int ended = WaitFor(child);
  const std::string words = said.Read(kMostSaidBytes);
  if (WIFSIGNALED(ended)) TellOfSignal(WTERMSIG(ended), inside.Get(), words);

  const auto status = static_cast<ExitStatus>(WEXITSTATUS(ended));
  const std::string text = answer.Read(std::numeric_limits<size_t>::max());
  if (text.empty()) {
    throw Fault(ExitStatus::kRuntime,
                WithWords("the runtime ended the process with status " +
                              std::to_string(WEXITSTATUS(ended)) + " inside " + inside.Get().data(),
                          words));
  }
  if (status != ExitStatus::kDone) throw Fault(status, WithDraft(WithWords(text, words)));
  return FromJson(text);
}

ModelDescription DescribeFiles(const DescribeRequest& request) {
  FileIdentity model = IdentifyFile(request.modelPath, "the model", ExitStatus::kModel);
  std::optional<FileIdentity> config;
  if (request.configPath) {
    config = IdentifyFile(*request.configPath, "the configuration", ExitStatus::kModel);
  }
  ModelDescription description = DescribeWithRuntime(request);
  description.model = std::move(model);
  description.configuration = std::move(config);
  description.runtime =
      IdentifyFile(description.runtime->path, "the runtime", ExitStatus::kRuntime);
  return description;
}

}  // namespace vorn::kit
