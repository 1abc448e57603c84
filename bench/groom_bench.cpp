// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

// A whole groom: the default graph at 10k to 4M strands of 17 points, grown on the sample head.
// Rates are strands a second; counters named after nodes are milliseconds of one evaluation.

#include <benchmark/benchmark.h>

#include <chrono>
#include <string>

#include "bench/support/bench_groom.h"
#include "core/base/json.h"
#include "core/base/parallel.h"

namespace kestrane {
namespace {

void countStrands(benchmark::State& state, const BenchGroom& groom) {
  state.SetItemsProcessed(state.iterations() * groom.strandCount());
  state.SetLabel("strands");
}

/// Growth from nothing, with at most that many threads (0: all).
void growFirst(benchmark::State& state, std::size_t threads) {
  std::int64_t strands = 0;
  for (auto _ : state) {
    state.PauseTiming();
    auto groom = std::make_unique<BenchGroom>(state.range(0));
    state.ResumeTiming();
    runWithThreads(threads, [&] { groom->evaluate(); });
    state.PauseTiming();
    groom->countNodeTimes(state);
    strands += groom->strandCount();
    groom.reset();
    state.ResumeTiming();
  }
  state.SetItemsProcessed(strands);
  state.SetLabel("strands");
  // Says how growth keeps its pace with the number of strands. The time over 1e-9 of them.
  state.counters["ns_per_strand"] =
      benchmark::Counter(static_cast<double>(strands) * 1e-9,
                         benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void defaultGraphFirst(benchmark::State& state) {
  growFirst(state, 0);
}
/// What a second core adds.
void defaultGraphFirstByOneCore(benchmark::State& state) {
  growFirst(state, 1);
}

/// One edit after another, as they come while somebody drags: edit(groom, number), then
/// after(groom, milliseconds). The first one is not measured, as it alone finds no arrays to use
/// again.
template <class Edit, class After>
void drag(benchmark::State& state, BenchGroom& groom, const Edit& edit, const After& after) {
  groom.evaluate();
  int number = 0;
  edit(groom, number++);
  groom.evaluate();
  for (auto _ : state) {
    state.PauseTiming();
    edit(groom, number++);
    state.ResumeTiming();
    const auto start = std::chrono::steady_clock::now();
    groom.evaluate();
    const std::chrono::duration<double, std::milli> time = std::chrono::steady_clock::now() - start;
    after(groom, time.count());
  }
  groom.countNodeTimes(state);
  countStrands(state, groom);
}
void nothingAfter(BenchGroom&, double) {}

void threeGuidesMoved(benchmark::State& state) {
  BenchGroom groom(state.range(0));
  drag(
      state, groom,
      [](BenchGroom& g, int n) {
        g.session.setGuides(g.threeGuidesMoved(0.05f * static_cast<float>(n + 1)));
      },
      nothingAfter);
}

/// The last node but one: Width and Resample run.
void widthSliderMoved(benchmark::State& state) {
  BenchGroom groom(state.range(0));
  drag(
      state, groom, [](BenchGroom& g, int n) { g.set("width", "width", 0.0071 + 0.0001 * n); },
      nothingAfter);
}

/// The last node's slider, one that leaves its result as it is. The counter is what an evaluation
/// takes beyond the node's own time.
void lastSliderMoved(benchmark::State& state) {
  BenchGroom groom(state.range(0));
  double evaluations = 0.0, nodes = 0.0;
  drag(
      state, groom,
      [](BenchGroom& g, int n) {
        g.set("resample", "minSegments", std::int64_t{3 + 13 * (n % 2)});
      },
      [&](BenchGroom& g, double milliseconds) {
        evaluations += milliseconds;
        nodes += g.nodeTime("resample");
      });
  state.counters["beyond_ms"] = (evaluations - nodes) / static_cast<double>(state.iterations());
}

/// A new pose of the scalp: guides follow it, and everything grows anew.
void scalpMoved(benchmark::State& state) {
  BenchGroom groom(state.range(0));
  groom.evaluatePoses(state);
  groom.countNodeTimes(state);
  countStrands(state, groom);
}

/// The same where strands grow at rest and are carried by the scalp.
void scalpFollowed(benchmark::State& state) {
  BenchGroom groom(state.range(0));
  groom.session.setFollowScalp(true);
  groom.evaluatePoses(state);
  countStrands(state, groom);
}

/// The default graph with more Width nodes before its Resample, up to `count` nodes in all.
std::string longGraph(std::size_t count) {
  Json graph = parseJson(GroomSession::defaultGraph());
  Json& connections = graph["connections"];
  std::string last = "width";
  for (std::size_t i = graph["nodes"].size(); i < count; ++i) {
    const std::string name = "width" + std::to_string(i);
    graph["nodes"].push_back({{"name", name}, {"type", "Width"}});
    connections.push_back({{"from", last}, {"to", name}, {"input", "strands"}});
    last = name;
  }
  for (Json& connection : connections) {
    if (connection["to"] == "resample") connection["from"] = last;
  }
  return graph.dump();
}

/// Argument 0: nodes. What a host pays that asks for an evaluation to be sure; the strands, 1000
/// here, make no difference.
void nothingChanged(benchmark::State& state) {
  BenchGroom groom(1000, longGraph(static_cast<std::size_t>(state.range(0))));
  groom.evaluate();
  for (auto _ : state) groom.evaluate();
  if (groom.session.graphDocument().graph.nodes().size() !=
      static_cast<std::size_t>(state.range(0))) {
    state.SkipWithError("the graph has another number of nodes");
  }
}

constexpr auto unit = benchmark::kMillisecond;
#define SIZES ->Arg(10000)->Arg(100000)->Arg(1000000)->Unit(unit)->UseRealTime()
BENCHMARK(defaultGraphFirst) SIZES;
// Its arrays fill gigabytes; a few runs are enough.
BENCHMARK(defaultGraphFirst)
    ->Arg(4000000)
    ->Unit(unit)
    ->UseRealTime()
    ->Iterations(1)
    ->Repetitions(3);
BENCHMARK(defaultGraphFirstByOneCore) SIZES;
BENCHMARK(threeGuidesMoved) SIZES;
BENCHMARK(widthSliderMoved) SIZES;
BENCHMARK(lastSliderMoved) SIZES;
BENCHMARK(scalpMoved)->Arg(500000)->Unit(unit)->UseRealTime();
BENCHMARK(scalpFollowed)->Arg(500000)->Unit(unit)->UseRealTime();
BENCHMARK(nothingChanged)->ArgName("nodes")->Arg(10)->Arg(300)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace kestrane
