// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

// Every operator that makes strands out of strands, one by one, with plain parameters, beside a
// memcpy of the arrays that it reads and writes. Found in the registry, so that a new operator is
// measured without a line here. Each runs again and again on the same strands, its last result
// dropped before the next, as a session recycles arrays.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/support/bench_groom.h"
#include "bench/support/copying.h"
#include "core/graph/operator_registry.h"

namespace kestrane {
namespace {

struct Setting {
  const char* type;
  const char* param;
  ParamValue value;
};

/// For operators whose defaults leave strands as they are.
const std::vector<Setting>& settings() {
  static const std::vector<Setting> list = {
      {"Length", "keep", 0.8},
  };
  return list;
}

/// Operators that never look at points.
bool readsPoints(const std::string& type) {
  return type != "HairColor";
}

/// Whether an operator can be measured with strands as its only input. What grows strands is
/// measured by itself, and utilities do no work of their own.
bool runsOnStrandsAlone(const Operator& op) {
  const std::string category = op.category();
  if (category == "source" || category == "grow" || category == "utility") return false;
  const std::vector<PortSpec> inputs = op.inputs();
  if (inputs.empty() || !portsFit(PortType::strands, inputs[0].type)) return false;
  return std::all_of(inputs.begin() + 1, inputs.end(),
                     [](const PortSpec& p) { return p.optional; });
}

/// One operator with what it runs on.
struct Bench {
  std::unique_ptr<Operator> op;
  std::vector<GraphValue> inputs;
  EvalContext context;

  Bench(const std::string& type, std::int64_t strands)
      : op(OperatorRegistry::instance().create(type)) {
    for (const Setting& setting : settings()) {
      if (type == setting.type) op->parameters.set(setting.param, setting.value);
    }
    // Noisy strands of uneven points: straight ones would make some operators look too good.
    static std::map<std::int64_t, StrandSetPtr> grown;
    StrandSetPtr& input = grown[strands];
    if (!input) {
      BenchGroom groom(strands);
      groom.endAt("noise");
      groom.evaluate();
      input = groom.session.strands();
    }
    inputs.assign(op->inputs().size(), GraphValue());
    inputs[0] = input;
    context.surface = benchScalp();
  }
  StrandSetPtr run() { return valueAs<StrandSet>(op->evaluate(context, inputs)); }
  std::int64_t strandCount() const {
    return static_cast<std::int64_t>(valueAs<StrandSet>(inputs[0])->strandCount());
  }
};

/// What to copy for comparison: the arrays of a result that the operator wrote, which are those
/// that it does not share with its input, and the input's points where they are read alone. An
/// array of which the operator reads one and writes another is copied once, from one to the other.
std::vector<std::span<const std::byte>> arraysOf(const std::string& type, const StrandSet& out,
                                                 const StrandSet& in) {
  std::vector<std::span<const std::byte>> arrays;
  const auto add = [&](const auto& array, bool shared) {
    if (!shared) arrays.push_back(std::as_bytes(std::span(array)));
  };
  add(out.points(), out.sharesPointsWith(in) && !readsPoints(type));
  add(out.widths(), out.sharesWidthsWith(in));
  add(out.ids(), out.sharesIdsWith(in));
  add(out.roots(), out.sharesRootsWith(in));
  add(out.offsets(), out.sharesOffsetsWith(in));
  for (const std::string& name : out.strandChannelNames()) {
    add(*out.strandChannel(name), out.sharesStrandChannelWith(name, in));
  }
  for (const std::string& name : out.pointChannelNames()) {
    add(*out.pointChannel(name), out.sharesPointChannelWith(name, in));
  }
  return arrays;
}

void count(benchmark::State& state, const Bench& bench, std::size_t bytes) {
  state.SetItemsProcessed(state.iterations() * bench.strandCount());
  state.SetLabel("strands");
  state.counters["copied_MB"] = 1e-6 * static_cast<double>(bytes);
}

std::size_t totalBytes(const std::vector<std::span<const std::byte>>& arrays) {
  std::size_t bytes = 0;
  for (const auto array : arrays) bytes += array.size();
  return bytes;
}

void runOperator(benchmark::State& state, const std::string& type, std::int64_t strands) {
  Bench bench(type, strands);
  StrandSetPtr out = bench.run();
  const std::size_t bytes =
      out ? totalBytes(arraysOf(type, *out, *valueAs<StrandSet>(bench.inputs[0]))) : 0;
  if (!out || out == valueAs<StrandSet>(bench.inputs[0])) {
    state.SkipWithError("wrote nothing: give it settings with which it works");
    return;
  }
  for (auto _ : state) {
    out.reset();
    out = bench.run();
  }
  count(state, bench, bytes);
}

void copyArraysOf(benchmark::State& state, const std::string& type, std::int64_t strands) {
  Bench bench(type, strands);
  const StrandSetPtr out = bench.run();
  const auto arrays = arraysOf(type, *out, *valueAs<StrandSet>(bench.inputs[0]));
  std::vector<std::vector<std::byte>> copies;
  for (const auto array : arrays) copies.emplace_back(array.begin(), array.end());
  for (auto _ : state) {
    for (std::size_t i = 0; i < arrays.size(); ++i) copyInParallel(arrays[i], copies[i].data());
    benchmark::ClobberMemory();
  }
  count(state, bench, totalBytes(arrays));
}

void registerOperators() {
  for (const std::string& type : OperatorRegistry::instance().types()) {
    if (!runsOnStrandsAlone(*OperatorRegistry::instance().create(type))) continue;
    for (const std::int64_t strands : {10'000, 100'000, 1'000'000}) {
      const auto add = [&](const char* name, auto&& run) {
        const std::string full = name + ("/" + type + "/" + std::to_string(strands));
        benchmark::RegisterBenchmark(full.c_str(),
                                     [=](benchmark::State& state) { run(state, type, strands); })
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime();
      };
      add("operator", runOperator);
      add("operatorByCopying", copyArraysOf);
    }
  }
}

}  // namespace
}  // namespace kestrane

int main(int argc, char** argv) {
  // Not before main: the registry is made of static objects of other files.
  kestrane::registerOperators();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
