// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <optional>
#include <string>

#include "core/base/json.h"
#include "core/graph/operator_registry.h"

namespace kestrane {

namespace {

Json portJson(const PortSpec& port) {
  Json json = Json::object();
  json["name"] = port.name;
  json["type"] = portTypeName(port.type);
  return json;
}

Json inputJson(const PortSpec& port) {
  Json json = portJson(port);
  if (port.optional) json["optional"] = true;
  return json;
}

Json conditionJson(const ParamCondition& condition) {
  Json in = Json::array();
  for (const ParamValue& value : condition.in) in.push_back(paramValueToJson(value));
  Json json = Json::object();
  json["param"] = condition.param;
  json["in"] = std::move(in);
  return json;
}

Json paramJson(const ParamSpec& spec) {
  Json json = Json::object();
  json["name"] = spec.name;
  json["kind"] = kindWord(kindOf(spec.defaultValue));
  json["default"] = paramValueToJson(spec.defaultValue);
  json["description"] = spec.description;
  json["mappable"] = spec.mappable();
  if (!spec.unit.empty()) json["unit"] = spec.unit;
  if (!spec.choices.empty()) json["choices"] = spec.choices;
  if (spec.animatable) json["animatable"] = true;
  if (!spec.group.empty()) json["group"] = spec.group;
  if (spec.advanced) json["advanced"] = true;
  if (spec.worldDirection) json["worldDirection"] = true;
  if (spec.vectorExpression) json["vectorExpression"] = true;
  // The hard limits stand in for a slider range that is not given.
  const auto putLimit = [&json](const char* key, const std::optional<double>& limit,
                                const std::optional<double>& standIn = {}) {
    if (limit) {
      json[key] = *limit;
    } else if (standIn) {
      json[key] = *standIn;
    }
  };
  putLimit("min", spec.min);
  putLimit("max", spec.max);
  putLimit("softMin", spec.softMin, spec.min);
  putLimit("softMax", spec.softMax, spec.max);
  if (!spec.showWhen.param.empty()) json["showWhen"] = conditionJson(spec.showWhen);
  if (!spec.unitWhen.param.empty()) json["unitWhen"] = conditionJson(spec.unitWhen);
  return json;
}

}  // namespace

Json operatorCatalogueEntry(const Operator& op) {
  Json json = Json::object();
  json["type"] = op.type();
  json["version"] = op.version();
  json["category"] = op.category();
  json["description"] = op.description();
  Json inputs = Json::array();
  for (const PortSpec& port : op.inputs()) inputs.push_back(inputJson(port));
  json["inputs"] = std::move(inputs);
  json["output"] = portJson(op.output());
  if (const std::vector<PortSpec> ports = op.outputs(); ports.size() > 1) {
    Json outputs = Json::array();
    for (const PortSpec& port : ports) outputs.push_back(portJson(port));
    json["outputs"] = std::move(outputs);
  }
  Json params = Json::array();
  for (const ParamSpec& spec : effectiveParams(op)) params.push_back(paramJson(spec));
  json["params"] = std::move(params);
  return json;
}

Json operatorCatalogue() {
  const OperatorRegistry& registry = OperatorRegistry::instance();
  Json entries = Json::array();
  for (const std::string& type : registry.types()) {
    entries.push_back(operatorCatalogueEntry(*registry.create(type)));
  }
  return entries;
}

std::string operatorCatalogueJson() {
  return operatorCatalogue().dump();
}

}  // namespace kestrane
