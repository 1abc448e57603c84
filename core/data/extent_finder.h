// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <algorithm>

#include "core/data/strand_set.h"

namespace kestrane {

/// Bounds a set block by block, for a loop that makes its points and has those of a block at hand:
/// they need not be read from memory again. Different blocks may be bounded by different threads.
class ExtentFinder {
 public:
  static constexpr std::size_t blockStrands = 256;

  /// The set must have its final layout.
  explicit ExtentFinder(const StrandSet& set);

  std::size_t blockCount() const { return (set_.strandCount() + blockStrands - 1) / blockStrands; }
  std::size_t begin(std::size_t block) const { return block * blockStrands; }
  std::size_t end(std::size_t block) const {
    return std::min(set_.strandCount(), (block + 1) * blockStrands);
  }
  /// Once the block's points are there.
  void find(std::size_t block);
  /// Once all blocks are bounded: from now on the set knows its extent.
  Extent keep();

 private:
  const StrandSet& set_;
  std::vector<Extent> pieces_;
};

}  // namespace kestrane
