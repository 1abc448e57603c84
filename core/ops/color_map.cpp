// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/ops/color_map.h"

#include <algorithm>
#include <utility>

#include "core/base/errors.h"
#include "core/base/hash.h"
#include "core/graph/map_files.h"
#include "core/guides/guide_hierarchy.h"

namespace kestrane {

namespace {

class PaintedColorMap final : public ColorMap {
 public:
  PaintedColorMap(std::shared_ptr<const ExpressionMap> map, ScalpMeshPtr surface)
      : map_(std::move(map)), surface_(std::move(surface)) {}

  Vec3f at(StrandRoot root) const override {
    MapSample sample;
    sample.root = root;
    sample.surface = surface_.get();
    if (surface_) {
      sample.position = surface_->positionAt(root);
      sample.uv = surface_->uvAt(root);
    }
    return {map_->sample(sample, MapComponent::r), map_->sample(sample, MapComponent::g),
            map_->sample(sample, MapComponent::b)};
  }

 private:
  std::shared_ptr<const ExpressionMap> map_;
  ScalpMeshPtr surface_;
};

class ColorSetMap final : public ColorMap {
 public:
  ColorSetMap(const std::vector<Vec4f>& colors, ScalpMeshPtr surface)
      : colors_(colors), surface_(std::move(surface)) {}

  Vec3f at(StrandRoot root) const override {
    const Vec4f color = surface_->colorAt(colors_, root);
    return {color.x, color.y, color.z};
  }

 private:
  const std::vector<Vec4f>& colors_;  // of the surface
  ScalpMeshPtr surface_;
};

class ImageColorMap final : public ColorMap {
 public:
  ImageColorMap(std::shared_ptr<const Texture> texture, ScalpMeshPtr surface)
      : texture_(std::move(texture)), surface_(std::move(surface)) {}

  Vec3f at(StrandRoot root) const override {
    const Vec2f uv = surface_->uvAt(root);
    const Vec4f color = texture_->sample(uv.x, uv.y);
    return {color.x, color.y, color.z};
  }

 private:
  std::shared_ptr<const Texture> texture_;
  ScalpMeshPtr surface_;
};

template <class Guides>
bool anyHasLayer(const Guides& guides, const std::string& name) {
  return std::any_of(guides.begin(), guides.end(), [&](const auto& guide) {
    return guide.attributes.contains(name) || guide.pointAttributes.contains(name);
  });
}

template <class T>
std::shared_ptr<const T> sceneValue(const EvalContext& context, const char* input) {
  const SceneInput* found = context.scene ? context.scene->find(input) : nullptr;
  return found ? valueAs<T>(found->value) : nullptr;
}

/// Whether any guide of the scene, of whichever level, carries a layer of the name.
bool isGuideLayer(const std::string& name, const EvalContext& context) {
  const auto flat = sceneValue<GuideSet>(context, "guides");
  if (flat && anyHasLayer(flat->guides, name)) return true;
  const auto hierarchy = sceneValue<GuideHierarchy>(context, "hierarchy");
  return hierarchy && anyHasLayer(hierarchy->guides(), name);
}

EvalResources::PaintedMap paintedMap(const std::string& name, const EvalContext& context) {
  if (context.resources == nullptr || !context.resources->paintedMap) return {};
  return context.resources->paintedMap(name);
}

}  // namespace

std::unique_ptr<ColorMap> openColorMap(const std::string& name, const ScalpMeshPtr& surface,
                                       const EvalContext& context, const char* layerAdvice) {
  if (name.empty()) return nullptr;
  const auto fail = [&](const std::string& why) {
    return GraphError("map '" + name + "': " + why);
  };
  auto painted = paintedMap(name, context);
  if (!painted.problem.empty()) throw fail(painted.problem);
  if (painted.map) {
    return std::make_unique<PaintedColorMap>(std::move(painted.map), surface);
  }
  if (surface && surface->colorSets().contains(name)) {
    return std::make_unique<ColorSetMap>(surface->colorSets().find(name)->second, surface);
  }
  if (isMapFile(name, context)) {
    if (!surface || !surface->hasUvs()) throw fail("an image needs a scalp with UVs");
    try {
      return std::make_unique<ImageColorMap>(openMapFile(name, context), surface);
    } catch (const TextureError& error) {
      throw fail(error.what());
    }
  }
  if (isGuideLayer(name, context)) throw fail(layerAdvice);
  throw fail("no map, color set or image of that name (Groom Tools > Paint > New... makes a map)");
}

std::uint64_t colorMapKey(const std::string& name, const EvalContext& context) {
  if (name.empty()) return 0;
  std::uint64_t key = hashString(0xC0108A9, name);
  key = hashCombine(key, paintedMap(name, context).revision);
  return hashCombine(key, mapFileKey(name, context));
}

}  // namespace kestrane
