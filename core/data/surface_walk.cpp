// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/data/surface_walk.h"

#include "core/data/polygon_edges.h"
#include "core/data/triangle_bvh.h"

namespace kestrane {

namespace {

/// No sensible step crosses this many edges; it ends walks that rounding sends round a vertex.
constexpr int kMostEdges = 65536;

struct Vec3d {
  double x = 0.0, y = 0.0, z = 0.0;

  Vec3d() = default;
  Vec3d(double px, double py, double pz) : x(px), y(py), z(pz) {}
  explicit Vec3d(Vec3f a) : x(a.x), y(a.y), z(a.z) {}
  Vec3d operator-(const Vec3d& b) const { return {x - b.x, y - b.y, z - b.z}; }
  Vec3d operator+(const Vec3d& b) const { return {x + b.x, y + b.y, z + b.z}; }
  Vec3d operator*(double s) const { return {x * s, y * s, z * s}; }
  double dot(const Vec3d& b) const { return x * b.x + y * b.y + z * b.z; }
};

/// A triangle's plane: its first two edges, and what turns a direction into changes of weights.
struct Plane {
  Vec3d first, second;
  double aa = 0.0, ab = 0.0, bb = 0.0, area = 0.0;

  Plane(const ScalpMesh& mesh, std::int32_t face) {
    const ScalpMesh::Triangle& t = mesh.triangles()[static_cast<std::size_t>(face)];
    const Vec3d origin(mesh.points()[t[0]]);
    first = Vec3d(mesh.points()[t[1]]) - origin;
    second = Vec3d(mesh.points()[t[2]]) - origin;
    aa = first.dot(first), ab = first.dot(second), bb = second.dot(second);
    area = aa * bb - ab * ab;
  }

  /// Whether the triangle has a plane at all, as far as float positions can tell.
  bool valid() const { return area > 1e-14 * aa * bb; }

  /// The changes of the three corners' weights along the direction's part in the plane.
  void weightsAlong(const Vec3d& direction, double change[3]) const {
    const double a = direction.dot(first), b = direction.dot(second);
    change[1] = (bb * a - ab * b) / area;
    change[2] = (aa * b - ab * a) / area;
    change[0] = -change[1] - change[2];
  }

