#include "kit/launch/machine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "support/files.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using vorn::kit::DescribeMachine;
using vorn::kit::MachineFacts;
using vorn::kit::MachineMoment;
using vorn::kit::TakeMoment;

// A machine of files.
class Machine : public testing::Test {
 protected:
  void Write(const std::string& name, const std::string& text) {
    support::WriteFile(folder_.Path() / name, text);
  }

  std::string Root() const { return folder_.Path().string(); }

 private:
  support::TempDir folder_;
};

TEST_F(Machine, ThatTellsNothingIsDescribedByWhatTheKernelTells) {
  const MachineFacts machine = DescribeMachine(Root());
  EXPECT_NE(machine.host, "");
  EXPECT_EQ(machine.kernel.substr(0, 6), "Linux ");
  EXPECT_EQ(machine.processor, "");
  EXPECT_EQ(machine.cores, static_cast<uint64_t>(sysconf(_SC_NPROCESSORS_CONF)));
  EXPECT_EQ(machine.governor, std::nullopt);
  EXPECT_EQ(machine.loadAverage, std::nullopt);
  EXPECT_EQ(machine.memoryTotalBytes, std::nullopt);
  EXPECT_EQ(machine.memoryAvailableBytes, std::nullopt);
  EXPECT_EQ(machine.container, std::nullopt);
}

TEST_F(Machine, TellsItsLoadMemoryAndGovernor) {
  Write("proc/loadavg", "1.25 0.80 0.50 1/200 4711\n");
  Write("proc/meminfo", "MemTotal:        2048 kB\nMemFree: 17 kB\nMemAvailable:    1024 kB\n");
  Write("sys/devices/system/cpu/cpu0/cpufreq/scaling_governor", "schedutil\n");
  const MachineFacts machine = DescribeMachine(Root());
  EXPECT_EQ(machine.loadAverage, 1.25);
  EXPECT_EQ(machine.memoryTotalBytes, 2048U * 1024U);
  EXPECT_EQ(machine.memoryAvailableBytes, 1024U * 1024U);
  EXPECT_EQ(machine.governor, "schedutil");
}

TEST_F(Machine, BelievesNoNumberThatIsNone) {
  Write("proc/loadavg", "high\n");
  Write("proc/meminfo", "MemTotal: much\nXMemAvailable: 5 kB\nMemAvailable:");
  const MachineFacts machine = DescribeMachine(Root());
  EXPECT_EQ(machine.loadAverage, std::nullopt);
  EXPECT_EQ(machine.memoryTotalBytes, std::nullopt);
  EXPECT_EQ(machine.memoryAvailableBytes, std::nullopt);
}

TEST_F(Machine, NamesItsProcessorOrItsBoard) {
  Write("proc/device-tree/model", std::string("A board, revision 2\0", 20));
  EXPECT_EQ(DescribeMachine(Root()).processor, "A board, revision 2");
  Write("proc/cpuinfo", "processor\t: 0\nCPU part\t: 0xd03\n");
  EXPECT_EQ(DescribeMachine(Root()).processor, "A board, revision 2");
  Write("proc/cpuinfo", "processor\t: 0\nHardware\t: A chip\nModel\t: Another name");
  EXPECT_EQ(DescribeMachine(Root()).processor, "A chip");
  Write("proc/cpuinfo", "Model\t: Its name");
  EXPECT_EQ(DescribeMachine(Root()).processor, "Its name");
  Write("proc/cpuinfo", "model\t\t: 7\nmodel name\t: A core at 2 GHz\nflags\t\t: a: b\n");
  EXPECT_EQ(DescribeMachine(Root()).processor, "A core at 2 GHz");
}

TEST_F(Machine, KnowsContainers) {
  Write("run/.containerenv", "");
  EXPECT_EQ(DescribeMachine(Root()).container, "podman");
  Write(".dockerenv", "");
  EXPECT_EQ(DescribeMachine(Root()).container, "docker");
}

TEST_F(Machine, HasMoments) {
  Write("proc/17/status", "Name:\tvorn-run\nVmPeak:\t  99 kB\nVmRSS:\t      12 kB\n");
  Write("proc/meminfo", "MemTotal: 100 kB\nMemAvailable: 50 kB\n");
  Write("sys/devices/system/cpu/cpu0/cpufreq/scaling_cur_freq", "1800000\n");
  const MachineMoment moment = TakeMoment(17, Root());
  EXPECT_GT(moment.realtimeNs, 1'600'000'000'000'000'000U);
  EXPECT_THAT(moment.frequencyKhz, ElementsAre(1800000U));
  EXPECT_THAT(moment.temperatureMilliC, IsEmpty());
  EXPECT_EQ(moment.rssBytes, 12U * 1024U);
  EXPECT_EQ(moment.memoryAvailableBytes, 50U * 1024U);
  EXPECT_EQ(TakeMoment(18, Root()).rssBytes, std::nullopt);
}

// A zone may tell no temperature, and two may have one name, or none.
TEST_F(Machine, TellsEachTemperatureByItsZone) {
  const std::string zones = "sys/class/thermal/thermal_zone";
  Write(zones + "0/temp", "41500\n");
  Write(zones + "0/type", "cpu-thermal\n");
  Write(zones + "1/type", "off\n");
  Write(zones + "2/temp", "-5000");
  Write(zones + "2/type", "cpu-thermal\n");
  Write(zones + "3/temp", "7\n");
  Write(zones + "5/temp", "9\n");  // behind a gap there is none
  EXPECT_THAT(TakeMoment(17, Root()).temperatureMilliC,
              ElementsAre(Pair("3", 7), Pair("cpu-thermal", 41500), Pair("cpu-thermal2", -5000)));
}

TEST(ThisMachine, HasAMomentNow) {
  const MachineMoment moment = TakeMoment(getpid());
  EXPECT_GT(moment.rssBytes.value_or(0), 0U);
  EXPECT_GT(moment.memoryAvailableBytes.value_or(0), 0U);
}

}  // namespace
