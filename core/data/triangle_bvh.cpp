// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/data/triangle_bvh.h"

#include <algorithm>
#include <limits>

#include "core/base/parallel.h"

namespace kestrane::detail {

namespace {

constexpr int kLanes = TriangleBvh::kLanes;
using Packet = TriangleBvh::Packet;

/// Nearest points of a packet's triangles, lane by lane: weights of the second and third corner,
/// the point made from them, and its squared distance.
struct NearestPoints {
  Float4 u, v;
  Vec3x4 point;
  Float4 distanceSquared;
};

/// Clamped to [0, 1]; 0 for what is not a number, as where an edge has no length.
inline Float4 clampShare(Float4 t) {
  return lower(higher(t, splat(0.0f)), splat(1.0f));
}

/// The nearest of the candidates on the three edges (which cover the corners' regions, too) and of
/// the projection onto the face, where that lies inside. Every candidate is a true point of the
/// triangle, so slivers and triangles without area need no care. Choices instead of branches, since
/// the lanes seldom agree.
inline NearestPoints nearestPoints(const Packet& packet, const Vec3x4& p) {
  const Float4 zero = splat(0.0f), one = splat(1.0f);
  const Vec3x4 a = load4(packet.corner[0]), b = load4(packet.corner[1]);
  const Vec3x4 c = load4(packet.corner[2]);
  const Vec3x4 ab = b - a, ac = c - a, bc = c - b, ap = p - a, bp = p - b;
  const Float4 abab = dot(ab, ab), acac = dot(ac, ac), abac = dot(ab, ac);
  const Float4 apab = dot(ap, ab), apac = dot(ap, ac);
  const Float4 alongAb = apab / abab, slant = abac / abab;
  const Float4 onAb = clampShare(alongAb);
  const Float4 onAc = clampShare(apac / acac);
  const Float4 onBc = clampShare(dot(bp, bc) / dot(bc, bc));
  // The second axis is made perpendicular to the first, which keeps the numbers in range where
  // products of four lengths would leave it.
  const Float4 faceV = (apac - slant * apab) / (acac - slant * abac);
  const Float4 faceU = alongAb - faceV * slant;
  const Float4 faceW = one - faceU - faceV;

  const Vec3x4 toAb = ap - onAb * ab, toAc = ap - onAc * ac, toBc = bp - onBc * bc;
  const Vec3x4 toFace = ap - faceU * ab - faceV * ac;
  const Float4 farAc = dot(toAc, toAc), farBc = dot(toBc, toBc), farFace = dot(toFace, toFace);
  Float4 best = dot(toAb, toAb), u = onAb, v = zero;
  Mask4 nearer = farAc < best;
  best = select(nearer, farAc, best), u = select(nearer, zero, u), v = select(nearer, onAc, v);
  nearer = farBc < best;
  best = select(nearer, farBc, best), u = select(nearer, one - onBc, u);
  v = select(nearer, onBc, v);
  nearer = (farFace < best) & (faceU >= zero) & (faceV >= zero) & (faceW >= zero);
  u = select(nearer, faceU, u), v = select(nearer, faceV, v);

  const Vec3x4 point = (one - u - v) * a + u * b + v * c;
  const Vec3x4 off = point - p;
  return {u, v, point, dot(off, off)};
}

/// Whether the point lies within the lane's triangle's box, widened by the tolerance: a guard
/// against weights that rounding has spoilt.
bool withinBox(const Packet& packet, int k, Vec3f point, float tolerance) {
  for (int axis = 0; axis < 3; ++axis) {
    const float a = packet.corner[0][axis][k];
    const float b = packet.corner[1][axis][k];
    const float c = packet.corner[2][axis][k];
    if (point[axis] < std::min({a, b, c}) - tolerance) return false;
    if (point[axis] > std::max({a, b, c}) + tolerance) return false;
  }
  return true;
}

/// A ray turned into the space where it runs along the third axis from the origin (Woop, Benthin
/// and Wald 2013): the signs of the edge tests then agree for triangles that share an edge, so that
/// no ray slips through between them.
struct SlantedRay {
  SlantedRay(Vec3f from, Vec3f direction) : origin{from.x, from.y, from.z} {
    const float d[3] = {direction.x, direction.y, direction.z};
    for (int axis = 1; axis < 3; ++axis) {
      if (std::abs(d[axis]) > std::abs(d[along])) along = axis;
    }
    across = (along + 1) % 3;
    upward = (along + 2) % 3;
    shear[0] = d[across] / d[along];
    shear[1] = d[upward] / d[along];
    shear[2] = 1.0f / d[along];
    for (int axis = 0; axis < 3; ++axis) {
      parallel[axis] = std::abs(d[axis]) <= 1e-30f;
      inverse[axis] = parallel[axis] ? 0.0f : 1.0f / d[axis];
    }
  }

