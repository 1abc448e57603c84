// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/base/array_pool.h"

#include <deque>
#include <mutex>

namespace kestrane::detail {

namespace {

template <class T>
struct PoolState {
  std::mutex mutex;
  std::deque<std::unique_ptr<Array<T>>> arrays;  // oldest first
};

/// Never destroyed: arrays are given back while static objects go.
template <class T>
PoolState<T>& poolState() {
  static auto* state = new PoolState<T>;
  return *state;
}

template <class T>
constexpr bool worthKeeping(std::size_t count) {
  return count >= ArrayPool<T>::smallestBytes / sizeof(T) &&
         count * sizeof(T) >= ArrayPool<T>::smallestBytes;
}

}  // namespace

template <class T>
std::unique_ptr<Array<T>> ArrayPool<T>::take(std::size_t count) {
  if (!worthKeeping<T>(count)) return nullptr;
  PoolState<T>& state = poolState<T>();
  const std::lock_guard lock(state.mutex);
  for (auto place = state.arrays.begin(); place != state.arrays.end(); ++place) {
    if ((*place)->size() != count) continue;
    std::unique_ptr<Array<T>> found = std::move(*place);
    state.arrays.erase(place);
    return found;
  }
  return nullptr;
}

template <class T>
void ArrayPool<T>::give(std::unique_ptr<Array<T>> array) noexcept {
  if (!array || !worthKeeping<T>(array->size())) return;
  std::unique_ptr<Array<T>> oldest;  // freed after the lock is released
  try {
    PoolState<T>& state = poolState<T>();
    const std::lock_guard lock(state.mutex);
    state.arrays.push_back(std::move(array));
    if (state.arrays.size() > mostArrays) {
      oldest = std::move(state.arrays.front());
      state.arrays.pop_front();
    }
  } catch (const std::bad_alloc&) {
    // No room to remember the array: it is simply freed.
  }
}

template <class T>
std::size_t ArrayPool<T>::size() {
  PoolState<T>& state = poolState<T>();
  const std::lock_guard lock(state.mutex);
  return state.arrays.size();
}

template class ArrayPool<float>;
template class ArrayPool<Vec3f>;
template class ArrayPool<StrandRoot>;
template class ArrayPool<std::uint64_t>;

}  // namespace kestrane::detail
