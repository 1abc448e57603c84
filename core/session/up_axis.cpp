// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/session/up_axis.h"

#include <map>

#include "core/base/json.h"
#include "core/graph/operator_registry.h"
#include "core/guides/guide_hierarchy.h"
#include "core/session/groom_document.h"

namespace kestrane {

namespace {

/// A quarter turn about X, which takes one up axis to the other.
class UpTurn {
 public:
  explicit UpTurn(bool toZ) : toZ_(toZ) {}

  Vec3f operator()(Vec3f v) const {
    return toZ_ ? Vec3f{v.x, negated(v.z), v.y} : Vec3f{v.x, v.z, negated(v.y)};
  }
  std::vector<Vec3f> operator()(std::vector<Vec3f> vectors) const {
    for (Vec3f& v : vectors) v = (*this)(v);
    return vectors;
  }
  ScalpMeshPtr operator()(const ScalpMeshPtr& mesh) const {
    return mesh ? mesh->withPoints((*this)(mesh->points()), (*this)(mesh->restPoints())) : nullptr;
  }
  /// Flat x0, y0, z0, x1, ... in JSON.
  void turnFlat(Json& numbers) const {
    for (std::size_t i = 0; i + 2 < numbers.size(); i += 3) {
      std::swap(numbers[i + 1], numbers[i + 2]);
      negate(numbers[i + (toZ_ ? 1 : 2)]);
    }
  }
  /// The axis word of a plane's normal; true where the plane then faces the other way.
  bool turnWord(std::string& word) const {
    if (word == "y") return word = "z", !toZ_;
    if (word == "z") return word = "y", toZ_;
    return false;
  }
  static void negate(Json& number) {
    if (number.is_number_float()) {
      number = negated(number.get<double>());
    } else if (number.is_number_integer() && number.get<std::int64_t>() != INT64_MIN) {
      number = -number.get<std::int64_t>();
    }
  }

 private:
  /// Zeros keep their sign, so that no file fills with -0.0.
  template <class Number>
  static Number negated(Number number) {
    return number == Number(0) ? number : -number;
  }

  bool toZ_;
};

/// Which parameters of an operator type are given in world space, and their defaults.
using WorldParams = std::map<std::string, ParamValue>;

/// Turns what the nodes of a graph, and of the compounds in it, say in world space.
class GraphTurn {
 public:
  explicit GraphTurn(UpTurn turn) : turn_(turn) {}

  void turnGraph(Json& graph) {
    if (!graph.is_object() || !graph.contains("nodes") || !graph["nodes"].is_array()) return;
    for (Json& node : graph["nodes"]) {
      if (node.is_object()) turnNode(node);
    }
  }

 private:
  static std::string typeOf(const Json& node) {
    const auto type = node.find("type");
    return type != node.end() && type->is_string() ? type->get<std::string>() : std::string();
  }

  void turnNode(Json& node) {
    const auto found = node.find("params");
    if (found != node.end() && !found->is_object()) return;
    Json params = found != node.end() ? *found : Json::object();
    const WorldParams& declared = declaredParams(typeOf(node));
    for (const auto& [name, defaultValue] : declared) turnParam(params, name, defaultValue);

    const auto definition = node.find("definition");
    if (definition != node.end() && definition->is_object()) {
      for (const std::string& name : exposedVectors(*definition)) {
        if (params.contains(name)) turnVector(params[name]);
      }
      const auto graph = definition->find("graph");
      if (graph != definition->end()) turnGraph(*graph);
    }
    if (found != node.end() || !params.empty()) node["params"] = std::move(params);
  }

  void turnParam(Json& params, const std::string& name, const ParamValue& defaultValue) {
    if (const Vec3f* vector = std::get_if<Vec3f>(&defaultValue)) {
      if (params.contains(name)) {
        turnVector(params[name]);
      } else if (turn_(*vector) != *vector) {
        // The default means another direction in the other scene, so the value must be said.
        params[name] = paramValueToJson(turn_(*vector));
      }
      return;
    }
    const std::string* word = std::get_if<std::string>(&defaultValue);
    if (word == nullptr) return;
    std::string axis = *word;
    if (params.contains(name)) {
      if (!params[name].is_string()) return;
      axis = params[name].get<std::string>();
    }
    const bool flipped = turn_.turnWord(axis);
    if (axis != *word || params.contains(name)) params[name] = axis;
    if (flipped) flipPlane(params);
  }

