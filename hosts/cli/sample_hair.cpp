// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "hosts/cli/sample_hair.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "core/base/hash.h"
#include "core/data/polyline.h"

namespace kestrane {

namespace {

constexpr std::size_t pointsPerGuide = 24;
constexpr float step = 0.25f;
constexpr float longest = 36.0f;
constexpr Vec3f crown{0.8f, 10.6f, -5.2f};  // where the hair of the back spreads from

float smoothStep(float low, float high, float x) {
  const float t = std::clamp((x - low) / (high - low), 0.0f, 1.0f);
  return t * t * (3.0f - 2.0f * t);
}

/// How far left of the middle the hair parts; it runs in toward the crown.
float partAt(float z) {
  return lerp(1.4f, 3.1f, smoothStep(-6.0f, 6.0f, z));
}

/// The way hair is combed at a point: away from the parting in front, away from the crown behind.
Vec3f combed(Vec3f point) {
  const float front = smoothStep(-5.5f, -1.0f, point.z) * smoothStep(2.0f, 8.0f, point.y);
  const float side = point.x > partAt(point.z) ? 1.0f : -1.0f;
  const Vec3f fromPart = normalize({side, 0.0f, -0.5f * smoothStep(1.0f, 8.0f, point.z)});
  Vec3f fromCrown = normalize(point - crown);
  fromCrown.z = std::min(fromCrown.z, 0.1f);
  return normalize(lerp(fromCrown, fromPart, front) + Vec3f{0.0f, -0.15f, 0.0f});
}

float random(std::uint64_t id, std::uint64_t salt) {
  return unitFloat(hashCombine(id, salt));
}

/// One curve, walked from its root: it leaves the skin, follows the comb, then its own weight, and
/// is kept off the head by as much as lies beneath it. It is cut at the height of the cut.
std::vector<Vec3f> grow(const SampleHead& head, Vec3f root, std::uint64_t id) {
  const float cut = -14.5f + 1.6f * random(id, 1) + 0.12f * root.z;
  const float onTop = smoothStep(-6.0f, 10.0f, root.y);
  const float room = 0.35f + 1.15f * onTop + 0.25f * random(id, 2);
  const float phase = 0.3f * root.x + 0.4f * root.z + 1.5f * random(id, 3);
  std::vector<Vec3f> points{root};
  Vec3f direction = normalize(head.outward(root) * 0.55f + combed(root));
  for (float grown = 0.0f; grown < longest;) {
    Vec3f at = points.back();
    const Vec3f normal = head.outward(at);
    Vec3f comb = combed(at);
    comb = normalize(comb - normal * dot(comb, normal), comb);
    const float weight = smoothStep(2.0f, 13.0f, grown) * 0.85f + 0.12f;
    Vec3f wanted = normalize(lerp(comb, {0.0f, -1.0f, 0.0f}, weight));
    // Slow waves, and tips that turn in under the jaw.
    const float turnIn = smoothStep(-7.0f, -14.0f, at.y) * 0.45f;
    const Vec3f inward = normalize({-at.x, 0.0f, -3.0f - at.z});
    wanted = wanted + inward * turnIn +
             cross(normal, wanted) *
                 (0.42f * smoothStep(4.0f, 16.0f, grown) * std::sin(0.55f * grown + phase));
    direction = normalize(lerp(direction, normalize(wanted), 0.16f));
    at += direction * step;
    const float lift = room * (1.0f - std::exp(-grown / 2.2f)) + 0.02f;
    if (const float height = head.distance(at); height < lift) {
      at += head.outward(at) * (lift - height);
    }
    const Vec3f way = at - points.back();
    const float size = length(way);
    direction = normalize(way, direction);
    points.push_back(at);
    grown += std::max(size, 0.3f * step);
    if (at.y < cut) break;
  }
  std::vector<Vec3f> even(pointsPerGuide);
  resamplePolyline(points, even);
  return even;
}

}  // namespace

std::vector<Vec3f> samplePart(const SampleHead& head) {
  std::vector<Vec3f> points;
  // It begins on the forehead, so that the sparse hair at the line does not blend around its end.
  for (float z = 10.5f; z > -5.0f; z -= 0.5f) {
    const Vec3f at = head.exit({partAt(z), 2.0f, z * 0.75f}, normalize({0.0f, 1.0f, z * 0.03f}));
    if (z > 0.0f || sampleHairShare(at) > 0.3f) points.push_back(at);
  }
  return points;
}

std::vector<std::vector<Vec3f>> sampleGuides(const SampleHead& head) {
  std::vector<Vec3f> roots;
  // Evenly over the head: points of a spiral with the golden angle between them.
  constexpr int spiral = 460;
  for (int i = 0; i < spiral; ++i) {
    const float height = 1.0f - 2.0f * (static_cast<float>(i) + 0.5f) / spiral;
    const float angle =
        static_cast<float>(i) * std::numbers::pi_v<float> * (3.0f - std::sqrt(5.0f));
    const float radius = std::sqrt(1.0f - height * height);
    const Vec3f root = head.exit({0.0f, 1.0f, -1.0f},
                                 {radius * std::sin(angle), height, radius * std::cos(angle)});
    if (sampleHairShare(root) > 0.4f) roots.push_back(root);
  }
  // And a row on either side of the parting, which is where the difference is largest.
  for (const Vec3f& at : samplePart(head)) {
    if (sampleHairShare(at) <= 0.3f) continue;
    for (const float side : {-0.5f, 0.5f}) {
      const Vec3f beside = at + Vec3f{side, -1.0f, 0.0f};
      roots.push_back(head.exit(beside, {0.0f, 1.0f, 0.0f}));
    }
  }
  std::vector<std::vector<Vec3f>> guides;
  for (std::size_t i = 0; i < roots.size(); ++i) guides.push_back(grow(head, roots[i], i + 1));
  return guides;
}

}  // namespace kestrane
