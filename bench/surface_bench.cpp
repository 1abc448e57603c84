// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

// Surface queries, subdivision and neighbour search. Items per second are queries, fine points and
// queries; the single-thread ones say what one core does.

#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

#include "bench/support/bumpy_head.h"
#include "core/base/hash.h"
#include "core/base/parallel.h"
#include "core/data/kd_tree.h"
#include "core/data/scalp_mesh.h"
#include "core/data/subdivision.h"
#include "core/data/surface_walk.h"

namespace kestrane {
namespace {

constexpr std::size_t kQueries = HeadQueries::count;

/// Argument 0: triangles in thousands; 1: height in hundredths of a unit (the radius is 10); 2: 1
/// for random order.
void closestPoint(benchmark::State& state) {
  const HeadQueries head(state.range(0), state.range(1), state.range(2) != 0);
  head.mesh.closestPoint({});
  double sum = 0.0;
  for (auto _ : state) {
    for (const Vec3f& query : head.points) sum += head.mesh.closestPoint(query).distance;
  }
  benchmark::DoNotOptimize(sum);
  if (!(sum >= 0.0) || !std::isfinite(sum)) state.SkipWithError("a query went wrong");
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kQueries));
}
BENCHMARK(closestPoint)->Apply(headQueryArguments);

void raycast(benchmark::State& state) {
  const ScalpMesh mesh = makeHead(158);
  const std::vector<Vec3f> origins = pointsNear(mesh, kQueries, 5.0f);
  mesh.closestPoint({});
  std::size_t hits = 0;
  for (auto _ : state) {
    for (std::size_t i = 0; i < kQueries; ++i) {
      const Vec3f target{unitFloat(mix64(i)), unitFloat(mix64(i + 7)), 0.0f};
      hits += mesh.raycast(origins[i], target - origins[i]).root.face >= 0;
    }
  }
  if (hits == 0) state.SkipWithError("nothing was hit");
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kQueries));
}
BENCHMARK(raycast)->Unit(benchmark::kMillisecond);

/// Argument 0: the step's length in hundredths; an edge of the mesh is about 10 of these.
void walk(benchmark::State& state) {
  const ScalpMesh mesh = makeHead(158);
  mesh.adjacency();
  const float size = static_cast<float>(state.range(0)) * 0.01f;
  std::vector<StrandRoot> roots(kQueries);
  for (auto _ : state) {
    for (std::size_t i = 0; i < kQueries; ++i) {
      const StrandRoot from{static_cast<std::int32_t>(i % mesh.triangleCount()), 0.3f, 0.3f};
      const Vec3f step{unitFloat(mix64(i)) - 0.5f, unitFloat(mix64(i + 7)) - 0.5f, 0.1f};
      roots[i] = walkOnSurface(mesh, from, size * step);
    }
    benchmark::DoNotOptimize(roots.data());
  }
  for (const StrandRoot root : roots) {
    if (!mesh.hasFace(root.face)) state.SkipWithError("a walk left the mesh");
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kQueries));
}
BENCHMARK(walk)->ArgName("length")->Arg(5)->Arg(50)->Unit(benchmark::kMillisecond);

void buildTree(benchmark::State& state) {
  const ScalpMesh base = makeHead(158);
  for (auto _ : state) {
    state.PauseTiming();
    const ScalpMesh mesh(base.points(), base.triangles());
    state.ResumeTiming();
    benchmark::DoNotOptimize(mesh.closestPoint({}));
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * base.triangleCount()));
}
BENCHMARK(buildTree)->Unit(benchmark::kMillisecond)->UseRealTime();

/// A new pose and its first query: normals, hashes and the refit of the boxes.
void deform(benchmark::State& state) {
  const ScalpMesh mesh = makeHead(158);
  mesh.closestPoint({});
  for (auto _ : state) {
    benchmark::DoNotOptimize(mesh.withPoints(mesh.points())->closestPoint({}));
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * mesh.triangleCount()));
}
BENCHMARK(deform)->Unit(benchmark::kMillisecond)->UseRealTime();

/// Argument 0: levels. On one thread; items are points of the finest level.
void subdivisionPoints(benchmark::State& state) {
  const ScalpMesh mesh = makeHead(subdivisionRings);
  const auto plan = makeSubdivisionPlan(mesh, static_cast<int>(state.range(0)));
  std::size_t count = 0;
  runWithThreads(1, [&] {
    for (auto _ : state) {
      const std::vector<Vec3f> fine = plan->refinePoints(mesh.points());
      benchmark::DoNotOptimize(fine.data());
      count += fine.size();
    }
  });
  state.SetItemsProcessed(static_cast<std::int64_t>(count));
}
BENCHMARK(subdivisionPoints)->ArgName("levels")->DenseRange(1, 3)->Unit(benchmark::kMicrosecond);

void subdivisionPlan(benchmark::State& state) {
  const ScalpMesh mesh = makeHead(subdivisionRings);
  for (auto _ : state) benchmark::DoNotOptimize(makeSubdivisionPlan(mesh, 2));
}
BENCHMARK(subdivisionPlan)->Unit(benchmark::kMillisecond)->UseRealTime();

/// Argument 0: points in thousands; 1: 1 for random order. Build and queries on all threads.
void kdNeighbors(benchmark::State& state) {
  const ScalpMesh mesh = makeHead(158);
  const auto count = static_cast<std::size_t>(state.range(0)) * 1000;
  std::vector<Vec3f> points = pointsNear(mesh, count, 0.0f);
  if (state.range(1) != 0) shuffle(points);
  std::vector<std::uint32_t> neighbors(13 * count);
  for (auto _ : state) {
    const KdTree tree(points);
    parallelRange(0, count, 256, [&](std::size_t begin, std::size_t end) {
      KdHit hits[13];
      for (std::size_t i = begin; i < end; ++i) {
        const std::size_t found = tree.nearest(points[i], hits);
        for (std::size_t k = 0; k < found; ++k) neighbors[13 * i + k] = hits[k].index;
      }
    });
    benchmark::DoNotOptimize(neighbors.data());
  }
  for (std::size_t i = 0; i < count; i += 997) {
    if (neighbors[13 * i] != i) state.SkipWithError("a point is not its own nearest");
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * count));
}
BENCHMARK(kdNeighbors)
    ->ArgNames({"kpoints", "random"})
    ->ArgsProduct({{100, 1000}, {0, 1}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

void kdBuild(benchmark::State& state) {
  const ScalpMesh mesh = makeHead(158);
  const std::vector<Vec3f> points =
      pointsNear(mesh, static_cast<std::size_t>(state.range(0)) * 1000, 0.0f);
  for (auto _ : state) benchmark::DoNotOptimize(KdTree(points).size());
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * points.size()));
}
BENCHMARK(kdBuild)->ArgName("kpoints")->Arg(1000)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace kestrane
