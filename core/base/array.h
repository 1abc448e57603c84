// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <memory>
#include <type_traits>
#include <utility>
#include <vector>

namespace kestrane {

namespace detail {

/// An allocator whose resize leaves plain elements uninitialised: large arrays are about to be
/// written whole, and touching their memory twice costs more than the work on them.
template <class T>
struct UninitialisedAllocator {
  using value_type = T;

  UninitialisedAllocator() = default;
  template <class U>
  UninitialisedAllocator(const UninitialisedAllocator<U>&) {}

  T* allocate(std::size_t count) { return std::allocator<T>().allocate(count); }
  void deallocate(T* memory, std::size_t count) { std::allocator<T>().deallocate(memory, count); }

  template <class U, class... Arguments>
  void construct(U* place, Arguments&&... arguments) {
    constexpr bool bulk = std::is_trivially_copyable_v<U> && std::is_trivially_destructible_v<U>;
    if constexpr (sizeof...(Arguments) > 0 || !bulk) {
      ::new (static_cast<void*>(place)) U(std::forward<Arguments>(arguments)...);
    }
  }
  bool operator==(const UninitialisedAllocator&) const = default;
};

}  // namespace detail

/// The vector of bulk data. Array<T>(n) and resize(n) leave new plain elements (numbers, Vec3f,
/// StrandRoot) uninitialised; pass a value where one is wanted.
template <class T>
using Array = std::vector<T, detail::UninitialisedAllocator<T>>;

}  // namespace kestrane
