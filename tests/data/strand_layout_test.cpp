// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <numeric>
#include <stdexcept>

#include "core/base/parallel.h"
#include "core/data/strand_set.h"
#include "tests/support/groom_checks.h"

namespace kestrane {
namespace {

using test::expectSameStrands;
using test::makeStrands;

/// Strands of 0, 1, 2, ... points, with channels that tell every strand and point apart.
StrandSet makeUnevenStrands(std::size_t count, std::uint64_t firstId) {
  StrandSet set;
  set.addStrandChannel("s", 5.0f);
  set.addPointChannel("p", 6.0f);
  for (std::size_t i = 0; i < count; ++i) {
    std::vector<Vec3f> points;
    std::vector<float> widths;
    for (std::size_t k = 0; k < i % 7; ++k) {
      points.push_back({static_cast<float>(i), static_cast<float>(k), 1.0f});
      widths.push_back(0.5f + static_cast<float>(i * 10 + k));
    }
    set.addStrand(firstId + i, {static_cast<std::int32_t>(i), 0.25f, 0.5f}, points, widths);
  }
  for (std::size_t i = 0; i < count; ++i) (*set.mutableStrandChannel("s"))[i] = 0.5f * i;
  auto& values = *set.mutablePointChannel("p");
  for (std::size_t i = 0; i < values.size(); ++i) values[i] = static_cast<float>(i);
  return set;
}

TEST(StrandLayout, AddedStrandsStandBehindTheOthers) {
  StrandSet set = makeStrands(2, 3);
  set.addStrandChannel("s", 5.0f)[0] = 1.0f;
  set.addPointChannel("p", 6.0f);
  const StrandSet before = set;
  const std::vector<Vec3f> points = {{1, 2, 3}, {4, 5, 6}};
  EXPECT_EQ(set.addStrand(42, {7, 0.1f, 0.2f}, points), 2u);
  EXPECT_EQ(set.addStrand(43, {}, points, std::vector<float>{0.5f, 0.25f}), 3u);
  EXPECT_EQ(set.addStrand(44, {}, {}), 4u);
  test::expectValidGroom(set);
  EXPECT_EQ(set.offsets(), (Array<std::uint64_t>{0, 3, 6, 8, 10, 10}));
  EXPECT_EQ(set.roots()[2], (StrandRoot{7, 0.1f, 0.2f}));
  EXPECT_EQ(set.points()[9], points[1]);
  EXPECT_EQ(Array<float>(set.widths().begin() + 6, set.widths().end()),
            (Array<float>{1, 1, 0.5f, 0.25f}));
  EXPECT_EQ(*set.strandChannel("s"), (Array<float>{1, 5, 5, 5, 5}));
  EXPECT_EQ(*set.pointChannel("p"), Array<float>(10, 6.0f));
  expectSameStrands(set.subset(std::vector<std::uint32_t>{0, 1}), before);
}

TEST(StrandLayout, AddingWrongWidthsThrowsAndChangesNothing) {
  StrandSet set = makeUnevenStrands(5, 1);
  const StrandSet before = set;
  const std::vector<Vec3f> points(3);
  try {
    set.addStrand(9, {}, points, std::vector<float>(2));
    FAIL() << "nothing was thrown";
  } catch (const std::invalid_argument& error) {
    EXPECT_STREQ(error.what(), "StrandSet::addStrand: widths must be empty or match points");
  }
  expectSameStrands(set, before);
}

TEST(StrandLayout, StrandWithoutRoomThrowsAndChangesNothing) {
  StrandSet set = makeUnevenStrands(5, 1);
  const StrandSet before = set;
  // More points than any array can have: nothing gets so far as to read them.
  const Vec3f point;
  const std::span<const Vec3f> absurd(&point, SIZE_MAX / sizeof(Vec3f));
  EXPECT_THROW(set.addStrand(9, {}, absurd), std::length_error);
  expectSameStrands(set, before);
  EXPECT_EQ(set.addStrand(9, {}, {&point, 1}), 5u);
  test::expectValidGroom(set);
}

TEST(StrandLayout, SetMayBeAddedToItself) {
  StrandSet set = makeUnevenStrands(6, 1);
  for (int round = 0; round < 6; ++round) {
    const std::vector<Vec3f> points(set.strandPoints(5).begin(), set.strandPoints(5).end());
    const float* widths = set.widths().data() + set.offsets()[5];
    const std::vector<float> wanted(widths, widths + points.size());
    const std::size_t added = set.addStrand(100, {}, set.strandPoints(5), {widths, points.size()});
    EXPECT_TRUE(std::equal(points.begin(), points.end(), set.strandPoints(added).begin()));
    EXPECT_TRUE(std::equal(wanted.begin(), wanted.end(),
                           set.widths().begin() + static_cast<long>(set.offsets()[added])));
  }
  // The first points of all, which a freed array loses first.
  StrandSet first = makeStrands(1, 3);
  for (int round = 0; round < 20; ++round) first.addStrand(5, {}, first.strandPoints(0));
  for (std::size_t i = 0; i < first.pointCount(); ++i) {
    EXPECT_EQ(first.points()[i], makeStrands(1, 3).points()[i % 3]);
  }
  const StrandSet before = set;
  set.append(set);
  EXPECT_EQ(set.strandCount(), 2 * before.strandCount());
  std::vector<std::uint32_t> half(before.strandCount());
  std::iota(half.begin(), half.end(), 0u);
  expectSameStrands(set.subset(half), before);
  for (std::uint32_t& index : half) index += static_cast<std::uint32_t>(before.strandCount());
  expectSameStrands(set.subset(half), before);
}

TEST(StrandLayout, AppendUnitesTheChannels) {
  StrandSet set = makeStrands(2, 1), other = makeStrands(1, 2, 9);
  set.addStrandChannel("both", 1.0f)[0] = 10.0f;
  set.addStrandChannel("mine", 2.0f)[1] = 20.0f;
  set.addPointChannel("mine", 3.0f);
  other.addStrandChannel("both", 4.0f)[0] = 40.0f;
  other.addStrandChannel("others", 5.0f)[0] = 50.0f;
  other.addPointChannel("others", 6.0f)[1] = 60.0f;
  const StrandSet mine = set;
  set.append(other);
  test::expectValidGroom(set);
  EXPECT_EQ(set.offsets(), (Array<std::uint64_t>{0, 1, 2, 4}));
  EXPECT_EQ(set.strandChannelNames(), (std::vector<std::string>{"both", "mine", "others"}));
  EXPECT_EQ(*set.strandChannel("both"), (Array<float>{10, 1, 40}));
  EXPECT_EQ(*set.strandChannel("mine"), (Array<float>{2, 20, 2}));
  EXPECT_EQ(*set.strandChannel("others"), (Array<float>{5, 5, 50}));
  EXPECT_EQ(*set.pointChannel("mine"), (Array<float>{3, 3, 3, 3}));
  EXPECT_EQ(*set.pointChannel("others"), (Array<float>{6, 6, 6, 60}));
  EXPECT_EQ(set.strandChannelDefault("both"), 1.0f);
  EXPECT_EQ(set.strandChannelDefault("others"), 5.0f);
  EXPECT_EQ(set.ids().back(), other.ids()[0]);
  EXPECT_EQ(set.roots().back(), other.roots()[0]);
  EXPECT_EQ(set.points().back(), other.points()[1]);
  EXPECT_EQ(set.widths().back(), other.widths()[1]);
  // To an empty set all comes over.
  StrandSet start;
  start.append(other);
  expectSameStrands(start, other);
}

TEST(StrandLayout, AppendingAnEmptySetBringsItsChannelsAndDetachesNothing) {
  StrandSet set = makeUnevenStrands(5, 1), empty;
  empty.addStrandChannel("fresh", 7.0f);
  empty.addPointChannel("fresh", 8.0f);
  const StrandSet before = set;
  set.append(empty);
  EXPECT_EQ(*set.strandChannel("fresh"), Array<float>(5, 7.0f));
  EXPECT_EQ(*set.pointChannel("fresh"), Array<float>(set.pointCount(), 8.0f));
  EXPECT_TRUE(set.sharesIdsWith(before) && set.sharesRootsWith(before));
  EXPECT_TRUE(set.sharesOffsetsWith(before) && set.sharesPointsWith(before));
  EXPECT_TRUE(set.sharesWidthsWith(before) && set.sharesStrandChannelWith("s", before));
  EXPECT_TRUE(set.sharesPointChannelWith("p", before));
  test::expectValidGroom(set);
}

TEST(StrandLayout, AttachmentsStayThroughAppendAndResize) {
  StrandSet set = makeStrands(2, 3), other = makeStrands(1, 2, 9);
  set.featherLayers.resize(1);
  set.scaleMeshes.resize(2);
  other.featherLayers.resize(3);
  other.scaleMeshes.resize(3);
  set.append(other);
  set.append(StrandSet());
  set.resizeFromCounts(std::vector<std::uint32_t>{3, 1});
  EXPECT_EQ(set.featherLayers.size(), 1u);
  EXPECT_EQ(set.scaleMeshes.size(), 2u);
  StrandSet bare = makeStrands(2, 3);
  bare.append(other);
  EXPECT_TRUE(bare.featherLayers.empty() && bare.scaleMeshes.empty());
}

TEST(StrandLayout, LargeAppendEqualsTheStrandsOneByOne) {
  const StrandSet parts[] = {makeStrands(30000, 9, 1), makeStrands(1000, 9, 2),
                             makeStrands(40000, 9, 3)};
  StrandSet joined, single;
  for (const StrandSet& part : parts) {
    joined.append(part);
    for (std::size_t i = 0; i < part.strandCount(); ++i) {
      single.addStrand(part.ids()[i], part.roots()[i], part.strandPoints(i),
                       {part.widths().data() + part.offsets()[i], 9});
    }
  }
  expectSameStrands(joined, single);
}

TEST(StrandLayout, ClearKeepsChannelNamesAndDropsTheRest) {
  StrandSet set = makeUnevenStrands(20, 1);
  set.featherLayers.resize(2);
  const StrandSet copy = set;
  set.clear();
  test::expectValidGroom(set);
  EXPECT_EQ(set.strandCount(), 0u);
  EXPECT_EQ(set.strandChannelNames(), std::vector<std::string>{"s"});
  EXPECT_EQ(set.pointChannelDefault("p"), 6.0f);
  EXPECT_TRUE(set.featherLayers.empty());
  expectSameStrands(copy, makeUnevenStrands(20, 1));
  set.append(copy);
  expectSameStrands(set, copy);
}

TEST(StrandLayout, ResizedSetHasDefaultsEverywhere) {
  StrandSet set = makeUnevenStrands(20, 1);
  const StrandSet copy = set;
  const std::vector<std::uint32_t> counts = {3, 0, 2, 1};
  set.resizeFromCounts(counts);
  test::expectValidGroom(copy);
  EXPECT_TRUE(set.validate());
  EXPECT_EQ(set.offsets(), (Array<std::uint64_t>{0, 3, 3, 5, 6}));
  EXPECT_EQ(set.ids(), Array<std::uint64_t>(4, 0));
  EXPECT_EQ(set.roots(), Array<StrandRoot>(4, StrandRoot{-1, 0, 0}));
  EXPECT_EQ(set.points(), Array<Vec3f>(6, Vec3f{}));
  EXPECT_EQ(set.widths(), Array<float>(6, 1.0f));
  EXPECT_EQ(*set.strandChannel("s"), Array<float>(4, 5.0f));
  EXPECT_EQ(*set.pointChannel("p"), Array<float>(6, 6.0f));
  // What is kept is left alone, in the same memory.
  set.mutablePoints()[5] = {1, 2, 3};
  set.mutableWidths()[5] = 0.5f;
  const Vec3f* memory = set.points().data();
  set.resizeFromCounts(counts, StrandSet::keepPoints | StrandSet::keepWidths);
  EXPECT_EQ(set.points().data(), memory);
  EXPECT_EQ(set.points()[5], (Vec3f{1, 2, 3}));
  EXPECT_EQ(set.widths()[5], 0.5f);
  set.resizeFromCounts(counts, StrandSet::keepPoints);
  EXPECT_EQ(set.points()[5], (Vec3f{1, 2, 3}));
  EXPECT_EQ(set.widths()[5], 1.0f);
  set.resizeFromCounts({});
  EXPECT_EQ(set.offsets(), Array<std::uint64_t>{0});
  test::expectValidGroom(set);
}

TEST(StrandLayout, AbsurdSizeThrowsAndLeavesAValidSet) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "sanitizers end the program where memory runs out";
#endif
  StrandSet set = makeUnevenStrands(20, 1);
  // More points than the address space can hold.
  const std::vector<std::uint32_t> counts(5000, UINT32_MAX);
  EXPECT_ANY_THROW(set.resizeFromCounts(counts));
  test::expectValidGroom(set);
}

TEST(StrandLayout, SubsetIsTheStrandsNamedInThatOrder) {
  const StrandSet set = makeUnevenStrands(20, 1000);
  const std::vector<std::uint32_t> indices = {3, 4, 5, 5, 0, 19, 6, 6};
  const StrandSet picked = set.subset(indices);
  EXPECT_TRUE(picked.validate());
  ASSERT_EQ(picked.strandCount(), indices.size());
  for (std::size_t i = 0; i < indices.size(); ++i) {
    const std::size_t from = indices[i];
    EXPECT_EQ(picked.ids()[i], set.ids()[from]);
    EXPECT_EQ(picked.roots()[i], set.roots()[from]);
    EXPECT_EQ((*picked.strandChannel("s"))[i], (*set.strandChannel("s"))[from]);
    ASSERT_EQ(picked.strandPoints(i).size(), set.strandPoints(from).size());
    for (std::size_t k = 0; k < picked.strandPoints(i).size(); ++k) {
      const std::size_t a = picked.offsets()[i] + k, b = set.offsets()[from] + k;
      EXPECT_EQ(picked.points()[a], set.points()[b]);
      EXPECT_EQ(picked.widths()[a], set.widths()[b]);
      EXPECT_EQ((*picked.pointChannel("p"))[a], (*set.pointChannel("p"))[b]);
    }
  }
  EXPECT_EQ(picked.strandChannelDefault("s"), 5.0f);
  EXPECT_EQ(picked.pointChannelDefault("p"), 6.0f);
}

TEST(StrandLayout, SubsetOfNoneOfAllAndOfWrongIndices) {
  StrandSet set = makeUnevenStrands(20, 1);
  set.scaleMeshes.resize(3);
  const StrandSet none = set.subset({});
  test::expectValidGroom(none);
  EXPECT_EQ(none.strandCount(), 0u);
  EXPECT_EQ(none.pointChannelNames(), set.pointChannelNames());
  EXPECT_EQ(none.scaleMeshes.size(), 3u);
  std::vector<std::uint32_t> all(20);
  std::iota(all.begin(), all.end(), 0u);
  EXPECT_TRUE(set.subset(all).sharesPointsWith(set)) << "all strands in order are a copy";
  std::swap(all[4], all[5]);
  EXPECT_NE(set.subset(all).contentHash(), set.contentHash());
  EXPECT_THROW(set.subset(std::vector<std::uint32_t>{20}), std::invalid_argument);
  EXPECT_THROW(StrandSet().subset(std::vector<std::uint32_t>{0}), std::invalid_argument);
}

TEST(StrandLayout, ThreadsDoNotChangeWhatASubsetHolds) {
  const StrandSet set = makeUnevenStrands(50000, 1);
  std::vector<std::uint32_t> indices;
  for (std::uint32_t i = 0; i < 50000; ++i) {
    if (mix64(i) % 8 != 0) indices.push_back(i);
  }
  setThreadCount(1);
  const StrandSet one = set.subset(indices);
  setThreadCount(0);
  expectSameStrands(set.subset(indices), one);
}

TEST(StrandLayout, UniformPointCount) {
  EXPECT_EQ(makeStrands(5, 3).uniformPointCount(), 3u);
  EXPECT_EQ(makeStrands(1, 9).uniformPointCount(), 9u);
  EXPECT_EQ(makeStrands(4, 0).uniformPointCount(), 0u);
  StrandSet mixed;
  mixed.resizeFromCounts(std::vector<std::uint32_t>{2, 1, 3});
  EXPECT_EQ(mixed.uniformPointCount(), 0u);
  mixed.resizeFromCounts(std::vector<std::uint32_t>{2, 1});
  EXPECT_EQ(mixed.uniformPointCount(), 0u);
}

}  // namespace
}  // namespace kestrane
