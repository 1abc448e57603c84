// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <algorithm>
#include <cmath>
#include <span>
#include <stdexcept>
#include <string>

#include "core/base/vec.h"
#include "core/guides/guide_record.h"

namespace kestrane::detail {

/// Infinity and NaN stay out of the stored guides: no document could hold them.
inline bool allFinite(std::span<const Vec3f> points) {
  return std::all_of(points.begin(), points.end(), [](Vec3f p) { return isFinite(p); });
}

inline void requireFinite(std::span<const float> values, const char* operation) {
  if (!std::all_of(values.begin(), values.end(), [](float v) { return std::isfinite(v); })) {
    throw std::invalid_argument(std::string(operation) + ": the values must be finite numbers");
  }
}

inline void requireFinite(std::span<const Vec3f> points, const char* operation) {
  if (!allFinite(points)) {
    throw std::invalid_argument(std::string(operation) + ": the points must be finite numbers");
  }
}

inline void requireFinite(const GuideTube& tube, const char* operation) {
  requireFinite(tube.radius, operation);
  requireFinite(std::span(&tube.twist, 1), operation);
}

}  // namespace kestrane::detail
