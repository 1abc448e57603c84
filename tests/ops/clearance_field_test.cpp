// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/ops/clearance_field.h"

#include "core/base/parallel.h"
#include "tests/ops/ops_fixtures.h"

namespace kestrane {
namespace {

using test::OpsFixture;

TEST(ClearanceField, KnowsTheHeightsAroundASphere) {
  const OpsFixture fixture;
  const ClearanceField field(fixture.scalp);
  ClearanceField::Sample sample;
  for (std::uint64_t i = 0; i < 500; ++i) {
    const Vec3f way = normalize(Vec3f{unitFloat(mix64(i)) - 0.5f, unitFloat(mix64(i + 1000)) - 0.5f,
                                      unitFloat(mix64(i + 2000)) - 0.5f},
                                {0, 1, 0});
    const SurfaceHit foot = fixture.scalp->closestPoint(way * 10.0f);
    // Far off, where the grids are coarse, too.
    for (const float height : {-4.0f, -0.6f, -0.2f, 0.0f, 0.3f, 0.9f, 2.0f, field.freeHeight()}) {
      const Vec3f at = foot.position + fixture.scalp->normalAt(foot.root) * height;
      ASSERT_TRUE(field.find(at, sample)) << height;
      const float exact = std::copysign(fixture.scalp->closestPoint(at).distance, height);
      EXPECT_NEAR(field.heightAt(at), exact, 1e-4f);
      EXPECT_NEAR(sample.height(), exact, 0.12f + 0.02f * std::abs(height));
      EXPECT_GT(dot(sample.up(), way), 0.9f);
    }
  }
  for (const float nowhere : {1000.0f, NAN, INFINITY, -INFINITY}) {
    EXPECT_FALSE(field.find({nowhere, 0, 0}, sample)) << nowhere;
  }
  EXPECT_FALSE(ClearanceField(std::make_shared<const ScalpMesh>()).find({}, sample));
}

TEST(ClearanceField, BesideABorderNothingIsKnown) {
  const auto plain = std::make_shared<const ScalpMesh>(
      std::vector<Vec3f>{{0, 0, 0}, {10, 0, 0}, {10, 0, 10}, {0, 0, 10}},
      std::vector<ScalpMesh::Triangle>{{0, 2, 1}, {0, 3, 2}});
  const ClearanceField field(plain);
  ClearanceField::Sample sample;
  ASSERT_TRUE(field.find({5, 0.3f, 5}, sample));
  EXPECT_NEAR(sample.height(), 0.3f, 1e-3f);
  ASSERT_TRUE(field.find({5, -3.0f, 5}, sample));
  EXPECT_NEAR(sample.height(), -3.0f, 0.05f);
  EXPECT_FALSE(field.find({13, 0.1f, 5}, sample));
  EXPECT_TRUE(std::isinf(field.heightAt({13, 0.1f, 5})));
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
          ClearanceField::Sample sample;
          const auto draw = [&](std::uint64_t n) { return 30.0f * unitFloat(hashCombine(i, n)); };
          found[i] = field.find(Vec3f{draw(0), draw(1), draw(2)} - Vec3f{15, 15, 15}, sample)
                         ? sample.height()
                         : 1e9f;
        }
      });
    });
  }
  EXPECT_EQ(heights[0], heights[1]);
}

}  // namespace
}  // namespace kestrane
