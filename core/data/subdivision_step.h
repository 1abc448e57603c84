// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <span>
#include <vector>

#include "core/data/polygon_faces.h"
#include "core/data/subdivision.h"

namespace kestrane::detail {

/// A level of refinement: its rows, and the quads between the fine points.
struct RefinedFaces {
  SubdivisionStep step;
  PolygonFaces faces;
};

/// One Catmull-Clark step over faces whose corners are below vertexCount. The quads of a face
/// follow each other, one per corner: vertex point, edge point, face point, edge point. Throws
/// std::invalid_argument "SubdivisionPlan: the refined mesh is too large".
RefinedFaces refineFaces(const PolygonFaces& faces, std::size_t vertexCount);

/// Several steps, one upon the other.
struct RefinedLevels {
  std::vector<SubdivisionStep> steps;
  PolygonFaces faces;
};
RefinedLevels refineLevels(const PolygonFaces& faces, std::size_t vertexCount, int levels);

/// Writes the fine values of `width` floats each: the products of a row are added up in its order,
/// for each float by itself. `out` has width floats per row.
void applyStep(const SubdivisionStep& step, std::span<const float> values, int width,
               std::span<float> out);

/// Refines values given per face corner as a surface of their own: corners are joined where one
/// vertex has one and the same value (bit by bit). Returns `width` floats per corner of the finest
/// level's faces.
std::vector<float> refineCornerValues(const PolygonFaces& faces, std::size_t vertexCount,
                                      std::span<const float> values, int width, int levels);

}  // namespace kestrane::detail
