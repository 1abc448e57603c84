// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/graph/expression_environment.h"

#include <algorithm>
#include <utility>

#include "core/base/errors.h"
#include "core/graph/field_map.h"
#include "core/graph/guide_sampler.h"
#include "core/graph/map_files.h"

namespace kestrane {

namespace {

/// A guide layer read by an expression.
class GuideLayerMap final : public ExpressionMap {
 public:
  explicit GuideLayerMap(GuideSampler sampler) : sampler_(std::move(sampler)) {}
  float sample(const MapSample& sample, MapComponent) const override {
    return sampler_.at(sample.position);
  }

 private:
  GuideSampler sampler_;
};

std::shared_ptr<const ExpressionMap> openMap(const std::string& name, const GuideSetPtr& guides,
                                             const EvalContext& context) {
  if (context.resources != nullptr && context.resources->paintedMap) {
    const auto painted = context.resources->paintedMap(name);
    if (painted.map) return painted.map;
    if (!painted.problem.empty()) {
      throw ExpressionError("map(\"" + name + "\"): " + painted.problem);
    }
  }
  if (guides) {
    GuideSampler sampler(*guides, name);
    if (!sampler.empty()) return std::make_shared<GuideLayerMap>(std::move(sampler));
  }
  if (!isMapFile(name, context)) return nullptr;
  try {
    return std::make_shared<FieldMap>(openMapFile(name, context));
  } catch (const TextureError& error) {
    throw ExpressionError(error.what());
  }
}

}  // namespace

std::shared_ptr<const ExpressionMap> Found::map(const std::string& name, const GuideSetPtr& guides,
                                                const EvalContext& context) {
  const std::lock_guard lock(mutex_);
  const auto found = std::find_if(entries_.begin(), entries_.end(), [&](const Entry& entry) {
    return entry.name == name && entry.guides == guides;
  });
  if (found != entries_.end()) return found->map;
  auto map = openMap(name, guides, context);
  if (map) entries_.push_back({name, guides, map});
  return map;
}

ExpressionEnvironment expressionEnvironment(const EvalContext& context, GuideSetPtr guides) {
  if (!guides && context.scene != nullptr) {
    if (const SceneInput* input = context.scene->find("guides")) {
      guides = valueAs<GuideSet>(input->value);
    }
  }
  const auto found = context.found ? context.found : std::make_shared<Found>();
  ExpressionEnvironment environment;
  environment.findMap = [&context, found, guides = std::move(guides)](const std::string& name) {
    return found->map(name, guides, context);
  };
  return environment;
}

}  // namespace kestrane
