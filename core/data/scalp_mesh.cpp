// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/data/scalp_mesh.h"

#include <atomic>
#include <mutex>
#include <stdexcept>

#include "core/base/hash.h"
#include "core/data/surface_walk.h"
#include "core/data/triangle_bvh.h"

namespace kestrane {

struct ScalpMesh::LazyAdjacency {
  std::once_flag once;
  std::atomic<bool> made = false;
  SurfaceTopology topology;
};

/// The tree's structure, which a mesh and all meshes deformed from it share. It is made from the
/// points of the first of them, whichever is asked first, so that answers never depend on the order
/// of the questions.
struct ScalpMesh::BvhFamily {
  std::once_flag once;
  PointsPtr points;  // until the structure is made
  detail::BoxTreeShape shape;
};

struct ScalpMesh::LazyBvh {
  std::once_flag once;
  std::atomic<bool> stale = true;
  std::shared_ptr<BvhFamily> family;
  detail::TriangleBvh tree;
};

namespace {

constexpr std::uint64_t kTrianglesSeed = 0x6D65736874726961u;
constexpr std::uint64_t kUvsSeed = 0x6D65736875767321u;
constexpr std::uint64_t kPolygonsSeed = 0x6D657368706F6C79u;
constexpr std::uint64_t kPointsSeed = 0x6D657368706F696Eu;
constexpr std::uint64_t kColorsSeed = 0x6D657368636F6C6Fu;
constexpr std::uint64_t kRestSeed = 0x6D65736872657374u;

std::uint64_t hashPoints(std::uint64_t seed, const std::vector<Vec3f>& points) {
  std::uint64_t hash = hashCombine(seed, points.size());
  for (const Vec3f p : points) hash = hashNumber(hashNumber(hashNumber(hash, p.x), p.y), p.z);
  return hash;
}

struct Vec3d {
  double x = 0.0, y = 0.0, z = 0.0;
};

/// The cross product of two edges: twice the triangle's area, along its normal. In double, where
/// the squares of the smallest and the largest scalps still have room.
Vec3d areaVector(Vec3f a, Vec3f b, Vec3f c) {
  const double ux = double(b.x) - a.x, uy = double(b.y) - a.y, uz = double(b.z) - a.z;
  const double vx = double(c.x) - a.x, vy = double(c.y) - a.y, vz = double(c.z) - a.z;
  return {uy * vz - uz * vy, uz * vx - ux * vz, ux * vy - uy * vx};
}

double lengthOf(const Vec3d& v) {
  return std::sqrt(v.x * v.x + v.y * v.y + v.z * v.z);
}

/// The unit vector, or +Y where there is no direction.
Vec3f unitOf(const Vec3d& v) {
  const double size = lengthOf(v);
  if (!(size > 0.0) || !std::isfinite(size)) return {0.0f, 1.0f, 0.0f};
  return {static_cast<float>(v.x / size), static_cast<float>(v.y / size),
          static_cast<float>(v.z / size)};
}

}  // namespace

ScalpMesh::ScalpMesh() : ScalpMesh({}, {}) {}

ScalpMesh::ScalpMesh(std::vector<Vec3f> points, std::vector<Triangle> triangles)
    : topology_(std::make_shared<Topology>()) {
  for (const Triangle& triangle : triangles) {
    for (const std::int32_t corner : triangle) {
      if (corner < 0 || static_cast<std::size_t>(corner) >= points.size()) {
        throw std::invalid_argument("ScalpMesh: triangle index out of range");
      }
    }
  }
  std::uint64_t hash = hashCombine(kTrianglesSeed, triangles.size());
  for (const Triangle& triangle : triangles) {
    for (const std::int32_t corner : triangle) {
      hash = hashCombine(hash, static_cast<std::uint32_t>(corner));
    }
  }
  topology_->trianglesHash = hash;
  topology_->triangles = std::move(triangles);
  topology_->adjacency = std::make_shared<LazyAdjacency>();
  setPose(std::move(points), {});
  bvh_ = std::make_shared<LazyBvh>();
  bvh_->family = std::make_shared<BvhFamily>();
  bvh_->family->points = points_;
}

void ScalpMesh::setPose(std::vector<Vec3f> points, std::vector<Vec3f> restPoints) {
  std::vector<Vec3d> sums(points.size());
  double doubleArea = 0.0;
  for (const Triangle& t : triangles()) {
    const Vec3d normal = areaVector(points[t[0]], points[t[1]], points[t[2]]);
    doubleArea += lengthOf(normal);
    for (const std::int32_t corner : t) {
      sums[corner].x += normal.x, sums[corner].y += normal.y, sums[corner].z += normal.z;
    }
  }
  std::vector<Vec3f> normals(points.size());
  for (std::size_t i = 0; i < normals.size(); ++i) normals[i] = unitOf(sums[i]);
  area_ = 0.5 * doubleArea;
  ownPointsHash_ = hashPoints(kPointsSeed, points);
  restHash_ = restPoints.empty() ? 0 : hashPoints(kRestSeed, restPoints);
  points_ = std::make_shared<const std::vector<Vec3f>>(std::move(points));
  normals_ = std::make_shared<const std::vector<Vec3f>>(std::move(normals));
  restPoints_ = std::make_shared<const std::vector<Vec3f>>(std::move(restPoints));
}

ScalpMesh::Topology& ScalpMesh::mutableTopology() {
  if (topology_.use_count() > 1) topology_ = std::make_shared<Topology>(*topology_);
  return *topology_;
}

void ScalpMesh::setUvs(std::vector<Vec2f> uvs) {
  if (!uvs.empty() && uvs.size() != 3 * triangleCount()) {
    throw std::invalid_argument("ScalpMesh: expected one UV per triangle corner");
  }
  std::uint64_t hash = hashCombine(kUvsSeed, uvs.size());
  for (const Vec2f uv : uvs) hash = hashNumber(hashNumber(hash, uv.x), uv.y);
  Topology& topology = mutableTopology();
  topology.uvsHash = uvs.empty() ? 0 : hash;
  topology.uvs = std::move(uvs);
}

void ScalpMesh::setColorSet(std::string name, std::vector<Vec4f> colors) {
  if (colors.size() != 3 * triangleCount()) {
    throw std::invalid_argument("ScalpMesh: expected one color per triangle corner");
  }
  std::uint64_t hash = hashCombine(kColorsSeed, colors.size());
  for (const Vec4f c : colors) {
    hash = hashNumber(hashNumber(hashNumber(hashNumber(hash, c.x), c.y), c.z), c.w);
  }
  Topology& topology = mutableTopology();
  topology.colorSetHashes[name] = hash;
  topology.colorSets[std::move(name)] = std::move(colors);
}

void ScalpMesh::removeColorSet(std::string_view name) {
  if (!colorSets().contains(name)) return;
  Topology& topology = mutableTopology();
  topology.colorSets.erase(topology.colorSets.find(name));
  topology.colorSetHashes.erase(topology.colorSetHashes.find(name));
}

std::vector<std::string> ScalpMesh::colorSetNames() const {
  std::vector<std::string> names;
  for (const auto& [name, colors] : colorSets()) names.push_back(name);
  return names;
}

void ScalpMesh::setPolygons(std::vector<std::int32_t> counts) {
  std::uint64_t sum = 0;
  std::uint64_t hash = hashCombine(kPolygonsSeed, counts.size());
  for (const std::int32_t count : counts) {
    if (count < 0) {
      throw std::invalid_argument("ScalpMesh: a polygon with a negative triangle count");
    }
    sum += static_cast<std::uint64_t>(count);
    hash = hashCombine(hash, static_cast<std::uint64_t>(count));
  }
  if (!counts.empty() && sum != triangleCount()) {
    throw std::invalid_argument("ScalpMesh: the polygons' triangles (" + std::to_string(sum) +
                                ") are not the mesh's (" + std::to_string(triangleCount()) + ")");
  }
  Topology& topology = mutableTopology();
  topology.polygonsHash = counts.empty() ? 0 : hash;
  topology.polygons = std::move(counts);
}

void ScalpMesh::setRestPoints(std::vector<Vec3f> points) {
  if (!points.empty() && points.size() != points_->size()) {
    throw std::invalid_argument("ScalpMesh: rest points must match the mesh's point count");
  }
  restHash_ = points.empty() ? 0 : hashPoints(kRestSeed, points);
  restPoints_ = std::make_shared<const std::vector<Vec3f>>(std::move(points));
}

std::shared_ptr<const ScalpMesh> ScalpMesh::withPoints(std::vector<Vec3f> points,
                                                       std::vector<Vec3f> restPoints) const {
  if (points.size() != points_->size()) {
    throw std::invalid_argument("ScalpMesh: new points must match the mesh's point count");
  }
  if (!restPoints.empty() && restPoints.size() != points.size()) {
    throw std::invalid_argument("ScalpMesh: rest points must match the mesh's point count");
  }
  auto mesh = std::make_shared<ScalpMesh>(*this);
  mesh->setPose(std::move(points), std::move(restPoints));
  mesh->bvh_ = std::make_shared<LazyBvh>();
  mesh->bvh_->family = bvh_->family;
  return mesh;
}

Vec3f ScalpMesh::normalAt(StrandRoot root) const {
  if (!hasFace(root.face)) return {};
  const Vec3f normal = normalize(mix(*normals_, root));
  if (normal != Vec3f{}) return normal;
  const Triangle& t = triangles()[static_cast<std::size_t>(root.face)];
  return unitOf(areaVector((*points_)[t[0]], (*points_)[t[1]], (*points_)[t[2]]));
}

Vec3f ScalpMesh::restPositionAt(StrandRoot root, Vec3f fallback) const {
  return !restPoints_->empty() && hasFace(root.face) ? mix(*restPoints_, root) : fallback;
}

Vec4f ScalpMesh::colorAt(std::string_view name, StrandRoot root) const {
  const auto found = colorSets().find(name);
  return found == colorSets().end() ? Vec4f{} : colorAt(found->second, root);
}

Vec4f ScalpMesh::colorAt(const std::vector<Vec4f>& colorSet, StrandRoot root) const {
  if (!hasFace(root.face)) return {};
  const Vec4f* c = colorSet.data() + 3 * static_cast<std::size_t>(root.face);
  const float w = 1.0f - root.u - root.v;
  return {w * c[0].x + root.u * c[1].x + root.v * c[2].x,
          w * c[0].y + root.u * c[1].y + root.v * c[2].y,
          w * c[0].z + root.u * c[1].z + root.v * c[2].z,
          w * c[0].w + root.u * c[1].w + root.v * c[2].w};
}

SurfaceFrame ScalpMesh::frameAt(StrandRoot root) const {
  if (!hasFace(root.face)) return {};
  SurfaceFrame frame;
  frame.normal = normalAt(root);
  const Triangle& t = triangles()[static_cast<std::size_t>(root.face)];
  const Vec3f origin = (*points_)[t[0]];
  for (const int corner : {1, 2}) {
    // A unit edge first: its projection then says by its length how far it can be trusted.
    const Vec3f edge = normalize((*points_)[t[corner]] - origin);
    const Vec3f projected = edge - dot(edge, frame.normal) * frame.normal;
    if (!(length(projected) > 1e-4f)) continue;
    frame.tangent = normalize(projected);
    break;
  }
  if (frame.tangent == Vec3f{}) frame.tangent = anyPerpendicular(frame.normal);
  frame.bitangent = cross(frame.normal, frame.tangent);
  return frame;
}

const detail::TriangleBvh& ScalpMesh::tree() const {
  LazyBvh& bvh = *bvh_;
  if (bvh.stale.load(std::memory_order_acquire)) {
    std::call_once(bvh.once, [&] {
      BvhFamily& family = *bvh.family;
      std::call_once(family.once, [&] {
        family.shape = detail::makeTriangleShape(*family.points, triangles());
        family.points.reset();
      });
      bvh.tree = detail::TriangleBvh(family.shape, *points_, triangles());
      bvh.stale.store(false, std::memory_order_release);
    });
  }
  return bvh.tree;
}

SurfaceHit ScalpMesh::closestPoint(Vec3f position, float maxDistance) const {
  return tree().closestPoint(position, maxDistance);
}

SurfaceHit ScalpMesh::raycast(Vec3f origin, Vec3f direction, float maxDistance) const {
  return tree().raycast(origin, direction, maxDistance);
}

const SurfaceTopology& ScalpMesh::adjacency() const {
  LazyAdjacency& lazy = *topology_->adjacency;
  if (!lazy.made.load(std::memory_order_acquire)) {
    std::call_once(lazy.once, [&] {
      lazy.topology = makeSurfaceTopology(triangles(), points_->size());
      lazy.made.store(true, std::memory_order_release);
    });
  }
  return lazy.topology;
}

double ScalpMesh::triangleArea(std::size_t face) const {
  if (face >= triangleCount()) return 0.0;
  const Triangle& t = triangles()[face];
  return 0.5 * lengthOf(areaVector((*points_)[t[0]], (*points_)[t[1]], (*points_)[t[2]]));
}

std::uint64_t ScalpMesh::topologyHash() const {
  const Topology& t = *topology_;
  return hashCombine(hashCombine(t.trianglesHash, t.polygonsHash), t.uvsHash);
}

std::uint64_t ScalpMesh::pointsHash() const {
  return hashCombine(topologyHash(), ownPointsHash_);
}

std::uint64_t ScalpMesh::colorsHash() const {
  std::uint64_t hash = hashCombine(kColorsSeed, topology_->colorSetHashes.size());
  for (const auto& [name, colors] : topology_->colorSetHashes) {
    hash = hashCombine(hashString(hash, name), colors);
  }
  return hash;
}

std::uint64_t ScalpMesh::contentHash() const {
  const std::uint64_t own = hashCombine(pointsHash(), colorsHash());
  if (restPoints_->empty()) return own;
  return hashCombine(hashCombine(hashCombine(kRestSeed, topologyHash()), own), restHash_);
}

}  // namespace kestrane
