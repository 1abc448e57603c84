// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/ops/resample_kernel.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numeric>

#include "core/base/lanes.h"
#include "core/data/polyline.h"

namespace kestrane {

namespace {

float angleBetween(Vec3f a, Vec3f b) {
  return std::atan2(length(cross(a, b)), dot(a, b));
}

#if defined(__GNUC__)
constexpr std::size_t blockOfPlaces = 24;
// Beyond this many points, walking along is faster.
constexpr std::size_t fewPoints = 40;

/// The segment of each place: how many inner points have a measure below the one wanted there.
/// Measures and places rise, so that comparing all with all finds what walking along would; for few
/// points it is faster, as nothing waits for anything else.
/// Both arrays go on to a whole number of blocks of places.
KESTRANE_WIDE void countPointsBelow(std::span<const float> measure, std::span<const float> wanted,
                                    std::uint32_t* segments) {
  using Float8 = float __attribute__((vector_size(32)));
  using Mask8 = std::int32_t __attribute__((vector_size(32)));
  static_assert(blockOfPlaces == 3 * 8);  // as many as stay in registers
  for (std::size_t k = 0; k < wanted.size(); k += blockOfPlaces) {
    Float8 places[3];
    std::memcpy(places, &wanted[k], sizeof(places));
    Mask8 below[3] = {};
    for (std::size_t i = 1; i + 1 < measure.size(); ++i) {
      const float m = measure[i];
      const Float8 here = {m, m, m, m, m, m, m, m};
      // Where a comparison holds, its lane is -1.
      below[0] -= here < places[0];
      below[1] -= here < places[1];
      below[2] -= here < places[2];
    }
    std::memcpy(segments + k, below, sizeof(below));
  }
}
#endif

/// The same, walking along.
void walkToSegments(std::span<const float> measure, std::span<const float> wanted,
                    std::uint32_t* segments) {
  std::uint32_t segment = 0;
  for (std::size_t k = 0; k < wanted.size(); ++k) {
    while (segment + 2 < measure.size() && measure[segment + 1] < wanted[k]) ++segment;
    segments[k] = segment;
  }
}

/// How much of its segment lies before each place.
KESTRANE_WIDE void findShares(const float* measure, std::span<const float> wanted,
                              const std::uint32_t* segments, float* shares) {
  for (std::size_t k = 0; k < wanted.size(); ++k) {
    const float before = measure[segments[k]];
    const float size = measure[segments[k] + 1] - before;
    const float share = std::clamp((wanted[k] - before) / size, 0.0f, 1.0f);
    shares[k] = size > 0.0f ? share : 0.0f;
  }
}

}  // namespace

void PolylinePlaces::locate() {
  const std::size_t count = wanted_.size();
  segments_.resize(count);
#if defined(__GNUC__)
  if (measure_.size() <= fewPoints) {
    const std::size_t whole = (count + blockOfPlaces - 1) / blockOfPlaces * blockOfPlaces;
    wanted_.resize(whole);
    segments_.resize(whole);
    countPointsBelow(measure_, wanted_, segments_.data());
    wanted_.resize(count);
    segments_.resize(count);
  } else {
    walkToSegments(measure_, wanted_, segments_.data());
  }
#else
  walkToSegments(measure_, wanted_, segments_.data());
#endif
  shares_.resize(count);
  findShares(measure_.data(), wanted_, segments_.data(), shares_.data());
}

void PolylinePlaces::measure(std::span<const Vec3f> points) {
  measure_.resize(points.size());
  arcLengths(points, measure_);
}

void PolylinePlaces::apply(std::span<const Vec3f> values, std::span<Vec3f> out) const {
  const std::size_t count = segments_.size();
  for (std::size_t k = 0; k < count; ++k) {
    const Vec3f& before = values[segments_[k]];
    const float share = shares_[k];
    if (share <= 0.0f || share >= 1.0f) {
      out[k] = share >= 1.0f ? values[segments_[k] + 1] : before;
      continue;
    }
    const auto [from, to] = loadPair(before);
    const Float4 mixed = from + (to - from) * splat(share);
    if (k + 1 < count) {
      storeOverNext(out[k], mixed);
    } else {
      out[k] = firstThree(mixed);
    }
  }
}

void PolylinePlaces::even(std::span<const Vec3f> points, std::size_t count) {
  measure(points);
  spread(count);
}

void PolylinePlaces::shortened(std::span<const Vec3f> points, float share) {
  const std::size_t count = points.size();
  if (count < 2 || !(share > 0.0f)) {
    segments_.assign(count, 0);
    shares_.assign(count, 0.0f);
    return;
  }
  if (share >= 1.0f) {
    segments_.resize(count);
    shares_.assign(count, 0.0f);
    std::iota(segments_.begin(), segments_.end(), 0u);
    toEnd(count);
    return;
  }
  measure(points);
  wanted_.resize(count);
  for (std::size_t k = 0; k < count; ++k) wanted_[k] = measure_[k] * share;
  locate();
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
  const std::size_t pointCount = measure_.size();
  if (count == 0 || pointCount < 2) {
    segments_.assign(count, 0);
    shares_.assign(count, 0.0f);
    return;
  }
  const float total = measure_.back();
  if (!(total > 0.0f) || !std::isfinite(total)) {
    for (std::size_t i = 0; i < pointCount; ++i) measure_[i] = static_cast<float>(i);
  }
  const float end = measure_.back();
  wanted_.assign(count, 0.0f);
  for (std::size_t k = 1; k < count; ++k) {
    wanted_[k] = static_cast<float>(k) * end / static_cast<float>(count - 1);
  }
  locate();
  if (count > 1) toEnd(pointCount);
}

void PolylinePlaces::toEnd(std::size_t points) {
  segments_.back() = static_cast<std::uint32_t>(points - 2);
  shares_.back() = 1.0f;
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
