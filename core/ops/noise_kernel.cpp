// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/ops/noise_kernel.h"

#include <algorithm>
#include <cmath>

#include "core/base/hash.h"
#include "core/data/polyline.h"
#include "core/expr/noise.h"

namespace kestrane {

namespace {

constexpr std::uint64_t noiseSalt = 0x4E015E01ull;
constexpr std::uint64_t offsetSalt = 0x4E015E02ull;
constexpr std::uint64_t kinkSalt = 0x4E015E03ull;
// How far apart strands lie in the noise's space: wide enough that they share nothing.
constexpr float offsetRange = 512.0f;

constexpr std::uint64_t stepX = 0x9E3779B185EBCA87ull;
constexpr std::uint64_t stepY = 0xC2B2AE3D27D4EB4Full;
constexpr std::uint64_t stepZ = 0x165667B19E3779F9ull;

/// Three fields of gradient noise along a line parallel to X: what they are made of where the line
/// crosses a plane of the lattice. All that depends on Y and Z is in it.
class LineNoise {
 public:
  LineNoise(float y, float z, std::uint64_t seed) {
    const detail::NoiseAxis axisY(y, stepY), axisZ(z, stepZ);
    for (std::size_t corner = 0; corner < 4; ++corner) {
      const std::size_t j = corner & 1, k = corner >> 1;
      Corner& c = corners_[corner];
      for (std::uint64_t field = 0; field < 3; ++field) {
        c.hash[field] = axisY.hash[j] ^ axisZ.hash[k] ^ detail::foldNoiseHash(seed + field);
      }
      c.share = splat(axisY.share[j] * axisZ.share[k]);
      c.offsetY = splat(axisY.offset[j]);
      c.offsetZ = splat(axisZ.offset[k]);
    }
  }

  NoisePlane plane(std::int64_t cell) const {
    const std::uint64_t hash = detail::foldNoiseHash(static_cast<std::uint64_t>(cell) * stepX);
    NoisePlane sum{splat(0.0f), splat(0.0f)};
    for (const Corner& c : corners_) {
      // A field's gradient is a row; the sums want each coordinate of all three.
      const Float4 gradients[3] = {detail::gradientOf(hash ^ c.hash[0]),
                                   detail::gradientOf(hash ^ c.hash[1]),
                                   detail::gradientOf(hash ^ c.hash[2])};
      const Vec3x4 g = columns(gradients[0], gradients[1], gradients[2]);
      sum.level = sum.level + c.share * (g.y * c.offsetY + g.z * c.offsetZ);
      sum.slope = sum.slope + c.share * g.x;
    }
    return sum;
  }

