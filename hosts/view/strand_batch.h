// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <vector>

#include "core/base/array.h"
#include "core/base/vec.h"
#include "core/ops/strand_color.h"

namespace kestrane {

/// Some strands as the graphics card takes them: per point its place and width, and its colour and
/// direction packed; triangle strips of two vertices a point, or line strips of one.
struct StrandBatch {
  static constexpr std::size_t mostPoints = 1u << 18;
  static constexpr std::uint32_t restart = 0xffffffffu;

  Array<Vec4f> points;           // w: width
  Array<std::uint32_t> looks;    // two a point: colour with the share of the length, tangent
  Array<std::uint32_t> indices;  // 2 point + side, or 2 point alone; `restart` after each strand
};

/// Cuts strands into batches of bounded size. Strands of fewer than 2 points are left out; longer
/// ones than a batch holds are cut short.
class StrandBatches {
 public:
  /// Takes every stride-th strand, as ribbons or as lines. The sets must outlive this.
  StrandBatches(const StrandSet& strands, const StrandColorReader& colors, bool ribbons,
                std::size_t stride = 1);

  bool ribbons() const { return ribbons_; }
  std::size_t strandCount() const { return order_.size(); }
  std::size_t strandsDone() const { return next_; }
  /// Fills the batch with the next strands; false when there are none. Parallel.
  bool next(StrandBatch& batch);

 private:
  const StrandSet& strands_;
  const StrandColorReader& colors_;
  const bool ribbons_;
  std::vector<std::uint32_t> order_;
  std::size_t next_ = 0;
};

}  // namespace kestrane
