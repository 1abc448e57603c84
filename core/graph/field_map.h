// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <memory>
#include <utility>

#include "core/expr/expression_map.h"
#include "core/values/texture.h"

namespace kestrane {

/// An image that expressions read at the surface's UVs: a file, or the one behind a painted map. A
/// map of one channel reads as grey. Without a surface, and on one without UVs, it is 0.
class FieldMap final : public ExpressionMap {
 public:
  explicit FieldMap(TexturePtr texture, int channels = 4)
      : texture_(std::move(texture)), channels_(channels) {}

  float sample(const MapSample& sample, MapComponent component) const override {
    if (sample.surface == nullptr || !sample.surface->hasUvs()) return 0.0f;
    const Vec4f color = texture_->sample(sample.uv.x, sample.uv.y);
    return componentOf(color, channels_ == 1 ? MapComponent::luminance : component);
  }

 private:
  TexturePtr texture_;
  int channels_;
};

}  // namespace kestrane
