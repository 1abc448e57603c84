// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/data/subdivision.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <numbers>

#include "core/base/parallel.h"
#include "tests/support/test_meshes.h"

namespace kestrane {
namespace {

using test::makeGrid;
using test::makeQuad;
using test::makeSphere;
using Faces = std::vector<std::vector<std::int32_t>>;

void expectPoint(Vec3f point, Vec3f expected) {
  EXPECT_NEAR(distance(point, expected), 0.0f, 1e-6f)
      << point.x << " " << point.y << " " << point.z;
}

const std::vector<Vec3f> kCube{{-1, -1, -1}, {1, -1, -1}, {1, 1, -1}, {-1, 1, -1},
                               {-1, -1, 1},  {1, -1, 1},  {1, 1, 1},  {-1, 1, 1}};
const Faces kCubeFaces{{3, 2, 1, 0}, {4, 5, 6, 7}, {0, 1, 5, 4},
                       {1, 2, 6, 5}, {2, 3, 7, 6}, {3, 0, 4, 7}};

/// A bumpy sheet of quads, pairs of triangles, holes and six-sided faces, so that points of all
/// kinds stand side by side.
struct Patchwork {
  std::vector<Vec3f> points;
  Faces faces;

  explicit Patchwork(std::int32_t size) {
    for (std::int32_t i = 0; i <= size; ++i) {
      for (std::int32_t k = 0; k <= size; ++k) {
        points.push_back({static_cast<float>(i) / static_cast<float>(size), unitFloat(mix64(i * k)),
                          static_cast<float>(k) / static_cast<float>(size)});
      }
    }
    for (std::int32_t i = 0; i < size; ++i) {
      for (std::int32_t k = 0; k < size; ++k) {
        const std::int32_t a = i * (size + 1) + k, b = a + 1, c = a + size + 2, d = a + size + 1;
        const std::uint64_t kind = mix64(static_cast<std::uint64_t>(i * size + k)) % 8;
        if (kind == 0 && k + 1 < size) {
          faces.push_back({a, b, b + 1, c + 1, c, d});
          ++k;
        } else if (kind < 3) {
          faces.push_back({a, b, c});
          faces.push_back({a, c, d});
        } else if (kind > 3) {
          faces.push_back({a, b, c, d});
        }
      }
    }
  }
};

TEST(Subdivision, AQuadFollowsTheBorderRule) {
  const ScalpMesh quad = makeQuad();
  const auto plan = makeSubdivisionPlan(quad, 1);
  const std::vector<Vec3f> fine = plan->refinePoints(quad.points());
  ASSERT_EQ(fine.size(), 9u);
  EXPECT_EQ(plan->polygons(), (std::vector<std::int32_t>{2, 2, 2, 2}));
  EXPECT_EQ(plan->triangles().size(), 8u);
  // 3/4 of the corner and 1/8 of both neighbours: 1/8 in from each side.
  expectPoint(fine[0], {0.125f, 0, 0.125f});
  expectPoint(fine[1], {0.875f, 0, 0.125f});
  expectPoint(fine[2], {0.125f, 0, 0.875f});
  expectPoint(fine[3], {0.875f, 0, 0.875f});
  expectPoint(fine[8], {0.5f, 0, 0.5f});
  for (const Vec3f middle : {Vec3f{0.5f, 0, 0}, {0, 0, 0.5f}, {1, 0, 0.5f}, {0.5f, 0, 1}}) {
    EXPECT_EQ(std::count(fine.begin() + 4, fine.begin() + 8, middle), 1);
  }
}

TEST(Subdivision, ACubeFollowsTheInnerRule) {
  const auto plan = makeSubdivisionPlan(kCube, kCubeFaces, 1);
  const std::vector<Vec3f> fine = plan->refinePoints(kCube);
  ASSERT_EQ(fine.size(), 8u + 12u + 6u);
  for (std::size_t i = 0; i < 8; ++i) expectPoint(fine[i], (5.0f / 9.0f) * kCube[i]);
  for (std::size_t i = 8; i < 20; ++i) EXPECT_NEAR(lengthSquared(fine[i]), 9.0f / 8.0f, 1e-6f);
  for (std::size_t i = 20; i < 26; ++i) EXPECT_NEAR(length(fine[i]), 1.0f, 1e-6f);
  // Fine triangles keep the side of their cage face.
  const ScalpMesh mesh(fine, plan->triangles());
  for (std::size_t i = 0; i < mesh.triangleCount(); ++i) {
    const auto& t = mesh.triangles()[i];
    const Vec3f normal = cross(fine[t[1]] - fine[t[0]], fine[t[2]] - fine[t[0]]);
    EXPECT_GT(dot(normal, fine[t[0]]), 0.0f);
  }
}

TEST(Subdivision, AVertexOfAnyValenceFollowsTheInnerRule) {
  // A tip at height 1 over a regular polygon: F is 1/3 up, R is 1/2, and the sides cancel out.
  for (std::int32_t n = 3; n <= 20; ++n) {
    std::vector<Vec3f> points{{0, 1, 0}};
    Faces faces;
    for (std::int32_t i = 0; i < n; ++i) {
      const double turn = 2.0 * std::numbers::pi * i / n;
      points.push_back({static_cast<float>(std::cos(turn)), 0, static_cast<float>(std::sin(turn))});
      faces.push_back({0, 1 + i, 1 + (i + 1) % n});
    }
    const float count = static_cast<float>(n);
    expectPoint(makeSubdivisionPlan(points, faces, 1)->refinePoints(points)[0],
                {0, (1.0f / 3.0f + 1.0f + (count - 3.0f)) / count, 0});
  }
}

TEST(Subdivision, PointsAreTheWeightsOfTheSteps) {
  const Patchwork cage(9);
  const auto plan = makeSubdivisionPlan(cage.points, cage.faces, 3);
  std::vector<std::array<double, 3>> expected;
  for (const Vec3f p : cage.points) expected.push_back({p.x, p.y, p.z});
  for (const SubdivisionStep& step : plan->steps()) {
    std::vector<std::array<double, 3>> finer(step.offsets.size() - 1);
    for (std::size_t row = 0; row < finer.size(); ++row) {
      for (std::uint32_t k = step.offsets[row]; k < step.offsets[row + 1]; ++k) {
        for (int i = 0; i < 3; ++i) finer[row][i] += step.weights[k] * expected[step.indices[k]][i];
      }
    }
    expected = std::move(finer);
  }
  const std::vector<Vec3f> fine = plan->refinePoints(cage.points);
  ASSERT_EQ(fine.size(), expected.size());
  for (std::size_t i = 0; i < fine.size(); ++i) {
    EXPECT_NEAR(fine[i].x, expected[i][0], 5e-7) << i;
    EXPECT_NEAR(fine[i].y, expected[i][1], 5e-7) << i;
    EXPECT_NEAR(fine[i].z, expected[i][2], 5e-7) << i;
  }
}

TEST(Subdivision, ATriangleSplitsIntoThreeQuads) {
  const std::vector<Vec3f> points{{0, 0, 0}, {6, 0, 0}, {0, 6, 0}};
  const auto plan = makeSubdivisionPlan(points, Faces{{0, 1, 2}}, 1);
  EXPECT_EQ(plan->polygons().size(), 3u);
  EXPECT_EQ(plan->triangles().size(), 6u);
  expectPoint(plan->refinePoints(points)[6], {2, 2, 0});
}

TEST(Subdivision, RowsAreConvexSumsOfOne) {
  const Faces fan{{0, 1, 2}, {0, 2, 3, 4, 5}, {0, 5, 1}};
  for (const auto& plan :
       {makeSubdivisionPlan(makeSphere(7, 5), 3), makeSubdivisionPlan(makeGrid(3), 3),
        makeSubdivisionPlan(std::vector<Vec3f>(6), fan, 3)}) {
    std::size_t coarse = plan->cagePointCount();
    ASSERT_EQ(plan->steps().size(), 3u);
    for (const SubdivisionStep& step : plan->steps()) {
      for (std::size_t row = 0; row + 1 < step.offsets.size(); ++row) {
        double sum = 0.0;
        for (std::uint32_t k = step.offsets[row]; k < step.offsets[row + 1]; ++k) {
          ASSERT_LT(step.indices[k], coarse);
          EXPECT_GE(step.weights[k], 0.0f);
          sum += step.weights[k];
        }
        EXPECT_NEAR(sum, 1.0, 1e-6);
      }
      coarse = step.offsets.size() - 1;
    }
  }
}

TEST(Subdivision, AFlatGridStaysRegularInside) {
  // B-splines reproduce what is linear: away from the border fine points are evenly spaced.
  const ScalpMesh grid = makeGrid(6);
  for (int levels = 1; levels <= 3; ++levels) {
    const auto plan = makeSubdivisionPlan(grid, levels);
    const ScalpMeshPtr fine = plan->refineMesh(grid);
    const float spacing = 1.0f / static_cast<float>(6 << levels);
    int inner = 0;
    for (std::size_t i = 0; i < fine->triangleCount(); ++i) {
      const auto face = static_cast<std::int32_t>(i);
      const Vec3f center = fine->positionAt({face, 1.0f / 3.0f, 1.0f / 3.0f});
      EXPECT_EQ(center.y, 0.0f);
      if (std::min(center.x, center.z) < 0.34f || std::max(center.x, center.z) > 0.66f) continue;
      EXPECT_NEAR(fine->triangleArea(i), 0.5 * spacing * spacing, 1e-7);
      // The UVs are the same surface, so they follow the points.
      EXPECT_NEAR(fine->uvAt({face, 1.0f / 3.0f, 1.0f / 3.0f}).x, center.x, 1e-6f);
      ++inner;
    }
    EXPECT_GT(inner, 0);
  }
}

TEST(Subdivision, ASphereConvergesToASmoothLimit) {
  const ScalpMesh sphere = makeSphere(8, 8);
  const auto roughness = [&](int levels) {
    const ScalpMeshPtr fine = makeSubdivisionPlan(sphere, levels)->refineMesh(sphere);
    float worst = 1.0f;
    for (std::size_t i = 0; i < fine->triangleCount(); ++i) {
      const auto& t = fine->triangles()[i];
      worst = std::min(worst, dot(fine->normals()[t[0]], fine->normals()[t[1]]));
    }
    return 1.0f - worst;
  };
  const float first = roughness(1), second = roughness(2), third = roughness(3);
  EXPECT_LT(second, 0.4f * first);
  EXPECT_LT(third, 0.4f * second);
}

TEST(Subdivision, VerticesOfNoSingleSheetStay) {
  struct Case {
    const char* name;
    std::size_t points;
    Faces faces;
    std::vector<std::int32_t> staying;
  };
  const std::vector<Case> cases{
      {"bow tie", 5, {{0, 1, 2}, {0, 3, 4}}, {0}},
      {"three faces at an edge", 5, {{0, 1, 2}, {1, 0, 3}, {0, 1, 4}}, {0, 1}},
      {"two closed fans",
       7,
       {{0, 1, 2}, {0, 2, 3}, {0, 3, 1}, {0, 4, 5}, {0, 5, 6}, {0, 6, 4}},
       {0}},
      {"no face", 4, {{0, 1, 2}}, {3}},
      {"an edge onto itself", 3, {{0, 1, 1, 2}}, {1}},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.name);
    std::vector<Vec3f> points;
    for (std::size_t i = 0; i < test.points; ++i) {
      points.push_back({unitFloat(mix64(i)), unitFloat(mix64(i + 50)), unitFloat(mix64(i + 99))});
    }
    const auto fine = makeSubdivisionPlan(points, test.faces, 1)->refinePoints(points);
    for (std::size_t i = 0; i < points.size(); ++i) {
      const bool stays =
          std::count(test.staying.begin(), test.staying.end(), static_cast<int>(i)) != 0;
      EXPECT_EQ(fine[i] == points[i], stays) << i;
    }
  }
}

TEST(Subdivision, WindingAndDiagonalsDoNotMatter) {
  // The same two quads, cut along either diagonal or given as faces.
  const std::vector<Vec3f> points{{0, 0, 0}, {1, 0, 0}, {2, 0, 1}, {0, 1, 0}, {1, 2, 0}, {2, 1, 0}};
  const Faces faces{{0, 1, 4, 3}, {1, 2, 5, 4}};
  const auto expected = makeSubdivisionPlan(points, faces, 2)->refinePoints(points);
  const std::vector<std::vector<ScalpMesh::Triangle>> cuts{
      {{0, 1, 4}, {0, 4, 3}, {1, 2, 5}, {1, 5, 4}},
      {{0, 1, 3}, {1, 4, 3}, {1, 2, 5}, {1, 5, 4}},
      {{1, 4, 3}, {3, 0, 1}, {2, 5, 4}, {1, 2, 4}}};
  for (const auto& triangles : cuts) {
    ScalpMesh mesh(points, triangles);
    mesh.setPolygons({2, 2});
    const auto plan = makeSubdivisionPlan(mesh, 2);
    EXPECT_EQ(plan->polygons().size(), 32u);
    std::vector<Vec3f> fine = plan->refinePoints(points);
    for (const Vec3f p : expected) {
      EXPECT_TRUE(
          std::any_of(fine.begin(), fine.end(), [&](Vec3f q) { return distance(p, q) < 1e-6f; }));
    }
  }
  const auto flipped = makeSubdivisionPlan(points, Faces{{0, 1, 4, 3}, {4, 5, 2, 1}}, 1);
  EXPECT_EQ(flipped->refinePoints(points)[1],
            makeSubdivisionPlan(points, faces, 1)->refinePoints(points)[1]);
}

TEST(Subdivision, SeamsStaySeams) {
  const ScalpMesh sphere = makeSphere(6, 8);
  for (int levels = 1; levels <= 3; ++levels) {
    const ScalpMeshPtr fine = makeSubdivisionPlan(sphere, levels)->refineMesh(sphere);
    ASSERT_EQ(fine->uvs().size(), 3 * fine->triangleCount());
    EXPECT_EQ(fine->uvs(), makeSubdivisionPlan(sphere, levels)->uvs());
    float low = 1.0f, high = 0.0f;
    for (std::size_t i = 0; i < fine->triangleCount(); ++i) {
      const Vec2f* uv = fine->uvs().data() + 3 * i;
      low = std::min({low, uv[0].x, uv[1].x, uv[2].x});
      high = std::max({high, uv[0].x, uv[1].x, uv[2].x});
      // A triangle smeared over the seam would span the map.
      EXPECT_LT(std::abs(uv[0].x - uv[1].x), 0.2f);
      EXPECT_LT(std::abs(uv[1].x - uv[2].x), 0.2f);
    }
    EXPECT_EQ(low, 0.0f);
    EXPECT_EQ(high, 1.0f);
  }
}

TEST(Subdivision, ColorsAndRestPointsAreRefinedAlong) {
  ScalpMesh mesh = makeGrid(4);
  std::vector<Vec4f> perFace, perVertex;
  std::vector<float> vertexValues;
  for (std::size_t i = 0; i < mesh.points().size(); ++i) {
    for (int k = 0; k < 4; ++k) vertexValues.push_back(unitFloat(mix64(4 * i + k)));
  }
  for (std::size_t corner = 0; corner < 3 * mesh.triangleCount(); ++corner) {
    perFace.push_back({static_cast<float>(corner / 6), 0, 1, 1});
    const float* v = vertexValues.data() + 4 * mesh.triangles()[corner / 3][corner % 3];
    perVertex.push_back({v[0], v[1], v[2], v[3]});
  }
  mesh.setColorSet("faces", perFace);
  mesh.setColorSet("vertices", perVertex);
  std::vector<Vec3f> rest = mesh.points();
  for (Vec3f& p : rest) p = {p.z, p.x, 3.0f * p.x};
  mesh.setRestPoints(rest);

  const auto plan = makeSubdivisionPlan(mesh, 2);
  const ScalpMeshPtr fine = plan->refineMesh(mesh);
  EXPECT_EQ(fine->points(), plan->refinePoints(mesh.points()));
  EXPECT_EQ(fine->restPoints(), plan->refinePoints(rest));
  // One value per vertex: colours refine like vertex values. One per face: every face an island.
  const std::vector<float> values = plan->refineValues(vertexValues, 4);
  for (std::size_t corner = 0; corner < 3 * fine->triangleCount(); ++corner) {
    const float* v = values.data() + 4 * fine->triangles()[corner / 3][corner % 3];
    const Vec4f color = fine->colorSets().at("vertices")[corner];
    EXPECT_NEAR(color.x, v[0], 1e-6f);
    EXPECT_NEAR(color.w, v[3], 1e-6f);
    EXPECT_EQ(fine->colorSets().at("faces")[corner].x, static_cast<float>(corner / 3 / 32));
  }

  ScalpMesh recolored = mesh;
  recolored.removeColorSet("faces");
  EXPECT_EQ(plan->refineMesh(recolored)->colorSetNames(), std::vector<std::string>{"vertices"});
}

TEST(Subdivision, ValuesOfAnyWidthRefineAlike) {
  const ScalpMesh sphere = makeSphere(7, 6);
  const auto plan = makeSubdivisionPlan(sphere, 2);
  std::vector<float> flat;
  for (const Vec3f p : sphere.points()) flat.insert(flat.end(), {p.x, p.y, p.z});
  const std::vector<Vec3f> points = plan->refinePoints(sphere.points());
  const std::vector<float> triples = plan->refineValues(flat, 3);
  ASSERT_EQ(triples.size(), 3 * points.size());
  EXPECT_EQ(std::memcmp(triples.data(), points.data(), triples.size() * sizeof(float)), 0);
  for (const std::size_t width : {1u, 2u, 4u, 5u, 6u, 7u}) {
    std::vector<float> wide;
    for (const Vec3f p : sphere.points()) {
      for (std::size_t k = 0; k < width; ++k)
        wide.push_back(k % 3 == 0 ? p.x : k % 3 == 1 ? p.y : p.z);
    }
    const std::vector<float> fine = plan->refineValues(wide, static_cast<int>(width));
    ASSERT_EQ(fine.size(), width * points.size());
    for (std::size_t i = 0; i < fine.size(); ++i) {
      ASSERT_EQ(fine[i], triples[i / width * 3 + i % width % 3]) << width << ": " << i;
    }
  }
}

TEST(Subdivision, PosesShareTheTopology) {
  const ScalpMesh cage = makeSphere(9, 10);
  std::vector<Vec3f> moved = cage.points();
  for (Vec3f& p : moved) p = {p.y, 0.1f * p.x + p.y * p.z, p.z};
  const auto plan = makeSubdivisionPlan(cage, 2), other = makeSubdivisionPlan(cage, 2);
  const ScalpMeshPtr first = plan->refineMesh(cage),
                     second = plan->refineMesh(*cage.withPoints(moved));
  EXPECT_EQ(first->topologyHash(), second->topologyHash());
  EXPECT_EQ(&first->triangles(), &second->triangles());
  // Whichever pose came first, the same pose answers the same.
  const ScalpMeshPtr alone = other->refineMesh(*cage.withPoints(moved));
  EXPECT_EQ(alone->contentHash(), second->contentHash());
  for (int i = 0; i < 300; ++i) {
    // Vertices are as near on every triangle around them.
    const Vec3f p = second->points()[i];
    EXPECT_EQ(alone->closestPoint(p).root, second->closestPoint(p).root);
  }
  // A plan of faces knows the mesh of the same faces.
  const ScalpMesh plain(cage.points(), cage.triangles());
  Faces faces;
  for (const auto& t : plain.triangles()) faces.push_back({t[0], t[1], t[2]});
  const auto triangles = makeSubdivisionPlan(cage.points(), faces, 1);
  EXPECT_EQ(triangles->refineMesh(plain)->points(), triangles->refinePoints(cage.points()));
  EXPECT_THROW(triangles->refineMesh(cage), std::invalid_argument);
}

TEST(Subdivision, RefinesTheSameOnAllThreads) {
  const Patchwork cage(40);
  for (int levels = 1; levels <= 3; ++levels) {
    const auto plan = makeSubdivisionPlan(cage.points, cage.faces, levels);
    std::vector<Vec3f> single;
    runWithThreads(1, [&] { single = plan->refinePoints(cage.points); });
    for (int frame = 0; frame < 5; ++frame) EXPECT_EQ(plan->refinePoints(cage.points), single);
  }
}

TEST(Subdivision, FramesOnSeveralThreadsKeepApart) {
  const Patchwork cage(24);
  constexpr std::size_t kPoses = 16;
  std::vector<std::vector<Vec3f>> poses(kPoses, cage.points), expected, found(kPoses);
  const auto reference = makeSubdivisionPlan(cage.points, cage.faces, 2);
  for (std::size_t i = 0; i < kPoses; ++i) {
    for (Vec3f& p : poses[i]) p = static_cast<float>(i + 1) * p;
    expected.push_back(reference->refinePoints(poses[i]));
  }
  const auto plan = makeSubdivisionPlan(cage.points, cage.faces, 2);
  std::vector<const SubdivisionStep*> steps(kPoses);
  parallelRange(0, kPoses, 1, [&](std::size_t begin, std::size_t end) {
    for (std::size_t i = begin; i < end; ++i) {
      found[i] = plan->refinePoints(poses[i]);
      steps[i] = plan->steps().data();
    }
  });
  EXPECT_EQ(found, expected);
  EXPECT_EQ(steps, std::vector<const SubdivisionStep*>(kPoses, plan->steps().data()));
}

TEST(Subdivision, RefusesWhatDoesNotFit) {
  const ScalpMesh cage = makeGrid(2);
  const auto plan = makeSubdivisionPlan(cage, 1);
  const std::vector<Vec3f> points(3);
  Faces huge(1);
  for (std::int32_t i = 0; i < 60000; ++i) huge[0].push_back(i % 3);
  struct Case {
    const char* message;
    std::function<void()> call;
  };
  const std::vector<Case> cases{
      {"SubdivisionPlan: levels must be 1 to 3", [&] { makeSubdivisionPlan(cage, 0); }},
      {"SubdivisionPlan: levels must be 1 to 3", [&] { makeSubdivisionPlan(cage, 4); }},
      {"SubdivisionPlan: levels must be 1 to 3",
       [&] {
         makeSubdivisionPlan(points, Faces{{0, 1, 9}}, -1);
       }},
      {"SubdivisionPlan: a face names a missing point",
       [&] {
         makeSubdivisionPlan(points, Faces{{0, 1, 3}}, 1);
       }},
      {"SubdivisionPlan: a face names a missing point",
       [&] {
         makeSubdivisionPlan(points, Faces{{0, -1, 2}}, 1);
       }},
      {"SubdivisionPlan: the refined mesh is too large",
       [&] { makeSubdivisionPlan(points, huge, 1); }},
      {"SubdivisionPlan: the points are not the cage's", [&] { plan->refinePoints(points); }},
      {"SubdivisionPlan: the values are not the cage's vertices'",
       [&] { plan->refineValues(std::vector<float>(9), 0); }},
      {"SubdivisionPlan: the values are not the cage's vertices'",
       [&] { plan->refineValues(std::vector<float>(19), 2); }},
      {"SubdivisionPlan: not this plan's cage", [&] { plan->refineMesh(makeGrid(3)); }},
      {"SubdivisionPlan: not this plan's cage",
       [&] { plan->refineMesh(ScalpMesh(cage.points(), cage.triangles())); }},
  };
  for (const Case& test : cases) {
    try {
      test.call();
      ADD_FAILURE() << test.message;
    } catch (const std::invalid_argument& error) {
      EXPECT_STREQ(error.what(), test.message);
    }
  }
}

TEST(Subdivision, PlanFitsPosesOfItsCageAlone) {
  const ScalpMesh cage = makeGrid(2);
  std::vector<Vec3f> points = cage.points();
  const ScalpMesh bare(points, cage.triangles());
  const auto plan = makeSubdivisionPlan(cage, 1), barePlan = makeSubdivisionPlan(bare, 1);
  EXPECT_TRUE(plan->fits(*cage.withPoints(std::vector<Vec3f>(9))));
  EXPECT_TRUE(barePlan->fits(bare));
  EXPECT_FALSE(plan->fits(bare));
  EXPECT_FALSE(plan->fits(makeGrid(3)));
  // The same triangles, but a vertex more that none of them uses.
  points.push_back({});
  EXPECT_FALSE(barePlan->fits(ScalpMesh(points, cage.triangles())));
}

// Two polygons back to back: every corner's rows hold all corners of both.
TEST(Subdivision, RefusesPolygonsThatWouldFillTheMemory) {
  const auto pillow = [](std::int32_t corners) {
    Faces faces(2);
    for (std::int32_t i = 0; i < corners; ++i) {
      faces[0].push_back(i);
      faces[1].push_back(corners - 1 - i);
    }
    return makeSubdivisionPlan(std::vector<Vec3f>(static_cast<std::size_t>(corners)), faces, 1);
  };
  EXPECT_EQ(pillow(1000)->steps()[0].offsets.size(), 2003u);
  EXPECT_THROW(pillow(9000), std::invalid_argument);
}

TEST(Subdivision, TakesOddCages) {
  constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
  EXPECT_TRUE(makeSubdivisionPlan(ScalpMesh(), 3)->refineMesh(ScalpMesh())->points().empty());
  const std::vector<Vec3f> points(5, Vec3f{kNan, 1, 2});
  // Faces of two corners are none; a face may meet itself, and one face may stand on another.
  for (const Faces& faces : {Faces{{0, 1}, {}, {2}}, Faces{{0, 1, 0, 1}}, Faces{{0, 0, 0}},
                             Faces{{0, 1, 2}, {0, 1, 2}}, Faces{{0, 1, 2}, {2, 1, 0}}}) {
    const auto plan = makeSubdivisionPlan(points, faces, 3);
    const std::vector<Vec3f> fine = plan->refinePoints(points);
    for (const auto& t : plan->triangles()) {
      for (const std::int32_t corner : t) ASSERT_LT(static_cast<std::size_t>(corner), fine.size());
    }
  }
  // A polygon of no triangles, and one whose triangles form no polygon.
  ScalpMesh mesh(std::vector<Vec3f>(6), {{0, 1, 2}, {3, 4, 5}});
  mesh.setPolygons({0, 2});
  EXPECT_EQ(makeSubdivisionPlan(mesh, 1)->polygons().size(), 6u);
}

}  // namespace
}  // namespace kestrane
