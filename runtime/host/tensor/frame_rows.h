// Where the frames of a sequence lie in a tensor.
//
// Frames follow each other along one dimension, T. In a block, of [outer.., T, inner.., row]:
//
//     outer 0 | frame 0: R rows | frame 1: R rows | ... | frame T-1 |
//     outer 1 | frame 0: R rows | ...
//
// or, where T is the last dimension, as the elements of a row:
//
//     outer 0 | 0 1 2 ... T-1 |
//     outer 1 | 0 1 2 ... T-1 |
#ifndef VORN_RUNTIME_HOST_TENSOR_FRAME_ROWS_H_
#define VORN_RUNTIME_HOST_TENSOR_FRAME_ROWS_H_

#include <cstddef>
#include <cstdint>

#include "host/tensor/block_view.h"
#include "host/tensor/presentation.h"
#include "host/tensor/shape.h"

namespace vorn::host {

struct FrameRows {
  uint64_t outer;
  uint64_t frames;       ///< T
  uint64_t rows = 1;     ///< R; 1 where frames are the elements of a row
  uint64_t columns = 1;  ///< of one frame
  bool areElements;
};

/// Of a tensor of that shape with the frames along dimension `axis`.
FrameRows FrameRowsOf(const Shape& shape, size_t axis);

/// The frames from `first` on, `count` of them.
struct FrameSpan {
  uint64_t first;
  uint64_t count;
};

/// Bytes from one frame to the next in a block of that stride.
uint64_t FrameBytesIn(const FrameRows& rows, uint64_t stride, vorn_data_type type);

/// The move of these frames, for one of the outer places, between a block and a dense tensor that
/// begins with the first of them and holds `denseFrames` along T. The types are those of the dense
/// tensor and of the block.
RowMove MoveOutOfBlock(const FrameRows& rows, const BlockView& block, vorn_data_type type,
                       std::byte* dense, uint64_t denseFrames, FrameSpan span, uint64_t outer);
RowMove MoveIntoBlock(const FrameRows& rows, const BlockView& block, vorn_data_type denseType,
                      vorn_data_type blockType, const std::byte* dense, uint64_t denseFrames,
                      FrameSpan span, uint64_t outer);

/// Writes zeros over these frames in a block, and not over its padding.
void ZeroFrames(const FrameRows& rows, const BlockView& block, vorn_data_type type, FrameSpan span);

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_TENSOR_FRAME_ROWS_H_
