// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

// How Curl runs: over clumps, on several threads, over changed strands, and on odd input.

#include <set>

#include "core/base/parallel.h"
#include "core/graph/graph.h"
#include "core/graph/graph_evaluation.h"
#include "tests/ops/curl_fixtures.h"

namespace kestrane {
namespace {

using test::OpsFixture;
using test::plainCurl;
using test::upright;

/// Strands of several clumps side by side, all of a clump parallel; the first strand of each clump
/// is half as long, the last two strands are in no clump.
StrandSet clumped(std::size_t clumps, std::size_t each) {
  StrandSet set;
  std::vector<float> numbers;
  for (std::size_t c = 0; c < clumps; ++c) {
    for (std::size_t i = 0; i < each; ++i) {
      std::vector<Vec3f> points;
      const float size = i == 0 ? 4.0f : 8.0f;
      for (int k = 0; k < 33; ++k) {
        const float s = size * static_cast<float>(k) / 32.0f;
        points.push_back(
            {3.0f * static_cast<float>(c) + std::sin(0.2f * s), s, 0.1f * static_cast<float>(i)});
      }
      set.addStrand(1000 * (c + 1) + i, {}, points);
      numbers.push_back(static_cast<float>(c) + 7.0f);
    }
  }
  for (const std::uint64_t id : {1, 2}) {
    set.addStrand(id, {}, std::vector<Vec3f>{{-9, 0, 0}, {-9, 4, 0}, {-9, 8, 0}});
    numbers.push_back(-1.0f);
  }
  auto& channel = set.addStrandChannel("lockId", 0.0f);
  std::copy(numbers.begin(), numbers.end(), channel.begin());
  return set;
}

TEST(Curl, StrandsOfAClumpShareOnePhaseFrequencyAndPlane) {
  OpsFixture fixture;
  const StrandSet strands = clumped(5, 6);
  for (const char* shape : {"helix", "wave", "zigzag"}) {
    SCOPED_TRACE(shape);
    const auto op = fixture.make("Curl");
    op->parameters.set("shape", std::string(shape));
    op->parameters.set("coherence", std::string("clump"));
    op->parameters.set("clumpChannel", std::string("lockId"));
    op->parameters.set("profile", Ramp({{0.0f, 1.0f}}));
    op->parameters.set("tolerance", 0.0);
    op->parameters.set("spacingRandom", 0.5);
    op->parameters.set("randomness", 0.5);
    op->parameters.set("frequencyProfile", Ramp({{0.0f, 1.0f}, {1.0f, 0.3f}}));
    const StrandSetPtr curled = fixture.run(*op, strands);
    const auto offset = [&](std::size_t strand, std::size_t point) {
      return curled->strandPoints(strand)[point] - strands.strandPoints(strand)[point];
    };
    std::set<float> radii;
    for (std::size_t c = 0; c < 5; ++c) {
      for (std::size_t i = 0; i < 6; ++i) {
        // At one length from the root all point one way, the short one too.
        for (std::size_t k = 4; k <= 16; ++k) {
          const Vec3f first = offset(6 * c + 1, k), own = offset(6 * c + i, i == 0 ? 2 * k : k);
          EXPECT_NEAR(length(cross(normalize(first), normalize(own))), 0.0f, 2e-2f);
          EXPECT_GE(dot(first, own), -1e-4f);
        }
        if (std::string(shape) == "helix") radii.insert(length(offset(6 * c + i, 32)));
      }
    }
    if (std::string(shape) != "helix") continue;
    const auto way = [&](std::size_t strand, std::size_t point) {
      return normalize(offset(strand, point));
    };
    EXPECT_GT(radii.size(), 20u) << "each strand has its own radius";
    EXPECT_LT(dot(way(1, 20), way(7, 20)), 0.999f) << "each clump has its own turns";
    EXPECT_LT(dot(way(1, 20), way(1, 32)), 0.99f) << "they go on past the short strand's tip";
    EXPECT_LT(dot(way(30, 2), way(31, 2)), 0.999f) << "in no clump a strand curls on its own";
  }
}

TEST(Curl, StrandsOfAClumpLieInItsPlaneHoweverTheySpread) {
  OpsFixture fixture;
  StrandSet strands;
  for (int i = 0; i < 2; ++i) {
    const Vec3f way = normalize(Vec3f{0, 1, 0.5f * static_cast<float>(i)});
    std::vector<Vec3f> points;
    for (int k = 0; k < 60; ++k) points.push_back(way * (0.1f * static_cast<float>(k)));
    strands.addStrand(static_cast<std::uint64_t>(i), {}, points);
  }
  strands.addStrandChannel("clumpId", 4.0f);
  const auto op = plainCurl(fixture, "wave");
  op->parameters.set("coherence", std::string("clump"));
  const StrandSetPtr curled = fixture.run(*op, strands);
  for (std::size_t k = 1; k < 60; ++k) {
    const Vec3f a = curled->strandPoints(0)[k] - strands.strandPoints(0)[k];
    const Vec3f b = curled->strandPoints(1)[k] - strands.strandPoints(1)[k];
    EXPECT_NEAR(distance(a, b), 0.0f, 1e-4f);
  }
}

TEST(Curl, SaysWhichClumpsItMisses) {
  OpsFixture fixture;
  const auto op = fixture.make("Curl");
  op->parameters.set("coherence", std::string("clump"));
  op->parameters.set("clumpChannel", std::string("lockId"));
  fixture.expectError(*op, upright(3, 1.0f),
                      "Curl: coherence clump needs a Clump before it (no 'lockId' channel)");
}

TEST(Curl, ThreadsGiveTheSameBytes) {
  OpsFixture fixture;
  const StrandSet strands = fixture.rootedStrands(3000, 6);
  for (const char* shape : {"helix", "zigzag", "coil"}) {
    for (const char* coherence : {"strand", "clump"}) {
      for (const double frequency : {0.1, 3.0}) {
        SCOPED_TRACE(std::string(shape) + " " + coherence);
        const auto op = fixture.make("Curl");
        op->parameters.set("shape", std::string(shape));
        op->parameters.set("coherence", std::string(coherence));
        op->parameters.set("frequency", frequency);
        op->parameters.set("spacingRandom", 0.3);
        setThreadCount(1);
        const StrandSetPtr one = fixture.run(*op, strands);
        setThreadCount(0);
        test::expectSameStrands(*one, *fixture.run(*op, strands));
        test::expectValidGroom(*one);
      }
    }
  }
}

TEST(Curl, LivesThroughNumbersOfEverySize) {
  OpsFixture fixture;
  StrandSet strands = fixture.rootedStrands(8, 5);
  strands.addStrand(70, {}, std::vector<Vec3f>(4, Vec3f{1, 1, 1}));
  strands.addStrand(71, {}, std::vector<Vec3f>{{0, 0, 0}, {NAN, 1, 0}, {0, 2, 0}});
  strands.addStrand(72, {}, std::vector<Vec3f>{{0, 0, 0}, {1e30f, 0, 0}});
  strands.addStrand(73, {}, std::vector<Vec3f>{{0, 0, 0}, {1e-30f, 0, 0}});
  strands.addStrand(74, {}, std::vector<Vec3f>{{0, 0, 0}, {1e18f, 0, 0}});
  for (float& number : *strands.mutableStrandChannel("clumpId")) number = 3.0f;
  const double numbers[] = {1e300, -1e300, 1e9, 1e-300, 0.0, -0.4};
  for (const char* shape : {"helix", "zigzag"}) {
    for (const char* coherence : {"strand", "clump"}) {
      for (const double number : numbers) {
        SCOPED_TRACE(std::string(shape) + " " + coherence + " " + std::to_string(number));
        const auto op = fixture.make("Curl");
        op->parameters.set("shape", std::string(shape));
        op->parameters.set("coherence", std::string(coherence));
        op->parameters.set("frequency", number);
        op->parameters.set("phase", number);
        op->parameters.set("spacingRandom", 1.0);
        op->parameters.set("frequencyProfile", Ramp({{0.0f, 1.0f}, {0.5f, -2.0f}, {1.0f, 3.0f}}));
        op->parameters.set("tolerance", 1e-9);
        const StrandSetPtr curled = fixture.run(*op, strands);
        for (std::size_t i = 0; i < 8; ++i) {
          EXPECT_LE(curled->strandPoints(i).size(), 257u);
          for (const Vec3f p : curled->strandPoints(i)) EXPECT_TRUE(isFinite(p));
        }
        // What has no length, or none that is finite, stays to the bit.
        for (const std::size_t i : {8u, 9u, 10u, 11u}) {
          const auto before = strands.strandPoints(i), after = curled->strandPoints(i);
          ASSERT_EQ(before.size(), after.size());
          EXPECT_EQ(std::memcmp(before.data(), after.data(), before.size_bytes()), 0) << i;
        }
      }
    }
  }
}

/// Scalp, Scatter, Guides and Interpolate, with a Curl behind.
struct CurlGraph {
  OpsFixture fixture;
  Graph graph;
  std::uint32_t curl = 0;

