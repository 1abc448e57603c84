// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

// A whole groom: the default graph at 10k, 100k and 1M strands of 17 points. Grown on the mesh and
// guides that KESTRANE_BENCH_SCALP and KESTRANE_BENCH_GUIDES name (OBJ files), else on a sphere
// with guides made here.

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

#include "core/base/json.h"
#include "core/graph/graph_document.h"
#include "core/graph/operator_registry.h"
#include "core/guides/guide_hierarchy.h"
#include "core/session/groom_session.h"
#include "hosts/obj/obj_reader.h"

namespace kestrane {
namespace {

/// The path of a file of real data, or an empty one where there is none.
std::string dataFile(const char* name) {
  const char* folder = std::getenv("KESTRANE_DATA");
  const auto path = std::filesystem::path(folder ? folder : KESTRANE_SAMPLE_DATA) / name;
  return std::filesystem::exists(path) ? path.string() : std::string();
}

ScalpMeshPtr benchScalp() {
  if (const std::string path = dataFile("head.obj"); !path.empty()) {
    return scalpFromObj(readObj(path));
  }
  constexpr int rings = 48, segments = 96;
  std::vector<Vec3f> points;
  std::vector<ScalpMesh::Triangle> triangles;
  for (int r = 0; r <= rings; ++r) {
    for (int s = 0; s < segments; ++s) {
      const float a = 3.14159265f * static_cast<float>(r) / rings;
      const float b = 6.2831853f * static_cast<float>(s) / segments;
      points.push_back(Vec3f{std::sin(a) * std::cos(b), std::cos(a), std::sin(a) * std::sin(b)} *
                       10.0f);
      if (r == 0) continue;
      const int last = (r - 1) * segments, next = (s + 1) % segments;
      triangles.push_back({last + s, last + next, r * segments + next});
      triangles.push_back({last + s, r * segments + next, r * segments + s});
    }
  }
  return std::make_shared<const ScalpMesh>(std::move(points), std::move(triangles));
}

std::shared_ptr<GuideHierarchy> benchGuides(const ScalpMesh& scalp) {
  auto guides = std::make_shared<GuideHierarchy>();
  const std::uint32_t group = guides->addGroup("guides", 0);
  if (const std::string path = dataFile("head_guides.obj"); !path.empty()) {
    for (auto& curve : curvesFromObj(readObj(path))) guides->addGuide(group, std::move(curve));
  } else {
    for (int i = 0; i < 140; ++i) {
      const float y = 1.0f - 1.2f * (static_cast<float>(i) + 0.5f) / 140.0f;
      const float r = std::sqrt(1.0f - y * y), angle = 2.3999632f * static_cast<float>(i);
      const SurfaceHit hit =
          scalp.closestPoint(Vec3f{r * std::cos(angle), y, r * std::sin(angle)} * 10.0f);
      const Vec3f normal = scalp.normalAt(hit.root);
      std::vector<Vec3f> points;
      for (int k = 0; k < 16; ++k) {
        const float t = static_cast<float>(k) / 15.0f;
        points.push_back(hit.position + normal * (8.0f * t) + Vec3f{0, -4.0f * t * t, 0});
      }
      guides->addGuide(group, std::move(points));
    }
  }
  guides->updateFromScalp(&scalp);
  return guides;
}

struct BenchGroom {
  GroomSession session;
  ScalpMeshPtr scalp = benchScalp();
  std::shared_ptr<GuideHierarchy> guides = benchGuides(*scalp);

  explicit BenchGroom(double strands) {
    session.setScalp(scalp);
    session.setGuides(guides);
    setGraph(strands, 0.007);
  }
  void setGraph(double strands, double width) {
    GraphDocument document = graphFromJson(defaultGraphText());
    set(document, "scatter", "density", strands / scalp->area());
    set(document, "width", "width", width);
    if (const auto error = session.setGraph(graphToJson(document).dump())) {
      throw std::runtime_error(error->text);
    }
  }
  static void set(GraphDocument& document, const char* node, const char* param, double value) {
    document.graph.node(document.graph.findNode(node)).op->parameters.set(param, value);
  }
  void evaluate(bool recycle = true) {
    EvaluateRequest request;
    request.viewport = true;
    request.recycle = recycle;
    for (const SessionMessage& message : session.evaluate(request)) {
      if (message.isError) throw std::runtime_error(message.text);
    }
  }
};

#define KESTRANE_SIZES \
  ->Arg(10000)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond)->UseRealTime()

void defaultGraphFirst(benchmark::State& state) {
  for (auto _ : state) {
    state.PauseTiming();
    auto groom = std::make_unique<BenchGroom>(static_cast<double>(state.range(0)));
    state.ResumeTiming();
    groom->evaluate();
    state.PauseTiming();
    for (const auto& [node, ms] : groom->session.stats().times) state.counters[node] = ms;
    groom.reset();
    state.ResumeTiming();
  }
}
BENCHMARK(defaultGraphFirst) KESTRANE_SIZES;

void nothingChanged(benchmark::State& state) {
  BenchGroom groom(static_cast<double>(state.range(0)));
  groom.evaluate();
  for (auto _ : state) groom.evaluate();
}
BENCHMARK(nothingChanged) KESTRANE_SIZES;

void threeGuidesMoved(benchmark::State& state) {
  BenchGroom groom(static_cast<double>(state.range(0)));
  groom.evaluate();
  float lean = 0.0f;
  for (auto _ : state) {
    state.PauseTiming();
    auto moved = std::make_shared<GuideHierarchy>(*groom.guides);
    lean += 0.05f;
    const std::size_t count = moved->guides().size();
    for (std::size_t i : {count / 5, count / 2, count - 3}) {
      std::vector<Vec3f> points = moved->guides()[i].points;
      for (std::size_t k = 1; k < points.size(); ++k) {
        points[k].x += lean * static_cast<float>(k) / static_cast<float>(points.size());
      }
      moved->setPoints(moved->guides()[i].id, std::move(points));
    }
    state.ResumeTiming();
    groom.session.setGuides(moved);
    groom.evaluate();
  }
  for (const auto& [node, ms] : groom.session.stats().times) state.counters[node] = ms;
}
BENCHMARK(threeGuidesMoved) KESTRANE_SIZES;

void lastSliderMoved(benchmark::State& state) {
  BenchGroom groom(static_cast<double>(state.range(0)));
  groom.evaluate();
  double width = 0.007;
  for (auto _ : state) {
    state.PauseTiming();
    width += 0.0001;
    groom.setGraph(static_cast<double>(state.range(0)), width);
    state.ResumeTiming();
    groom.evaluate();
  }
}
BENCHMARK(lastSliderMoved) KESTRANE_SIZES;

void blueNoise(benchmark::State& state) {
  const ScalpMeshPtr scalp = benchScalp();
  const std::vector<GraphValue> inputs{scalp, GraphValue()};
  EvalContext context;
  context.surface = scalp;
  std::int64_t seed = 0;
  for (auto _ : state) {
    const auto op = OperatorRegistry::instance().create("Scatter");
    op->parameters.set("density", static_cast<double>(state.range(0)) / scalp->area());
    op->parameters.set("randomness", 0.0);
    op->parameters.set("seed", ++seed);
    benchmark::DoNotOptimize(op->evaluate(context, inputs));
  }
}
BENCHMARK(blueNoise)->Arg(200000)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace kestrane
