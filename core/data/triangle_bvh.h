// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <span>
#include <vector>

#include "core/data/box_tree.h"
#include "core/data/scalp_mesh.h"

namespace kestrane::detail {

/// The structure of a triangle tree: leaves of fewer than 5 triangles, split by centroid. It stays
/// good under deformation, where what is close in topology stays close.
BoxTreeShape makeTriangleShape(std::span<const Vec3f> points,
                               std::span<const ScalpMesh::Triangle> triangles);

/// A tree of triangles at one pose: boxes over a structure, and the corners in leaf order.
/// Immutable once made; queries allocate nothing and may run from many threads. Triangles with a
/// corner that is not finite are never found; ones without area are found as the segments or points
/// they are.
class TriangleBvh {
 public:
  TriangleBvh() = default;
  /// The structure must have been made for as many triangles.
  TriangleBvh(const BoxTreeShape& shape, std::span<const Vec3f> points,
              std::span<const ScalpMesh::Triangle> triangles);

  /// As ScalpMesh's. The first triangle visited wins a tie.
  SurfaceHit closestPoint(Vec3f position, float maxDistance) const;
  SurfaceHit raycast(Vec3f origin, Vec3f direction, float maxDistance) const;

  /// The greatest magnitude of a coordinate: what rounding errors are measured by.
  float scale() const { return scale_; }

  static constexpr int kLanes = 4;
  /// The triangles of one leaf side by side: corner[k][axis][lane]. Lanes without a triangle hold
  /// corners that are not numbers, so that no test accepts them.
  struct alignas(32) Packet {
    float corner[3][3][kLanes];
    std::int32_t face[kLanes];
  };

 private:
  std::vector<BoxNode> nodes_;
  std::vector<Packet> packets_;
  std::int32_t root_ = BoxTreeShape::kNoChild;
  float scale_ = 0.0f;
};

}  // namespace kestrane::detail
