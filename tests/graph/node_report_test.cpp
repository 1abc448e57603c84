// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "tests/graph/test_operators.h"

namespace kestrane {
namespace {

using test::Custom;
using test::TestGraph;

TEST(NodeReport, NotesJoinWarningsAndAdvice) {
  TestGraph t;
  auto op = std::make_unique<Custom>();
  op->ins.clear();
  op->specs = {param("size", 1.0, "")};
  op->advice = "advice";
  op->make = [](const EvalContext& context, auto) {
    for (const char* text : {"second", "first", "second", ""}) context.warn(text);
    return std::vector<GraphValue>(1);
  };
  const auto id = t.addOp(std::move(op));
  t.params(id).set("size", std::string("big"));
  t.evaluateAll(id);
  EXPECT_EQ(t.notes(id),
            "param 'size' takes a float, not a string: its default is used; second; first; "
            "advice");
  EXPECT_GE(t.graph.reports[id].milliseconds, 0.0);
}

TEST(NodeReport, WarningsStandAsTheyAroseWhereThatCanBeToldThreads) {
  TestGraph t;
  auto op = std::make_unique<Custom>();
  op->ins.clear();
  op->make = [](const EvalContext& context, auto) {
    for (const char* loop : {"x", "b"}) {
      context.warn(std::string("before ") + loop);
      parallelRange(0, 64, 1, [&](std::size_t begin, std::size_t) {
        context.warn(loop + std::to_string(3 - begin / 16));
      });
    }
    return std::vector<GraphValue>(1);
  };
  const auto id = t.addOp(std::move(op));
  runWithThreads(4, [&] { t.evaluateAll(id); });
  EXPECT_EQ(t.notes(id), "before x; x0; x1; x2; x3; before b; b0; b1; b2; b3");
}

/// Of a node that runs anew for one frame without keeping the result.
TEST(NodeReport, ReportsAreThoseOfTheResultsThatAreGiven) {
  TestGraph t;
  const auto source = t.add("TestStrands");
  auto op = std::make_unique<Custom>();
  op->make = [](const EvalContext& context, std::span<const GraphValue> in) {
    context.warn("at " + std::to_string(static_cast<int>(context.time)));
    return std::vector<GraphValue>{in[0]};
  };
  op->reads = [](const EvalContext& context) { return static_cast<std::uint64_t>(context.time); };
  const auto timed = t.addOp(std::move(op));
  t.graph.connect(source, timed, 0);
  const auto last = t.then("TestMove");
  t.request.time = 1;
  t.strands(last);
  t.request.time = 2;
  evaluateLean(t.graph, last, t.context());
  EXPECT_EQ(t.notes(timed), "at 2");
  t.request.time = 1;
  t.strands(last);
  EXPECT_EQ(t.notes(timed), "at 1");
}

}  // namespace
}  // namespace kestrane
