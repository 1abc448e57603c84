// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/base/json.h"
#include "core/graph/graph_migration.h"
#include "tests/graph/test_operators.h"

namespace kestrane {
namespace {

using test::messageOf;

constexpr const char* sampleGraph = R"({
  "version": 1,
  "nodes": [
    {"name": "g", "type": "TestGuides", "version": 1, "params": {}, "ui": {"x": 0.0, "y": 0.0}},
    {"name": "f", "type": "TestField", "version": 1, "params": {"value": 3}, "ui": {"x": 1.5, "y": -2.0}},
    {"name": "grow", "type": "TestGrow", "version": 1, "params": {}, "evaluation": "renderOnly", "ui": {"x": 0.0, "y": 0.0}},
    {"name": "move", "type": "TestMove", "version": 1,
     "params": {"amount": 0.5, "notes": "kept", "profile": {"keys": [[0.0, 1.0]]}},
     "paramInputs": ["amount"],
     "paramControls": {"offset": ["a", "b", "c"], "whole": "d"},
     "bypass": true, "ui": {"x": 0.0, "y": 0.0}},
    {"name": "liar", "type": "TestLiar", "version": 1, "params": {"second": true}, "ui": {"x": 0.0, "y": 0.0}},
    {"name": "end", "type": "TestTint", "version": 1, "params": {}, "ui": {"x": 0.0, "y": 0.0}}
  ],
  "connections": [
    {"from": "g", "to": "grow", "input": "guides"},
    {"from": "grow", "to": "move", "input": "strands"},
    {"from": "f", "to": "move", "input": "amount"},
    {"from": "move", "to": "liar", "input": "in"},
    {"from": "liar", "to": "end", "input": "strands", "output": "other"}
  ],
  "output": "end",
  "backdrops": [{"any": [1, null, "é"]}, 2.5]
})";

TEST(GraphJson, ADocumentIsWrittenAsItWasRead) {
  test::registerTestOperators();
  const GraphDocument document = graphFromJson(sampleGraph);
  EXPECT_EQ(graphToJson(document).dump(1), Json::parse(sampleGraph).dump(1));
  EXPECT_EQ(document.graph.node(document.output).name, "end");
  EXPECT_EQ(graphToJson(copyGraph(document)).dump(), graphToJson(document).dump());
}

TEST(GraphJson, WhatIsLeftOutTakesItsDefault) {
  test::registerTestOperators();
  const GraphDocument document = graphFromJson(
      " \t\r\n{\"nodes\": [{\"name\": \"a\", \"type\": \"TestMove\", \"color\": {}}], "
      "\"output\": \"a\", \"author\": 1}\n");
  const Node& node = document.graph.node(document.output);
  EXPECT_EQ(node.op->parameters.number("amount"), 1.0);
  EXPECT_TRUE(node.op->parameters.values().empty());
  EXPECT_FALSE(node.bypass);
  const Json written = graphToJson(document);
  EXPECT_EQ(written["nodes"][0].dump(),
            R"({"name":"a","type":"TestMove","version":1,"params":{},"ui":{"x":0.0,"y":0.0}})");
  EXPECT_FALSE(written.contains("backdrops"));
}

TEST(GraphJson, BackdropsOfAnyShapeStay) {
  test::registerTestOperators();
  for (const char* shape : {"null", "[]", "{\"b\":{\"a\":1}}", "\"text\"", "-3"}) {
    const std::string text = std::string(R"({"nodes":[{"name":"a","type":"TestMove"}],)") +
                             R"("output":"a","backdrops":)" + shape + "}";
    EXPECT_EQ(graphToJson(graphFromJson(text))["backdrops"].dump(), shape);
  }
}

/// A graph of one node with the entries given, or what reading it throws.
std::string nodeError(const std::string& entries) {
  const std::string text = R"({"nodes": [{"name": "n", "type": "TestMove")" +
                           (entries.empty() ? "" : ", " + entries) + R"(}], "output": "n"})";
  return messageOf<std::runtime_error>([&] { graphFromJson(text); });
}

