// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <array>
#include <cfloat>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "core/base/vec.h"

namespace kestrane {

struct SurfaceTopology;
namespace detail {
class TriangleBvh;
}

/// The nearest point of a surface. `root.face` -1 means that nothing was found.
struct SurfaceHit {
  StrandRoot root;
  Vec3f position;
  float distance = 0.0f;
};

/// The tangent frame of a surface point: unit vectors, the bitangent is normal x tangent.
struct SurfaceFrame {
  Vec3f normal;
  Vec3f tangent;
  Vec3f bitangent;
};

/// The surface on which hair grows: triangles with UVs and colour sets per corner, a rest pose, and
/// a tree for closest-point queries that is built at the first query. Immutable once shared:
/// setters are for the building phase, and a deformed mesh is a new one made by withPoints. Queries
/// may run from many threads and never throw: an invalid root gives zero or the fallback.
class ScalpMesh {
 public:
  using Triangle = std::array<std::int32_t, 3>;

  ScalpMesh();
  /// Throws std::invalid_argument "ScalpMesh: triangle index out of range".
  ScalpMesh(std::vector<Vec3f> points, std::vector<Triangle> triangles);

  const std::vector<Vec3f>& points() const { return *points_; }
  const std::vector<Triangle>& triangles() const { return topology_->triangles; }
  /// Per vertex, unit, weighted by triangle area; +Y where there is no area.
  const std::vector<Vec3f>& normals() const { return *normals_; }
  const std::vector<Vec2f>& uvs() const { return topology_->uvs; }  // per triangle corner, or empty
  const std::vector<std::int32_t>& polygons() const { return topology_->polygons; }
  const std::map<std::string, std::vector<Vec4f>, std::less<>>& colorSets() const {
    return topology_->colorSets;
  }
  const std::vector<Vec3f>& restPoints() const { return *restPoints_; }  // empty: points() are
  std::size_t triangleCount() const { return triangles().size(); }
  bool hasUvs() const { return !uvs().empty(); }

  /// One pair per triangle corner, or none.
  void setUvs(std::vector<Vec2f> uvs);
  /// One colour per triangle corner.
  void setColorSet(std::string name, std::vector<Vec4f> colors);
  void removeColorSet(std::string_view name);
  std::vector<std::string> colorSetNames() const;
  /// Per source polygon its triangle count; a polygon's triangles are fans from its first corner.
  void setPolygons(std::vector<std::int32_t> counts);
  /// One rest position per vertex, or none.
  void setRestPoints(std::vector<Vec3f> points);
  /// A mesh with new points that shares triangles, UVs, colour sets, polygons and the tree's
  /// structure, whose boxes are refitted at the next query.
  std::shared_ptr<const ScalpMesh> withPoints(std::vector<Vec3f> points,
                                              std::vector<Vec3f> restPoints = {}) const;

  Vec3f positionAt(StrandRoot root) const {
    return hasFace(root.face) ? mix(*points_, root) : Vec3f{};
  }
  /// The mix of the vertex normals, unit; where they cancel out, the triangle's own normal.
  Vec3f normalAt(StrandRoot root) const;
  Vec3f restPositionAt(StrandRoot root, Vec3f fallback) const;
  Vec2f uvAt(StrandRoot root) const {
    // A negative face wraps round to one past any end.
    const std::size_t corner = 3 * static_cast<std::size_t>(static_cast<std::uint32_t>(root.face));
    if (corner + 2 >= uvs().size()) return {};
    const Vec2f* uv = uvs().data() + corner;
    const float w = 1.0f - root.u - root.v;
    return {w * uv[0].x + root.u * uv[1].x + root.v * uv[2].x,
            w * uv[0].y + root.u * uv[1].y + root.v * uv[2].y};
  }
  Vec4f colorAt(std::string_view name, StrandRoot root) const;
  /// The same of a set of colorSets() that is looked up once for many roots.
  Vec4f colorAt(const std::vector<Vec4f>& colorSet, StrandRoot root) const;
  /// The tangent runs along the triangle's first edge (the second where that has no length). Zeros
  /// for an invalid root.
  SurfaceFrame frameAt(StrandRoot root) const;

  /// The nearest surface point within maxDistance (and a hair's breadth: 1e-5 of the scale of mesh
  /// and query). The position is positionAt(root). Allocates nothing. A query that is not finite,
  /// or a negative distance, finds nothing.
  SurfaceHit closestPoint(Vec3f position, float maxDistance = FLT_MAX) const;
  /// The nearest hit along a ray, of either side; `distance` counts in lengths of the unit
  /// direction, of which a direction of any length is made.
  SurfaceHit raycast(Vec3f origin, Vec3f direction, float maxDistance = FLT_MAX) const;

  /// Which triangles meet at edges; made at the first call. Deformed meshes share it.
  const SurfaceTopology& adjacency() const;

  double area() const { return area_; }
  double triangleArea(std::size_t face) const;  // 0 past the end

  std::uint64_t topologyHash() const;  // triangles, polygons and UVs
  std::uint64_t pointsHash() const;    // the topology with the points
  std::uint64_t colorsHash() const;    // the colour sets alone
  std::uint64_t contentHash() const;   // all of it, colour sets and rest pose too

  bool hasFace(std::int32_t face) const {
    return static_cast<std::uint32_t>(face) < triangleCount();
  }

 private:
  struct LazyAdjacency;
  struct BvhFamily;
  struct LazyBvh;

  /// What all poses of a mesh share.
  struct Topology {
    std::vector<Triangle> triangles;
    std::vector<Vec2f> uvs;
    std::vector<std::int32_t> polygons;
    std::map<std::string, std::vector<Vec4f>, std::less<>> colorSets;
    std::map<std::string, std::uint64_t, std::less<>> colorSetHashes;
    std::uint64_t trianglesHash = 0;
    std::uint64_t uvsHash = 0;
    std::uint64_t polygonsHash = 0;
    std::shared_ptr<LazyAdjacency> adjacency;
  };
  using PointsPtr = std::shared_ptr<const std::vector<Vec3f>>;

  void setPose(std::vector<Vec3f> points, std::vector<Vec3f> restPoints);
  Topology& mutableTopology();
  const detail::TriangleBvh& tree() const;

  Vec3f mix(const std::vector<Vec3f>& vertices, StrandRoot root) const {
    const Triangle& t = triangles()[static_cast<std::size_t>(root.face)];
    return (1.0f - root.u - root.v) * vertices[static_cast<std::size_t>(t[0])] +
           root.u * vertices[static_cast<std::size_t>(t[1])] +
           root.v * vertices[static_cast<std::size_t>(t[2])];
  }

  // None of the pointers is null.
  std::shared_ptr<Topology> topology_;
  PointsPtr points_;
  PointsPtr normals_;
  PointsPtr restPoints_;
  std::uint64_t ownPointsHash_ = 0;
  std::uint64_t restHash_ = 0;
  double area_ = 0.0;
  std::shared_ptr<LazyBvh> bvh_;
};

using ScalpMeshPtr = std::shared_ptr<const ScalpMesh>;

}  // namespace kestrane
