// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/ops/guide_shapes.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "core/base/independent_loop.h"
#include "core/base/parallel.h"
#include "core/data/polyline.h"

namespace kestrane {

namespace {

// Pieces of the smooth curve between two points of a guide.
constexpr int piecesPerSegment = 8;

struct Rotation {
  float m[9];
};

/// The rotation from one unit vector to another over the shortest way (Rodrigues 1840).
Rotation rotationBetween(Vec3f from, Vec3f to) {
  const float cosine = dot(from, to);
  if (cosine > 0.999999f) return {{1, 0, 0, 0, 1, 0, 0, 0, 1}};
  if (cosine < -0.999999f) {
    // Half a turn about any perpendicular: 2 a a^T - 1.
    const Vec3f a = anyPerpendicular(from);
    return {{2 * a.x * a.x - 1, 2 * a.x * a.y, 2 * a.x * a.z, 2 * a.y * a.x, 2 * a.y * a.y - 1,
             2 * a.y * a.z, 2 * a.z * a.x, 2 * a.z * a.y, 2 * a.z * a.z - 1}};
  }
  const Vec3f v = cross(from, to);
  const float k = 1.0f / (1.0f + cosine);
  return {{cosine + k * v.x * v.x, k * v.x * v.y - v.z, k * v.x * v.z + v.y, k * v.x * v.y + v.z,
           cosine + k * v.y * v.y, k * v.y * v.z - v.x, k * v.x * v.z - v.y, k * v.y * v.z + v.x,
           cosine + k * v.z * v.z}};
}

/// Adds offsets, turned, to sums; both are all x, all y, all z.
KESTRANE_WIDE void addTurned(const Rotation& turn, const float* offsets, std::size_t count,
                             float* sums) {
  const float* const m = turn.m;
  const float *const x = offsets, *const y = x + count, *const z = y + count;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const float mx = m[3 * axis], my = m[3 * axis + 1], mz = m[3 * axis + 2];
    float* const sum = sums + axis * count;
    KESTRANE_INDEPENDENT_LOOP
    for (std::size_t k = 0; k < count; ++k) sum[k] += mx * x[k] + my * y[k] + mz * z[k];
  }
}

/// The height that a guide's point asks of strands.
float heightFor(const ClearanceField& field, Vec3f position) {
  const float height = field.heightAt(position);
  // Where nothing is known of the height, nothing is asked.
  if (std::isinf(height)) return -height;
  return std::min(height, field.freeHeight());
}

}  // namespace

GuideShapes::GuideShapes(const GuideSet& guides, std::span<const Vec3f> normals,
                         std::size_t pointCount, bool smooth, const ClearanceField* field)
    : count_(pointCount),
      normals_(normals.begin(), normals.end()),
      lengths_(guides.guides.size()),
      offsets_(guides.guides.size() * 3 * pointCount),
      field_(field),
      heights_(field ? guides.guides.size() * pointCount : 0) {
  parallelRange(0, guides.guides.size(), 8, [&](std::size_t first, std::size_t last) {
    std::vector<Vec3f> even(pointCount);
    for (std::size_t g = first; g < last; ++g) {
      const std::vector<Vec3f>& points = guides.guides[g].points;
      const std::vector<Vec3f> curve = smooth ? smoothCurve(points, piecesPerSegment) : points;
      resamplePolyline(curve, even);
      lengths_[g] = polylineLength(curve);
      float* offsets = offsets_.data() + g * 3 * pointCount;
      for (std::size_t k = 0; k < pointCount; ++k) {
        const Vec3f offset = even[k] - even[0];
        offsets[k] = offset.x;
        offsets[pointCount + k] = offset.y;
        offsets[2 * pointCount + k] = offset.z;
        if (!field_) continue;
        heights_[g * pointCount + k] = heightFor(*field_, even[k]);
      }
    }
  });
}

void StrandBlender::blend(std::size_t strand, Vec3f root, Vec3f normal, bool preserveLength,
                          std::span<Vec3f> out) {
  const std::size_t count = shapes_.count_;
  sums_.assign(3 * count, 0.0f);
  const float* const x = sums_.data();
  const float* const y = x + count;
  const float* const z = y + count;
  for (std::size_t e = binding_.begin(strand); e < binding_.end(strand); ++e) {
    const std::size_t g = binding_.guide(e);
    Rotation turn = rotationBetween(shapes_.normals_[g], normal);
    for (float& m : turn.m) m *= binding_.weight(e);
    addTurned(turn, shapes_.offsets_.data() + g * 3 * count, count, sums_.data());
  }
  for (std::size_t k = 0; k < count; ++k) out[k] = root + Vec3f{x[k], y[k], z[k]};
  if (preserveLength) scaleToLength(out, targetLength(strand));
  if (shapes_.field_ != nullptr) lifter_.add(strand, out);
}

float StrandBlender::targetLength(std::size_t strand) const {
  float sum = 0.0f;
  for (std::size_t e = binding_.begin(strand); e < binding_.end(strand); ++e) {
    sum += binding_.weight(e) * shapes_.lengths_[binding_.guide(e)];
  }
  return sum;
}

void scaleToLength(std::span<Vec3f> points, float target) {
  const float size = polylineLength(points);
  if (!(size > 1e-8f) || !(target > 0.0f)) return;
  const float scale = std::min(target / size, 2.0f);
  for (std::size_t k = 1; k < points.size(); ++k) {
    points[k] = points[0] + (points[k] - points[0]) * scale;
  }
}

}  // namespace kestrane
