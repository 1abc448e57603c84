// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <set>

#include "core/data/polyline.h"
#include "core/guides/parts.h"
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

TEST(Interpolate, RepaintedRegionsAreSeenAndTheirChannelIsOptional) {
  OpsFixture fixture;
  const auto paint = [&](float red) {
    auto mesh = std::make_shared<ScalpMesh>(*fixture.scalp);
    std::vector<Vec4f> colors;
    for (std::size_t t = 0; t < mesh->triangleCount(); ++t) {
      const bool right = mesh->positionAt({static_cast<std::int32_t>(t), 0.3f, 0.3f}).x > 0;
      for (int k = 0; k < 3; ++k) colors.push_back({right ? red : 0.0f, 0, right ? 0.0f : 1.0f, 1});
    }
    mesh->setColorSet("sides", colors);
    fixture.scalp = mesh;
    fixture.context.surface = mesh;
  };
  paint(1.0f);
  const auto op = fixture.make("Interpolate");
  op->parameters.set("regionMap", std::string("sides"));
  const StrandSet strands = fixture.rootedStrands(300);
  const auto fresh = [&] {
    const auto other = fixture.make("Interpolate");
    other->parameters = op->parameters;
    return fixture.run(*other, strands);
  };
  const StrandSetPtr before = fixture.run(*op, strands);
  // Both sides in one colour: all guides are one region.
  auto plain = std::make_shared<ScalpMesh>(*fixture.scalp);
  plain->setColorSet("sides", std::vector<Vec4f>(3 * plain->triangleCount(), Vec4f{0, 1, 0, 1}));
  fixture.scalp = plain;
  fixture.context.surface = plain;
  const StrandSetPtr after = fixture.run(*op, strands);
  test::expectSameStrands(*after, *fresh());
  EXPECT_NE(*after->strandChannel("region"), *before->strandChannel("region"));
  op->parameters.set("regionChannel", std::string());
  EXPECT_EQ(fixture.run(*op, strands)->strandChannel("region"), nullptr);
  op->parameters.set("regionMap", std::string("curliness"));
  fixture.expectError(*op, strands,
                      "map 'curliness': a guide layer holds numbers, not the colors that regions "
                      "are told by");
}

TEST(Interpolate, OpposedGuidesStretchAStrandToTwiceAtMost) {
  OpsFixture fixture;
  auto guides = std::make_shared<GuideSet>();
  const Vec3f root = fixture.scalp->closestPoint({0, 20, 0}).position;
  for (const float way : {-1.0f, 1.0f}) {
    Guide guide;
    guide.id = way < 0 ? 1 : 2;
    guide.points = {root + Vec3f{0.5f * way, 0, 0}, root + Vec3f{0.5f * way + 3.0f * way, 0.3f, 0}};
    guides->guides.push_back(std::move(guide));
  }
  fixture.guides = guides;
  StrandSet strands;
  const SurfaceHit hit = fixture.scalp->closestPoint(root);
  strands.addStrand(1, hit.root, std::vector<Vec3f>(9, hit.position));
  const auto lengthAt = [&](bool preserve) {
    const auto op = fixture.make("Interpolate");
    op->parameters.set("keepClearance", false);
    op->parameters.set("preserveLength", preserve);
    return polylineLength(fixture.run(*op, strands)->strandPoints(0));
  };
  EXPECT_NEAR(lengthAt(true), 2.0f * lengthAt(false), 1e-3f);
  EXPECT_LT(lengthAt(true), 2.5f);
}

TEST(Interpolate, NeedsStrandsAndLeavesBrokenGuidesOut) {
  OpsFixture fixture;
  const auto op = fixture.make("Interpolate");
  try {
    op->evaluate(fixture.context, std::vector<GraphValue>(3));
    ADD_FAILURE();
  } catch (const GraphError& error) {
    EXPECT_STREQ(error.what(), "Interpolate: strands input not connected");
  }
  auto guides = editable(fixture);
  guides->guides[3].points[5].y = NAN;
  guides->guides[4].points.resize(1);
  fixture.guides = guides;
  const StrandSetPtr grown = fixture.run(*op, fixture.rootedStrands(500));
  EXPECT_TRUE(grown->extent().finite);
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
  for (const float above : {0.1f, 0.5f, 2.0f}) {
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
