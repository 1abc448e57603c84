// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <numbers>

#include "core/ops/curl_kernel.h"
#include "tests/ops/curl_fixtures.h"

namespace kestrane {
namespace {

using test::OpsFixture;
using test::plainCurl;
using test::upright;

constexpr float pi = std::numbers::pi_v<float>;

/// Where a point lies around the Y axis, in radians.
float angleOf(Vec3f p) {
  return std::atan2(p.z, p.x);
}
float radiusOf(Vec3f p) {
  return std::hypot(p.x, p.z);
}
/// The way from one angle to another, -pi to pi.
float turned(float from, float to) {
  return std::remainder(to - from, 2.0f * pi);
}

TEST(Curl, PiecesPerTurnAreTheFewestWithinTheTolerance) {
  const std::pair<double, int> known[] = {{0, 0}, {1, 3}, {0.5, 3}, {0.3, 4}, {0.1, 7}, {0.03, 13}};
  for (const auto& [tolerance, pieces] : known) EXPECT_EQ(curlPiecesPerTurn(tolerance), pieces);
  for (double tolerance = 0.49; tolerance > 1e-4; tolerance *= 0.83) {
    const int n = curlPiecesPerTurn(tolerance);
    const auto strays = [](int count) { return 1.0 - std::cos(pi / count); };
    EXPECT_LE(strays(n), tolerance * 1.001) << tolerance;
    if (n > 3) {
      EXPECT_GT(strays(n - 1), tolerance * 0.999) << tolerance;
    }
  }
}

TEST(Curl, FrequencyProfilesAreIntegrated) {
  const auto at = [](const Ramp& ramp, double share) {
    return FrequencyProfile(ramp).integral(share);
  };
  for (double t = 0.0; t <= 1.0; t += 0.03) {
    EXPECT_NEAR(at(Ramp({{0.0f, 0.5f}}), t), 0.5 * t, 1e-12);
    EXPECT_NEAR(at(Ramp({{0.0f, 1.0f}, {1.0f, 0.2f}}), t), t - 0.4 * t * t, 1e-6);
    EXPECT_NEAR(at(Ramp({{0.0f, -1.0f}, {1.0f, 1.0f}}), t), t < 0.5 ? 0.0 : (t - 0.5) * (t - 0.5),
                1e-6);
  }
  // Nowhere a jump, not even where the profile has one.
  const FrequencyProfile step(Ramp({{0.0f, 0.0f}, {0.5f, 0.0f}, {0.5f, 1.0f}, {1.0f, 1.0f}}));
  for (double t = 0.498; t < 0.502; t += 1e-6) {
    EXPECT_LT(std::abs(step.integral(t + 1e-6) - step.integral(t)), 2e-6);
  }
}

TEST(Curl, AddsAsManyPointsATurnAsItsToleranceAsksFor) {
  OpsFixture fixture;
  const auto op = plainCurl(fixture);
  for (const auto& [tolerance, pieces] : {std::pair(0.5, 3), {0.3, 4}, {0.1, 7}, {0.03, 13}}) {
    op->parameters.set("tolerance", tolerance);
    EXPECT_EQ(fixture.run(*op, upright(2, 10.0f))->pointCount(), 10u * pieces + 1) << tolerance;
    // What has enough of its own gets none, and what has too few keeps them all.
    const StrandSet dense = upright(10 * static_cast<std::size_t>(pieces) + 1, 10.0f);
    EXPECT_TRUE(fixture.run(*op, dense)->sharesOffsetsWith(dense)) << tolerance;
  }
  op->parameters.set("tolerance", 0.0);
  const StrandSet few = upright(3, 10.0f);
  EXPECT_TRUE(fixture.run(*op, few)->sharesOffsetsWith(few));
}

TEST(Curl, NoSegmentTurnsFartherThanItMayHoweverTheFrequencyVaries) {
  OpsFixture fixture;
  const auto op = plainCurl(fixture);
  op->parameters.set("frequencyProfile", Ramp({{0.0f, 1.0f}, {0.4f, 0.1f}, {1.0f, 0.7f}}));
  op->parameters.set("spacingRandom", 0.9);
  op->parameters.set("randomness", 0.8);
  op->parameters.set("tolerance", 0.1);
  const StrandSetPtr smooth = fixture.run(*op, upright(4001, 12.0f, 20));
  for (const std::size_t points : {2u, 5u, 17u}) {
    const StrandSetPtr curled = fixture.run(*op, upright(points, 12.0f, 20));
    for (std::size_t i = 0; i < 20; ++i) {
      const auto strand = curled->strandPoints(i);
      float all = 0.0f;
      for (std::size_t k = 2; k < strand.size(); ++k) {
        const float step = std::abs(turned(angleOf(strand[k - 1]), angleOf(strand[k])));
        EXPECT_LT(step, 2.0f * pi / 7.0f * 1.01f);
        all += step;
      }
      // And few points are wasted: but for one a segment coming in, they are all needed.
      EXPECT_LT(static_cast<float>(strand.size()), all / (2.0f * pi) * 7.0f + 4.0f + points);
      // Each lies on the curl that many points draw.
      for (const Vec3f p : strand) {
        const auto k = static_cast<std::size_t>(p.y / 12.0f * 4000.0f + 0.5f);
        EXPECT_LT(distance(p, smooth->strandPoints(i)[k]), 0.02f);
      }
    }
  }
}

TEST(Curl, MostSegmentsAreKeptToAndSpreadEvenly) {
  OpsFixture fixture;
  for (const char* shape : {"helix", "zigzag"}) {
    const auto op = plainCurl(fixture, shape);
    op->parameters.set("frequency", 50.0);
    op->parameters.set("maxSegments", std::int64_t{40});
    const StrandSetPtr curled = fixture.run(*op, upright(4, 10.0f));
    EXPECT_EQ(curled->pointCount(), 41u);
    for (std::size_t k = 1; k < 41; ++k) {
      EXPECT_NEAR(curled->points()[k].y - curled->points()[k - 1].y, 0.25f, 0.06f);
    }
    const StrandSet more = upright(60, 10.0f);
    EXPECT_EQ(fixture.run(*op, more)->pointCount(), 60u);
  }
}

TEST(Curl, RadiusZeroLeavesStrandsButForPointsOnThem) {
  OpsFixture fixture;
  StrandSet strands = fixture.rootedStrands(30, 4);
  strands.addStrand(900, {}, {});
  strands.addStrand(901, {}, std::vector<Vec3f>{{1, 2, 3}});
  const auto op = fixture.make("Curl");
  op->parameters.set("radius", 0.0);
  op->parameters.set("frequency", 3.0);
  const StrandSetPtr curled = fixture.run(*op, strands);
  EXPECT_GT(curled->pointCount(), 2 * strands.pointCount());
  for (std::size_t i = 0; i < strands.strandCount(); ++i) {
    const auto before = strands.strandPoints(i), after = curled->strandPoints(i);
    std::size_t next = 0;
    for (const Vec3f p : after) {
      if (next < before.size() && p == before[next]) {
        ++next;
        continue;
      }
      ASSERT_TRUE(next > 0 && next < before.size());
      const Vec3f a = before[next - 1], b = before[next];
      EXPECT_NEAR(distance(a, p) + distance(p, b), distance(a, b), 1e-4f);
    }
    EXPECT_EQ(next, before.size()) << "every point coming in is there, in order";
  }
  EXPECT_TRUE(curled->sharesIdsWith(strands) && curled->sharesRootsWith(strands));
  EXPECT_TRUE(curled->sharesStrandChannelWith("clumpId", strands));
  op->parameters.set("tolerance", 0.0);
  const auto input = std::make_shared<const StrandSet>(strands);
  EXPECT_EQ(valueAs<StrandSet>(op->evaluate(fixture.context, std::vector<GraphValue>{input})),
            input);
}

TEST(Curl, AddedPointsMixWidthsAndChannelsOfTheirNeighbours) {
  OpsFixture fixture;
  StrandSet strands = upright(3, 8.0f);
  Array<float>& wet = strands.addPointChannel("wet", 0.0f);
  wet = {0.0f, 1.0f, 0.5f};
  const StrandSetPtr curled = fixture.run(*plainCurl(fixture), strands);
  ASSERT_EQ(curled->pointCount(), 25u);
  for (std::size_t k = 0; k < 25; ++k) {
    const float t = static_cast<float>(k) / 24.0f;
    EXPECT_NEAR(curled->widths()[k], 0.4f - 0.3f * t, 1e-5f);
    EXPECT_NEAR((*curled->pointChannel("wet"))[k], t < 0.5f ? 2.0f * t : 1.5f - t, 1e-5f);
    EXPECT_NEAR(curled->points()[k].y, 8.0f * t, 1e-4f);
  }
}

TEST(Curl, HelixKeepsItsRadiusAndTurnsByTheIntegralOfTheFrequency) {
  OpsFixture fixture;
  const auto op = plainCurl(fixture);
  op->parameters.set("radius", 0.7);
  op->parameters.set("frequencyProfile", Ramp({{0.0f, 1.0f}, {1.0f, 0.0f}}));
  const StrandSetPtr curled = fixture.run(*op, upright(200, 6.0f));
  const auto points = curled->strandPoints(0);
  EXPECT_EQ(points[0], Vec3f());
  const auto turnsAt = [](float s) { return s - s * s / 12.0f; };
  const float hand = turned(angleOf(points[60]), angleOf(points[61])) > 0.0f ? 1.0f : -1.0f;
  for (std::size_t k = 60; k < points.size(); ++k) {
    EXPECT_NEAR(radiusOf(points[k]), 0.7f, 1e-4f);
    const float want =
        angleOf(points[60]) + hand * 2.0f * pi * (turnsAt(points[k].y) - turnsAt(points[60].y));
    EXPECT_NEAR(turned(want, angleOf(points[k])), 0.0f, 2e-3f) << k;
  }
  // Eased in over the first quarter turn.
  float last = -1.0f;
  for (std::size_t k = 0; turnsAt(points[k].y) < 0.25f; ++k) {
    EXPECT_GT(radiusOf(points[k]), last);
    EXPECT_LE(last = radiusOf(points[k]), 0.7001f);
  }
  op->parameters.set("frequency", -1.0);
  const StrandSetPtr mirrored = fixture.run(*op, upright(200, 6.0f));
  EXPECT_EQ(turned(angleOf(mirrored->points()[60]), angleOf(mirrored->points()[61])) > 0.0f,
            hand < 0.0f);
}

TEST(Curl, WaveIsAPlanarSine) {
  OpsFixture fixture;
  const auto op = plainCurl(fixture, "wave");
  op->parameters.set("frequency", 0.5);
  const StrandSetPtr curled = fixture.run(*op, upright(101, 10.0f));
  const auto points = curled->strandPoints(0);
  const Vec3f crest = points[5] - Vec3f{0, points[5].y, 0};  // a quarter turn
  EXPECT_NEAR(length(crest), 0.5f, 1e-5f);
  for (std::size_t k = 5; k < points.size(); ++k) {
    const Vec3f want = crest * std::sin(pi * points[k].y);
    EXPECT_NEAR(distance(points[k], want + Vec3f{0, points[k].y, 0}), 0.0f, 1e-4f);
  }
}

TEST(Curl, ZigzagIsStraightBetweenItsKinksAndHasThemAll) {
  OpsFixture fixture;
  const auto op = plainCurl(fixture, "zigzag");
  op->parameters.set("phase", 0.1);
  // Of uneven turns the points coming in bend the way between kinks; of even ones nothing does.
  for (const bool even : {true, false}) {
    op->parameters.set("frequency", even ? 1.0 : -1.0);
    if (!even) {
      op->parameters.set("frequencyProfile", Ramp({{0.0f, 1.0f}, {1.0f, 0.3f}}));
      op->parameters.set("spacingRandom", 0.8);
    }
    const StrandSetPtr curled = fixture.run(*op, upright(6, 9.0f));
    const auto points = curled->strandPoints(0);
    int kinks = 0;
    const auto side = [&](std::size_t k) { return points[k].x + points[k].z; };  // one of them is 0
    for (std::size_t k = 1; k + 1 < points.size(); ++k) {
      const bool peak = (side(k) - side(k - 1)) * (side(k + 1) - side(k)) < 0.0f;
      if (!peak || points[k].y < 0.5f) continue;
      ++kinks;
      EXPECT_NEAR(std::abs(side(k)), 0.5f, 1e-4f);
    }
    if (even) {
      EXPECT_EQ(kinks, 17);  // at 0.65, 1.15 ... 8.65: the one at 0.15 is eased
      EXPECT_EQ(points.size(), 6u + 18u);
    } else {
      EXPECT_GT(kinks, 8);
    }
  }
}

TEST(Curl, CoilFollowsTheWidths) {
  OpsFixture fixture;
  const auto op = plainCurl(fixture, "coil");
  op->parameters.set("coilWidths", 2.0);
  op->parameters.set("radius", MapRef{MapSource::attribute, "not there"});
  for (const std::size_t points : {4u, 100u}) {
    const StrandSetPtr curled = fixture.run(*op, upright(points, 7.0f));
    EXPECT_EQ(curled->pointCount() > points, points == 4);
    for (std::size_t k = 0; k < curled->pointCount(); ++k) {
      const Vec3f p = curled->points()[k];
      if (p.y < 0.25f) continue;
      EXPECT_NEAR(radiusOf(p), 2.0f * (0.4f - 0.3f * p.y / 7.0f), 1e-4f);
    }
  }
}

TEST(Curl, RadiusMayVaryPerPointAndAlongTheProfile) {
  OpsFixture fixture;
  StrandSet strands = upright(3, 8.0f, 2);
  strands.addPointChannel("wide", 0.0f) = {0, 1, 2, 4, 4, NAN};
  const auto op = plainCurl(fixture);
  op->parameters.set("radius", MapRef{MapSource::attribute, "wide"});
  op->parameters.set("profile", Ramp({{0.0f, 1.0f}, {1.0f, 0.0f}}, true));
  const StrandSetPtr curled = fixture.run(*op, strands);
  for (const Vec3f p : curled->strandPoints(0)) {
    const float t = p.y / 8.0f;
    EXPECT_NEAR(radiusOf(p), 2.0f * t * (1.0f - t), 2e-4f);
  }
  for (const Vec3f p : curled->strandPoints(1)) {
    EXPECT_TRUE(isFinite(p));
    EXPECT_NEAR(radiusOf(p), p.y > 4.001f ? 0.0f : p.y == 0 ? 0.0f : 4 * (1 - p.y / 8), 1e-3f);
  }
}

TEST(Curl, FramesNeitherFlipNorTurnAboutABentStrand) {
  std::vector<Vec3f> steps;
  for (int k = 0; k < 400; ++k) {
    const float a = 0.05f * static_cast<float>(k), b = 0.083f * static_cast<float>(k);
    steps.push_back({std::cos(a), std::sin(a) * std::cos(b), std::sin(a) * std::sin(b)});
    if (k % 50 == 0) steps.push_back({});  // coincident points
  }
  CurlFrames frames;
  frames.transport(steps, {0.3f, 1, 0.2f});
  for (std::size_t k = 0; k + 1 <= steps.size(); ++k) {
    const CurlFrame a = frames.at(k), b = frames.at(k + 1), half = frames.between(k, 0.5f);
    for (const CurlFrame& frame : {b, half}) {
      EXPECT_NEAR(length(frame.normal), 1.0f, 1e-5f);
      EXPECT_NEAR(length(frame.binormal), 1.0f, 1e-5f);
      EXPECT_NEAR(dot(frame.normal, frame.binormal), 0.0f, 1e-5f);
      EXPECT_GT(dot(a.normal, frame.normal), 0.98f);
    }
    if (k < steps.size()) {
      EXPECT_NEAR(dot(half.normal, steps[k]), 0.0f, 0.06f);
    }
    // No turn of their own: what one normal has of the next binormal is of second order.
    EXPECT_NEAR(dot(a.normal, b.binormal), 0.0f, 6e-3f);
  }
  // In a plane the binormal stands, all the way round and where the strand turns right back.
  const Vec3f up = normalize(Vec3f{1, 2, 3}), x = anyPerpendicular(up), y = cross(up, x);
  std::vector<Vec3f> loop;
  for (int k = 0; k < 100; ++k) {
    const float a = 0.2f * static_cast<float>(k);
    loop.push_back(x * std::cos(a) + y * std::sin(a));
    if (k % 30 == 0) loop.push_back(-loop.back());
  }
  frames.transport(loop, y);
  for (std::size_t k = 0; k <= loop.size(); ++k) {
    EXPECT_NEAR(std::abs(dot(frames.at(k).binormal, up)), 1.0f, 1e-4f) << k;
  }
}

TEST(Curl, AStrandThatTurnsRightBackTakesItsFrameAlong) {
  CurlFrames frames;
  frames.transport(std::vector<Vec3f>{{1, 0, 0}, {-1, 0, 0}, {-1, 0, 0}}, {0, 3, 4});
  for (std::size_t k = 0; k < 4; ++k) {
    EXPECT_NEAR(distance(frames.at(k).normal, {0, 0.6f, 0.8f}), 0.0f, 1e-6f);
  }
}

TEST(Curl, BeginsAtTheSurfacesTangent) {
  OpsFixture fixture;
  const StrandSet strands = fixture.rootedStrands(60, 9);
  const auto op = plainCurl(fixture, "wave");
  op->parameters.set("tolerance", 0.0);
  op->parameters.set("frequency", 0.2);
  const StrandSetPtr curled = fixture.run(*op, strands);
  for (std::size_t i = 0; i < strands.strandCount(); ++i) {
    const auto before = strands.strandPoints(i), after = curled->strandPoints(i);
    EXPECT_EQ(after[0], before[0]);
    const Vec3f tangent = fixture.scalp->frameAt(strands.roots()[i]).tangent;
    const Vec3f along = normalize(before[1] - before[0]);
    const Vec3f want = normalize(tangent - along * dot(tangent, along));
    // Small bends turn the frame a little on its way to the next points.
    EXPECT_GT(dot(normalize(after[1] - before[1]), want), 0.9f) << i;
  }
}

TEST(Curl, PhaseStartsTheTurnAndVariesByItsRandomShare) {
  OpsFixture fixture;
  const StrandSet strands = upright(100, 3.0f, 200);
  const auto op = plainCurl(fixture);
  const auto anglesAt = [&](double phase, double random) {
    op->parameters.set("phase", phase);
    op->parameters.set("phaseRandom", random);
    const StrandSetPtr curled = fixture.run(*op, strands);
    std::vector<float> angles;
    for (std::size_t i = 0; i < 200; ++i) angles.push_back(angleOf(curled->strandPoints(i)[70]));
    return angles;
  };
  const std::vector<float> none = anglesAt(0, 0), quarter = anglesAt(0.25, 0),
                           half = anglesAt(0, 0.5);
  const float hand = turned(none[0], quarter[0]) > 0.0f ? 1.0f : -1.0f;
  float least = 9.0f, most = -9.0f;
  for (std::size_t i = 0; i < 200; ++i) {
    EXPECT_EQ(none[i], none[0]);
    EXPECT_NEAR(turned(none[i], quarter[i]), hand * 0.5f * pi, 1e-3f);
    const float shift = hand * turned(none[i] + hand * 0.5f * pi, half[i]);
    least = std::min(least, shift);
    most = std::max(most, shift);
  }
  EXPECT_NEAR(least, -0.5f * pi, 0.1f);
  EXPECT_NEAR(most, 0.5f * pi, 0.1f);
  op->parameters.set("seed", std::int64_t{1});
  EXPECT_NE(anglesAt(0, 0.5), half);
}

TEST(Curl, RandomnessVariesRadiusAndFrequencyOfEachStrandApart) {
  OpsFixture fixture;
  const auto op = plainCurl(fixture);
  op->parameters.set("randomness", 0.4);
  op->parameters.set("tolerance", 0.03);
  const StrandSetPtr curled = fixture.run(*op, upright(2, 10.0f, 500));
  float least = 9.0f, most = 0.0f, product = 0.0f;
  for (std::size_t i = 0; i < 500; ++i) {
    const auto points = curled->strandPoints(i);
    const float radius = radiusOf(points.back()) / 0.5f;
    const float frequency = static_cast<float>(points.size() - 1) / 130.0f;
    EXPECT_GT(frequency, 0.59f);
    EXPECT_LT(frequency, 1.42f);
    least = std::min(least, radius);
    most = std::max(most, radius);
    product += (radius - 1.0f) * (frequency - 1.0f) / 500.0f;
  }
  EXPECT_NEAR(least, 0.6f, 0.02f);
  EXPECT_NEAR(most, 1.4f, 0.02f);
  EXPECT_NEAR(product, 0.0f, 0.01f) << "one draw does not stand for both";
}

TEST(Curl, SpacingVariesSmoothlyWithinItsShare) {
  OpsFixture fixture;
  const auto op = plainCurl(fixture);
  op->parameters.set("spacingRandom", 0.5);
  const std::size_t count = 4001;
  const StrandSetPtr curled = fixture.run(*op, upright(count, 40.0f));
  const auto points = curled->strandPoints(0);
  float least = 9.0f, most = 0.0f, last = 0.0f;
  for (std::size_t k = 100; k < count; ++k) {
    const float frequency =
        std::abs(turned(angleOf(points[k - 1]), angleOf(points[k]))) / (2.0f * pi * 0.01f);
    least = std::min(least, frequency);
    most = std::max(most, frequency);
    if (k > 100) {
      EXPECT_NEAR(frequency, last, 0.03f) << k;
    }
    last = frequency;
  }
  EXPECT_GE(least, 0.49f);
  EXPECT_LT(least, 0.8f);
  EXPECT_LE(most, 1.51f);
  EXPECT_GT(most, 1.2f);
}

}  // namespace
}  // namespace kestrane
