// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/data/scalp_mesh.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <limits>

#include "core/base/parallel.h"
#include "tests/support/test_meshes.h"

namespace kestrane {
namespace {

using test::makeGrid;
using test::makeQuad;
using test::makeSoup;
using test::makeSphere;

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();

struct Draws {
  std::uint64_t state;
  float next() { return unitFloat(state = mix64(state)); }
  Vec3f point(float low, float high) {
    const float x = next(), y = next(), z = next();
    return Vec3f{low, low, low} + (high - low) * Vec3f{x, y, z};
  }
};

using Double3 = std::array<double, 3>;
Double3 minus(const Double3& a, const Double3& b) {
  return {a[0] - b[0], a[1] - b[1], a[2] - b[2]};
}
Double3 along(const Double3& a, const Double3& d, double t) {
  return {a[0] + t * d[0], a[1] + t * d[1], a[2] + t * d[2]};
}
double dot(const Double3& a, const Double3& b) {
  return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}
Double3 cross(const Double3& a, const Double3& b) {
  return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}
Double3 wide(Vec3f a) {
  return {a.x, a.y, a.z};
}

double segmentDistance(const Double3& p, const Double3& a, const Double3& b) {
  const Double3 ab = minus(b, a);
  const double square = dot(ab, ab);
  const double t = square > 0.0 ? std::clamp(dot(minus(p, a), ab) / square, 0.0, 1.0) : 0.0;
  const Double3 off = minus(p, along(a, ab, t));
  return std::sqrt(dot(off, off));
}

/// The distance to a triangle, from its three sides and, over its inside, its plane.
double triangleDistance(const Double3& p, const Double3& a, const Double3& b, const Double3& c) {
  const double sides =
      std::min({segmentDistance(p, a, b), segmentDistance(p, b, c), segmentDistance(p, c, a)});
  const Double3 normal = cross(minus(b, a), minus(c, a));
  const double size = std::sqrt(dot(normal, normal));
  if (size < 1e-20) return sides;
  const bool inside = dot(cross(minus(b, a), minus(p, a)), normal) >= 0.0 &&
                      dot(cross(minus(c, b), minus(p, b)), normal) >= 0.0 &&
                      dot(cross(minus(a, c), minus(p, c)), normal) >= 0.0;
  return inside ? std::abs(dot(minus(p, a), normal)) / size : sides;
}

bool isFiniteTriangle(const ScalpMesh& mesh, const ScalpMesh::Triangle& t) {
  return isFinite(mesh.points()[t[0]]) && isFinite(mesh.points()[t[1]]) &&
         isFinite(mesh.points()[t[2]]);
}

double exhaustiveDistance(const ScalpMesh& mesh, Vec3f p) {
  double best = std::numeric_limits<double>::infinity();
  for (const auto& t : mesh.triangles()) {
    if (!isFiniteTriangle(mesh, t)) continue;
    best = std::min(best, triangleDistance(wide(p), wide(mesh.points()[t[0]]),
                                           wide(mesh.points()[t[1]]), wide(mesh.points()[t[2]])));
  }
  return best;
}

void expectTrueHit(const ScalpMesh& mesh, const SurfaceHit& hit) {
  ASSERT_TRUE(mesh.hasFace(hit.root.face));
  EXPECT_GE(hit.root.u, 0.0f);
  EXPECT_GE(hit.root.v, 0.0f);
  EXPECT_LE(hit.root.u + hit.root.v, 1.0f + 1e-6f);
  EXPECT_EQ(hit.position, mesh.positionAt(hit.root));
}

ScalpMesh scaled(const ScalpMesh& mesh, float scale, Vec3f offset) {
  std::vector<Vec3f> points = mesh.points();
  for (Vec3f& point : points) point = scale * point + offset;
  return *mesh.withPoints(std::move(points));
}

/// Triangles that are points, segments or slivers, between proper ones.
ScalpMesh makeDegenerate() {
  const ScalpMesh soup = makeSoup(60, 0.5f, 5);
  std::vector<Vec3f> points = soup.points();
  for (std::size_t i = 0; i + 2 < points.size(); i += 3) {
    if (i % 4 == 0) points[i + 1] = points[i + 2] = points[i];
    if (i % 4 == 1) points[i + 2] = points[i + 1];
    if (i % 4 == 2) points[i + 2] = lerp(points[i], points[i + 1], 0.3f);
  }
  return ScalpMesh(std::move(points), soup.triangles());
}

ScalpMesh makeDoubled() {
  const ScalpMesh sphere = makeSphere(6, 9);
  std::vector<ScalpMesh::Triangle> triangles = sphere.triangles();
  triangles.insert(triangles.end(), sphere.triangles().begin(), sphere.triangles().end());
  return ScalpMesh(sphere.points(), std::move(triangles));
}

/// Every third triangle has a corner that is no number or is infinite.
ScalpMesh makeSpoilt() {
  const ScalpMesh soup = makeSoup(90, 0.5f, 8);
  std::vector<Vec3f> points = soup.points();
  for (std::size_t i = 0; i < points.size(); i += 9) points[i].x = kNan;
  for (std::size_t i = 4; i < points.size(); i += 18) points[i].z = -kInfinity;
  return ScalpMesh(std::move(points), soup.triangles());
}

struct MeshCase {
  const char* name;
  std::function<ScalpMesh()> make;
  float size = 1.0f;
  Vec3f center{};
};

const std::vector<MeshCase>& meshCases() {
  static const std::vector<MeshCase> cases{
      {"one", [] { return makeSoup(1, 1.0f, 1); }},
      {"quad", makeQuad},
      {"four", [] { return makeSoup(4, 1.0f, 1); }},
      {"five", [] { return makeSoup(5, 1.0f, 1); }},
      {"soup", [] { return makeSoup(333, 0.3f, 2); }},
      {"grid", [] { return makeGrid(9); }},
      {"sphere", [] { return makeSphere(12, 17); }},
      {"degenerate", makeDegenerate},
      {"doubled", makeDoubled},
      {"spoilt", makeSpoilt},
      {"huge", [] { return scaled(makeSphere(9, 9), 1e8f, {}); }, 1e8f},
      {"tiny", [] { return scaled(makeSphere(9, 9), 1e-8f, {}); }, 1e-8f},
      {"far",
       [] {
         return scaled(makeSphere(9, 9), 1.0f, {5000, 0, 0});
       },
       1.0f,
       {5000, 0, 0}},
      {"deformed",
       [] {
         const ScalpMesh sphere = makeSphere(12, 17);
         sphere.closestPoint({});
         std::vector<Vec3f> points = sphere.points();
         for (Vec3f& p : points) p = {0.3f * p.x, p.y + std::sin(5.0f * p.x), 2.0f * p.z};
         return *sphere.withPoints(std::move(points));
       }},
  };
  return cases;
}

TEST(ScalpMesh, ClosestPointIsTheExhaustiveOne) {
  for (const MeshCase& test : meshCases()) {
    SCOPED_TRACE(test.name);
    const ScalpMesh mesh = test.make();
    Draws draws{3};
    const float rounding = 4e-6f * std::max(test.size, length(test.center));
    for (int i = 0; i < 200; ++i) {
      const float reach = i % 10 == 0 ? 20.0f : 1.5f;
      Vec3f p = test.center + test.size * draws.point(-reach, reach);
      if (i % 7 == 0) p = mesh.positionAt({i % static_cast<int>(mesh.triangleCount()), 0.3f, 0.3f});
      if (!isFinite(p)) continue;
      const double expected = exhaustiveDistance(mesh, p);
      const SurfaceHit hit = mesh.closestPoint(p);
      expectTrueHit(mesh, hit);
      EXPECT_NEAR(hit.distance, expected, rounding + 2e-6 * expected);
      EXPECT_NEAR(hit.distance, distance(hit.position, p), rounding);

      const auto exact = static_cast<float>(expected);
      const float slack = 2e-5f * (test.size + length(p));
      if (exact < slack) continue;
      EXPECT_GE(mesh.closestPoint(p, exact).root.face, 0);
      EXPECT_EQ(mesh.closestPoint(p, exact - slack).root.face, -1);
    }
  }
}

TEST(ScalpMesh, ClosestPointAtNoDistanceFindsOnlyTheSurface) {
  const ScalpMesh mesh = makeGrid(4);
  EXPECT_GE(mesh.closestPoint({0.3f, 0.0f, 0.7f}, 0.0f).root.face, 0);
  EXPECT_EQ(mesh.closestPoint({0.3f, 0.001f, 0.7f}, 0.0f).root.face, -1);
}

TEST(ScalpMesh, RaycastIsTheExhaustiveOne) {
  for (const MeshCase& test : meshCases()) {
    SCOPED_TRACE(test.name);
    const ScalpMesh mesh = test.make();
    Draws draws{4};
    int hits = 0;
    for (int i = 0; i < 300; ++i) {
      const Vec3f origin = test.center + test.size * draws.point(-1.5f, 1.5f);
      Vec3f direction = draws.point(-1.0f, 1.0f);
      if (i % 5 == 0) direction = Vec3f{};
      if (i % 5 == 0) direction[i % 3] = i % 2 == 0 ? 3.0f : -0.2f;
      const Double3 o = wide(origin), d = wide(normalize(direction));
      double expected = std::numeric_limits<double>::infinity();
      bool clear = true;  // whether the ray passes no side so closely that rounding decides
      for (const auto& t : mesh.triangles()) {
        if (!isFiniteTriangle(mesh, t)) continue;
        const Double3 a = minus(wide(mesh.points()[t[0]]), o),
                      b = minus(wide(mesh.points()[t[1]]), o),
                      c = minus(wide(mesh.points()[t[2]]), o);
        const double u = dot(d, cross(c, b)), v = dot(d, cross(a, c)), w = dot(d, cross(b, a));
        const double sum = u + v + w, square = test.size * test.size;
        if (std::abs(sum) < 1e-7 * square) continue;  // no more than a segment
        const double lowest = std::min({u / sum, v / sum, w / sum});
        clear = clear && std::abs(sum) > 1e-5 * square && std::abs(lowest) > 1e-3;
        if (lowest < 0.0) continue;
        const double distance = (u * dot(a, d) + v * dot(b, d) + w * dot(c, d)) / sum;
        if (distance >= 0.0) expected = std::min(expected, distance);
      }
      if (!clear) continue;
      const SurfaceHit hit = mesh.raycast(origin, direction);
      EXPECT_EQ(hit.root.face >= 0, std::isfinite(expected));
      if (hit.root.face < 0 || !std::isfinite(expected)) continue;
      ++hits;
      expectTrueHit(mesh, hit);
      EXPECT_NEAR(hit.distance, expected, 1e-4 * std::max(test.size, 0.01f * length(test.center)));
      EXPECT_EQ(mesh.raycast(origin, direction, hit.distance).root.face, hit.root.face);
      EXPECT_NE(mesh.raycast(origin, direction, 0.99f * hit.distance).root, hit.root);
    }
    EXPECT_GT(hits, mesh.triangleCount() > 5 ? 5 : -1);
  }
}

TEST(ScalpMesh, NoRayLeavesAClosedSurface) {
  const ScalpMesh sphere = makeSphere(16, 24);
  const auto expectHit = [&](Vec3f direction) {
    EXPECT_GE(sphere.raycast({}, direction).root.face, 0)
        << direction.x << " " << direction.y << " " << direction.z;
  };
  for (const auto& t : sphere.triangles()) {
    const Vec3f a = sphere.points()[t[0]], b = sphere.points()[t[1]];
    expectHit(a);
    expectHit(0.5f * (a + b));
    expectHit(1e-25f * (0.7f * a + 0.3f * b));
    expectHit(1e30f * (0.1f * a + 0.9f * b));
  }
}

TEST(ScalpMesh, HostileQueriesFindNothing) {
  const ScalpMesh mesh = makeSphere(8, 8), empty,
                  spoilt({{kNan, 0, 0}, {0, 0, 0}, {1, 0, 0}}, {{0, 1, 2}});
  for (const float bad : {kNan, kInfinity, -kInfinity}) {
    EXPECT_EQ(mesh.closestPoint({bad, 0, 0}).root.face, -1);
    EXPECT_EQ(mesh.raycast({0, bad, 0}, {1, 0, 0}).root.face, -1);
    EXPECT_EQ(mesh.raycast({}, {1, bad, 0}).root.face, -1);
  }
  EXPECT_EQ(mesh.closestPoint({}, kNan).root.face, -1);
  EXPECT_EQ(mesh.closestPoint({1, 0, 0}, -1.0f).root.face, -1);
  EXPECT_GE(mesh.closestPoint({1, 0, 0}, kInfinity).root.face, 0);
  EXPECT_EQ(mesh.raycast({}, {}).root.face, -1);
  EXPECT_EQ(mesh.raycast({}, {1, 0, 0}, -1.0f).root.face, -1);
  for (const ScalpMesh* nothing : {&empty, &spoilt}) {
    EXPECT_EQ(nothing->closestPoint({}).root.face, -1);
    EXPECT_EQ(nothing->raycast({}, {1, 0, 0}).root.face, -1);
  }
}

std::vector<SurfaceHit> manyHits(const ScalpMesh& mesh) {
  std::vector<SurfaceHit> hits(4000);
  parallelRange(0, hits.size(), 16, [&](std::size_t begin, std::size_t end) {
    for (std::size_t i = begin; i < end; ++i) {
      Draws draws{i};
      hits[i] = mesh.closestPoint(draws.point(-2.0f, 2.0f));
    }
  });
  return hits;
}

void expectSameBytes(const std::vector<SurfaceHit>& a, const std::vector<SurfaceHit>& b) {
  EXPECT_EQ(std::memcmp(a.data(), b.data(), a.size() * sizeof(SurfaceHit)), 0);
}

TEST(ScalpMesh, AnswersAreTheSameOnAllThreads) {
  // Large enough for the tree's parts to be built side by side, and full of ties.
  const ScalpMesh base = makeSphere(130, 140);
  setThreadCount(1);
  const auto single = manyHits(ScalpMesh(base.points(), base.triangles()));
  setThreadCount(0);
  expectSameBytes(single, manyHits(ScalpMesh(base.points(), base.triangles())));
}

TEST(ScalpMesh, DeformedAnswersDoNotDependOnWhoIsAskedFirst) {
  std::vector<Vec3f> moved = makeSphere(20, 20).points();
  for (Vec3f& p : moved) p = {p.x, 0.5f * p.y, p.z};
  const ScalpMesh asked = makeSphere(20, 20), unasked = makeSphere(20, 20);
  manyHits(asked);
  const auto hits = manyHits(*asked.withPoints(moved));
  expectSameBytes(hits, manyHits(*unasked.withPoints(moved)));
  const auto back = asked.withPoints(moved)->withPoints(asked.points());
  expectSameBytes(manyHits(asked), manyHits(*back));

  const ScalpMesh fresh(moved, asked.triangles());
  const auto freshHits = manyHits(fresh);
  for (std::size_t i = 0; i < hits.size(); ++i) {
    EXPECT_NEAR(hits[i].distance, freshHits[i].distance, 1e-6f);
  }
}

TEST(ScalpMesh, HashesSayWhatChanged) {
  const ScalpMesh base = makeGrid(3);
  enum Change { kTopology = 1, kPoints = 2, kContent = 4 };
  struct Case {
    const char* name;
    int changes;
    std::function<void(ScalpMesh&)> edit;
  };
  const std::vector<Case> cases{
      {"nothing", 0, [](ScalpMesh& m) { m.setUvs(m.uvs()); }},
      {"uvs", kTopology | kPoints | kContent, [](ScalpMesh& m) { m.setUvs({}); }},
      {"polygons", kTopology | kPoints | kContent, [](ScalpMesh& m) { m.setPolygons({18}); }},
      {"points", kPoints | kContent,
       [](ScalpMesh& m) { m = *m.withPoints(std::vector<Vec3f>(m.points().size())); }},
      {"colors", kContent,
       [](ScalpMesh& m) { m.setColorSet("a", std::vector<Vec4f>(3 * m.triangleCount())); }},
      {"color set gone", 0,
       [](ScalpMesh& m) {
         m.setColorSet("a", std::vector<Vec4f>(3 * m.triangleCount()));
         m.removeColorSet("a");
       }},
      {"rest", kContent, [](ScalpMesh& m) { m.setRestPoints(m.points()); }},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.name);
    ScalpMesh mesh = base;
    test.edit(mesh);
    EXPECT_EQ(mesh.topologyHash() != base.topologyHash(), (test.changes & kTopology) != 0);
    EXPECT_EQ(mesh.pointsHash() != base.pointsHash(), (test.changes & kPoints) != 0);
    EXPECT_EQ(mesh.contentHash() != base.contentHash(), (test.changes & kContent) != 0);
    EXPECT_EQ(base.contentHash(), makeGrid(3).contentHash());
  }
}

TEST(ScalpMesh, RefusesWhatDoesNotFit) {
  const std::vector<Vec3f> points(3);
  struct Case {
    const char* message;
    std::function<void(ScalpMesh&)> call;
  };
  const std::vector<Case> cases{
      {"ScalpMesh: triangle index out of range",
       [&](ScalpMesh&) {
         ScalpMesh(points, {{0, 1, 3}});
       }},
      {"ScalpMesh: triangle index out of range",
       [&](ScalpMesh&) {
         ScalpMesh(points, {{0, -1, 2}});
       }},
      {"ScalpMesh: expected one UV per triangle corner",
       [](ScalpMesh& m) {
         m.setUvs({{0, 0}});
       }},
      {"ScalpMesh: expected one color per triangle corner",
       [](ScalpMesh& m) { m.setColorSet("a", {}); }},
      {"ScalpMesh: a polygon with a negative triangle count",
       [](ScalpMesh& m) {
         m.setPolygons({3, -1});
       }},
      {"ScalpMesh: the polygons' triangles (4294967294) are not the mesh's (2)",
       [](ScalpMesh& m) {
         m.setPolygons({INT32_MAX, INT32_MAX});
       }},
      {"ScalpMesh: rest points must match the mesh's point count",
       [](ScalpMesh& m) {
         m.setRestPoints({{1, 2, 3}});
       }},
      {"ScalpMesh: new points must match the mesh's point count",
       [](ScalpMesh& m) {
         m.withPoints({{1, 2, 3}});
       }},
      {"ScalpMesh: rest points must match the mesh's point count",
       [](ScalpMesh& m) {
         m.withPoints(m.points(), {{1, 2, 3}});
       }},
  };
  for (const Case& test : cases) {
    ScalpMesh mesh = makeQuad();
    try {
      test.call(mesh);
      ADD_FAILURE() << test.message;
    } catch (const std::invalid_argument& error) {
      EXPECT_STREQ(error.what(), test.message);
    }
    EXPECT_EQ(mesh.contentHash(), makeQuad().contentHash());
  }
}

TEST(ScalpMesh, RootsAddressTheSamePlaceInEveryArray) {
  ScalpMesh mesh = makeGrid(5, 2.0f);
  std::vector<Vec4f> colors;
  for (const Vec2f uv : mesh.uvs()) colors.push_back({uv.x, uv.y, 1.0f, 0.5f});
  mesh.setColorSet("map", colors);
  std::vector<Vec3f> rest = mesh.points();
  for (Vec3f& p : rest) p.y += 1.0f;
  mesh.setRestPoints(rest);
  for (std::int32_t face = 0; face < 50; ++face) {
    const StrandRoot root{face, 0.25f, 0.5f};
    const Vec3f p = mesh.positionAt(root);
    const Vec2f uv = mesh.uvAt(root);
    EXPECT_NEAR(uv.x, p.x / 2.0f, 1e-6f);
    EXPECT_NEAR(uv.y, p.z / 2.0f, 1e-6f);
    EXPECT_NEAR(mesh.colorAt("map", root).x, uv.x, 1e-6f);
    EXPECT_NEAR(mesh.restPositionAt(root, {}).y, 1.0f, 1e-6f);
    EXPECT_EQ(mesh.normalAt(root), (Vec3f{0, 1, 0}));
  }
  EXPECT_NEAR(mesh.area(), 4.0, 1e-6);
  EXPECT_NEAR(mesh.triangleArea(7), 0.08, 1e-6);
}

TEST(ScalpMesh, InvalidRootsGiveZeroOrTheFallback) {
  ScalpMesh mesh = makeQuad();
  mesh.setRestPoints(mesh.points());
  const ScalpMesh plain(mesh.points(), mesh.triangles());
  for (const std::int32_t face : {-1, -2, 2, INT32_MAX, INT32_MIN}) {
    const StrandRoot root{face, 0.2f, 0.2f};
    EXPECT_EQ(mesh.positionAt(root), Vec3f{});
    EXPECT_EQ(mesh.normalAt(root), Vec3f{});
    EXPECT_EQ(mesh.uvAt(root), Vec2f{});
    EXPECT_EQ(mesh.frameAt(root).normal, Vec3f{});
    EXPECT_EQ(mesh.restPositionAt(root, {7, 8, 9}), (Vec3f{7, 8, 9}));
  }
  EXPECT_EQ(plain.restPositionAt({0, 0, 0}, {7, 8, 9}), (Vec3f{7, 8, 9}));
  EXPECT_EQ(plain.uvAt({0, 0, 0}), Vec2f{});
  EXPECT_EQ(mesh.colorAt("none", {0, 0, 0}), Vec4f{});
  EXPECT_EQ(mesh.triangleArea(2), 0.0);
}

TEST(ScalpMesh, FramesAreOrthonormal) {
  for (const MeshCase& test : meshCases()) {
    SCOPED_TRACE(test.name);
    const ScalpMesh mesh = test.make();
    for (std::size_t i = 0; i < mesh.triangleCount(); ++i) {
      const SurfaceFrame f = mesh.frameAt({static_cast<std::int32_t>(i), 0.2f, 0.3f});
      for (const Vec3f axis : {f.normal, f.tangent, f.bitangent}) {
        EXPECT_NEAR(length(axis), 1.0f, 1e-5f);
      }
      EXPECT_NEAR(kestrane::dot(f.normal, f.tangent), 0.0f, 1e-5f);
      EXPECT_NEAR(distance(kestrane::cross(f.normal, f.tangent), f.bitangent), 0.0f, 1e-5f);
    }
  }
}

}  // namespace
}  // namespace kestrane
