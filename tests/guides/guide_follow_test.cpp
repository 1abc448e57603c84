// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/base/parallel.h"
#include "core/data/polyline.h"
#include "core/guides/guide_frames.h"
#include "tests/guides/guide_fixtures.h"

namespace kestrane {
namespace {

using test::makeFamily;
using test::windingCurve;

/// A half turn about Y, a quarter turn about X and a shift.
Vec3f moved(Vec3f p) {
  return Vec3f{-p.x, p.z, p.y} + Vec3f{5, -2, 7};
}

TEST(GuideFollow, BindsGuidesToTheScalpAndKeepsTheirShape) {
  const ScalpMesh scalp = test::makeGrid(8, 20.0f);
  GuideHierarchy hierarchy;
  const std::uint32_t top = hierarchy.addGroup("guides", 0);
  const std::uint64_t id = hierarchy.addGuide(top, windingCurve({4, 0.5f, 6}, 7));
  hierarchy.updateFromScalp(&scalp);
  const GuideRecord& guide = *hierarchy.findGuide(id);
  EXPECT_EQ(hierarchy.scalpTopology(), scalp.topologyHash());
  EXPECT_LE(distance(scalp.positionAt(guide.root), {4, 0, 6}), 1e-5f);
  test::expectNearPoints(guide.points, windingCurve({4, 0, 6}, 7), 1e-5f);
  hierarchy.setPoints(id, windingCurve({4, 0, 6}, 7, 9.0f));
  hierarchy.updateFromScalp(&scalp);
  test::expectNearPoints(guide.points, windingCurve({4, 0, 6}, 7, 9.0f), 1e-5f);
}

TEST(GuideFollow, TurnsAroundAGuideDrawnFromItsTip) {
  const ScalpMesh scalp = test::makeGrid(8, 20.0f);
  GuideHierarchy hierarchy;
  const std::uint32_t top = hierarchy.addGroup("guides", 0);
  const std::uint64_t id = hierarchy.addGuide(top, {{5, 3, 5}, {5, 1, 6}, {5, 0, 5}});
  hierarchy.setPointAttribute(id, "w", {1, 2, 3});
  // Both ends on the scalp: no end is the nearer one.
  const std::uint64_t arch = hierarchy.addGuide(top, {{8, 0, 5}, {8, 2, 6}, {8, 0, 7}});
  hierarchy.updateFromScalp(&scalp);
  const GuideRecord& guide = *hierarchy.findGuide(id);
  test::expectNearPoints(guide.points, {{5, 0, 5}, {5, 1, 6}, {5, 3, 5}}, 1e-5f);
  EXPECT_EQ(guide.pointAttributes.at("w"), (std::vector<float>{3, 2, 1}));
  EXPECT_LE(std::abs(dot(guide.frameUp, guide.points[1] - guide.points[0])), 1e-5f);
  EXPECT_LE(distance(hierarchy.findGuide(arch)->points[0], {8, 0, 5}), 1e-5f);
}

TEST(GuideFollow, ARigidMotionOfTheScalpMovesEverythingRigidly) {
  const ScalpMesh scalp = test::makeGrid(8, 20.0f);
  GuideHierarchy hierarchy = makeFamily(4);
  const std::uint64_t locked = hierarchy.guidesAtLevel(1).guides[2].id;
  hierarchy.setLocked(std::span(&locked, 1), true);
  hierarchy.updateFromScalp(&scalp);
  const GuideHierarchy before = hierarchy;

  std::vector<Vec3f> points = scalp.points();
  for (Vec3f& point : points) point = moved(point);
  hierarchy.updateFromScalp(scalp.withPoints(points).get());
  for (std::size_t i = 0; i < before.guides().size(); ++i) {
    std::vector<Vec3f> wanted = before.guides()[i].points;
    for (Vec3f& point : wanted) point = moved(point);
    SCOPED_TRACE(i);
    test::expectNearPoints(hierarchy.guides()[i].points, wanted, 2e-4f);
  }
}

TEST(GuideFollow, ASecondUpdateOnTheSameScalpChangesNoBit) {
  const ScalpMesh scalp = test::makeSphere(16, 32, 9.0f);
  GuideHierarchy hierarchy = makeFamily(5);
  hierarchy.updateFromScalp(&scalp);
  const std::string once = hierarchy.toJson();
  const std::uint64_t hash = hierarchy.contentHash();
  hierarchy.updateFromScalp(&scalp);
  EXPECT_EQ(hierarchy.toJson(), once);
  EXPECT_EQ(hierarchy.contentHash(), hash);
  hierarchy.updateFromScalp(nullptr);
  EXPECT_EQ(hierarchy.toJson(), once);
}

TEST(GuideFollow, BindsAnewOnAnotherTopology) {
  const ScalpMesh coarse = test::makeGrid(2, 20.0f), fine = test::makeGrid(16, 20.0f);
  const ScalpMesh none;
  GuideHierarchy hierarchy = makeFamily(3);
  hierarchy.updateFromScalp(&coarse);
  const std::vector<Vec3f> points = hierarchy.guides()[2].points;
  hierarchy.updateFromScalp(&none);
  EXPECT_EQ(hierarchy.scalpTopology(), coarse.topologyHash());
  hierarchy.updateFromScalp(&fine);
  EXPECT_EQ(hierarchy.scalpTopology(), fine.topologyHash());
  const GuideRecord& guide = hierarchy.guides()[2];
  EXPECT_LE(distance(fine.positionAt(guide.root), points[0]), 1e-4f);
  test::expectNearPoints(guide.points, points, 1e-4f);
}

TEST(GuideFollow, UpdatesTheListedGuidesAlone) {
  GuideHierarchy hierarchy = makeFamily(2);
  const GuideRecord first = hierarchy.guides()[0];
  const auto children = hierarchy.descendantsOf(std::span(&first.id, 1));
  std::vector<Vec3f> points = first.points;
  for (Vec3f& point : points) point += {0, 0, 1};
  hierarchy.setPoints(first.id, points);
  const GuideHierarchy before = hierarchy;
  hierarchy.updateFromScalp(nullptr, std::vector<std::uint64_t>{children[1], children[1], 77});
  for (std::size_t i = 0; i < before.guides().size(); ++i) {
    const GuideRecord &a = before.guides()[i], &b = hierarchy.guides()[i];
    EXPECT_EQ(a.points != b.points, a.id == children[1]) << i;
  }
}

TEST(GuideFollow, SurvivesDegenerateScalpsAndGuides) {
  const ScalpMesh flat({{0, 0, 0}, {0, 0, 0}, {0, 0, 0}}, {{0, 1, 2}});
  const ScalpMesh sliver({{0, 0, 0}, {1, 0, 0}, {2, 0, 0}}, {{0, 1, 2}});
  for (const ScalpMesh* scalp : {&flat, &sliver}) {
    GuideHierarchy hierarchy = makeFamily(1);
    const std::uint32_t top = hierarchy.groups()[0].id;
    hierarchy.addGuide(top, {});
    hierarchy.addGuide(top, {{0, 1, 0}});
    hierarchy.addGuide(top, {{0, 1, 0}, {0, 1, 0}, {0, 1, 0}});
    const float length = polylineLength(hierarchy.guides()[0].points);
    hierarchy.updateFromScalp(scalp);
    hierarchy.updateFromScalp(scalp);
    for (const GuideRecord& guide : hierarchy.guides()) {
      for (const Vec3f& point : guide.points) EXPECT_TRUE(isFinite(point));
    }
    EXPECT_NEAR(polylineLength(hierarchy.guides()[0].points), length, 1e-3f);
  }
}

TEST(GuideFollowThreads, GiveTheSameGuidesAsOneThread) {
  const ScalpMesh scalp = test::makeSphere(24, 48, 30.0f);
  const auto run = [&](std::size_t threads) {
    std::string text;
    runWithThreads(threads, [&] {
      GuideHierarchy hierarchy = makeFamily(150, 4);
      hierarchy.updateFromScalp(&scalp);
      text = hierarchy.toJson();
      hierarchy = GuideHierarchy::fromJson(text);
      hierarchy.updateFromScalp(&scalp);
      text += hierarchy.toJson();
    });
    return text;
  };
  EXPECT_EQ(run(1), run(0));
}

}  // namespace
}  // namespace kestrane
