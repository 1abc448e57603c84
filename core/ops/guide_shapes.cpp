// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/ops/guide_shapes.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "core/base/parallel.h"
#include "core/data/polyline.h"

namespace kestrane {

namespace {

// Pieces of the smooth curve between two points of a guide.
constexpr int piecesPerSegment = 8;
// A lifted point comes down again when its segment gets its length back; a few rounds settle it.
constexpr int liftRounds = 3;
// The share of its height that a strand may lack: between guides that hang free a blend always lies
// a little lower, as a chord does, and nobody sees skin come nearer there.
constexpr float freeShare = 0.02f;

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
      heights_(field ? guides.guides.size() * pointCount : 0),
      field_(field) {
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
  float* const x = sums_.data();
  float* const y = x + count;
  float* const z = y + count;
  for (std::size_t e = binding_.begin(strand); e < binding_.end(strand); ++e) {
    const std::size_t g = binding_.guide(e);
    const float weight = binding_.weight(e);
    const Rotation turn = rotationBetween(shapes_.normals_[g], normal);
    float m[9];
    for (int i = 0; i < 9; ++i) m[i] = turn.m[i] * weight;
    const float* const gx = shapes_.offsets_.data() + g * 3 * count;
    const float* const gy = gx + count;
    const float* const gz = gy + count;
    for (std::size_t k = 0; k < count; ++k) {
      x[k] += m[0] * gx[k] + m[1] * gy[k] + m[2] * gz[k];
      y[k] += m[3] * gx[k] + m[4] * gy[k] + m[5] * gz[k];
      z[k] += m[6] * gx[k] + m[7] * gy[k] + m[8] * gz[k];
    }
  }
  for (std::size_t k = 0; k < count; ++k) out[k] = root + Vec3f{x[k], y[k], z[k]};
  if (preserveLength) scaleToLength(out, targetLength(strand));
  if (shapes_.field_ != nullptr) lift(strand, out);
}

float StrandBlender::targetLength(std::size_t strand) const {
  float sum = 0.0f;
  for (std::size_t e = binding_.begin(strand); e < binding_.end(strand); ++e) {
    sum += binding_.weight(e) * shapes_.lengths_[binding_.guide(e)];
  }
  return sum;
}

void StrandBlender::lift(std::size_t strand, std::span<Vec3f> points) {
  const ClearanceField& field = *shapes_.field_;
  const std::size_t count = points.size();
  const std::span<const float> wanted = wantedHeights(strand);
  ClearanceField::Sample sample;
  bool lifted = false;
  Vec3f before = points[0];  // the last point as it came
  for (std::size_t k = 1; k < count; ++k) {
    const Vec3f aim = points[k];
    const float segment = distance(before, aim);
    before = aim;
    // From the first lift on the strand is walked: each segment keeps its length and heads for
    // where its end was.
    if (lifted) points[k] = points[k - 1] + normalize(aim - points[k - 1]) * segment;
    for (int round = 0; round < liftRounds; ++round) {
      if (!field.find(points[k], sample)) break;
      const float sunk = wanted[k] - sample.height();
      const float free = sample.tolerance() + freeShare * wanted[k];
      if (!(sunk > free)) break;
      const Vec3f from = points[k], up = sample.up();
      points[k] = points[k - 1] + normalize(from + up * sunk - points[k - 1]) * segment;
      lifted = true;
      // Coming back to its segment's length costs height. Within a cell, over which heights are all
      // but linear, what is left needs no other look.
      const Vec3f way = points[k] - from;
      const float reach = 0.5f * sample.cell();
      if (lengthSquared(way) < reach * reach && sunk - dot(way, up) < free) break;
    }
  }
}

std::span<const float> StrandBlender::wantedHeights(std::size_t strand) {
  const std::size_t count = shapes_.count_;
  wanted_.assign(count, 0.0f);
  float* const out = wanted_.data();
  for (std::size_t e = binding_.begin(strand); e < binding_.end(strand); ++e) {
    const float weight = binding_.weight(e);
    const float* const heights = shapes_.heights_.data() + binding_.guide(e) * count;
    for (std::size_t k = 0; k < count; ++k) out[k] += weight * heights[k];
  }
  return wanted_;
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
