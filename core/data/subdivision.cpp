// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/data/subdivision.h"

#include <mutex>
#include <stdexcept>

#include "core/base/array.h"
#include "core/base/hash.h"
#include "core/data/subdivision_refine.h"
#include "core/data/subdivision_rules.h"
#include "core/data/subdivision_step.h"

namespace kestrane {

struct SubdivisionPlan::Data {
  std::size_t cagePointCount = 0;
  int levels = 0;
  std::uint64_t cageHash = 0;
  bool fromMesh = false;  // whether cageHash is a mesh's topology hash or one of faces alone
  detail::PolygonFaces cageFaces;
  std::vector<detail::SubdivisionRules> rules;
  std::vector<ScalpMesh::Triangle> triangles;
  std::vector<std::int32_t> polygons;
  std::vector<Vec2f> uvs;

  mutable std::once_flag stepsOnce;
  mutable std::vector<SubdivisionStep> steps;

  // Room for the points between, kept for the next frame. A frame takes it away and brings it back,
  // so that one beside it, or one that its loops take up while they wait, makes room of its own.
  mutable std::mutex scratchMutex;
  mutable Array<Float4> scratch;

  // The plan's own cage refined, with the colours of the last mesh seen: what its poses share. It
  // is not made of the last mesh's points, since the tree of all poses grows from it.
  std::vector<Vec3f> cagePoints;
  mutable std::mutex sharedMutex;
  mutable ScalpMeshPtr sharedFine;
  mutable std::uint64_t sharedKey = 0;

