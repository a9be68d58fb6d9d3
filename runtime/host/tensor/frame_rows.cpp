// Addresses of frames.
#include "host/tensor/frame_rows.h"

#include <cstring>

#include "host/tensor/element_type.h"

namespace vorn::host {
namespace {

uint64_t Extent(const Shape& shape, size_t from, size_t to) {
  uint64_t elements = 1;
  for (size_t i = from; i < to; ++i) elements *= static_cast<uint64_t>(shape[i]);
  return elements;
}

/// Where a frame begins in a block.
std::byte* InBlock(const FrameRows& rows, const BlockView& block, vorn_data_type type,
                   uint64_t outer, uint64_t frame) {
  if (rows.areElements) return block.address + outer * block.stride + frame * ElementBytes(type);
  return block.address + (outer * rows.frames + frame) * rows.rows * block.stride;
}

uint64_t DenseOffset(const FrameRows& rows, vorn_data_type type, uint64_t outer,
                     uint64_t denseFrames) {
  return outer * denseFrames * rows.rows * rows.columns * ElementBytes(type);
}

/// How many rows and columns `count` frames are.
RowMove Extents(const FrameRows& rows, uint64_t count) {
  RowMove move;
  move.rows = rows.areElements ? 1 : rows.rows * count;
  move.columns = rows.areElements ? count : rows.columns;
  return move;
}

}  // namespace

FrameRows FrameRowsOf(const Shape& shape, size_t axis) {
  FrameRows rows = {.outer = Extent(shape, 0, axis),
                    .frames = Extent(shape, axis, axis + 1),
                    .areElements = axis + 1 == shape.size()};
  if (rows.areElements) return rows;
  rows.rows = Extent(shape, axis + 1, shape.size() - 1);
  rows.columns = Extent(shape, shape.size() - 1, shape.size());
  return rows;
}

uint64_t FrameBytesIn(const FrameRows& rows, uint64_t stride, vorn_data_type type) {
  return rows.areElements ? ElementBytes(type) : rows.rows * stride;
}

RowMove MoveOutOfBlock(const FrameRows& rows, const BlockView& block, vorn_data_type type,
                       std::byte* dense, uint64_t denseFrames, FrameSpan span, uint64_t outer) {
  RowMove move = Extents(rows, span.count);
  move.from = InBlock(rows, block, type, outer, span.first);
  move.fromStride = block.stride;
  move.to = dense + DenseOffset(rows, type, outer, denseFrames);
  move.toStride = move.columns * ElementBytes(type);
  move.fromType = type;
  move.toType = type;
  return move;
}

RowMove MoveIntoBlock(const FrameRows& rows, const BlockView& block, vorn_data_type denseType,
                      vorn_data_type blockType, const std::byte* dense, uint64_t denseFrames,
                      FrameSpan span, uint64_t outer) {
  RowMove move = Extents(rows, span.count);
  move.from = dense + DenseOffset(rows, denseType, outer, denseFrames);
  move.fromStride = move.columns * ElementBytes(denseType);
  move.to = InBlock(rows, block, blockType, outer, span.first);
  move.toStride = block.stride;
  move.fromType = denseType;
  move.toType = blockType;
  return move;
}

void ZeroFrames(const FrameRows& rows, const BlockView& block, vorn_data_type type,
                FrameSpan span) {
  if (span.count == 0) return;
  const RowMove extents = Extents(rows, span.count);
  for (uint64_t outer = 0; outer < rows.outer; ++outer) {
    std::byte* row = InBlock(rows, block, type, outer, span.first);
    for (uint64_t r = 0; r < extents.rows; ++r) {
      std::memset(row + r * block.stride, 0, extents.columns * ElementBytes(type));
    }
  }
}

}  // namespace vorn::host
