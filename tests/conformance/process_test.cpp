// The runtime as a whole: up, down, and what it says meanwhile.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <utility>

#include "model.h"

namespace conformance {
namespace {

/// These bring the runtime up by themselves.
class Process : public Contract {};

/// Expects that nothing can be made or used, and that no place for a result is written.
void ExpectDown(const std::string& when) {
  vorn_rt_context* context = nullptr;
  vorn_rt_stream* stream = nullptr;
  void* block = nullptr;
  uint32_t id = 77;
  const char image[16] = {};
  EXPECT_NE(vorn_rt_set_device(Given().device), VORN_SUCCESS) << when;
  EXPECT_NE(vorn_rt_create_context(&context, Given().device), VORN_SUCCESS) << when;
  EXPECT_NE(vorn_rt_create_stream(&stream), VORN_SUCCESS) << when;
  EXPECT_NE(vorn_rt_malloc(&block, 64, VORN_MEM_NORMAL_ONLY), VORN_SUCCESS) << when;
  EXPECT_NE(vorn_mdl_load_from_mem(image, sizeof image, &id), VORN_SUCCESS) << when;
  EXPECT_EQ(vorn_mdl_create_desc(), nullptr) << when;
  EXPECT_EQ(vorn_mdl_create_dataset(), nullptr) << when;
  EXPECT_EQ(context, nullptr) << when;
  EXPECT_EQ(stream, nullptr) << when;
  EXPECT_EQ(block, nullptr) << when;
  EXPECT_EQ(id, 77u) << when;
}

void ComeUpAndGoDown() { const Up up; }

CONTRACT(Process, ComesUpAndGoesDown) { ComeUpAndGoDown(); }

CONTRACT(Process, ComesUpAgain) {
  for (int round = 0; round < 3; ++round) ComeUpAndGoDown();
}

CONTRACT(Process, FinalizeIsHarmlessWithoutInit) {
  vorn_finalize();
  vorn_finalize();
  ComeUpAndGoDown();
  vorn_finalize();
  ComeUpAndGoDown();
}

CONTRACT(Process, FinalizeIsHarmlessAfterAFailedInit) {
  EXPECT_NE(vorn_init("/nonexistent/vorn.json"), VORN_SUCCESS);
  vorn_finalize();
  ComeUpAndGoDown();
}

CONTRACT(Process, ResetIsHarmlessWithoutADevice) {
  vorn_rt_reset_device(Given().device);
  Require(vorn_init(Given().config.c_str()) == VORN_SUCCESS, "vorn_init failed");
  vorn_rt_reset_device(Given().device);
  EXPECT_EQ(vorn_finalize(), VORN_SUCCESS);
  ComeUpAndGoDown();
}

CONTRACT(Process, InitRefusesNoFile) {
  EXPECT_NE(vorn_init(nullptr), VORN_SUCCESS);
  EXPECT_NE(vorn_init("/nonexistent/vorn.json"), VORN_SUCCESS);
  ComeUpAndGoDown();
}

CONTRACT(Process, RefusesWorkBeforeInit) {
  ExpectDown("before vorn_init");
  ComeUpAndGoDown();
}

CONTRACT(Process, RefusesWorkAfterFinalize) {
  ComeUpAndGoDown();
  ExpectDown("after vorn_finalize");
}

/// Takes in everything that the process writes, until its end.
class Catcher {
 public:
  Catcher() : kept_{dup(STDOUT_FILENO), dup(STDERR_FILENO)}, sink_(std::tmpfile()) {
    std::fflush(nullptr);
    dup2(fileno(sink_), STDOUT_FILENO);
    dup2(fileno(sink_), STDERR_FILENO);
  }
  Catcher(const Catcher&) = delete;
  Catcher& operator=(const Catcher&) = delete;
  /// What a contract that ended early said meanwhile is said after all.
  ~Catcher() {
    if (sink_ != nullptr) std::fputs(End().c_str(), stdout);
  }

  /// Ends it; what was written.
  std::string End() {
    std::fflush(nullptr);
    dup2(kept_[0], STDOUT_FILENO);
    dup2(kept_[1], STDERR_FILENO);
    close(kept_[0]);
    close(kept_[1]);
    std::string text(static_cast<size_t>(lseek(fileno(sink_), 0, SEEK_END)), '\0');
    const ssize_t count = pread(fileno(sink_), text.data(), text.size(), 0);
    std::fclose(std::exchange(sink_, nullptr));
    EXPECT_EQ(count, static_cast<ssize_t>(text.size()));
    return text;
  }

 private:
  int kept_[2];
  FILE* sink_;
};

class Silent : public Process {
 protected:
  std::string Lacks() const override { return Given().model.empty() ? "--model is not given" : ""; }
};

CONTRACT(Silent, WritesNothing) {
  vorn_status status = VORN_SUCCESS;
  Catcher catcher;
  {
    const Up up;
    Model model(Given().model);
    const Dataset in = model.Inputs(1);
    Dataset out = model.Outputs();
    status = vorn_mdl_execute(model.Id(), in.Handle(), out.Handle());
    vorn_mdl_execute(model.Id(), nullptr, out.Handle());
    uint32_t id = 0;
    vorn_mdl_load_from_mem(out.Content(0).data(), out.Content(0).size(), &id);
  }
  vorn_init("/nonexistent/vorn.json");
  const std::string written = catcher.End();
  EXPECT_EQ(status, VORN_SUCCESS) << "vorn_mdl_execute";
  EXPECT_EQ(written, "");
}

}  // namespace
}  // namespace conformance
