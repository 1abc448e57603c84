// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

// The expression by LuaJIT: a loop over plain float arrays, which its tracing compiler turns into
// machine code at run time.

#include <benchmark/benchmark.h>
#include <lua.hpp>

#include <memory>
#include <vector>

#include "bench/support/expression_points.h"

namespace kestrane {
namespace {

constexpr const char* program = R"lua(
local ffi = require("ffi")
local sin, min, max = math.sin, math.min, math.max
return function(x, u, v, t, out, count)
  x, u = ffi.cast("const float*", x), ffi.cast("const float*", u)
  v, t = ffi.cast("const float*", v), ffi.cast("const float*", t)
  out = ffi.cast("float*", out)
  for i = 0, count - 1 do
    local wave = min(max(sin(x[i] * 6.28) * 0.5 + 0.5, 0), 1)
    out[i] = wave * (u[i] + (v[i] - u[i]) * t[i]) + t[i] ^ 1.5
  end
end
)lua";

struct CloseLua {
  void operator()(lua_State* lua) const { lua_close(lua); }
};

void blocksOfPointsByLuajit(benchmark::State& state) {
  ExpressionPoints points(static_cast<std::size_t>(state.range(0)));
  std::vector<float> out(points.size());
  const std::unique_ptr<lua_State, CloseLua> lua(luaL_newstate());
  luaL_openlibs(lua.get());
  bool failed = luaL_dostring(lua.get(), program) != 0;
  for (auto _ : state) {
    if (failed) break;
    lua_pushvalue(lua.get(), 1);
    for (std::vector<float>* array : {&points.x, &points.u, &points.v, &points.t, &out}) {
      lua_pushlightuserdata(lua.get(), array->data());
    }
    lua_pushinteger(lua.get(), static_cast<lua_Integer>(out.size()));
    failed = lua_pcall(lua.get(), 6, 0, 0) != 0;
    benchmark::ClobberMemory();
  }
  if (failed) {
    state.SkipWithError(lua_tostring(lua.get(), -1));
  } else if (!sameFormulaValues(points, out)) {
    state.SkipWithError("LuaJIT gives other values");
  }
  state.SetItemsProcessed(state.range(0) * state.iterations());
}
BENCHMARK(blocksOfPointsByLuajit)->Arg(17)->Arg(benchFormulaPoints);

}  // namespace
}  // namespace kestrane
