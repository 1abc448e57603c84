// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <span>
#include <string>

#include "core/base/vec.h"

namespace kestrane {

/// Where a mapped parameter's values come from.
enum class MapSource {
  texture,     // an image file at the scalp's UVs
  colorSet,    // a colour set on the scalp, by name
  attribute,   // a strand or point channel, by name
  expression,  // a formula
  guide,       // a layer painted on the guides
};

/// Which part of a colour is read.
enum class MapComponent { r, g, b, a, luminance };

/// That part of a colour; luminance by the weights of Rec. 709.
inline float componentOf(Vec4f color, MapComponent component) {
  switch (component) {
    case MapComponent::r:
      return color.x;
    case MapComponent::g:
      return color.y;
    case MapComponent::b:
      return color.z;
    case MapComponent::a:
      return color.w;
    case MapComponent::luminance:
      break;
  }
  return 0.2126f * color.x + 0.7152f * color.y + 0.0722f * color.z;
}

/// A parameter's binding to a map.
struct MapRef {
  MapSource source = MapSource::texture;
  std::string text;  // the file, set, channel, formula or layer
  MapComponent component = MapComponent::luminance;
  float min = 0.0f;
  float max = 1.0f;

  /// What a sample s becomes: min + (max - min) s. The range does not clamp it, but a finite sample
  /// always gives a finite number.
  float scaled(float s) const {
    const float value = min + (max - min) * s;
    if (std::isfinite(value)) return value;
    // Doubles hold what overflowed on the way.
    const double wide = min + (static_cast<double>(max) - min) * s;
    return static_cast<float>(std::clamp<double>(wide, -FLT_MAX, FLT_MAX));
  }
  /// The same of many, in place.
  void scale(std::span<float> samples) const {
    const float range = max - min;
    bool finite = true;
    for (const float s : samples) finite &= std::fabs(min + range * s) <= FLT_MAX;
    for (float& s : samples) s = finite ? min + range * s : scaled(s);
  }
  Vec3f scaled(Vec3f s) const { return {scaled(s.x), scaled(s.y), scaled(s.z)}; }

  bool operator==(const MapRef&) const = default;
};

}  // namespace kestrane
