// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/ops/resample_kernel.h"

#include <algorithm>
#include <cmath>

namespace kestrane {

namespace {

float angleBetween(Vec3f a, Vec3f b) {
  return std::atan2(length(cross(a, b)), dot(a, b));
}

}  // namespace

void PolylinePlaces::measure(std::span<const Vec3f> points) {
  measure_.resize(points.size());
  float total = 0.0f;
  for (std::size_t i = 0; i < points.size(); ++i) {
    if (i > 0) total += distance(points[i - 1], points[i]);
    measure_[i] = total;
  }
}

void PolylinePlaces::even(std::span<const Vec3f> points, std::size_t count) {
  measure(points);
  spread(count);
}

void PolylinePlaces::shortened(std::span<const Vec3f> points, float share) {
  const std::size_t count = points.size();
  segments_.assign(count, 0);
  shares_.assign(count, 0.0f);
  if (count < 2) return;
  const auto lastSegment = static_cast<std::uint32_t>(count - 2);
  if (share >= 1.0f) {
    for (std::size_t k = 0; k + 1 < count; ++k) segments_[k] = static_cast<std::uint32_t>(k);
    segments_.back() = lastSegment;
    shares_.back() = 1.0f;
    return;
  }
  if (!(share > 0.0f)) return;
  measure(points);
  std::uint32_t segment = 0;
  for (std::size_t k = 1; k < count; ++k) {
    place(k, measure_[k] * share, segment, lastSegment);
  }
}

void PolylinePlaces::byTurning(std::span<const Vec3f> points, std::size_t count) {
  measure_.assign(points.size(), 0.0f);
  float total = 0.0f;
  for (std::size_t i = 1; i < points.size(); ++i) total += distance(points[i - 1], points[i]);
  const float turning = turningAngle(points);
  if (!(turning > 1e-6f) || !(total > 0.0f)) return even(points, count);
  // Half of each corner's angle counts on either side of it.
  const float arcWeight = 0.05f / 0.95f * turning / total;
  for (std::size_t i = 1; i < points.size(); ++i) {
    const Vec3f segment = points[i] - points[i - 1];
    float angles = 0.0f;
    if (i > 1) angles += angleBetween(points[i - 1] - points[i - 2], segment);
    if (i + 1 < points.size()) angles += angleBetween(segment, points[i + 1] - points[i]);
    measure_[i] = measure_[i - 1] + 0.5f * angles + arcWeight * length(segment);
  }
  spread(count);
}

void PolylinePlaces::spread(std::size_t count) {
  segments_.assign(count, 0);
  shares_.assign(count, 0.0f);
  const std::size_t pointCount = measure_.size();
  if (count == 0 || pointCount < 2) return;
  const float total = measure_.back();
  if (!(total > 0.0f) || !std::isfinite(total)) {
    for (std::size_t i = 0; i < pointCount; ++i) measure_[i] = static_cast<float>(i);
  }
  const float end = measure_.back();
  std::uint32_t segment = 0;
  const auto lastSegment = static_cast<std::uint32_t>(pointCount - 2);
  for (std::size_t k = 1; k + 1 < count; ++k) {
    place(k, static_cast<float>(k) * end / static_cast<float>(count - 1), segment, lastSegment);
  }
  if (count > 1) {
    segments_.back() = lastSegment;
    shares_.back() = 1.0f;
  }
}

void PolylinePlaces::place(std::size_t k, float wanted, std::uint32_t& segment,
                           std::uint32_t lastSegment) {
  while (segment < lastSegment && measure_[segment + 1] < wanted) ++segment;
  const float size = measure_[segment + 1] - measure_[segment];
  segments_[k] = segment;
  shares_[k] = size > 0.0f ? std::clamp((wanted - measure_[segment]) / size, 0.0f, 1.0f) : 0.0f;
}

float turningAngle(std::span<const Vec3f> points) {
  float sum = 0.0f;
  Vec3f before;
  bool any = false;
  for (std::size_t i = 1; i < points.size(); ++i) {
    const Vec3f segment = points[i] - points[i - 1];
    if (!(lengthSquared(segment) > 0.0f)) continue;
    if (any) sum += angleBetween(before, segment);
    before = segment;
    any = true;
  }
  return sum;
}

}  // namespace kestrane
