// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>

#include "core/base/vec.h"

/// Before a function whose loops are worth doing eight floats at a time: it is compiled twice, and
/// the form that the processor can run is taken when the program starts. Both give the same
/// answers, as each lane does what a single float would. Calls inside it must be inlined to have a
/// part in it. Sanitizers watch the plain form.
#if defined(__x86_64__) && defined(__gnu_linux__) && defined(__GNUC__) && !defined(__clang__) && \
    !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) && defined(__OPTIMIZE__)
#define KESTRANE_WIDE __attribute__((target_clones("avx2", "default")))
#else
#define KESTRANE_WIDE
#endif

namespace kestrane {

/// Four floats that are worked on side by side: the same IEEE operations per lane as for single
/// floats, and so the same results on every machine, but without waiting for a compiler to find out
/// that a loop can be done four at a time. Comparisons give a Mask4, which select() chooses by.
/// Each form has a namespace of its own, so that a program may hold both, as the tests do.
#if defined(__GNUC__) && !defined(KESTRANE_PLAIN_LANES)

inline namespace vectorLanes {

using Float4 = float __attribute__((vector_size(16)));
using Mask4 = std::int32_t __attribute__((vector_size(16)));
using Int4 = Mask4;

inline Float4 splat(float x) {
  return Float4{x, x, x, x};
}
/// Lane by lane, a where the mask is set, else b.
inline Float4 select(Mask4 mask, Float4 a, Float4 b) {
  return mask ? a : b;
}
/// The whole parts of floats that are within the range of int, and back.
inline Int4 truncated(Float4 a) {
  return __builtin_convertvector(a, Int4);
}
inline Float4 asFloats(Int4 a) {
  return __builtin_convertvector(a, Float4);
}

#else

inline namespace plainLanes {

struct Float4 {
  float lane[4];
  float operator[](std::size_t k) const { return lane[k]; }
  float& operator[](std::size_t k) { return lane[k]; }
};
struct Mask4 {
  std::int32_t lane[4];  // -1 where set, else 0
  std::int32_t operator[](std::size_t k) const { return lane[k]; }
  std::int32_t& operator[](std::size_t k) { return lane[k]; }
};

template <class Result, class Operation>
Result perLane(const Operation& operation) {
  Result result;
  for (std::size_t k = 0; k < 4; ++k) result.lane[k] = operation(k);
  return result;
}

inline Float4 splat(float x) {
  return {{x, x, x, x}};
}
inline Float4 operator+(Float4 a, Float4 b) {
  return perLane<Float4>([&](std::size_t k) { return a[k] + b[k]; });
}
inline Float4 operator-(Float4 a, Float4 b) {
  return perLane<Float4>([&](std::size_t k) { return a[k] - b[k]; });
}
inline Float4 operator*(Float4 a, Float4 b) {
  return perLane<Float4>([&](std::size_t k) { return a[k] * b[k]; });
}
inline Float4 operator/(Float4 a, Float4 b) {
  return perLane<Float4>([&](std::size_t k) { return a[k] / b[k]; });
}
inline Mask4 operator<(Float4 a, Float4 b) {
  return perLane<Mask4>([&](std::size_t k) { return a[k] < b[k] ? -1 : 0; });
}
inline Mask4 operator>(Float4 a, Float4 b) {
  return b < a;
}
inline Mask4 operator<=(Float4 a, Float4 b) {
  return perLane<Mask4>([&](std::size_t k) { return a[k] <= b[k] ? -1 : 0; });
}
inline Mask4 operator>=(Float4 a, Float4 b) {
  return b <= a;
}
inline Mask4 operator&(Mask4 a, Mask4 b) {
  return perLane<Mask4>([&](std::size_t k) { return a[k] & b[k]; });
}
inline Mask4 operator|(Mask4 a, Mask4 b) {
  return perLane<Mask4>([&](std::size_t k) { return a[k] | b[k]; });
}
inline Mask4 operator~(Mask4 a) {
  return perLane<Mask4>([&](std::size_t k) { return ~a[k]; });
}
inline Mask4 operator==(Mask4 a, Mask4 b) {
  return perLane<Mask4>([&](std::size_t k) { return a[k] == b[k] ? -1 : 0; });
}
inline Mask4 operator+(Mask4 a, Mask4 b) {
  return perLane<Mask4>([&](std::size_t k) { return a[k] + b[k]; });
}
inline Mask4 operator-(Mask4 a, Mask4 b) {
  return perLane<Mask4>([&](std::size_t k) { return a[k] - b[k]; });
}
inline Float4 select(Mask4 mask, Float4 a, Float4 b) {
  return perLane<Float4>([&](std::size_t k) { return mask[k] ? a[k] : b[k]; });
}
using Int4 = Mask4;
inline Int4 truncated(Float4 a) {
  return perLane<Int4>([&](std::size_t k) { return static_cast<std::int32_t>(a[k]); });
}
inline Float4 asFloats(Int4 a) {
  return perLane<Float4>([&](std::size_t k) { return static_cast<float>(a[k]); });
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
inline Float4 absolute(Float4 a) {
  return select(a < splat(0.0f), splat(0.0f) - a, a);
}
inline Float4 squareRoot(Float4 a) {
#if defined(__SSE__) && !defined(KESTRANE_PLAIN_LANES)
  return __builtin_ia32_sqrtps(a);
#else
  return Float4{std::sqrt(a[0]), std::sqrt(a[1]), std::sqrt(a[2]), std::sqrt(a[3])};
#endif
}
inline Int4 splatInt(std::int32_t x) {
  return Int4{x, x, x, x};
}
/// A bit for each lane that is set.
inline unsigned setLanes(Mask4 mask) {
#if defined(__SSE__) && !defined(KESTRANE_PLAIN_LANES)
  return static_cast<unsigned>(__builtin_ia32_movmskps(reinterpret_cast<Float4>(mask)));
#else
  unsigned bits = 0;
  for (unsigned k = 0; k < 4; ++k) bits |= mask[k] ? 1u << k : 0u;
  return bits;
#endif
}
constexpr unsigned allLanes = 0b1111;
/// Where a is a number, be it infinite.
inline Mask4 isNumber(Float4 a) {
  return (a <= splat(0.0f)) | (a >= splat(0.0f));
}
/// a + (b - a) * t.
inline Float4 lerp(Float4 a, Float4 b, Float4 t) {
  return a + (b - a) * t;
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
struct PointPair {
  Float4 first, second;
};
/// The coordinates of a point and of the one after it in an array, in the first three lanes; the
/// fourth is left to chance.
inline PointPair loadPair(const Vec3f& point) {
  // Both loads stay within the two points: x y z x and z x y z.
  const char* bytes = reinterpret_cast<const char*>(&point);
  Float4 first, second;
  std::memcpy(&first, bytes, sizeof(first));
  std::memcpy(&second, bytes + 2 * sizeof(float), sizeof(second));
#if defined(__GNUC__) && !defined(KESTRANE_PLAIN_LANES)
  return {first, __builtin_shufflevector(second, second, 1, 2, 3, 3)};
#else
  return {first, {{second[1], second[2], second[3], 0.0f}}};
#endif
}
/// Writes the first three lanes to the point and the fourth over the float after it, which must be
/// written after this.
inline void storeOverNext(Vec3f& point, Float4 lanes) {
  std::memcpy(static_cast<void*>(&point), &lanes, sizeof(lanes));
}
/// The point of the first three lanes.
inline Vec3f firstThree(Float4 lanes) {
  return {lanes[0], lanes[1], lanes[2]};
}

/// From rows of x, y and z, four floats each.
inline Vec3x4 load4(const float values[3][4]) {
  return {load4(values[0]), load4(values[1]), load4(values[2])};
}
/// Four points that follow each other in memory.
inline Vec3x4 loadFour(const Vec3f* points) {
  const char* bytes = reinterpret_cast<const char*>(points);
  Float4 a, b, c;  // x y z x, y z x y, z x y z
  std::memcpy(&a, bytes, sizeof(a));
  std::memcpy(&b, bytes + sizeof(a), sizeof(b));
  std::memcpy(&c, bytes + 2 * sizeof(a), sizeof(c));
#if defined(__GNUC__) && !defined(KESTRANE_PLAIN_LANES)
  const Float4 bc = __builtin_shufflevector(b, c, 2, 5, 3, 6);
  const Float4 ab = __builtin_shufflevector(a, b, 1, 4, 2, 5);
  return {__builtin_shufflevector(a, bc, 0, 3, 4, 5), __builtin_shufflevector(ab, bc, 0, 1, 6, 7),
          __builtin_shufflevector(ab, c, 2, 3, 4, 7)};
#else
  return {{{a[0], a[3], b[2], c[1]}}, {{a[1], b[0], b[3], c[2]}}, {{a[2], b[1], c[0], c[3]}}};
#endif
}
/// The columns of three rows, the last lane of each left to chance: a.x gets lane 0 of the rows.
inline Vec3x4 columns(Float4 a, Float4 b, Float4 c) {
#if defined(__GNUC__) && !defined(KESTRANE_PLAIN_LANES)
  const Float4 ab = __builtin_shufflevector(a, b, 0, 4, 1, 5);
  return {__builtin_shufflevector(ab, c, 0, 1, 4, 4), __builtin_shufflevector(ab, c, 2, 3, 5, 5),
          __builtin_shufflevector(__builtin_shufflevector(a, b, 2, 6, 2, 6), c, 0, 1, 6, 6)};
#else
  return {{{a[0], b[0], c[0], 0.0f}}, {{a[1], b[1], c[1], 0.0f}}, {{a[2], b[2], c[2], 0.0f}}};
#endif
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

inline Float4 length(const Vec3x4& a) {
  return squareRoot(dot(a, a));
}
inline Vec3x4 select(Mask4 mask, const Vec3x4& a, const Vec3x4& b) {
  return {select(mask, a.x, b.x), select(mask, a.y, b.y), select(mask, a.z, b.z)};
}
/// The unit vectors along a; 0 where a is shorter than 1e-20 or not finite.
inline Vec3x4 normalize(const Vec3x4& a) {
  const Float4 size = length(a);
  const Mask4 usable = (size > splat(1e-20f)) & (size <= splat(std::numeric_limits<float>::max()));
  return select(usable, {a.x / size, a.y / size, a.z / size}, splat(0.0f, 0.0f, 0.0f));
}

}  // namespace vectorLanes or plainLanes

}  // namespace kestrane
