// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/ops/resample_kernel.h"

#include <gtest/gtest.h>

#include <cmath>

#include "core/data/polyline.h"

namespace kestrane {
namespace {

/// A curve of uneven segments.
std::vector<Vec3f> wave(std::size_t count) {
  std::vector<Vec3f> points;
  for (std::size_t i = 0; i < count; ++i) {
    const float t = static_cast<float>(i * i) / static_cast<float>(count * count);
    points.push_back({5.0f * t, std::sin(6.0f * t), t * t});
  }
  return points;
}

/// The same curve with more points on its segments.
std::vector<Vec3f> denser(const std::vector<Vec3f>& points, int pieces) {
  std::vector<Vec3f> result;
  for (std::size_t i = 0; i + 1 < points.size(); ++i) {
    for (int p = 0; p < pieces; ++p) {
      const float share = static_cast<float>(p) / static_cast<float>(pieces);
      result.push_back(lerp(points[i], points[i + 1], share));
    }
  }
  result.push_back(points.back());
  return result;
}

std::vector<Vec3f> placed(const PolylinePlaces& places, const std::vector<Vec3f>& points,
                          std::size_t count) {
  std::vector<Vec3f> out(count);
  places.apply(std::span<const Vec3f>(points), std::span(out));
  return out;
}

TEST(PolylinePlaces, DoNotDependOnHowManyPointsTellTheCurve) {
  for (const std::size_t given : {2u, 3u, 17u, 24u, 39u, 40u, 41u}) {
    const std::vector<Vec3f> points = wave(given);
    const std::vector<Vec3f> more = denser(points, 4);
    for (const std::size_t count : {2u, 3u, 8u, 23u, 24u, 25u, 47u, 49u, 100u}) {
      PolylinePlaces few, many;
      few.even(points, count);
      many.even(more, count);
      const std::vector<Vec3f> a = placed(few, points, count), b = placed(many, more, count);
      for (std::size_t k = 0; k < count; ++k) {
        EXPECT_LT(distance(a[k], b[k]), 1e-4f)
            << given << " points, place " << k << " of " << count;
      }
      EXPECT_EQ(a.front(), points.front());
      EXPECT_EQ(a.back(), points.back());
    }
  }
}

TEST(PolylinePlaces, ShortenedCurvesKeepTheirShareOfTheLength) {
  for (const std::size_t given : {2u, 5u, 17u, 40u, 41u, 90u}) {
    const std::vector<Vec3f> points = wave(given);
    for (const float share : {0.0f, 0.01f, 0.3f, 0.8f, 1.0f}) {
      PolylinePlaces places;
      places.shortened(points, share);
      const std::vector<Vec3f> shorter = placed(places, points, given);
      // Chords over cut corners are shorter than the curve.
      const float wanted = share * polylineLength(points);
      EXPECT_LE(polylineLength(shorter), wanted * 1.00001f) << given << " at " << share;
      EXPECT_GE(polylineLength(shorter), wanted * 0.95f) << given << " at " << share;
      EXPECT_EQ(shorter.front(), points.front());
    }
  }
}

TEST(PolylinePlaces, ValuesGoWithThePoints) {
  const std::vector<Vec3f> points = wave(17);
  std::vector<float> heights;
  for (const Vec3f p : points) heights.push_back(p.y);
  PolylinePlaces places;
  places.byTurning(points, 30);
  const std::vector<Vec3f> moved = placed(places, points, 30);
  std::vector<float> values(30);
  places.apply(std::span<const float>(heights), std::span(values));
  for (std::size_t k = 0; k < values.size(); ++k) EXPECT_EQ(values[k], moved[k].y) << k;
}

}  // namespace
}  // namespace kestrane
