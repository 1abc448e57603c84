// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <cfloat>
#include <limits>

#include "core/base/parallel.h"
#include "core/graph/graph.h"
#include "core/graph/graph_evaluation.h"
#include "tests/ops/ops_fixtures.h"

namespace kestrane {
namespace {

using test::OpsFixture;

struct SweepCase {
  std::string name;
  StrandSet strands;
};

/// Strands that operators meet in the wild and should live through.
std::vector<SweepCase> sweepCases(const OpsFixture& fixture) {
  std::vector<SweepCase> cases;
  cases.push_back({"empty", StrandSet()});
  cases.push_back({"ordinary", fixture.rootedStrands(40)});
  cases.push_back({"one point each", fixture.rootedStrands(6, 1)});
  cases.push_back({"two points each", fixture.rootedStrands(6, 2)});
  StrandSet mixed = fixture.rootedStrands(5, 4);
  mixed.addStrand(9001, {}, {});
  mixed.addStrand(9002, {}, std::vector<Vec3f>{{1, 2, 3}});
  mixed.append(fixture.rootedStrands(3, 7).subset(std::vector<std::uint32_t>{0, 1, 2}));
  mixed.addStrand(9003, {}, {});
  cases.push_back({"mixed counts, unrooted and pointless", mixed});
  StrandSet coincident = fixture.rootedStrands(6, 5);
  for (Vec3f& p : coincident.mutablePoints()) p = {1, 1, 1};
  cases.push_back({"coincident", coincident});
  StrandSet huge = fixture.rootedStrands(6, 5);
  for (Vec3f& p : huge.mutablePoints()) p = p * 1e30f;
  cases.push_back({"huge", huge});
  StrandSet broken = fixture.rootedStrands(6, 5);
  broken.mutablePoints()[7] = {std::numeric_limits<float>::quiet_NaN(), 0, 0};
  broken.mutablePoints()[13] = {0, std::numeric_limits<float>::infinity(), 0};
  cases.push_back({"not finite", broken});
  StrandSet badRoots = fixture.rootedStrands(4, 5);
  badRoots.mutableRoots()[0].face = INT32_MAX;
  badRoots.mutableRoots()[1].face = INT32_MIN;
  cases.push_back({"roots off the scalp", badRoots});
  return cases;
}

TEST(OperatorSweep, EveryOperatorLivesThroughEveryInputAndLeavesItUntouched) {
  OpsFixture fixture;
  for (const std::string& type : OperatorRegistry::instance().types()) {
    for (const SweepCase& item : sweepCases(fixture)) {
      SCOPED_TRACE(type + " on " + item.name);
      const auto op = fixture.make(type);
      const auto input = std::make_shared<const StrandSet>(item.strands);
      const std::uint64_t before = input->contentHash();
      const auto inputs = fixture.inputsFor(*op, input);
      const GraphValue value = op->evaluate(fixture.context, inputs);
      EXPECT_EQ(input->contentHash(), before);
      const StrandSetPtr result = valueAs<StrandSet>(value);
      if (!result) continue;
      std::string error;
      EXPECT_TRUE(result->validate(&error)) << error;
      if (item.name == "ordinary") test::expectValidGroom(*result);
    }
  }
}

TEST(OperatorSweep, EveryOperatorGivesTheSameBytesAtAnyNumberOfThreads) {
  OpsFixture fixture;
  const StrandSet strands = fixture.rootedStrands(3000);
  for (const std::string& type : OperatorRegistry::instance().types()) {
    SCOPED_TRACE(type);
    const auto resultAt = [&](std::size_t threads) {
      setThreadCount(threads);
      const auto op = fixture.make(type);
      StrandSetPtr result = fixture.run(*op, strands);
      setThreadCount(0);
      return result;
    };
    const StrandSetPtr one = resultAt(1), many = resultAt(0);
    ASSERT_EQ(one != nullptr, many != nullptr);
    if (one) {
      test::expectSameStrands(*one, *many);
    }
  }
}

TEST(OperatorSweep, ThreadsMayEvaluateDifferentOperatorsAtOnce) {
  OpsFixture fixture;
  const auto strands = std::make_shared<const StrandSet>(fixture.rootedStrands(500));
  const std::vector<std::string> types = OperatorRegistry::instance().types();
  std::vector<std::uint64_t> apart(types.size(), 0), together(types.size(), 0);
  const auto evaluateAt = [&](std::size_t i) -> std::uint64_t {
    const auto op = fixture.make(types[i]);
    const auto result =
        valueAs<StrandSet>(op->evaluate(fixture.context, fixture.inputsFor(*op, strands)));
    return result ? result->contentHash() : 0;
  };
  for (std::size_t i = 0; i < types.size(); ++i) apart[i] = evaluateAt(i);
  parallelRange(0, types.size(), 1, [&](std::size_t first, std::size_t last) {
    for (std::size_t i = first; i < last; ++i) together[i] = evaluateAt(i);
  });
  EXPECT_EQ(apart, together);
}

/// Moves the tips of some strands.
StrandSet nudged(const StrandSet& strands, const std::vector<std::uint32_t>& which) {
  StrandSet moved = strands;
  for (const std::uint32_t i : which) {
    const std::size_t tip = strands.offsets()[i + 1] - 1;
    moved.mutablePoints()[tip] += Vec3f{0.3f, -0.2f, 0.1f};
  }
  return moved;
}

TEST(OperatorSweep, AnIncrementalRunEqualsAWholeOne) {
  OpsFixture fixture;
  const StrandSet before = fixture.rootedStrands(200);
  const std::vector<std::uint32_t> which{3, 50, 51, 199};
  const StrandSet after = nudged(before, which);
  const auto moved = std::make_shared<const StrandChanges>(StrandChanges{false, which});
  int ran = 0;
  for (const std::string& type : OperatorRegistry::instance().types()) {
    SCOPED_TRACE(type);
    for (const bool recycle : {false, true}) {
      const auto op = fixture.make(type);
      std::vector<GraphValue> previous{fixture.run(*op, before)};
      const std::uint64_t previousHash =
          valueAs<StrandSet>(previous[0]) ? valueAs<StrandSet>(previous[0])->contentHash() : 0;
      const StrandSetPtr kept = recycle ? nullptr : valueAs<StrandSet>(previous[0]);
      const auto inputs = fixture.inputsFor(*op, std::make_shared<const StrandSet>(after));
      std::vector<StrandChangesPtr> changes(inputs.size(), noStrandChanges());
      if (changes.empty()) continue;
      changes[0] = moved;
      IncrementalState state{previous, changes, inputs, recycle};
      GraphValue result;
      StrandChangesPtr changed;
      if (!op->evaluateChanged(fixture.context, inputs, state, result, changed)) continue;
      ++ran;
      const StrandSetPtr incremental = valueAs<StrandSet>(result);
      const StrandSetPtr whole = fixture.run(*fixture.make(type), after);
      ASSERT_TRUE(incremental && whole && changed);
      test::expectSameStrands(*whole, *incremental);
      EXPECT_EQ(changed->strands, which);
      if (kept) {
        EXPECT_EQ(kept->contentHash(), previousHash);
      }
    }
  }
  EXPECT_GE(ran, 2 * 6) << "per-strand operators should take the incremental path";
}

TEST(OperatorSweep, RecycledRunsCopyNoArray) {
  OpsFixture fixture;
  const StrandSet before = fixture.rootedStrands(200);
  const StrandSet after = nudged(before, {7});
  const auto op = fixture.make("Noise");
  std::vector<GraphValue> previous{fixture.run(*op, before)};
  const Vec3f* const array = valueAs<StrandSet>(previous[0])->points().data();
  const auto inputs = fixture.inputsFor(*op, std::make_shared<const StrandSet>(after));
  const std::vector<StrandChangesPtr> changes{
      std::make_shared<const StrandChanges>(StrandChanges{false, {7}})};
  IncrementalState state{previous, changes, inputs, true};
  GraphValue result;
  StrandChangesPtr changed;
  ASSERT_TRUE(op->evaluateChanged(fixture.context, inputs, state, result, changed));
  EXPECT_EQ(valueAs<StrandSet>(result)->points().data(), array);
}

TEST(OperatorSweep, EveryParameterMovesTheNodesKey) {
  OpsFixture fixture;
  for (const std::string& type : OperatorRegistry::instance().types()) {
    Graph graph;
    const std::uint32_t id = graph.addNode(fixture.make(type));
    for (const ParamSpec& spec : effectiveParams(*graph.node(id).op)) {
      SCOPED_TRACE(type + "." + spec.name);
      const std::uint64_t before = nodeKey(graph, id, fixture.context);
      ParamValue other;
      switch (kindOf(spec.defaultValue)) {
        case ParamKind::boolean:
          other = !std::get<bool>(spec.defaultValue);
          break;
        case ParamKind::integer:
          other = std::get<std::int64_t>(spec.defaultValue) + 1;
          break;
        case ParamKind::number:
          other = std::get<double>(spec.defaultValue) + 0.125;
          break;
        case ParamKind::string:
          other = std::get<std::string>(spec.defaultValue) + "x";
          break;
        case ParamKind::vec3:
          other = std::get<Vec3f>(spec.defaultValue) + Vec3f{0, 0.5f, 0};
          break;
        case ParamKind::ramp:
          other = Ramp({{0.0f, 0.25f}});
          break;
        case ParamKind::map:
          other = MapRef{MapSource::attribute, "other"};
          break;
      }
      graph.node(id).op->parameters.set(spec.name, other);
      EXPECT_NE(nodeKey(graph, id, fixture.context), before);
      graph.node(id).op->parameters.unset(spec.name);
      EXPECT_EQ(nodeKey(graph, id, fixture.context), before);
    }
  }
}

}  // namespace
}  // namespace kestrane
