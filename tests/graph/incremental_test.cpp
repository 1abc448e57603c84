// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "tests/graph/test_operators.h"

namespace kestrane {
namespace {

using test::expectSameStrands;
using test::TestGraph;

/// Guides, strands grown from them and operators behind.
struct Chain : TestGraph {
  explicit Chain(const std::vector<std::string>& types, std::size_t guideCount = 20) {
    setGuides(guideCount);
    add("TestGuides");
    last = then("TestGrow");
    for (const std::string& type : types) last = then(type);
  }
  StrandSetPtr result() { return strands(last); }
  /// The same evaluation by a graph that never saw anything else.
  StrandSetPtr afresh() {
    Chain fresh({});
    fresh.graph = graph.copyNodes();
    fresh.scene = scene;
    return fresh.strands(last);
  }
  std::uint32_t last = 0;
};

const std::vector<std::string> longChain{"TestMove", "TestTint", "TestRefine", "TestMove"};

TEST(Incremental, AMovedGuideRunsItsOwnStrandsAlone) {
  Chain t(longChain);
  t.result();
  const auto before = t.graph.nodesEvaluated;
  t.setGuides(20, {3, 4, 11});
  const StrandSetPtr moved = t.result();
  expectSameStrands(*moved, *t.afresh());
  EXPECT_EQ(t.graph.nodesEvaluated, before + 6);
  EXPECT_EQ(t.graph.nodesIncremental, 5u);
  EXPECT_EQ(t.run(1), "full");
  for (std::uint32_t id = 2; id <= t.last; ++id) EXPECT_EQ(t.run(id), "incremental 9") << id;
  EXPECT_THAT(t.graph.node(t.last).cache.changes[0]->strands,
              testing::ElementsAre(9, 10, 11, 12, 13, 14, 33, 34, 35));
}

TEST(Incremental, SwitchesAndOwnChangesMakeItWhole) {
  Chain t({"TestMove", "TestTint"});
  t.result();
  t.setGuides(20, {1});
  t.params(3).set("amount", 2.0);
  expectSameStrands(*t.result(), *t.afresh());
  EXPECT_EQ(t.run(3), "full") << "its own parameter moved too";
  EXPECT_EQ(t.run(4), "full");

  setIncrementalEvaluation(false);
  t.setGuides(20, {2});
  expectSameStrands(*t.result(), *t.afresh());
  setIncrementalEvaluation(true);
  EXPECT_EQ(t.run(4), "full");
}

TEST(Incremental, AListOnlyCountsFromTheRevisionThatWasSeen) {
  Chain t({"TestMove"});
  const auto side = t.add("TestTint");
  t.graph.connect(t.last, side, 0);
  t.strands(side);
  t.setGuides(20, {1});
  t.result();  // the side branch misses this change
  t.setGuides(20, {1, 5});
  t.result();
  const StrandSetPtr late = t.strands(side);
  EXPECT_EQ(t.run(side), "full");
  t.graph.node(side).cache.cached = false;
  expectSameStrands(*late, *t.strands(side));
}

TEST(Incremental, OperatorsWithoutThePathAreComparedWithTheirLastResult) {
  Chain t({"TestMove", "TestTint"});
  t.params(3).set("whole", true);
  t.result();
  t.setGuides(20, {6});
  expectSameStrands(*t.result(), *t.afresh());
  EXPECT_EQ(t.run(3), "full 3");
  EXPECT_EQ(t.run(4), "incremental 3");

  setDiffOutputs(false);
  t.setGuides(20, {7});
  expectSameStrands(*t.result(), *t.afresh());
  setDiffOutputs(true);
  EXPECT_EQ(t.run(3), "full");
  EXPECT_EQ(t.run(4), "full");
}

TEST(Incremental, NodesThatHandTheirInputOnHandItsChangesOnToo) {
  Chain t({"TestMove", "TestMove"});
  auto op = std::make_unique<test::Custom>();
  const auto handOn = t.addOp(std::move(op));
  t.graph.connect(t.last, handOn, 0);
  const auto end = t.then("TestTint");
  t.params(3).set("affect", 0.0);
  t.graph.node(4).bypass = true;
  EXPECT_EQ(t.strands(4), t.strands(2));
  t.strands(end);
  t.setGuides(20, {0});
  const StrandSetPtr moved = t.strands(end);
  EXPECT_EQ(t.run(3), "bypass");
  EXPECT_EQ(t.run(4), "bypass");
  EXPECT_EQ(t.run(handOn), "full 3");
  EXPECT_EQ(t.run(end), "incremental 3");
  t.graph.node(end).cache.cached = false;
  expectSameStrands(*moved, *t.strands(end));
}

TEST(Incremental, EqualResultsKeepTheirRevision) {
  TestGraph t;
  GraphValue fixed = std::make_shared<const StrandSet>(test::makeStrands(4, 3));
  auto op = std::make_unique<test::Custom>();
  op->ins = {{"guides", PortType::guides}};
  op->make = [&](const EvalContext&, auto) { return std::vector<GraphValue>{fixed}; };
  t.setGuides(3);
  t.add("TestGuides");
  const auto id = t.addOp(std::move(op));
  t.graph.connect(1, id, 0);
  const auto end = t.then("TestMove");
  const StrandSetPtr first = t.strands(end);
  const auto revision = t.graph.node(id).cache.revision;
  t.setGuides(3, {1});
  t.strands(end);
  EXPECT_EQ(t.graph.node(id).cache.revision, revision);
  EXPECT_EQ(t.run(end), "incremental 0");
}

/// How the arrays of a 3-node chain fare while guides move: who holds what, by address.
TEST(Incremental, AMoveCopiesNoArray) {
  const test::Verifying recycling(false);
  Chain t({"TestMove", "TestTint", "TestRefine"});
  t.result();
  const auto addresses = [&] {
    std::vector<const void*> found;
    for (const std::uint32_t id : {2u, 3u, 4u, 5u}) {
      const auto set = valueAs<StrandSet>(t.graph.node(id).cache.outputs[0]);
      found.push_back(set->points().data());
      found.push_back(set->widths().data());
      for (const std::string& name : set->strandChannelNames()) {
        found.push_back(set->strandChannel(name)->data());
      }
    }
    return found;
  };
  const auto before = addresses();
  const auto avoided = StrandSet::avoidedCopies();
  t.setGuides(20, {2, 9});
  // The result itself is let go, as a session does that holds its own copy of what it shows.
  expectSameStrands(*t.result(), *t.afresh());
  EXPECT_EQ(t.run(5), "incremental 6");
  EXPECT_EQ(addresses(), before) << "every array is the one that was there";
  EXPECT_GE(StrandSet::avoidedCopies() - avoided, 6u);
}

TEST(Incremental, WhatOthersHoldStaysAsItWas) {
  Chain t(longChain);
  const StrandSetPtr held = t.result();
  const StrandSetPtr middle = t.strands(4);
  const std::uint64_t hash = held->contentHash(), middleHash = middle->contentHash();
  for (std::size_t round = 0; round < 3; ++round) {
    t.setGuides(20, {round, round + 5});
    expectSameStrands(*t.result(), *t.afresh());
    EXPECT_EQ(held->contentHash(), hash);
    EXPECT_EQ(middle->contentHash(), middleHash);
  }
}

TEST(Incremental, AFailureBetweenLeavesNothingHalfMade) {
  Chain t({"TestMove"});
  bool fail = false;
  auto op = std::make_unique<test::Custom>();
  op->make = [&](const EvalContext&, std::span<const GraphValue> in) {
    if (fail) throw GraphError("no");
    return std::vector<GraphValue>{in[0]};
  };
  const auto middle = t.addOp(std::move(op), "middle");
  t.graph.connect(t.last, middle, 0);
  const auto end = t.then("TestTint");
  t.strands(end);
  fail = true;
  t.setGuides(20, {4});
  EXPECT_EQ(t.error(end), "node 'middle': no");
  fail = false;
  const StrandSetPtr result = t.strands(end);
  t.graph.node(end).cache.cached = false;
  expectSameStrands(*result, *t.strands(end));
  // The scene as it was at first finds no leftovers either.
  t.setGuides(20);
  const StrandSetPtr back = t.strands(end);
  for (auto& [id, node] : t.graph.nodes()) node.cache.cached = false;
  expectSameStrands(*back, *t.strands(end));
}

/// A parameter that makes a node fail and is then put back.
TEST(Incremental, AFailureOfWhatWasEditedKeepsTheResultsBelow) {
  const test::Verifying recycling(false);
  Chain t({"TestMove"});
  auto op = std::make_unique<test::Custom>();
  op->specs = {param("fail", false, "")};
  const auto* parameters = &op->parameters;
  op->make = [parameters](const EvalContext&, std::span<const GraphValue> in) {
    if (parameters->boolean("fail")) throw GraphError("no");
    return std::vector<GraphValue>{std::make_shared<const StrandSet>(*valueAs<StrandSet>(in[0]))};
  };
  const auto edited = t.addOp(std::move(op), "edited");
  t.graph.connect(t.last, edited, 0);
  t.then("TestTint");
  t.then("TestMove");
  const auto end = t.then("TestRefine");
  t.params(edited).set("fail", false);
  // Held by its node alone, as otherwise nothing would be taken out of it.
  const std::uint64_t hash = t.strands(end)->contentHash();
  const auto count = t.graph.nodesEvaluated;
  t.params(edited).set("fail", true);
  EXPECT_EQ(t.error(end), "node 'edited': no");
  t.params(edited).set("fail", false);
  EXPECT_EQ(t.strands(end)->contentHash(), hash);
  EXPECT_EQ(t.graph.nodesEvaluated, count);
}

TEST(Incremental, AnotherOutputOfTheSameSourceIsAChange) {
  TestGraph t;
  auto op = std::make_unique<test::Custom>();
  op->ins.clear();
  op->outs.push_back({"other", PortType::strands});
  op->make = [](const EvalContext&, auto) {
    std::vector<GraphValue> made;
    for (const std::uint64_t seed : {1, 2}) {
      made.push_back(std::make_shared<const StrandSet>(test::makeStrands(4, 3, seed)));
    }
    return made;
  };
  const auto source = t.addOp(std::move(op));
  const auto handOn = t.then("TestMove"), end = t.then("TestMove");
  t.params(handOn).set("affect", 0.0);
  t.strands(end);
  for (const std::size_t output : {1, 0}) {
    t.graph.connect(source, handOn, 0, output);
    const StrandSetPtr made = t.strands(end);
    t.graph.node(end).cache.cached = false;
    expectSameStrands(*made, *t.strands(end));
  }
}

TEST(Incremental, AnyRoundOfChangesEqualsAFreshEvaluationThreads) {
  for (const std::size_t threads : {1u, 7u}) {
    runWithThreads(threads, [] {
      const test::Verifying verifying;
      Chain t(longChain), quick(longChain);
      for (std::uint64_t round = 0; round < 40; ++round) {
        const std::uint64_t draw = mix64(round);
        for (Chain* chain : {&t, &quick}) {
          setVerifyIncremental(chain == &t);
          switch (draw % 6) {
            case 0:
              chain->params(3).set("amount", static_cast<double>(draw % 17));
              break;
            case 1:
              chain->graph.node(4).bypass = !chain->graph.node(4).bypass;
              break;
            case 2:
              chain->params(6).set("whole", (draw & 64) != 0);
              break;
            default:
              chain->setGuides(draw % 11 == 0 ? 19 : 20, {draw % 20, (draw >> 8) % 19});
          }
        }
        setVerifyIncremental(true);
        const StrandSetPtr verified = t.result();
        setVerifyIncremental(false);
        const StrandSetPtr fast = draw % 3 == 0 ? quick.strands(4), quick.result() : quick.result();
        expectSameStrands(*verified, *fast);
        expectSameStrands(*fast, *quick.afresh());
      }
      EXPECT_GT(quick.graph.nodesIncremental, 30u);
    });
  }
}

TEST(Verification, NamesEachKindOfLiar) {
  const test::Verifying verifying;
  const struct {
    const char* lie;
    const char* fault;
  } cases[] = {
      {"", ""},
      {"all", ""},
      {"unknown", ""},
      {"kind", "it made another kind of value than a full evaluation"},
      {"guides", "its guides differ from a full evaluation's"},
      {"strands", "its strands differ from a full evaluation's"},
      {"past", "it lists a strand past the set's end"},
      {"unlisted", "strand 6 changed but is not listed as changed"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.lie);
    for (const bool second : {false, true}) {
      Chain t({"TestLiar"});
      t.graph.node(3).name = "n";
      t.params(3).set("second", second);
      t.params(3).set("lie", std::string(c.lie));
      t.graph.connect(1, 3, 1);
      t.result();
      t.setGuides(20, {2});
      const std::string fault =
          std::string("node 'n': n evaluated incrementally: ") + (second ? "output 'out': " : "");
      EXPECT_EQ(t.error(3), *c.fault ? fault + c.fault : "");
      EXPECT_EQ(t.graph.node(3).cache.cached, *c.fault == 0) << "the next evaluation is whole";
      if (*c.fault == 0 && !second) {
        EXPECT_EQ(t.run(3), std::string("incremental ") + (*c.lie ? "all" : "3"));
      }
    }
  }
  // A layout that changed under a record of some strands.
  Chain t({"TestLiar"});
  t.graph.node(3).name = "n";
  t.result();
  t.setGuides(21);
  EXPECT_EQ(t.error(3),
            "node 'n': n evaluated incrementally: it says only some strands changed, "
            "but the set's layout did");
}

TEST(Verification, FailuresOfThePathItself) {
  for (const char* lie : {"throws", "count"}) {
    Chain t({"TestLiar"});
    t.graph.node(3).name = "n";
    t.params(3).set("lie", std::string(lie));
    t.params(3).set("second", true);
    t.result();
    t.setGuides(20, {2});
    EXPECT_EQ(t.error(3), *lie == 't' ? "node 'n': half done"
                                      : "node 'n': n made 3 values incrementally for 2 outputs");
    EXPECT_FALSE(t.graph.node(3).cache.cached);
    t.params(3).set("lie", std::string());
    t.result();
    EXPECT_EQ(t.run(3), "full");
  }
}

TEST(Affect, MixesInputAndOutput) {
  TestGraph t;
  const auto source = t.add("TestStrands"), tint = t.then("TestTint");
  t.params(source).set("count", std::int64_t{30});
  const StrandSetPtr in = t.strands(source), out = t.strands(tint);
  MapRef map;  // "shade" is 0, 0.5 or 1
  map.source = MapSource::attribute;
  map.text = "shade";
  t.params(tint).set("affect", map);
  const StrandSetPtr mixed = t.strands(tint);
  for (std::size_t i = 0; i < in->strandCount(); ++i) {
    const float weight = (*in->strandChannel("shade"))[i];
    const std::size_t point = in->offsets()[i];
    EXPECT_FLOAT_EQ(mixed->widths()[point],
                    in->widths()[point] + weight * (out->widths()[point] - in->widths()[point]));
    EXPECT_FLOAT_EQ((*mixed->strandChannel("tint"))[i], weight * (*out->strandChannel("tint"))[i]);
    EXPECT_EQ((*mixed->strandChannel("clumpId"))[i], weight >= 0.5f ? 7.0f : -1.0f);
  }
  EXPECT_TRUE(mixed->sharesPointsWith(*in));

  // A map that is 1 everywhere gives the whole result, to the bit; one beyond it no more.
  map.min = 1.0f;
  map.max = 9.0f;
  t.params(tint).set("affect", map);
  expectSameStrands(*t.strands(tint), *out);
  t.params(tint).set("affect", 0.0);
  EXPECT_EQ(t.strands(tint), in);
  EXPECT_EQ(t.run(tint), "bypass");
  t.params(tint).set("affect", std::int64_t{1});
  expectSameStrands(*t.strands(tint), *out);

  map.text = "nowhere";
  t.params(tint).set("affect", map);
  EXPECT_THAT(t.error(tint), testing::HasSubstr("param 'affect': strands have no attribute"));
}

TEST(Affect, PointsMixOnAWireAndLayoutsDoNot) {
  TestGraph t;
  const auto source = t.add("TestStrands"), move = t.then("TestMove"),
             refine = t.then("TestRefine");
  const auto field = t.add("TestField");
  t.params(field).set("value", 0.25);
  t.graph.setParamInputs(move, {"affect"});
  t.graph.connect(field, move, 1);
  t.params(refine).set("affect", 0.5);
  const StrandSetPtr refined = t.strands(refine);
  const StrandSetPtr in = t.strands(source), moved = t.strands(move);
  for (std::size_t i = 0; i < in->pointCount(); ++i) {
    EXPECT_FLOAT_EQ(moved->points()[i].x, in->points()[i].x + 0.25f);
  }
  EXPECT_EQ(refined->pointCount(), 2 * in->pointCount());
  EXPECT_EQ(t.notes(refine),
            "affect is not applied: this node changes how many strands or points there are");
}

TEST(Affect, AMixedNodeStillTellsWhatChanged) {
  Chain t({"TestTint", "TestMove"});
  t.params(3).set("affect", 0.5);
  t.result();
  t.setGuides(20, {8});
  expectSameStrands(*t.result(), *t.afresh());
  EXPECT_EQ(t.run(3), "full 3");
  EXPECT_EQ(t.run(4), "incremental 3");
}

}  // namespace
}  // namespace kestrane
