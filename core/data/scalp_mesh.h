// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <array>
#include <atomic>
#include <cfloat>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "core/base/vec.h"

namespace kestrane {

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

/// The surface on which hair grows: triangles with UVs and colour sets per corner, a rest pose, and a
/// tree for closest-point queries that is built at the first query. Immutable once shared: setters
/// are for the building phase, and a deformed mesh is a new one made by withPoints. Queries may run
/// from many threads and never throw: an invalid root gives zero or the fallback.
class ScalpMesh {
 public:
  using Triangle = std::array<std::int32_t, 3>;

  ScalpMesh();
  /// Throws std::invalid_argument "ScalpMesh: triangle index out of range".
  ScalpMesh(std::vector<Vec3f> points, std::vector<Triangle> triangles);

  const std::vector<Vec3f>& points() const;
  const std::vector<Triangle>& triangles() const;
  const std::vector<Vec3f>& normals() const;  // per vertex, unit, weighted by triangle area
  const std::vector<Vec2f>& uvs() const;      // per triangle corner, or empty
  const std::vector<std::int32_t>& polygons() const;
  const std::map<std::string, std::vector<Vec4f>, std::less<>>& colorSets() const;
  const std::vector<Vec3f>& restPoints() const;  // empty: the rest pose is points()
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

  Vec3f positionAt(StrandRoot root) const;
  Vec3f normalAt(StrandRoot root) const;
  Vec3f restPositionAt(StrandRoot root, Vec3f fallback) const;
  Vec2f uvAt(StrandRoot root) const;
  Vec4f colorAt(std::string_view name, StrandRoot root) const;
  SurfaceFrame frameAt(StrandRoot root) const;

  /// The nearest surface point within maxDistance. Allocates nothing. Ericson (2004) for the closest
  /// point on a triangle.
  SurfaceHit closestPoint(Vec3f position, float maxDistance = FLT_MAX) const;
  /// The nearest hit along a ray; `distance` counts in lengths of the unit direction.
  SurfaceHit raycast(Vec3f origin, Vec3f direction, float maxDistance = FLT_MAX) const;

  double area() const;
  double triangleArea(std::size_t face) const;

  std::uint64_t topologyHash() const;  // triangles, polygons and UVs
  std::uint64_t pointsHash() const;    // the topology with the points
  std::uint64_t contentHash() const;   // all of it, colour sets and rest pose too

  bool hasFace(std::int32_t face) const {
    return face >= 0 && static_cast<std::size_t>(face) < triangleCount();
  }

 private:
  struct Topology;
  struct LazyBvh;

  std::shared_ptr<const Topology> topology_;  // triangles, UVs, polygons, colour sets
  std::vector<Vec3f> points_;
  std::vector<Vec3f> normals_;
  std::vector<Vec3f> restPoints_;
  std::shared_ptr<LazyBvh> bvh_;
};

using ScalpMeshPtr = std::shared_ptr<const ScalpMesh>;

}  // namespace kestrane
