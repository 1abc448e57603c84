// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vector>

#include "core/data/scalp_mesh.h"

namespace kestrane {

/// The head of the sample groom, as a solid: a shop-window head with neck, in centimetres, Y up,
/// looking along +Z, the ears at the height of the origin.
class SampleHead {
 public:
  /// The distance to the skin: negative inside; a lower bound of it outside.
  float distance(Vec3f point) const;
  /// The unit direction in which the distance grows.
  Vec3f outward(Vec3f point) const;
  /// Where a ray from inside leaves the solid.
  Vec3f exit(Vec3f origin, Vec3f direction) const;
};

/// The skin as quads with UVs, open at the foot of the neck. UVs run once around the head, from the
/// back, and from the foot up to the crown.
ScalpMeshPtr sampleHeadMesh(const SampleHead& head);

/// How much of the full density of hair grows at a point of the skin, 0 to 1: 1 behind the
/// hairline, 0 on face, ears and neck.
float sampleHairShare(Vec3f skinPoint);

}  // namespace kestrane