  Data(std::span<const Vec3f> points, detail::PolygonFaces faces, int levelCount,
       std::uint64_t hash);
  template <class Value>
  std::vector<Value> refineCorners(const std::vector<Value>& triangleCorners,
                                   std::span<const std::uint32_t> cornersOfFaces) const;
  std::size_t finePointCount() const { return rules.back().fineCount; }
  void refine(std::span<const float> values, int width, std::span<float> fine) const;
  std::vector<Vec3f> refinePoints(std::span<const Vec3f> points) const;
  ScalpMeshPtr fineMesh(const ScalpMesh& mesh) const;
  ScalpMeshPtr fineMeshFor(const ScalpMesh& mesh) const;
  bool fits(const ScalpMesh& mesh) const;
};

namespace {

constexpr std::uint64_t kFacesSeed = 0x7375626469766964u;

std::uint64_t hashFaces(const detail::PolygonFaces& faces, std::size_t pointCount) {
  std::uint64_t hash = hashCombine(kFacesSeed, pointCount);
  for (const auto* numbers : {&faces.starts, &faces.corners}) {
    hash = hashCombine(hash, numbers->size());
    for (const std::uint32_t number : *numbers) hash = hashCombine(hash, number);
  }
  return hash;
}

void requireLevels(int levels) {
  if (levels < 1 || levels > 3) {
    throw std::invalid_argument("SubdivisionPlan: levels must be 1 to 3");
  }
}

template <class Value>
std::span<const float> floatsOf(std::span<const Value> values) {
  return {reinterpret_cast<const float*>(values.data()),
          values.size() * (sizeof(Value) / sizeof(float))};
}

/// Values per quad corner as values per corner of the quads' two triangles.
template <class Value>
std::vector<Value> cutQuads(std::span<const Value> quadCorners) {
  std::vector<Value> corners;
  corners.reserve(quadCorners.size() / 4 * 6);
  for (std::size_t i = 0; i + 3 < quadCorners.size(); i += 4) {
    const Value* q = quadCorners.data() + i;
    corners.insert(corners.end(), {q[0], q[1], q[2], q[0], q[2], q[3]});
  }
  return corners;
}

}  // namespace

SubdivisionPlan::Data::Data(std::span<const Vec3f> points, detail::PolygonFaces faces,
                            int levelCount, std::uint64_t hash)
    : cagePointCount(points.size()),
      levels(levelCount),
      cageHash(hash),
      cageFaces(std::move(faces)),
      cagePoints(points.begin(), points.end()) {
  detail::RefinedLevels refined = detail::refineLevels(cageFaces, cagePointCount, levels);
  rules = std::move(refined.levels);
  const std::vector<std::uint32_t> corners = cutQuads<std::uint32_t>(refined.faces.corners);
  triangles.resize(corners.size() / 3);
  for (std::size_t i = 0; i < corners.size(); ++i) {
    triangles[i / 3][i % 3] = static_cast<std::int32_t>(corners[i]);
  }
  polygons.assign(refined.faces.size(), 2);
}

/// Refines values per triangle corner of the cage to values per triangle corner of the fine mesh.
template <class Value>
std::vector<Value> SubdivisionPlan::Data::refineCorners(
    const std::vector<Value>& triangleCorners,
    std::span<const std::uint32_t> cornersOfFaces) const {
  std::vector<Value> values;
  values.reserve(cornersOfFaces.size());
  for (const std::uint32_t corner : cornersOfFaces) values.push_back(triangleCorners[corner]);
  constexpr int kWidth = sizeof(Value) / sizeof(float);
  const std::vector<float> refined = detail::refineCornerValues(
      cageFaces, cagePointCount, floatsOf(std::span<const Value>(values)), kWidth, levels);
  return cutQuads(
      std::span(reinterpret_cast<const Value*>(refined.data()), refined.size() / kWidth));
}

void SubdivisionPlan::Data::refine(std::span<const float> values, int width,
                                   std::span<float> fine) const {
  Array<Float4> mine;
  {
    const std::lock_guard lock(scratchMutex);
    mine = std::move(scratch);
  }
  detail::refineValues(rules, values, width, fine, mine);
  const std::lock_guard lock(scratchMutex);
  scratch = std::move(mine);
}

std::vector<Vec3f> SubdivisionPlan::Data::refinePoints(std::span<const Vec3f> points) const {
  std::vector<Vec3f> fine(finePointCount());
  refine(floatsOf(points), 3, {reinterpret_cast<float*>(fine.data()), 3 * fine.size()});
  return fine;
}

bool SubdivisionPlan::Data::fits(const ScalpMesh& mesh) const {
  if (mesh.points().size() != cagePointCount) return false;
  return cageHash ==
         (fromMesh ? mesh.topologyHash() : hashFaces(detail::facesOf(mesh).faces, cagePointCount));
}

/// The plan's cage refined, with the UVs and colours of this mesh.
ScalpMeshPtr SubdivisionPlan::Data::fineMesh(const ScalpMesh& mesh) const {
  auto made = std::make_shared<ScalpMesh>(refinePoints(cagePoints), triangles);
  made->setPolygons(polygons);
  if (fromMesh) made->setUvs(uvs);
  if (mesh.colorSets().empty() && (fromMesh || !mesh.hasUvs())) return made;
  const std::vector<std::uint32_t> corners = detail::facesOf(mesh).triangleCorners;
  if (!fromMesh && mesh.hasUvs()) made->setUvs(refineCorners(mesh.uvs(), corners));
  for (const auto& [name, colors] : mesh.colorSets()) {
    made->setColorSet(name, refineCorners(colors, corners));
  }
  return made;
}

/// The same, shared with the meshes before this one where their UVs and colours were the same.
ScalpMeshPtr SubdivisionPlan::Data::fineMeshFor(const ScalpMesh& mesh) const {
  const std::uint64_t key = hashCombine(mesh.topologyHash(), mesh.colorsHash());
  {
    const std::lock_guard lock(sharedMutex);
    if (sharedFine != nullptr && sharedKey == key) return sharedFine;
  }
  // Made outside the lock: it runs parallel loops.
  ScalpMeshPtr made = fineMesh(mesh);
  const std::lock_guard lock(sharedMutex);
  sharedFine = made;
  sharedKey = key;
  return made;
}

std::size_t SubdivisionPlan::cagePointCount() const {
  return data_->cagePointCount;
}

int SubdivisionPlan::levels() const {
  return data_->levels;
}

std::uint64_t SubdivisionPlan::cageHash() const {
  return data_->cageHash;
}

bool SubdivisionPlan::fits(const ScalpMesh& mesh) const {
  return data_->fits(mesh);
}

const std::vector<SubdivisionStep>& SubdivisionPlan::steps() const {
  std::call_once(data_->stepsOnce, [&] {
    std::vector<SubdivisionStep> steps;
    for (const detail::SubdivisionRules& rules : data_->rules) {
      steps.push_back(detail::weightsOf(rules));
    }
    data_->steps = std::move(steps);
  });
  return data_->steps;
}

const std::vector<ScalpMesh::Triangle>& SubdivisionPlan::triangles() const {
  return data_->triangles;
}

const std::vector<std::int32_t>& SubdivisionPlan::polygons() const {
  return data_->polygons;
}

const std::vector<Vec2f>& SubdivisionPlan::uvs() const {
  return data_->uvs;
}

std::vector<Vec3f> SubdivisionPlan::refinePoints(std::span<const Vec3f> points) const {
  if (points.size() != data_->cagePointCount) {
    throw std::invalid_argument("SubdivisionPlan: the points are not the cage's");
  }
  return data_->refinePoints(points);
}

std::vector<float> SubdivisionPlan::refineValues(std::span<const float> values, int width) const {
  if (width < 1 || values.size() / static_cast<std::size_t>(width) != data_->cagePointCount ||
      values.size() % static_cast<std::size_t>(width) != 0) {
    throw std::invalid_argument("SubdivisionPlan: the values are not the cage's vertices'");
  }
  std::vector<float> fine(data_->finePointCount() * static_cast<std::size_t>(width));
  data_->refine(values, width, fine);
  return fine;
}

ScalpMeshPtr SubdivisionPlan::refineMesh(const ScalpMesh& mesh) const {
  if (!fits(mesh)) throw std::invalid_argument("SubdivisionPlan: not this plan's cage");
  std::vector<Vec3f> points = refinePoints(mesh.points());
  std::vector<Vec3f> restPoints;
  if (!mesh.restPoints().empty()) restPoints = refinePoints(mesh.restPoints());
  return data_->fineMeshFor(mesh)->withPoints(std::move(points), std::move(restPoints));
}

SubdivisionPlanPtr makeSubdivisionPlan(std::span<const Vec3f> cagePoints,
                                       std::span<const std::vector<std::int32_t>> cageFaces,
                                       int levels) {
  requireLevels(levels);
  detail::PolygonFaces faces;
  for (const std::vector<std::int32_t>& face : cageFaces) {
    for (const std::int32_t corner : face) {
      if (corner < 0 || static_cast<std::size_t>(corner) >= cagePoints.size()) {
        throw std::invalid_argument("SubdivisionPlan: a face names a missing point");
      }
    }
    if (face.size() < 3) continue;
    faces.corners.insert(faces.corners.end(), face.begin(), face.end());
    faces.starts.push_back(static_cast<std::uint32_t>(faces.corners.size()));
  }
  const std::uint64_t hash = hashFaces(faces, cagePoints.size());
  auto plan = std::make_shared<SubdivisionPlan>();
  plan->data_ =
      std::make_shared<const SubdivisionPlan::Data>(cagePoints, std::move(faces), levels, hash);
  return plan;
}

SubdivisionPlanPtr makeSubdivisionPlan(const ScalpMesh& cage, int levels) {
  requireLevels(levels);
  detail::MeshFaces faces = detail::facesOf(cage);
  auto data = std::make_shared<SubdivisionPlan::Data>(cage.points(), std::move(faces.faces), levels,
                                                      cage.topologyHash());
  data->fromMesh = true;
  if (cage.hasUvs()) data->uvs = data->refineCorners(cage.uvs(), faces.triangleCorners);
  auto plan = std::make_shared<SubdivisionPlan>();
  plan->data_ = std::move(data);
  return plan;
}

}  // namespace kestrane
