// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <chrono>
#include <new>

#include "tests/graph/test_operators.h"
#include "tests/support/test_meshes.h"

namespace kestrane {
namespace {

using test::Custom;
using test::expectSameStrands;
using test::TestGraph;

TEST(Evaluation, OnlyWhatChangedRunsAgain) {
  TestGraph t;
  const auto source = t.add("TestStrands");
  const auto move = t.then("TestMove"), tint = t.then("TestTint");
  const StrandSetPtr first = t.strands(tint);
  EXPECT_EQ(t.graph.nodesEvaluated, 3u);
  EXPECT_EQ(t.strands(tint), first) << "nothing changed";
  EXPECT_EQ(t.graph.nodesEvaluated, 3u);

  t.params(tint).set("tint", 0.75);
  EXPECT_EQ((*t.strands(tint)->strandChannel("tint"))[0], 0.75f + first->points()[0].x);
  EXPECT_EQ(t.graph.nodesEvaluated, 4u);
  t.params(source).set("seed", std::int64_t{5});
  t.strands(tint);
  EXPECT_EQ(t.graph.nodesEvaluated, 7u);
  EXPECT_EQ(t.graph.nodesIncremental, 0u);
  EXPECT_EQ(t.run(move), "full");
}

TEST(Evaluation, KeysFollowWhatTheyHold) {
  TestGraph t;
  t.add("TestGuides");
  const auto move = t.then("TestMove"), last = t.then("TestMove");
  t.setGuides(2);
  EvalContext context = t.context();
  std::vector<std::uint64_t> seen{nodeKey(t.graph, last, context)};
  EXPECT_EQ(nodeKey(t.graph, last, context), seen[0]);
  const auto expectNew = [&](const char* what) {
    const std::uint64_t key = nodeKey(t.graph, last, context);
    EXPECT_EQ(std::count(seen.begin(), seen.end(), key), 0) << what;
    seen.push_back(key);
  };
  t.params(move).set("amount", 2.0);
  expectNew("a parameter above");
  t.graph.node(move).bypass = true;
  expectNew("a bypass");
  const std::uint64_t bypassed = seen.back();
  t.params(move).set("amount", 3.0);
  EXPECT_EQ(nodeKey(t.graph, last, context), bypassed) << "what a bypassed node holds";
  t.setGuides(2);
  expectNew("a scene input");
  t.graph.node(move).op->nodeVersion = 2;
  t.graph.node(move).bypass = false;
  expectNew("a node version");
  t.graph.node(move).op->nodeVersion = 1;
  expectNew("the node without");
  context.detail = 0.5f;
  expectNew("detail");
  context.variant = 1;
  expectNew("variant");
  context.resampleSegments = 9;
  expectNew("segments");
  t.graph.disconnect(move, 0);
  expectNew("a wire");
  // Names and places are for people, and the time is nobody's here.
  t.graph.node(last).name = "other";
  t.graph.node(last).uiX = 5;
  context.time = 3;
  EXPECT_EQ(nodeKey(t.graph, last, context), seen.back());
}

TEST(Evaluation, ViewsPickNodes) {
  TestGraph t;
  t.add("TestStrands");
  const auto move = t.then("TestMove");
  Node& node = t.graph.node(move);
  const struct {
    NodeEvaluation evaluation;
    bool viewport;
    const char* run;
  } cases[] = {
      {NodeEvaluation::always, true, "full"},       {NodeEvaluation::always, false, "full"},
      {NodeEvaluation::viewportOnly, true, "full"}, {NodeEvaluation::viewportOnly, false, "bypass"},
      {NodeEvaluation::renderOnly, true, "bypass"}, {NodeEvaluation::renderOnly, false, "full"}};
  for (const auto& c : cases) {
    node.evaluation = c.evaluation;
    node.cache.cached = false;
    t.request.viewport = c.viewport;
    t.strands(move);
    EXPECT_EQ(t.run(move), c.run);
    EXPECT_EQ(nodeEvaluationFromWord(nodeEvaluationWord(c.evaluation)), c.evaluation);
  }
  EXPECT_EQ(nodeEvaluationWord(static_cast<NodeEvaluation>(7)), "always");
  EXPECT_EQ(test::messageOf([] { nodeEvaluationFromWord("never"); }),
            "unknown evaluation 'never' (always, viewportOnly or renderOnly)");
}

TEST(Evaluation, ABypassedNodeHandsItsFirstInputOnWhereItFits) {
  TestGraph t;
  const auto source = t.add("TestStrands"), tint = t.then("TestTint");
  t.graph.node(tint).bypass = true;
  EXPECT_EQ(t.strands(tint), t.strands(source));

  // With nothing to hand on, or nothing that fits, the node runs as ever.
  t.graph.disconnect(tint, 0);
  EXPECT_EQ(t.error(tint),
            "node 'TestTint': TestTint input 'strands' takes strands but gets nothing from the "
            "node before it");
  auto counter = std::make_unique<Custom>();
  counter->outs = {{"field", PortType::field}};
  counter->make = [](const EvalContext&, std::span<const GraphValue>) {
    return std::vector<GraphValue>{FieldValuePtr(std::make_shared<test::FixedField>(1.0f))};
  };
  const auto other = t.addOp(std::move(counter));
  t.graph.connect(source, other, 0);
  t.graph.node(other).bypass = true;
  EXPECT_TRUE(valueAs<FieldValue>(t.evaluateAll(other)[0]));
}

/// What it hands on is all that its key tells of, so nothing else may have a say.
TEST(Evaluation, ABypassedNodeThatGetsNothingTakesNoOtherInputEither) {
  TestGraph t;
  auto nothing = std::make_unique<Custom>();
  nothing->ins.clear();
  nothing->make = [](const EvalContext&, auto) { return std::vector<GraphValue>(1); };
  const auto empty = t.addOp(std::move(nothing)), other = t.add("TestStrands");
  auto op = std::make_unique<Custom>();
  op->ins = {{"a", PortType::strands, true}, {"b", PortType::strands, true}};
  op->make = [](const EvalContext&, std::span<const GraphValue> in) {
    return std::vector<GraphValue>{isEmpty(in[0]) ? in[1] : in[0]};
  };
  const auto id = t.addOp(std::move(op));
  t.graph.connect(empty, id, 0);
  t.graph.connect(other, id, 1);
  EXPECT_EQ(t.strands(id), t.strands(other));
  t.graph.node(id).bypass = true;
  EXPECT_TRUE(isEmpty(t.evaluateAll(id)[0]));
}

TEST(Evaluation, InputsAreCheckedForWhatTheyCarry) {
  TestGraph t;
  t.setGuides(2);
  t.add("TestGuides");
  const auto move = t.then("TestMove"), tint = t.add("TestTint", "tint");
  t.graph.node(tint).sources[0] = move;  // as a wire that a later one turned into guides
  EXPECT_EQ(t.error(tint),
            "node 'tint': TestTint input 'strands' takes strands but gets guides "
            "from the node before it");
  const auto strands = t.add("TestStrands"), grow = t.add("TestGrow", "grow");
  t.graph.node(grow).sources[0] = strands;
  EXPECT_EQ(t.error(grow),
            "node 'grow': TestGrow input 'guides' takes guides but gets strands "
            "from the node before it");
  // An operator's own words for a missing input come first.
  auto own = std::make_unique<Custom>();
  own->make = [](const EvalContext&, std::span<const GraphValue> in) -> std::vector<GraphValue> {
    if (isEmpty(in[0])) throw GraphError("Own: nothing on strands");
    return {in[0]};
  };
  EXPECT_EQ(t.error(t.addOp(std::move(own), "own")), "node 'own': Own: nothing on strands");
}

TEST(Evaluation, FailuresNameTheirNodeOnceAndLeaveTheRestInPlace) {
  TestGraph t;
  t.add("TestStrands");
  std::function<void()> fail;
  auto op = std::make_unique<Custom>();
  op->make = [&](const EvalContext&, std::span<const GraphValue> in) {
    if (fail) fail();
    return std::vector<GraphValue>{in[0]};
  };
  const auto bad = t.addOp(std::move(op), "bad");
  t.graph.connect(1, bad, 0);
  const auto last = t.then("TestTint");
  const struct {
    std::function<void()> fail;
    const char* message;
  } cases[] = {{[] { throw GraphError("too many"); }, "node 'bad': too many"},
               {[] { throw std::length_error("vector too long"); }, "node 'bad': vector too long"},
               {[] { throw GraphError("node 'x': inner"); }, "node 'x': inner"},
               {[] { throw std::bad_alloc(); }, "node 'bad': not enough memory"}};
  for (const auto& c : cases) {
    fail = c.fail;
    EXPECT_EQ(t.error(last), c.message);
  }
  fail = nullptr;
  EXPECT_TRUE(t.strands(last));
  EXPECT_EQ(t.graph.nodesEvaluated, 3u) << "the source ran once";
  EXPECT_EQ(t.error(99), "unknown node 99");
}

TEST(Evaluation, OutputsAreCounted) {
  TestGraph t;
  auto op = std::make_unique<Custom>();
  op->ins.clear();
  op->outs.push_back({"b", PortType::strands});
  op->make = [](const EvalContext&, auto) { return std::vector<GraphValue>(3); };
  EXPECT_EQ(t.error(t.addOp(std::move(op), "n")), "node 'n': n made 3 values for 2 outputs");
}

TEST(Evaluation, InputsThatDoNotMatterStayUntouched) {
  TestGraph t;
  auto op = std::make_unique<Custom>();
  op->ins = {{"a", PortType::strands}, {"b", PortType::strands}};
  op->specs = {param("index", 0, "")};
  Custom* pick = op.get();
  op->active = [pick](std::size_t slot) {
    return (pick->parameters.integer("index") != 0) == (slot == 1);
  };
  op->make = [pick](const EvalContext&, std::span<const GraphValue> in) {
    return std::vector<GraphValue>{in[pick->parameters.integer("index") != 0]};
  };
  const auto a = t.add("TestStrands"), b = t.add("TestStrands");
  const auto pickId = t.addOp(std::move(op));
  t.graph.connect(a, pickId, 0);
  t.graph.connect(b, pickId, 1);
  t.params(b).set("count", std::int64_t{2});
  EXPECT_EQ(t.strands(pickId)->strandCount(), 10u);
  EXPECT_EQ(t.graph.nodesEvaluated, 2u);
  t.params(pickId).set("index", std::int64_t{7});
  EXPECT_EQ(t.strands(pickId)->strandCount(), 2u);
  EXPECT_EQ(t.graph.nodesEvaluated, 4u);
}

TEST(Evaluation, GuidesGoThroughOperatorsOnStrands) {
  TestGraph t;
  t.setGuides(3);
  const auto source = t.add("TestGuides"), move = t.then("TestMove");
  const auto moved = valueAs<GuideSet>(t.evaluateAll(move)[0]);
  ASSERT_TRUE(moved);
  GuideSet expected = *valueAs<GuideSet>(t.evaluateAll(source)[0]);
  for (Guide& guide : expected.guides) {
    for (Vec3f& point : guide.points) point.x += 1.0f;
  }
  EXPECT_EQ(*moved, expected);
  t.params(move).set("affect", 0.0);
  EXPECT_EQ(t.evaluateAll(move)[0], t.evaluateAll(source)[0]);
}

TEST(Evaluation, ParameterPortsFeedFieldsAndCurves) {
  TestGraph t;
  const auto source = t.add("TestStrands"), move = t.then("TestMove");
  const auto field = t.add("TestField"), curve = t.add("TestCurve");
  const float before = t.strands(source)->points()[0].x;
  t.graph.setParamInputs(move, {"amount", "profile"});
  t.graph.connect(field, move, 1);
  t.graph.connect(curve, move, 2);
  EXPECT_EQ(t.strands(move)->points()[0].x, before + 2.0f * 3.0f);
  EXPECT_FALSE(t.params(move).wiredField("amount")) << "wires go when the node is done";
  t.params(field).set("value", 4.0);
  EXPECT_EQ(t.strands(move)->points()[0].x, before + 4.0f * 3.0f);
  EXPECT_EQ(t.run(move), "full");
  // The same wire into another parameter.
  t.graph.setParamInputs(move, {"affect"});
  t.graph.connect(field, move, 1);
  t.params(field).set("value", 0.0);
  EXPECT_EQ(t.strands(move)->points()[0].x, before);
  t.graph.setParamInputs(move, {"amount"});
  t.graph.connect(field, move, 1);
  t.params(move).set("profile", Ramp({{0.0f, 7.0f}}));
  t.params(field).set("value", 3.0);
  EXPECT_EQ(t.strands(move)->points()[0].x, before + 3.0f * 7.0f);
  t.graph.setParamInputs(move, {"steps"});
  t.graph.connect(field, move, 1);
  EXPECT_EQ(t.strands(move)->points()[0].x, before + 1.0f * 7.0f);
}

TEST(Evaluation, ControlsKeyParametersPerFrame) {
  TestGraph t;
  const auto source = t.add("TestStrands"), move = t.then("TestMove"), tint = t.then("TestTint");
  t.graph.setParamControls(move,
                           {{"amount", {"a"}}, {"offset", {"x", "y", "z"}}, {"whole", {"w"}}});
  const Vec3f before = t.strands(source)->points()[0];
  t.params(move).set("offset", Vec3f{1, 2, 3});
  EXPECT_EQ(t.strands(tint)->points()[0], before + (Vec3f{2, 2, 3})) << "no control yet";
  t.scene.set("control:a", {{}, 10.0, 1});
  t.scene.set("control:y", {{}, -5.0, 1});
  t.scene.set("control:z", {{}, std::nan(""), 1});
  t.scene.set("control:w", {{}, 1.0, 1});
  EXPECT_EQ(t.strands(tint)->points()[0], before + (Vec3f{11, -5, 3}));
  EXPECT_TRUE(t.params(move).boolean("whole"));
  const auto count = t.graph.nodesEvaluated;
  t.strands(tint);
  EXPECT_EQ(t.graph.nodesEvaluated, count);
  t.scene.set("control:a", {{}, 20.0, 2});
  EXPECT_EQ(t.strands(tint)->points()[0], before + (Vec3f{21, -5, 3}));
  EXPECT_EQ(t.graph.nodesEvaluated, count + 2);
  EXPECT_EQ(t.params(move).values().count("amount"), 0u) << "keys are not written to files";
}

TEST(Evaluation, TheWorkingResolutionIsTheFinestResample) {
  TestGraph t;
  std::int32_t seen = 0;
  auto op = std::make_unique<Custom>();
  op->ins.clear();
  op->make = [&](const EvalContext& context, auto) {
    seen = context.resampleSegments;
    return std::vector<GraphValue>(1);
  };
  const auto reader = t.addOp(std::move(op));
  const auto addResample = [&] {
    auto resample = std::make_unique<Custom>();
    resample->typeName = "Resample";
    resample->specs = {param("segments", 0, "").range(0, 1024)};
    return t.addOp(std::move(resample));
  };
  const auto hint = [&] {
    t.graph.node(reader).cache.cached = false;
    t.evaluateAll(reader);
    return seen;
  };
  EXPECT_EQ(hint(), 8);
  const auto first = addResample(), second = addResample();
  EXPECT_EQ(hint(), 8) << "segments 0 keeps what comes";
  t.params(first).set("segments", std::int64_t{12});
  t.params(second).set("segments", std::int64_t{5});
  EXPECT_EQ(hint(), 12);
  t.params(second).set("segments", std::int64_t{1000});
  EXPECT_EQ(hint(), 256);
  t.request.resampleSegments = 3;
  EXPECT_EQ(hint(), 3);
}

TEST(Evaluation, TheSurfaceComesFromTheScalpAboveOrTheScene) {
  TestGraph t;
  const ScalpMeshPtr own = test::shared(test::makeQuad()), scene = test::shared(test::makeQuad());
  const ScalpMeshPtr later = test::shared(test::makeQuad());
  ScalpMeshPtr given = own, seen;
  auto scalp = std::make_unique<Custom>();
  scalp->typeName = "Scalp";
  scalp->ins.clear();
  scalp->outs = {{"scalp", PortType::mesh}};
  scalp->refreshes = true;
  scalp->make = [&](const EvalContext&, auto) { return std::vector<GraphValue>{given}; };
  const auto makeReader = [&](PortType in) {
    auto op = std::make_unique<Custom>();
    op->ins = {{"in", in}};
    op->make = [&](const EvalContext& context, std::span<const GraphValue>) {
      seen = context.surface;
      return std::vector<GraphValue>{std::make_shared<const StrandSet>()};
    };
    return t.addOp(std::move(op));
  };
  const auto scalpId = t.addOp(std::move(scalp));
  const auto first = makeReader(PortType::mesh), second = makeReader(PortType::strands);
  t.graph.connect(scalpId, first, 0);
  t.graph.connect(first, second, 0);
  auto mesh = std::make_shared<SceneMesh>();
  mesh->mesh = scene;
  t.scene.set("scalp", {std::shared_ptr<const SceneMesh>(mesh), 0.0, 1});
  t.evaluateAll(second);
  EXPECT_EQ(seen, own);
  evaluateLean(t.graph, second, t.context());
  seen = nullptr;
  t.graph.node(second).cache.cached = false;
  t.evaluateAll(second);
  EXPECT_EQ(seen, own) << "handed on by a node that did not run";

  // The scalp follows the scene on a hit, and keeps its revision.
  const auto revision = t.graph.node(scalpId).cache.revision;
  given = later;
  EXPECT_EQ(valueAs<ScalpMesh>(t.evaluateAll(scalpId)[0]), later);
  EXPECT_EQ(t.graph.node(scalpId).cache.revision, revision);
  EXPECT_EQ(t.graph.node(scalpId).cache.surface, later);

  // Without a Scalp node the scene's mesh is part of the key.
  const auto key = nodeKey(t.graph, second, t.context());
  t.graph.connect(t.add("TestStrands"), second, 0);
  t.evaluateAll(second);
  EXPECT_EQ(seen, scene);
  const auto keyOfScene = nodeKey(t.graph, second, t.context());
  EXPECT_NE(keyOfScene, key);
  t.scene.set("scalp", {std::shared_ptr<const SceneMesh>(mesh), 0.0, 2});
  EXPECT_NE(nodeKey(t.graph, second, t.context()), keyOfScene);
}

TEST(Evaluation, TheSurfaceGoesThroughABypassedNode) {
  TestGraph t;
  const ScalpMeshPtr own = test::shared(test::makeQuad());
  ScalpMeshPtr seen;
  auto scalp = std::make_unique<Custom>();
  scalp->typeName = "Scalp";
  scalp->ins.clear();
  scalp->outs = {{"scalp", PortType::mesh}};
  scalp->make = [&](const EvalContext&, auto) { return std::vector<GraphValue>{own}; };
  auto grow = std::make_unique<Custom>();
  grow->ins = {{"in", PortType::mesh}};
  grow->make = [](const EvalContext&, auto) {
    return std::vector<GraphValue>{std::make_shared<const StrandSet>()};
  };
  auto off = std::make_unique<Custom>();  // which would not even look at its input
  off->active = [](std::size_t) { return false; };
  auto last = std::make_unique<Custom>();
  last->make = [&](const EvalContext& context, std::span<const GraphValue> in) {
    seen = context.surface;
    return std::vector<GraphValue>{in[0]};
  };
  const std::uint32_t ids[] = {t.addOp(std::move(scalp)), t.addOp(std::move(grow)),
                               t.addOp(std::move(off)), t.addOp(std::move(last))};
  for (int i = 0; i < 3; ++i) t.graph.connect(ids[i], ids[i + 1], 0);
  t.graph.node(ids[2]).bypass = true;
  t.evaluateAll(ids[3]);
  EXPECT_EQ(seen, own);
}

TEST(Evaluation, StrandsGrownOnAnyMeshAreRootedOnIt) {
  TestGraph t;
  const ScalpMeshPtr body = test::shared(test::makeQuad()), scene = test::shared(test::makeQuad());
  const ScalpMeshPtr other = test::shared(test::makeQuad());
  t.scene.set("scalp", {scene, 0.0, 1});
  const auto addMesh = [&](const ScalpMeshPtr& mesh) {
    auto op = std::make_unique<Custom>();
    op->typeName = "ColliderMesh";
    op->ins.clear();
    op->outs = {{"mesh", PortType::mesh}};
    op->make = [mesh](const EvalContext&, auto) { return std::vector<GraphValue>{mesh}; };
    return t.addOp(std::move(op));
  };
  ScalpMeshPtr seen;
  const auto addReader = [&](PortType first, PortType second) {
    auto op = std::make_unique<Custom>();
    op->ins = {{"first", first}, {"second", second, true}};
    op->make = [&](const EvalContext& context, std::span<const GraphValue>) {
      seen = context.surface;
      return std::vector<GraphValue>{std::make_shared<const StrandSet>()};
    };
    return t.addOp(std::move(op));
  };
  const auto grow = addReader(PortType::mesh, PortType::guides);
  const auto collide = addReader(PortType::strands, PortType::mesh);
  t.graph.connect(addMesh(body), grow, 0);
  t.graph.connect(grow, collide, 0);
  t.graph.connect(addMesh(other), collide, 1);
  EXPECT_EQ(evaluateLean(t.graph, collide, t.context()).surface, body);
  EXPECT_EQ(evaluateGrown(t.graph, collide, t.context()).surface, body);
  EXPECT_EQ(seen, body);
  const auto key = nodeKey(t.graph, collide, t.context());
  t.scene.set("scalp", {scene, 0.0, 2});
  EXPECT_EQ(nodeKey(t.graph, collide, t.context()), key) << "the scene's scalp does not count";

  // What strands are kept out of is not what they are rooted on.
  t.graph.connect(t.add("TestStrands"), collide, 0);
  EXPECT_EQ(evaluateLean(t.graph, collide, t.context()).surface, scene);
  EXPECT_EQ(evaluateGrown(t.graph, collide, t.context()).surface, scene);
  EXPECT_EQ(seen, scene);
}

TEST(Evaluation, LowMemoryFormGivesTheSameAndKeepsNothing) {
  TestGraph t;
  const auto a = t.add("TestStrands"), move = t.then("TestMove"), left = t.then("TestTint");
  const auto right = t.add("TestMove");
  t.graph.connect(move, right, 0);
  auto merge = std::make_unique<Custom>();
  merge->ins = {{"a", PortType::strands}, {"b", PortType::strands}};
  std::weak_ptr<const StrandSet> input;
  merge->make = [&](const EvalContext&, std::span<const GraphValue> in) {
    auto both = std::make_shared<StrandSet>(*valueAs<StrandSet>(in[0]));
    both->append(*valueAs<StrandSet>(in[1]));
    input = std::get<StrandSetPtr>(in[0]);
    return std::vector<GraphValue>{StrandSetPtr(both)};
  };
  const auto both = t.addOp(std::move(merge));
  t.graph.connect(left, both, 0);
  t.graph.connect(right, both, 1);
  t.graph.retainResults = false;
  const StrandSetPtr lean = t.strands(both);
  EXPECT_EQ(t.graph.nodesEvaluated, 5u) << "a node with two readers runs once";
  EXPECT_TRUE(input.expired());
  for (const auto& [id, node] : t.graph.nodes()) EXPECT_FALSE(node.cache.cached) << id;
  t.graph.retainResults = true;
  const StrandSetPtr kept = t.strands(both);
  expectSameStrands(*lean, *kept);
  EXPECT_FALSE(input.expired());

  // On a graph with results these are used, and stay as they are.
  t.params(left).set("tint", 0.25);
  const auto before = t.graph.nodesEvaluated;
  const auto revision = t.graph.node(both).cache.revision;
  const auto again = valueAs<StrandSet>(evaluateLean(t.graph, both, t.context()).outputs[0]);
  EXPECT_EQ(t.graph.nodesEvaluated, before + 2);
  EXPECT_EQ(t.graph.node(both).cache.revision, revision);
  EXPECT_EQ(valueAs<StrandSet>(t.graph.node(both).cache.outputs[0]), kept);
  expectSameStrands(*again, *t.strands(both));
  (void)a;
}

TEST(Evaluation, ResultsMadeElsewhereAreTakenOver) {
  TestGraph t, other;
  for (TestGraph* graph : {&t, &other}) {
    graph->setGuides(4);
    graph->add("TestGuides");
    graph->then("TestGrow");
    graph->then("TestMove");
  }
  t.strands(3);
  t.params(3).set("amount", 9.0);
  other.params(3).set("amount", 9.0);
  const StrandSetPtr made = other.strands(3);
  for (const auto& [id, node] : other.graph.nodes()) {
    t.graph.resultCache[node.cache.cacheKey] = {node.cache};
  }
  const auto count = t.graph.nodesEvaluated;
  EXPECT_EQ(t.strands(3), made);
  EXPECT_EQ(t.graph.nodesEvaluated, count);
  EXPECT_TRUE(t.graph.resultCache.empty());
  // Nodes that hold their key already keep what they have, and go on from there.
  EXPECT_NE(t.graph.node(2).cache.outputs, other.graph.node(2).cache.outputs);
  t.setGuides(4, {1});
  const StrandSetPtr moved = t.strands(3);
  t.graph.node(3).cache.cached = t.graph.node(2).cache.cached = false;
  expectSameStrands(*moved, *t.strands(3));
}

TEST(Evaluation, PreviewPicksTheMarkedStrands) {
  TestGraph t;
  t.add("TestStrands");
  auto op = std::make_unique<Custom>();
  op->make = [](const EvalContext&, std::span<const GraphValue> in) {
    auto set = std::make_shared<StrandSet>(*valueAs<StrandSet>(in[0]));
    auto& marks = set->addStrandChannel("_preview", 0.0f);
    marks[2] = marks[7] = 1.0f;
    return std::vector<GraphValue>{StrandSetPtr(set)};
  };
  const auto marker = t.addOp(std::move(op));
  t.graph.connect(1, marker, 0);
  const StrandSetPtr whole = t.strands(marker);
  t.request.preview = true;
  for (int pass = 0; pass < 2; ++pass) {
    const StrandSetPtr some = t.strands(marker);
    ASSERT_EQ(some->strandCount(), 2u);
    EXPECT_EQ(some->ids()[1], whole->ids()[7]);
    t.graph.node(marker).cache.cached = false;
  }
  t.request.preview = false;
  EXPECT_EQ(t.strands(marker)->strandCount(), 10u);
  t.request.preview = true;
  EXPECT_EQ(t.strands(1)->strandCount(), 10u) << "no marks";
}

TEST(Evaluation, WalksUpActiveNodesOnly) {
  TestGraph t;
  const auto source = t.add("TestStrands", "source"), move = t.then("TestMove", "move");
  const auto off = t.then("TestMove", "off");
  t.graph.node(off).bypass = true;
  auto op = std::make_unique<Custom>();
  op->ins = {{"a", PortType::strands}, {"b", PortType::strands}, {"c", PortType::strands}};
  op->active = [](std::size_t slot) { return slot != 1; };
  const auto last = t.addOp(std::move(op), "last");
  const auto idle = t.add("TestStrands", "idle");
  t.graph.connect(off, last, 0);
  t.graph.connect(idle, last, 1);
  t.graph.connect(move, last, 2);
  std::vector<std::string> names;
  const auto visit = [&](const std::string& name, Operator&) {
    names.push_back(name);
    return name != "in/move" || names.size() > 90;
  };
  EXPECT_TRUE(forEachActiveUpstream(t.graph, last, t.context(), visit));
  EXPECT_THAT(names, testing::ElementsAre("last", "move", "source"));
  names.clear();
  EXPECT_FALSE(forEachActiveUpstream(t.graph, last, t.context(), visit, "in/"));
  EXPECT_THAT(names, testing::ElementsAre("in/last", "in/move"));

  EXPECT_FALSE(graphReadsTime(t.graph, last, t.context()));
  auto clock = std::make_unique<Custom>();
  clock->ins.clear();
  clock->reads = [](const EvalContext& context) {
    return static_cast<std::uint64_t>(context.time * 16.0);
  };
  const auto clockId = t.addOp(std::move(clock));
  t.graph.connect(clockId, last, 1);
  EXPECT_FALSE(graphReadsTime(t.graph, last, t.context())) << "on an input that does not matter";
  t.graph.connect(clockId, last, 2);
  EXPECT_TRUE(graphReadsTime(t.graph, last, t.context()));
  (void)source;
}

}  // namespace
}  // namespace kestrane
