// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cmath>
#include <cstdint>
#include <memory>
#include <numbers>
#include <span>
#include <utility>
#include <vector>

#include "core/base/hash.h"
#include "core/data/scalp_mesh.h"

namespace kestrane::test {

/// Gathers polygons into a mesh the way the readers do: a polygon's triangles are a fan from its
/// first corner.
struct MeshMaker {
  std::vector<Vec3f> points;
  std::vector<ScalpMesh::Triangle> triangles;
  std::vector<Vec2f> uvs;
  std::vector<std::int32_t> polygons;

  void addPolygon(std::span<const std::int32_t> corners, std::span<const Vec2f> cornerUvs) {
    for (std::size_t i = 2; i < corners.size(); ++i) {
      triangles.push_back({corners[0], corners[i - 1], corners[i]});
      uvs.insert(uvs.end(), {cornerUvs[0], cornerUvs[i - 1], cornerUvs[i]});
    }
    polygons.push_back(static_cast<std::int32_t>(corners.size()) - 2);
  }

  ScalpMesh finish() {
    ScalpMesh mesh(std::move(points), std::move(triangles));
    mesh.setUvs(std::move(uvs));
    mesh.setPolygons(std::move(polygons));
    return mesh;
  }
};

/// n x n quads over [0, size] in X and Z, facing +Y; the UVs are (x, z) / size.
inline ScalpMesh makeGrid(int n, float size = 1.0f) {
  MeshMaker maker;
  const auto share = [n](int k) { return static_cast<float>(k) / static_cast<float>(n); };
  for (int row = 0; row <= n; ++row) {
    for (int column = 0; column <= n; ++column) {
      maker.points.push_back({size * share(column), 0.0f, size * share(row)});
    }
  }
  for (int row = 0; row < n; ++row) {
    for (int column = 0; column < n; ++column) {
      const std::int32_t a = row * (n + 1) + column;
      const std::int32_t corners[] = {a, a + n + 1, a + n + 2, a + 1};
      const Vec2f uvs[] = {{share(column), share(row)},
                           {share(column), share(row + 1)},
                           {share(column + 1), share(row + 1)},
                           {share(column + 1), share(row)}};
      maker.addPolygon(corners, uvs);
    }
  }
  return maker.finish();
}

/// The unit quad in X and Z, facing +Y: 4 points, 1 polygon of 2 triangles.
inline ScalpMesh makeQuad() {
  return makeGrid(1);
}

/// A closed sphere around the origin: triangles at the poles (on Y), quads between, facing outward.
/// Points: the top pole, rings - 1 rings of `segments`, the bottom pole. The UVs have a seam; U
/// goes round once, V from 0 at the bottom to 1 at the top.
inline ScalpMesh makeSphere(int rings, int segments, float radius = 1.0f) {
  MeshMaker maker;
  maker.points.push_back({0.0f, radius, 0.0f});
  for (int ring = 1; ring < rings; ++ring) {
    const double polar = std::numbers::pi * ring / rings;
    for (int segment = 0; segment < segments; ++segment) {
      const double turn = 2.0 * std::numbers::pi * segment / segments;
      maker.points.push_back({static_cast<float>(radius * std::sin(polar) * std::cos(turn)),
                              static_cast<float>(radius * std::cos(polar)),
                              static_cast<float>(-radius * std::sin(polar) * std::sin(turn))});
    }
  }
  const auto bottom = static_cast<std::int32_t>(maker.points.size());
  maker.points.push_back({0.0f, -radius, 0.0f});

  const auto point = [&](int ring, int segment) -> std::int32_t {
    if (ring == 0) return 0;
    if (ring == rings) return bottom;
    return 1 + (ring - 1) * segments + segment % segments;
  };
  const auto uv = [&](int ring, float segment) -> Vec2f {
    return {segment / static_cast<float>(segments),
            1.0f - static_cast<float>(ring) / static_cast<float>(rings)};
  };
  for (int ring = 0; ring < rings; ++ring) {
    for (int segment = 0; segment < segments; ++segment) {
      const auto s = static_cast<float>(segment);
      std::vector<std::int32_t> corners{point(ring, segment), point(ring + 1, segment)};
      std::vector<Vec2f> uvs{uv(ring, ring == 0 ? s + 0.5f : s),
                             uv(ring + 1, ring + 1 == rings ? s + 0.5f : s)};
      if (ring + 1 < rings) {
        corners.push_back(point(ring + 1, segment + 1));
        uvs.push_back(uv(ring + 1, s + 1.0f));
      }
      if (ring > 0) {
        corners.push_back(point(ring, segment + 1));
        uvs.push_back(uv(ring, s + 1.0f));
      }
      maker.addPolygon(corners, uvs);
    }
  }
  return maker.finish();
}

/// `count` unconnected triangles at random in the unit cube, edges up to about `size` long.
inline ScalpMesh makeSoup(int count, float size, std::uint64_t seed) {
  std::vector<Vec3f> points;
  std::vector<ScalpMesh::Triangle> triangles;
  std::uint64_t draw = mix64(seed);
  const auto next = [&draw] { return unitFloat(draw = mix64(draw)); };
  const auto nextPoint = [&next] {
    const float x = next(), y = next();
    return Vec3f{x, y, next()};
  };
  for (std::int32_t i = 0; i < count; ++i) {
    const Vec3f center = nextPoint();
    for (int k = 0; k < 3; ++k) {
      points.push_back(center + size * (nextPoint() - Vec3f{0.5f, 0.5f, 0.5f}));
    }
    triangles.push_back({3 * i, 3 * i + 1, 3 * i + 2});
  }
  return ScalpMesh(std::move(points), std::move(triangles));
}

inline ScalpMeshPtr shared(ScalpMesh mesh) {
  return std::make_shared<const ScalpMesh>(std::move(mesh));
}

}  // namespace kestrane::test
