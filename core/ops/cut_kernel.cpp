// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/ops/cut_kernel.h"

#include "core/data/polyline.h"

namespace kestrane {

PolylineCut cutPolyline(std::span<const Vec3f> points, float share) {
  const auto tip = static_cast<std::uint32_t>(points.empty() ? 0 : points.size() - 1);
  if (share >= 1.0f || tip == 0) return {tip, 1.0f};
  if (!(share > 0.0f)) return {0, 1.0f};
  const float wanted = polylineLength(points) * share;
  if (!(wanted > 0.0f)) return {tip, 1.0f};
  float walked = 0.0f;
  for (std::uint32_t i = 1; i <= tip; ++i) {
    const float segment = distance(points[i - 1], points[i]);
    if (walked + segment >= wanted && segment > 0.0f) {
      return {i, std::min((wanted - walked) / segment, 1.0f)};
    }
    walked += segment;
  }
  return {tip, 1.0f};
}

}  // namespace kestrane
