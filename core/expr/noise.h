// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <array>
#include <cstdint>

#include "core/base/lanes.h"
#include "core/base/vec.h"

namespace kestrane {

namespace detail {

/// The directions of gradient noise, the fourth number of each being 0.
extern const std::array<Float4, 256> gradients;

/// The first step of a corner's hash, h xor h >> 29. It distributes over xor, so that the axes'
/// parts and the seed take it once and not for every corner and noise.
constexpr std::uint64_t foldNoiseHash(std::uint64_t h) {
  return h ^ h >> 29;
}

/// One axis of a lattice cell: both ends' part of the hash, offset to the point and share in the
/// trilinear mix.
struct NoiseAxis {
  std::uint64_t hash[2];
  float offset[2];
  float share[2];

  NoiseAxis(float x, std::uint64_t step) {
    // Numbers too large for the lattice, and not-a-numbers, count as its ends.
    constexpr float end = 0x1p62f;
    x = x > -end ? x : -end;
    x = x < end ? x : end;
    auto below = static_cast<std::int64_t>(x);
    below -= static_cast<float>(below) > x;
    const std::uint64_t h = static_cast<std::uint64_t>(below) * step;
    hash[0] = foldNoiseHash(h);
    hash[1] = foldNoiseHash(h + step);
    const float f = x - static_cast<float>(below);
    offset[0] = f;
    offset[1] = f - 1.0f;
    share[1] = ((6.0f * f - 15.0f) * f + 10.0f) * f * f * f;
    share[0] = 1.0f - share[1];
  }
};

inline Float4 gradientOf(std::uint64_t foldedHash) {
  std::uint64_t h = foldedHash * 0xBF58476D1CE4E5B9u;
  h ^= h >> 32;
  // Of the low 16 bits the middle ones number the gradient.
  return gradients[h >> 4 & 0xFF];
}

/// Noises of the seeds seed, seed + 1, ... at one point. What does not depend on the seed is found
/// once; each corner adds its gradient's products with the offset, times the corner's share. The
/// order of the sum, over the corners with x fastest and then over the axes, is part of the result:
/// another order, or a mix axis by axis, rounds to other floats and moves hair that is groomed.
template <int count>
inline std::array<float, count> gradientNoises(Vec3f p, std::uint64_t seed) {
  const NoiseAxis x(p.x, 0x9E3779B185EBCA87u);
  const NoiseAxis y(p.y, 0xC2B2AE3D27D4EB4Fu);
  const NoiseAxis z(p.z, 0x165667B19E3779F9u);
  Float4 sums[count] = {};
#if defined(__GNUC__)
#pragma GCC unroll 8
#endif
  for (int corner = 0; corner < 8; ++corner) {
    const int i = corner & 1, j = corner >> 1 & 1, k = corner >> 2;
    const std::uint64_t hash = x.hash[i] ^ y.hash[j] ^ z.hash[k];
    const float share = x.share[i] * y.share[j] * z.share[k];
    const Float4 offset = Float4{x.offset[i], y.offset[j], z.offset[k], 0.0f} * splat(share);
    for (int n = 0; n < count; ++n) {
      const std::uint64_t own = foldNoiseHash(seed + static_cast<std::uint64_t>(n));
      sums[n] = sums[n] + gradientOf(hash ^ own) * offset;
    }
  }
  std::array<float, count> result;
  for (std::size_t n = 0; n < count; ++n) result[n] = sums[n][0] + sums[n][1] + sums[n][2];
  return result;
}

}  // namespace detail

/// Gradient noise (Perlin 1985, with the fade of Perlin 2002): smooth, 0 at whole coordinates,
/// between -1 and 1, of features about one unit in size. The same numbers on every machine.
inline float gradientNoise(Vec3f p, std::uint64_t seed) {
  return detail::gradientNoises<1>(p, seed)[0];
}

/// Three noises of the seeds seed, seed + 1 and seed + 2, at less than the cost of three.
inline Vec3f vectorNoise(Vec3f p, std::uint64_t seed) {
  const auto [x, y, z] = detail::gradientNoises<3>(p, seed);
  return {x, y, z};
}

/// The functions `noise` and `vnoise` of the expression language.
inline float noise(Vec3f p) {
  return gradientNoise(p, 28161);
}
inline Vec3f vnoise(Vec3f p) {
  return vectorNoise(p, 28162);
}

/// How octaves of finer noise are summed: each is `lacunarity` times as fine as the one before and
/// `gain` times as strong. Octaves are a whole number from 1 to 16; other values are cut to it.
struct NoiseOctaves {
  float octaves = 4.0f;
  float lacunarity = 2.0f;
  float gain = 0.5f;
};

/// Octaves of noise over the sum of their strengths, which keeps the range; 0 where that sum is 0.
float fbm(Vec3f p, const NoiseOctaves& octaves = {});
Vec3f vfbm(Vec3f p, const NoiseOctaves& octaves = {});
/// The same with each noise's absolute value.
float turbulence(Vec3f p, const NoiseOctaves& octaves = {});

/// A random number in [0, 1) for each cell of the unit lattice.
float cellnoise(Vec3f p);

/// Distances to scattered feature points, one in each cell of the unit lattice (Worley 1996).
/// Jitter 0 puts them at cell centres, 1 anywhere in the cell. Mode 2 gives the distance to the
/// second nearest, 3 how much farther that is than the nearest, others the distance to the nearest.
float voronoi(Vec3f p, float jitter = 1.0f, float mode = 1.0f);

}  // namespace kestrane
