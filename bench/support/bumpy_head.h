// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <benchmark/benchmark.h>

#include <cmath>
#include <numbers>
#include <utility>
#include <vector>

#include "core/base/hash.h"
#include "core/data/scalp_mesh.h"

namespace kestrane {

/// A bumpy sphere of radius 10 out of 2 * rings * rings quads, each split into two triangles.
inline ScalpMesh makeHead(int rings) {
  const int segments = 2 * rings;
  std::vector<Vec3f> points;
  std::vector<ScalpMesh::Triangle> triangles;
  std::vector<std::int32_t> polygons;
  for (int ring = 0; ring <= rings; ++ring) {
    const double polar = std::numbers::pi * (ring + 0.5) / (rings + 1);
    for (int segment = 0; segment < segments; ++segment) {
      const double turn = 2.0 * std::numbers::pi * segment / segments;
      const double radius = 10.0 + 0.4 * std::sin(9.0 * polar) * std::cos(7.0 * turn);
      points.push_back({static_cast<float>(radius * std::sin(polar) * std::cos(turn)),
                        static_cast<float>(radius * std::cos(polar)),
                        static_cast<float>(-radius * std::sin(polar) * std::sin(turn))});
    }
  }
  for (int ring = 0; ring < rings; ++ring) {
    for (int segment = 0; segment < segments; ++segment) {
      const std::int32_t a = ring * segments + segment;
      const std::int32_t b = ring * segments + (segment + 1) % segments;
      triangles.push_back({a, a + segments, b + segments});
      triangles.push_back({a, b + segments, b});
      polygons.push_back(2);
    }
  }
  ScalpMesh mesh(std::move(points), std::move(triangles));
  mesh.setPolygons(std::move(polygons));
  return mesh;
}

/// Points spread over the surface, in the order of the triangles, off it by up to `height`.
inline std::vector<Vec3f> pointsNear(const ScalpMesh& mesh, std::size_t count, float height) {
  std::vector<Vec3f> points(count);
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint64_t h = mix64(i);
    const float w = std::sqrt(unitFloat(h)), b = unitFloat(mix64(h));
    const StrandRoot root{static_cast<std::int32_t>(i * mesh.triangleCount() / count),
                          (1.0f - b) * w, b * w};
    points[i] = mesh.positionAt(root) + height * unitFloat(mix64(h + 1)) * mesh.normalAt(root);
  }
  return points;
}

inline void shuffle(std::vector<Vec3f>& points) {
  for (std::size_t i = points.size(); i > 1; --i) {
    std::swap(points[i - 1], points[mix64(i) % i]);
  }
}

/// Closest-point queries against a head, for us and whoever is measured beside us.
struct HeadQueries {
  ScalpMesh mesh;
  std::vector<Vec3f> points;

  static constexpr std::size_t count = 200'000;

  /// The mesh's triangles in thousands, and the queries' heights off it in hundredths of a unit.
  HeadQueries(std::int64_t thousandTriangles, std::int64_t height, bool randomOrder)
      : mesh(makeHead(
            static_cast<int>(std::sqrt(static_cast<double>(thousandTriangles) * 1000 / 4)))),
        points(pointsNear(mesh, count, static_cast<float>(height) * 0.01f)) {
    if (randomOrder) shuffle(points);
  }
};

/// What closest points are asked of: 100k triangles, four heights, mesh order and random order.
inline void headQueryArguments(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgNames({"ktris", "height", "random"})
      ->ArgsProduct({{100}, {0, 5, 100, 500}, {0, 1}})
      ->Unit(benchmark::kMillisecond);
}

/// The rings of the head that subdivision is measured on: 4,232 quads.
inline constexpr int subdivisionRings = 46;

}  // namespace kestrane
