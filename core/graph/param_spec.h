// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <optional>
#include <string>
#include <vector>

#include "core/values/param_value.h"

namespace kestrane {

/// True while the named parameter's value is one of `in`; an empty name is no condition.
struct ParamCondition {
  std::string param;
  std::vector<ParamValue> in;
};

/// One parameter's declaration. The user interface, validation, cache keys and docs derive from it;
/// doc strings are part of the product.
struct ParamSpec {
  std::string name;
  ParamValue defaultValue;  // also fixes the kind
  std::string description;
  std::string unit;
  std::vector<std::string> choices;
  bool animatable = false;
  std::optional<double> min, max;          // hard limits
  std::optional<double> softMin, softMax;  // slider range
  std::string group;
  bool advanced = false;
  ParamCondition showWhen;
  bool worldDirection = false;
  bool vectorExpression = false;
  ParamCondition unitWhen;

  /// Whether a map may take the place of the number: its description says so.
  bool mappable() const { return description.find("(mappable") != std::string::npos; }
};

/// Builds a ParamSpec as one readable line of a table:
///   param("keep", 1.0, "Share of ...").range(0, 1).animatable().unit("fraction")
class ParamBuilder {
 public:
  ParamBuilder(std::string name, ParamValue defaultValue, std::string description);

  ParamBuilder range(double min, double max) &&;  // hard limits
  ParamBuilder atLeast(double min) &&;
  ParamBuilder slider(double softMin, double softMax) &&;
  ParamBuilder unit(std::string word) &&;
  ParamBuilder unitWhen(std::string other, std::vector<ParamValue> in) &&;
  ParamBuilder choices(std::vector<std::string> words) &&;
  ParamBuilder animatable() &&;
  ParamBuilder advanced() &&;
  ParamBuilder group(std::string heading) &&;
  ParamBuilder showWhen(std::string other, std::vector<ParamValue> in) &&;
  ParamBuilder worldDirection() &&;
  ParamBuilder vectorExpression() &&;

  operator ParamSpec() && { return std::move(spec_); }  // NOLINT: reads as a table row

 private:
  ParamSpec spec_;
};

ParamBuilder param(std::string name, double value, std::string description);
ParamBuilder param(std::string name, int value, std::string description);
ParamBuilder param(std::string name, bool value, std::string description);
ParamBuilder param(std::string name, const char* value, std::string description);
ParamBuilder param(std::string name, Vec3f value, std::string description);
ParamBuilder param(std::string name, Ramp value, std::string description);

/// Words and whole numbers as values, for showWhen and unitWhen.
std::vector<ParamValue> words(std::vector<std::string> texts);
std::vector<ParamValue> integers(std::vector<std::int64_t> numbers);

}  // namespace kestrane
