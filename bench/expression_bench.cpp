// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <benchmark/benchmark.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <string>
#include <vector>

#include "bench/support/expression_points.h"
#include "core/expr/expression.h"
#include "core/expr/noise.h"

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
void blocksOfPointsByLambda(benchmark::State& state) {
  const ExpressionPoints points(static_cast<std::size_t>(state.range(0)));
  std::vector<float> out(points.size());
  const auto formula = [](float x, float u, float v, float t) {
    const float wave = std::clamp(std::sin(x * 6.28f) * 0.5f + 0.5f, 0.0f, 1.0f);
    return wave * (u + (v - u) * t) + std::pow(t, 1.5f);
  };
  for (auto _ : state) {
    for (std::size_t i = 0; i < out.size(); ++i) {
      out[i] = formula(points.x[i], points.u[i], points.v[i], points.t[i]);
    }
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  if (!sameFormulaValues(points, out)) state.SkipWithError("the lambda gives other values");
  state.SetItemsProcessed(state.range(0) * state.iterations());
}
BENCHMARK(blocksOfPointsByLambda)->Arg(17)->Arg(benchFormulaPoints)->Arg(1'000'000 * 17);

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