  /// A plane whose normal turned round crosses its axis at the opposite place.
  void flipPlane(Json& params) {
    if (params.contains("offset")) UpTurn::negate(params["offset"]);
    const std::string side = params.contains("side") && params["side"].is_string()
                                 ? params["side"].get<std::string>()
                                 : "positive";
    if (side == "positive") params["side"] = "negative";
    if (side == "negative") params["side"] = "positive";
  }

  void turnVector(Json& value) const {
    if (value.is_array() && value.size() == 3) turn_.turnFlat(value);
  }

  /// The names under which a compound exposes world vectors of its inner nodes.
  std::vector<std::string> exposedVectors(const Json& definition) {
    std::vector<std::string> names;
    const auto expose = definition.find("expose");
    const auto graph = definition.find("graph");
    if (expose == definition.end() || !expose->is_object() || graph == definition.end() ||
        !graph->is_object() || !graph->contains("nodes") || !(*graph)["nodes"].is_array()) {
      return names;
    }
    for (const auto& [name, target] : expose->items()) {
      const std::string path = target.is_string() ? target.get<std::string>() : std::string();
      const std::size_t dot = path.find('.');
      if (dot == std::string::npos) continue;
      for (const Json& inner : (*graph)["nodes"]) {
        if (!inner.is_object() || inner.value("name", Json()) != path.substr(0, dot)) continue;
        if (isWorldVector(inner, path.substr(dot + 1))) names.push_back(name);
      }
    }
    return names;
  }

  bool isWorldVector(const Json& node, const std::string& param) {
    const WorldParams& declared = declaredParams(typeOf(node));
    const auto found = declared.find(param);
    if (found != declared.end()) return std::holds_alternative<Vec3f>(found->second);
    const auto definition = node.find("definition");
    if (definition == node.end() || !definition->is_object()) return false;
    const std::vector<std::string> exposed = exposedVectors(*definition);
    return std::find(exposed.begin(), exposed.end(), param) != exposed.end();
  }

  const WorldParams& declaredParams(const std::string& type) {
    const auto [entry, isNew] = declared_.try_emplace(type);
    if (isNew && OperatorRegistry::instance().has(type)) {
      for (const ParamSpec& spec : OperatorRegistry::instance().create(type)->params()) {
        if (spec.worldDirection) entry->second[spec.name] = spec.defaultValue;
      }
    }
    return entry->second;
  }

  UpTurn turn_;
  std::map<std::string, WorldParams> declared_;
};

/// Only free and locked guides hold points in world space; what follows a guide or the surface
/// follows the turn.
std::shared_ptr<const GuideHierarchy> turned(const UpTurn& turn, const GuideHierarchy& hierarchy) {
  Json json = parseJson(hierarchy.toJson());
  for (Json& guide : json["guides"]) {
    if (guide.contains("points")) turn.turnFlat(guide["points"]);
    turn.turnFlat(guide["frameUp"]);
  }
  return std::make_shared<const GuideHierarchy>(GuideHierarchy::fromJson(json.dump()));
}

}  // namespace

void checkUpAxis(std::string_view axis) {
  if (axis == "Y" || axis == "Z") return;
  throw GroomFileError("groom file: upAxis is \"Y\" or \"Z\", not \"" + std::string(axis) + "\"");
}

void convertUpAxis(GroomDocument& document, std::string_view from, std::string_view to) {
  checkUpAxis(from);
  checkUpAxis(to);
  GroomDocument result = document;
  result.upAxis = to;
  if (from != to) {
    const UpTurn turn(to == "Z");
    result.scalp.mesh = turn(result.scalp.mesh);
    for (auto& [name, collider] : result.colliders) collider.mesh = turn(collider.mesh);
    for (GroomGuide& guide : result.guides) {
      guide.points = turn(std::move(guide.points));
      if (guide.frameUp) guide.frameUp = turn(*guide.frameUp);
    }
    for (auto& [name, prototype] : result.prototypes) {
      prototype.points = turn(std::move(prototype.points));
      prototype.normals = turn(std::move(prototype.normals));
    }
    if (result.hierarchy) result.hierarchy = turned(turn, *result.hierarchy);
    GraphTurn(turn).turnGraph(result.graph);
  }
  document = std::move(result);
}

}  // namespace kestrane