 private:
  struct Corner {
    std::uint64_t hash[3];  // of the three fields, but for the part of X
    Float4 share, offsetY, offsetZ;
  };
  Corner corners_[4];
};

/// Where points lie in their cells along X, and the fade between the two planes there.
KESTRANE_WIDE void findInCells(float start, float frequency, std::span<const float> places,
                               NoiseCells& cells) {
  std::int32_t* cell = cells.cell.data();
  float* offset = cells.offset.data();
  float* share = cells.share.data();
  for (std::size_t i = 0; i < places.size(); ++i) {
    const float x = start + places[i] * frequency;
    std::int32_t below = static_cast<std::int32_t>(x);
    below -= static_cast<float>(below) > x ? 1 : 0;
    const float f = x - static_cast<float>(below);
    cell[i] = below;
    offset[i] = f;
    share[i] = ((6.0f * f - 15.0f) * f + 10.0f) * f * f * f;
  }
}

/// A vector of components -1 to 1 for a key.
Vec3f randomOffset(std::uint64_t key) {
  return {2.0f * unitFloat(mix64(key + 1)) - 1.0f, 2.0f * unitFloat(mix64(key + 2)) - 1.0f,
          2.0f * unitFloat(mix64(key + 3)) - 1.0f};
}

std::int64_t cellOf(float x) {
  return static_cast<std::int64_t>(std::floor(std::clamp(x, -1e15f, 1e15f)));
}

}  // namespace

std::uint64_t noiseOctaveSeed(std::uint64_t seed, int octave) {
  // The three components of an octave are three fields.
  return mix64(seed ^ noiseSalt) + 3u * static_cast<std::uint64_t>(octave);
}

Vec3f strandNoiseStart(std::uint64_t id, std::uint64_t seed) {
  const std::uint64_t key = hashCombine(id, seed ^ offsetSalt);
  return Vec3f{unitFloat(key), unitFloat(mix64(key)), unitFloat(mix64(key + 1))} * offsetRange;
}

void NoiseCells::resize(std::size_t points) {
  cell.resize(points);
  offset.resize(points);
  share.resize(points);
}

NoiseKernel::NoiseKernel(const NoiseShape& shape) : shape_(shape) {}

std::span<const float> NoiseKernel::measure(std::span<const Vec3f> points) {
  shares_.resize(points.size());
  arcShares(points, shares_);
  if (shape_.world) length_ = polylineLength(points);
  return shares_;
}

void NoiseKernel::displace(std::uint64_t id, std::span<const Vec3f> points,
                           std::span<const float> strength, std::span<Vec3f> out) {
  if (points.empty()) return;
  noise_.assign(points.size(), {splat(0.0f)});
  const float segments = static_cast<float>(points.size()) - 1.0f;
  const float segment = segments > 0.0f ? (shape_.world ? length_ : 1.0f) / segments : 0.0f;
  float frequency = shape_.frequency, amplitude = 1.0f, total = 0.0f;
  for (int octave = 0; octave < shape_.octaves; ++octave) {
    total += amplitude;
    // A wave needs two segments: it begins to fade there and is gone at one.
    const float fade = std::clamp(2.0f - 2.0f * std::abs(frequency) * segment, 0.0f, 1.0f);
    if (fade > 0.0f) {
      if (shape_.world) {
        addInWorld(points, octave, frequency, amplitude * fade);
      } else {
        addAlongStrand(id, octave, frequency, amplitude * fade);
      }
    }
    frequency *= 2.0f;
    amplitude *= 0.5f;
  }
  const float scale = total > 0.0f ? 1.0f / total : 0.0f;
  for (std::size_t i = 0; i < points.size(); ++i) {
    out[i] = points[i] + firstThree(noise_[i].lanes * splat(strength[i] * scale));
  }
}

void NoiseKernel::addAlongStrand(std::uint64_t id, int octave, float frequency, float amount) {
  const Vec3f start = strandNoiseStart(id, shape_.seed);
  if (shape_.kinky) {
    const std::uint64_t kinks =
        hashCombine(hashCombine(id, shape_.seed ^ kinkSalt), static_cast<std::uint64_t>(octave));
    for (std::size_t i = 0; i < shares_.size(); ++i) {
      const float x = start.x + shares_[i] * frequency;
      const std::int64_t cell = cellOf(x);
      const Vec3f a = randomOffset(hashCombine(kinks, static_cast<std::uint64_t>(cell)));
      const Vec3f b = randomOffset(hashCombine(kinks, static_cast<std::uint64_t>(cell + 1)));
      add(i, lerp(a, b, x - static_cast<float>(cell)) * amount);
    }
    return;
  }
  // A wave that did not fade is longer than a segment: there are no more cells than points, and
  // whole numbers of 32 bits tell them apart.
  cells_.resize(shares_.size());
  findInCells(start.x, frequency, shares_, cells_);
  const auto [lowest, highest] = std::minmax_element(cells_.cell.begin(), cells_.cell.end());
  const std::int32_t first = *lowest;
  planes_.resize(static_cast<std::size_t>(*highest - first) + 2);
  const LineNoise line(start.y, start.z, noiseOctaveSeed(shape_.seed, octave));
  for (std::size_t k = 0; k < planes_.size(); ++k) {
    planes_[k] = line.plane(first + static_cast<std::int64_t>(k));
  }
  for (std::size_t i = 0; i < shares_.size(); ++i) {
    const NoisePlane* behind = &planes_[static_cast<std::size_t>(cells_.cell[i] - first)];
    const float offset = cells_.offset[i], ahead = cells_.share[i];
    noise_[i].lanes = noise_[i].lanes +
                      ((behind[0].level + behind[0].slope * splat(offset)) * splat(1.0f - ahead) +
                       (behind[1].level + behind[1].slope * splat(offset - 1.0f)) * splat(ahead)) *
                          splat(amount);
  }
}

void NoiseKernel::addInWorld(std::span<const Vec3f> points, int octave, float frequency,
                             float amount) {
  const std::uint64_t seed = noiseOctaveSeed(shape_.seed, octave);
  for (std::size_t i = 0; i < points.size(); ++i) {
    const Vec3f p = points[i] * frequency;
    if (!shape_.kinky) {
      add(i, vectorNoise(p, seed) * amount);
      continue;
    }
    const std::int64_t cell[3] = {cellOf(p.x), cellOf(p.y), cellOf(p.z)};
    const auto corner = [&](std::int64_t x, std::int64_t y, std::int64_t z) {
      std::uint64_t key = hashCombine(seed ^ kinkSalt, static_cast<std::uint64_t>(cell[0] + x));
      key = hashCombine(key, static_cast<std::uint64_t>(cell[1] + y));
      return randomOffset(hashCombine(key, static_cast<std::uint64_t>(cell[2] + z)));
    };
    const Vec3f f{p.x - static_cast<float>(cell[0]), p.y - static_cast<float>(cell[1]),
                  p.z - static_cast<float>(cell[2])};
    const auto edge = [&](std::int64_t y, std::int64_t z) {
      return lerp(corner(0, y, z), corner(1, y, z), f.x);
    };
    add(i,
        lerp(lerp(edge(0, 0), edge(1, 0), f.y), lerp(edge(0, 1), edge(1, 1), f.y), f.z) * amount);
  }
}

}  // namespace kestrane
