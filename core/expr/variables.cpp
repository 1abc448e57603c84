// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/expr/variables.h"

#include <algorithm>
#include <array>
#include <cfloat>
#include <cmath>

#include "core/base/errors.h"
#include "core/base/json.h"
#include "core/base/text.h"
#include "core/expr/cursor.h"

namespace kestrane {

namespace {

bool readNumber(const Json& json, float& number) {
  if (!json.is_number()) return false;
  const double wide = json.get<double>();
  if (!(std::fabs(wide) <= FLT_MAX)) return false;
  number = static_cast<float>(wide);
  return true;
}

bool readVector(const Json& json, Vec3f& vector) {
  return json.is_array() && json.size() == 3 && readNumber(json[0], vector.x) &&
         readNumber(json[1], vector.y) && readNumber(json[2], vector.z);
}

bool readText(const Json& record, const char* key, std::string& text) {
  const auto found = record.find(key);
  if (found == record.end()) return true;
  if (!found->is_string()) return false;
  text = found->get<std::string>();
  return !text.empty();
}

bool readRecord(const Json& record, ExpressionVariable& variable) {
  constexpr std::array<std::string_view, 5> units = {"", "length", "width", "density", "perLength"};
  const auto value = record.find("value");
  return value != record.end() && readNumber(*value, variable.value.x) &&
         readText(record, "control", variable.control) && readText(record, "unit", variable.unit) &&
         std::find(units.begin(), units.end(), variable.unit) != units.end();
}

ExpressionVariable readVariable(const std::string& name, const Json& json) {
  if (name.empty() || !std::all_of(name.begin(), name.end(), detail::isNameCharacter)) {
    throw ExpressionError("'" + name + "' is not a variable name (letters, digits and _)");
  }
  ExpressionVariable variable;
  variable.name = name;
  variable.isVector = json.is_array();
  const bool read = variable.isVector  ? readVector(json, variable.value)
                    : json.is_object() ? readRecord(json, variable)
                                       : readNumber(json, variable.value.x);
  if (!read) throw ExpressionError(name + " is neither a number nor a vector of three");
  return variable;
}

Json readObject(std::string_view text) {
  Json json;
  try {
    json = parseJson(text);
  } catch (const std::runtime_error&) {
    // Reported with all other texts that are no such object.
  }
  if (!json.is_object()) {
    throw ExpressionError("variables are a JSON object of numbers and vectors");
  }
  return json;
}

}  // namespace

ExpressionVariables parseExpressionVariables(std::string_view json) {
  json = trimmed(json);
  ExpressionVariables variables;
  if (json.empty()) return variables;
  const Json object = readObject(json);
  variables.reserve(object.size());
  for (const auto& [name, value] : object.items()) variables.push_back(readVariable(name, value));
  return variables;
}

}  // namespace kestrane
