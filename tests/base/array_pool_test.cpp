// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/base/array_pool.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace kestrane {
namespace {

using Pool = detail::ArrayPool<StrandRoot>;
constexpr std::size_t smallest =
    (Pool::smallestBytes + sizeof(StrandRoot) - 1) / sizeof(StrandRoot);

/// The memory of an array of this size that has been given to the pool.
const StrandRoot* given(std::size_t count) {
  const auto array = detail::pooledArray<StrandRoot>(count);
  return array->data();
}

/// The pool is one per process: pushes out what other tests have left.
void fillPool() {
  for (std::size_t i = 0; i < Pool::mostArrays; ++i) given(smallest + 1000 + i);
}

TEST(ArrayPool, KeepsLargeArraysOfExactlyTheSizeAsked) {
  fillPool();
  const StrandRoot* memory = given(smallest);
  EXPECT_EQ(Pool::take(smallest + 1), nullptr);
  const auto again = Pool::take(smallest);
  ASSERT_NE(again, nullptr);
  EXPECT_EQ(again->data(), memory);
  EXPECT_EQ(again->size(), smallest);
  EXPECT_EQ(Pool::take(smallest), nullptr) << "an array was handed out twice";
}

TEST(ArrayPool, FreesAnArrayOneElementTooSmall) {
  fillPool();
  const std::size_t held = Pool::size();
  given(smallest - 1);
  EXPECT_EQ(Pool::size(), held);
  EXPECT_EQ(Pool::take(smallest - 1), nullptr);
}

TEST(ArrayPool, ThirdArrayPushesOutTheOldest) {
  for (const std::size_t extra : {1, 2, 3}) given(smallest + extra);
  EXPECT_EQ(Pool::size(), Pool::mostArrays);
  EXPECT_EQ(Pool::take(smallest + 1), nullptr);
  EXPECT_NE(Pool::take(smallest + 2), nullptr);
  EXPECT_NE(Pool::take(smallest + 3), nullptr);
}

TEST(ArrayPool, AsksForNoArrayOfAnAbsurdSize) {
  EXPECT_EQ(Pool::take(SIZE_MAX), nullptr);
  EXPECT_EQ(Pool::take(0), nullptr);
  EXPECT_THROW(detail::pooledArray<StrandRoot>(SIZE_MAX / 2), std::length_error);
}

TEST(ArrayPool, ThreadsNeverShareAnArray) {
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t] {
      for (int round = 0; round < 20; ++round) {
        const auto array = detail::pooledArray<StrandRoot>(smallest);
        for (std::size_t i = 0; i < smallest; i += 997) (*array)[i].face = t;
        for (std::size_t i = 0; i < smallest; i += 997) ASSERT_EQ((*array)[i].face, t);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_LE(Pool::size(), Pool::mostArrays);
}

}  // namespace
}  // namespace kestrane
