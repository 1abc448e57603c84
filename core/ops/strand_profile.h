// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <span>
#include <vector>

#include "core/data/polyline.h"
#include "core/values/ramp.h"

namespace kestrane {

/// A ramp from root to tip, read at the points of strand after strand. Holds buffers, so each
/// thread has its own.
class StrandProfile {
 public:
  /// The ramp must outlive this.
  explicit StrandProfile(const Ramp& ramp) : ramp_(ramp) {}

  /// The ramp's value at each point, by its share of the length; good until the next call.
  std::span<const float> along(std::span<const Vec3f> points) {
    shares_.resize(points.size());
    values_.resize(points.size());
    arcShares(points, shares_);
    ramp_.evaluate(shares_, values_);
    return values_;
  }

 private:
  const Ramp& ramp_;
  std::vector<float> shares_, values_;
};

}  // namespace kestrane
