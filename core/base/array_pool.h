// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "core/base/array.h"
#include "core/base/vec.h"

namespace kestrane::detail {

/// Recycles very large arrays: an operator chain over millions of strands takes and returns arrays
/// of tens of megabytes on every evaluation, and faulting in fresh memory costs more than the work.
/// One process-wide pool per element type; safe from any thread; holds at most two arrays. Arrays
/// below 4 MiB never enter it, which keeps the common small case free of locks.
template <class T>
class ArrayPool {
 public:
  static constexpr std::size_t smallestBytes = 0x400000;
  static constexpr std::size_t mostArrays = 2;

  /// An array of exactly `count` elements with old values in it, or null if none is held.
  static std::unique_ptr<Array<T>> take(std::size_t count);

  /// Keeps the array for a later take, or frees it; the oldest goes when a third comes.
  static void give(std::unique_ptr<Array<T>> array) noexcept;

  /// How many arrays are held now.
  static std::size_t size();
};

/// The deleter of shared arrays: gives them to their pool.
template <class T>
struct ToArrayPool {
  void operator()(Array<T>* array) const noexcept {
    ArrayPool<T>::give(std::unique_ptr<Array<T>>(array));
  }
};

/// A shared array of `count` elements with unspecified values, recycled where the pool has one.
template <class T>
std::shared_ptr<Array<T>> pooledArray(std::size_t count) {
  std::unique_ptr<Array<T>> array = ArrayPool<T>::take(count);
  if (!array) array = std::make_unique<Array<T>>(count);
  return std::shared_ptr<Array<T>>(array.release(), ToArrayPool<T>());
}

extern template class ArrayPool<float>;
extern template class ArrayPool<Vec3f>;
extern template class ArrayPool<StrandRoot>;
extern template class ArrayPool<std::uint64_t>;

}  // namespace kestrane::detail
