// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/ops/melanin.h"

namespace kestrane {

namespace {

/// The absorption of unit concentration.
Vec3f unitAbsorption(float redness) {
  constexpr Vec3f eumelanin{0.419f, 0.697f, 1.37f};
  constexpr Vec3f pheomelanin{0.187f, 0.4f, 1.05f};
  return lerp(eumelanin, pheomelanin, std::clamp(redness, 0.0f, 1.0f));
}

}  // namespace

float melaninConcentration(float melanin) {
  const float m = std::clamp(melanin, 0.0f, 1.0f);
  return 6.6f * m * m;
}

Vec3f melaninAbsorption(float melanin, float redness) {
  return unitAbsorption(redness) * melaninConcentration(melanin);
}

Vec3f melaninColor(float concentration, float redness, Vec3f dye) {
  const Vec3f depth = unitAbsorption(redness) * (concentration * 5.0f);
  const Vec3f color{std::exp(-depth.x) * dye.x, std::exp(-depth.y) * dye.y,
                    std::exp(-depth.z) * dye.z};
  const float luminance = dot(color, {0.2126f, 0.7152f, 0.0722f});
  const Vec3f grey{luminance, luminance, luminance};
  return (color - grey) * 0.5f + grey;
}

float longitudinalRoughness(float roughness) {
  const float b = std::clamp(roughness, 0.02f, 1.0f);
  const float b2 = b * b, b4 = b2 * b2, b16 = b4 * b4 * b4 * b4;
  return std::clamp((0.726f * b + 0.812f * b2 + 3.7f * (b16 * b4)) * 0.5f, 0.02f, 1.5f);
}

}  // namespace kestrane
