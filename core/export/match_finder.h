// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

#include "core/base/array.h"

namespace kestrane::detail {

/// An earlier place whose bytes repeat at the current position.
struct Match {
  std::uint32_t length = 0;  // 0: none of 3 bytes or more
  std::uint32_t distance = 0;
};

/// Finds the longest match of a position: of the 48 nearest earlier positions within 32,768 bytes
/// whose three bytes have the same hash, the one that repeats longest, the nearest of equals. The
/// answer depends on the bytes and the position alone, not on what was asked before.
///
/// The classic search follows a chain of positions per hash and waits for memory at every link.
/// Here the positions of a block of 32,768 bytes are sorted by hash instead, each with the two
/// bytes that stand behind the three, so that the candidates of a position lie side by side, and
/// those that agree in five bytes are told from the others many at a time. The block of the
/// positions being asked and the block before it cover every distance. One thread uses a finder; it
/// may be started again and again.
class MatchFinder {
 public:
  static constexpr std::size_t windowSize = 32768;
  static constexpr std::size_t longestMatch = 258;

  MatchFinder();

  /// Makes the finder ready for positions from `begin` to `end` - 1.
  void start(std::span<const std::uint8_t> bytes, std::size_t begin, std::size_t end);
  /// The longest match at `position`, which never goes back between calls and goes on by 1 to
  /// `longestMatch` bytes.
  Match longest(std::size_t position);

 private:
  static constexpr std::size_t hashCount = 32768;
  static constexpr std::size_t mostCandidates = 48;

  /// The positions of some bytes, sorted by hash, ascending within a hash. Positions are counted
  /// from the base, which wraps below 0 where the data begins inside the block.
  struct Block {
    std::size_t base = 0;
    /// A position in the low half, the fourth and fifth byte there in the high half. 48 entries of
    /// no meaning stand in front, so that as many can be looked at before any entry.
    Array<std::uint32_t> entries;
    Array<std::uint16_t> bounds;  // hash h has the entries bounds[h] to bounds[h + 1] - 1
  };
  /// The candidates in one block: `count` entries before `end`, the nearest last.
  struct Candidates {
    const std::uint32_t* end = nullptr;
    std::size_t count = 0;
    std::size_t base = 0;
    std::uint32_t leastPlace = 0;  // what has a lower place is too far away

    std::uint64_t all() const;
    std::uint64_t agreeing(std::uint32_t entry, std::uint32_t mask) const;
    template <class Visit>
    bool visit(std::uint64_t which, const Visit& visitor) const;
  };

  void enter(Block& block, std::size_t first, std::size_t last);
  void countHashes(Block& block, std::size_t first, std::size_t last);
  std::uint64_t eightBytes(std::size_t position) const;
  bool deepInRun(std::size_t position) const;
  std::size_t sharedLength(std::size_t a, std::size_t b, std::size_t from, std::size_t limit) const;

  std::span<const std::uint8_t> bytes_;
  std::size_t end_ = 0;
  std::size_t blockEnd_ = 0;
  Block current_;
  Block previous_;
  /// By position in the current block: its hash while the block is sorted, then its entry.
  Array<std::uint16_t> entryOf_;
  std::vector<std::pair<std::uint32_t, std::uint32_t>> leftOut_;  // positions of that block
};

}  // namespace kestrane::detail
