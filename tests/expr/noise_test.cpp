// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/expr/noise.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <limits>
#include <vector>

#include "core/base/hash.h"

namespace kestrane {
namespace {

/// Points that wander over many cells, of either sign.
Vec3f wander(int i) {
  const auto k = static_cast<float>(i);
  return {k * 0.1373f - 300.0f, 200.0f - k * 0.0719f, k * 0.1931f - 400.0f};
}

TEST(Noise, IsZeroOnTheLatticeAndStaysBetweenMinusOneAndOne) {
  for (const Vec3f p : {Vec3f{0, 0, 0}, Vec3f{-3, 7, 12}, Vec3f{1e6f, -1e6f, 5}}) {
    EXPECT_EQ(noise(p), 0.0f);
  }
  double sum = 0.0, squares = 0.0;
  float least = 0.0f, most = 0.0f;
  constexpr int count = 200000;
  for (int i = 0; i < count; ++i) {
    const float value = noise(wander(i));
    sum += value;
    squares += value * value;
    least = std::min(least, value);
    most = std::max(most, value);
  }
  EXPECT_NEAR(sum / count, 0.0, 0.02);
  EXPECT_NEAR(std::sqrt(squares / count), 0.22, 0.03);
  EXPECT_GT(least, -1.0f);
  EXPECT_LT(most, 1.0f);
  EXPECT_LT(least, -0.6f);
  EXPECT_GT(most, 0.6f);
}

TEST(Noise, IsSmoothAcrossCells) {
  // The value and the slope agree on both sides of a face between cells.
  for (int i = 0; i < 200; ++i) {
    Vec3f p = wander(i);
    p.x = std::floor(p.x);
    constexpr float h = 1.0f / 64.0f;
    const auto at = [&](float dx) { return gradientNoise({p.x + dx, p.y, p.z}, 5); };
    EXPECT_NEAR(at(h) - at(0.0f), at(0.0f) - at(-h), 0.01f);
  }
}

TEST(Noise, CornersHashAsDocumented) {
  // Just inside a cell the nearest corner has nearly the whole share, so that two points tell its
  // gradient; it must be the one that the corner's hash names.
  const std::int64_t cell[3] = {-4, 9, 2};
  const std::uint64_t seed = 28161;
  std::uint64_t h = static_cast<std::uint64_t>(cell[0]) * 0x9E3779B185EBCA87u ^
                    static_cast<std::uint64_t>(cell[1]) * 0xC2B2AE3D27D4EB4Fu ^
                    static_cast<std::uint64_t>(cell[2]) * 0x165667B19E3779F9u ^ seed;
  h = (h ^ h >> 29) * 0xBF58476D1CE4E5B9u;
  h ^= h >> 32;
  const Float4 gradient = detail::gradients[(h & 0xFFFF) >> 4 & 0xFF];
  for (int axis = 0; axis < 3; ++axis) {
    Vec3f p = {static_cast<float>(cell[0]), static_cast<float>(cell[1]),
               static_cast<float>(cell[2])};
    p[axis] += 0x1p-10f;
    EXPECT_NEAR(noise(p) / 0x1p-10f, gradient[axis], 1e-4f);
  }
}

TEST(Noise, VectorNoiseIsThreeNoisesOfSuccessiveSeeds) {
  for (int i = 0; i < 100; ++i) {
    const Vec3f p = wander(i);
    const Vec3f three = {gradientNoise(p, 28162), gradientNoise(p, 28163), gradientNoise(p, 28164)};
    EXPECT_EQ(vnoise(p), three);
  }
}

TEST(Noise, GradientsAreSpreadOverTheSphere) {
  Vec3f sum;
  for (const Float4& g : detail::gradients) {
    const Vec3f v = {g[0], g[1], g[2]};
    EXPECT_NEAR(length(v), 2.0f / std::sqrt(3.0f), 1e-6f);
    EXPECT_EQ(g[3], 0.0f);
    sum += v;
  }
  EXPECT_LT(length(sum) / 256.0f, 0.01f);
}

TEST(Noise, OctavesSumAndAverage) {
  for (int i = 0; i < 50; ++i) {
    const Vec3f p = wander(i);
    EXPECT_EQ(fbm(p, {1, 2, 0.5f}), gradientNoise(p, 64256));
    const float two = gradientNoise(p, 64256) + gradientNoise(p * 3.0f, 64257) * 0.25f;
    EXPECT_FLOAT_EQ(fbm(p, {2, 3, 0.25f}), two / 1.25f);
    const float rough =
        std::fabs(gradientNoise(p, 64256)) + std::fabs(gradientNoise(p * 3.0f, 64257)) * 0.25f;
    EXPECT_FLOAT_EQ(turbulence(p, {2, 3, 0.25f}), rough / 1.25f);
    const Vec3f vector = vectorNoise(p, 64512) + vectorNoise(p * 3.0f, 64513) * 0.25f;
    EXPECT_LT(distance(vfbm(p, {2, 3, 0.25f}), vector / 1.25f), 1e-6f);
    // Octave counts are cut to whole numbers from 1 to 16.
    EXPECT_EQ(fbm(p, {2.9f}), fbm(p, {2}));
    EXPECT_EQ(fbm(p, {-5}), fbm(p, {1}));
    EXPECT_EQ(fbm(p, {std::numeric_limits<float>::quiet_NaN()}), fbm(p, {1}));
    EXPECT_EQ(fbm(p, {1e9f}), fbm(p, {16}));
    EXPECT_EQ(fbm(p, {2, 2, -1}), 0.0f);  // strengths that cancel
  }
}

TEST(Noise, CellsAreConstantAndDiffer) {
  EXPECT_EQ(cellnoise({0.1f, 0.2f, 0.3f}), cellnoise({0.9f, 0.8f, 0.7f}));
  EXPECT_NE(cellnoise({0.1f, 0.2f, 0.3f}), cellnoise({-0.1f, 0.2f, 0.3f}));
  EXPECT_EQ(cellnoise({-1, 2, 3}),
            unitFloat(hashCombine(
                hashCombine(hashCombine(52753, ~std::uint64_t{0}), std::uint64_t{2}), 3)));
  EXPECT_EQ(cellnoise({1e8f, 0, 0}), cellnoise({1e30f, 0, 0}));
}

TEST(Noise, VoronoiMeasuresToFeaturePoints) {
  EXPECT_EQ(voronoi({2.5f, -3.5f, 0.5f}, 0.0f), 0.0f);
  EXPECT_EQ(voronoi({2.5f, -3.5f, 0.5f}, 0.0f, 2.0f), 1.0f);
  EXPECT_EQ(voronoi({2.0f, -3.5f, 0.5f}, 0.0f, 3.0f), 0.0f);  // halfway between two
  for (int i = 0; i < 300; ++i) {
    const Vec3f p = wander(i);
    const float first = voronoi(p), second = voronoi(p, 1.0f, 2.0f);
    EXPECT_GE(first, 0.0f);
    EXPECT_GE(second, first);
    EXPECT_FLOAT_EQ(voronoi(p, 1.0f, 2.6f), second - first);
    // Distances change no faster than the point moves.
    const Vec3f q = p + Vec3f{0.01f, 0.0f, 0.0f};
    EXPECT_LE(std::fabs(voronoi(q) - first), 0.0101f);
    EXPECT_LE(std::fabs(voronoi(q, 1.0f, 2.0f) - second), 0.0101f);
    EXPECT_EQ(voronoi(p, 7.0f), first);
    EXPECT_EQ(voronoi(p, -7.0f), voronoi(p, 0.0f));
  }
}

/// The distances to the two nearest of the 27 feature points around, each placed in space.
std::pair<double, double> nearestFeatures(Vec3f p, float jitter) {
  std::vector<double> distances;
  for (int k = -1; k <= 1; ++k) {
    for (int j = -1; j <= 1; ++j) {
      for (int i = -1; i <= 1; ++i) {
        const double cell[] = {std::floor(p.x) + i, std::floor(p.y) + j, std::floor(p.z) + k};
        std::uint64_t h = 28816;
        for (const double c : cell) {
          h = hashCombine(h, static_cast<std::uint64_t>(static_cast<std::int64_t>(c)));
        }
        double squared = 0.0;
        for (int axis = 0; axis < 3; ++axis) {
          const double random = unitFloat(mix64(h + static_cast<std::uint64_t>(axis) + 1));
          const double away = cell[axis] + 0.5 + (random - 0.5) * jitter - p[axis];
          squared += away * away;
        }
        distances.push_back(std::sqrt(squared));
      }
    }
  }
  std::sort(distances.begin(), distances.end());
  return {distances[0], distances[1]};
}

TEST(Noise, VoronoiFindsTheNearestFeatures) {
  for (int i = 0; i < 5000; ++i) {
    const Vec3f p = wander(i) * 0.01f;
    const float jitter = static_cast<float>(i % 5) * 0.25f;
    const auto [first, second] = nearestFeatures(p, jitter);
    EXPECT_NEAR(voronoi(p, jitter), first, 2e-6) << i;
    EXPECT_NEAR(voronoi(p, jitter, 2.0f), second, 2e-6) << i;
    EXPECT_NEAR(voronoi(p, jitter, 3.0f), second - first, 4e-6) << i;
  }
}

TEST(Noise, TakesAnyNumber) {
  constexpr float infinity = std::numeric_limits<float>::infinity();
  for (const float x : {infinity, -infinity, std::numeric_limits<float>::quiet_NaN(), FLT_MAX,
                        -FLT_MAX, 1e20f, -1e-45f}) {
    for (const Vec3f p : {Vec3f{x, 0.5f, 0.5f}, Vec3f{0.5f, x, x}}) {
      EXPECT_TRUE(std::isfinite(noise(p)));
      EXPECT_TRUE(isFinite(vfbm(p)));
      EXPECT_TRUE(std::isfinite(cellnoise(p)));
      EXPECT_TRUE(std::isfinite(voronoi(p, x, x)));
    }
  }
}

}  // namespace
}  // namespace kestrane
