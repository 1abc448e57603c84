// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/ops/noise_kernel.h"

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

/// Gradient noise along a line parallel to X. All that depends on Y and Z is summed once per plane
/// of the lattice; a point then costs two linear terms and their mix.
class LineNoise {
 public:
  LineNoise(float y, float z, std::uint64_t seed)
      : y_(y, 0xC2B2AE3D27D4EB4Full), z_(z, 0x165667B19E3779F9ull), seed_(seed) {}

  Vec3f at(float x) {
    const detail::NoiseAxis axis(x, 0x9E3779B185EBCA87ull);
    if (!any_ || axis.hash[0] != hash_) {
      // Walking forward, the plane ahead becomes the one behind.
      planes_[0] = any_ && axis.hash[0] == ahead_ ? planes_[1] : plane(axis.hash[0]);
      planes_[1] = plane(axis.hash[1]);
      hash_ = axis.hash[0];
      ahead_ = axis.hash[1];
      any_ = true;
    }
    return (planes_[0].level + planes_[0].slope * axis.offset[0]) * axis.share[0] +
           (planes_[1].level + planes_[1].slope * axis.offset[1]) * axis.share[1];
  }

 private:
  struct Plane {
    Vec3f level;  // of the three components where the plane is
    Vec3f slope;  // and along X
  };

  Plane plane(std::uint64_t hash) const {
    Plane sum;
    for (std::size_t corner = 0; corner < 4; ++corner) {
      const std::size_t j = corner & 1, k = corner >> 1;
      const float share = y_.share[j] * z_.share[k];
      for (int component = 0; component < 3; ++component) {
        const std::uint64_t own =
            detail::foldNoiseHash(seed_ + static_cast<std::uint64_t>(component));
        const detail::Float4 g = detail::gradientOf(hash ^ y_.hash[j] ^ z_.hash[k] ^ own);
        sum.level[component] += share * (g[1] * y_.offset[j] + g[2] * z_.offset[k]);
        sum.slope[component] += share * g[0];
      }
    }
    return sum;
  }

  detail::NoiseAxis y_, z_;
  std::uint64_t seed_;
  std::uint64_t hash_ = 0, ahead_ = 0;
  bool any_ = false;
  Plane planes_[2];
};

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

NoiseKernel::NoiseKernel(const NoiseShape& shape) : shape_(shape) {}

std::span<const float> NoiseKernel::measure(std::span<const Vec3f> points) {
  shares_.resize(points.size());
  arcShares(points, shares_);
  if (shape_.world) length_ = polylineLength(points);
  return shares_;
}

void NoiseKernel::displace(std::uint64_t id, std::span<const Vec3f> points,
                           std::span<const float> strength, std::span<Vec3f> out) {
  noise_.assign(points.size(), Vec3f{});
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
    out[i] = points[i] + noise_[i] * (strength[i] * scale);
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
      noise_[i] += lerp(a, b, x - static_cast<float>(cell)) * amount;
    }
    return;
  }
  LineNoise line(start.y, start.z, noiseOctaveSeed(shape_.seed, octave));
  for (std::size_t i = 0; i < shares_.size(); ++i) {
    noise_[i] += line.at(start.x + shares_[i] * frequency) * amount;
  }
}

void NoiseKernel::addInWorld(std::span<const Vec3f> points, int octave, float frequency,
                             float amount) {
  const std::uint64_t seed = noiseOctaveSeed(shape_.seed, octave);
  for (std::size_t i = 0; i < points.size(); ++i) {
    const Vec3f p = points[i] * frequency;
    if (!shape_.kinky) {
      noise_[i] += vectorNoise(p, seed) * amount;
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
    noise_[i] +=
        lerp(lerp(edge(0, 0), edge(1, 0), f.y), lerp(edge(0, 1), edge(1, 1), f.y), f.z) * amount;
  }
}

}  // namespace kestrane
