// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "hosts/cli/sample_head.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <numbers>

namespace kestrane {

namespace {

constexpr float pi = std::numbers::pi_v<float>;

float smoothStep(float low, float high, float x) {
  const float t = std::clamp((x - low) / (high - low), 0.0f, 1.0f);
  return t * t * (3.0f - 2.0f * t);
}

// Solids as distance functions, joined with rounded seams (after Quilez 2013).

float joined(float a, float b, float seam) {
  const float h = std::max(seam - std::abs(a - b), 0.0f) / seam;
  return std::min(a, b) - h * h * seam * 0.25f;
}

float carved(float a, float cut, float seam) {
  return -joined(-a, cut, seam);
}

float ellipsoid(Vec3f point, Vec3f center, Vec3f radii) {
  const Vec3f q = point - center;
  const Vec3f a{q.x / radii.x, q.y / radii.y, q.z / radii.z};
  const Vec3f b{a.x / radii.x, a.y / radii.y, a.z / radii.z};
  const float size = length(b);
  return size < 1e-6f ? -std::min({radii.x, radii.y, radii.z})
                      : length(a) * (length(a) - 1.0f) / size;
}

/// A rod between two points whose thickness changes evenly.
float rod(Vec3f point, Vec3f from, Vec3f to, float fromRadius, float toRadius) {
  const Vec3f along = to - from;
  const float t = std::clamp(dot(point - from, along) / lengthSquared(along), 0.0f, 1.0f);
  return length(point - from - along * t) - lerp(fromRadius, toRadius, t);
}

float skull(Vec3f p) {
  float d = ellipsoid(p, {0.0f, 3.0f, -1.2f}, {7.5f, 8.6f, 9.6f});
  d = joined(d, ellipsoid(p, {0.0f, -2.6f, 3.0f}, {6.1f, 7.8f, 6.1f}), 3.0f);
  d = joined(d, ellipsoid(p, {0.0f, -7.0f, 3.0f}, {5.2f, 4.0f, 5.4f}), 2.0f);  // jaw
  d = joined(d, ellipsoid(p, {0.0f, -9.9f, 7.7f}, {2.0f, 1.4f, 1.4f}), 2.0f);  // chin
  return joined(d, rod(p, {0.0f, -4.0f, -2.6f}, {0.0f, -21.0f, -3.6f}, 4.9f, 5.9f), 2.6f);
}

/// Half of a face; x counts from the middle outward.
float face(Vec3f p, float d) {
  d = joined(d, ellipsoid(p, {3.8f, -2.1f, 6.2f}, {1.9f, 1.4f, 1.7f}), 2.2f);   // cheek
  d = joined(d, ellipsoid(p, {2.1f, 2.0f, 7.6f}, {2.0f, 0.75f, 1.1f}), 1.8f);   // brow
  d = carved(d, ellipsoid(p, {3.1f, 0.0f, 9.7f}, {1.9f, 1.3f, 1.7f}), 1.4f);    // socket
  d = joined(d, ellipsoid(p, {3.1f, -0.1f, 7.0f}, {1.6f, 1.1f, 1.4f}), 0.25f);  // closed lid
  d = joined(d, ellipsoid(p, {0.0f, -6.1f, 6.9f}, {2.9f, 2.4f, 2.1f}), 1.6f);   // mouth
  d = joined(d, ellipsoid(p, {0.5f, -5.6f, 9.1f}, {1.5f, 0.55f, 0.62f}), 0.45f);
  d = joined(d, ellipsoid(p, {0.0f, -6.85f, 9.15f}, {1.7f, 0.6f, 0.65f}), 0.35f);
  d = carved(d, rod(p, {0.0f, -6.2f, 9.85f}, {2.1f, -6.2f, 9.35f}, 0.16f, 0.1f), 0.3f);
  d = joined(d, rod(p, {0.0f, 1.6f, 8.3f}, {0.0f, -2.4f, 10.1f}, 0.5f, 0.75f), 1.5f);  // nose
  d = joined(d, ellipsoid(p, {0.0f, -2.6f, 10.3f}, {0.95f, 0.85f, 1.0f}), 0.6f);
  return joined(d, ellipsoid(p, {0.95f, -3.0f, 9.4f}, {0.65f, 0.6f, 0.8f}), 0.5f);
}

float ear(Vec3f p, float d) {
  // The ear leans outward toward the back, its upper end too.
  const Vec3f q = p - Vec3f{7.1f, -0.6f, -1.2f};
  const float cosine = std::cos(0.22f), sine = std::sin(0.22f);
  const Vec3f turned{q.x * cosine + q.z * sine - 0.06f * q.y, q.y, q.z * cosine - q.x * sine};
  d = joined(d, ellipsoid(turned, {}, {0.8f, 2.9f, 1.6f}), 1.0f);
  return carved(d, ellipsoid(turned, {1.0f, 0.2f, 0.2f}, {0.65f, 1.7f, 0.8f}), 0.6f);
}

constexpr int columns = 144;
constexpr int rows = 128;

struct Ray {
  Vec3f origin;
  Vec3f direction;
};

/// A ray of the grid from inside the head: from the crown down rays fan out from the middle of the
/// head, and below the ears their origin sinks through the neck. Columns are closer in the face.
Ray gridRay(float across, float row) {
  const float turn = 2.0f * pi * across - pi;  // from the back, 0 at the nose
  const float azimuth = turn - 0.55f * std::sin(turn);
  // Rows are closer in the face.
  const float nose = 2.0f * pi * 0.55f;
  const float down = row - 0.06f * (std::sin(2.0f * pi * row - nose) + std::sin(nose));
  const float sink = std::max(down - 0.45f, 0.0f) / 0.55f;
  const float polar = lerp(1.25f * pi * down, 0.5f * pi, smoothStep(0.25f, 0.9f, sink));
  const Vec3f origin = lerp(Vec3f{0.0f, 1.0f, -1.0f}, Vec3f{0.0f, -17.5f, -3.4f}, sink);
  return {
      origin,
      {std::sin(polar) * std::sin(azimuth), std::cos(polar), std::sin(polar) * std::cos(azimuth)}};
}

}  // namespace

float SampleHead::distance(Vec3f point) const {
  const Vec3f half{std::abs(point.x), point.y, point.z};
  return ear(half, face(half, skull(half)));
}

Vec3f SampleHead::outward(Vec3f point) const {
  constexpr float step = 0.01f;
  Vec3f gradient;
  for (int axis = 0; axis < 3; ++axis) {
    Vec3f offset;
    offset[axis] = step;
    gradient[axis] = distance(point + offset) - distance(point - offset);
  }
  return normalize(gradient, {0.0f, 1.0f, 0.0f});
}

Vec3f SampleHead::exit(Vec3f origin, Vec3f direction) const {
  float inside = 0.0f, outside = 0.0f;
  while (distance(origin + direction * outside) < 0.0f && outside < 60.0f) {
    inside = outside;
    outside += std::max(-0.7f * distance(origin + direction * outside), 0.05f);
  }
  for (int i = 0; i < 24; ++i) {
    const float middle = (inside + outside) / 2.0f;
    (distance(origin + direction * middle) < 0.0f ? inside : outside) = middle;
  }
  return origin + direction * inside;
}

ScalpMeshPtr sampleHeadMesh(const SampleHead& head) {
  // The crown, then the rows from it down.
  std::vector<Vec3f> points;
  const Ray crown = gridRay(0.5f, 0.0f);
  points.push_back(head.exit(crown.origin, {0.0f, 1.0f, 0.0f}));
  for (int row = 1; row <= rows; ++row) {
    for (int column = 0; column < columns; ++column) {
      const Ray ray = gridRay(static_cast<float>(column) / columns, static_cast<float>(row) / rows);
      points.push_back(head.exit(ray.origin, ray.direction));
    }
  }
  const auto index = [](int row, int column) {
    return row == 0 ? 0 : 1 + (row - 1) * columns + column % columns;
  };
  const auto uv = [](int row, float column) {
    return Vec2f{column / columns, 1.0f - static_cast<float>(row) / rows};
  };

  std::vector<ScalpMesh::Triangle> triangles;
  std::vector<Vec2f> uvs;
  const auto addQuad = [&](std::array<std::int32_t, 4> corners, std::array<Vec2f, 4> cornerUvs) {
    for (const std::size_t second : {1u, 2u}) {
      triangles.push_back({corners[0], corners[second], corners[second + 1]});
      uvs.insert(uvs.end(), {cornerUvs[0], cornerUvs[second], cornerUvs[second + 1]});
    }
  };
  // Around the crown each quad takes two columns, so that there is no triangle.
  for (int column = 0; column < columns; column += 2) {
    const auto at = static_cast<float>(column);
    addQuad({0, index(1, column), index(1, column + 1), index(1, column + 2)},
            {uv(0, at + 1.0f), uv(1, at), uv(1, at + 1.0f), uv(1, at + 2.0f)});
  }
  for (int row = 1; row < rows; ++row) {
    for (int column = 0; column < columns; ++column) {
      const auto at = static_cast<float>(column);
      addQuad({index(row, column), index(row + 1, column), index(row + 1, column + 1),
               index(row, column + 1)},
              {uv(row, at), uv(row + 1, at), uv(row + 1, at + 1.0f), uv(row, at + 1.0f)});
    }
  }
  auto mesh = std::make_shared<ScalpMesh>(std::move(points), std::move(triangles));
  mesh->setPolygons(std::vector<std::int32_t>(mesh->triangleCount() / 2, 2));
  mesh->setUvs(std::move(uvs));
  return mesh;
}

float sampleHairShare(Vec3f skinPoint) {
  // The height of the hairline by the angle around the head, from the nose (0) to the nape: up the
  // temples, down before the ears, over them and down to the neck.
  static constexpr std::array<std::array<float, 2>, 14> hairline = {{{0.0f, 7.4f},
                                                                     {20.0f, 7.6f},
                                                                     {36.0f, 7.9f},
                                                                     {50.0f, 6.0f},
                                                                     {62.0f, 3.2f},
                                                                     {72.0f, 0.6f},
                                                                     {79.0f, -1.6f},
                                                                     {85.0f, -1.0f},
                                                                     {91.0f, 3.0f},
                                                                     {106.0f, 3.2f},
                                                                     {118.0f, -0.5f},
                                                                     {132.0f, -4.5f},
                                                                     {150.0f, -7.0f},
                                                                     {180.0f, -7.8f}}};
  const float angle = std::atan2(std::abs(skinPoint.x), skinPoint.z + 1.0f) * 180.0f / pi;
  float height = hairline.back()[1];
  for (std::size_t i = 1; i < hairline.size(); ++i) {
    if (angle <= hairline[i][0]) {
      height = lerp(hairline[i - 1][1], hairline[i][1],
                    smoothStep(hairline[i - 1][0], hairline[i][0], angle));
      break;
    }
  }
  return smoothStep(-0.3f, 0.7f, skinPoint.y - height);
}

}  // namespace kestrane
