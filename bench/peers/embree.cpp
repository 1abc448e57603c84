// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

// The closest point by Embree's point query, which walks its tree of boxes and asks a function of
// ours about every triangle that may be nearer than the nearest so far.

#include <benchmark/benchmark.h>
#include <embree3/rtcore.h>

#include <cmath>
#include <limits>

#include "bench/support/bumpy_head.h"

namespace kestrane {
namespace {

struct Nearest {
  const ScalpMesh* mesh;
  StrandRoot root;
  Vec3f position;
  float distanceSquared = std::numeric_limits<float>::infinity();
};

/// The point of a triangle nearest to p, as weights of its second and third corner, by the regions
/// of Ericson (2005), section 5.1.5.
Vec2f nearestOnTriangle(Vec3f p, Vec3f a, Vec3f b, Vec3f c) {
  const Vec3f ab = b - a, ac = c - a, ap = p - a;
  const float d1 = dot(ab, ap), d2 = dot(ac, ap);
  if (d1 <= 0.0f && d2 <= 0.0f) return {0.0f, 0.0f};
  const Vec3f bp = p - b;
  const float d3 = dot(ab, bp), d4 = dot(ac, bp);
  if (d3 >= 0.0f && d4 <= d3) return {1.0f, 0.0f};
  const float vc = d1 * d4 - d3 * d2;
  if (vc <= 0.0f && d1 >= 0.0f && d3 <= 0.0f) return {d1 / (d1 - d3), 0.0f};
  const Vec3f cp = p - c;
  const float d5 = dot(ab, cp), d6 = dot(ac, cp);
  if (d6 >= 0.0f && d5 <= d6) return {0.0f, 1.0f};
  const float vb = d5 * d2 - d1 * d6;
  if (vb <= 0.0f && d2 >= 0.0f && d6 <= 0.0f) return {0.0f, d2 / (d2 - d6)};
  const float va = d3 * d6 - d5 * d4;
  if (va <= 0.0f && d4 - d3 >= 0.0f && d5 - d6 >= 0.0f) {
    const float w = (d4 - d3) / ((d4 - d3) + (d5 - d6));
    return {1.0f - w, w};
  }
  const float scale = 1.0f / (va + vb + vc);
  return {vb * scale, vc * scale};
}

bool visitTriangle(RTCPointQueryFunctionArguments* query) {
  auto& nearest = *static_cast<Nearest*>(query->userPtr);
  const std::vector<Vec3f>& points = nearest.mesh->points();
  const ScalpMesh::Triangle& triangle = nearest.mesh->triangles()[query->primID];
  const Vec3f a = points[static_cast<std::size_t>(triangle[0])];
  const Vec3f b = points[static_cast<std::size_t>(triangle[1])];
  const Vec3f c = points[static_cast<std::size_t>(triangle[2])];
  const Vec3f from{query->query->x, query->query->y, query->query->z};
  const Vec2f at = nearestOnTriangle(from, a, b, c);
  const Vec3f position = a + (b - a) * at.x + (c - a) * at.y;
  const float squared = lengthSquared(from - position);
  if (squared >= nearest.distanceSquared) return false;
  nearest.distanceSquared = squared;
  nearest.position = position;
  nearest.root = {static_cast<std::int32_t>(query->primID), at.x, at.y};
  query->query->radius = std::sqrt(squared);
  return true;
}

/// A mesh as Embree's scene; reads the mesh's own arrays, as a host that has them would.
class EmbreeScene {
 public:
  explicit EmbreeScene(const ScalpMesh& mesh) : mesh_(mesh) {
    RTCGeometry geometry = rtcNewGeometry(device_, RTC_GEOMETRY_TYPE_TRIANGLE);
    // Embree reads four floats a vertex at once, past the end of three that are the last.
    auto* points = static_cast<Vec3f*>(rtcSetNewGeometryBuffer(geometry, RTC_BUFFER_TYPE_VERTEX, 0,
                                                               RTC_FORMAT_FLOAT3, sizeof(Vec3f),
                                                               mesh.points().size()));
    std::copy(mesh.points().begin(), mesh.points().end(), points);
    auto* triangles = static_cast<ScalpMesh::Triangle*>(
        rtcSetNewGeometryBuffer(geometry, RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT3,
                                sizeof(ScalpMesh::Triangle), mesh.triangleCount()));
    std::copy(mesh.triangles().begin(), mesh.triangles().end(), triangles);
    rtcSetGeometryBuildQuality(geometry, RTC_BUILD_QUALITY_HIGH);
    rtcSetSceneBuildQuality(scene_, RTC_BUILD_QUALITY_HIGH);
    rtcCommitGeometry(geometry);
    rtcAttachGeometry(scene_, geometry);
    rtcReleaseGeometry(geometry);
    rtcCommitScene(scene_);
  }
  ~EmbreeScene() {
    rtcReleaseScene(scene_);
    rtcReleaseDevice(device_);
  }
  EmbreeScene(const EmbreeScene&) = delete;
  EmbreeScene& operator=(const EmbreeScene&) = delete;

  SurfaceHit closestPoint(Vec3f position) const {
    RTCPointQueryContext context;
    rtcInitPointQueryContext(&context);
    RTCPointQuery query{position.x, position.y, position.z, 0.0f,
                        std::numeric_limits<float>::infinity()};
    Nearest nearest{&mesh_, {}, {}};
    rtcPointQuery(scene_, &query, &context, visitTriangle, &nearest);
    return {nearest.root, nearest.position, query.radius};
  }

 private:
  const ScalpMesh& mesh_;
  RTCDevice device_ = rtcNewDevice(nullptr);
  RTCScene scene_ = rtcNewScene(device_);
};

void closestPointByEmbree(benchmark::State& state) {
  const HeadQueries head(state.range(0), state.range(1), state.range(2) != 0);
  const EmbreeScene scene(head.mesh);
  double sum = 0.0;
  for (auto _ : state) {
    for (const Vec3f& query : head.points) sum += scene.closestPoint(query).distance;
  }
  benchmark::DoNotOptimize(sum);
  for (const Vec3f& query : head.points) {
    const float apart = scene.closestPoint(query).distance - head.mesh.closestPoint(query).distance;
    if (!(std::abs(apart) <= 1e-4f)) {
      state.SkipWithError("Embree finds other distances");
      return;
    }
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * HeadQueries::count));
}
BENCHMARK(closestPointByEmbree)->Apply(headQueryArguments);

}  // namespace
}  // namespace kestrane
