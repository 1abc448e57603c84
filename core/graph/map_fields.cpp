// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/graph/map_fields.h"

#include <algorithm>
#include <utility>

#include "core/base/errors.h"
#include "core/graph/guide_sampler.h"
#include "core/graph/map_files.h"

namespace kestrane::detail {

namespace {

/// A value per strand that at(strand) gives.
template <class At>
ScalarField perStrand(At at) {
  struct Source final : ScalarField::Source {
    explicit Source(At a) : at(std::move(a)) {}
    void values(std::size_t strand, std::span<float> out) const override {
      std::fill(out.begin(), out.end(), at(strand));
    }
    At at;
  };
  return ScalarField(std::make_shared<Source>(std::move(at)));
}

/// A value per point that at(point) gives; the strands' offsets must outlive the field.
template <class At>
ScalarField perPoint(const StrandSet& strands, At at) {
  struct Source final : ScalarField::Source {
    Source(const StrandSet& s, At a) : strands(s), at(std::move(a)) { perPoint = true; }
    void values(std::size_t strand, std::span<float> out) const override {
      const std::size_t first = strands.offsets()[strand];
      const bool none = first == strands.offsets()[strand + 1];
      for (std::size_t i = 0; i < out.size(); ++i) out[i] = none ? 0.0f : at(first + i);
    }
    const StrandSet& strands;
    At at;
  };
  return ScalarField(std::make_shared<Source>(strands, std::move(at)));
}

/// The channel of the map's name as a field, that of the strands before that of the points; false
/// when the strands have neither.
bool channelField(const MapRef& map, const StrandSet& strands, ScalarField& field) {
  if (const Array<float>* values = strands.strandChannel(map.text)) {
    field = perStrand([map, values](std::size_t strand) { return map.scaled((*values)[strand]); });
    return true;
  }
  if (const Array<float>* points = strands.pointChannel(map.text)) {
    field = perPoint(strands,
                     [map, points](std::size_t point) { return map.scaled((*points)[point]); });
    return true;
  }
  return false;
}

ScalarField sampledFromGuides(const std::string& param, const MapRef& map,
                              const FieldTarget& target) {
  if (!target.guides) {
    throw GraphError("param '" + param +
                     "': a guide map here needs guides: connect them to this node's guides input");
  }
  auto sampler = std::make_shared<const GuideSampler>(*target.guides, map.text);
  if (sampler->empty()) throw GraphError("no guide carries the layer '" + map.text + "'");
  const StrandSet& strands = *target.strands;
  return perStrand([map, sampler, &strands](std::size_t strand) {
    const std::span<const Vec3f> points = strands.strandPoints(strand);
    return map.scaled(points.empty() ? 0.0f : sampler->at(points.front()));
  });
}

}  // namespace

ScalarField textureField(const MapRef& map, const EvalContext& context, const FieldTarget& target) {
  if (!target.surface || !target.surface->hasUvs()) {
    throw GraphError("a texture map needs a scalp with UVs");
  }
  std::shared_ptr<const Texture> texture;
  try {
    texture = openMapFile(map.text, context);
  } catch (const TextureError& error) {
    throw GraphError(error.what());
  }
  const auto& roots = target.strands->roots();
  return perStrand([map, texture, surface = target.surface, &roots](std::size_t strand) {
    const Vec2f uv = surface->uvAt(roots[strand]);
    return map.scaled(componentOf(texture->sample(uv.x, uv.y), map.component));
  });
}

ScalarField colorSetField(const MapRef& map, const FieldTarget& target) {
  const std::vector<Vec4f>* colors = nullptr;
  if (target.surface) {
    const auto found = target.surface->colorSets().find(map.text);
    if (found != target.surface->colorSets().end()) colors = &found->second;
  }
  if (colors == nullptr) throw GraphError("the scalp has no color set '" + map.text + "'");
  const auto& roots = target.strands->roots();
  return perStrand([map, surface = target.surface, colors, &roots](std::size_t strand) {
    return map.scaled(componentOf(surface->colorAt(*colors, roots[strand]), map.component));
  });
}

ScalarField attributeField(const std::string& param, const MapRef& map, const FieldTarget& target) {
  ScalarField field;
  if (channelField(map, *target.strands, field)) return field;
  if (!target.rootsOnly) {
    throw GraphError("param '" + param + "': strands have no attribute '" + map.text + "'");
  }
  if (!target.guides || GuideSampler(*target.guides, map.text).empty()) {
    throw GraphError("param '" + param + "': no strands yet, so '" + map.text +
                     "' must be a layer painted on the guides, with the guides connected to this "
                     "node");
  }
  return sampledFromGuides(param, map, target);
}

ScalarField guideField(const std::string& param, const MapRef& map, const FieldTarget& target) {
  ScalarField field;
  if (channelField(map, *target.strands, field)) return field;
  if (target.rootsOnly) return sampledFromGuides(param, map, target);
  throw GraphError("param '" + param + "': no guide layer '" + map.text +
                   "' on the strands (Interpolate writes it; paint it on the guides)");
}

ScalarField wiredField(FieldValuePtr field, const FieldTarget& target) {
  struct Source final : ScalarField::Source {
    Source(FieldValuePtr f, const FieldTarget& target)
        : field(std::move(f)), strands(*target.strands), surface(target.surface) {
      perPoint = field->usesPoints();
      wholeSet = field->dependsOnStrand();
    }
    void values(std::size_t strand, std::span<float> out) const override {
      const auto at = [&](std::size_t point) {
        return field->valueAt({&strands, surface.get(), strand, point});
      };
      const std::size_t first = strands.offsets()[strand];
      if (!perPoint || first == strands.offsets()[strand + 1]) {
        std::fill(out.begin(), out.end(), at(first));
        return;
      }
      for (std::size_t i = 0; i < out.size(); ++i) out[i] = at(first + i);
    }
    FieldValuePtr field;
    const StrandSet& strands;
    ScalpMeshPtr surface;
  };
  return ScalarField(std::make_shared<Source>(std::move(field), target));
}

}  // namespace kestrane::detail
