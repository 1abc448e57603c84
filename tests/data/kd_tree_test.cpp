// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/data/kd_tree.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <mutex>
#include <vector>

#include "core/base/hash.h"
#include "core/base/parallel.h"

namespace kestrane {
namespace {

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();

Vec3f drawPoint(std::uint64_t i) {
  return {unitFloat(mix64(3 * i)), unitFloat(mix64(3 * i + 1)), unitFloat(mix64(3 * i + 2))};
}

std::vector<KdHit> exhaustive(const std::vector<Vec3f>& points, Vec3f p, std::size_t count,
                              float maxDistance) {
  std::vector<KdHit> hits;
  for (std::uint32_t i = 0; i < points.size(); ++i) {
    const float square = lengthSquared(points[i] - p);
    if (square <= maxDistance * maxDistance) hits.push_back({i, square});
  }
  std::stable_sort(hits.begin(), hits.end(), [](const KdHit& a, const KdHit& b) {
    return a.distanceSquared < b.distanceSquared;
  });
  hits.resize(std::min(hits.size(), count));
  return hits;
}

struct PointCase {
  const char* name;
  std::vector<Vec3f> points;
};

std::vector<PointCase> pointCases() {
  std::vector<PointCase> cases{{"none", {}}, {"one", {{1, 2, 3}}}};
  for (const std::size_t count : {8u, 9u, 17u, 1000u, 40000u}) {
    std::vector<Vec3f> points(count);
    for (std::size_t i = 0; i < count; ++i) points[i] = drawPoint(i);
    cases.push_back({"random", points});
  }
  std::vector<Vec3f> lattice, spoilt;
  for (int i = 0; i < 1000; ++i) {
    lattice.push_back({0.1f * (i % 10), 0.1f * (i / 10 % 10), 0.1f * (i / 100)});
    spoilt.push_back(i % 3 == 0   ? Vec3f{kNan, 0, 0}
                     : i % 3 == 1 ? Vec3f{0, -kInfinity, 0}
                                  : drawPoint(i));
  }
  cases.push_back({"lattice, full of ties", lattice});
  cases.push_back({"not finite", spoilt});
  cases.push_back({"coincident", std::vector<Vec3f>(300, Vec3f{0.5f, 0.5f, 0.5f})});
  cases.push_back({"nothing finite", std::vector<Vec3f>(20, Vec3f{kNan, kNan, kNan})});
  return cases;
}

TEST(KdTree, NeighborsAreTheExhaustiveOnes) {
  for (const PointCase& test : pointCases()) {
    SCOPED_TRACE(test.name);
    const KdTree tree(test.points);
    EXPECT_EQ(tree.size(), test.points.size());
    const int queries = test.points.size() > 10000 ? 20 : 60;
    for (int i = 0; i < queries; ++i) {
      Vec3f p = 3.0f * drawPoint(1'000'000 + i) - Vec3f{1, 1, 1};
      if (i % 2 == 0 && !test.points.empty()) p = test.points[(i * 7919) % test.points.size()];
      if (!isFinite(p)) continue;
      for (const std::size_t count : {1u, 2u, 13u, 100u}) {
        for (const float maxDistance : {FLT_MAX, 0.5f, 0.1f, 0.0f}) {
          std::vector<KdHit> hits(count, {77, 77.0f});
          hits.resize(tree.nearest(p, hits, maxDistance));
          const auto expected = exhaustive(test.points, p, count, maxDistance);
          ASSERT_EQ(hits.size(), expected.size());
          for (std::size_t k = 0; k < hits.size(); ++k) {
            EXPECT_EQ(hits[k].index, expected[k].index);
            EXPECT_EQ(hits[k].distanceSquared, expected[k].distanceSquared);
          }
          const KdHit nearest = tree.nearest(p, maxDistance);
          EXPECT_EQ(nearest.distanceSquared,
                    expected.empty() ? FLT_MAX : expected[0].distanceSquared);
          EXPECT_EQ(nearest.index, expected.empty() ? 0u : expected[0].index);
        }
      }
    }
  }
}

TEST(KdTree, HostileQueriesFindNothing) {
  const std::vector<Vec3f> points{{0, 0, 0}, {1, 0, 0}};
  const KdTree tree(points);
  KdHit hits[2];
  for (const float bad : {kNan, kInfinity, -kInfinity}) {
    EXPECT_EQ(tree.nearest({bad, 0, 0}, hits), 0u);
  }
  EXPECT_EQ(tree.nearest({}, hits, kNan), 0u);
  EXPECT_EQ(tree.nearest({}, hits, -1.0f), 0u);
  EXPECT_EQ(tree.nearest({}, hits, kInfinity), 2u);
  EXPECT_EQ(tree.nearest({}, std::span<KdHit>()), 0u);
  EXPECT_EQ(KdTree().nearest({}, hits), 0u);
}

TEST(KdTree, ThreadsMayBuildItUnderALock) {
  std::vector<Vec3f> points(60000);
  for (std::size_t i = 0; i < points.size(); ++i) points[i] = drawPoint(i);
  std::once_flag once;
  KdTree tree;
  std::vector<std::uint32_t> found(4000);
  parallelRange(0, found.size(), 1, [&](std::size_t begin, std::size_t end) {
    for (std::size_t i = begin; i < end; ++i) {
      std::call_once(once, [&] { tree = KdTree(points); });
      found[i] = tree.nearest(points[i]).index;
    }
  });
  for (std::uint32_t i = 0; i < found.size(); ++i) EXPECT_EQ(found[i], i);
}

}  // namespace
}  // namespace kestrane
