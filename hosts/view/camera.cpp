// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "hosts/view/camera.h"

#include <algorithm>
#include <cfloat>
#include <cmath>

namespace kestrane {

namespace {

constexpr float fieldOfView = 24.0f * 3.14159265f / 180.0f;  // a portrait lens
constexpr float margin = 1.06f;

/// The rows of a view: what is right, up and behind.
Matrix4 viewMatrix(Vec3f eye, Vec3f right, Vec3f up, Vec3f forward) {
  return {right.x,          up.x,          -forward.x,        0.0f, right.y,    up.y,
          -forward.y,       0.0f,          right.z,           up.z, -forward.z, 0.0f,
          -dot(right, eye), -dot(up, eye), dot(forward, eye), 1.0f};
}

/// From the eye toward the groom, for Y up.
Vec3f lookDirection(CameraSide side) {
  switch (side) {
    case CameraSide::front:
      return {0.0f, 0.0f, -1.0f};
    case CameraSide::side:
      return {-1.0f, 0.0f, 0.0f};
    case CameraSide::back:
      return {0.0f, 0.0f, 1.0f};
    case CameraSide::threeQuarter:
      return normalize({-0.7f, -0.22f, -0.75f});
  }
  return {0.0f, 0.0f, -1.0f};
}

}  // namespace

Matrix4 multiply(const Matrix4& a, const Matrix4& b) {
  Matrix4 product{};
  for (std::size_t column = 0; column < 4; ++column) {
    for (std::size_t row = 0; row < 4; ++row) {
      for (std::size_t k = 0; k < 4; ++k) {
        product[4 * column + row] += a[4 * k + row] * b[4 * column + k];
      }
    }
  }
  return product;
}

Camera cameraFor(CameraSide side, int upAxis, std::span<const Vec3f> points, float aspect) {
  const auto turned = [upAxis](Vec3f v) { return upAxis == 2 ? Vec3f{v.x, -v.z, v.y} : v; };
  Camera camera;
  camera.forward = turned(lookDirection(side));
  camera.right = normalize(cross(camera.forward, turned({0.0f, 1.0f, 0.0f})));
  camera.up = cross(camera.right, camera.forward);
  camera.tanHalfHeight = std::tan(fieldOfView / 2.0f);
  const float tanHalfWidth = camera.tanHalfHeight * aspect;

  // The two pairs of planes of the field of view are moved until they touch the outermost points;
  // the eye lies where they meet, as far away as the wider pair wants.
  const Vec3f axes[2] = {camera.right, camera.up};
  const float tangents[2] = {tanHalfWidth / margin, camera.tanHalfHeight / margin};
  float offsets[2] = {0.0f, 0.0f}, depth = FLT_MAX, low = FLT_MAX, high = -FLT_MAX;
  for (int axis = 0; axis < 2; ++axis) {
    float most = -FLT_MAX, least = FLT_MAX;
    for (const Vec3f& point : points) {
      const float across = dot(point, axes[axis]);
      const float along = dot(point, camera.forward) * tangents[axis];
      most = std::max(most, across - along);
      least = std::min(least, across + along);
    }
    if (points.empty()) most = 1.0f, least = -1.0f;
    offsets[axis] = (most + least) / 2.0f;
    depth = std::min(depth, (least - most) / (2.0f * tangents[axis]));
  }
  for (const Vec3f& point : points) {
    low = std::min(low, dot(point, camera.forward));
    high = std::max(high, dot(point, camera.forward));
  }
  if (points.empty()) low = -1.0f, high = 1.0f;
  const float size = std::max({high - low, (low - depth) * 1e-3f, 1e-6f});
  depth = std::min(depth, low - size * 0.05f);
  camera.eye = camera.right * offsets[0] + camera.up * offsets[1] + camera.forward * depth;
  camera.nearest = std::max((low - depth) * 0.9f, (high - depth) * 1e-4f);
  camera.farthest = (high - depth) * 1.1f;

  const float n = camera.nearest, f = camera.farthest;
  const Matrix4 projection = {1.0f / tanHalfWidth,
                              0,
                              0,
                              0,
                              0,
                              1.0f / camera.tanHalfHeight,
                              0,
                              0,
                              0,
                              0,
                              -(f + n) / (f - n),
                              -1,
                              0,
                              0,
                              -2.0f * f * n / (f - n),
                              0};
  camera.viewProjection =
      multiply(projection, viewMatrix(camera.eye, camera.right, camera.up, camera.forward));
  return camera;
}

Matrix4 lightMatrix(Vec3f towardLight, Vec3f center, float radius) {
  const Vec3f forward = -towardLight;
  const Vec3f right = anyPerpendicular(forward);
  const Vec3f up = cross(right, forward);
  const float scale = 1.0f / radius;
  const Matrix4 projection = {scale, 0, 0, 0, 0, scale, 0, 0, 0, 0, -scale, 0, 0, 0, 0, 1};
  return multiply(projection, viewMatrix(center, right, up, forward));
}

}  // namespace kestrane
