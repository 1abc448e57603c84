// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/base/hash.h"

#include <gtest/gtest.h>

namespace kestrane {
namespace {

TEST(Hash, StepMatchesThePublishedSequence) {
  EXPECT_EQ(mix64(0), 0xE220A8397B1DCDAFu);
}

// Worked out apart from this code, from the formulas: seeds and keys must never change.
TEST(Hash, FoldsAreTheAgreedOnes) {
  EXPECT_EQ(hashCombine(1, 2), 0xA3EFBCCE2E044F84u);
  EXPECT_EQ(hashCombine(0x123456789ABCDEF0u, UINT64_MAX), 0x91F04DD8FDD937F8u);
  EXPECT_EQ(hashString(0, "a\xC3\xA9"), 0x9F1AE37946C55794u);
  EXPECT_EQ(hashNumber(7, 0.1), 0x8729A00424017E7Fu);
  EXPECT_EQ(hashNumber(7, 0.1f), 0xF410FBA49EBB1336u);
}

TEST(Hash, UnitFloatsAreTheTop24Bits) {
  EXPECT_EQ(unitFloat(UINT64_MAX), 1.0f - 0x1p-24f);
  EXPECT_EQ(unitFloat(UINT64_MAX >> 24), 0.0f);
  EXPECT_EQ(unitFloat(std::uint64_t{1} << 40), 0x1p-24f);
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
