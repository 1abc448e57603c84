// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/data/surface_walk.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <numbers>

#include "tests/support/test_meshes.h"

namespace kestrane {
namespace {

using test::makeGrid;
using test::makeSphere;

/// The grid with some triangles turned over.
ScalpMesh makeFlippedGrid(int n) {
  const ScalpMesh grid = makeGrid(n);
  std::vector<ScalpMesh::Triangle> triangles = grid.triangles();
  for (std::size_t i = 0; i < triangles.size(); i += 3) std::swap(triangles[i][0], triangles[i][2]);
  return ScalpMesh(grid.points(), triangles);
}

/// A strip of `count` quads, each turned by `angle` against the one before, 1 long and 1 wide.
ScalpMesh makeFolded(int count, float angle) {
  std::vector<Vec3f> points{{0, 0, 0}, {0, 0, 1}};
  std::vector<ScalpMesh::Triangle> triangles;
  Vec3f at;
  for (std::int32_t i = 0; i < count; ++i) {
    const float turn = angle * static_cast<float>(i);
    at += Vec3f{std::cos(turn), std::sin(turn), 0.0f};
    points.insert(points.end(), {at, at + Vec3f{0, 0, 1}});
    triangles.push_back({2 * i, 2 * i + 1, 2 * i + 3});
    triangles.push_back({2 * i, 2 * i + 3, 2 * i + 2});
  }
  return ScalpMesh(points, triangles);
}

void expectOnFace(const ScalpMesh& mesh, StrandRoot root) {
  ASSERT_TRUE(mesh.hasFace(root.face));
  EXPECT_GE(root.u, -1e-6f);
  EXPECT_GE(root.v, -1e-6f);
  EXPECT_LE(root.u + root.v, 1.0f + 1e-6f);
}

TEST(SurfaceWalk, OnAPlaneWalksTheStraightLine) {
  for (const ScalpMesh& grid : {makeGrid(13), makeFlippedGrid(13)}) {
    for (int i = 0; i < 300; ++i) {
      const Vec3f to{0.05f + 0.9f * unitFloat(mix64(i)), 0,
                     0.05f + 0.9f * unitFloat(mix64(i + 999))};
      const StrandRoot from{i, 0.3f, 0.3f};
      // What the step has along the normal is no part of the way.
      const Vec3f step = to - grid.positionAt(from) + Vec3f{0, i % 3 == 0 ? 2.0f : 0.0f, 0};
      SurfaceWalkEnd end;
      const StrandRoot root = walkOnSurface(grid, from, step, &end);
      expectOnFace(grid, root);
      EXPECT_NEAR(distance(grid.positionAt(root), to), 0.0f, 2e-6f);
      EXPECT_EQ(end.share, 1.0f);
      EXPECT_NEAR(end.step.x, step.x, 1e-6f);
    }
  }
}

TEST(SurfaceWalk, UnfoldsAcrossEdges) {
  // Straight on the unfolded strip: x is the length along, z stays a straight line.
  for (const float angle : {0.0f, 0.5f, 1.5f, -1.0f}) {
    const ScalpMesh strip = makeFolded(6, angle), flat = makeFolded(6, 0.0f);
    for (int i = 0; i < 40; ++i) {
      const StrandRoot from{i % 2, 0.2f, 0.4f};
      const Vec3f step{5.0f * unitFloat(mix64(i)), 0.0f, 0.6f * (unitFloat(mix64(i + 60)) - 0.5f)};
      SurfaceWalkEnd end, flatEnd;
      const StrandRoot root = walkOnSurface(strip, from, step, &end);
      const StrandRoot expected = walkOnSurface(flat, from, step, &flatEnd);
      EXPECT_NEAR(distance(strip.positionAt(root), strip.positionAt(expected)), 0.0f, 1e-5f);
      EXPECT_NEAR(end.share, flatEnd.share, 1e-6f);
      EXPECT_NEAR(length(end.step), length(step), 1e-5f);
      // Back by the turned step is where it came from.
      const StrandRoot back = walkOnSurface(strip, root, end.share * -1.0f * end.step);
      EXPECT_NEAR(distance(strip.positionAt(back), strip.positionAt(from)), 0.0f, 1e-4f);
    }
  }
}

TEST(SurfaceWalk, GoesRoundASphereOnAGreatCircle) {
  const ScalpMesh sphere = makeSphere(64, 128);
  const StrandRoot from = sphere.closestPoint({1, 0.01f, 0.01f}).root;
  const Vec3f start = sphere.positionAt(from);
  for (const Vec3f direction : {Vec3f{0, 1, 0}, {0, 0, 1}, {0, 0.6f, 0.8f}}) {
    const auto quarter = static_cast<float>(0.5 * std::numbers::pi);
    const Vec3f end = sphere.positionAt(walkOnSurface(sphere, from, quarter * direction));
    EXPECT_NEAR(distance(end, direction), 0.0f, 0.03f);
    const Vec3f round = sphere.positionAt(walkOnSurface(sphere, from, 4.0f * quarter * direction));
    EXPECT_NEAR(distance(round, start), 0.0f, 0.05f);
  }
}

TEST(SurfaceWalk, StopsAtTheBorder) {
  const ScalpMesh grid = makeGrid(5);
  for (int i = 0; i < 50; ++i) {
    const double turn = 0.1 + i * 0.13;
    const Vec3f step{static_cast<float>(3.0 * std::cos(turn)), 0,
                     static_cast<float>(3.0 * std::sin(turn))};
    SurfaceWalkEnd end;
    const StrandRoot from{i, 0.3f, 0.3f};
    const StrandRoot root = walkOnSurface(grid, from, step, &end);
    expectOnFace(grid, root);
    const Vec3f p = grid.positionAt(root);
    EXPECT_NEAR(std::min({p.x, p.z, 1.0f - p.x, 1.0f - p.z}), 0.0f, 1e-6f);
    EXPECT_LT(end.share, 1.0f);
    EXPECT_NEAR(distance(p, grid.positionAt(from) + end.share * step), 0.0f, 1e-5f);
    EXPECT_NEAR(distance(grid.positionAt(walkOnSurface(grid, root, step)), p), 0.0f, 1e-6f);
  }
}

TEST(SurfaceWalk, HostileWalksEnd) {
  constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
  const ScalpMesh sphere = makeSphere(6, 7);
  const StrandRoot from{3, 0.2f, 0.2f};
  EXPECT_EQ(walkOnSurface(sphere, {-1, 0, 0}, {1, 0, 0}), (StrandRoot{-1, 0, 0}));
  EXPECT_EQ(walkOnSurface(sphere, {999, 0, 0}, {1, 0, 0}), (StrandRoot{999, 0, 0}));
  EXPECT_EQ(walkOnSurface(sphere, from, {kNan, 0, 0}), from);
  EXPECT_EQ(walkOnSurface(sphere, from, {0, 0, 0}).face, from.face);
  for (const float bad : {kNan, std::numeric_limits<float>::infinity()}) {
    for (const StrandRoot root : {StrandRoot{3, bad, 0.2f}, StrandRoot{3, 0.2f, bad}}) {
      SurfaceWalkEnd end;
      const StrandRoot stayed = walkOnSurface(sphere, root, {1, 2, 3}, &end);
      EXPECT_EQ(std::memcmp(&stayed, &root, sizeof(root)), 0);
      EXPECT_EQ(end.share, 0.0f);
    }
  }
  for (const float size : {1e-30f, 1e3f, 1e10f, 3e38f}) {
    expectOnFace(sphere, walkOnSurface(sphere, from, {size, size, -size}));
  }
  // From vertex to vertex, along edges, and through the poles.
  for (std::int32_t face = 0; face < static_cast<std::int32_t>(sphere.triangleCount()); ++face) {
    const auto& t = sphere.triangles()[face];
    for (const StrandRoot corner : {StrandRoot{face, 0, 0}, {face, 1, 0}, {face, 0, 1}}) {
      const Vec3f step = sphere.points()[t[1]] - sphere.points()[t[0]];
      expectOnFace(sphere, walkOnSurface(sphere, corner, 5.0f * step));
      expectOnFace(sphere, walkOnSurface(sphere, corner, -5.0f * step));
    }
  }
  // Triangles without area, or of no numbers, are walls.
  const ScalpMesh odd({{0, 0, 0}, {1, 0, 0}, {0, 0, 1}, {0.5f, 0, 0.5f}, {kNan, 0, 0}},
                      {{0, 1, 2}, {1, 2, 3}, {0, 1, 4}});
  expectOnFace(odd, walkOnSurface(odd, {0, 0.3f, 0.3f}, {1, 0, 1}));
  EXPECT_EQ(walkOnSurface(odd, {0, 0.3f, 0.3f}, {0.1f, 0, -5}).face, 0);
  EXPECT_EQ(walkOnSurface(odd, {1, 0.3f, 0.3f}, {1, 0, 1}), (StrandRoot{1, 0.3f, 0.3f}));
  EXPECT_EQ(walkOnSurface(odd, {2, 0.3f, 0.3f}, {1, 0, 1}), (StrandRoot{2, 0.3f, 0.3f}));
}

TEST(SurfaceWalk, NeighborsAreMutualAndBordersAreTheRest) {
  const ScalpMesh sphere = makeSphere(7, 9), grid = makeGrid(6);
  EXPECT_TRUE(sphere.adjacency().border.empty());
  EXPECT_EQ(grid.adjacency().border.size(), 24u);
  EXPECT_EQ(&grid.withPoints(grid.points())->adjacency(), &grid.adjacency());
  for (const ScalpMesh* mesh : {&sphere, &grid}) {
    const auto& neighbors = mesh->adjacency().neighbors;
    std::size_t borders = 0;
    for (std::size_t face = 0; face < neighbors.size(); ++face) {
      for (const std::int32_t next : neighbors[face]) {
        borders += next < 0;
        if (next < 0) continue;
        EXPECT_EQ(
            std::count(neighbors[next].begin(), neighbors[next].end(), static_cast<int>(face)), 1);
      }
    }
    EXPECT_EQ(borders, mesh->adjacency().border.size());
  }
  const ScalpMesh fin(std::vector<Vec3f>(5), {{0, 1, 2}, {1, 0, 3}, {0, 1, 4}});
  EXPECT_EQ(fin.adjacency().neighbors[0][0], -1);
  EXPECT_EQ(fin.adjacency().border.size(), 6u);
}

TEST(SurfaceBorder, FindsTheNearestEdgeAndPointsInward) {
  const ScalpMesh grid = makeGrid(8);
  const SurfaceBorder border(grid);
  ASSERT_EQ(border.edges().size(), 32u);
  for (const SurfaceBorder::Edge& edge : border.edges()) {
    EXPECT_NEAR(length(edge.inward), 1.0f, 1e-6f);
    EXPECT_NEAR(dot(edge.inward, edge.to - edge.from), 0.0f, 1e-6f);
    EXPECT_GT(dot(edge.inward, Vec3f{0.5f, 0, 0.5f} - edge.from), 0.0f);
    EXPECT_EQ(edge.inward.y, 0.0f);
  }
  for (int i = 0; i < 100; ++i) {
    const Vec3f p{unitFloat(mix64(i)), 0.0f, unitFloat(mix64(i + 500))};
    const float expected = std::min({p.x, p.z, 1.0f - p.x, 1.0f - p.z});
    const SurfaceBorder::Hit hit = border.nearest(p);
    ASSERT_GE(hit.edge, 0);
    EXPECT_NEAR(hit.distance, expected, 1e-6f);
    EXPECT_NEAR(dot(border.edges()[hit.edge].inward, p - hit.position), expected, 1e-6f);
    EXPECT_EQ(border.nearest(p, 0.9f * expected - 1e-4f).edge, -1);
  }
  EXPECT_EQ(SurfaceBorder(makeSphere(5, 5)).nearest({}).edge, -1);
  EXPECT_EQ(SurfaceBorder(ScalpMesh()).nearest({}).edge, -1);
}

}  // namespace
}  // namespace kestrane
