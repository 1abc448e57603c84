// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/guides/guide_frames.h"

#include <cmath>

#include "core/data/polyline.h"
#include "core/guides/guide_checks.h"

namespace kestrane {

namespace {

constexpr float smallestRadius = 1e-6f;

/// The tangents of a polyline: the mean direction of the segments around each point. Points whose
/// neighbours coincide with them take the tangent before, those at the start the first there is.
std::vector<Vec3f> tangentsOf(std::span<const Vec3f> points) {
  const std::size_t n = points.size();
  std::vector<Vec3f> tangents(n);
  std::size_t firstGood = n;
  for (std::size_t i = 0; i < n; ++i) {
    const Vec3f before = i > 0 ? normalize(points[i] - points[i - 1]) : Vec3f{};
    const Vec3f after = i + 1 < n ? normalize(points[i + 1] - points[i]) : Vec3f{};
    // A curve that turns right back has no mean direction: it keeps the way it came.
    Vec3f tangent = normalize(before + after, before);
    if (lengthSquared(tangent) < 0.5f) tangent = i > 0 ? tangents[i - 1] : Vec3f{};
    tangents[i] = tangent;
    if (firstGood == n && lengthSquared(tangent) > 0.5f) firstGood = i;
  }
  const Vec3f lead = firstGood < n ? tangents[firstGood] : Vec3f{0.0f, 0.0f, 1.0f};
  for (std::size_t i = 0; i < std::min(firstGood, n); ++i) tangents[i] = lead;
  return tangents;
}

/// `vector` made perpendicular to the unit tangent and of unit length.
Vec3f perpendicularPart(Vec3f vector, Vec3f tangent) {
  const Vec3f unit = normalize(vector);
  const Vec3f rest = unit - tangent * dot(unit, tangent);
  // What is left of a vector along the tangent is rounding and points anywhere.
  if (!(lengthSquared(rest) > 1e-10f)) return anyPerpendicular(tangent);
  const Vec3f result = normalize(rest);
  return normalize(result - tangent * dot(result, tangent), result);
}

Vec3f reflect(Vec3f vector, Vec3f axis) {
  const float size = lengthSquared(axis);
  return size > 0.0f ? vector - axis * (2.0f * dot(axis, vector) / size) : vector;
}

Vec3f rotatedAboutZ(Vec3f vector, float angle) {
  const float c = std::cos(angle), s = std::sin(angle);
  return {c * vector.x - s * vector.y, s * vector.x + c * vector.y, vector.z};
}

float shareAt(std::size_t index, std::size_t count) {
  return count < 2 ? 0.0f : static_cast<float>(index) / static_cast<float>(count - 1);
}

/// Moves the first point onto the surface, the others less and less; returns the root there. A
/// child that has no root yet stays where it is.
StrandRoot drawOntoScalp(std::span<Vec3f> points, StrandRoot root, const ScalpMesh* scalp) {
  if (!scalp || !scalp->hasFace(root.face)) return root;
  // The surface is at most as far as the old root, which bounds the search.
  const Vec3f start = points[0];
  SurfaceHit hit =
      scalp->closestPoint(start, 1.01f * distance(start, scalp->positionAt(root)) + 1e-6f);
  if (hit.root.face < 0) hit = scalp->closestPoint(start);
  if (hit.root.face < 0) return root;
  const Vec3f shift = hit.position - start;
  for (std::size_t i = 0; i < points.size(); ++i) {
    const float rest = 1.0f - shareAt(i, points.size());
    points[i] += shift * (rest * rest);
  }
  return hit.root;
}

}  // namespace

float GuideTube::radiusAt(float t) const {
  if (radius.empty()) return 0.0f;
  const float place = std::clamp(t, 0.0f, 1.0f) * static_cast<float>(radius.size() - 1);
  const auto below = static_cast<std::size_t>(place);
  if (below + 1 >= radius.size()) return radius.back();
  return lerp(radius[below], radius[below + 1], place - static_cast<float>(below));
}

std::vector<GuideFrame> guideFrames(std::span<const Vec3f> points, Vec3f up) {
  const std::vector<Vec3f> tangents = tangentsOf(points);
  std::vector<GuideFrame> frames(points.size());
  for (std::size_t i = 0; i < points.size(); ++i) {
    const Vec3f tangent = tangents[i];
    if (i > 0) {
      // The first reflection carries the frame to the next point, the second turns its tangent
      // onto the tangent there. Unit steps keep short segments from underflowing.
      const Vec3f step = normalize(points[i] - points[i - 1]);
      const Vec3f carried = reflect(up, step);
      const Vec3f carriedTangent = reflect(tangents[i - 1], step);
      up = reflect(carried, tangent - carriedTangent);
    }
    up = perpendicularPart(up, tangent);
    frames[i] = {tangent, cross(up, tangent), up};
  }
  return frames;
}

Vec3f frameUpFor(std::span<const Vec3f> points) {
  const Vec3f ahead{0.0f, 0.0f, 1.0f};
  return anyPerpendicular(points.size() < 2 ? ahead : normalize(points[1] - points[0], ahead));
}

FollowedCurve followedCurve(const GuideRecord& parent, std::size_t pointCount) {
  FollowedCurve curve;
  if (parent.points.size() == pointCount) {
    curve.points = parent.points;
  } else {
    curve.points.resize(pointCount);
    resamplePolyline(parent.points, curve.points);
  }
  curve.frames = guideFrames(curve.points, parent.frameUp);
  return curve;
}

bool poseChild(GuideRecord& child, const GuideTube& parentTube, const FollowedCurve& curve,
               const ScalpMesh* scalp) {
  const std::size_t n = curve.points.size();
  if (n < 2) return false;
  std::vector<Vec3f> points(n);
  for (std::size_t i = 0; i < n; ++i) {
    const float t = shareAt(i, n);
    Vec3f offset = i < child.offsets.size() ? child.offsets[i] : Vec3f{};
    offset = rotatedAboutZ(offset, t * parentTube.twist);
    const float radius = parentTube.radiusAt(t);
    offset.x *= radius;
    offset.y *= radius;
    points[i] = curve.points[i] + curve.frames[i].toWorld(offset);
  }
  const StrandRoot root = drawOntoScalp(points, child.root, scalp);
  if (!detail::allFinite(points)) return false;
  child.points = std::move(points);
  child.root = root;
  return true;
}

std::vector<Vec3f> offsetsOf(std::span<const Vec3f> points, const GuideTube& parentTube,
                             const FollowedCurve& curve) {
  const std::size_t n = points.size();
  std::vector<Vec3f> offsets(n);
  for (std::size_t i = 0; i < n; ++i) {
    const float t = shareAt(i, n);
    Vec3f offset = curve.frames[i].toLocal(points[i] - curve.points[i]);
    const float radius = std::max(parentTube.radiusAt(t), smallestRadius);
    offset.x /= radius;
    offset.y /= radius;
    offsets[i] = rotatedAboutZ(offset, -t * parentTube.twist);
  }
  return offsets;
}

SurfaceFrame surfaceFrameAt(const ScalpMesh& scalp, StrandRoot root) {
  const Vec3f normal = normalize(scalp.normalAt(root), {0.0f, 1.0f, 0.0f});
  Vec3f tangent = anyPerpendicular(normal);
  if (scalp.hasFace(root.face)) {
    const auto& triangle = scalp.triangles()[static_cast<std::size_t>(root.face)];
    const Vec3f edge = scalp.points()[static_cast<std::size_t>(triangle[1])] -
                       scalp.points()[static_cast<std::size_t>(triangle[0])];
    const Vec3f flat = edge - normal * dot(normal, edge);
    if (length(flat) > 1e-9f) tangent = normalize(flat, tangent);
  }
  return {normal, tangent, cross(normal, tangent)};
}

}  // namespace kestrane
