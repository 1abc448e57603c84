// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/base/hash.h"

#include <gtest/gtest.h>

namespace kestrane {
namespace {

TEST(Hash, StepMatchesThePublishedSequence) {
  EXPECT_EQ(mix64(0), 0xE220A8397B1DCDAFu);
}

TEST(Hash, FoldsAreOrderSensitive) {
  EXPECT_NE(hashCombine(1, 2), hashCombine(2, 1));
  EXPECT_NE(hashString(0, "ab"), hashString(0, "ba"));
  EXPECT_NE(hashString(hashString(0, "a"), "bc"), hashString(hashString(0, "ab"), "c"));
}

TEST(Hash, PicksNeverAtZeroAndAlwaysAtOne) {
  int picked = 0;
  for (std::uint64_t key = 0; key < 10000; ++key) {
    EXPECT_FALSE(hashPick(key, 0.0f));
    EXPECT_TRUE(hashPick(key, 1.0f));
    picked += hashPick(key, 0.25f);
  }
  EXPECT_NEAR(picked, 2500, 150);
}

}  // namespace
}  // namespace kestrane
