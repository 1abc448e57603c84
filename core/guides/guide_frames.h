// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <span>
#include <vector>

#include "core/data/scalp_mesh.h"
#include "core/guides/guide_record.h"

namespace kestrane {

/// The frame of a point of a guide: unit vectors, tangent x side = up.
struct GuideFrame {
  Vec3f tangent;
  Vec3f side;
  Vec3f up;

  /// An offset given as (side, up, tangent), the form in which offsets are stored, in the world.
  Vec3f toWorld(Vec3f offset) const { return tangent * offset.z + side * offset.x + up * offset.y; }
  Vec3f toLocal(Vec3f vector) const {
    return {dot(side, vector), dot(up, vector), dot(tangent, vector)};
  }
};

/// One frame per point, carried along the curve from `up` at the first point with no turn of its
/// own about the tangent: the double reflection of Wang, Juttler, Zheng and Liu (2008). Coincident
/// points take their neighbours' tangent. The frames are orthonormal for every input.
std::vector<GuideFrame> guideFrames(std::span<const Vec3f> points, Vec3f up);

/// A unit vector perpendicular to the curve's first segment: the up vector of a new guide.
Vec3f frameUpFor(std::span<const Vec3f> points);

/// A parent's curve as a child with a given number of points sees it.
struct FollowedCurve {
  std::vector<Vec3f> points;
  std::vector<GuideFrame> frames;
};

/// The parent's own points where the counts agree; else its curve resampled evenly by length, with
/// frames of the resampled curve, so that posing and taking offsets are inverses at every count.
FollowedCurve followedCurve(const GuideRecord& parent, std::size_t pointCount);

/// Sets the child's points from its offsets. With a scalp, a child that is rooted on it is drawn
/// onto the surface: its root goes to the closest surface point and the shift fades out toward the
/// tip. `curve` has child.pointCount() points; for fewer than 2, or where the child would leave the
/// range of numbers, it stays as it is and the result is false.
bool poseChild(GuideRecord& child, const GuideTube& parentTube, const FollowedCurve& curve,
               const ScalpMesh* scalp);

/// The offsets that pose a child of this parent on the points: the inverse of poseChild but for the
/// scalp. Radii below 1e-6 count as 1e-6.
std::vector<Vec3f> offsetsOf(std::span<const Vec3f> points, const GuideTube& parentTube,
                             const FollowedCurve& curve);

/// The frame in which guides are stored relative to their root: the smooth normal, the face's first
/// edge laid into the tangent plane, and normal x tangent. Orthonormal for every root. Stored data
/// hang on this rule, so it is not ScalpMesh::frameAt, which may treat degenerate edges as it
/// likes.
SurfaceFrame surfaceFrameAt(const ScalpMesh& scalp, StrandRoot root);

}  // namespace kestrane
