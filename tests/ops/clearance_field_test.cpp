// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/ops/clearance_field.h"

#include "core/base/parallel.h"
#include "tests/ops/ops_fixtures.h"

namespace kestrane {
namespace {

using test::OpsFixture;

/// What is told of one point, by a lane of its own.
struct Told {
  bool any;
  float height;
  Vec3f up;
};
Told tellOf(const ClearanceField& field, Vec3f at, unsigned lane = 0) {
  Mask4 asked = splatInt(0);
  asked[lane] = -1;
  ClearanceField::Samples samples;
  const Mask4 found = field.find(splat(at.x, at.y, at.z), asked, samples);
  EXPECT_EQ(setLanes(found) & ~setLanes(asked), 0u);
  const Vec3x4 up = normalize(samples.slope);
  return {found[lane] != 0, samples.height[lane], {up.x[lane], up.y[lane], up.z[lane]}};
}

TEST(ClearanceField, KnowsTheHeightsAroundASphere) {
  const OpsFixture fixture;
  const ClearanceField field(fixture.scalp);
  for (std::uint64_t i = 0; i < 500; ++i) {
    const Vec3f way = normalize(Vec3f{unitFloat(mix64(i)) - 0.5f, unitFloat(mix64(i + 1000)) - 0.5f,
                                      unitFloat(mix64(i + 2000)) - 0.5f},
                                {0, 1, 0});
    const SurfaceHit foot = fixture.scalp->closestPoint(way * 10.0f);
    // Far off, where the grids are coarse, too.
    for (const float height : {-4.0f, -0.6f, -0.2f, 0.0f, 0.3f, 0.9f, 2.0f, field.freeHeight()}) {
      const Vec3f at = foot.position + fixture.scalp->normalAt(foot.root) * height;
      const Told told = tellOf(field, at, i % 4);
      ASSERT_TRUE(told.any) << height;
      const float exact = std::copysign(fixture.scalp->closestPoint(at).distance, height);
      EXPECT_NEAR(field.heightAt(at), exact, 1e-4f);
      EXPECT_NEAR(told.height, exact, 0.12f + 0.02f * std::abs(height));
      EXPECT_GT(dot(told.up, way), 0.9f);
    }
  }
  for (const float nowhere : {1000.0f, NAN, INFINITY, -INFINITY}) {
    EXPECT_FALSE(tellOf(field, {nowhere, 0, 0}).any) << nowhere;
  }
  EXPECT_FALSE(tellOf(ClearanceField(std::make_shared<const ScalpMesh>()), {}).any);
}

TEST(ClearanceField, BesideABorderNothingIsKnown) {
  const auto plain = std::make_shared<const ScalpMesh>(
      std::vector<Vec3f>{{0, 0, 0}, {10, 0, 0}, {10, 0, 10}, {0, 0, 10}},
      std::vector<ScalpMesh::Triangle>{{0, 2, 1}, {0, 3, 2}});
  const ClearanceField field(plain);
  const Told above = tellOf(field, {5, 0.3f, 5}), below = tellOf(field, {5, -3.0f, 5});
  ASSERT_TRUE(above.any && below.any);
  EXPECT_NEAR(above.height, 0.3f, 1e-3f);
  EXPECT_NEAR(below.height, -3.0f, 0.05f);
  EXPECT_FALSE(tellOf(field, {13, 0.1f, 5}).any);
  EXPECT_TRUE(std::isinf(field.heightAt({13, 0.1f, 5})));
}

/// Four curves, each in its lane and all at once, through fine and coarse grids and past their end.
TEST(ClearanceField, LanesKnowNothingOfEachOther) {
  const OpsFixture fixture;
  const ClearanceField field(fixture.scalp);
  const auto place = [](unsigned lane, int step) {
    const float t = static_cast<float>(step) * (lane == 3 ? -0.1f : 0.3f);
    return Vec3f{10.0f + t, static_cast<float>(lane), lane == 2 ? -t : 0.3f * t};
  };
  ClearanceField::Samples together, alone[4];
  for (int step = 0; step < 40; ++step) {
    Vec3x4 places = splat(0.0f, 0.0f, 0.0f);
    for (unsigned lane = 0; lane < 4; ++lane) {
      const Vec3f p = place(lane, step);
      places.x[lane] = p.x;
      places.y[lane] = p.y;
      places.z[lane] = p.z;
    }
    // Lane 1 sits every third step out.
    Mask4 asked = splatInt(-1);
    asked[1] = step % 3 == 0 ? 0 : -1;
    const Mask4 found = field.find(places, asked, together);
    for (unsigned lane = 0; lane < 4; ++lane) {
      if (asked[lane] == 0) continue;
      const Vec3f p = place(lane, step);
      Mask4 one = splatInt(0);
      one[lane] = -1;
      const Mask4 told = field.find(splat(p.x, p.y, p.z), one, alone[lane]);
      ASSERT_EQ(told[lane], found[lane]) << lane << " at " << step;
      EXPECT_EQ(together.level[lane], alone[lane].level[lane]) << lane << " at " << step;
      if (told[lane] == 0) continue;
      EXPECT_EQ(together.height[lane], alone[lane].height[lane]);
      EXPECT_EQ(together.slope.y[lane], alone[lane].slope.y[lane]);
      EXPECT_EQ(together.tolerance[lane], alone[lane].tolerance[lane]);
    }
  }
}

/// Blocks are made by whoever comes first: the heights may not depend on who that is.
TEST(ClearanceField, IsTheSameFromAllThreads) {
  const OpsFixture fixture;
  std::vector<float> heights[2];
  for (const std::size_t threads : {1, 8}) {
    const ClearanceField field(fixture.scalp);
    std::vector<float>& found = heights[threads > 1];
    found.resize(20000);
    runWithThreads(threads, [&] {
      parallelRange(0, found.size(), 1, [&](std::size_t first, std::size_t last) {
        for (std::size_t i = first; i < last; ++i) {
          const auto draw = [&](std::uint64_t n) { return 30.0f * unitFloat(hashCombine(i, n)); };
          const Told told = tellOf(field, Vec3f{draw(0), draw(1), draw(2)} - Vec3f{15, 15, 15});
          found[i] = told.any ? told.height : 1e9f;
        }
      });
    });
  }
  EXPECT_EQ(heights[0], heights[1]);
}

}  // namespace
}  // namespace kestrane
