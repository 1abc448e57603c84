// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "core/data/scalp_mesh.h"
#include "core/values/map_ref.h"

namespace kestrane {

/// Where a map is read: a surface point with its position and UV.
struct MapSample {
  StrandRoot root;
  Vec3f position;
  Vec2f uv;
  const ScalpMesh* surface = nullptr;  // null: no surface at hand
};

/// A painted, vertex or image map that expressions read by name. Immutable; sample may be called
/// from many threads.
class ExpressionMap {
 public:
  virtual ~ExpressionMap() = default;
  virtual float sample(const MapSample& sample, MapComponent component) const = 0;
};

}  // namespace kestrane
