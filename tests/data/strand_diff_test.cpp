// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/data/strand_diff.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>

#include "core/base/parallel.h"
#include "tests/support/groom_checks.h"

namespace kestrane {
namespace {

using List = std::vector<std::uint32_t>;

StrandSet makeChanneledStrands(std::size_t count) {
  StrandSet set = test::makeStrands(count, 4);
  set.addStrandChannel("s", 1.0f);
  set.addPointChannel("p", 2.0f);
  return set;
}

TEST(StrandDiff, ListsExactlyTheStrandsWritten) {
  const StrandSet before = makeChanneledStrands(10000);
  // Around the ends of runs and blocks, where an index is easily lost.
  const List places = {0, 63, 64, 65, 4095, 4096, 8191, 9999};
  const std::function<void(StrandSet&, std::size_t)> writes[] = {
      [](StrandSet& s, std::size_t i) { s.mutablePoints()[4 * i + 3].z += 1.0f; },
      [](StrandSet& s, std::size_t i) { s.mutableWidths()[4 * i] += 1.0f; },
      [](StrandSet& s, std::size_t i) { s.mutableRoots()[i].v += 1.0f; },
      [](StrandSet& s, std::size_t i) { (*s.mutableStrandChannel("s"))[i] += 1.0f; },
      [](StrandSet& s, std::size_t i) { (*s.mutablePointChannel("p"))[4 * i + 3] += 1.0f; },
  };
  StrandSet all = before;
  for (const auto& write : writes) {
    StrandSet after = before;
    for (const std::uint32_t place : places) write(after, place);
    write(all, 5000);
    for (const std::size_t limit : {1, 0}) {
      setThreadCount(limit);
      const auto changes = changedStrands(before, after);
      ASSERT_NE(changes, nullptr);
      EXPECT_FALSE(changes->all);
      EXPECT_EQ(changes->strands, places);
      EXPECT_EQ(changedStrands(after, before)->strands, places);
    }
  }
  EXPECT_EQ(changedStrands(before, all)->strands, List{5000}) << "a strand is listed once";
  StrandSet two = before;
  writes[0](two, 71);
  writes[1](two, 68);
  EXPECT_EQ(changedStrands(before, two)->strands, (List{68, 71}));
}

TEST(StrandDiff, EqualBytesAreNoChange) {
  const StrandSet before = makeChanneledStrands(100);
  StrandSet after = before;
  EXPECT_EQ(changedStrands(before, before), noStrandChanges());
  EXPECT_EQ(changedStrands(before, after), noStrandChanges());
  after.mutablePoints();
  after.mutableIds();
  after.mutableOffsets();
  EXPECT_EQ(changedStrands(before, after), noStrandChanges());
  EXPECT_EQ(changedStrands({}, {}), noStrandChanges());
  // Bytes count, not values: a zero that changes its sign is a change, the same NaN is none.
  StrandSet negative = before;
  (*after.mutableStrandChannel("s"))[7] = 0.0f;
  (*negative.mutableStrandChannel("s"))[7] = -0.0f;
  EXPECT_EQ(changedStrands(after, negative)->strands, List{7});
  (*after.mutableStrandChannel("s"))[7] = std::nanf("");
  (*negative.mutableStrandChannel("s"))[7] = std::nanf("");
  EXPECT_EQ(changedStrands(after, negative), noStrandChanges());
}

TEST(StrandDiff, NothingCanBeSaidOfSetsThatDoNotMatch) {
  const std::function<void(StrandSet&)> changes[] = {
      [](StrandSet& s) { s.addStrand(1, {}, {}); },
      [](StrandSet& s) { s.mutableIds()[3] = 0; },
      [](StrandSet& s) { s.mutableOffsets()[3] -= 1; },
      [](StrandSet& s) { s.addStrandChannel("t", 0.0f); },
      [](StrandSet& s) { s.removePointChannel("p"); },
      [](StrandSet& s) { s.addStrandChannel("s", 7.0f); },
      [](StrandSet& s) { s.addPointChannel("p", 7.0f); },
      [](StrandSet& s) { s.featherLayers.resize(1); },
      [](StrandSet& s) { s.scaleMeshes.resize(1); },
      [](StrandSet& s) {
        // The strands have 5 and 3 points now, with as many in all.
        s.resizeFromCounts(List{4, 4, 4, 5, 3, 4, 4, 4, 4, 4});
      },
  };
  const StrandSet before = makeChanneledStrands(10);
  for (std::size_t i = 0; i < std::size(changes); ++i) {
    StrandSet after = before;
    changes[i](after);
    EXPECT_EQ(changedStrands(before, after), nullptr) << "change " << i;
    EXPECT_EQ(changedStrands(after, before), nullptr) << "change " << i;
  }
}

TEST(StrandDiff, StrandsOfManyLengthsAreToldApart) {
  StrandSet before;
  List counts;
  for (std::uint32_t i = 0; i < 500; ++i) counts.push_back(i % 3 == 0 ? 0 : i % 5);
  before.resizeFromCounts(counts);
  for (std::size_t point = 0; point < before.pointCount(); ++point) {
    StrandSet after = before;
    after.mutablePoints()[point].y = 1.0f;
    const auto changes = changedStrands(before, after);
    ASSERT_EQ(changes->strands.size(), 1u);
    const std::size_t strand = changes->strands[0];
    EXPECT_LE(before.offsets()[strand], point);
    EXPECT_GT(before.offsets()[strand + 1], point);
  }
}

}  // namespace
}  // namespace kestrane
