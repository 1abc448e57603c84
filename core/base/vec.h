// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <type_traits>

namespace kestrane {

/// Three packed floats: a position, direction or linear RGB colour. Arrays of Vec3f are copied and
/// compared bytewise, so the type has no padding.
struct Vec3f {
  float x = 0.0f;
  float y = 0.0f;
  float z = 0.0f;

  constexpr bool operator==(const Vec3f&) const = default;
  constexpr float& operator[](int axis) { return axis == 0 ? x : axis == 1 ? y : z; }
  constexpr float operator[](int axis) const { return axis == 0 ? x : axis == 1 ? y : z; }
  constexpr Vec3f& operator+=(Vec3f b) { return x += b.x, y += b.y, z += b.z, *this; }
  constexpr Vec3f& operator-=(Vec3f b) { return x -= b.x, y -= b.y, z -= b.z, *this; }
  constexpr Vec3f& operator*=(float s) { return x *= s, y *= s, z *= s, *this; }
};
static_assert(sizeof(Vec3f) == 12 && std::is_trivially_copyable_v<Vec3f>);

/// Two packed floats: a texture coordinate.
struct Vec2f {
  float x = 0.0f;
  float y = 0.0f;
  constexpr bool operator==(const Vec2f&) const = default;
};
static_assert(sizeof(Vec2f) == 8);

/// Four packed floats: linear RGBA.
struct Vec4f {
  float x = 0.0f;
  float y = 0.0f;
  float z = 0.0f;
  float w = 0.0f;
  constexpr bool operator==(const Vec4f&) const = default;
};
static_assert(sizeof(Vec4f) == 16);

constexpr Vec3f operator+(Vec3f a, Vec3f b) {
  return {a.x + b.x, a.y + b.y, a.z + b.z};
}
constexpr Vec3f operator-(Vec3f a, Vec3f b) {
  return {a.x - b.x, a.y - b.y, a.z - b.z};
}
constexpr Vec3f operator-(Vec3f a) {
  return {-a.x, -a.y, -a.z};
}
constexpr Vec3f operator*(Vec3f a, float s) {
  return {a.x * s, a.y * s, a.z * s};
}
constexpr Vec3f operator*(float s, Vec3f a) {
  return a * s;
}
constexpr Vec3f operator/(Vec3f a, float s) {
  return {a.x / s, a.y / s, a.z / s};
}

constexpr float dot(Vec3f a, Vec3f b) {
  return a.x * b.x + a.y * b.y + a.z * b.z;
}
constexpr Vec3f cross(Vec3f a, Vec3f b) {
  return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
constexpr float lengthSquared(Vec3f a) {
  return dot(a, a);
}
inline float length(Vec3f a) {
  return std::sqrt(lengthSquared(a));
}
inline float distance(Vec3f a, Vec3f b) {
  return length(a - b);
}
constexpr float lerp(float a, float b, float t) {
  return a + (b - a) * t;
}
constexpr Vec3f lerp(Vec3f a, Vec3f b, float t) {
  return a + (b - a) * t;
}
constexpr Vec3f min(Vec3f a, Vec3f b) {
  return {std::min(a.x, b.x), std::min(a.y, b.y), std::min(a.z, b.z)};
}
constexpr Vec3f max(Vec3f a, Vec3f b) {
  return {std::max(a.x, b.x), std::max(a.y, b.y), std::max(a.z, b.z)};
}
inline bool isFinite(Vec3f a) {
  return std::isfinite(a.x) && std::isfinite(a.y) && std::isfinite(a.z);
}

/// The unit vector along a, or `fallback` where a is shorter than 1e-20 or not finite.
inline Vec3f normalize(Vec3f a, Vec3f fallback = {0.0f, 0.0f, 0.0f}) {
  const float size = length(a);
  return size > 1e-20f && std::isfinite(size) ? a / size : fallback;
}

/// A unit vector perpendicular to the unit vector n: the cross product with the axis on which n is
/// smallest (X before Y before Z).
inline Vec3f anyPerpendicular(Vec3f n) {
  const float ax = std::abs(n.x), ay = std::abs(n.y), az = std::abs(n.z);
  const Vec3f helper = ax <= ay && ax <= az ? Vec3f{1, 0, 0}
                       : ay <= az           ? Vec3f{0, 1, 0}
                                            : Vec3f{0, 0, 1};
  return normalize(cross(n, helper), {1.0f, 0.0f, 0.0f});
}

/// Where a strand or guide is attached: a triangle and the weights of its second and third corner
/// (the first corner's is 1 - u - v). Face -1 is attached to nothing.
struct StrandRoot {
  std::int32_t face = -1;
  float u = 0.0f;
  float v = 0.0f;
  constexpr bool operator==(const StrandRoot&) const = default;
};
static_assert(sizeof(StrandRoot) == 12 && std::is_trivially_copyable_v<StrandRoot>);

}  // namespace kestrane
