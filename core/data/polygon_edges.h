// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

namespace kestrane::detail {

/// The edges between the corners of polygons, joined by vertex number (not by position) and without
/// regard to direction. Edges come in ascending order of their lower, then their higher vertex.
struct PolygonEdges {
  std::vector<std::array<std::uint32_t, 2>> ends;  // per edge, the lower vertex first
  std::vector<std::uint32_t> edgeOfCorner;         // per corner: the edge to the face's next corner
  std::vector<std::uint32_t> cornerStarts;         // into `corners`, one per edge, plus one
  std::vector<std::uint32_t> corners;              // the corners that run along an edge, ascending

  std::span<const std::uint32_t> cornersOf(std::size_t edge) const {
    return std::span(corners).subspan(cornerStarts[edge],
                                      cornerStarts[edge + 1] - cornerStarts[edge]);
  }
};

/// The edges of the faces whose corners are corners[faceStarts[f]] up to corners[faceStarts[f +
/// 1]]. Corners name vertices below vertexCount.
PolygonEdges findPolygonEdges(std::span<const std::uint32_t> faceStarts,
                              std::span<const std::uint32_t> corners, std::size_t vertexCount);

}  // namespace kestrane::detail
