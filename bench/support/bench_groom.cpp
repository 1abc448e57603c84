// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "bench/support/bench_groom.h"

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include "core/base/json.h"
#include "hosts/obj/obj_reader.h"

namespace kestrane {

namespace {

/// The path of a file of real data, or an empty one where there is none.
std::string dataFile(const char* name) {
  const char* folder = std::getenv("KESTRANE_DATA");
  const auto path = std::filesystem::path(folder ? folder : KESTRANE_SAMPLE_DATA) / name;
  return std::filesystem::exists(path) ? path.string() : std::string();
}

ScalpMeshPtr sphere() {
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

/// Guides over the upper part of the scalp, along its normals and then falling.
std::vector<std::vector<Vec3f>> spiralOfCurves(const ScalpMesh& scalp) {
  std::vector<std::vector<Vec3f>> curves;
  for (int i = 0; i < 140; ++i) {
    const float y = 1.0f - 1.2f * (static_cast<float>(i) + 0.5f) / 140.0f;
    const float r = std::sqrt(1.0f - y * y), angle = 2.3999632f * static_cast<float>(i);
    const SurfaceHit hit =
        scalp.closestPoint(Vec3f{r * std::cos(angle), y, r * std::sin(angle)} * 10.0f);
    const Vec3f normal = scalp.normalAt(hit.root);
    std::vector<Vec3f>& points = curves.emplace_back();
    for (int k = 0; k < 16; ++k) {
      const float t = static_cast<float>(k) / 15.0f;
      points.push_back(hit.position + normal * (8.0f * t) + Vec3f{0, -4.0f * t * t, 0});
    }
  }
  return curves;
}

}  // namespace

ScalpMeshPtr benchScalp() {
  // Read once: benchmarks ask again for every repetition, and a mesh is never changed.
  static const std::string path = dataFile("head.obj");
  static const ScalpMeshPtr scalp = path.empty() ? sphere() : scalpFromObj(readObj(path));
  return std::make_shared<const ScalpMesh>(*scalp);
}

std::shared_ptr<GuideHierarchy> benchGuides(const ScalpMesh& scalp) {
  auto guides = std::make_shared<GuideHierarchy>();
  const std::uint32_t group = guides->addGroup("guides", 0);
  const std::string path = dataFile("head_guides.obj");
  for (auto& curve : path.empty() ? spiralOfCurves(scalp) : curvesFromObj(readObj(path))) {
    guides->addGuide(group, std::move(curve));
  }
  guides->updateFromScalp(&scalp);
  return guides;
}

BenchGroom::BenchGroom(std::int64_t strands, std::string_view graph)
    : document_(graphFromJson(graph)) {
  session.setScalp(scalp);
  session.setGuides(guides);
  set("scatter", "density", static_cast<double>(strands) / scalp->area());
}

void BenchGroom::install() {
  if (const auto error = session.setGraph(graphToJson(document_).dump())) {
    throw std::runtime_error(error->text);
  }
}

void BenchGroom::set(const std::string& node, const std::string& param, ParamValue value) {
  document_.graph.node(document_.graph.findNode(node)).op->parameters.set(param, std::move(value));
  install();
}

void BenchGroom::endAt(const std::string& node) {
  document_.output = document_.graph.findNode(node);
  install();
}

std::shared_ptr<GuideHierarchy> BenchGroom::threeGuidesMoved(float lean) const {
  auto moved = std::make_shared<GuideHierarchy>(*guides);
  const std::size_t count = moved->guides().size();
  for (std::size_t i : {count / 5, count / 2, count - 3}) {
    std::vector<Vec3f> points = moved->guides()[i].points;
    for (std::size_t k = 1; k < points.size(); ++k) {
      points[k].x += lean * static_cast<float>(k) / static_cast<float>(points.size());
    }
    moved->setPoints(moved->guides()[i].id, std::move(points));
  }
  return moved;
}

std::vector<Vec3f> BenchGroom::posedPoints(float sway) const {
  std::vector<Vec3f> points = scalp->points();
  for (Vec3f& point : points) {
    point.x += sway * (1.0f + 0.1f * std::sin(point.y));
    point.z += 0.2f * sway * std::cos(point.y);
  }
  return points;
}

void BenchGroom::evaluate() {
  EvaluateRequest request;
  request.viewport = true;
  request.recycle = true;
  for (const SessionMessage& message : session.evaluate(request)) {
    if (message.isError) throw std::runtime_error(message.text);
  }
}

double BenchGroom::nodeTime(const std::string& node) const {
  for (const auto& [name, ms] : session.stats().times) {
    if (name == node) return ms;
  }
  throw std::runtime_error("no time of node " + node);
}

void BenchGroom::evaluatePoses(benchmark::State& state) {
  evaluate();
  float sway = 0.0f;
  for (auto _ : state) {
    state.PauseTiming();
    std::vector<Vec3f> points = posedPoints(sway += 0.01f);
    state.ResumeTiming();
    session.updateScalpPoints(std::move(points));
    evaluate();
  }
}

void BenchGroom::countNodeTimes(benchmark::State& state) const {
  for (const auto& [node, ms] : session.stats().times) state.counters[node + "_ms"] = ms;
}

std::int64_t BenchGroom::strandCount() const {
  const StrandSetPtr strands = session.strands();
  return strands ? static_cast<std::int64_t>(strands->strandCount()) : 0;
}

}  // namespace kestrane
