// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <atomic>
#include <mutex>

#include "core/base/array_pool.h"

namespace kestrane {

/// One array of a strand set, shared between copies until one of them writes. `exclusive` says that
/// this holder alone may write the vector without further checks; copying clears it on both sides,
/// which is why reading a const source still writes the flag, and why it is atomic.
template <class T>
class SharedArray {
 public:
  SharedArray() noexcept;                   // empty; costs no allocation
  explicit SharedArray(std::size_t count);  // unspecified values
  SharedArray(const SharedArray& other) noexcept;
  SharedArray& operator=(const SharedArray& other) noexcept;
  SharedArray(SharedArray&& other) noexcept;  // leaves the other one empty
  SharedArray& operator=(SharedArray&& other) noexcept;

  const Array<T>& read() const { return *array_; }

  /// The vector for writing; detached from other holders first, under `mutex`, where it must be.
  Array<T>& write(std::mutex& mutex);
  /// The vector for writing every element: detached like write, but old values are not copied, and
  /// the array has `count` elements of unspecified value.
  Array<T>& overwrite(std::size_t count);
  /// The vector with elements of unspecified value added, up to `count`; detached like write. Many
  /// small extensions cost amortised constant time an element.
  Array<T>& extend(std::mutex& mutex, std::size_t count);

  /// Whether this holder is the only one.
  bool unique() const { return array_.use_count() == 1; }
  /// Whether both hold one and the same vector.
  bool sharesWith(const SharedArray& other) const { return array_ == other.array_; }

 private:
  bool claim();
  void replaceBy(std::shared_ptr<Array<T>> array);

  std::shared_ptr<Array<T>> array_;  // never null
  mutable std::atomic<bool> exclusive_;
};

extern template class SharedArray<float>;
extern template class SharedArray<Vec3f>;
extern template class SharedArray<StrandRoot>;
extern template class SharedArray<std::uint64_t>;

}  // namespace kestrane
