// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <span>
#include <vector>

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
  std::vector<Vec3f> noise_;
  float length_ = 0.0f;
};

}  // namespace kestrane
