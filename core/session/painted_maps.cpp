// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/session/painted_maps.h"

#include <vector>

#include "core/base/hash.h"
#include "core/graph/field_map.h"
#include "core/graph/map_files.h"

namespace kestrane {

namespace {

/// One surface on which a vertex map has values.
struct MappedSurface {
  ScalpMeshPtr mesh;
  std::vector<float> values;  // `channels` per vertex
};

/// Values at the scalp's vertices, mixed within a triangle. On a refinement of the scalp they are
/// refined along; on any other surface they are those of the nearest point of the scalp.
class VertexMap final : public ExpressionMap {
 public:
  VertexMap(std::vector<MappedSurface> surfaces, int channels)
      : surfaces_(std::move(surfaces)), channels_(channels) {}

  float sample(const MapSample& sample, MapComponent component) const override {
    if (sample.surface == nullptr) return 0.0f;
    for (const MappedSurface& surface : surfaces_) {
      if (surface.mesh.get() == sample.surface || isPoseOf(*sample.surface, *surface.mesh)) {
        return valueAt(surface, sample.root, component);
      }
    }
    const MappedSurface& scalp = surfaces_.front();
    return valueAt(scalp, scalp.mesh->closestPoint(sample.position).root, component);
  }

 private:
  /// Poses of one mesh share their triangles.
  static bool isPoseOf(const ScalpMesh& a, const ScalpMesh& b) {
    return &a.triangles() == &b.triangles() || a.topologyHash() == b.topologyHash();
  }

  float valueAt(const MappedSurface& surface, StrandRoot root, MapComponent component) const {
    if (!surface.mesh->hasFace(root.face)) return 0.0f;
    const ScalpMesh::Triangle& triangle = surface.mesh->triangles()[root.face];
    const float weights[3] = {1.0f - root.u - root.v, root.u, root.v};
    Vec4f color{0.0f, 0.0f, 0.0f, 0.0f};
    for (int corner = 0; corner < 3; ++corner) {
      const float* value = surface.values.data() + std::size_t(triangle[corner]) * channels_;
      const float weight = weights[corner];
      color.x += weight * value[0];
      if (channels_ == 4) {
        color.y += weight * value[1];
        color.z += weight * value[2];
        color.w += weight * value[3];
      }
    }
    return channels_ == 1 ? color.x : componentOf(color, component);
  }

  std::vector<MappedSurface> surfaces_;  // the scalp first
  int channels_;
};

std::uint64_t hashOf(const GroomMap& map) {
  std::uint64_t hash = hashString(hashString(0x9A1147ED, map.kind), map.texture);
  hash = hashCombine(hash, static_cast<std::uint64_t>(map.channels));
  for (const float value : map.values) hash = hashNumber(hash, value);
  return hash;
}

}  // namespace

PaintedMaps::PaintedMaps(const std::map<std::string, GroomMap>& maps, const ScalpMeshPtr& scalp,
                         std::span<const ScalpRefinement> refinements) {
  for (const auto& [name, map] : maps) {
    Entry& entry = entries_[name];
    entry.channels = map.channels;
    entry.revision = hashOf(map);
    if (map.kind != "vertices") {
      entry.texture = map.texture;
      if (map.texture.empty()) entry.problem = "the texture map has no image file yet";
      continue;
    }
    entry.revision = hashCombine(entry.revision, scalp ? scalp->topologyHash() : 0);
    const std::size_t wanted = scalp ? scalp->points().size() * map.channels : 0;
    if (wanted == 0 || map.values.size() != wanted) {
      entry.problem = "the vertex map does not fit this scalp";
      continue;
    }
    std::vector<MappedSurface> surfaces{{scalp, map.values}};
    for (const ScalpRefinement& refinement : refinements) {
      surfaces.push_back(
          {refinement.mesh, refinement.plan->refineValues(map.values, map.channels)});
    }
    entry.vertices = std::make_shared<const VertexMap>(std::move(surfaces), map.channels);
  }
}

EvalResources::PaintedMap PaintedMaps::find(
    std::string_view name,
    const std::function<std::string(const std::string&)>& resolvePath) const {
  const auto found = entries_.find(name);
  if (found == entries_.end()) return {};
  const Entry& entry = found->second;
  if (entry.vertices || !entry.problem.empty()) {
    return {entry.vertices, entry.revision, entry.problem};
  }
  EvalResources resources;
  resources.resolvePath = resolvePath;
  EvalContext context;
  context.resources = &resources;
  const std::uint64_t revision = hashCombine(entry.revision, mapFileKey(entry.texture, context));
  try {
    auto texture = openMapFile(entry.texture, context);
    return {std::make_shared<const FieldMap>(std::move(texture), entry.channels), revision, {}};
  } catch (const std::exception& error) {
    return {nullptr, revision, error.what()};
  }
}

}  // namespace kestrane