  /// The distance at which the ray enters each box, or FLT_MAX where it misses. The interval is
  /// widened by the rounding of the slab test (Ize 2013), so that flat boxes are met.
  Float4 enterDistances(const BoxNode& node) const {
    Float4 enter = splat(0.0f), leave = splat(FLT_MAX);
    for (int axis = 0; axis < 3; ++axis) {
      const Float4 low = load4(node.low[axis]), high = load4(node.high[axis]);
      const Float4 o = splat(origin[axis]), i = splat(inverse[axis]);
      if (parallel[axis]) {
        leave = select((low <= o) & (o <= high), leave, splat(-1.0f));
        continue;
      }
      const Float4 a = (low - o) * i, b = (high - o) * i;
      enter = higher(lower(a, b), enter);
      leave = lower(select(a < b, b, a), leave);
    }
    const Float4 early = enter * splat(0.9999995f);
    const Mask4 meets =
        (early <= leave * splat(1.0000005f)) & (load4(node.low[0]) <= load4(node.high[0]));
    return select(meets, early, splat(FLT_MAX));
  }

  /// The nearest hit with a triangle of the packet, nearer than `limit`; returns its lane or -1.
  int hit(const Packet& packet, float& limit, float& u, float& v) const {
    Float4 x[3], y[3], z[3];
    for (int corner = 0; corner < 3; ++corner) {
      const auto& c = packet.corner[corner];
      const Float4 depth = load4(c[along]) - splat(origin[along]);
      x[corner] = (load4(c[across]) - splat(origin[across])) - splat(shear[0]) * depth;
      y[corner] = (load4(c[upward]) - splat(origin[upward])) - splat(shear[1]) * depth;
      z[corner] = splat(shear[2]) * depth;
    }
    const Float4 a = x[2] * y[1] - y[2] * x[1];
    const Float4 b = x[0] * y[2] - y[0] * x[2];
    const Float4 c = x[1] * y[0] - y[1] * x[0];
    const Float4 zero = splat(0.0f), sum = a + b + c;
    const Float4 t = (a * z[0] + b * z[1] + c * z[2]) / sum;
    // A sum of 0 makes t infinite or not a number; either fails the tests.
    const Mask4 inside =
        ((a >= zero) & (b >= zero) & (c >= zero)) | ((a <= zero) & (b <= zero) & (c <= zero));
    const Float4 distances = select(inside & (t >= zero), t, splat(FLT_MAX));
    int lane = -1;
    for (int k = 0; k < kLanes; ++k) {
      if (distances[k] < limit) limit = distances[k], lane = k;
    }
    if (lane >= 0) u = (b / sum)[lane], v = (c / sum)[lane];
    return lane;
  }

