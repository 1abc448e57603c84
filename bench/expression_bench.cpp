// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <benchmark/benchmark.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <string>
#include <vector>

#include "bench/support/bench_groom.h"
#include "bench/support/expression_points.h"
#include "core/data/polyline.h"
#include "core/expr/expression.h"
#include "core/expr/noise.h"
#include "core/graph/map_fields.h"

namespace kestrane {
namespace {

void evaluateBlocks(benchmark::State& state, const std::string& text) {
  const Expression expression = Expression::compile(text);
  const ExpressionPoints points(static_cast<std::size_t>(state.range(0)));
  std::vector<float> out(points.u.size());
  const ExpressionBlock block = points.block();
  for (auto _ : state) {
    expression.evaluateBlock(block, std::span<float>(out));
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  for (std::size_t i = 0; i < out.size(); i += 97) {
    const float one = expression.evaluate(points.record(i));
    if (std::bit_cast<std::uint32_t>(one) != std::bit_cast<std::uint32_t>(out[i])) {
      state.SkipWithError("blocks differ from single evaluations");
      return;
    }
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(out.size()) * state.iterations());
}

void blocksOfPoints(benchmark::State& state) {
  evaluateBlocks(state, benchFormula);
}
BENCHMARK(blocksOfPoints)->Arg(17)->Arg(benchFormulaPoints)->Arg(1'000'000 * 17);

/// The formula as the compiler sees it: what nobody who writes it at run time can hope for.
constexpr auto formulaByLambda = [](float x, float u, float v, float t) {
  const float wave = std::clamp(std::sin(x * 6.28f) * 0.5f + 0.5f, 0.0f, 1.0f);
  return wave * (u + (v - u) * t) + std::pow(t, 1.5f);
};

void blocksOfPointsByLambda(benchmark::State& state) {
  const ExpressionPoints points(static_cast<std::size_t>(state.range(0)));
  std::vector<float> out(points.size());
  for (auto _ : state) {
    for (std::size_t i = 0; i < out.size(); ++i) {
      out[i] = formulaByLambda(points.x[i], points.u[i], points.v[i], points.t[i]);
    }
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  if (!sameFormulaValues(points, out)) state.SkipWithError("the lambda gives other values");
  state.SetItemsProcessed(state.range(0) * state.iterations());
}
BENCHMARK(blocksOfPointsByLambda)->Arg(17)->Arg(benchFormulaPoints)->Arg(1'000'000 * 17);

/// Strands of 17 points on the benchmarks' scalp.
struct FormulaStrands {
  ScalpMeshPtr scalp = benchScalp();
  StrandSet strands;

  explicit FormulaStrands(std::int64_t count) {
    Vec3f points[17];
    for (std::int64_t i = 0; i < count; ++i) {
      const auto face = static_cast<std::size_t>(i) * scalp->triangleCount() / count;
      const StrandRoot root{static_cast<std::int32_t>(face), 0.25f, 0.5f};
      const Vec3f start = scalp->positionAt(root), normal = scalp->normalAt(root);
      for (int k = 0; k < 17; ++k) points[k] = start + normal * (0.1f * static_cast<float>(k));
      strands.addStrand(static_cast<std::uint64_t>(i), root, points);
    }
  }
};

/// Argument 0: strands. What a node does with a formula on a parameter.
void strandsOfField(benchmark::State& state) {
  const FormulaStrands given(state.range(0));
  const ScalarField field = detail::expressionField(
      "formula", {MapSource::expression, benchFormula}, {}, {&given.strands, given.scalp});
  std::vector<float> out(given.strands.pointCount());
  const auto& offsets = given.strands.offsets();
  for (auto _ : state) {
    FieldReader reader(field);
    for (std::size_t s = 0; s < given.strands.strandCount(); ++s) {
      const std::size_t count = offsets[s + 1] - offsets[s];
      std::copy_n(reader.points(s, count), count, out.data() + offsets[s]);
    }
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(out.size()) * state.iterations());
}
BENCHMARK(strandsOfField)->Arg(10'000);

/// The same with the formula compiled into the loop.
void strandsOfFieldByLambda(benchmark::State& state) {
  const FormulaStrands given(state.range(0));
  std::vector<float> out(given.strands.pointCount()), t;
  const auto& offsets = given.strands.offsets();
  for (auto _ : state) {
    for (std::size_t s = 0; s < given.strands.strandCount(); ++s) {
      const std::span<const Vec3f> points = given.strands.strandPoints(s);
      t.resize(points.size());
      arcShares(points, t);
      const StrandRoot root = given.strands.roots()[s];
      const float x = given.scalp->positionAt(root).x;
      const Vec2f uv = given.scalp->uvAt(root);
      for (std::size_t i = 0; i < points.size(); ++i) {
        out[offsets[s] + i] = formulaByLambda(x, uv.x, uv.y, t[i]);
      }
    }
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(out.size()) * state.iterations());
}
BENCHMARK(strandsOfFieldByLambda)->Arg(10'000);

/// Argument 0: strands. The default graph with formulas on Width and on Noise, of points and of
/// strands; the nodes' milliseconds among the counters.
void groomWithExpressions(benchmark::State& state) {
  BenchGroom groom(state.range(0));
  const auto formula = [](const char* text) { return MapRef{MapSource::expression, text}; };
  groom.set("noise", "amplitude", formula("0.1 + 0.2 * fbm(P * 0.5, 2) * t"));
  groom.set("noise", "fraction", formula("0.75 + 0.25 * sin(u * 40) * v"));
  double width = 0.004;
  for (auto _ : state) {
    // Another range each time, so that the nodes run again.
    MapRef map = formula(benchFormula);
    map.max = static_cast<float>(width += 0.0001);
    groom.set("width", "width", map);
    map = formula("0.1 + 0.2 * fbm(P * 0.5, 2) * t");
    map.max = static_cast<float>(1.0 + width);
    groom.set("noise", "amplitude", map);
    groom.evaluate();
  }
  state.counters["noise_ms"] = groom.nodeTime("noise");
  state.counters["width_ms"] = groom.nodeTime("width");
}
BENCHMARK(groomWithExpressions)
    ->Arg(1'000'000)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(5);

void blocksOfNegativePowers(benchmark::State& state) {
  evaluateBlocks(state, "(x - 1e5) ^ 3 + sin(x * 1e9)");
}
BENCHMARK(blocksOfNegativePowers)->Arg(10'000 * 17);

void blocksOfNoise(benchmark::State& state) {
  evaluateBlocks(state, "fbm([x, u, v] * 3, 2)");
}
BENCHMARK(blocksOfNoise)->Arg(10'000 * 17);

void oneAtATime(benchmark::State& state) {
  const Expression expression = Expression::compile(benchFormula);
  const ExpressionPoints points(static_cast<std::size_t>(state.range(0)));
  float sum = 0.0f;
  for (auto _ : state) {
    for (std::size_t i = 0; i < points.u.size(); ++i) sum += expression.evaluate(points.record(i));
  }
  benchmark::DoNotOptimize(sum);
  state.SetItemsProcessed(state.range(0) * state.iterations());
}
BENCHMARK(oneAtATime)->Arg(10'000 * 17);

void vectorNoises(benchmark::State& state) {
  const ExpressionPoints points(static_cast<std::size_t>(state.range(0)));
  std::vector<Vec3f> out(points.u.size());
  for (auto _ : state) {
    for (std::size_t i = 0; i < out.size(); ++i) {
      out[i] = vnoise({points.x[i] * 3.0f, points.u[i] * 50.0f, points.v[i] * 50.0f});
    }
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.range(0) * state.iterations());
}
BENCHMARK(vectorNoises)->Arg(10'000 * 17);

void compiles(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(Expression::compile(benchFormula).stackDepth());
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(compiles);

}  // namespace
}  // namespace kestrane