TEST(GraphJson, EachFaultOfANodeHasItsSentence) {
  test::registerTestOperators();
  const char* ui = "node 'n': ui must be an object with the numbers x and y";
  const char* evaluation = "node 'n': evaluation is always, viewportOnly or renderOnly";
  const char* control = "node 'n': param 'offset' must name its control (or three for a vector)";
  const struct {
    const char* entries;
    const char* message;
  } cases[] = {
      {"", ""},
      {R"("version": 1.0)", "node 'n': version 1.0 is not a whole number from 1"},
      {R"("version": 0)", "node 'n': version 0 is not a whole number from 1"},
      {R"("version": -3)", "node 'n': version -3 is not a whole number from 1"},
      {R"("version": "1")", "node 'n': version \"1\" is not a whole number from 1"},
      {R"("version": 2)",
       "node 'n' is a TestMove of version 2, newer than this Kestrane's (1); "
       "update Kestrane to open it"},
      {R"("version": 18446744073709551615)",
       "node 'n' is a TestMove of version 18446744073709551615, newer than this Kestrane's (1); "
       "update Kestrane to open it"},
      {R"("params": [])", "node 'n': params must be an object"},
      {R"("params": {"amount": null})", "unsupported value for param 'amount'"},
      {R"("params": {"steps": 18446744073709551616})",
       "param 'steps' is out of range for an integer"},
      {R"("paramInputs": "amount")", "node 'n': paramInputs must be a list of params"},
      {R"("paramInputs": [1])", "node 'n': paramInputs must be a list of params"},
      {R"("paramInputs": ["x"])", "TestMove has no param 'x' to expose"},
      {R"("paramControls": ["amount"])", "node 'n': paramControls must map params to controls"},
      {R"("paramControls": {"offset": 1})", control},
      {R"("paramControls": {"offset": ["a", 2, "c"]})", control},
      {R"("paramControls": {"offset": []})",
       "n param 'offset' is keyed by three controls (x, y, z)"},
      {R"("bypass": 1)", "node 'n': bypass must be true or false"},
      {R"("evaluation": "never")", evaluation},
      {R"("evaluation": 0)", evaluation},
      {R"("ui": [0, 0])", ui},
      {R"("ui": {"x": "0"})", ui},
  };
  for (const auto& c : cases) EXPECT_EQ(nodeError(c.entries), c.message) << c.entries;
}

