// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/data/polyline.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace kestrane {
namespace {

using Points = std::vector<Vec3f>;

const float infinity = std::numeric_limits<float>::infinity();

/// A curve with bends, steps of many sizes and a double point.
Points makeCurve(std::size_t count) {
  Points points;
  for (std::size_t k = 0; k < count; ++k) {
    const float t = static_cast<float>(k * k) * 0.1f;
    points.push_back({std::sin(t), t, std::cos(3.0f * t)});
  }
  if (count > 5) points[5] = points[4];
  return points;
}

Points resampled(const Points& points, std::size_t count) {
  Points out(count, {9, 9, 9});
  resamplePolyline(points, out);
  return out;
}

/// The distance from a point to the nearest place on a polyline.
float distanceTo(const Points& points, Vec3f p) {
  float nearest = infinity;
  for (std::size_t k = 1; k < points.size(); ++k) {
    const Vec3f along = points[k] - points[k - 1];
    const float size = lengthSquared(along);
    const float t = size > 0 ? std::clamp(dot(p - points[k - 1], along) / size, 0.0f, 1.0f) : 0.0f;
    nearest = std::min(nearest, distance(p, points[k - 1] + along * t));
  }
  return nearest;
}

TEST(Polyline, ArcSharesRiseFromRootToTip) {
  const Points points = {{0, 0, 0}, {1, 0, 0}, {1, 0, 0}, {1, 3, 0}};
  std::vector<float> shares(4);
  arcShares(points, shares);
  EXPECT_EQ(shares, (std::vector<float>{0, 0.25f, 0.25f, 1}));
  EXPECT_EQ(polylineLength(points), 4.0f);
  for (const std::size_t count : {2, 6, 50}) {
    std::vector<float> curve(count);
    arcShares(makeCurve(count), curve);
    EXPECT_EQ(curve.front(), 0.0f);
    EXPECT_EQ(curve.back(), 1.0f);
    EXPECT_TRUE(std::is_sorted(curve.begin(), curve.end()));
  }
}

TEST(Polyline, LengthsAddUpSegmentBySegment) {
  std::vector<Vec3f> points;
  float total = 0.0f;
  // Past twice the number of segments that are measured at once.
  for (int i = 0; i < 140; ++i) {
    const Vec3f next{static_cast<float>(i % 7), static_cast<float>(i * i % 11), 0.5f};
    if (!points.empty()) total += distance(points.back(), next);
    points.push_back(next);
    EXPECT_EQ(polylineLength(points), total) << i;
    std::vector<float> lengths(points.size(), -1.0f);
    arcLengths(points, lengths);
    EXPECT_EQ(lengths.front(), 0.0f);
    EXPECT_EQ(lengths.back(), total) << i;
  }
  EXPECT_EQ(polylineLength({}), 0.0f);
}

TEST(Polyline, SharesGoByIndexWhereThereIsNoLength) {
  for (const float bad : {0.0f, std::nanf(""), infinity}) {
    const Points points = {{bad, 0, 0}, {0, 0, 0}, {0, 0, 0}};
    std::vector<float> shares(3, 9.0f);
    arcShares(points, shares);
    EXPECT_EQ(shares, (std::vector<float>{0, 0.5f, 1})) << bad;
  }
  std::vector<float> one(1, 9.0f);
  arcShares(Points{{1, 2, 3}}, one);
  EXPECT_EQ(one[0], 0.0f);
  arcShares({}, {});
  EXPECT_EQ(polylineLength({}), 0.0f);
  EXPECT_EQ(polylineLength(Points{{1, 2, 3}}), 0.0f);
}

TEST(Polyline, ResampledPointsLieOnTheCurveAtEvenLengths) {
  const Points points = makeCurve(12);
  const float total = polylineLength(points);
  for (const std::size_t count : {2, 3, 12, 100, 1000}) {
    const Points out = resampled(points, count);
    EXPECT_EQ(out.front(), points.front());
    EXPECT_EQ(out.back(), points.back());
    const float step = total / static_cast<float>(count - 1);
    for (std::size_t k = 0; k < count; ++k) {
      EXPECT_LT(distanceTo(points, out[k]), 1e-4f * total);
      // The way along the curve between two neighbours is the step, so the straight way is not
      // longer.
      if (k > 0) {
        EXPECT_LT(distance(out[k - 1], out[k]), step * 1.001f + 1e-5f);
      }
    }
  }
  for (std::size_t count = 2; count < 400; ++count) {
    ASSERT_EQ(resampled(points, count).back(), points.back()) << count;
  }
  // On a straight line the steps are the lengths.
  const Points line = resampled({{0, 0, 0}, {1, 0, 0}, {1, 0, 0}, {8, 0, 0}}, 9);
  for (std::size_t k = 0; k < 9; ++k) EXPECT_FLOAT_EQ(line[k].x, static_cast<float>(k));
}

TEST(Polyline, EvenlySpacedPointsStayWhereTheyAre) {
  Points points;
  for (int k = 0; k < 17; ++k) points.push_back({0.5f * static_cast<float>(k), 1, 2});
  EXPECT_EQ(resampled(points, 17), points);
  const Points fine = resampled(points, 33);
  for (std::size_t k = 0; k < 17; ++k) EXPECT_EQ(fine[2 * k], points[k]);
}

TEST(Polyline, ResamplingDegenerateCurves) {
  EXPECT_EQ(resampled({}, 3), Points(3));
  EXPECT_EQ(resampled({{1, 2, 3}}, 3), Points(3, {1, 2, 3}));
  EXPECT_EQ(resampled(Points(4, {1, 2, 3}), 7), Points(7, {1, 2, 3}));
  EXPECT_EQ(resampled({{1, 2, 3}, {4, 5, 6}}, 1), Points(1, {1, 2, 3}));
  EXPECT_EQ(resampled({{1, 2, 3}, {4, 5, 6}}, 0), Points());
  EXPECT_EQ(resampled({{0, 0, 0}, {0, 0, 0}, {2, 0, 0}}, 2), (Points{{0, 0, 0}, {2, 0, 0}}));
  // Numbers that are none come out again, and nothing worse; ends stay exact.
  for (const float bad : {std::nanf(""), infinity, 3e38f}) {
    const Points out = resampled({{1, 0, 0}, {bad, bad, -bad}, {2, 0, 0}}, 50);
    EXPECT_EQ(out.front(), (Vec3f{1, 0, 0}));
    EXPECT_EQ(out.back(), (Vec3f{2, 0, 0}));
  }
}

TEST(Polyline, ValuesGoWithThePoints) {
  const Points points = {{0, 0, 0}, {1, 0, 0}, {4, 0, 0}};
  // A value that is the position itself stays so at every place.
  const std::vector<float> values = {0, 1, 4};
  for (const std::size_t count : {1, 2, 5, 40}) {
    std::vector<float> out(count);
    resampleAlong(points, values, out);
    const Points places = resampled(points, count);
    for (std::size_t k = 0; k < count; ++k) EXPECT_EQ(out[k], places[k].x);
  }
  // At a point its own value comes out, not one that is rounded.
  const std::vector<float> odd = {0.1f, -3.7f, 8.9f, 1e30f, 2.0f};
  std::vector<float> same(5);
  resampleAlong(Points{{0, 0, 0}, {1, 0, 0}, {2, 0, 0}, {3, 0, 0}, {4, 0, 0}}, odd, same);
  EXPECT_EQ(same, odd);
  std::vector<float> still(3);
  resampleAlong(Points(2, {1, 1, 1}), std::vector<float>{2, 4}, still);
  EXPECT_EQ(still, (std::vector<float>{2, 3, 4}));
}

TEST(Polyline, ValuesByIndex) {
  using Values = std::vector<float>;
  EXPECT_EQ(resampleByIndex(Values{1, 3}, 3), (Values{1, 2, 3}));
  EXPECT_EQ(resampleByIndex(Values{1, 2, 5}, 5), (Values{1, 1.5f, 2, 3.5f, 5}));
  EXPECT_EQ(resampleByIndex(Values{1, 2, 5}, 1), Values{1});
  EXPECT_EQ(resampleByIndex(Values{4}, 3), (Values{4, 4, 4}));
  EXPECT_EQ(resampleByIndex({}, 3), (Values{0, 0, 0}));
  EXPECT_EQ(resampleByIndex(Values{1, 2}, 0), Values{});
  const Values odd = {0.1f, -3.7f, 8.9f, 1e30f, 2};
  EXPECT_EQ(resampleByIndex(odd, 5), odd);
  const Values fine = resampleByIndex(odd, 13);
  for (std::size_t k = 0; k < odd.size(); ++k) EXPECT_EQ(fine[3 * k], odd[k]);
}

TEST(Polyline, SmoothCurvePassesItsPoints) {
  const Points points = makeCurve(9);
  const Points curve = smoothCurve(points, 8);
  ASSERT_EQ(curve.size(), 65u);
  for (std::size_t k = 0; k < points.size(); ++k) EXPECT_EQ(curve[8 * k], points[k]);
  for (const Vec3f p : curve) EXPECT_TRUE(isFinite(p));
  EXPECT_EQ(smoothCurve(Points{{0, 0, 0}, {1, 0, 0}}, 8).size(), 2u);
  EXPECT_EQ(smoothCurve({}, 8), Points());
  EXPECT_EQ(smoothCurve(points, 1), points);
  EXPECT_EQ(smoothCurve(points, -5), points);
}

TEST(Polyline, SmoothCurveOfEvenPointsOnALineIsTheLine) {
  Points points;
  for (int k = 0; k < 6; ++k) points.push_back(Vec3f{1, 2, -2} * static_cast<float>(k));
  const Points curve = smoothCurve(points, 10);
  for (std::size_t i = 0; i < curve.size(); ++i) {
    EXPECT_LT(distance(curve[i], Vec3f{1, 2, -2} * (0.1f * static_cast<float>(i))), 1e-5f);
  }
}

TEST(Polyline, SmoothCurveFollowsTheKnotsOfTheCentripetalSpline) {
  // By the pyramid of linear mixes that defines the spline (Barry and Goldman 1988), an independent
  // way to its points.
  const Points p = {{0, 0, 0}, {1, 3, 0}, {1.5f, 3, 1}, {6, 0, -2}};
  double knots[4] = {0, 0, 0, 0};
  for (int i = 1; i < 4; ++i) knots[i] = knots[i - 1] + std::sqrt(distance(p[i - 1], p[i]));
  const auto mix = [&](Vec3f a, Vec3f b, int from, int to, double t) {
    return lerp(a, b, static_cast<float>((t - knots[from]) / (knots[to] - knots[from])));
  };
  const Points curve = smoothCurve(p, 8);
  for (int i = 0; i <= 8; ++i) {
    const double t = knots[1] + (knots[2] - knots[1]) * i / 8.0;
    const Vec3f a1 = mix(p[0], p[1], 0, 1, t), a2 = mix(p[1], p[2], 1, 2, t),
                a3 = mix(p[2], p[3], 2, 3, t);
    const Vec3f b1 = mix(a1, a2, 0, 2, t), b2 = mix(a2, a3, 1, 3, t);
    EXPECT_LT(distance(curve[8 + static_cast<std::size_t>(i)], mix(b1, b2, 1, 2, t)), 2e-6f);
  }
}

TEST(Polyline, SmoothCurveReadsTheSameFromBothEnds) {
  Points points = makeCurve(7);
  const Points forth = smoothCurve(points, 4);
  std::reverse(points.begin(), points.end());
  Points back = smoothCurve(points, 4);
  std::reverse(back.begin(), back.end());
  for (std::size_t i = 0; i < forth.size(); ++i) EXPECT_LT(distance(forth[i], back[i]), 1e-4f);
}

TEST(Polyline, SmoothCurveOfPointsThatCoincideStaysFinite) {
  const Points cases[] = {Points(4, {1, 2, 3}),
                          {{0, 0, 0}, {0, 0, 0}, {1, 0, 0}},
                          {{0, 0, 0}, {1, 0, 0}, {1, 0, 0}, {1, 0, 0}, {2, 1, 0}},
                          {{0, 0, 0}, {1e-30f, 0, 0}, {1, 0, 0}}};
  for (const Points& points : cases) {
    for (const Vec3f p : smoothCurve(points, 5)) {
      EXPECT_TRUE(isFinite(p));
      EXPECT_LT(length(p), 4.0f);
    }
  }
}

}  // namespace
}  // namespace kestrane
