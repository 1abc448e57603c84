// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/data/strand_set.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <thread>
#include <vector>

#include "core/base/parallel.h"
#include "tests/support/groom_checks.h"

namespace kestrane {
namespace {

using test::expectSameStrands;
using test::makeStrands;

/// A pointer that differs from all others, to something of a type that only later floors know.
template <class T>
std::shared_ptr<const T> attachment() {
  const auto owner = std::make_shared<int>(0);
  return {owner, reinterpret_cast<const T*>(owner.get())};
}

/// Strands with a channel of each kind and an attachment of each kind.
StrandSet makeDressedStrands(std::size_t count, std::size_t pointsPerStrand) {
  StrandSet set = makeStrands(count, pointsPerStrand);
  auto& clump = set.addStrandChannel("clump", -1.0f);
  for (std::size_t i = 0; i < clump.size(); ++i) clump[i] = static_cast<float>(i);
  auto& wet = set.addPointChannel("wet", 0.25f);
  for (std::size_t i = 0; i < wet.size(); ++i) wet[i] = 0.5f * static_cast<float>(i);
  set.cardMesh = attachment<CardMesh>();
  set.featherLayers = {attachment<FeatherLayer>()};
  set.scaleMeshes = {attachment<ScaleMesh>(), attachment<ScaleMesh>()};
  return set;
}

/// A set with arrays large enough to be recycled.
StrandSet makeLargeStrands() {
  return makeStrands(24000, 17);
}

TEST(StrandSet, FreshSetIsEmptyAndValid) {
  const StrandSet set;
  test::expectValidGroom(set);
  EXPECT_EQ(set.strandCount(), 0u);
  EXPECT_EQ(set.pointCount(), 0u);
  EXPECT_EQ(set.offsets(), Array<std::uint64_t>{0});
  EXPECT_EQ(set.uniformPointCount(), 0u);
  const Extent extent = set.extent();
  EXPECT_TRUE(extent.finite);
  EXPECT_EQ(extent.min, (Vec3f{FLT_MAX, FLT_MAX, FLT_MAX}));
  EXPECT_EQ(extent.max, (Vec3f{-FLT_MAX, -FLT_MAX, -FLT_MAX}));
  EXPECT_EQ(extent.maxLength, 0.0f);
}

TEST(StrandSet, CopySharesAllAndAWriteDetachesOneArray) {
  StrandSet set = makeDressedStrands(100, 5);
  const StrandSet before(set);
  const std::function<void(StrandSet&)> writes[] = {
      [](StrandSet& s) { s.mutableIds()[3] = 77; },
      [](StrandSet& s) { s.mutableRoots()[3].u = 0.75f; },
      [](StrandSet& s) { s.mutablePoints()[3].x = 9.0f; },
      [](StrandSet& s) { s.mutableWidths()[3] = 9.0f; },
      [](StrandSet& s) { (*s.mutableStrandChannel("clump"))[3] = 9.0f; },
      [](StrandSet& s) { (*s.mutablePointChannel("wet"))[3] = 9.0f; },
      [](StrandSet& s) { s.mutableOffsets(); },
  };
  for (std::size_t w = 0; w < std::size(writes); ++w) {
    StrandSet copy = set;
    const auto shared = [&] {
      return std::vector<bool>{copy.sharesIdsWith(set),
                               copy.sharesRootsWith(set),
                               copy.sharesPointsWith(set),
                               copy.sharesWidthsWith(set),
                               copy.sharesStrandChannelWith("clump", set),
                               copy.sharesPointChannelWith("wet", set),
                               copy.sharesOffsetsWith(set)};
    };
    EXPECT_EQ(shared(), std::vector<bool>(7, true));
    EXPECT_EQ(copy.cardMesh, set.cardMesh);
    EXPECT_EQ(copy.featherLayers, set.featherLayers);
    EXPECT_EQ(copy.scaleMeshes, set.scaleMeshes);
    writes[w](copy);
    std::vector<bool> expected(7, true);
    expected[w] = false;
    EXPECT_EQ(shared(), expected) << "write " << w;
    expectSameStrands(set, before);
  }
}

TEST(StrandSet, SourceOfACopyDetachesWhileTheCopyLivesAndKeepsItsArrayAfter) {
  StrandSet set = makeStrands(10, 4);
  const Vec3f* memory = set.points().data();
  {
    const StrandSet copy = set;
    set.mutablePoints()[0].x = 5.0f;
    EXPECT_NE(copy.points()[0].x, 5.0f);
    EXPECT_NE(set.points().data(), memory);
  }
  memory = set.points().data();
  { const StrandSet copy = set; }
  set.mutablePoints()[0].x = 6.0f;
  EXPECT_EQ(set.points().data(), memory);
}

TEST(StrandSet, MovingLeavesAValidEmptySet) {
  StrandSet set = makeDressedStrands(10, 4);
  const StrandSet expected = set;
  const Extent extent = set.extent();
  StrandSet moved = std::move(set);
  expectSameStrands(moved, expected);
  EXPECT_EQ(moved.extent().max, extent.max);
  test::expectValidGroom(set);
  EXPECT_EQ(set.strandCount(), 0u);
  EXPECT_EQ(set.cardMesh, nullptr);
  EXPECT_TRUE(set.featherLayers.empty() && set.scaleMeshes.empty());
  EXPECT_TRUE(set.strandChannelNames().empty() && set.pointChannelNames().empty());
  EXPECT_EQ(set.extent().min.x, FLT_MAX);
  set.addStrand(1, {}, std::vector<Vec3f>{{1, 2, 3}});
  test::expectValidGroom(set);
  const StrandSet& self = moved;
  moved = self;
  expectSameStrands(moved, expected);
}

TEST(StrandSet, OverwritingCopiesNothing) {
  StrandSet set = makeLargeStrands();
  const Vec3f* points = set.points().data();
  const float* widths = set.widths().data();
  EXPECT_EQ(set.overwritePoints().data(), points);
  EXPECT_EQ(set.overwriteWidths().data(), widths);
  // With a copy alive the array is replaced; the next time round the pool returns it.
  const StrandSet filled = makeLargeStrands();
  {
    const StrandSet copy = set;
    set.overwritePoints().assign(filled.points().begin(), filled.points().end());
    EXPECT_NE(set.points().data(), points);
    EXPECT_EQ(set.points().size(), copy.points().size());
  }
  const StrandSet holder = set;
  EXPECT_EQ(set.overwritePoints().data(), points);
  EXPECT_EQ(set.points()[100], filled.points()[100]) << "fresh memory, not the recycled array";
  EXPECT_EQ(holder.points(), filled.points());
}

TEST(StrandSet, DetachingACopyRecyclesLargeArrays) {
  StrandSet set = makeLargeStrands();
  const Vec3f* freed = nullptr;
  {
    StrandSet gone = set;
    freed = gone.mutablePoints().data();
  }
  StrandSet copy = set;
  EXPECT_EQ(copy.mutablePoints().data(), freed);
  expectSameStrands(copy, set);
}

TEST(StrandSet, ChannelsHaveDefaultsAndNames) {
  StrandSet set = makeStrands(3, 2);
  EXPECT_EQ(set.strandChannel("a"), nullptr);
  EXPECT_EQ(set.mutablePointChannel("a"), nullptr);
  EXPECT_EQ(set.strandChannelDefault("a"), 0.0f);
  set.addStrandChannel("b", 2.0f)[1] = 5.0f;
  set.addStrandChannel("a", 1.0f);
  set.addPointChannel("a", 3.0f);
  EXPECT_EQ(set.strandChannelNames(), (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(*set.pointChannel("a"), Array<float>(6, 3.0f));
  const float* memory = set.strandChannel("b")->data();
  set.addStrandChannel("b", 4.0f);
  EXPECT_EQ(*set.strandChannel("b"), Array<float>(3, 4.0f));
  EXPECT_EQ(set.strandChannelDefault("b"), 4.0f);
  EXPECT_EQ(set.overwriteStrandChannel("b", 6.0f).data(), memory);
  EXPECT_EQ(set.strandChannelDefault("b"), 6.0f);
  set.removeStrandChannel("b");
  set.removeStrandChannel("no such channel");
  EXPECT_EQ(set.strandChannelNames(), std::vector<std::string>{"a"});
  EXPECT_EQ(set.pointChannelNames(), std::vector<std::string>{"a"});
}

TEST(StrandSet, SharedChannelsMustFit) {
  StrandSet set = makeStrands(10, 4);
  StrandSet other = makeDressedStrands(10, 4);
  EXPECT_TRUE(set.shareStrandChannelFrom("clump", other));
  EXPECT_TRUE(set.sharePointChannelFrom("wet", other));
  EXPECT_TRUE(set.sharesStrandChannelWith("clump", other));
  EXPECT_TRUE(set.sharesPointChannelWith("wet", other));
  EXPECT_EQ(set.pointChannelDefault("wet"), 0.25f);
  EXPECT_FALSE(set.sharePointChannelFrom("clump", other));
  StrandSet fewer = makeStrands(9, 4);
  EXPECT_FALSE(fewer.shareStrandChannelFrom("clump", other));
  EXPECT_FALSE(fewer.takePointChannelFrom("wet", other));
  EXPECT_TRUE(fewer.strandChannelNames().empty() && fewer.pointChannelNames().empty());
  (*set.mutableStrandChannel("clump"))[0] = 50.0f;
  EXPECT_EQ((*other.strandChannel("clump"))[0], 0.0f);
}

TEST(StrandSet, TakingMovesWhatNobodyElseHolds) {
  StrandSet set = makeStrands(10, 4);
  StrandSet other = makeDressedStrands(10, 4);
  const StrandSet expected = other;
  StrandSet source = other;
  source.mutablePoints();
  const Vec3f* points = source.points().data();
  source.extent();

  std::uint64_t avoided = StrandSet::avoidedCopies();
  set.takePointsFrom(source);
  EXPECT_EQ(StrandSet::avoidedCopies(), avoided + 1);
  EXPECT_EQ(set.points().data(), points);
  EXPECT_TRUE(source.points().empty());
  EXPECT_EQ(set.mutablePoints().data(), points) << "the new owner copied what it had taken";

  // Widths and channels are still shared with `expected`.
  set.takeWidthsFrom(source);
  EXPECT_TRUE(set.takeStrandChannelFrom("clump", source));
  EXPECT_EQ(StrandSet::avoidedCopies(), avoided + 1);
  EXPECT_TRUE(set.sharesWidthsWith(source));
  EXPECT_TRUE(set.sharesStrandChannelWith("clump", source));

  StrandSet sole = makeDressedStrands(10, 4);
  const float* wet = sole.pointChannel("wet")->data();
  EXPECT_TRUE(set.takePointChannelFrom("wet", sole));
  EXPECT_EQ(set.pointChannel("wet")->data(), wet);
  EXPECT_EQ(set.pointChannelDefault("wet"), 0.25f);
  EXPECT_EQ(StrandSet::avoidedCopies(), avoided + 2);
  set.takePointsFrom(set);
  set.takeWidthsFrom(set);
  EXPECT_TRUE(set.takePointChannelFrom("wet", set));
  EXPECT_EQ(StrandSet::avoidedCopies(), avoided + 2);
  expectSameStrands(set, expected);
}

TEST(StrandSet, ExtentIsThatOfThePoints) {
  StrandSet set;
  set.addStrand(1, {}, std::vector<Vec3f>{{0, 0, 0}, {3, 4, 0}, {3, 4, 12}});
  set.addStrand(2, {}, std::vector<Vec3f>{});
  set.addStrand(3, {}, std::vector<Vec3f>{{-1, 0, 0}});
  const Extent extent = set.extent();
  EXPECT_EQ(extent.min, (Vec3f{-1, 0, 0}));
  EXPECT_EQ(extent.max, (Vec3f{3, 4, 12}));
  EXPECT_EQ(extent.maxLength, 17.0f);
  EXPECT_TRUE(extent.finite);

  // The far points of three blocks, each the farthest in its own way.
  StrandSet large = makeStrands(3 * 2048, 2);
  large.mutablePoints()[2 * 100 + 1] = {0, 500, 0};
  large.mutablePoints()[2 * 2050].x = -100.0f;
  large.mutablePoints()[2 * 6143].z = 300.0f;
  float longest = 0.0f;
  for (std::size_t i = 0; i < large.strandCount(); ++i) {
    longest = std::max(longest, polylineLength(large.strandPoints(i)));
  }
  const Extent found = large.extent();
  EXPECT_EQ(found.maxLength, longest);
  EXPECT_EQ(found.max.y, 500.0f);
  EXPECT_EQ(found.min.x, -100.0f);
  EXPECT_EQ(found.max.z, 300.0f);
}

TEST(StrandSet, EveryWayOfMovingPointsIsSeenByTheExtent) {
  const StrandSet other = makeStrands(10, 4, 2);
  const std::function<void(StrandSet&)> writes[] = {
      [](StrandSet& s) { s.mutablePoints()[0].x = 1000.0f; },
      [](StrandSet& s) {
        s.overwritePoints().assign(s.pointCount(), Vec3f{1000, 0, 0});
      },
      [](StrandSet& s) {
        s.addStrand(5, {}, std::vector<Vec3f>{{1000, 0, 0}});
      },
      [](StrandSet& s) { s.append(makeStrands(5000, 2)); },
      [](StrandSet& s) { s.clear(); },
      [](StrandSet& s) {
        s.resizeFromCounts(std::vector<std::uint32_t>{1, 2});
      },
      [&](StrandSet& s) { s.sharePointsFrom(other); },
      [](StrandSet& s) {
        StrandSet taken = makeStrands(10, 4, 3);
        s.takePointsFrom(taken);
      },
      [](StrandSet& s) { s = makeStrands(10, 4, 4); },
      [](StrandSet& s) {
        auto& starts = s.mutableOffsets();
        starts[1] = 0;  // the first strand's points now belong to the second
      },
  };
  for (std::size_t w = 0; w < std::size(writes); ++w) {
    StrandSet set = makeStrands(10, 4);
    const Extent old = set.extent();
    writes[w](set);
    StrandSet fresh = set;  // copies know no bounds
    const Extent wanted = fresh.extent(), found = set.extent();
    EXPECT_EQ(found.min, wanted.min) << "write " << w;
    EXPECT_EQ(found.max, wanted.max) << "write " << w;
    EXPECT_EQ(found.maxLength, wanted.maxLength) << "write " << w;
    EXPECT_TRUE(found.max != old.max || found.maxLength != old.maxLength) << "write " << w;
  }
}

TEST(StrandSet, AnyCoordinateThatIsNoNumberMakesTheExtentUnfinite) {
  const float infinity = std::numeric_limits<float>::infinity();
  for (const float bad : {infinity, -infinity, std::nanf("")}) {
    for (int axis = 0; axis < 3; ++axis) {
      StrandSet set = makeStrands(5000, 3);
      set.mutablePoints()[3 * 3000 + 1][axis] = bad;
      EXPECT_FALSE(set.extent().finite) << bad << " on axis " << axis;
    }
  }
  StrandSet huge = makeStrands(5000, 3);
  huge.mutablePoints()[4] = {FLT_MAX, -FLT_MAX, FLT_MAX};
  EXPECT_TRUE(huge.extent().finite);
}

TEST(StrandSet, ExtentAfterChangesLooksAtTheirBlocksOnly) {
  const StrandSet previous = makeStrands(5000, 3);
  const Extent old = previous.extent();
  StrandSet moved = previous;
  moved.mutablePoints()[0].x = -500.0f;         // strand 0, not listed: must go unseen
  moved.mutablePoints()[3 * 4999].x = 1000.0f;  // strand 4999
  const Extent found = moved.extentAfter(previous, {false, {4998, 4999, 1000000}});
  EXPECT_EQ(found.max.x, 1000.0f);
  EXPECT_EQ(found.min.x, old.min.x) << "a block without a listed strand was looked at";
  EXPECT_EQ(moved.extent().min.x, old.min.x) << "the result was not kept";

  // All blocks are looked at where the record says all, or the layout differs.
  StrandSet all = moved, longer = moved;
  EXPECT_EQ(StrandSet(moved).extentAfter(previous, {true, {}}).min.x, -500.0f);
  longer.addStrand(1, {}, std::vector<Vec3f>{{0, 0, 0}});
  EXPECT_EQ(longer.extentAfter(previous, {false, {}}).min.x, -500.0f);
  EXPECT_EQ(all.extentAfter(StrandSet(previous), {false, {}}).min.x, -500.0f)
      << "bounds that the previous set does not know were used";
}

TEST(StrandSet, ThreadsAgreeOnExtentsOfOneSet) {
  const StrandSet set = makeStrands(20000, 5);
  setThreadCount(1);
  const Extent wanted = StrandSet(set).extent();
  setThreadCount(0);
  std::vector<Extent> found(4);
  std::vector<std::thread> threads;
  for (Extent& extent : found) threads.emplace_back([&] { extent = set.extent(); });
  for (std::thread& thread : threads) thread.join();
  for (const Extent& extent : found) {
    EXPECT_EQ(extent.min, wanted.min);
    EXPECT_EQ(extent.max, wanted.max);
    EXPECT_EQ(extent.maxLength, wanted.maxLength);
  }
}

TEST(StrandSet, ThreadsDetachTheirOwnCopies) {
  const StrandSet set = makeStrands(3000, 8);
  const StrandSet expected(set.subset(std::vector<std::uint32_t>{1, 0}));
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int round = 0; round < 50; ++round) {
        StrandSet copy = set;
        for (Vec3f& point : copy.mutablePoints()) point.x = static_cast<float>(t);
        StrandSet again = copy;
        for (float& width : again.mutableWidths()) width = static_cast<float>(t) + 100.0f;
        ASSERT_EQ(again.points()[17].x, static_cast<float>(t));
        ASSERT_EQ(again.widths()[1], static_cast<float>(t) + 100.0f);
        ASSERT_EQ(copy.widths()[1], set.widths()[1]);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  expectSameStrands(set.subset(std::vector<std::uint32_t>{1, 0}), expected);
}

TEST(StrandSet, LoopThreadsMayAskForOneArrayAtOnce) {
  const StrandSet source = makeLargeStrands();
  StrandSet set = source;
  parallelRange(0, set.pointCount(), 1000, [&](std::size_t first, std::size_t last) {
    Array<float>& widths = set.mutableWidths();
    for (std::size_t i = first; i < last; ++i) widths[i] = static_cast<float>(i);
  });
  for (std::size_t i = 0; i < set.pointCount(); ++i) {
    ASSERT_EQ(set.widths()[i], static_cast<float>(i));
  }
  EXPECT_EQ(source.widths()[16], makeLargeStrands().widths()[16]);
}

TEST(StrandSet, ValidateNamesTheFirstFault) {
  const struct {
    std::function<void(StrandSet&)> spoil;
    const char* message;
  } cases[] = {
      {[](StrandSet& s) { s.mutableIds().push_back(1); }, "offsets size must be strandCount + 1"},
      {[](StrandSet& s) { s.mutableOffsets().clear(); }, "offsets size must be strandCount + 1"},
      {[](StrandSet& s) { s.mutableRoots().pop_back(); }, "roots size must equal strandCount"},
      {[](StrandSet& s) { s.mutableOffsets()[0] = 1; }, "offsets must start at 0"},
      {[](StrandSet& s) { s.mutablePoints().push_back({}); }, "last offset must equal pointCount"},
      {[](StrandSet& s) { s.mutableOffsets()[1] = 7; }, "offsets must be non-decreasing"},
      {[](StrandSet& s) { s.mutableOffsets()[1] = UINT64_MAX; }, "offsets must be non-decreasing"},
      {[](StrandSet& s) { s.mutableWidths().clear(); }, "widths size must equal pointCount"},
      {[](StrandSet& s) { s.mutableStrandChannel("clump")->clear(); },
       "strand channel 'clump' has wrong size"},
      {[](StrandSet& s) { s.mutablePointChannel("wet")->push_back(0); },
       "point channel 'wet' has wrong size"},
  };
  for (const auto& c : cases) {
    StrandSet set = makeDressedStrands(3, 2);
    EXPECT_TRUE(set.validate());
    c.spoil(set);
    std::string error = "untouched";
    EXPECT_FALSE(set.validate(&error));
    EXPECT_EQ(error, c.message);
    EXPECT_FALSE(set.validate());
  }
}

TEST(StrandSet, HashSeesEveryValueAndNothingElse) {
  const StrandSet set = makeDressedStrands(4, 3);
  std::vector<std::uint64_t> seen = {set.contentHash()};
  const std::function<void(StrandSet&)> writes[] = {
      [](StrandSet& s) { ++s.mutableIds()[3]; },
      [](StrandSet& s) { std::swap(s.mutableIds()[2], s.mutableIds()[3]); },
      [](StrandSet& s) { s.mutableRoots()[3].face = -1; },
      [](StrandSet& s) { s.mutableRoots()[3].v += 0.1f; },
      [](StrandSet& s) { --s.mutableOffsets()[3]; },
      [](StrandSet& s) { s.mutablePoints().back().z += 1e-6f; },
      [](StrandSet& s) { s.mutablePoints()[0].y = -0.0f; },
      [](StrandSet& s) { s.mutableWidths().back() += 1e-6f; },
      [](StrandSet& s) { (*s.mutableStrandChannel("clump"))[3] = -3.0f; },
      [](StrandSet& s) { (*s.mutablePointChannel("wet"))[11] = -3.0f; },
      [](StrandSet& s) { s.addStrandChannel("a", 0.0f); },
      [](StrandSet& s) { s.addPointChannel("a", 0.0f); },
      [](StrandSet& s) { s.removePointChannel("wet"); },
      [](StrandSet& s) {
        const Array<float> values = *s.strandChannel("clump");
        s.removeStrandChannel("clump");
        s.overwriteStrandChannel("clumq", 0.0f) = values;
      },
      [](StrandSet& s) { s.addStrand(0, {}, std::vector<Vec3f>{}); },
  };
  for (const auto& write : writes) {
    StrandSet changed = set;
    write(changed);
    seen.push_back(changed.contentHash());
  }
  std::sort(seen.begin(), seen.end());
  EXPECT_EQ(std::adjacent_find(seen.begin(), seen.end()), seen.end());
  EXPECT_EQ(makeDressedStrands(4, 3).contentHash(), set.contentHash());
}

}  // namespace
}  // namespace kestrane
