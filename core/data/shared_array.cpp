// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/data/shared_array.h"

#include "core/base/bulk.h"

namespace kestrane {

namespace {

/// The array of every holder that has nothing yet: it makes empty and moved-from holders free, and
/// it never looks exclusive, since it holds itself. Never destroyed: holders may outlive statics.
template <class T>
const std::shared_ptr<Array<T>>& emptyArray() {
  static const auto* empty = new std::shared_ptr<Array<T>>(std::make_shared<Array<T>>());
  return *empty;
}

}  // namespace

template <class T>
SharedArray<T>::SharedArray() noexcept : array_(emptyArray<T>()), exclusive_(false) {}

template <class T>
SharedArray<T>::SharedArray(std::size_t count)
    : array_(detail::pooledArray<T>(count)), exclusive_(true) {}

template <class T>
SharedArray<T>::SharedArray(const SharedArray& other) noexcept
    : array_(other.array_), exclusive_(false) {
  other.exclusive_.store(false, std::memory_order_release);
}

template <class T>
SharedArray<T>& SharedArray<T>::operator=(const SharedArray& other) noexcept {
  if (this == &other) return *this;
  other.exclusive_.store(false, std::memory_order_release);
  exclusive_.store(false, std::memory_order_release);
  array_ = other.array_;
  return *this;
}

template <class T>
SharedArray<T>::SharedArray(SharedArray&& other) noexcept
    : array_(std::exchange(other.array_, emptyArray<T>())),
      exclusive_(other.exclusive_.exchange(false)) {}

template <class T>
SharedArray<T>& SharedArray<T>::operator=(SharedArray&& other) noexcept {
  if (this == &other) return *this;
  array_ = std::exchange(other.array_, emptyArray<T>());
  exclusive_.store(other.exclusive_.exchange(false), std::memory_order_release);
  return *this;
}

/// Whether the vector may be written as it is.
template <class T>
bool SharedArray<T>::claim() {
  if (exclusive_.load(std::memory_order_acquire)) return true;
  if (array_.use_count() != 1) return false;
  // Another holder may have read the vector up to the moment when it let go. Counting up and down
  // once more orders those reads before our writes, which looking at the count alone does not.
  std::shared_ptr<Array<T>>(array_).reset();
  exclusive_.store(true, std::memory_order_release);
  return true;
}

template <class T>
void SharedArray<T>::replaceBy(std::shared_ptr<Array<T>> array) {
  array_ = std::move(array);
  exclusive_.store(true, std::memory_order_release);
}

template <class T>
Array<T>& SharedArray<T>::write(std::mutex& mutex) {
  if (exclusive_.load(std::memory_order_acquire)) return *array_;
  const std::lock_guard lock(mutex);
  if (!claim()) {
    auto own = detail::pooledArray<T>(array_->size());
    copyElements(array_->data(), array_->size(), own->data());
    replaceBy(std::move(own));
  }
  return *array_;
}

template <class T>
Array<T>& SharedArray<T>::overwrite(std::size_t count) {
  if (claim()) {
    if (array_->size() == count) return *array_;
    // Within the capacity a new size costs nothing; a much smaller one would waste memory.
    if (count <= array_->capacity() && count >= array_->capacity() / 2) {
      array_->resize(count);
      return *array_;
    }
  }
  replaceBy(detail::pooledArray<T>(count));
  return *array_;
}

template <class T>
Array<T>& SharedArray<T>::extend(std::mutex& mutex, std::size_t count) {
  const std::size_t old = array_->size();
  if (count <= old) return write(mutex);
  const std::lock_guard lock(mutex);
  // A large step is copied in parallel into an array that fits; small ones grow by doubling.
  const bool smallStep = count - old <= old / 2 || count <= array_->capacity();
  if (claim() && smallStep) {
    array_->resize(count);
    return *array_;
  }
  auto own = detail::pooledArray<T>(count);
  copyElements(array_->data(), old, own->data());
  replaceBy(std::move(own));
  return *array_;
}

template class SharedArray<float>;
template class SharedArray<Vec3f>;
template class SharedArray<StrandRoot>;
template class SharedArray<std::uint64_t>;

}  // namespace kestrane
