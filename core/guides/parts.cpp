// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/guides/parts.h"

#include <algorithm>
#include <stdexcept>
#include <unordered_set>

#include "core/base/json.h"
#include "core/data/polyline.h"
#include "core/guides/document_text.h"
#include "core/guides/surface_point_text.h"

namespace kestrane {

namespace {

constexpr std::uint64_t partVersion = 1;
constexpr float shortestStroke = 1e-5f;

std::string unusedName(const PartData& data, std::string_view wanted) {
  const std::string base(wanted.empty() ? "part" : wanted);
  std::unordered_set<std::string_view> used;
  for (const Part& part : data.parts) used.insert(part.name);
  std::string name = base;
  for (int number = 1; used.contains(name); ++number) name = base + std::to_string(number);
  return name;
}

}  // namespace

PartData partsFromJson(std::string_view text) {
  return detail::readDocument<PartData>(text, [](const Json& document) {
    const auto version = document.find("version");
    if (version != document.end() && detail::readUint64(*version) > partVersion) {
      throw std::runtime_error("part data version is newer than this Kestrane supports");
    }
    PartData data;
    std::unordered_set<std::string> names;
    for (const Json& json : detail::readArray(document.at("parts"))) {
      Part part;
      part.name = detail::readString(json.at("name"));
      if (!names.insert(part.name).second) {
        throw std::runtime_error("two parts are named '" + part.name + "'");
      }
      for (const Json& point : detail::readArray(json.at("points"))) {
        part.points.push_back(detail::readSurfacePoint(point));
      }
      data.parts.push_back(std::move(part));
    }
    return data;
  });
}

std::string partsToJson(const PartData& data) {
  std::string text = "{";
  detail::appendKey(text, "parts");
  detail::appendList(text, data.parts, [](std::string& out, const Part& part) {
    out += '{';
    detail::appendField(out, "name", part.name);
    detail::appendKey(out, "points");
    detail::appendList(out, part.points, [](std::string& inner, StrandRoot point) {
      inner += '{';
      detail::appendSurfacePoint(inner, point);
      inner += '}';
    });
    out += '}';
  });
  detail::appendField(text, "version", partVersion);
  return text += '}';
}

std::string addPart(PartData& data, std::string_view name, std::span<const Vec3f> stroke,
                    const ScalpMesh& scalp, int pointCount) {
  // Written so that a stroke whose length is not a number is refused too.
  if (stroke.size() < 2 || !(polylineLength(stroke) >= shortestStroke)) {
    throw std::invalid_argument("a part needs a longer stroke");
  }
  Part part{unusedName(data, name), {}};
  const auto wanted = static_cast<std::size_t>(std::max(2, pointCount));
  std::vector<Vec3f> points(std::min(stroke.size(), wanted));
  resamplePolyline(stroke, points);
  for (const Vec3f& point : points) {
    const SurfaceHit hit = scalp.closestPoint(point);
    if (hit.root.face >= 0) part.points.push_back(hit.root);
  }
  if (part.points.size() < 2) {
    throw std::invalid_argument("a part needs at least two points on the scalp");
  }
  data.parts.push_back(std::move(part));
  return data.parts.back().name;
}

}  // namespace kestrane
