// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "core/base/lanes.h"
#include "core/base/vec.h"

namespace kestrane {

/// What displaces strands: smooth waves, or straight kinks between random offsets.
struct NoiseShape {
  float frequency = 3.0f;  // features per strand length, or per unit of length in world space
  int octaves = 2;         // each twice as fine and half as strong as the one before
  bool world = false;      // by the points' places, not along each strand
  bool kinky = false;
  std::uint64_t seed = 0;
};

/// Which of the noise's fields an octave reads, and where in it the strand of an ID begins; from
/// there on its noise runs along X.
std::uint64_t noiseOctaveSeed(std::uint64_t seed, int octave);
Vec3f strandNoiseStart(std::uint64_t id, std::uint64_t seed);

/// Three fields of noise, a lane each, where a line crosses a plane of the lattice: their value
/// there and how it changes along the line.
struct NoisePlane {
  Float4 level, slope;
};

/// Points along X in the lattice: their cells, and their offset and share of the fade within them.
struct NoiseCells {
  std::vector<std::int32_t> cell;
  std::vector<float> offset;
  std::vector<float> share;

  void resize(std::size_t points);
};

/// Displaces strand after strand. Holds buffers, so each thread has its own.
class NoiseKernel {
 public:
  explicit NoiseKernel(const NoiseShape& shape);

  /// The share of the length at each point, which the next displace also goes by.
  std::span<const float> measure(std::span<const Vec3f> points);
  /// Writes the points moved by their strength times the noise. Detail finer than the strand's
  /// segments can draw fades out.
  void displace(std::uint64_t id, std::span<const Vec3f> points, std::span<const float> strength,
                std::span<Vec3f> out);

 private:
  void addAlongStrand(std::uint64_t id, int octave, float frequency, float amount);
  void addInWorld(std::span<const Vec3f> points, int octave, float frequency, float amount);

  NoiseShape shape_;
  std::vector<float> shares_;
  struct Displacement {
    Float4 lanes;  // the fourth unused
  };
  void add(std::size_t point, Vec3f noise) {
    noise_[point].lanes = noise_[point].lanes + Float4{noise.x, noise.y, noise.z, 0.0f};
  }
  std::vector<Displacement> noise_;
  NoiseCells cells_;
  std::vector<NoisePlane> planes_;
  float length_ = 0.0f;
};

}  // namespace kestrane
