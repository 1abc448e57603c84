// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/data/polygon_faces.h"

#include <algorithm>
#include <map>
#include <numeric>

namespace kestrane::detail {

namespace {

using Triangles = std::span<const ScalpMesh::Triangle>;

/// The triangle corners round a fan from the first corner; empty where the triangles are none.
std::vector<std::uint32_t> fanCorners(Triangles triangles) {
  std::vector<std::uint32_t> corners{0, 1, 2};
  for (std::uint32_t i = 1; i < triangles.size(); ++i) {
    if (triangles[i][0] != triangles[0][0] || triangles[i][1] != triangles[i - 1][2]) return {};
    corners.push_back(3 * i + 2);
  }
  return corners;
}

/// The triangle corners round the triangles' outline, where that is one loop through every vertex;
/// else empty.
std::vector<std::uint32_t> outlineCorners(Triangles triangles) {
  // Directed edges by their two vertices; the inner ones run both ways.
  std::map<std::pair<std::int32_t, std::int32_t>, std::uint32_t> edges;
  for (std::uint32_t corner = 0; corner < 3 * triangles.size(); ++corner) {
    const auto& t = triangles[corner / 3];
    if (!edges.insert({{t[corner % 3], t[(corner + 1) % 3]}, corner}).second) return {};
  }
  std::map<std::int32_t, std::pair<std::int32_t, std::uint32_t>> nextOf;
  for (const auto& [ends, corner] : edges) {
    if (edges.contains({ends.second, ends.first})) continue;
    if (!nextOf.insert({ends.first, {ends.second, corner}}).second) return {};
  }
  if (nextOf.size() != triangles.size() + 2) return {};
  std::vector<std::uint32_t> corners;
  const std::int32_t first = nextOf.contains(triangles[0][0]) ? triangles[0][0] : -1;
  for (std::int32_t at = first; corners.size() < nextOf.size();) {
    const auto found = nextOf.find(at);
    if (found == nextOf.end()) return {};
    corners.push_back(found->second.second);
    at = found->second.first;
    if (at == first) break;
  }
  if (corners.size() != nextOf.size()) return {};
  return corners;
}

}  // namespace

CornersOfVertices::CornersOfVertices(std::span<const std::uint32_t> vertices,
                                     std::size_t vertexCount)
    : starts(vertexCount + 1, 0), corners(vertices.size()) {
  for (const std::uint32_t vertex : vertices) ++starts[vertex + 1];
  std::partial_sum(starts.begin(), starts.end(), starts.begin());
  std::vector<std::uint32_t> filled(starts.begin(), starts.end() - 1);
  for (std::uint32_t c = 0; c < vertices.size(); ++c) corners[filled[vertices[c]]++] = c;
}

MeshFaces facesOf(const ScalpMesh& mesh) {
  MeshFaces result;
  result.triangleCorners.reserve(3 * mesh.triangleCount());
  const auto addFace = [&](std::uint32_t firstTriangle, std::span<const std::uint32_t> corners) {
    for (const std::uint32_t corner : corners) {
      const std::uint32_t whole = 3 * firstTriangle + corner;
      result.triangleCorners.push_back(whole);
      result.faces.corners.push_back(
          static_cast<std::uint32_t>(mesh.triangles()[whole / 3][whole % 3]));
    }
    result.faces.starts.push_back(static_cast<std::uint32_t>(result.triangleCorners.size()));
  };
  constexpr std::uint32_t kTriangle[] = {0, 1, 2};
  std::uint32_t at = 0;
  for (const std::int32_t count : mesh.polygons()) {
    const auto triangles = std::span(mesh.triangles()).subspan(at, static_cast<std::size_t>(count));
    if (count > 0) {
      std::vector<std::uint32_t> corners = fanCorners(triangles);
      if (corners.empty()) corners = outlineCorners(triangles);
      if (!corners.empty()) {
        addFace(at, corners);
      } else {
        for (std::uint32_t i = 0; i < triangles.size(); ++i) addFace(at + i, kTriangle);
      }
    }
    at += static_cast<std::uint32_t>(count);
  }
  for (; at < mesh.triangleCount(); ++at) addFace(at, kTriangle);
  return result;
}

}  // namespace kestrane::detail