  float origin[3];
  int along = 0, across = 1, upward = 2;
  float shear[3];
  float inverse[3];
  bool parallel[3];
};

Vec3f pointAt(const Packet& packet, int k, float u, float v) {
  Vec3f point;
  for (int axis = 0; axis < 3; ++axis) {
    point[axis] = (1.0f - u - v) * packet.corner[0][axis][k] + u * packet.corner[1][axis][k] +
                  v * packet.corner[2][axis][k];
  }
  return point;
}

}  // namespace

BoxTreeShape makeTriangleShape(std::span<const Vec3f> points,
                               std::span<const ScalpMesh::Triangle> triangles) {
  std::vector<Vec3f> centroids(triangles.size());
  kestrane::isolatedRange(0, triangles.size(), 16384, [&](std::size_t begin, std::size_t end) {
    for (std::size_t i = begin; i < end; ++i) {
      const auto& [a, b, c] = triangles[i];
      centroids[i] = (points[a] + points[b] + points[c]) / 3.0f;
    }
  });
  return makeBoxTreeShape(centroids, 5);
}

TriangleBvh::TriangleBvh(const BoxTreeShape& shape, std::span<const Vec3f> points,
                         std::span<const ScalpMesh::Triangle> triangles)
    : packets_(shape.leafCount()), root_(shape.root) {
  std::vector<Box> boxes(packets_.size());
  kestrane::isolatedRange(0, packets_.size(), 4096, [&](std::size_t begin, std::size_t end) {
    constexpr float kNone = std::numeric_limits<float>::quiet_NaN();
    for (std::size_t i = begin; i < end; ++i) {
      Packet& packet = packets_[i];
      const auto faces = shape.leaf(i);
      for (std::size_t k = 0; k < kLanes; ++k) {
        Vec3f corners[3];
        bool valid = k < faces.size();
        for (int corner = 0; corner < 3 && valid; ++corner) {
          corners[corner] = points[triangles[faces[k]][corner]];
          valid = isFinite(corners[corner]);
        }
        packet.face[k] = valid ? static_cast<std::int32_t>(faces[k]) : -1;
        for (int corner = 0; corner < 3; ++corner) {
          for (int axis = 0; axis < 3; ++axis) {
            packet.corner[corner][axis][k] = valid ? corners[corner][axis] : kNone;
          }
          if (valid) boxes[i].add(corners[corner]);
        }
      }
    }
  });
  Box whole;
  nodes_ = fillBoxes(shape, boxes, whole);
  if (whole.low.x <= whole.high.x) {
    const Vec3f size = max(-whole.low, whole.high);
    scale_ = std::max({size.x, size.y, size.z});
  }
}

SurfaceHit TriangleBvh::closestPoint(Vec3f position, float maxDistance) const {
  SurfaceHit hit;
  if (!isFinite(position) || !(maxDistance >= 0.0f)) return hit;
  const Vec3f size{std::abs(position.x), std::abs(position.y), std::abs(position.z)};
  const float tolerance = 1e-5f * std::max({scale_, size.x, size.y, size.z, 1e-30f});
  float best = FLT_MAX;
  if (maxDistance < std::sqrt(FLT_MAX)) {
    const float reach = maxDistance + tolerance;
    best = std::min(best, reach * reach);
  }

  const Vec3x4 positions = splat(position.x, position.y, position.z);
  visitByDistance(
      nodes_.data(), packets_.data(), root_, best,
      [&](const BoxNode& node) { return boxDistances(node, positions); },
      [&](const Packet& packet) {
        const NearestPoints nearest = nearestPoints(packet, positions);
        for (int k = 0; k < kLanes; ++k) {
          if (!(nearest.distanceSquared[k] < best)) continue;
          const Vec3f point{nearest.point.x[k], nearest.point.y[k], nearest.point.z[k]};
          if (!withinBox(packet, k, point, tolerance)) continue;
          best = nearest.distanceSquared[k];
          hit.root = {packet.face[k], nearest.u[k], nearest.v[k]};
          hit.position = point;
        }
      });
  if (hit.root.face >= 0) hit.distance = std::sqrt(best);
  return hit;
}

SurfaceHit TriangleBvh::raycast(Vec3f origin, Vec3f direction, float maxDistance) const {
  SurfaceHit result;
  const float size =
      std::max({std::abs(direction.x), std::abs(direction.y), std::abs(direction.z)});
  if (!isFinite(origin) || !isFinite(direction) || size == 0.0f || !(maxDistance >= 0.0f)) {
    return result;
  }
  const SlantedRay ray(origin, normalize(direction / size));
  // A hit just at the greatest distance still counts.
  float best = std::min(std::nextafter(maxDistance, FLT_MAX), FLT_MAX);
  visitByDistance(
      nodes_.data(), packets_.data(), root_, best,
      [&](const BoxNode& node) { return ray.enterDistances(node); },
      [&](const Packet& packet) {
        float u = 0.0f, v = 0.0f;
        const int lane = ray.hit(packet, best, u, v);
        if (lane < 0) return;
        result.root = {packet.face[lane], u, v};
        result.position = pointAt(packet, lane, u, v);
      });
  if (result.root.face >= 0) result.distance = best;
  return result;
}

}  // namespace kestrane::detail