TEST(GraphJson, EachFaultOfADocumentHasItsSentence) {
  test::registerTestOperators();
  const char* a = R"({"name": "a", "type": "TestStrands"})";
  const char* b = R"({"name": "b", "type": "TestLiar"})";
  const char* wireShape = "graph JSON: a connection needs from, to and input, each a name";
  const auto wired = [&](const std::string& wires) {
    return std::string(R"({"nodes": [)") + a + "," + b + R"(], "connections": )" + wires +
           R"(, "output": "a"})";
  };
  std::string deep = R"({"output": )";
  for (int i = 0; i < 300; ++i) deep += "[";
  const struct {
    std::string text;
    const char* message;
  } cases[] = {
      {"", "graph JSON must be an object"},
      {" \n", "graph JSON must be an object"},
      {"[]", "graph JSON must be an object"},
      {"7", "graph JSON must be an object"},
      {deep, "graph JSON: the JSON is nested deeper than 256 levels"},
      {R"({"version": 2})",
       "graph version 2 is newer than this Kestrane supports (1); update "
       "Kestrane to open it"},
      {R"({"version": 1.5})", "graph version 1.5 is not a whole number"},
      {R"({"version": 0})", "graph version 0 is not valid"},
      {"{}", "graph JSON has no 'output' node"},
      {R"({"output": 3})", "graph JSON has no 'output' node"},
      {R"({"output": "x"})", "unknown node 'x'"},
      {R"({"nodes": {}})", "graph JSON: 'nodes' must be a list"},
      {R"({"nodes": [3]})", "graph JSON: node 1 must be an object"},
      {R"({"nodes": [{}]})", "graph JSON: node 1 needs a name"},
      {R"({"nodes": [{"name": ""}]})", "graph JSON: node 1 needs a name"},
      {R"({"nodes": [{"name": "a"}]})", "node 'a' needs a type"},
      {R"({"nodes": [{"name": "a", "type": "X"}]})", "unknown operator type 'X'"},
      {std::string(R"({"nodes": [)") + a + "," + a + "]}", "duplicate node name 'a'"},
      {wired("3"), "graph JSON: 'connections' must be a list"},
      {wired("[1]"), wireShape},
      {wired(R"([{"from": "a", "to": "b"}])"), wireShape},
      {wired(R"([{"from": "a", "to": "b", "input": 0}])"), wireShape},
      {wired(R"([{"from": "c", "to": "b", "input": "in"}])"), "unknown node 'c'"},
      {wired(R"([{"from": "a", "to": "c", "input": "in"}])"), "unknown node 'c'"},
      {wired(R"([{"from": "a", "to": "b", "input": "x"}])"), "b has no input 'x'"},
      {wired(R"([{"from": "a", "to": "b", "input": "in", "output": "x"}])"), "a has no output 'x'"},
      {wired(R"([{"from": "a", "to": "b", "input": "in", "output": 4}])"), "a has no output '4'"},
      {wired(R"([{"from": "a", "to": "b", "input": "guides"}])"),
       "type mismatch: Strands -> Guides"},
      {wired(R"([{"from": "b", "to": "b", "input": "in"}])"), "connection would create a cycle"},
      {wired(R"([{"from": "b", "to": "b", "input": "guides"}])"),
       "type mismatch: Strands -> Guides"},
      // The first fault is the one told, also where it takes a look at the whole graph to find it.
      {wired(
           R"([{"from": "b", "to": "b", "input": "in"}, {"from": "c", "to": "b", "input": "in"}])"),
       "connection would create a cycle"},
      {wired(
           R"([{"from": "c", "to": "b", "input": "in"}, {"from": "b", "to": "b", "input": "in"}])"),
       "unknown node 'c'"},
      {wired(
           R"([{"from": "a", "to": "b", "input": "guides"}, {"from": "b", "to": "b", "input": "in"}])"),
       "type mismatch: Strands -> Guides"},
      {wired(
           R"([{"from": "b", "to": "b", "input": "in"}, {"from": "a", "to": "b", "input": "guides"}])"),
       "connection would create a cycle"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(messageOf<std::runtime_error>([&] { graphFromJson(c.text); }), c.message)
        << c.text.substr(0, 200);
  }
  EXPECT_THAT(messageOf([&] { graphFromJson("{\"nodes\": [,]}"); }),
              testing::StartsWith("graph JSON: "));
}

TEST(GraphJson, VersionsFailAsSchemaErrors) {
  test::registerTestOperators();
  EXPECT_THROW(graphFromJson(R"({"version": 2})"), SchemaError);
  EXPECT_THROW(graphFromJson(R"({"nodes": [{"name": "n", "type": "TestMove", "version": 2}]})"),
               SchemaError);
}

TEST(GraphJson, TextCutAnywhereIsRefused) {
  test::registerTestOperators();
  const std::string text = sampleGraph;
  for (std::size_t length = 0; length < text.size(); length += 7) {
    EXPECT_NE(messageOf([&] { graphFromJson(text.substr(0, length)); }), "") << length;
  }
}

TEST(GraphJson, AChainOfTenThousandNodesLoadsAndEvaluates) {
  test::registerTestOperators();
  std::string text = R"({"nodes": [{"name": "n0", "type": "TestStrands"})";
  std::string wires;
  constexpr int count = 10000;
  for (int i = 1; i < count; ++i) {
    const std::string name = "n" + std::to_string(i);
    text += R"(,{"name": ")" + name + R"(", "type": "TestMove"})";
    wires += (i > 1 ? "," : "") + std::string(R"({"from": "n)") + std::to_string(i - 1) +
             R"(", "to": ")" + name + R"(", "input": "strands"})";
  }
  text += "], \"connections\": [" + wires + "], \"output\": \"n9999\"}";
  GraphDocument document = graphFromJson(text);
  const auto result = evaluate(document.graph, document.output, {});
  EXPECT_EQ(document.graph.nodesEvaluated, static_cast<std::uint64_t>(count));
  const Vec3f first = valueAs<StrandSet>(evaluate(document.graph, 1, {})[0])->points()[0];
  EXPECT_EQ(valueAs<StrandSet>(result[0])->points()[0].x, first.x + (count - 1));
  EXPECT_EQ(document.graph.resolvedOutputType(document.output, 0), PortType::strands);
  EXPECT_EQ(messageOf([&] { document.graph.connect(document.output, 2, 0); }),
            "connection would create a cycle");
}

TEST(GraphJson, MigrationStepsRunInTurn) {
  const MigrationStep steps[] = {
      {"A", 2, [](Json& node) { node["params"]["second"] = node["params"]["first"]; }},
      {"A", 1, [](Json& node) { node["params"]["first"] = 1; }},
      {"B", 1, [](Json& node) { node.clear(); }},
      {"A", 4, [](Json& node) { node.clear(); }},
  };
  Json node = Json::parse(R"({"version": 1, "params": {}})");
  EXPECT_EQ(migrateNode(node, "A", 1, 5, steps), 3) << "no step leads on from 3";
  EXPECT_EQ(node.dump(), R"({"version":3,"params":{"first":1,"second":1}})");
  EXPECT_EQ(migrateNode(node, "A", 3, 3, steps), 3);
}

/// A graph of TestGuides "g", TestMoves "m1" to "m3", a TestTint "t" and a TestGrow "grow".
std::string chained(const std::string& wires) {
  return R"({"nodes": [{"name": "g", "type": "TestGuides"}, {"name": "s", "type": "TestStrands"},
             {"name": "m1", "type": "TestMove"}, {"name": "m2", "type": "TestMove"},
             {"name": "m3", "type": "TestMove"}, {"name": "t", "type": "TestTint"},
             {"name": "grow", "type": "TestGrow"}], "connections": [)" +
         wires + R"(], "output": "t"})";
}

std::string wire(const std::string& from, const std::string& to,
                 const std::string& input = "strands") {
  return R"({"from": ")" + from + R"(", "to": ")" + to + R"(", "input": ")" + input + R"("})";
}

