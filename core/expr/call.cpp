// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <cmath>

#include "core/expr/evaluate.h"
#include "core/expr/functions.h"
#include "core/expr/math_rules.h"
#include "core/expr/noise.h"
#include "core/expr/random_rules.h"

namespace kestrane::detail {

namespace {

Vec3f vectorAt(const float* numbers) {
  return {numbers[0], numbers[1], numbers[2]};
}

/// In double precision, so that no float's square is out of range.
double lengthOf(Vec3f v) {
  const double x = v.x, y = v.y, z = v.z;
  return std::sqrt(x * x + y * y + z * z);
}

Vec3f scaledTo(Vec3f v, double size) {
  return {static_cast<float>(v.x / size), static_cast<float>(v.y / size),
          static_cast<float>(v.z / size)};
}

Vec3f direction(Vec3f v) {
  const double size = lengthOf(v);
  return size > 1e-12 ? scaledTo(v, size) : Vec3f();
}

/// About an axis of any length, by the formula of Rodrigues (1840).
Vec3f rotated(Vec3f v, Vec3f axis, float angle) {
  const double size = lengthOf(axis);
  if (!(size > 1e-12)) return v;
  const Vec3f k = scaledTo(axis, size);
  const float c = math::cos(angle), s = math::sin(angle);
  return v * c + cross(k, v) * s + k * (dot(k, v) * (1.0f - c));
}

/// The arguments behind the point, where they are given.
NoiseOctaves octavesOf(const float* numbers, int count) {
  NoiseOctaves octaves;
  if (count > 0) octaves.octaves = numbers[0];
  if (count > 1) octaves.lacunarity = numbers[1];
  if (count > 2) octaves.gain = numbers[2];
  return octaves;
}

float mapValue(const ExpressionTables::Map& binding, const MapSample* location) {
  if (binding.map == nullptr || location == nullptr) return 0.0f;
  return binding.map->sample(*location, binding.component);
}

}  // namespace

void callFunction(const Instruction& call, const ExpressionTables& tables,
                  const CallContext& context, const float* arguments, float* result) {
  using F = ExpressionFunction;
  const float* a = arguments;
  const int afterPoint = call.b - 3;
  const auto giveNumber = [&](float x) { result[0] = finiteOrZero(x); };
  const auto giveVector = [&](Vec3f v) {
    result[0] = finiteOrZero(v.x);
    result[1] = finiteOrZero(v.y);
    result[2] = finiteOrZero(v.z);
  };
  switch (static_cast<F>(call.a)) {
    case F::rand:
      return giveNumber(randomOf(a[0], context.seed));
    case F::hash:
      return giveNumber(hashOf(a[0]));
    case F::pick:
      return giveNumber(pickOf(a[0], a[1], a[2], a + 3, afterPoint));
    case F::choose:
      return giveNumber(chooseOf(a[0], a + 1, call.b - 1));
    case F::cycle:
      return giveNumber(cycleOf(a[0], a[1], a[2]));
    case F::dot:
      return giveNumber(dot(vectorAt(a), vectorAt(a + 3)));
    case F::cross:
      return giveVector(cross(vectorAt(a), vectorAt(a + 3)));
    case F::length:
      return giveNumber(static_cast<float>(lengthOf(vectorAt(a))));
    case F::normalize:
      return giveVector(direction(vectorAt(a)));
    case F::distance:
      return giveNumber(static_cast<float>(lengthOf(vectorAt(a + 3) - vectorAt(a))));
    case F::rotate:
      return giveVector(rotated(vectorAt(a), vectorAt(a + 3), a[6]));
    case F::noise:
    case F::noiseAt:
      return giveNumber(noise(vectorAt(a)));
    case F::vnoise:
      return giveVector(vnoise(vectorAt(a)));
    case F::fbm:
      return giveNumber(fbm(vectorAt(a), octavesOf(a + 3, afterPoint)));
    case F::vfbm:
      return giveVector(vfbm(vectorAt(a), octavesOf(a + 3, afterPoint)));
    case F::turbulence:
      return giveNumber(turbulence(vectorAt(a), octavesOf(a + 3, afterPoint)));
    case F::cellnoise:
      return giveNumber(cellnoise(vectorAt(a)));
    case F::voronoi:
      return giveNumber(
          voronoi(vectorAt(a), afterPoint > 0 ? a[3] : 1.0f, afterPoint > 1 ? a[4] : 1.0f));
    case F::curve:
    case F::linearcurve:
    case F::spline:
      return giveNumber(tables.curves[call.index].evaluate(a[0]));
    case F::map:
      return giveNumber(mapValue(tables.maps[call.index], context.location));
    default:
      return;  // functions of numbers, and cmap, which compiles to calls of map
  }
}

}  // namespace kestrane::detail