  CurlGraph() {
    const auto add = [&](const char* type) { return graph.addNode(fixture.make(type), type); };
    const auto scalp = add("Scalp"), scatter = add("Scatter"), guides = add("Guides");
    const auto grow = add("Interpolate");
    curl = add("Curl");
    graph.connect(scalp, scatter, 0);
    graph.connect(scatter, grow, 0);
    graph.connect(guides, grow, 1);
    graph.connect(scalp, grow, 2);
    graph.connect(grow, curl, 0);
    graph.node(scatter).op->parameters.set("density", 0.3);
    graph.node(curl).op->parameters.set("frequency", 0.2);
  }
  void moveGuide(std::size_t which) {
    auto moved = std::make_shared<GuideSet>(*fixture.guides);
    for (std::size_t k = 1; k < moved->guides[which].points.size(); ++k) {
      moved->guides[which].points[k] += Vec3f{0.03f, 0, 0.02f} * static_cast<float>(k);
    }
    fixture.guides = moved;
    fixture.scene.set("guides", {fixture.guides, 0.0, ++revision});
  }
  StrandSetPtr result() { return valueAs<StrandSet>(evaluate(graph, curl, fixture.context)[0]); }
  std::string run() const { return graph.reports.at(curl).run; }
  std::uint64_t revision = 1;
};

TEST(Curl, RunsTheChangedStrandsAloneUntilPointsAreAddedOrStrandsLookAtOthers) {
  const bool verified = verifyIncremental();
  setVerifyIncremental(true);
  const auto runAfter = [](const auto& prepare) {
    CurlGraph t;
    prepare(t.graph.node(t.curl).op->parameters);
    if (!t.result()) ADD_FAILURE();
    t.moveGuide(3);
    const StrandSetPtr moved = t.result();
    const std::string run = t.run();
    t.graph.node(t.curl).cache.cached = false;
    test::expectSameStrands(*moved, *t.result());
    return run;
  };
  EXPECT_TRUE(runAfter([](ParamSet&) {}).starts_with("incremental "));
  for (const char* shape : {"wave", "zigzag", "coil"}) {
    EXPECT_TRUE(runAfter([&](ParamSet& params) {
                  params.set("shape", std::string(shape));
                  params.set("tolerance", 0.0);
                  params.set("frequency", 5.0);
                }).starts_with("incremental "))
        << shape;
  }
  EXPECT_TRUE(runAfter([](ParamSet& params) { params.set("frequency", 5.0); }).starts_with("full"));
  EXPECT_TRUE(runAfter([](ParamSet& params) {
                params.set("radius", MapRef{MapSource::expression, "0.1 * longest"});
              }).starts_with("full"));
  setVerifyIncremental(verified);
}

TEST(Curl, AStrandThatNowNeedsPointsIsFoundAmongTheChanged) {
  OpsFixture fixture;
  const auto op = plainCurl(fixture);
  op->parameters.set("frequency", 0.5);
  StrandSet before = upright(17, 4.0f, 50);
  StrandSet after = before;
  after.mutablePoints()[17 * 20 + 16].y = 14.0f;
  const auto changes = std::make_shared<const StrandChanges>(StrandChanges{false, {20}});
  const auto tried = [&](const StrandSet& from, const StrandSet& to) {
    std::vector<GraphValue> previous{fixture.run(*op, from)};
    const std::vector<GraphValue> inputs{std::make_shared<const StrandSet>(to)};
    const std::vector<StrandChangesPtr> list{changes};
    IncrementalState state{previous, list, inputs, true};
    GraphValue result;
    StrandChangesPtr changed;
    const bool made = op->evaluateChanged(fixture.context, inputs, state, result, changed);
    EXPECT_EQ(isEmpty(previous[0]), made) << "what is declined is left whole";
    return made;
  };
  EXPECT_FALSE(tried(before, after));
  EXPECT_FALSE(tried(after, before)) << "the previous result has added points";
  StrandSet moved = before;
  moved.mutablePoints()[17 * 20 + 16].x = 0.2f;
  EXPECT_TRUE(tried(before, moved));
  for (StrandSet* set : {&before, &moved}) set->addStrandChannel("clumpId", 1.0f);
  op->parameters.set("coherence", std::string("clump"));
  EXPECT_FALSE(tried(before, moved)) << "the whole clump moves";
}

}  // namespace
}  // namespace kestrane
