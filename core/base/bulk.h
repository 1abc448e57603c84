// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <algorithm>
#include <cstring>
#include <type_traits>

#include "core/base/parallel.h"

namespace kestrane {

namespace detail {

/// Bytes below which one thread is done before another has woken up.
inline constexpr std::size_t bulkGrainBytes = 1 << 19;

template <class T, class Body>
void bulkLoop(std::size_t count, Body&& body) {
  constexpr std::size_t grain = bulkGrainBytes / sizeof(T);
  if (count <= 2 * grain) {
    body(std::size_t{0}, count);
  } else {
    isolatedRange(0, count, grain, body);
  }
}

}  // namespace detail

/// Copies plain elements between arrays that do not overlap, on several threads where there are
/// many: much of the time is the first touch of fresh memory. May be called under a lock.
template <class T>
void copyElements(const T* from, std::size_t count, T* to) {
  static_assert(std::is_trivially_copyable_v<T>);
  if (count == 0) return;
  detail::bulkLoop<T>(count, [=](std::size_t first, std::size_t last) {
    std::memcpy(static_cast<void*>(to + first), from + first, (last - first) * sizeof(T));
  });
}

/// Gives plain elements one value, in the same way.
template <class T>
void fillElements(T* to, std::size_t count, T value) {
  static_assert(std::is_trivially_copyable_v<T>);
  detail::bulkLoop<T>(
      count, [=](std::size_t first, std::size_t last) { std::fill(to + first, to + last, value); });
}

}  // namespace kestrane
