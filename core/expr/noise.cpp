// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/expr/noise.h"

#include <cmath>

#include "core/base/hash.h"

namespace kestrane {

namespace {

constexpr double squareRoot(double x) {
  double root = 1.0;
  for (int i = 0; i < 60; ++i) root = 0.5 * (root + x / root);
  return root;
}

/// Directions spread evenly over the sphere by the golden angle (Vogel 1979), computed by the
/// compiler so that no C library has a say. Their length puts the noise's extremes, which lie at
/// cell centres, at -1 and 1.
constexpr std::array<Float4, 256> makeGradients() {
  constexpr double count = 256.0;
  constexpr double cosine = -0.7373688780783197, sine = 0.6754902942615238;
  const double size = 2.0 / squareRoot(3.0);
  std::array<Float4, 256> result = {};
  double c = 1.0, s = 0.0;
  for (std::size_t i = 0; i < result.size(); ++i) {
    const double z = 1.0 - (2.0 * static_cast<double>(i) + 1.0) / count;
    const double r = squareRoot(1.0 - z * z) * size;
    result[i] = Float4{static_cast<float>(c * r), static_cast<float>(s * r),
                       static_cast<float>(z * size), 0.0f};
    const double turned = c * cosine - s * sine;
    s = c * sine + s * cosine;
    c = turned;
  }
  return result;
}

int octaveCount(float octaves) {
  return octaves >= 1.0f ? static_cast<int>(octaves < 16.0f ? octaves : 16.0f) : 1;
}

/// Adds octaves: noise(p, octave) times its strength.
template <class Value, class Noise>
Value sumOctaves(Vec3f p, const NoiseOctaves& octaves, Noise&& octaveNoise) {
  Value sum = {};
  float frequency = 1.0f, amplitude = 1.0f, total = 0.0f;
  const int count = octaveCount(octaves.octaves);
  for (int octave = 0; octave < count; ++octave) {
    sum += octaveNoise(p * frequency, static_cast<std::uint64_t>(octave)) * amplitude;
    total += amplitude;
    frequency *= octaves.lacunarity;
    amplitude *= octaves.gain;
  }
  return total == 0.0f ? Value{} : sum / total;
}

/// The unit lattice's cell below x.
struct CellAxis {
  std::int64_t cell;
  float fraction;

  explicit CellAxis(float x) {
    constexpr float end = 1e7f;
    x = x > -end ? x : -end;
    x = x < end ? x : end;
    const float below = std::floor(x);
    cell = static_cast<std::int64_t>(below);
    fraction = x - below;
  }
};

std::uint64_t foldCell(std::uint64_t seed, std::int64_t coordinate) {
  return hashCombine(seed, static_cast<std::uint64_t>(coordinate));
}

}  // namespace

constexpr std::array<Float4, 256> detail::gradients = makeGradients();

float fbm(Vec3f p, const NoiseOctaves& octaves) {
  return sumOctaves<float>(
      p, octaves, [](Vec3f q, std::uint64_t octave) { return gradientNoise(q, 64256 + octave); });
}

Vec3f vfbm(Vec3f p, const NoiseOctaves& octaves) {
  return sumOctaves<Vec3f>(
      p, octaves, [](Vec3f q, std::uint64_t octave) { return vectorNoise(q, 64512 + octave); });
}

float turbulence(Vec3f p, const NoiseOctaves& octaves) {
  return sumOctaves<float>(p, octaves, [](Vec3f q, std::uint64_t octave) {
    return std::fabs(gradientNoise(q, 64256 + octave));
  });
}

float cellnoise(Vec3f p) {
  const CellAxis x(p.x), y(p.y), z(p.z);
  return unitFloat(foldCell(foldCell(foldCell(52753, x.cell), y.cell), z.cell));
}

float voronoi(Vec3f p, float jitter, float mode) {
  const CellAxis x(p.x), y(p.y), z(p.z);
  jitter = jitter > 0.0f ? (jitter < 1.0f ? jitter : 1.0f) : 0.0f;
  float nearest = 1e30f, second = 1e30f;
  for (int k = -1; k <= 1; ++k) {
    for (int j = -1; j <= 1; ++j) {
      for (int i = -1; i <= 1; ++i) {
        const std::uint64_t h =
            foldCell(foldCell(foldCell(28816, x.cell + i), y.cell + j), z.cell + k);
        const auto away = [&](std::uint64_t axis, int cell, float fraction) {
          const float shift = (unitFloat(mix64(h + axis)) - 0.5f) * jitter;
          return (static_cast<float>(cell) + 0.5f) + shift - fraction;
        };
        const float squared =
            lengthSquared({away(1, i, x.fraction), away(2, j, y.fraction), away(3, k, z.fraction)});
        if (squared < nearest) {
          second = nearest;
          nearest = squared;
        } else if (squared < second) {
          second = squared;
        }
      }
    }
  }
  const float rounded = std::round(mode);
  if (rounded == 2.0f) return std::sqrt(second);
  if (rounded == 3.0f) return std::sqrt(second) - std::sqrt(nearest);
  return std::sqrt(nearest);
}

}  // namespace kestrane
