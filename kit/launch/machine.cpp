// Small files of /proc and /sys.
#include "kit/launch/machine.h"

#include <fcntl.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <ctime>
#include <string>

namespace vorn::kit {
namespace {

constexpr size_t kMostBytes = 65536;
constexpr uint64_t kKibi = 1024;
constexpr uint64_t kMostCores = 4096;
constexpr int kMostZones = 256;

std::string ReadSmall(const std::string& path) {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return "";
  std::string text(kMostBytes, '\0');
  size_t done = 0;
  while (done < text.size()) {
    const ssize_t got = read(fd, text.data() + done, text.size() - done);
    if (got <= 0) break;
    done += static_cast<size_t>(got);
  }
  close(fd);
  text.resize(done);
  return text;
}

std::string FirstLine(const std::string& path) {
  const std::string text = ReadSmall(path);
  return text.substr(0, text.find('\n'));
}

template <typename Number>
std::optional<Number> NumberIn(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
  Number number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc{} ? std::optional(number) : std::nullopt;
}

// The number behind "NAME:" at the beginning of a line.
std::optional<uint64_t> Member(const std::string& text, const std::string& name) {
  const size_t at = text.starts_with(name) ? 0 : text.find("\n" + name);
  if (at == std::string::npos) return std::nullopt;
  return NumberIn<uint64_t>(std::string_view(text).substr(text.find(':', at) + 1));
}

std::optional<uint64_t> MemoryBytes(const std::string& meminfo, const std::string& name) {
  const auto kibi = Member(meminfo, name + ":");
  return kibi ? std::optional(*kibi * kKibi) : std::nullopt;
}

std::string Processor(const std::string& root) {
  const std::string text = ReadSmall(root + "/proc/cpuinfo");
  for (const char* key : {"model name", "Hardware", "Model"}) {
    const size_t at = text.find(key);
    const size_t colon = at == std::string::npos ? at : text.find(": ", at);
    if (colon == std::string::npos) continue;
    return text.substr(colon + 2, text.find('\n', colon) - colon - 2);
  }
  std::string model = FirstLine(root + "/proc/device-tree/model");
  while (!model.empty() && model.back() == '\0') model.pop_back();
  return model;
}

std::optional<std::string> Container(const std::string& root) {
  if (access((root + "/.dockerenv").c_str(), F_OK) == 0) return "docker";
  if (access((root + "/run/.containerenv").c_str(), F_OK) == 0) return "podman";
  return std::nullopt;
}

std::string Core(const std::string& root, uint64_t core) {
  return root + "/sys/devices/system/cpu/cpu" + std::to_string(core) + "/cpufreq/";
}

uint64_t Cores() {
  const long cores = sysconf(_SC_NPROCESSORS_CONF);
  return cores < 0 ? 0 : std::min(static_cast<uint64_t>(cores), kMostCores);
}

}  // namespace

MachineFacts DescribeMachine(const std::string& root) {
  MachineFacts machine;
  utsname system{};
  if (uname(&system) == 0) {
    machine.host = system.nodename;
    machine.kernel = std::string(system.sysname) + " " + system.release + " " + system.machine;
  }
  machine.processor = Processor(root);
  machine.cores = Cores();
  const std::string governor = FirstLine(Core(root, 0) + "scaling_governor");
  if (!governor.empty()) machine.governor = governor;
  const std::string load = FirstLine(root + "/proc/loadavg");
  char* end = nullptr;
  const double average = std::strtod(load.c_str(), &end);
  if (end != load.c_str()) machine.loadAverage = average;
  const std::string memory = ReadSmall(root + "/proc/meminfo");
  machine.memoryTotalBytes = MemoryBytes(memory, "MemTotal");
  machine.memoryAvailableBytes = MemoryBytes(memory, "MemAvailable");
  machine.container = Container(root);
  return machine;
}

MachineMoment TakeMoment(pid_t pid, const std::string& root) {
  MachineMoment moment;
  moment.realtimeNs = RealtimeNs();
  const uint64_t cores = Cores();
  for (uint64_t core = 0; core < cores; ++core) {
    const auto frequency = NumberIn<uint64_t>(FirstLine(Core(root, core) + "scaling_cur_freq"));
    if (!frequency) break;  // none of them tells
    moment.frequencyKhz.push_back(*frequency);
  }
  for (int zone = 0; zone < kMostZones; ++zone) {
    const std::string folder =
        root + "/sys/class/thermal/thermal_zone" + std::to_string(zone) + "/";
    const auto temperature = NumberIn<int64_t>(FirstLine(folder + "temp"));
    if (!temperature) {
      if (access(folder.c_str(), F_OK) != 0) break;
      continue;
    }
    std::string name = FirstLine(folder + "type");
    if (name.empty() || moment.temperatureMilliC.contains(name)) name += std::to_string(zone);
    moment.temperatureMilliC[name] = *temperature;
  }
  const std::string status = ReadSmall(root + "/proc/" + std::to_string(pid) + "/status");
  moment.rssBytes = MemoryBytes(status, "VmRSS");
  moment.memoryAvailableBytes = MemoryBytes(ReadSmall(root + "/proc/meminfo"), "MemAvailable");
  return moment;
}

uint64_t RealtimeNs() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1000000000U + static_cast<uint64_t>(now.tv_nsec);
}

}  // namespace vorn::kit
