// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <vector>

#include "core/data/polygon_faces.h"

namespace kestrane::detail {

/// Fine points that follow each other and are made alike: each is `own` times the coarse point of
/// its own number plus `share` times the sum of `reads` others. Without own there is no such point.
struct SubdivisionRun {
  std::uint32_t begin, end;  // fine points
  std::uint32_t firstRead;   // of the first one, in SubdivisionRules::reads
  std::uint32_t reads;       // per fine point, at least one
  double own, share;
};

/// One step of refinement. Fine points stand in the order vertex points (numbered as the coarse
/// points), edge points, face points. All but face points are made of coarse points and of the
/// step's face points, so that no face is added up more than once.
struct SubdivisionRules {
  std::uint32_t coarseCount = 0;
  std::uint32_t firstFacePoint = 0;  // among the fine points
  std::uint32_t fineCount = 0;
  std::vector<SubdivisionRun> runs;  // of all fine points; the face points' begin with a run
  /// Numbers of coarse points, or from coarseCount on of the step's face points.
  std::vector<std::uint32_t> reads;

  std::uint32_t facePointCount() const { return fineCount - firstFacePoint; }
};

/// Several steps, one upon the other, and the quads between the finest points.
struct RefinedLevels {
  std::vector<SubdivisionRules> levels;
  PolygonFaces faces;
};

/// Catmull-Clark steps over faces whose corners are below vertexCount. The quads of a face follow
/// each other, one per corner: vertex point, edge point, face point, edge point. Throws
/// std::invalid_argument "SubdivisionPlan: the refined mesh is too large".
RefinedLevels refineLevels(const PolygonFaces& faces, std::size_t vertexCount, int levels);

}  // namespace kestrane::detail
