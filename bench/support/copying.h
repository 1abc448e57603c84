// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstring>
#include <span>

#include "core/base/parallel.h"

namespace kestrane {

/// Copies bytes with memcpy on all threads that loops may use: the measure of whatever writes that
/// many.
inline void copyInParallel(std::span<const std::byte> from, std::byte* to) {
  // Pieces that fit into a core's cache twice; larger ones gain nothing.
  constexpr std::size_t piece = 256 * 1024;
  const std::size_t pieces = (from.size() + piece - 1) / piece;
  parallelRange(0, pieces, 1, [&](std::size_t first, std::size_t last) {
    const std::size_t begin = first * piece, end = std::min(last * piece, from.size());
    std::memcpy(to + begin, from.data() + begin, end - begin);
  });
}

}  // namespace kestrane
