// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "tests/graph/test_operators.h"

namespace kestrane {
namespace {

using test::messageOf;
using test::TestGraph;

std::unique_ptr<test::Custom> customOf(PortType in, PortType out) {
  auto op = std::make_unique<test::Custom>();
  op->ins = {{"in", in}};
  op->outs = {{"out", out}};
  return op;
}

TEST(Graph, NodesAreNumberedNamedAndTakenOut) {
  TestGraph t;
  EXPECT_EQ(messageOf([&] { t.graph.addNode(nullptr); }), "addNode: null operator");
  EXPECT_EQ(t.add("TestStrands"), 1u);
  EXPECT_EQ(t.then("TestMove"), 2u);
  EXPECT_EQ(t.then("TestMove"), 3u);
  EXPECT_EQ(t.graph.node(3).name, "TestMove2");
  EXPECT_EQ(t.graph.findNode("TestMove2"), 3u);
  t.graph.removeNode(2);
  EXPECT_EQ(t.graph.node(3).sources[0], 0u);
  EXPECT_EQ(messageOf([&] { t.graph.node(2); }), "unknown node 2");
  EXPECT_EQ(messageOf([&] { t.graph.removeNode(2); }), "unknown node 2");
  EXPECT_EQ(messageOf([&] { t.graph.connect(1, 77, 0); }), "unknown node 77");
  EXPECT_EQ(t.graph.findNode("TestMove"), 0u);
  EXPECT_EQ(t.add("TestMove", "a"), 4u) << "IDs are not used again";
}

TEST(Graph, ConnectChecksSlotsTypesAndCycles) {
  TestGraph t;
  const auto strands = t.add("TestStrands"), move = t.then("TestMove"), tint = t.add("TestTint");
  const auto mesh = t.addOp(customOf(PortType::curves, PortType::mesh));
  const struct {
    std::uint32_t from, to;
    std::size_t input, output;
    const char* message;
  } cases[] = {
      {strands, move, 1, 0, "TestMove has no input slot 1"},
      {strands, move, 0, 1, "TestStrands has no output 1"},
      {strands, move, 1, 1, "TestMove has no input slot 1"},  // the slot is looked at first
      {mesh, tint, 0, 0, "type mismatch: Mesh -> Strands"},
      {move, move, 0, 0, "connection would create a cycle"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(messageOf([&] { t.graph.connect(c.from, c.to, c.input, c.output); }), c.message);
  }
  EXPECT_EQ(t.graph.node(move).sources[0], strands) << "a refused wire changes nothing";
  const auto last = t.add("TestMove");
  t.graph.connect(move, last, 0);
  EXPECT_EQ(messageOf([&] { t.graph.connect(last, move, 0); }), "connection would create a cycle");
  t.graph.disconnect(last, 0);
  t.graph.connect(last, move, 0);
  EXPECT_EQ(messageOf([&] { t.graph.disconnect(move, 4); }), "TestMove has no input slot 4");
}

TEST(Graph, ACurvesWireIsJudgedByWhatItCarries) {
  TestGraph t;
  const auto guides = t.add("TestGuides");
  const auto first = t.then("TestMove"), second = t.then("TestMove");
  const auto tint = t.add("TestTint"), grow = t.add("TestGrow");
  EXPECT_EQ(t.graph.resolvedOutputType(second, 0), PortType::guides);
  EXPECT_EQ(messageOf([&] { t.graph.connect(second, tint, 0); }),
            "type mismatch: Guides -> Strands");
  t.graph.connect(second, grow, 0);
  t.graph.disconnect(first, 0);
  EXPECT_EQ(t.graph.resolvedOutputType(second, 0), PortType::curves);
  t.graph.disconnect(grow, 0);
  t.graph.connect(second, tint, 0);  // an open chain may still carry strands
  EXPECT_EQ(messageOf([&] { t.graph.connect(guides, first, 0); }),
            "type mismatch: Guides -> Strands")
      << "what comes in at the top must fit at the bottom";
  EXPECT_EQ(t.graph.node(first).sources[0], 0u);
  t.graph.connect(t.add("TestStrands"), first, 0);
  EXPECT_EQ(t.graph.resolvedOutputType(second, 0), PortType::strands);

  const auto made = t.addOp(customOf(PortType::field, PortType::curves));
  t.graph.connect(made, tint, 0);
  t.graph.connect(t.add("TestField"), made, 0);  // a field does not come out of there
  EXPECT_EQ(t.graph.resolvedOutputType(made, 0), PortType::curves);
}

TEST(Graph, ParametersBecomePortsOfTheirKind) {
  TestGraph t;
  const auto field = t.add("TestField"), curve = t.add("TestCurve"), move = t.add("TestMove");
  const auto expose = [&](std::vector<std::string> names) {
    return messageOf([&] { t.graph.setParamInputs(move, std::move(names)); });
  };
  EXPECT_EQ(expose({"amount", "size"}), "TestMove has no param 'size' to expose");
  EXPECT_EQ(expose({"amount", "amount"}), "param 'amount' exposed twice");
  auto named = std::make_unique<test::Custom>();
  named->specs = {param("strands", 1.0, "")};
  const auto custom = t.addOp(std::move(named));
  EXPECT_EQ(messageOf([&] { t.graph.setParamInputs(custom, {"strands"}); }),
            "param 'strands' has the name of an input of TestCustom");
  EXPECT_TRUE(t.graph.node(move).paramInputs.empty());

  EXPECT_EQ(expose({"affect", "amount", "profile"}), "");
  const auto ports = t.graph.inputPorts(t.graph.node(move));
  ASSERT_EQ(ports.size(), 4u);
  EXPECT_EQ(ports[2].type, PortType::field);
  EXPECT_EQ(ports[3].type, PortType::curve);
  t.graph.connect(field, move, 2);
  t.graph.connect(curve, move, 3);
  EXPECT_EQ(expose({"profile", "amount"}), "");
  EXPECT_EQ(t.graph.node(move).sources, (std::vector<std::uint32_t>{0, curve, field}));
}

TEST(Graph, KeysOfParametersAreChecked) {
  TestGraph t;
  const auto move = t.add("TestMove", "sway");
  const auto keyed = [&](const std::string& name, std::vector<std::string> controls) {
    return messageOf([&] { t.graph.setParamControls(move, {{name, controls}}); });
  };
  EXPECT_EQ(keyed("size", {"a"}), "sway has no param 'size' to key");
  EXPECT_EQ(keyed("steps", {"a"}),
            "sway param 'steps' cannot be keyed: it sets how many strands, points or cards there "
            "are, or where they go, which must stay the same on every frame");
  EXPECT_EQ(keyed("offset", {"a"}), "sway param 'offset' is keyed by three controls (x, y, z)");
  EXPECT_EQ(keyed("amount", {"a", "b", "c"}), "sway param 'amount' is keyed by one control");
  EXPECT_EQ(keyed("offset", {"a", "", "c"}), "sway param 'offset': a control needs a name");
  auto op = std::make_unique<test::Custom>();
  op->specs = {param("word", "a", "").animatable()};
  const auto custom = t.addOp(std::move(op), "c");
  EXPECT_EQ(messageOf([&] {
              t.graph.setParamControls(custom, {{"word", {"a"}}});
            }),
            "c param 'word' cannot be keyed: only numbers, switches and vectors can");
  EXPECT_TRUE(t.graph.node(move).paramControls.empty());
  EXPECT_EQ(keyed("amount", {"a"}), "");
}

}  // namespace
}  // namespace kestrane
