// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "core/data/scalp_mesh.h"

namespace kestrane::detail {

/// Polygons as one run of corners: face f has corners[starts[f]] up to corners[starts[f + 1]].
struct PolygonFaces {
  std::vector<std::uint32_t> starts{0};
  std::vector<std::uint32_t> corners;  // vertex numbers

  std::size_t size() const { return starts.size() - 1; }
  std::uint32_t next(std::size_t face, std::uint32_t corner) const {
    return corner + 1 < starts[face + 1] ? corner + 1 : starts[face];
  }
  std::uint32_t previous(std::size_t face, std::uint32_t corner) const {
    return corner > starts[face] ? corner - 1 : starts[face + 1] - 1;
  }
};

/// Corners sorted by their vertex, in compressed rows.
struct CornersOfVertices {
  std::vector<std::uint32_t> starts;
  std::vector<std::uint32_t> corners;

  CornersOfVertices(std::span<const std::uint32_t> vertices, std::size_t vertexCount);
  std::span<const std::uint32_t> of(std::size_t vertex) const {
    return std::span(corners).subspan(starts[vertex], starts[vertex + 1] - starts[vertex]);
  }
};

/// The faces that a mesh was made of, each corner with the triangle corner (3 * triangle + k) that
/// it is, which finds its UV and colours.
struct MeshFaces {
  PolygonFaces faces;
  std::vector<std::uint32_t> triangleCorners;
};

/// Puts a mesh's polygons together again from their triangles, however they were cut; triangles
/// that form no single polygon count as faces of their own, as do all where the mesh keeps no
/// polygons.
MeshFaces facesOf(const ScalpMesh& mesh);

}  // namespace kestrane::detail
