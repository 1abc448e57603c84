// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/data/polygon_edges.h"

#include <algorithm>

namespace kestrane::detail {

PolygonEdges findPolygonEdges(std::span<const std::uint32_t> faceStarts,
                              std::span<const std::uint32_t> corners, std::size_t vertexCount) {
  // Each corner's edge goes into the bucket of its lower vertex, as the higher vertex and the
  // corner in one word; a sort within the bucket brings equal edges together.
  std::vector<std::uint32_t> bucketStarts(vertexCount + 1, 0);
  const auto forEachCorner = [&](const auto& body) {
    for (std::size_t face = 0; face + 1 < faceStarts.size(); ++face) {
      const std::uint32_t begin = faceStarts[face], end = faceStarts[face + 1];
      for (std::uint32_t corner = begin; corner < end; ++corner) {
        const std::uint32_t a = corners[corner];
        const std::uint32_t b = corners[corner + 1 < end ? corner + 1 : begin];
        body(corner, std::min(a, b), std::max(a, b));
      }
    }
  };
  forEachCorner([&](std::uint32_t, std::uint32_t low, std::uint32_t) { ++bucketStarts[low + 1]; });
  for (std::size_t i = 0; i < vertexCount; ++i) bucketStarts[i + 1] += bucketStarts[i];

  std::vector<std::uint64_t> keys(corners.size());
  std::vector<std::uint32_t> filled(bucketStarts.begin(), bucketStarts.end() - 1);
  forEachCorner([&](std::uint32_t corner, std::uint32_t low, std::uint32_t high) {
    keys[filled[low]++] = static_cast<std::uint64_t>(high) << 32 | corner;
  });

  PolygonEdges edges;
  edges.edgeOfCorner.resize(corners.size());
  edges.corners.resize(corners.size());
  edges.ends.reserve(corners.size() / 2);
  edges.cornerStarts.reserve(corners.size() / 2 + 1);
  for (std::uint32_t low = 0; low < vertexCount; ++low) {
    const std::uint32_t begin = bucketStarts[low], end = bucketStarts[low + 1];
    std::sort(keys.begin() + begin, keys.begin() + end);
    for (std::uint32_t i = begin; i < end; ++i) {
      const auto high = static_cast<std::uint32_t>(keys[i] >> 32);
      if (i == begin || high != static_cast<std::uint32_t>(keys[i - 1] >> 32)) {
        edges.ends.push_back({low, high});
        edges.cornerStarts.push_back(i);
      }
      const auto corner = static_cast<std::uint32_t>(keys[i]);
      edges.corners[i] = corner;
      edges.edgeOfCorner[corner] = static_cast<std::uint32_t>(edges.ends.size() - 1);
    }
  }
  edges.cornerStarts.push_back(static_cast<std::uint32_t>(corners.size()));
  return edges;
}

}  // namespace kestrane::detail
