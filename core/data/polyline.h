// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <span>
#include <vector>

#include "core/base/vec.h"

namespace kestrane {

/// The length of each segment; one fewer than points, and none without points.
void segmentLengths(std::span<const Vec3f> points, float* lengths);

/// The length of a polyline; 0 for fewer than 2 points.
float polylineLength(std::span<const Vec3f> points);

/// Writes the length from the root to each point. Both spans have one size.
void arcLengths(std::span<const Vec3f> points, std::span<float> lengths);

/// Writes the share of the length at each point, 0 at the root to 1 at the tip; where the length is
/// 0, the share by point index (0 for a single point). Both spans have one size.
void arcShares(std::span<const Vec3f> points, std::span<float> shares);

/// Writes out.size() points evenly spaced along the polyline by arc length: position k is at
/// k * total / (count - 1), found by walking the cumulative segment lengths, with a linear mix
/// within a segment; a segment of length 0 gives its first point. The first and last points are
/// exact. An empty polyline gives zeros.
void resamplePolyline(std::span<const Vec3f> points, std::span<Vec3f> out);

/// Floats given at the points of a polyline, resampled linearly to the same places.
void resampleAlong(std::span<const Vec3f> points, std::span<const float> values,
                   std::span<float> out);

/// Values given per point, resampled linearly by point index to another count.
std::vector<float> resampleByIndex(std::span<const float> values, std::size_t count);

/// The centripetal Catmull-Rom spline through the points (Catmull and Rom 1974; knots after Yuksel,
/// Schaefer and Keyser 2011), as a polyline with `perSegment` pieces between two given points. The
/// ends reflect their neighbours. Fewer than 3 points come back as they are.
std::vector<Vec3f> smoothCurve(std::span<const Vec3f> points, int perSegment);

}  // namespace kestrane
