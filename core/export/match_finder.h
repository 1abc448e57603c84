// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

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
/// Here every hash has a ring of its last 64 positions, beside them the fourth and the fifth byte
/// of each, so that the candidates that agree in four or five bytes are told from the others all at
/// once. One thread uses a finder; it may be started again and again.
class MatchFinder {
 public:
  static constexpr std::size_t windowSize = 32768;
  static constexpr std::size_t longestMatch = 258;

  MatchFinder();

  /// Makes the finder ready for positions from `begin` on.
  void start(std::span<const std::uint8_t> bytes, std::size_t begin);
  /// The longest match at `position`, the first at `begin`, every other behind the last one by 1 to
  /// `longestMatch` bytes: by the length of the answer where there was a match.
  Match longest(std::size_t position);

 private:
  static constexpr std::size_t hashCount = 32768;
  static constexpr std::uint32_t mostCandidates = 48;
  static constexpr std::uint32_t ringSize = 64;

  /// Positions of one hash, by their low 16 bits. The ring is filled from its end, so that going up
  /// from any slot leads to ever earlier positions.
  struct alignas(64) Ring {
    std::uint8_t fourthBytes[ringSize];
    std::uint8_t fifthBytes[ringSize];
    std::uint16_t places[ringSize];
  };
  struct Query;

  void enter(std::size_t last);
  void beginBlock();
  std::uint64_t eightBytes(std::size_t position) const;
  bool deepInRun(std::size_t position, std::uint64_t key) const;
  static Match longestOf(const Query& query, std::uint64_t candidates);
  static Match longestInRuns(const Query& query, std::uint64_t candidates);
  static Match longestNearEnd(const Query& query);
  static Match nearestOf(const Query& query, std::uint64_t candidates, std::uint32_t length);

  std::span<const std::uint8_t> bytes_;
  std::size_t entered_ = 0;   // positions before this one are in the rings
  std::size_t blockEnd_ = 0;  // blocks of 32,768 positions
  bool inRun_ = false;        // everything not entered yet repeats the byte before it
  Array<Ring> rings_;         // by hash; never cleared, as counts tell what is in them
  /// How many positions of a hash were entered: in all, before the current block, and before the
  /// block ahead of it. What came after those last ones lies less than 65,536 bytes back.
  Array<std::uint16_t> counts_;
  Array<std::uint16_t> countsBefore_;
  Array<std::uint16_t> staleCounts_;
};

}  // namespace kestrane::detail
