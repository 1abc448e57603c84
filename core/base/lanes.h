// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace kestrane {

/// Four floats that are worked on side by side: the same IEEE operations per lane as for single
/// floats, and so the same results on every machine, but without waiting for a compiler to find out
/// that a loop can be done four at a time. Comparisons give a Mask4, which select() chooses by.
/// Each form has a namespace of its own, so that a program may hold both, as the tests do.
#if defined(__GNUC__) && !defined(KESTRANE_PLAIN_LANES)

inline namespace vectorLanes {

using Float4 = float __attribute__((vector_size(16)));
using Mask4 = std::int32_t __attribute__((vector_size(16)));

inline Float4 splat(float x) {
  return Float4{x, x, x, x};
}
/// Lane by lane, a where the mask is set, else b.
inline Float4 select(Mask4 mask, Float4 a, Float4 b) {
  return mask ? a : b;
}

#else

inline namespace plainLanes {

struct Float4 {
  float lane[4];
  float operator[](int k) const { return lane[k]; }
};
struct Mask4 {
  std::int32_t lane[4];  // -1 where set, else 0
  std::int32_t operator[](int k) const { return lane[k]; }
};

template <class Result, class Operation>
Result perLane(const Operation& operation) {
  Result result;
  for (int k = 0; k < 4; ++k) result.lane[k] = operation(k);
  return result;
}

inline Float4 splat(float x) {
  return {{x, x, x, x}};
}
inline Float4 operator+(Float4 a, Float4 b) {
  return perLane<Float4>([&](int k) { return a[k] + b[k]; });
}
inline Float4 operator-(Float4 a, Float4 b) {
  return perLane<Float4>([&](int k) { return a[k] - b[k]; });
}
inline Float4 operator*(Float4 a, Float4 b) {
  return perLane<Float4>([&](int k) { return a[k] * b[k]; });
}
inline Float4 operator/(Float4 a, Float4 b) {
  return perLane<Float4>([&](int k) { return a[k] / b[k]; });
}
inline Mask4 operator<(Float4 a, Float4 b) {
  return perLane<Mask4>([&](int k) { return a[k] < b[k] ? -1 : 0; });
}
inline Mask4 operator>(Float4 a, Float4 b) {
  return b < a;
}
inline Mask4 operator<=(Float4 a, Float4 b) {
  return perLane<Mask4>([&](int k) { return a[k] <= b[k] ? -1 : 0; });
}
inline Mask4 operator>=(Float4 a, Float4 b) {
  return b <= a;
}
inline Mask4 operator&(Mask4 a, Mask4 b) {
  return perLane<Mask4>([&](int k) { return a[k] & b[k]; });
}
inline Mask4 operator|(Mask4 a, Mask4 b) {
  return perLane<Mask4>([&](int k) { return a[k] | b[k]; });
}
inline Float4 select(Mask4 mask, Float4 a, Float4 b) {
  return perLane<Float4>([&](int k) { return mask[k] ? a[k] : b[k]; });
}

#endif

/// Tells the memory that this object will be read soon. No more than a hint.
template <class T>
inline void prefetch([[maybe_unused]] const T& object) {
#if defined(__GNUC__)
  constexpr std::size_t kLine = 64;
  for (std::size_t offset = 0; offset < sizeof(T); offset += kLine) {
    __builtin_prefetch(reinterpret_cast<const char*>(&object) + offset);
  }
#endif
}

inline Float4 load4(const float* values) {
  Float4 lanes;
  std::memcpy(&lanes, values, sizeof(lanes));
  return lanes;
}
inline void store4(float* values, Float4 lanes) {
  std::memcpy(values, &lanes, sizeof(lanes));
}
/// The lower and the higher of two, lane by lane; b where a is not a number.
inline Float4 lower(Float4 a, Float4 b) {
  return select(a < b, a, b);
}
inline Float4 higher(Float4 a, Float4 b) {
  return select(a > b, a, b);
}

/// A point, direction or colour per lane.
struct Vec3x4 {
  Float4 x, y, z;
};
inline Vec3x4 splat(float x, float y, float z) {
  return {splat(x), splat(y), splat(z)};
}
/// From rows of x, y and z, four floats each.
inline Vec3x4 load4(const float values[3][4]) {
  return {load4(values[0]), load4(values[1]), load4(values[2])};
}
inline Vec3x4 operator+(const Vec3x4& a, const Vec3x4& b) {
  return {a.x + b.x, a.y + b.y, a.z + b.z};
}
inline Vec3x4 operator-(const Vec3x4& a, const Vec3x4& b) {
  return {a.x - b.x, a.y - b.y, a.z - b.z};
}
inline Vec3x4 operator*(Float4 s, const Vec3x4& a) {
  return {s * a.x, s * a.y, s * a.z};
}
inline Float4 dot(const Vec3x4& a, const Vec3x4& b) {
  return a.x * b.x + a.y * b.y + a.z * b.z;
}

}  // namespace vectorLanes or plainLanes

}  // namespace kestrane
