// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/base/parallel.h"
#include "core/data/polyline.h"
#include "core/guides/guide_checks.h"
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

Vec3f shifted(Vec3f p) {
  return p + Vec3f{5, -2, 7};
}

std::vector<Vec3f> mapped(std::vector<Vec3f> points, Vec3f (*map)(Vec3f)) {
  for (Vec3f& point : points) point = map(point);
  return points;
}

/// A family whose members are free, following, locked, and following from a place on the scalp.
GuideHierarchy makeBoundFamily(const ScalpMesh& scalp) {
  GuideHierarchy hierarchy = makeFamily(5);
  const GuideSet locks = hierarchy.guidesAtLevel(1);
  const std::uint64_t held[] = {locks.guides[0].id, locks.guides[4].id};
  hierarchy.setLocked(held, true);
  hierarchy.updateFromScalp(&scalp);
  hierarchy.setLocked(std::span(held, 1), false);
  hierarchy.updateFromScalp(&scalp);
  return hierarchy;
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

/// Children of children are led by frames whose up vector is their parent's own and does not turn
/// with the scalp, so that only a shift carries them along unchanged.
TEST(GuideFollow, ARigidMotionOfTheScalpMovesTheGuidesRigidly) {
  const ScalpMesh scalp = test::makeGrid(8, 20.0f);
  GuideHierarchy hierarchy = makeFamily(4);
  const std::uint64_t locked = hierarchy.guidesAtLevel(1).guides[2].id;
  hierarchy.setLocked(std::span(&locked, 1), true);
  hierarchy.updateFromScalp(&scalp);
  const GuideHierarchy before = hierarchy;
  const std::vector<int> levels = before.guideLevels();
  for (const auto map : {moved, shifted}) {
    hierarchy.updateFromScalp(scalp.withPoints(mapped(scalp.points(), map)).get());
    for (std::size_t i = 0; i < before.guides().size(); ++i) {
      if (levels[i] > 1 && map == moved) continue;
      SCOPED_TRACE(i);
      const GuideRecord &was = before.guides()[i], &is = hierarchy.guides()[i];
      test::expectNearPoints(is.points, mapped(was.points, map), 2e-4f);
      if (is.follows()) {
        EXPECT_EQ(is.frameUp, was.frameUp);
      }
    }
  }
}

TEST(GuideFollow, AGroomThatWasSavedAndReadIsTheOneThatStayedOpen) {
  const ScalpMesh scalp = test::makeSphere(16, 32, 9.0f);
  const auto turned = scalp.withPoints(mapped(scalp.points(), moved));
  GuideHierarchy stayed = makeBoundFamily(scalp);
  stayed.updateFromScalp(turned.get());
  GuideHierarchy read = GuideHierarchy::fromJson(stayed.toJson());
  for (const ScalpMesh* mesh : {turned.get(), turned.get(), &scalp}) {
    stayed.updateFromScalp(mesh);
    read.updateFromScalp(mesh);
    EXPECT_EQ(read.contentHash(), stayed.contentHash());
    EXPECT_EQ(read.guides(), stayed.guides());
    EXPECT_EQ(read.toJson(), stayed.toJson());
  }
}

TEST(GuideFollow, ASecondUpdateOnTheSameScalpChangesNoBit) {
  const ScalpMesh scalp = test::makeSphere(16, 32, 9.0f);
  GuideHierarchy hierarchy = makeBoundFamily(scalp);
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

/// Posed, some of these guides would lie at infinity, from where no document could bring them back.
TEST(GuideFollow, GuidesStayWithinTheRangeOfNumbers) {
  const std::string text =
      R"({"groups":[{"id":1,"name":"a"},{"id":2,"name":"b","parent":1}],"guides":[)"
      R"({"id":1,"group":1,"root":[40,0.2,0.3],"frameUp":[1,0,0],"tube":{"radius":[9],"twist":0},)"
      R"("points":[0,9,0,0,10,0],"rootLocal":[0,0,0,3e38,3e38,3e38]},)"
      R"({"id":2,"group":1,"root":[40,0.2,0.3],"frameUp":[1,0,0],"tube":{"radius":[9],"twist":0},)"
      R"("points":[0,9,0,0,10,0],"rootLocal":[0,0,0,0,0,1],"frameUpLocal":[3e38,3e38,3e38]},)"
      R"({"id":3,"group":1,"root":[-1,0,0],"frameUp":[1,0,0],"tube":{"radius":[9],"twist":0},)"
      R"("points":[3e38,3e38,3e38,-3e38,-3e38,-3e38]},)"
      R"({"id":4,"group":1,"root":[-1,0,0],"frameUp":[3e38,3e38,3e38],)"
      R"("tube":{"radius":[9],"twist":0},"points":[0,9,0,0,10,0]},)"
      R"({"id":5,"group":1,"root":[-1,0,0],"frameUp":[1,0,0],"tube":{"radius":[0],"twist":0},)"
      R"("points":[1,9,1,3e38,3e38,3e38]},)"
      R"({"id":6,"group":2,"parent":4,"root":[-1,0,0],"frameUp":[1,0,0],)"
      R"("tube":{"radius":[1],"twist":0},"offsets":[3e38,0,0,3e38,3e38,0]},)"
      R"({"id":7,"group":2,"parent":5,"root":[-1,0,0],"frameUp":[1,0,0],)"
      R"("tube":{"radius":[1],"twist":0},"points":[1e33,9,0,1,10,0]}]})";
  const ScalpMesh scalp = test::makeSphere(16, 32, 9.0f);
  GuideHierarchy hierarchy = GuideHierarchy::fromJson(text);
  for (const auto map : {shifted, moved}) {
    hierarchy.updateFromScalp(scalp.withPoints(mapped(scalp.points(), map)).get());
    for (const GuideRecord& guide : hierarchy.guides()) {
      EXPECT_TRUE(detail::allFinite(guide.points)) << guide.id;
      EXPECT_TRUE(detail::allFinite(guide.offsets)) << guide.id;
      EXPECT_TRUE(detail::allFinite(guide.rootLocal)) << guide.id;
      EXPECT_TRUE(isFinite(guide.frameUp) && isFinite(guide.frameUpLocal)) << guide.id;
    }
  }
  EXPECT_EQ(hierarchy.guides()[0].points, (std::vector<Vec3f>{{0, 9, 0}, {0, 10, 0}}));
  EXPECT_EQ(GuideHierarchy::fromJson(hierarchy.toJson()).guides().size(), 7u);
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
