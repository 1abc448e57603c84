// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "core/base/vec.h"

namespace kestrane {

/// Places along a polyline: each a segment and a share of it. Built once per strand and applied to
/// its points, widths and point channels alike. Reused between strands, so that loops allocate only
/// while it grows.
class PolylinePlaces {
 public:
  /// `count` places evenly spaced by arc length; by point index where the polyline has no length.
  void even(std::span<const Vec3f> points, std::size_t count);
  /// `count` places evenly spaced by turning angle, so that they gather where the polyline bends. A
  /// twentieth of the measure is arc length, which keeps straight stretches from losing all places.
  void byTurning(std::span<const Vec3f> points, std::size_t count);

  /// The polyline's own points, drawn in toward the root along it so that a share of the length
  /// stays: the last point ends on the segment that is cut, and the count is kept, so that what
  /// changes with a strand stays within it. A share of 1 or more leaves every point where it is.
  void shortened(std::span<const Vec3f> points, float share);

  void apply(std::span<const float> values, std::span<float> out) const {
    for (std::size_t k = 0; k < segments_.size(); ++k) {
      const std::uint32_t segment = segments_[k];
      out[k] = shares_[k] <= 0.0f   ? values[segment]
               : shares_[k] >= 1.0f ? values[segment + 1]
                                    : lerp(values[segment], values[segment + 1], shares_[k]);
    }
  }
  void apply(std::span<const Vec3f> values, std::span<Vec3f> out) const;

 private:
  void measure(std::span<const Vec3f> points);
  void spread(std::size_t count);
  /// Finds the segments and shares of the measures wanted; there are two points or more.
  void locate();
  /// Puts the last place on the last of the points.
  void toEnd(std::size_t points);

  std::vector<float> measure_;  // cumulative, one per point of the polyline
  std::vector<float> wanted_;   // the measure at each place, rising
  std::vector<std::uint32_t> segments_;
  std::vector<float> shares_;
};

/// The sum of the angles between neighbouring segments, in radians; segments without length do not
/// count.
float turningAngle(std::span<const Vec3f> points);

}  // namespace kestrane
