// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/values/param_value.h"

#include <algorithm>
#include <array>
#include <cfloat>
#include <cmath>

#include "core/base/errors.h"
#include "core/base/hash.h"
#include "core/base/json.h"
#include "core/base/text.h"

namespace kestrane {

namespace {

constexpr std::array<std::string_view, 7> kindWords = {"bool", "int",  "float", "string",
                                                       "vec3", "ramp", "map"};
constexpr std::array<std::string_view, 5> sourceWords = {"texture", "colorSet", "attribute",
                                                         "expression", "guide"};
constexpr std::array<std::string_view, 5> componentWords = {"r", "g", "b", "a", "luminance"};

/// Text from a document as a message shows it; one that is not text, as JSON.
std::string shown(const Json& json) {
  if (json.is_string()) return json.get<std::string>();
  return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

[[noreturn]] void unsupported(const std::string& param) {
  throw GraphError("unsupported value for param '" + param + "'");
}

float readFloat(const std::string& param, const std::string& what, const Json& json) {
  if (!json.is_number()) unsupported(param);
  const double wide = json.get<double>();
  if (!(std::abs(wide) <= FLT_MAX)) throw GraphError(what + " is out of range for a float");
  return static_cast<float>(wide);
}

bool isNumberTriple(const Json& json) {
  return json.size() == 3 &&
         std::all_of(json.begin(), json.end(), [](const Json& n) { return n.is_number(); });
}

MapRef mapFromJson(const std::string& param, const Json& json) {
  const std::string start = "map for param '" + param + "'";
  MapRef map;
  const Json* text = nullptr;
  for (std::size_t i = 0; i < sourceWords.size(); ++i) {
    const auto found = json.find(sourceWords[i]);
    if (found == json.end()) continue;
    if (text != nullptr) {
      text = nullptr;
      break;
    }
    text = &*found;
    map.source = static_cast<MapSource>(i);
  }
  if (text == nullptr) {
    throw GraphError(start +
                     " needs exactly one of texture, colorSet, attribute, expression, guide");
  }
  if (!text->is_string()) unsupported(param);
  map.text = text->get<std::string>();

  // "luminance": true is another way to name the component, which gives way to "component".
  if (const auto found = json.find("luminance"); found != json.end()) {
    if (!found->is_boolean()) unsupported(param);
    map.component = MapComponent::luminance;
  }
  if (const auto found = json.find("component"); found != json.end()) {
    const auto word = std::find(componentWords.begin(), componentWords.end(), shown(*found));
    if (word == componentWords.end() || !found->is_string()) {
      throw GraphError(start + ": unknown component '" + shown(*found) + "'");
    }
    map.component = static_cast<MapComponent>(word - componentWords.begin());
  }
  if (const auto found = json.find("min"); found != json.end()) {
    map.min = readFloat(param, start + ": min", *found);
  }
  if (const auto found = json.find("max"); found != json.end()) {
    map.max = readFloat(param, start + ": max", *found);
  }
  return map;
}

Json mapToJson(const MapRef& map) {
  const MapRef plain;
  Json json = Json::object();
  json[std::string(sourceWord(map.source))] = map.text;
  if (map.component != plain.component) {
    json["component"] = componentWords[static_cast<std::size_t>(map.component)];
  }
  if (map.min != plain.min) json["min"] = shortestDouble(map.min);
  if (map.max != plain.max) json["max"] = shortestDouble(map.max);
  return json;
}

Ramp readRamp(const std::string& param, const Json& json) {
  Ramp ramp;
  if (!rampFromJson(json, ramp)) {
    throw GraphError("ramp for param '" + param + "' needs keys [[position, value], ...]");
  }
  return ramp;
}

}  // namespace

std::string_view kindWord(ParamKind kind) {
  return kindWords[static_cast<std::size_t>(kind)];
}

std::string_view sourceWord(MapSource source) {
  return sourceWords[static_cast<std::size_t>(source)];
}

ParamValue paramValueFromJson(const std::string& param, const Json& json) {
  if (json.is_boolean()) return json.get<bool>();
  if (json.is_number_unsigned() && json.get<std::uint64_t>() > INT64_MAX) {
    throw GraphError("param '" + param + "' is out of range for an integer");
  }
  if (json.is_number_integer()) return json.get<std::int64_t>();
  if (json.is_number()) return json.get<double>();
  if (json.is_string()) return json.get<std::string>();
  if (json.is_array()) {
    if (isNumberTriple(json)) {
      const auto read = [&](const Json& number) {
        return readFloat(param, "param '" + param + "'", number);
      };
      return Vec3f{read(json[0]), read(json[1]), read(json[2])};
    }
    // The bare keys of a ramp.
    if (json.empty() || json.front().is_array()) return readRamp(param, json);
  }
  if (json.is_object()) {
    if (json.contains("keys")) return readRamp(param, json);
    return mapFromJson(param, json);
  }
  unsupported(param);
}

Json paramValueToJson(const ParamValue& value) {
  switch (kindOf(value)) {
    case ParamKind::boolean:
      return std::get<bool>(value);
    case ParamKind::integer:
      return std::get<std::int64_t>(value);
    case ParamKind::number:
      return std::get<double>(value);
    case ParamKind::string:
      return std::get<std::string>(value);
    case ParamKind::vec3: {
      const Vec3f v = std::get<Vec3f>(value);
      return Json::array({shortestDouble(v.x), shortestDouble(v.y), shortestDouble(v.z)});
    }
    case ParamKind::ramp:
      return rampToJson(std::get<Ramp>(value));
    case ParamKind::map:
      return mapToJson(std::get<MapRef>(value));
  }
  return {};
}

std::uint64_t hashValue(const ParamValue& value) {
  const std::uint64_t seed = mix64(value.index());
  switch (kindOf(value)) {
    case ParamKind::boolean:
      return hashCombine(seed, std::get<bool>(value) ? 1 : 0);
    case ParamKind::integer:
      return hashCombine(seed, static_cast<std::uint64_t>(std::get<std::int64_t>(value)));
    case ParamKind::number:
      return hashNumber(seed, std::get<double>(value));
    case ParamKind::string:
      return hashString(seed, std::get<std::string>(value));
    case ParamKind::vec3: {
      const Vec3f v = std::get<Vec3f>(value);
      return hashNumber(hashNumber(hashNumber(seed, v.x), v.y), v.z);
    }
    case ParamKind::ramp:
      return std::get<Ramp>(value).hash(seed);
    case ParamKind::map: {
      const MapRef& map = std::get<MapRef>(value);
      std::uint64_t h = hashCombine(seed, static_cast<std::uint64_t>(map.source));
      h = hashString(h, map.text);
      h = hashCombine(h, static_cast<std::uint64_t>(map.component));
      return hashNumber(hashNumber(h, map.min), map.max);
    }
  }
  return seed;
}

}  // namespace kestrane
