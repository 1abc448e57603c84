// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <set>

#include "core/base/parallel.h"
#include "core/data/polyline.h"
#include "core/guides/parts.h"
#include "core/ops/clearance_field.h"
#include "core/ops/guide_binding.h"
#include "core/ops/guide_lookup.h"
#include "core/ops/surface_reach.h"
#include "tests/ops/ops_fixtures.h"

namespace kestrane {
namespace {

using test::OpsFixture;

/// One guide set with edits, for tests that change some of it.
std::shared_ptr<GuideSet> editable(const OpsFixture& fixture) {
  return std::make_shared<GuideSet>(*fixture.guides);
}

TEST(Interpolate, ReproducesAGuideAtItsOwnRoot) {
  OpsFixture fixture;
  const auto op = fixture.make("Interpolate");
  op->parameters.set("smoothGuides", false);
  op->parameters.set("keepClearance", false);
  StrandSet strands;
  for (const Guide& guide : fixture.guides->guides) {
    strands.addStrand(guide.id + 100, guide.root, std::vector<Vec3f>(8, guide.points[0]));
  }
  const StrandSetPtr grown = fixture.run(*op, strands);
  for (std::size_t i = 0; i < strands.strandCount(); ++i) {
    const Guide& guide = fixture.guides->guides[i];
    std::vector<Vec3f> wanted(8);
    resamplePolyline(guide.points, wanted);
    for (std::size_t k = 0; k < 8; ++k) {
      EXPECT_LT(distance(grown->strandPoints(i)[k], wanted[k]), 2e-2f) << i << " " << k;
    }
    EXPECT_NEAR((*grown->strandChannel("curliness"))[i], guide.attributes.at("curliness"), 5e-3f);
  }
}

TEST(Interpolate, KeepsTheBlendedLengthOfItsGuides) {
  OpsFixture fixture;
  auto guides = editable(fixture);
  for (Guide& guide : guides->guides) {
    for (std::size_t k = 0; k < guide.points.size(); ++k) {
      const Vec3f normal = fixture.scalp->normalAt(guide.root);
      guide.points[k] = guide.points[0] + normal * (0.7f * static_cast<float>(k));
    }
  }
  fixture.guides = guides;
  const auto op = fixture.make("Interpolate");
  const StrandSetPtr grown = fixture.run(*op, fixture.rootedStrands(300));
  // Straight guides along the normals give straight strands of the one length that all have.
  for (std::size_t i = 0; i < grown->strandCount(); ++i) {
    EXPECT_NEAR(polylineLength(grown->strandPoints(i)), 4.9f, 0.02f);
  }
  test::expectValidGroom(*grown);
}

TEST(Interpolate, OneNeighborFollowsTheNearestGuideAlone) {
  OpsFixture fixture;
  const auto op = fixture.make("Interpolate");
  op->parameters.set("neighbors", std::int64_t{1});
  op->parameters.set("followSurface", false);
  const StrandSet strands = fixture.rootedStrands(200);
  const StrandSetPtr grown = fixture.run(*op, strands);
  std::set<float> values;
  for (const Guide& guide : fixture.guides->guides) values.insert(guide.attributes.at("curliness"));
  for (std::size_t i = 0; i < strands.strandCount(); ++i) {
    const Vec3f root = fixture.scalp->positionAt(strands.roots()[i]);
    const Guide* nearest = nullptr;
    for (const Guide& guide : fixture.guides->guides) {
      if (!nearest || distance(guide.points[0], root) < distance(nearest->points[0], root)) {
        nearest = &guide;
      }
    }
    EXPECT_EQ((*grown->strandChannel("curliness"))[i], nearest->attributes.at("curliness"));
  }
}

TEST(Interpolate, WithoutGuidesTheStrandsPassAndItSaysSo) {
  OpsFixture fixture;
  const auto op = fixture.make("Interpolate");
  const auto input = std::make_shared<const StrandSet>(fixture.rootedStrands(5));
  const std::vector<GraphValue> inputs{input, GraphValue(), fixture.scalp};
  EXPECT_EQ(valueAs<StrandSet>(op->evaluate(fixture.context, inputs)), input);
  EXPECT_EQ(fixture.warnings.texts(),
            std::vector<std::string>{"no guides: place some with the guide tools; the strands keep "
                                     "their incoming shape"});
  const std::vector<GraphValue> nothing(3);
  EXPECT_THROW(op->evaluate(fixture.context, nothing), GraphError);
  op->parameters.set("take", std::string("width"));
  fixture.expectError(*op, *input, "Interpolate: take must be shape or length");
}

TEST(Interpolate, MovesOnlyTheStrandsThatAMovedGuideReaches) {
  OpsFixture fixture;
  const StrandSet strands = fixture.rootedStrands(400);
  const auto op = fixture.make("Interpolate");
  std::vector<GraphValue> previous{fixture.run(*op, strands)};
  const StrandSetPtr before = valueAs<StrandSet>(previous[0]);
  const auto input = std::make_shared<const StrandSet>(strands);
  const std::vector<GraphValue> inputsBefore = fixture.inputsFor(*op, input);
  auto guides = editable(fixture);
  guides->guides[3].points.back() += Vec3f{1, 0, 0};
  fixture.guides = guides;
  const std::vector<GraphValue> inputs = fixture.inputsFor(*op, input);
  const std::vector<StrandChangesPtr> changes{noStrandChanges(), nullptr, noStrandChanges()};
  IncrementalState state{previous, changes, inputsBefore, false};
  GraphValue result;
  StrandChangesPtr changed;
  ASSERT_TRUE(op->evaluateChanged(fixture.context, inputs, state, result, changed));
  const StrandSetPtr after = valueAs<StrandSet>(result);
  test::expectSameStrands(*fixture.run(*fixture.make("Interpolate"), strands), *after);
  EXPECT_GT(changed->strands.size(), 10u);
  EXPECT_LT(changed->strands.size(), 350u);
  const std::set<std::uint32_t> listed(changed->strands.begin(), changed->strands.end());
  for (std::uint32_t i = 0; i < strands.strandCount(); ++i) {
    if (!listed.contains(i)) {
      EXPECT_EQ(before->strandPoints(i).back(), after->strandPoints(i).back());
    }
  }
  // A guide whose root moves changes who follows whom: all of it runs again.
  auto moved = editable(fixture);
  for (Vec3f& p : moved->guides[0].points) p += Vec3f{0.5f, 0, 0};
  fixture.guides = moved;
  IncrementalState again{previous, changes, inputs, false};
  EXPECT_FALSE(
      op->evaluateChanged(fixture.context, fixture.inputsFor(*op, input), again, result, changed));
}

TEST(Interpolate, LimitFadesBackToTheIncomingShape) {
  OpsFixture fixture;
  const auto op = fixture.make("Interpolate");
  op->parameters.set("limitDistance", 3.0);
  op->parameters.set("falloff", Ramp({{0.0f, 1.0f}}));
  op->parameters.set("followSurface", false);
  const StrandSet strands = fixture.rootedStrands(400);
  const StrandSetPtr grown = fixture.run(*op, strands);
  const auto& influence = *grown->strandChannel("guideInfluence");
  int outside = 0, inside = 0;
  for (std::size_t i = 0; i < strands.strandCount(); ++i) {
    float nearest = 1e9f;
    for (const Guide& guide : fixture.guides->guides) {
      nearest = std::min(nearest,
                         distance(guide.points[0], fixture.scalp->positionAt(strands.roots()[i])));
    }
    if (nearest >= 3.0f) {
      ++outside;
      EXPECT_EQ(influence[i], 0.0f);
      EXPECT_EQ(grown->strandPoints(i).back(), strands.strandPoints(i).back());
    } else if (nearest < 2.84f) {
      ++inside;
      EXPECT_NEAR(influence[i], 1.0f, 1e-5f);
    }
  }
  EXPECT_GT(outside, 20);
  EXPECT_GT(inside, 20);
  op->parameters.set("limitDistance", 0.0);
  EXPECT_EQ(fixture.run(*op, strands)->strandChannel("guideInfluence"), nullptr);
}

TEST(Interpolate, TakingLengthKeepsTheShape) {
  OpsFixture fixture;
  const auto op = fixture.make("Interpolate");
  op->parameters.set("take", std::string("length"));
  const StrandSet strands = fixture.rootedStrands(50);
  const StrandSetPtr grown = fixture.run(*op, strands);
  for (std::size_t i = 0; i < strands.strandCount(); ++i) {
    const auto before = strands.strandPoints(i), after = grown->strandPoints(i);
    const float scale = polylineLength(after) / polylineLength(before);
    EXPECT_LE(scale, 2.0001f);
    for (std::size_t k = 0; k < before.size(); ++k) {
      EXPECT_LT(distance(after[0] + (before[k] - before[0]) * scale, after[k]), 1e-4f);
    }
  }
}

TEST(Interpolate, NeverBlendsAcrossAPart) {
  OpsFixture fixture;
  fixture.guides = fixture.makeGuides(40);
  auto parts = std::make_shared<PartData>();
  std::vector<Vec3f> stroke;
  for (int i = -8; i <= 8; ++i) {
    const float angle = 0.17f * static_cast<float>(i);
    stroke.push_back(Vec3f{0.0f, std::cos(angle), std::sin(angle)} * 10.0f);
  }
  addPart(*parts, "middle", stroke, *fixture.scalp, 17);
  fixture.resources.parts = parts;
  auto guides = editable(fixture);
  for (Guide& guide : guides->guides) {
    guide.attributes = {{"side", guide.points[0].x > 0.0f ? 1.0f : -1.0f}};
  }
  fixture.guides = guides;
  const StrandSet strands = fixture.rootedStrands(2000);
  const auto mixedNearPart = [&] {
    const StrandSetPtr grown = fixture.run(*fixture.make("Interpolate"), strands);
    int mixed = 0, near = 0;
    for (std::size_t i = 0; i < strands.strandCount(); ++i) {
      const Vec3f root = fixture.scalp->positionAt(strands.roots()[i]);
      if (root.y < 6.0f || std::abs(root.x) < 0.2f || std::abs(root.x) > 2.0f) continue;
      ++near;
      const float side = (*grown->strandChannel("side"))[i];
      mixed += std::abs(side - (root.x > 0.0f ? 1.0f : -1.0f)) > 0.01f;
    }
    EXPECT_GT(near, 20);
    return mixed;
  };
  EXPECT_EQ(mixedNearPart(), 0);
  fixture.resources.parts = nullptr;
  EXPECT_GT(mixedNearPart(), 10);
}

TEST(Interpolate, RegionsBlendOnlyTheirOwnGuides) {
  OpsFixture fixture;
  auto mesh = std::make_shared<ScalpMesh>(*fixture.scalp);
  std::vector<Vec4f> colors;
  for (std::size_t t = 0; t < mesh->triangleCount(); ++t) {
    const float x = mesh->positionAt({static_cast<std::int32_t>(t), 1.0f / 3, 1.0f / 3}).x;
    for (int k = 0; k < 3; ++k) colors.push_back(x > 0 ? Vec4f{1, 0, 0, 1} : Vec4f{0, 0, 1, 1});
  }
  mesh->setColorSet("sides", colors);
  fixture.scalp = mesh;
  fixture.context.surface = mesh;
  auto guides = editable(fixture);
  for (Guide& guide : guides->guides) {
    const bool right = mesh->colorAt("sides", mesh->closestPoint(guide.points[0]).root).x > 0.5f;
    guide.attributes = {{"side", right ? 1.0f : 0.0f}};
  }
  fixture.guides = guides;
  const auto op = fixture.make("Interpolate");
  op->parameters.set("regionMap", std::string("sides"));
  const StrandSet strands = fixture.rootedStrands(500);
  const StrandSetPtr grown = fixture.run(*op, strands);
  ASSERT_NE(grown->strandChannel("region"), nullptr);
  for (std::size_t i = 0; i < strands.strandCount(); ++i) {
    const float own = mesh->colorAt("sides", strands.roots()[i]).x;
    EXPECT_NEAR((*grown->strandChannel("side"))[i], own, 1e-3f);
  }
  op->parameters.set("regionMap", std::string("nowhere"));
  fixture.expectError(*op, strands,
                      "map 'nowhere': no map, color set or image of that name (Groom Tools > Paint "
                      "> New... makes a map)");
}

BindingInput inputOf(const std::vector<Vec3f>& roots, const std::vector<std::int32_t>& faces,
                     const std::vector<Vec3f>& guides) {
  BindingInput input;
  input.strandRoots = roots;
  input.strandFaces = faces;
  input.guideRoots = guides;
  return input;
}

TEST(GuideBinding, WeightsSumToOneAndReachIsRespected) {
  std::vector<Vec3f> guides, roots;
  for (int i = 0; i < 60; ++i) {
    guides.push_back({10 * unitFloat(mix64(static_cast<std::uint64_t>(i))), 0,
                      10 * unitFloat(mix64(static_cast<std::uint64_t>(i) + 500))});
  }
  for (std::uint64_t i = 0; i < 3000; ++i) {
    roots.push_back({12 * unitFloat(mix64(i + 1000)) - 1, 0, 12 * unitFloat(mix64(i + 9000)) - 1});
  }
  const std::vector<std::int32_t> faces(roots.size(), -1);
  for (const int neighbors : {1, 2, 3, 8}) {
    const auto binding = bindToGuides(inputOf(roots, faces, guides), {neighbors, 1.5f, 2.0f, 1.0f});
    for (std::size_t i = 0; i < roots.size(); ++i) {
      float sum = 0.0f, nearest = 1e9f;
      for (std::size_t e = binding->begin(i); e < binding->end(i); ++e) sum += binding->weight(e);
      EXPECT_NEAR(sum, 1.0f, 1e-3f);
      for (const Vec3f g : guides) nearest = std::min(nearest, distance(g, roots[i]));
      EXPECT_NEAR(binding->distance[i], nearest, 1e-5f);
      if (neighbors == 1) {
        EXPECT_EQ(binding->end(i) - binding->begin(i), 1u);
        EXPECT_EQ(binding->weights[binding->begin(i)], 65535);
      }
    }
  }
}

TEST(GuideBinding, ChangesSmoothlyOverTheScalp) {
  std::vector<Vec3f> guides, roots;
  for (int i = 0; i < 40; ++i) {
    guides.push_back({10 * unitFloat(mix64(static_cast<std::uint64_t>(i))), 0,
                      10 * unitFloat(mix64(static_cast<std::uint64_t>(i) + 500))});
  }
  constexpr int steps = 20000;
  for (int i = 0; i <= steps; ++i) {
    const float t = static_cast<float>(i) / steps;
    roots.push_back({14 * t - 2, 0, 5 + 2 * std::sin(9 * t)});
  }
  const std::vector<std::int32_t> faces(roots.size(), -1);
  const auto binding = bindToGuides(inputOf(roots, faces, guides), {});
  std::vector<float> last(guides.size(), -1.0f);
  for (std::size_t i = 0; i < roots.size(); ++i) {
    std::vector<float> weights(guides.size(), 0.0f);
    for (std::size_t e = binding->begin(i); e < binding->end(i); ++e) {
      weights[binding->guide(e)] = binding->weight(e);
    }
    if (i > 0) {
      for (std::size_t g = 0; g < guides.size(); ++g) {
        EXPECT_LT(std::abs(weights[g] - last[g]), 0.05f) << "step " << i << " guide " << g;
      }
    }
    last = weights;
  }
}

TEST(GuideBinding, LivesThroughCoincidentFewAndManyGuides) {
  const std::vector<Vec3f> roots{{0, 0, 0}, {1, 0, 0}, {5, 0, 0}};
  const std::vector<std::int32_t> faces(3, -1);
  const std::vector<Vec3f> one{{2, 0, 0}};
  const auto alone = bindToGuides(inputOf(roots, faces, one), {});
  for (std::size_t i = 0; i < 3; ++i) EXPECT_EQ(alone->weights[alone->begin(i)], 65535);
  const std::vector<Vec3f> pile(9, Vec3f{1, 0, 0});
  const auto piled = bindToGuides(inputOf(roots, faces, pile), {});
  for (std::size_t i = 0; i < 3; ++i) {
    float sum = 0.0f;
    for (std::size_t e = piled->begin(i); e < piled->end(i); ++e) sum += piled->weight(e);
    EXPECT_NEAR(sum, 1.0f, 1e-3f);
  }
  std::vector<Vec3f> many;
  for (int i = 0; i < 70000; ++i) {
    many.push_back({static_cast<float>(i % 300), 0, static_cast<float>(i / 300)});
  }
  const auto wide = bindToGuides(inputOf(roots, faces, many), {});
  EXPECT_TRUE(wide->wide);
  // The inverse lists exactly the strands bound to a guide.
  for (const std::uint32_t g : {0u, 1u, 5u, 69999u}) {
    const std::vector<std::uint32_t> listed = wide->strandsOf(std::vector<std::uint32_t>{g});
    for (std::uint32_t i = 0; i < 3; ++i) {
      bool bound = false;
      for (std::size_t e = wide->begin(i); e < wide->end(i); ++e) bound |= wide->guide(e) == g;
      EXPECT_EQ(std::count(listed.begin(), listed.end(), i), bound ? 1 : 0);
    }
  }
}

TEST(GuideLookup, MissesNoGuideThatReaches) {
  std::vector<Vec3f> roots;
  std::vector<float> reaches;
  for (std::uint64_t i = 0; i < 200; ++i) {
    roots.push_back({unitFloat(mix64(i)), unitFloat(mix64(i + 300)), unitFloat(mix64(i + 600))});
    reaches.push_back(i % 17 == 0 ? 0.8f : 0.05f + 0.1f * unitFloat(mix64(i + 900)));
  }
  const GuideLookup lookup(roots, reaches);
  for (std::uint64_t i = 0; i < 3000; ++i) {
    const Vec3f p = Vec3f{unitFloat(mix64(i + 5000)), unitFloat(mix64(i + 15000)),
                          unitFloat(mix64(i + 25000))} *
                        1.6f -
                    Vec3f{0.3f, 0.3f, 0.3f};
    const auto found = lookup.at(p);
    EXPECT_TRUE(std::is_sorted(found.begin(), found.end()));
    for (std::uint32_t g = 0; g < roots.size(); ++g) {
      if (distance(p, roots[g]) < reaches[g]) {
        EXPECT_TRUE(std::binary_search(found.begin(), found.end(), g));
      }
    }
  }
}

TEST(SurfaceReach, IsStraightOnASmoothSurfaceAndLongAcrossAFold) {
  const OpsFixture fixture;
  const StrandRoot seed = fixture.scalp->closestPoint({0, 10, 0}).root;
  const SurfaceReach smooth(*fixture.scalp, std::vector<StrandRoot>{seed},
                            std::vector<float>{8.0f});
  SurfaceReach::Face face;
  for (const float angle : {0.1f, 0.3f, 0.5f}) {
    const SurfaceHit hit =
        fixture.scalp->closestPoint(Vec3f{std::sin(angle), std::cos(angle), 0} * 10.0f);
    smooth.enter(hit.root.face, face);
    const float straight = distance(hit.position, fixture.scalp->positionAt(seed));
    EXPECT_NEAR(smooth.distanceTo(face, hit.position, 0, straight), straight, 0.02f * straight);
  }
  // Two sheets of a folded strip, 1 apart and joined 10 away.
  std::vector<Vec3f> points;
  std::vector<ScalpMesh::Triangle> triangles;
  for (int i = 0; i <= 40; ++i) {
    const float along = i <= 20 ? 0.5f * static_cast<float>(i) : 0.5f * static_cast<float>(40 - i);
    const float height = i <= 20 ? 0.0f : 1.0f;
    points.push_back({along, height, 0});
    points.push_back({along, height, 1});
    if (i == 0) continue;
    const int b = 2 * i;
    triangles.push_back({b - 2, b, b - 1});
    triangles.push_back({b - 1, b, b + 1});
  }
  const ScalpMesh fold(points, triangles);
  const StrandRoot below = fold.closestPoint({1, 0, 0.5f}).root;
  const SurfaceReach folded(fold, std::vector<StrandRoot>{below}, std::vector<float>{100.0f});
  const SurfaceHit above = fold.closestPoint({1, 1, 0.5f});
  folded.enter(above.root.face, face);
  EXPECT_GT(folded.distanceTo(face, above.position, 0, 1.0f), 10.0f);
}

TEST(ClearanceField, KnowsTheHeightsAroundASphere) {
  const OpsFixture fixture;
  const ClearanceField field(fixture.scalp);
  ClearanceField::Sample sample;
  for (std::uint64_t i = 0; i < 500; ++i) {
    const Vec3f way = normalize(Vec3f{unitFloat(mix64(i)) - 0.5f, unitFloat(mix64(i + 1000)) - 0.5f,
                                      unitFloat(mix64(i + 2000)) - 0.5f},
                                {0, 1, 0});
    const SurfaceHit foot = fixture.scalp->closestPoint(way * 10.0f);
    // Far off, where the grids are coarse, too.
    for (const float height : {-6.0f, -0.6f, -0.2f, 0.0f, 0.3f, 0.9f, 2.0f, 7.0f, 24.0f}) {
      const Vec3f at = foot.position + fixture.scalp->normalAt(foot.root) * height;
      ASSERT_TRUE(field.find(at, sample)) << height;
      EXPECT_NEAR(sample.height(), std::copysign(fixture.scalp->closestPoint(at).distance, height),
                  0.12f + 0.02f * std::abs(height));
      EXPECT_GT(dot(sample.up(), way), 0.9f);
    }
  }
  for (const float nowhere : {1000.0f, NAN, INFINITY, -INFINITY}) {
    EXPECT_FALSE(field.find({nowhere, 0, 0}, sample)) << nowhere;
  }
  EXPECT_FALSE(ClearanceField(std::make_shared<const ScalpMesh>()).find({}, sample));
}

TEST(ClearanceField, BesideABorderNothingIsKnown) {
  const auto plain = std::make_shared<const ScalpMesh>(
      std::vector<Vec3f>{{0, 0, 0}, {10, 0, 0}, {10, 0, 10}, {0, 0, 10}},
      std::vector<ScalpMesh::Triangle>{{0, 2, 1}, {0, 3, 2}});
  const ClearanceField field(plain);
  ClearanceField::Sample sample;
  ASSERT_TRUE(field.find({5, 0.3f, 5}, sample));
  EXPECT_NEAR(sample.height(), 0.3f, 1e-3f);
  ASSERT_TRUE(field.find({5, -3.0f, 5}, sample));
  EXPECT_NEAR(sample.height(), -3.0f, 0.05f);
  EXPECT_FALSE(field.find({13, 0.1f, 5}, sample));
}

/// Blocks are made by whoever comes first: the heights may not depend on who that is.
TEST(ClearanceField, IsTheSameFromAllThreads) {
  const OpsFixture fixture;
  std::vector<float> heights[2];
  for (const std::size_t threads : {1, 8}) {
    const ClearanceField field(fixture.scalp);
    std::vector<float>& found = heights[threads > 1];
    found.resize(20000);
    runWithThreads(threads, [&] {
      parallelRange(0, found.size(), 1, [&](std::size_t first, std::size_t last) {
        ClearanceField::Sample sample;
        for (std::size_t i = first; i < last; ++i) {
          const auto draw = [&](std::uint64_t n) { return 30.0f * unitFloat(hashCombine(i, n)); };
          found[i] = field.find(Vec3f{draw(0), draw(1), draw(2)} - Vec3f{15, 15, 15}, sample)
                         ? sample.height()
                         : 1e9f;
        }
      });
    });
  }
  EXPECT_EQ(heights[0], heights[1]);
}

TEST(Interpolate, LiftsStrandsOutOfABulgeAndKeepsTheirLength) {
  // A plain with a hill in the middle. Guides lie along the plain on both sides of it, so that
  // strands blended from them would run through the hill.
  OpsFixture fixture;
  constexpr int n = 60;
  const auto hill = [](float x, float z) { return 1.5f * std::exp(-(x * x + z * z) / 2.0f); };
  std::vector<Vec3f> points;
  std::vector<ScalpMesh::Triangle> triangles;
  for (int row = 0; row <= n; ++row) {
    for (int column = 0; column <= n; ++column) {
      const float x = 0.2f * static_cast<float>(column) - 6.0f;
      const float z = 0.2f * static_cast<float>(row) - 6.0f;
      points.push_back({x, hill(x, z), z});
      if (row == 0 || column == 0) continue;
      const int corner = row * (n + 1) + column;
      triangles.push_back({corner - n - 2, corner - 1, corner});
      triangles.push_back({corner - n - 2, corner, corner - n - 1});
    }
  }
  fixture.scalp = std::make_shared<const ScalpMesh>(points, triangles);
  fixture.context.surface = fixture.scalp;
  StrandSet strands;
  for (int i = 0; i < 20; ++i) {
    const Vec3f from{-3.5f, 0.0f, -1.0f + 0.1f * static_cast<float>(i)};
    const SurfaceHit hit = fixture.scalp->closestPoint(from);
    strands.addStrand(static_cast<std::uint64_t>(i), hit.root, std::vector<Vec3f>(33, from));
  }
  // Higher than the finest of the grids of heights reaches, too.
  for (const float above : {0.1f, 0.5f, 2.5f}) {
    auto guides = std::make_shared<GuideSet>();
    for (int side = -1; side <= 1; side += 2) {
      Guide guide;
      guide.id = static_cast<std::uint64_t>(side + 2);
      for (int k = 0; k < 16; ++k) {
        guide.points.push_back(
            {-4.0f + 0.7f * static_cast<float>(k), k == 0 ? 0.0f : above, 4.0f * side});
      }
      guides->guides.push_back(std::move(guide));
    }
    fixture.guides = guides;
    // The least height over the hill: distance to the surface, not the difference in Y.
    const auto grow = [&](bool keep) {
      const auto op = fixture.make("Interpolate");
      op->parameters.set("keepClearance", keep);
      const StrandSetPtr grown = fixture.run(*op, strands);
      float lowest = 1e9f;
      for (const Vec3f p : grown->points()) {
        if (std::hypot(p.x, p.z) > 1.5f) continue;
        const float distance = fixture.scalp->closestPoint(p).distance;
        lowest = std::min(lowest, std::copysign(distance, p.y - hill(p.x, p.z)));
      }
      return std::pair(lowest, grown);
    };
    const auto [sunk, plain] = grow(false);
    const auto [kept, lifted] = grow(true);
    EXPECT_LT(sunk, above - 0.5f);
    EXPECT_GT(kept, above - 0.05f - 0.02f * above);
    test::expectLengthsKept(*plain, *lifted, 1e-3f);
  }
}

}  // namespace
}  // namespace kestrane
