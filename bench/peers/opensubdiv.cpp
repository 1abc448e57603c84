// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

// A frame's fine points by OpenSubdiv's stencils: rows of weights made once per cage, as ours are.

#include <benchmark/benchmark.h>
#include <opensubdiv/far/stencilTableFactory.h>
#include <opensubdiv/far/topologyDescriptor.h>
#include <opensubdiv/far/topologyRefinerFactory.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <span>
#include <vector>

#include "bench/support/bumpy_head.h"
#include "core/data/kd_tree.h"
#include "core/data/subdivision.h"

namespace kestrane {
namespace {

namespace Far = OpenSubdiv::Far;

/// A point as the stencils' template wants it.
struct StencilPoint {
  float x, y, z;

  void Clear() { x = y = z = 0.0f; }
  void AddWithWeight(const StencilPoint& other, float weight) {
    x += other.x * weight;
    y += other.y * weight;
    z += other.z * weight;
  }
};

/// The refined topology of a head's quads, with borders smooth at corners too, as ours are.
std::unique_ptr<Far::TopologyRefiner> refinedQuads(const ScalpMesh& mesh, int levels) {
  std::vector<Far::Index> corners;
  for (std::size_t i = 0; i < mesh.triangleCount(); i += 2) {
    const ScalpMesh::Triangle &first = mesh.triangles()[i], &second = mesh.triangles()[i + 1];
    corners.insert(corners.end(), {first[0], first[1], first[2], second[2]});
  }
  const std::vector<int> counts(corners.size() / 4, 4);
  Far::TopologyDescriptor cage;
  cage.numVertices = static_cast<int>(mesh.points().size());
  cage.numFaces = static_cast<int>(counts.size());
  cage.numVertsPerFace = counts.data();
  cage.vertIndicesPerFace = corners.data();
  using Factory = Far::TopologyRefinerFactory<Far::TopologyDescriptor>;
  OpenSubdiv::Sdc::Options rules;
  rules.SetVtxBoundaryInterpolation(OpenSubdiv::Sdc::Options::VTX_BOUNDARY_EDGE_ONLY);
  std::unique_ptr<Far::TopologyRefiner> refiner(
      Factory::Create(cage, Factory::Options(OpenSubdiv::Sdc::SCHEME_CATMARK, rules)));
  refiner->RefineUniform(Far::TopologyRefiner::UniformOptions(levels));
  return refiner;
}

/// Stencils straight from the cage to the finest level, or from each level to the next one.
class Stencils {
 public:
  Stencils(const Far::TopologyRefiner& refiner, bool straight) {
    Far::StencilTableFactory::Options options;
    options.generateIntermediateLevels = !straight;
    options.factorizeIntermediateLevels = straight;
    options.generateOffsets = true;
    table_.reset(Far::StencilTableFactory::Create(refiner, options));
    points_.resize(static_cast<std::size_t>(table_->GetNumStencils()));
    const int levels = refiner.GetMaxLevel();
    for (int level = straight ? levels : 1; level <= levels; ++level) {
      ends_.push_back(ends_.back() + refiner.GetLevel(level).GetNumVertices());
    }
  }

  /// The points of the finest level.
  std::span<const StencilPoint> apply(std::span<const StencilPoint> cage) {
    const StencilPoint* from = cage.data();
    StencilPoint* to = points_.data();
    for (std::size_t i = 1; i < ends_.size(); ++i) {
      // A level's stencils number the points of the level before from 0.
      table_->UpdateValues(from, to, ends_[i - 1], ends_[i]);
      from = to + ends_[i - 1];
    }
    return {from, points_.data() + points_.size()};
  }

 private:
  std::unique_ptr<const Far::StencilTable> table_;
  std::vector<StencilPoint> points_;  // of every level made, coarse to fine
  std::vector<int> ends_{0};          // of the levels in points_
};

/// The fastest of a few frames, which other work on the machine disturbs least.
double secondsOf(Stencils& stencils, std::span<const StencilPoint> cage) {
  double fastest = 1e9;
  for (int i = 0; i < 20; ++i) {
    const auto start = std::chrono::steady_clock::now();
    benchmark::DoNotOptimize(stencils.apply(cage).data());
    const std::chrono::duration<double> frame = std::chrono::steady_clock::now() - start;
    fastest = std::min(fastest, frame.count());
  }
  return fastest;
}

/// Whether both make the same points, in whatever order.
bool samePoints(std::span<const StencilPoint> theirs, const std::vector<Vec3f>& ours) {
  if (theirs.size() != ours.size()) return false;
  const KdTree tree(ours);
  for (const StencilPoint& point : theirs) {
    if (!(tree.nearest({point.x, point.y, point.z}).distanceSquared <= 1e-8f)) return false;
  }
  return true;
}

/// Argument 0: levels. On one core; items are points of the finest level.
void subdivisionPointsByOpensubdiv(benchmark::State& state) {
  const ScalpMesh mesh = makeHead(subdivisionRings);
  const int levels = static_cast<int>(state.range(0));
  const auto refiner = refinedQuads(mesh, levels);
  std::vector<StencilPoint> cage;
  for (const Vec3f point : mesh.points()) cage.push_back({point.x, point.y, point.z});
  Stencils straight(*refiner, true), byLevel(*refiner, false);
  // Which form is the faster one depends on the levels; the faster one is measured.
  const bool wins = secondsOf(straight, cage) < secondsOf(byLevel, cage);
  Stencils& stencils = wins ? straight : byLevel;
  std::size_t count = 0;
  for (auto _ : state) {
    const std::span<const StencilPoint> fine = stencils.apply(cage);
    benchmark::DoNotOptimize(fine.data());
    benchmark::ClobberMemory();
    count += fine.size();
  }
  const auto ours = makeSubdivisionPlan(mesh, levels)->refinePoints(mesh.points());
  if (!samePoints(stencils.apply(cage), ours)) {
    state.SkipWithError("OpenSubdiv makes other points");
    return;
  }
  state.SetLabel(wins ? "points (straight from the cage)" : "points (level by level)");
  state.SetItemsProcessed(static_cast<std::int64_t>(count));
}
BENCHMARK(subdivisionPointsByOpensubdiv)
    ->ArgName("levels")
    ->DenseRange(1, 3)
    ->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace kestrane