  Vec3d edge(int k) const { return k == 0 ? first : k == 1 ? second - first : second * -1.0; }
  /// The corner opposite to edge k, from the edge's start.
  Vec3d opposite(int k) const { return k == 0 ? second : k == 1 ? first * -1.0 : first - second; }
  /// From the edge's line to the opposite corner, perpendicular to the edge.
  Vec3d inward(int k) const {
    const Vec3d e = edge(k), o = opposite(k);
    return o - e * (o.dot(e) / e.dot(e));
  }
};

StrandRoot rootOf(std::int32_t face, const double weights[3]) {
  return {face, static_cast<float>(weights[1]), static_cast<float>(weights[2])};
}

}  // namespace

SurfaceTopology makeSurfaceTopology(std::span<const ScalpMesh::Triangle> triangles,
                                    std::size_t pointCount) {
  std::vector<std::uint32_t> starts(triangles.size() + 1), corners(3 * triangles.size());
  for (std::size_t i = 0; i < starts.size(); ++i) starts[i] = static_cast<std::uint32_t>(3 * i);
  for (std::size_t i = 0; i < corners.size(); ++i) {
    corners[i] = static_cast<std::uint32_t>(triangles[i / 3][i % 3]);
  }
  const detail::PolygonEdges edges = detail::findPolygonEdges(starts, corners, pointCount);

  SurfaceTopology topology;
  topology.neighbors.assign(triangles.size(), {-1, -1, -1});
  for (std::size_t edge = 0; edge < edges.ends.size(); ++edge) {
    const auto users = edges.cornersOf(edge);
    const auto faceOf = [&](std::size_t k) { return static_cast<std::int32_t>(users[k] / 3); };
    if (users.size() == 1) {
      topology.border.push_back({faceOf(0), static_cast<std::int32_t>(users[0] % 3)});
    } else if (users.size() == 2 && faceOf(0) != faceOf(1)) {
      topology.neighbors[faceOf(0)][users[0] % 3] = faceOf(1);
      topology.neighbors[faceOf(1)][users[1] % 3] = faceOf(0);
    }
  }
  return topology;
}

StrandRoot walkOnSurface(const ScalpMesh& mesh, StrandRoot from, Vec3f step, SurfaceWalkEnd* end) {
  if (end != nullptr) *end = {step, 0.0f};
  if (!mesh.hasFace(from.face) || !isFinite(step)) return from;
  if (!std::isfinite(from.u) || !std::isfinite(from.v)) return from;
  Plane plane(mesh, from.face);
  if (!plane.valid()) return from;

  const auto& neighbors = mesh.adjacency().neighbors;
  std::int32_t face = from.face;
  double weights[3] = {1.0 - from.u - from.v, from.u, from.v};
  Vec3d direction(step);
  double left = 1.0;
  int entered = -1;  // the edge that the walk came in by, which it does not leave by
  for (int crossed = 0; crossed < kMostEdges; ++crossed) {
    double change[3];
    plane.weightsAlong(direction, change);
    // In the plane alone from here on, also where the step did not begin in it.
    direction = plane.first * change[1] + plane.second * change[2];

    int exit = -1;
    double share = left;
    for (int k = 0; k < 3; ++k) {
      const int opposite = (k + 2) % 3;
      if (k == entered || change[opposite] >= 0.0) continue;
      const double reach = std::max(0.0, weights[opposite] / -change[opposite]);
      if (reach < share) share = reach, exit = k;
    }
    for (int k = 0; k < 3; ++k) weights[k] += share * change[k];
    left -= share;
    if (exit < 0) break;

    const int opposite = (exit + 2) % 3;
    weights[opposite] = 0.0;
    const int start = exit, finish = (exit + 1) % 3;
    const double along =
        std::clamp(weights[finish] / std::max(weights[start] + weights[finish], 1e-300), 0.0, 1.0);
    weights[start] = 1.0 - along;
    weights[finish] = along;

    const std::int32_t next = neighbors[static_cast<std::size_t>(face)][exit];
    if (next < 0) break;
    const Plane nextPlane(mesh, next);
    if (!nextPlane.valid()) break;
    // Winding may differ between the two: the shared edge is found by its vertices.
    const ScalpMesh::Triangle& t = mesh.triangles()[static_cast<std::size_t>(face)];
    const ScalpMesh::Triangle& n = mesh.triangles()[static_cast<std::size_t>(next)];
    double nextWeights[3] = {};
    for (int k = 0; k < 3; ++k) {
      if (n[k] == t[start]) nextWeights[k] = weights[start];
      if (n[k] == t[finish]) nextWeights[k] = weights[finish];
      if (neighbors[static_cast<std::size_t>(next)][k] == face &&
          (n[k] == t[start] || n[k] == t[finish]) &&
          (n[(k + 1) % 3] == t[start] || n[(k + 1) % 3] == t[finish])) {
        entered = k;
      }
    }
    // The part along the edge stays; the part across it turns about the edge into the next plane.
    const Vec3d edge = plane.edge(exit), back = plane.inward(exit);
    const Vec3d inward = nextPlane.inward(entered);
    const double across = -direction.dot(back) / std::sqrt(back.dot(back));
    direction = edge * (direction.dot(edge) / edge.dot(edge)) +
                inward * (across / std::sqrt(inward.dot(inward)));
    face = next;
    plane = nextPlane;
    std::copy(nextWeights, nextWeights + 3, weights);
  }
  if (end != nullptr) {
    end->step = {static_cast<float>(direction.x), static_cast<float>(direction.y),
                 static_cast<float>(direction.z)};
    end->share = static_cast<float>(1.0 - left);
  }
  return rootOf(face, weights);
}

SurfaceBorder::SurfaceBorder(const ScalpMesh& mesh) {
  const auto& border = mesh.adjacency().border;
  std::vector<Vec3f> points;
  std::vector<ScalpMesh::Triangle> segments;
  for (const auto& [face, k] : border) {
    const ScalpMesh::Triangle& t = mesh.triangles()[static_cast<std::size_t>(face)];
    const Vec3f from = mesh.points()[t[k]], to = mesh.points()[t[(k + 1) % 3]];
    Vec3f inward;
    const Plane plane(mesh, face);
    if (plane.valid()) {
      const Vec3d d = plane.inward(k);
      const double size = std::sqrt(d.dot(d));
      inward = {static_cast<float>(d.x / size), static_cast<float>(d.y / size),
                static_cast<float>(d.z / size)};
    }
    edges_.push_back({face, k, from, to, inward});
    const auto first = static_cast<std::int32_t>(points.size());
    points.insert(points.end(), {from, to});
    segments.push_back({first, first + 1, first + 1});
  }
  // A segment is a triangle without area, which the tree takes as what it is.
  const detail::BoxTreeShape shape = detail::makeTriangleShape(points, segments);
  tree_ = std::make_shared<const detail::TriangleBvh>(shape, points, segments);
}

SurfaceBorder::Hit SurfaceBorder::nearest(Vec3f position, float maxDistance) const {
  const SurfaceHit hit = tree_->closestPoint(position, maxDistance);
  return {hit.root.face, hit.distance, hit.position};
}

}  // namespace kestrane
