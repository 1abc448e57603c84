// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <map>
#include <set>

#include "core/data/kd_tree.h"
#include "core/ops/blue_noise.h"
#include "core/ops/scatter_candidates.h"
#include "tests/ops/ops_fixtures.h"

namespace kestrane {
namespace {

using test::OpsFixture;

std::map<std::uint64_t, StrandRoot> rootsById(const StrandSet& set) {
  std::map<std::uint64_t, StrandRoot> roots;
  for (std::size_t i = 0; i < set.strandCount(); ++i) roots[set.ids()[i]] = set.roots()[i];
  return roots;
}

TEST(Scatter, GrowsTheExpectedNumberAlongNormals) {
  OpsFixture fixture;
  const auto op = fixture.make("Scatter");
  op->parameters.set("density", 4.0);
  op->parameters.set("length", 2.0);
  const StrandSetPtr set = fixture.run(*op, {});
  test::expectValidGroom(*set);
  const double expected = 4.0 * fixture.scalp->area();
  EXPECT_NEAR(static_cast<double>(set->strandCount()), expected, 4.0 * std::sqrt(expected));
  EXPECT_EQ(set->uniformPointCount(), 9u);
  for (std::size_t i = 0; i < set->strandCount(); i += 97) {
    const StrandRoot root = set->roots()[i];
    const Vec3f tip = fixture.scalp->positionAt(root) + fixture.scalp->normalAt(root) * 2.0f;
    EXPECT_LT(distance(set->strandPoints(i).back(), tip), 1e-4f);
  }
}

TEST(Scatter, SpreadsByAreaNotByTriangle) {
  // A thin sphere cap near the pole has small triangles: counts must follow area.
  OpsFixture fixture;
  const auto op = fixture.make("Scatter");
  op->parameters.set("density", 20.0);
  const StrandSetPtr set = fixture.run(*op, {});
  double above = 0.0;
  for (std::size_t t = 0; t < fixture.scalp->triangleCount(); ++t) {
    const Vec3f middle =
        fixture.scalp->positionAt({static_cast<std::int32_t>(t), 1.0f / 3, 1.0f / 3});
    if (middle.y > 8.0f) above += fixture.scalp->triangleArea(t);
  }
  std::size_t count = 0;
  for (std::size_t i = 0; i < set->strandCount(); ++i) {
    const auto face = set->roots()[i].face;
    count += fixture.scalp->positionAt({face, 1.0f / 3, 1.0f / 3}).y > 8.0f;
  }
  EXPECT_NEAR(static_cast<double>(count), 20.0 * above, 5.0 * std::sqrt(20.0 * above));
}

TEST(Scatter, APreviewIsASubsetAndRandomnessKeepsIds) {
  OpsFixture fixture;
  const auto op = fixture.make("Scatter");
  op->parameters.set("density", 10.0);
  for (const double randomness : {1.0, 0.0, 0.4}) {
    SCOPED_TRACE(randomness);
    op->parameters.set("randomness", randomness);
    fixture.context.detail = 1.0f;
    const auto full = rootsById(*fixture.run(*op, {}));
    fixture.context.detail = 0.25f;
    const auto thin = rootsById(*fixture.run(*op, {}));
    EXPECT_LT(thin.size(), full.size() * 6 / 10);
    EXPECT_GT(thin.size(), full.size() / 8);
    for (const auto& [id, root] : thin) {
      ASSERT_TRUE(full.contains(id));
      EXPECT_EQ(full.at(id), root);
    }
  }
  fixture.context.detail = 1.0f;
  op->parameters.set("randomness", 1.0);
  const auto random = rootsById(*fixture.run(*op, {}));
  op->parameters.set("randomness", 0.3);
  const auto between = rootsById(*fixture.run(*op, {}));
  ASSERT_EQ(random.size(), between.size());
  for (const auto& [id, root] : random) EXPECT_TRUE(between.contains(id));
}

TEST(Scatter, RandomnessMovesEachRootSteadily) {
  OpsFixture fixture;
  const auto op = fixture.make("Scatter");
  op->parameters.set("density", 2.0);
  const float spacing = evenSpacing(2.0);
  std::map<std::uint64_t, Vec3f> last;
  for (int step = 0; step <= 40; ++step) {
    op->parameters.set("randomness", 0.05 * step);
    const StrandSetPtr set = fixture.run(*op, {});
    for (std::size_t i = 0; i < set->strandCount(); ++i) {
      const Vec3f place = fixture.scalp->positionAt(set->roots()[i]);
      if (step > 0) {
        ASSERT_TRUE(last.contains(set->ids()[i]));
        EXPECT_LT(distance(last[set->ids()[i]], place), 0.5f * spacing);
      }
      last[set->ids()[i]] = place;
    }
  }
}

TEST(Scatter, BlueNoiseIsEven) {
  OpsFixture fixture;
  const auto op = fixture.make("Scatter");
  op->parameters.set("density", 10.0);
  const auto nearestShares = [&](double randomness) {
    op->parameters.set("randomness", randomness);
    const StrandSetPtr set = fixture.run(*op, {});
    std::vector<Vec3f> places;
    for (const StrandRoot root : set->roots()) places.push_back(fixture.scalp->positionAt(root));
    const KdTree tree(places);
    float least = 1e9f, sum = 0.0f;
    for (const Vec3f p : places) {
      KdHit hits[2];
      tree.nearest(p, hits);
      const float share = std::sqrt(hits[1].distanceSquared) / evenSpacing(10.0);
      least = std::min(least, share);
      sum += share;
    }
    return std::pair(least, sum / static_cast<float>(places.size()));
  };
  const auto [leastEven, meanEven] = nearestShares(0.0);
  const auto [leastRandom, meanRandom] = nearestShares(1.0);
  EXPECT_GT(meanEven, 0.75f);
  EXPECT_GT(leastEven, 0.4f);
  EXPECT_LT(meanRandom, 0.6f);
  EXPECT_LT(leastRandom, 0.1f);
}

TEST(Scatter, AMapThinsAndAnExpressionSetsTheDensity) {
  OpsFixture fixture;
  const auto op = fixture.make("Scatter");
  op->parameters.set("density", MapRef{MapSource::expression, "20 * step(0, y)"});
  const StrandSetPtr half = fixture.run(*op, {});
  const double expected = 10.0 * fixture.scalp->area();
  EXPECT_NEAR(static_cast<double>(half->strandCount()), expected, 0.05 * expected);
  for (const StrandRoot root : half->roots()) {
    EXPECT_GE(fixture.scalp->positionAt(root).y, -1e-4f);
  }
  op->parameters.set("density", MapRef{MapSource::expression, "0"});
  EXPECT_EQ(fixture.run(*op, {})->strandCount(), 0u);
  op->parameters.set("density", MapRef{MapSource::guide, "curliness", MapComponent::r, 0, 10});
  EXPECT_GT(fixture.run(*op, {})->strandCount(), 0u);
  op->parameters.set("density", MapRef{MapSource::guide, "absent"});
  fixture.expectError(*op, {}, "no guide carries the layer 'absent'");
  op->parameters.set("density", MapRef{MapSource::attribute, "absent"});
  fixture.expectError(*op, {},
                      "param 'density': no strands yet, so 'absent' must be a layer painted on the "
                      "guides, with the guides connected to this node");
}

/// The stream that IDs and roots come from, written out once more.
TEST(Scatter, IdsAndRootsAreThoseOfTheStream) {
  OpsFixture fixture;
  // A triangle of area 50 and one without any.
  fixture.scalp = std::make_shared<const ScalpMesh>(
      std::vector<Vec3f>{{0, 0, 0}, {10, 0, 0}, {0, 0, 10}, {5, 0, 0}},
      std::vector<ScalpMesh::Triangle>{{0, 3, 1}, {0, 2, 1}});
  fixture.context.surface = fixture.scalp;
  const auto op = fixture.make("Scatter");
  op->parameters.set("density", 0.73);
  op->parameters.set("seed", std::int64_t{-4});
  const StrandSetPtr set = fixture.run(*op, {});
  const std::uint64_t key = hashCombine(mix64(static_cast<std::uint64_t>(-4)), 1);
  const std::size_t count = 36 + (0.5 > unitFloat(mix64(key)) ? 1 : 0);
  ASSERT_EQ(set->strandCount(), count);
  for (std::size_t j = 0; j < count; ++j) {
    EXPECT_EQ(set->ids()[j], hashCombine(key, j));
    const std::uint64_t r = mix64(set->ids()[j]);
    const float a = std::sqrt(unitFloat(mix64(r + 0x3C6EF372FE94F82Aull)));
    const float b = unitFloat(mix64(r + 0xDAA66D2C7DDF743Full));
    EXPECT_EQ(set->roots()[j], (StrandRoot{1, (1.0f - b) * a, b * a}));
  }
  // A map thins by the strand's own draw.
  op->parameters.set("density", MapRef{MapSource::expression, "0.73 * (x < 4)"});
  std::vector<std::uint64_t> kept;
  for (std::size_t j = 0; j < count; ++j) {
    if (fixture.scalp->positionAt(set->roots()[j]).x < 4.0f) kept.push_back(set->ids()[j]);
  }
  const StrandSetPtr thinned = fixture.run(*op, {});
  EXPECT_EQ(std::vector(thinned->ids().begin(), thinned->ids().end()), kept);
}

TEST(Scatter, FindsWhereAFormulaIsHighWithinATriangle) {
  OpsFixture fixture;
  auto quad = std::make_shared<ScalpMesh>(test::makeQuad());
  fixture.scalp = quad;
  fixture.context.surface = quad;
  const double area = quad->area();
  for (const char* middle : {"0.5", "0.4", "0.93"}) {
    const auto op = fixture.make("Scatter");
    op->parameters.set(
        "density", MapRef{MapSource::expression,
                          std::to_string(20000.0 / area) + " * (abs(u - " + middle + ") < 0.05)"});
    const auto found = static_cast<double>(fixture.run(*op, {})->strandCount());
    EXPECT_NEAR(found, 2000.0, 150.0) << middle;
  }
}

TEST(Scatter, ReadsMapsOnTheMeshThatItGrowsOn) {
  // Another mesh stands in the scene as the scalp; its colours must not count.
  OpsFixture fixture;
  auto scene = std::make_shared<ScalpMesh>(*fixture.scalp);
  scene->setColorSet("where", std::vector<Vec4f>(3 * scene->triangleCount(), Vec4f{0, 0, 0, 1}));
  fixture.context.surface = scene;
  auto mesh = std::make_shared<ScalpMesh>(*fixture.scalp);
  mesh->setColorSet("where", std::vector<Vec4f>(3 * mesh->triangleCount(), Vec4f{1, 1, 1, 1}));
  fixture.scalp = mesh;
  const auto op = fixture.make("Scatter");
  op->parameters.set("density", MapRef{MapSource::colorSet, "where", MapComponent::r, 0, 5});
  const double expected = 5.0 * mesh->area();
  EXPECT_NEAR(static_cast<double>(fixture.run(*op, {})->strandCount()), expected, 0.1 * expected);
}

TEST(Scatter, OnlyWhatPlacesPlacesAnew) {
  OpsFixture fixture;
  const auto op = fixture.make("Scatter");
  op->parameters.set("density", 10.0);
  const auto fresh = [&](Operator& like) {
    const auto other = fixture.make("Scatter");
    other->parameters = like.parameters;
    return fixture.run(*other, {});
  };
  const auto expectFresh = [&](Operator& kept) {
    test::expectSameStrands(*fixture.run(kept, {}), *fresh(kept));
  };
  // Whatever was kept before, each setting gives what it gives alone.
  for (const double randomness : {1.0, 0.0, 0.5, 1.0, 1.5}) {
    op->parameters.set("randomness", randomness);
    expectFresh(*op);
    fixture.context.detail = 0.4f;
    expectFresh(*op);
    fixture.context.detail = 1.0f;
  }
  op->parameters.set("length", 3.0);
  expectFresh(*op);
  op->parameters.set("layout", std::string("uvGrid"));
  for (const std::int64_t rows : {20, 30, 20}) {
    op->parameters.set("gridRows", rows);
    expectFresh(*op);
  }
  op->parameters.set("gridRandom", 1.0);
  expectFresh(*op);
  const auto successor = fixture.make("Scatter");
  successor->parameters = op->parameters;
  successor->adoptState(*op);
  expectFresh(*successor);
}

TEST(Scatter, PreviewsObeyTheirBudgetAndPreviewAll) {
  OpsFixture fixture;
  const auto op = fixture.make("Scatter");
  op->parameters.set("density", 20000.0 / fixture.scalp->area());
  fixture.context.detail = 0.1f;
  const StrandSetPtr few = fixture.run(*op, {});
  EXPECT_NEAR(static_cast<double>(few->strandCount()), 5000.0, 300.0);  // the floor
  op->parameters.set("previewAll", true);
  const StrandSetPtr all = fixture.run(*op, {});
  EXPECT_NEAR(static_cast<double>(all->strandCount()), 20000.0, 300.0);
  fixture.resources.pointBudget = 9 * 8000;
  const auto held = static_cast<double>(fixture.run(*op, {})->strandCount());
  EXPECT_NEAR(held, 8000.0, 400.0);
}

TEST(Scatter, StaysNearGuidesWithinItsRadius) {
  OpsFixture fixture;
  const auto op = fixture.make("Scatter");
  op->parameters.set("density", 20.0);
  op->parameters.set("guideRadius", 1.0);
  const StrandSetPtr set = fixture.run(*op, {});
  EXPECT_GT(set->strandCount(), 100u);
  for (const StrandRoot root : set->roots()) {
    float nearest = 1e9f;
    for (const Guide& guide : fixture.guides->guides) {
      nearest = std::min(nearest, distance(guide.points[0], fixture.scalp->positionAt(root)));
    }
    EXPECT_LE(nearest, 1.0f);
  }
}

TEST(Scatter, AGridMakesOneRootPerCoveredCell) {
  OpsFixture fixture;
  const auto op = fixture.make("Scatter");
  op->parameters.set("layout", std::string("uvGrid"));
  op->parameters.set("gridRows", std::int64_t{20});
  op->parameters.set("gridColumns", std::int64_t{30});
  const StrandSetPtr set = fixture.run(*op, {});
  EXPECT_GT(set->strandCount(), 500u);
  EXPECT_LE(set->strandCount(), 600u);
  std::set<std::pair<int, int>> cells;
  for (const StrandRoot root : set->roots()) {
    const Vec2f uv = fixture.scalp->uvAt(root);
    const float column = uv.x * 30.0f - 0.5f, row = uv.y * 20.0f - 0.5f;
    EXPECT_NEAR(column, std::round(column), 1e-3f);
    EXPECT_NEAR(row, std::round(row), 1e-3f);
    EXPECT_TRUE(
        cells.insert({static_cast<int>(std::round(row)), static_cast<int>(std::round(column))})
            .second);
  }
  // IDs are the cells', and thinning goes by them.
  const std::uint64_t stream = mix64(0);
  std::set<std::uint64_t> ids;
  for (const auto& [row, column] : cells) {
    ids.insert(hashCombine(stream, static_cast<std::uint64_t>(30 * row + column)));
  }
  EXPECT_EQ(std::set(set->ids().begin(), set->ids().end()), ids);
  op->parameters.set("density", MapRef{MapSource::expression, "3 * (v < 0.5)"});
  std::set<std::uint64_t> lower;
  for (std::size_t i = 0; i < set->strandCount(); ++i) {
    if (fixture.scalp->uvAt(set->roots()[i]).y < 0.5f) lower.insert(set->ids()[i]);
  }
  const StrandSetPtr thinned = fixture.run(*op, {});
  EXPECT_EQ(std::set(thinned->ids().begin(), thinned->ids().end()), lower);
  // Jittered roots stay in their cells.
  op->parameters.set("density", 1.0);
  op->parameters.set("gridRandom", 1.0);
  const StrandSetPtr jittered = fixture.run(*op, {});
  EXPECT_GT(jittered->strandCount(), 400u);
  for (std::size_t i = 0; i < jittered->strandCount(); ++i) {
    const Vec2f uv = fixture.scalp->uvAt(jittered->roots()[i]);
    const auto cell =
        static_cast<std::uint64_t>(uv.y * 20.0f) * 30 + static_cast<std::uint64_t>(uv.x * 30.0f);
    EXPECT_EQ(jittered->ids()[i], hashCombine(stream, cell)) << uv.x << ' ' << uv.y;
  }
  for (const ParamValue& none : {ParamValue(0.0), ParamValue(MapRef{MapSource::expression, "0"})}) {
    op->parameters.set("density", none);
    EXPECT_EQ(fixture.run(*op, {})->strandCount(), 0u);
  }
}

/// Where triangles lie over each other in UV space the lowest has the cell, as many as there are.
TEST(Scatter, GridsOverPiledTrianglesTakeTheLowestAndNoTime) {
  std::vector<Vec3f> points;
  std::vector<ScalpMesh::Triangle> triangles;
  std::vector<Vec2f> uvs;
  for (int i = 0; i < 20000; ++i) {
    const auto first = static_cast<std::int32_t>(points.size());
    const float y = static_cast<float>(i);
    points.insert(points.end(), {{0, y, 0}, {1, y, 0}, {0, y, 1}});
    triangles.push_back({first, first + 1, first + 2});
    // The first covers a corner, all others the same half of the square.
    const float size = i == 0 ? 0.5f : 1.0f;
    uvs.insert(uvs.end(), {{0, 0}, {size, 0}, {0, size}});
  }
  ScalpMesh mesh(points, triangles);
  mesh.setUvs(uvs);
  const GridCandidates grid = scatterUvGrid(mesh, 400, 400, 0.0f, 1, 1.0f);
  EXPECT_NEAR(static_cast<double>(grid.roots.size()), 80000.0, 500.0);
  for (const StrandRoot root : grid.roots) EXPECT_LE(root.face, 1);
  EXPECT_NEAR(static_cast<double>(std::count_if(grid.roots.begin(), grid.roots.end(),
                                                [](StrandRoot root) { return root.face == 0; })),
              20000.0, 300.0);
}

TEST(Scatter, RefusesWhatCannotBe) {
  OpsFixture fixture;
  const auto with = [&](const char* name, ParamValue value) {
    auto op = fixture.make("Scatter");
    op->parameters.set(name, std::move(value));
    return op;
  };
  auto op = with("density", 1e9);
  fixture.expectError(*op, {}, "Scatter: density would create more than 50M strands");
  op = with("density", std::numeric_limits<double>::infinity());
  fixture.expectError(*op, {}, "Scatter: density would create more than 50M strands");
  const ScalpMeshPtr sphere = fixture.scalp;
  fixture.scalp =
      std::make_shared<const ScalpMesh>(std::vector<Vec3f>{{0, 0, 0}, {INFINITY, 0, 0}, {0, 0, 1}},
                                        std::vector<ScalpMesh::Triangle>{{0, 2, 1}});
  op = with("density", 1.0);
  fixture.expectError(*op, {}, "Scatter: the density (or the scalp's area) is not a finite number");
  fixture.scalp = sphere;
  op = with("layout", std::string("uvGrid"));
  op->parameters.set("gridRows", std::int64_t{20000});
  op->parameters.set("gridColumns", std::int64_t{20000});
  fixture.expectError(*op, {}, "Scatter: the grid would create more than 50M strands");
  op = with("density", 30e6 / fixture.scalp->area());
  fixture.context.resampleSegments = 16;
  fixture.expectError(*op, {},
                      "Scatter: 510M points (strands x 17) is more than memory holds: lower the "
                      "density or the Resample's segments");
  fixture.context.detail = 0.2f;
  fixture.expectError(*op, {},
                      "Scatter: the preview would have 102M points (6000k strands x 17): lower the "
                      "preview density, density or the Resample's segments");
  auto bare = std::make_shared<ScalpMesh>(fixture.scalp->points(), fixture.scalp->triangles());
  fixture.scalp = bare;
  op = with("layout", std::string("uvGrid"));
  fixture.expectError(*op, {}, "Scatter: the uvGrid layout needs the scalp's UVs");
  auto pointless = std::make_shared<GuideSet>();
  pointless->guides.resize(2);
  for (const GuideSetPtr& none : {GuideSetPtr(), GuideSetPtr(pointless)}) {
    fixture.guides = none;
    op = with("guideRadius", 1.0);
    fixture.expectError(*op, {},
                        "Scatter: guideRadius needs guides on the guides input (a Guides node)");
  }
}

TEST(PreviewShare, KeepsSmallSetsWholeAndObeysTheBudget) {
  EXPECT_EQ(previewShare(0.1, 5000, 17, 0, false), 1.0);
  EXPECT_EQ(previewShare(0.1, 5001, 17, 0, false), 1.0);
  EXPECT_EQ(previewShare(0.1, 10000, 17, 0, false), 0.5);
  EXPECT_EQ(previewShare(0.001, 200000, 17, 0, false), 1.0 / 32);
  EXPECT_EQ(previewShare(0.001, 400000, 17, 0, false), 0.03);
  EXPECT_EQ(previewShare(0.1, 1e6, 17, 0, true), 1.0);
  EXPECT_DOUBLE_EQ(previewShare(1.0, 1e6, 10, 2000000, false), 0.2);
}

TEST(RelaxRoots, FewRootsStayAndBordersHoldThemInside) {
  const ScalpMesh grid = test::makeGrid(8);
  const std::vector<StrandRoot> one{{0, 0.2f, 0.3f}};
  EXPECT_EQ(relaxRoots(grid, one, std::vector<float>{1.0f}, 0), one);
  // Coincident roots part, and none leaves the patch.
  std::vector<StrandRoot> pile(40, StrandRoot{5, 0.3f, 0.3f});
  const float radius = evenSpacing(40.0 / grid.area());
  const auto spread = relaxRoots(grid, pile, std::vector<float>(40, radius), 3);
  std::vector<Vec3f> places;
  for (const StrandRoot root : spread) {
    EXPECT_TRUE(grid.hasFace(root.face));
    EXPECT_GE(std::min({root.u, root.v, 1.0f - root.u - root.v}), -1e-4f);
    places.push_back(grid.positionAt(root));
  }
  const KdTree tree(places);
  for (const Vec3f p : places) {
    KdHit hits[2];
    tree.nearest(p, hits);
    EXPECT_GT(hits[1].distanceSquared, 0.0f);
  }
}

}  // namespace
}  // namespace kestrane
