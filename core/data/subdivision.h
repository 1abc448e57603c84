// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "core/data/scalp_mesh.h"

namespace kestrane {

/// One level of refinement as sparse rows: every fine point is a weighted sum of coarse points.
/// The plan itself works with face points in between, which takes fewer reads. Rows stand in the
/// order vertex points (numbered as the coarse points), edge points, face points.
struct SubdivisionStep {
  std::vector<std::uint32_t> offsets;  // one per fine point, plus one
  std::vector<std::uint32_t> indices;
  std::vector<float> weights;
};

/// The topology work of Catmull-Clark subdivision (Catmull and Clark 1978), made once per cage;
/// each frame then costs one pass of sums per level, and after the first one allocates nothing but
/// its result: the plan keeps the room for the points between. Borders become cubic B-splines, also
/// at corners; vertices where the surface is no single sheet stay where they are. Immutable; may be
/// read by any thread.
class SubdivisionPlan {
 public:
  std::size_t cagePointCount() const;
  int levels() const;
  std::uint64_t cageHash() const;
  /// Whether refineMesh takes this mesh: as many points as the cage, and its topology. Costs little
  /// for a plan made of a mesh.
  bool fits(const ScalpMesh& mesh) const;
  /// One per level, made when first asked for.
  const std::vector<SubdivisionStep>& steps() const;
  const std::vector<ScalpMesh::Triangle>& triangles() const;  // of the finest level
  const std::vector<std::int32_t>& polygons() const;          // two triangles per fine quad
  const std::vector<Vec2f>& uvs() const;                      // per fine corner, or empty

  /// The fine points of a pose of the cage. The neighbours of a point are added up before they are
  /// divided; where that sum is beyond a float's range, the fine point is infinite. Throws
  /// std::invalid_argument for another count.
  std::vector<Vec3f> refinePoints(std::span<const Vec3f> points) const;
  /// The same for `width` floats per cage vertex.
  std::vector<float> refineValues(std::span<const float> values, int width) const;
  /// The fine mesh, with UVs, colour sets and rest points refined along. UVs and colours are
  /// refined as surfaces of their own, whose corners are joined where one vertex has one value, so
  /// that seams stay seams. Poses of one cage share the fine topology. Throws std::invalid_argument
  /// for a mesh of another topology.
  ScalpMeshPtr refineMesh(const ScalpMesh& mesh) const;

 private:
  friend std::shared_ptr<const SubdivisionPlan> makeSubdivisionPlan(const ScalpMesh&, int);
  friend std::shared_ptr<const SubdivisionPlan> makeSubdivisionPlan(
      std::span<const Vec3f>, std::span<const std::vector<std::int32_t>>, int);
  struct Data;
  std::shared_ptr<const Data> data_;
};

using SubdivisionPlanPtr = std::shared_ptr<const SubdivisionPlan>;

/// The plan of a polygon cage, any number of corners a face (faces of fewer than 3 are left out).
/// Throws std::invalid_argument for levels outside 1 to 3, a face that names a missing point, or a
/// cage whose refinement would need more than 2^28 weights (2 GB).
SubdivisionPlanPtr makeSubdivisionPlan(std::span<const Vec3f> cagePoints,
                                       std::span<const std::vector<std::int32_t>> cageFaces,
                                       int levels);
/// The plan of a mesh's source polygons (its triangles where it keeps none), with its UVs.
SubdivisionPlanPtr makeSubdivisionPlan(const ScalpMesh& cage, int levels);

}  // namespace kestrane
