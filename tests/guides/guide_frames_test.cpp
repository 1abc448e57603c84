// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/guides/guide_frames.h"

#include <cfloat>
#include <numbers>

#include "tests/guides/guide_fixtures.h"

namespace kestrane {
namespace {

using test::windingCurve;

TEST(GuideFrames, AreOrthonormalForEveryCurve) {
  const float nan = std::nanf("");
  const std::vector<std::vector<Vec3f>> curves = {
      windingCurve({}, 12),
      {{1, 2, 3}},
      {{1, 2, 3}, {1, 2, 3}, {1, 2, 3}},
      {{0, 0, 0}, {0, 0, 0}, {0, 1, 0}, {0, 1, 0}, {1, 1, 0}},
      {{0, 0, 0}, {0, 1, 0}, {0, 0, 0}, {0, 1, 0}},
      {{0, 0, 0}, {1e-18f, 0, 0}, {1e-18f, 1e-18f, 0}},
      {{0, 0, 0}, {1e30f, 0, 0}, {0, FLT_MAX, 0}, {-FLT_MAX, 0, 0}},
      {{0, 0, 0}, {nan, 0, 0}, {1, nan, nan}, {2, 0, 0}},
  };
  for (std::size_t c = 0; c < curves.size(); ++c) {
    for (const Vec3f up : {Vec3f{0, 1, 0}, Vec3f{1, 0, 0}, Vec3f{}, Vec3f{nan, 1, 0}}) {
      for (const GuideFrame& frame : guideFrames(curves[c], up)) {
        EXPECT_NEAR(length(frame.tangent), 1.0f, 1e-5f) << "curve " << c;
        EXPECT_NEAR(length(frame.up), 1.0f, 1e-5f) << "curve " << c;
        EXPECT_NEAR(dot(frame.tangent, frame.up), 0.0f, 1e-5f) << "curve " << c;
        EXPECT_LE(distance(cross(frame.tangent, frame.side), frame.up), 1e-5f) << "curve " << c;
      }
    }
  }
}

TEST(GuideFrames, KeepTheNormalOfAFlatCurveAndTurnWithIt) {
  std::vector<Vec3f> arc(40);
  for (std::size_t i = 0; i < arc.size(); ++i) {
    const float turn = 0.1f * static_cast<float>(i);
    arc[i] = {std::cos(turn), std::sin(turn), 0.0f};
  }
  for (const GuideFrame& frame : guideFrames(arc, {0, 0, 1})) {
    EXPECT_LE(distance(frame.up, {0, 0, 1}), 1e-5f);
  }
  // An up vector that points outward stays on the radius.
  const auto frames = guideFrames(arc, {1, 0, 0});
  for (std::size_t i = 1; i + 1 < arc.size(); ++i) {
    EXPECT_LE(distance(frames[i].up, arc[i]), 2e-3f) << i;
  }
}

TEST(GuideFrames, AClosedLoopInSpaceReturnsTurnedByItsSolidAngle) {
  // Carried round a circle of latitude drawn by its directions, a frame turns by the area that the
  // directions enclose on the unit sphere: 2 pi (1 - cos a) for a cone of half angle a.
  const double a = 0.6;
  const int steps = 2000;
  std::vector<Vec3f> curve(static_cast<std::size_t>(steps) + 3);
  double x = 0, y = 0, z = 0;
  for (std::size_t i = 0; i < curve.size(); ++i) {
    curve[i] = {static_cast<float>(x), static_cast<float>(y), static_cast<float>(z)};
    const double turn = 2.0 * std::numbers::pi * (static_cast<double>(i) + 0.5) / steps;
    x += std::sin(a) * std::cos(turn) * 0.01;
    y += std::sin(a) * std::sin(turn) * 0.01;
    z += std::cos(a) * 0.01;
  }
  const auto frames = guideFrames(curve, {0, 1, 0});
  // Inner points have symmetric tangents; two of them one turn apart compare.
  const GuideFrame &first = frames[1], &last = frames[curve.size() - 2];
  ASSERT_LE(distance(first.tangent, last.tangent), 1e-2f);
  const double turned = std::atan2(dot(last.up, first.side), dot(last.up, first.up));
  const double wanted = 2.0 * std::numbers::pi * (1.0 - std::cos(a));
  EXPECT_NEAR(std::abs(turned), wanted, 1e-2);
}

TEST(GuideFrames, CarryBackToWhereTheyCameFrom) {
  // Double reflection is reversible even where a curve has far too few points.
  std::vector<Vec3f> curve{{0, 0, 0}, {1, 0.2f, 0}, {1.5f, 1, 0.8f}, {1, 2, 1.6f}, {0, 2.2f, 1}};
  const auto frames = guideFrames(curve, {0.3f, 1, 0.2f});
  std::reverse(curve.begin(), curve.end());
  const auto back = guideFrames(curve, frames.back().up);
  EXPECT_LE(distance(back.back().up, frames.front().up), 1e-5f);
}

TEST(PoseChild, IsTheInverseOfTakingOffsets) {
  GuideRecord parent;
  parent.points = windingCurve({1, 2, 3}, 7);
  parent.frameUp = frameUpFor(parent.points);
  parent.tube = {{0.4f, 1.5f, 0.05f}, 2.3f};
  for (const std::size_t count : {2u, 7u, 16u}) {
    const std::vector<Vec3f> wanted = windingCurve({1.5f, 1.8f, 3.2f}, count, 5.0f);
    const FollowedCurve curve = followedCurve(parent, count);
    GuideRecord child;
    child.offsets = offsetsOf(wanted, parent.tube, curve);
    poseChild(child, parent.tube, curve, nullptr);
    test::expectNearPoints(child.points, wanted, 2e-5f);
  }
}

TEST(PoseChild, TurnsOffsetsByTheParentsTwistWithinItsTube) {
  GuideRecord parent;
  parent.points = {{0, 0, 0}, {0, 1, 0}, {0, 2, 0}};
  parent.frameUp = {0, 0, 1};
  parent.tube = {{1.0f, 3.0f}, std::numbers::pi_v<float> / 2.0f};
  GuideRecord child;
  child.offsets = {{1, 0, 0}, {0, 0, 0.25f}, {1, 0, 0}};
  poseChild(child, parent.tube, followedCurve(parent, 3), nullptr);
  // The tangent is Y and the up vector Z, so that the side is Z x Y = -X; a quarter turn at the
  // tip makes side into up.
  test::expectNearPoints(child.points, {{-1, 0, 0}, {0, 1.25f, 0}, {0, 2, 3}}, 1e-5f);
}

TEST(PoseChild, DrawsARootedChildOntoTheScalp) {
  const ScalpMesh scalp = test::makeSphere(24, 48, 10.0f);
  GuideRecord parent;
  parent.points = {{0, 10, 0}, {0, 11, 0}, {0, 12, 0}};
  parent.frameUp = {0, 0, 1};
  parent.tube.radius = {1.0f};
  GuideRecord child;
  child.offsets.assign(3, {4, 0, 0});
  child.root = scalp.closestPoint({-3, 9, 0}).root;
  poseChild(child, parent.tube, followedCurve(parent, 3), &scalp);
  const Vec3f before{-4, 10, 0};
  const SurfaceHit hit = scalp.closestPoint(before);
  EXPECT_EQ(child.root, hit.root);
  const Vec3f shift = hit.position - before;
  test::expectNearPoints(child.points,
                         {hit.position, Vec3f{-4, 11, 0} + shift * 0.25f, {-4, 12, 0}}, 1e-4f);
}

}  // namespace
}  // namespace kestrane
