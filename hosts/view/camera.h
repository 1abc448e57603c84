// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <array>
#include <span>
#include <string_view>

#include "core/base/vec.h"

namespace kestrane {

/// A 4 x 4 matrix, column after column, that takes column vectors.
using Matrix4 = std::array<float, 16>;
Matrix4 multiply(const Matrix4& a, const Matrix4& b);

/// Where a picture is taken from.
enum class CameraSide { front, side, back, threeQuarter };

/// A perspective view of a box: unit axes, and distances along `forward`.
struct Camera {
  Vec3f eye;
  Vec3f right, up, forward;
  float tanHalfHeight = 0.0f;  // of the field of view
  float nearest = 0.0f, farthest = 0.0f;
  Matrix4 viewProjection{};

  /// The size of a pixel at distance 1, in a picture of so many rows.
  float pixelAtUnitDistance(int rows) const {
    return 2.0f * tanHalfHeight / static_cast<float>(rows);
  }
};

/// A camera that sees all of the points, with a margin. `upAxis` is 1 (Y) or 2 (Z): a head that
/// looks along +Z with Y up looks along -Y with Z up. Without points it looks at the origin.
Camera cameraFor(CameraSide side, int upAxis, std::span<const Vec3f> points, float aspect);

/// A parallel view along -towardLight onto a sphere, for depths as the light sees them.
Matrix4 lightMatrix(Vec3f towardLight, Vec3f center, float radius);

}  // namespace kestrane
