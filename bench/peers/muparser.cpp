// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

// The expression by muParser, in its bulk mode: a byte code run over many elements in one call.

#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <muParser.h>

#include <algorithm>
#include <vector>

#include "bench/support/expression_points.h"

namespace kestrane {
namespace {

/// Bulk mode spreads over cores by OpenMP where the library was built so; the comparison is of one
/// core. Looked up by name, since only the library knows whether it brings OpenMP.
void keepToOneCore() {
  using SetThreads = void (*)(int);
  if (void* found = dlsym(RTLD_DEFAULT, "omp_set_num_threads")) {
    reinterpret_cast<SetThreads>(found)(1);
  }
}

mu::value_type clampTo(mu::value_type value, mu::value_type low, mu::value_type high) {
  return std::clamp(value, low, high);
}
mu::value_type mix(mu::value_type a, mu::value_type b, mu::value_type t) {
  return a + (b - a) * t;
}

/// Argument 0: points. muParser reckons in its own number type, so the arrays are of that type.
void blocksOfPointsByMuparser(benchmark::State& state) {
  keepToOneCore();
  const ExpressionPoints points(static_cast<std::size_t>(state.range(0)));
  using Numbers = std::vector<mu::value_type>;
  Numbers x(points.x.begin(), points.x.end()), u(points.u.begin(), points.u.end());
  Numbers v(points.v.begin(), points.v.end()), t(points.t.begin(), points.t.end());
  Numbers out(points.size());
  mu::Parser parser;
  parser.DefineVar("x", x.data());
  parser.DefineVar("u", u.data());
  parser.DefineVar("v", v.data());
  parser.DefineVar("t", t.data());
  parser.DefineFun("clamp", clampTo);
  parser.DefineFun("mix", mix);
  // Its power is the operator: the formula is ours but for the spelling of that.
  parser.SetExpr("clamp(sin(x*6.28)*0.5+0.5,0,1)*mix(u,v,t)+t^1.5");
  for (auto _ : state) {
    parser.Eval(out.data(), static_cast<int>(out.size()));
    benchmark::ClobberMemory();
  }
  if (!sameFormulaValues(points, out)) state.SkipWithError("muParser gives other values");
  state.SetItemsProcessed(state.range(0) * state.iterations());
}
BENCHMARK(blocksOfPointsByMuparser)->Arg(17)->Arg(benchFormulaPoints);

}  // namespace
}  // namespace kestrane
