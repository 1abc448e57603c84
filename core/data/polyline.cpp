// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/data/polyline.h"

#include <algorithm>
#include <cmath>

#include "core/base/lanes.h"

namespace kestrane {

namespace {

/// Whether shares of the length mean anything; if not, points are told apart by their index.
bool usableLength(float total) {
  return total > 0.0f && std::isfinite(total);
}

float indexShare(std::size_t k, std::size_t count) {
  return count < 2 ? 0.0f : static_cast<float>(k) / static_cast<float>(count - 1);
}

/// Calls place(k, segment, share of the segment) for `count` places evenly spaced by index. The
/// whole part of a place is found in whole numbers, so that places on a point hit it exactly.
template <class Place>
void walkByIndex(std::size_t given, std::size_t count, const Place& place) {
  for (std::size_t k = 0; k < count; ++k) {
    const std::size_t numerator = count < 2 ? 0 : k * (given - 1);
    const std::size_t denominator = count < 2 ? 1 : count - 1;
    place(k, numerator / denominator,
          static_cast<float>(numerator % denominator) / static_cast<float>(denominator));
  }
}

/// The same for places evenly spaced by arc length. Ends are left to the caller.
template <class Place>
void walkByLength(std::span<const Vec3f> points, std::size_t count, const Place& place) {
  const float total = polylineLength(points);
  if (!usableLength(total)) return walkByIndex(points.size(), count, place);
  std::size_t segment = 0;
  float before = 0.0f, here = distance(points[0], points[1]);
  for (std::size_t k = 0; k < count; ++k) {
    const float position =
        count < 2 ? 0.0f : static_cast<float>(k) * total / static_cast<float>(count - 1);
    while (position > before + here && segment + 2 < points.size()) {
      before += here;
      ++segment;
      here = distance(points[segment], points[segment + 1]);
    }
    place(k, segment, here > 0.0f ? std::min((position - before) / here, 1.0f) : 0.0f);
  }
}

/// A mix that is exact at both ends.
template <class T>
T mixed(std::span<const T> values, std::size_t segment, float share) {
  if (share <= 0.0f) return values[segment];
  if (share >= 1.0f) return values[segment + 1];
  return lerp(values[segment], values[segment + 1], share);
}

template <class T>
void resample(std::span<const Vec3f> points, std::span<const T> values, std::span<T> out) {
  if (out.empty()) return;
  if (values.size() < 2) {
    std::fill(out.begin(), out.end(), values.empty() ? T{} : values.front());
    return;
  }
  walkByLength(points, out.size(), [&](std::size_t k, std::size_t segment, float share) {
    out[k] = mixed(values, segment, share);
  });
  out.front() = values.front();
  if (out.size() > 1) out.back() = values.back();
}

/// One derivative of the centripetal spline where it passes p1, for a parameter that runs from 0 to
/// 1 over the segment of knot distance `span`: the difference quotients of the two segments and of
/// both together (Barry and Goldman 1988, differentiated). `before` and `after` are the knot
/// distances p0 to p1 and p1 to p2.
Vec3f splineTangent(Vec3f p0, Vec3f p1, Vec3f p2, float before, float after, float span) {
  return ((p1 - p0) / before - (p2 - p0) / (before + after) + (p2 - p1) / after) * span;
}

}  // namespace

KESTRANE_WIDE void segmentLengths(std::span<const Vec3f> points, float* lengths) {
  for (std::size_t k = 1; k < points.size(); ++k) {
    lengths[k - 1] = distance(points[k - 1], points[k]);
  }
}

float polylineLength(std::span<const Vec3f> points) {
  constexpr std::size_t piece = 64;
  float lengths[piece];
  float total = 0.0f;
  for (std::size_t first = 0; first + 1 < points.size(); first += piece) {
    const std::size_t segments = std::min(piece, points.size() - 1 - first);
    segmentLengths(points.subspan(first, segments + 1), lengths);
    for (std::size_t k = 0; k < segments; ++k) total += lengths[k];
  }
  return total;
}

void arcLengths(std::span<const Vec3f> points, std::span<float> lengths) {
  if (points.empty()) return;
  lengths[0] = 0.0f;
  segmentLengths(points, lengths.data() + 1);
  for (std::size_t k = 1; k < points.size(); ++k) lengths[k] += lengths[k - 1];
}

void arcShares(std::span<const Vec3f> points, std::span<float> shares) {
  arcLengths(points, shares);
  const float total = shares.empty() ? 0.0f : shares.back();
  if (!usableLength(total)) {
    for (std::size_t k = 0; k < points.size(); ++k) shares[k] = indexShare(k, points.size());
    return;
  }
  for (float& share : shares) share /= total;
}

void resamplePolyline(std::span<const Vec3f> points, std::span<Vec3f> out) {
  resample(points, points, out);
}

void resampleAlong(std::span<const Vec3f> points, std::span<const float> values,
                   std::span<float> out) {
  resample(points, values, out);
}

std::vector<float> resampleByIndex(std::span<const float> values, std::size_t count) {
  std::vector<float> out(count, values.empty() ? 0.0f : values.front());
  if (values.size() < 2) return out;
  walkByIndex(values.size(), count, [&](std::size_t k, std::size_t segment, float share) {
    out[k] = mixed(values, segment, share);
  });
  return out;
}

std::vector<Vec3f> smoothCurve(std::span<const Vec3f> points, int perSegment) {
  if (points.size() < 3 || perSegment < 2) return {points.begin(), points.end()};
  const std::size_t pieces = static_cast<std::size_t>(perSegment);
  std::vector<Vec3f> curve;
  curve.reserve((points.size() - 1) * pieces + 1);
  for (std::size_t k = 0; k + 1 < points.size(); ++k) {
    const Vec3f p1 = points[k], p2 = points[k + 1];
    const float span = std::sqrt(distance(p1, p2));
    // A missing neighbour is reflected, and so is one that lies on the point itself, which has no
    // direction to offer.
    Vec3f p0 = k > 0 ? points[k - 1] : p1;
    Vec3f p3 = k + 2 < points.size() ? points[k + 2] : p2;
    if (!(distance(p0, p1) > 0.0f)) p0 = p1 * 2.0f - p2;
    if (!(distance(p2, p3) > 0.0f)) p3 = p2 * 2.0f - p1;
    const float before = std::sqrt(distance(p0, p1)), after = std::sqrt(distance(p2, p3));
    Vec3f m1, m2;
    if (before > 0.0f && span > 0.0f && after > 0.0f) {
      m1 = splineTangent(p0, p1, p2, before, span, span);
      m2 = splineTangent(p1, p2, p3, span, after, span);
    }
    curve.push_back(p1);
    for (std::size_t i = 1; i < pieces; ++i) {
      const float u = static_cast<float>(i) / static_cast<float>(pieces);
      const float rest = 1.0f - u;
      const float w2 = u * u * (3.0f - 2.0f * u);
      curve.push_back(p1 * (1.0f - w2) + p2 * w2 + m1 * (u * rest * rest) - m2 * (u * u * rest));
    }
  }
  curve.push_back(points.back());
  return curve;
}

}  // namespace kestrane
