// The operations of vorn.h, each of which notes that it begins, calls the next runtime, and notes
// how it ended. libvorn-trace.so is preloaded, or stands in for a libvorn.so with VORN_NEXT behind
// it.
#include <atomic>
#include <type_traits>

#include "layers/common/next_runtime.h"
#include "layers/trace/trace_writer.h"
#include "shared/operations/words.h"

namespace vorn::layers {
namespace {

using operations::Role;

// Whatever a parameter or an answer is, as one number.
template <typename Value>
uint64_t AsWord(Value value) {
  if constexpr (std::is_pointer_v<Value>) {
    return reinterpret_cast<uint64_t>(value);
  } else {
    return static_cast<uint64_t>(static_cast<int64_t>(value));
  }
}

void Commit(trace::Record& record, uint64_t number, trace::Side side, uint16_t operation,
            uint16_t words) {
  record.thread = ThreadId();
  record.operation = operation;
  record.words = words;
  record.side = side;
  std::atomic_ref(record.number).store(number, std::memory_order_release);
}

// What the runtime wrote to a place: a handle, a number or an address. A dims record does not fit.
template <typename Parameter>
void TakeResult(trace::Record& record, uint16_t& words, typename Parameter::Type place) {
  if constexpr (Parameter::kRole == Role::MADE || Parameter::kRole == Role::FILLED) {
    if constexpr (!std::is_same_v<typename Parameter::Type, vorn_mdl_io_dims*>) {
      if (place != nullptr) record.word[words++] = AsWord(*place);
    }
  }
}

template <typename Answer>
bool IsSuccess(Answer answer) {
  if constexpr (std::is_same_v<Answer, vorn_status>) {
    return answer == VORN_SUCCESS;
  } else {
    return true;
  }
}

// One operation, for the words of one call.
template <typename Answer, typename... Parameters>
struct Call {
  uint16_t operation;
  Answer (*next)(typename Parameters::Type...);

  Answer operator()(typename Parameters::Type... words) const {
    if (next == nullptr) return Refusal<Answer>();
    uint64_t number = 0;
    trace::Slot* slot = BeginCall(Next().path, operation, number);
    if (slot == nullptr) return next(words...);
    uint16_t count = 0;
    ((slot->before.word[count++] = AsWord(words)), ...);
    slot->before.timeNs = MonotonicNs();
    Commit(slot->before, number, trace::Side::kBefore, operation, count);

    const Answer answer = next(words...);
    slot->behind.timeNs = MonotonicNs();
    count = 0;
    slot->behind.word[count++] = AsWord(answer);
    if (IsSuccess(answer)) (TakeResult<Parameters>(slot->behind, count, words), ...);
    Commit(slot->behind, number, trace::Side::kBehind, operation, count);
    return answer;
  }
};

// The answer's type comes from the function, since the table has no comma to put it in front.
template <typename... Parameters>
struct Operation {
  template <typename Answer>
  static Call<Answer, Parameters...> Of(uint16_t number,
                                        Answer (*next)(typename Parameters::Type...)) {
    return {number, next};
  }
};

// With the library, before the program's first call: that it was loaded shows in a file.
[[gnu::constructor]] void Begin() { BeginTrace(); }
[[gnu::destructor]] void End() { CloseTrace(); }

}  // namespace
}  // namespace vorn::layers

#define VORN_TRACED(name, needs, role, kind, parameters)                          \
  vorn::operations::thing::kind name(VORN_EACH(VORN_DECLARED, parameters)) {      \
    return vorn::layers::Operation<VORN_EACH(VORN_PARAMETER_OF, parameters)>::Of( \
        vorn::operations::kOperation_##name,                                      \
        vorn::layers::Next().name)(VORN_EACH(VORN_NAMED, parameters));            \
  }
extern "C" {
VORN_OPERATIONS(VORN_TRACED, VORN_LISTED)
}
