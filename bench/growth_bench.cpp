// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

// The two operators that make hair, each by itself: Scatter places roots, Interpolate shapes
// strands after the guides. Both run in a session on the sample head, and what is reported is the
// node's own time where not told otherwise.

#include <benchmark/benchmark.h>

#include <string>

#include "bench/support/bench_groom.h"
#include "core/graph/operator_registry.h"

namespace kestrane {
namespace {

void countStrands(benchmark::State& state, std::int64_t strands, const char* what) {
  state.SetItemsProcessed(state.iterations() * strands);
  state.SetLabel(what);
}

/// Adds one iteration that took as long as the node did.
void addNodeTime(benchmark::State& state, const BenchGroom& groom, const char* node) {
  state.SetIterationTime(1e-3 * groom.nodeTime(node));
}

/// Bindings and shapes, and all that is made once per pose of the scalp.
void interpolateFirst(benchmark::State& state) {
  std::int64_t strands = 0;
  for (auto _ : state) {
    BenchGroom groom(state.range(0));
    groom.endAt("interpolate");
    groom.evaluate();
    addNodeTime(state, groom, "interpolate");
    strands = groom.strandCount();
  }
  countStrands(state, strands, "strands");
}

/// Shapes alone: bindings hold, but every strand is made anew, since a parameter moves that is no
/// part of the binding.
void interpolateShapes(benchmark::State& state) {
  BenchGroom groom(state.range(0));
  groom.endAt("interpolate");
  groom.evaluate();
  std::int64_t tick = 0;
  for (auto _ : state) {
    // Without a region map the channel's name decides nothing.
    groom.set("interpolate", "regionChannel", "region" + std::to_string(++tick));
    groom.evaluate();
    addNodeTime(state, groom, "interpolate");
  }
  countStrands(state, groom.strandCount(), "strands");
}

/// A new pose of the scalp, whose roots and guides go with it. The whole evaluation: the guides'
/// pose, Scatter and Interpolate, whose own times are counters.
void interpolateMoved(benchmark::State& state) {
  BenchGroom groom(state.range(0));
  groom.endAt("interpolate");
  groom.evaluatePoses(state);
  groom.countNodeTimes(state);
  countStrands(state, groom.strandCount(), "strands");
}

/// A Scatter by itself, with a new seed each time so that no cache helps.
void scatter(benchmark::State& state, double randomness) {
  const ScalpMeshPtr scalp = benchScalp();
  const std::vector<GraphValue> inputs{scalp, GraphValue()};
  EvalContext context;
  context.surface = scalp;
  context.resampleSegments = 16;
  std::int64_t seed = 0, roots = 0;
  const auto op = OperatorRegistry::instance().create("Scatter");
  op->parameters.set("density", static_cast<double>(state.range(0)) / scalp->area());
  op->parameters.set("randomness", randomness);
  for (auto _ : state) {
    op->parameters.set("seed", ++seed);
    const GraphValue strands = op->evaluate(context, inputs);
    roots += static_cast<std::int64_t>(valueAs<StrandSet>(strands)->strandCount());
  }
  state.SetItemsProcessed(roots);
  state.SetLabel("roots");
}

/// Roots at random, each grown into a straight strand of 17 points, as Scatter gives them on.
void scatterRandom(benchmark::State& state) {
  scatter(state, 1.0);
}
/// Roots as even as they get.
void scatterEven(benchmark::State& state) {
  scatter(state, 0.0);
}

constexpr auto unit = benchmark::kMillisecond;
#define SIZES ->Arg(10000)->Arg(100000)->Arg(1000000)->Unit(unit)
BENCHMARK(interpolateFirst) SIZES->UseManualTime();
BENCHMARK(interpolateShapes) SIZES->UseManualTime();
BENCHMARK(interpolateMoved)->Arg(100000)->Arg(500000)->Unit(unit)->UseRealTime();
BENCHMARK(scatterRandom) SIZES->UseRealTime();
BENCHMARK(scatterEven)->Arg(200000)->Unit(unit)->UseRealTime();

}  // namespace
}  // namespace kestrane