TEST(GraphJson, WiresAreJudgedWhateverTheirOrder) {
  test::registerTestOperators();
  std::vector<std::string> bad = {wire("g", "m1"), wire("m1", "m2"), wire("m2", "m3"),
                                  wire("m3", "t")};
  std::vector<std::string> good = {wire("s", "m1"), wire("m1", "m2"), wire("m2", "m3"),
                                   wire("m3", "t"), wire("g", "grow", "guides")};
  const auto load = [](const std::vector<std::string>& wires) {
    std::string list;
    for (const std::string& one : wires) list += (list.empty() ? "" : ", ") + one;
    return messageOf([&] {
      const Json written = graphToJson(graphFromJson(chained(list)));
      graphFromJson(written);
    });
  };
  std::sort(bad.begin(), bad.end());
  std::sort(good.begin(), good.end());
  do {
    EXPECT_EQ(load(bad), "type mismatch: Guides -> Strands");
  } while (std::next_permutation(bad.begin(), bad.end()));
  do {
    EXPECT_EQ(load(good), "");
  } while (std::next_permutation(good.begin(), good.end()));
}

TEST(GraphJson, AFaultAboveACycleIsToldFirst) {
  test::registerTestOperators();
  const auto load = [](std::initializer_list<std::string> wires) {
    std::string list;
    for (const std::string& one : wires) list += (list.empty() ? "" : ", ") + one;
    return messageOf([&] { graphFromJson(chained(list)); });
  };
  const char* cycle = "connection would create a cycle";
  const char* mismatch = "type mismatch: Guides -> Strands";
  EXPECT_EQ(load({wire("m1", "m2"), wire("g", "t"), wire("m2", "m3"), wire("m3", "m1")}), mismatch);
  EXPECT_EQ(load({wire("m1", "m2"), wire("m2", "m3"), wire("m3", "m1"), wire("g", "t")}), cycle);
  // The wire that closes the cycle takes the place of the one that tells what the chain carries.
  EXPECT_EQ(load({wire("g", "m1"), wire("m1", "m2"), wire("m2", "t"), wire("m2", "m1"),
                  wire("m2", "m3"), wire("g", "grow", "guides")}),
            mismatch);
  EXPECT_EQ(load({wire("s", "m1"), wire("m1", "m2"), wire("m2", "t"), wire("m2", "m1"),
                  wire("m2", "m3"), wire("g", "grow", "guides")}),
            cycle);
}

TEST(GraphJson, OfTwoWiresIntoOneInputTheLastStands) {
  test::registerTestOperators();
  const GraphDocument document =
      graphFromJson(chained(wire("m1", "t") + ", " + wire("s", "m2") + ", " + wire("m2", "t")));
  EXPECT_EQ(document.graph.node(document.output).sources[0], document.graph.findNode("m2"));
  EXPECT_EQ(graphToJson(document)["connections"].size(), 2u);
  // The wire that gave way is judged all the same.
  EXPECT_EQ(messageOf([] { graphFromJson(chained(wire("g", "t") + ", " + wire("s", "t"))); }),
            "type mismatch: Guides -> Strands");
}

TEST(GraphJson, DefaultGraphIsWhole) {
  EXPECT_EQ(Json::parse(defaultGraphText()), Json::parse(R"({
    "version": 1,
    "nodes": [
      {"name": "scalp", "type": "Scalp"},
      {"name": "guides", "type": "Guides"},
      {"name": "scatter", "type": "Scatter"},
      {"name": "interpolate", "type": "Interpolate"},
      {"name": "length", "type": "Length",
       "params": {"fraction": 1.0, "trimMin": 0.0, "trimMax": 0.2}},
      {"name": "noise", "type": "Noise"},
      {"name": "color", "type": "HairColor"},
      {"name": "width", "type": "Width"},
      {"name": "resample", "type": "Resample"},
      {"name": "output", "type": "Output"}
    ],
    "connections": [
      {"from": "scalp", "to": "scatter", "input": "scalp"},
      {"from": "scatter", "to": "interpolate", "input": "strands"},
      {"from": "guides", "to": "interpolate", "input": "guides"},
      {"from": "scalp", "to": "interpolate", "input": "scalp"},
      {"from": "interpolate", "to": "length", "input": "strands"},
      {"from": "length", "to": "noise", "input": "strands"},
      {"from": "noise", "to": "color", "input": "strands"},
      {"from": "color", "to": "width", "input": "strands"},
      {"from": "width", "to": "resample", "input": "strands"},
      {"from": "resample", "to": "output", "input": "strands"}
    ],
    "output": "output"
  })"));
  EXPECT_EQ(graphFromJson(defaultGraphText()).graph.nodes().size(), 10u);
}

}  // namespace
}  // namespace kestrane
