// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <benchmark/benchmark.h>

#include <bit>
#include <string>
#include <vector>

#include "core/expr/expression.h"
#include "core/expr/noise.h"

namespace kestrane {
namespace {

constexpr const char* formula = "clamp(sin(x*6.28)*0.5+0.5,0,1)*mix(u,v,t)+pow(t,1.5)";

/// Points of strands: x and t vary per point, u and v per strand.
struct Points {
  std::vector<float> u, v, x, t;

  explicit Points(std::size_t count) : u(count), v(count), x(count), t(count) {
    for (std::size_t i = 0; i < count; ++i) {
      const auto strand = static_cast<float>(i / 17);
      t[i] = static_cast<float>(i % 17) / 16.0f;
      u[i] = strand * 0.37f - static_cast<float>(static_cast<int>(strand * 0.37f));
      v[i] = 1.0f - u[i];
      x[i] = strand * 0.013f + t[i];
    }
  }
  ExpressionBlock block() const {
    ExpressionBlock block;
    block.count = u.size();
    block[ExpressionSlot::u] = u.data();
    block[ExpressionSlot::v] = v.data();
    block[ExpressionSlot::x] = x.data();
    block[ExpressionSlot::t] = t.data();
    return block;
  }
  ExpressionRecord record(std::size_t i) const {
    ExpressionRecord record;
    record[ExpressionSlot::u] = u[i];
    record[ExpressionSlot::v] = v[i];
    record[ExpressionSlot::x] = x[i];
    record[ExpressionSlot::t] = t[i];
    return record;
  }
};

void evaluateBlocks(benchmark::State& state, const std::string& text) {
  const Expression expression = Expression::compile(text);
  const Points points(static_cast<std::size_t>(state.range(0)));
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
  evaluateBlocks(state, formula);
}
BENCHMARK(blocksOfPoints)->Arg(17)->Arg(10'000 * 17)->Arg(100'000 * 17)->Arg(1'000'000 * 17);

void blocksOfNegativePowers(benchmark::State& state) {
  evaluateBlocks(state, "(x - 1e5) ^ 3 + sin(x * 1e9)");
}
BENCHMARK(blocksOfNegativePowers)->Arg(10'000 * 17);

void blocksOfNoise(benchmark::State& state) {
  evaluateBlocks(state, "fbm([x, u, v] * 3, 2)");
}
BENCHMARK(blocksOfNoise)->Arg(10'000 * 17);

void oneAtATime(benchmark::State& state) {
  const Expression expression = Expression::compile(formula);
  const Points points(static_cast<std::size_t>(state.range(0)));
  float sum = 0.0f;
  for (auto _ : state) {
    for (std::size_t i = 0; i < points.u.size(); ++i) sum += expression.evaluate(points.record(i));
  }
  benchmark::DoNotOptimize(sum);
  state.SetItemsProcessed(state.range(0) * state.iterations());
}
BENCHMARK(oneAtATime)->Arg(10'000 * 17);

void vectorNoises(benchmark::State& state) {
  const Points points(static_cast<std::size_t>(state.range(0)));
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
  for (auto _ : state) benchmark::DoNotOptimize(Expression::compile(formula).stackDepth());
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(compiles);

}  // namespace
}  // namespace kestrane
