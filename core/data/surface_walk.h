// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <array>
#include <cfloat>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "core/data/scalp_mesh.h"

namespace kestrane {

/// Which triangles meet at edges, joined by vertex number. Edge k of a triangle runs from corner k
/// to corner (k + 1) % 3.
struct SurfaceTopology {
  struct Edge {
    std::int32_t face;
    std::int32_t edge;
  };
  /// Per triangle and edge the triangle across it; -1 at a border and where more than two meet.
  std::vector<std::array<std::int32_t, 3>> neighbors;
  /// The edges of exactly one triangle.
  std::vector<Edge> border;
};

/// The topology of these triangles, whose corners are below pointCount. ScalpMesh::adjacency keeps
/// one.
SurfaceTopology makeSurfaceTopology(std::span<const ScalpMesh::Triangle> triangles,
                                    std::size_t pointCount);

/// How a walk ended, for callers that want to know more than where.
struct SurfaceWalkEnd {
  /// The step as turned into the plane of the last triangle; its length is the length walked in all
  /// had nothing stopped it.
  Vec3f step;
  /// The share of the step that was walked: 1 unless a border stopped it.
  float share = 0.0f;
};

/// Walks from a point of the surface along a step in space. The step loses its part along the
/// triangle's normal, and turns with the surface at every edge it crosses, as if the triangles were
/// unfolded into a plane. It stops at a border, at an edge of more than two triangles and before a
/// triangle without area. An invalid root, or a root or step that is not finite, goes nowhere. The
/// caller of many walks may run them on many threads.
StrandRoot walkOnSurface(const ScalpMesh& mesh, StrandRoot from, Vec3f step,
                         SurfaceWalkEnd* end = nullptr);

namespace detail {
class TriangleBvh;
}

/// The border of a surface at one pose: its edges, and which one is nearest. Immutable; may be
/// asked from many threads.
class SurfaceBorder {
 public:
  struct Edge {
    std::int32_t face;
    std::int32_t edge;
    Vec3f from;
    Vec3f to;
    /// Unit, in the triangle's plane, perpendicular to the edge, toward the surface; zero where the
    /// triangle has no area.
    Vec3f inward;
  };
  struct Hit {
    std::int32_t edge = -1;  // -1: none within the distance
    float distance = 0.0f;
    Vec3f position;
  };

  explicit SurfaceBorder(const ScalpMesh& mesh);

  std::span<const Edge> edges() const { return edges_; }
  /// The edge nearest to a point, by the distance to its segment. Allocates nothing.
  Hit nearest(Vec3f position, float maxDistance = FLT_MAX) const;

 private:
  std::vector<Edge> edges_;
  std::shared_ptr<const detail::TriangleBvh> tree_;
};

}  // namespace kestrane
