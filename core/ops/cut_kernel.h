// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <algorithm>
#include <cstdint>
#include <span>

#include "core/base/vec.h"

namespace kestrane {

/// Where a polyline is cut: the points [0, last) stay, and a point at the share `mix` between
/// last - 1 and last ends it.
struct PolylineCut {
  std::uint32_t last = 0;
  float mix = 1.0f;

  std::uint32_t pointCount() const { return last + 1; }

  /// The values of the points that stay, from any values per point.
  template <class T>
  void apply(std::span<const T> values, std::span<T> out) const {
    if (values.empty()) return;
    std::copy_n(values.begin(), last, out.begin());
    if (last == 0) {
      out[0] = values[0];
    } else {
      out[last] = mix >= 1.0f ? values[last] : lerp(values[last - 1], values[last], mix);
    }
  }
};

/// The cut at a share of the arc length from the root, 0 to 1. A share of 0 leaves the root alone;
/// a share of 1, or a polyline without length, leaves all.
PolylineCut cutPolyline(std::span<const Vec3f> points, float share);

}  // namespace kestrane
