// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/graph/param_spec.h"

#include <utility>

namespace kestrane {

ParamBuilder::ParamBuilder(std::string name, ParamValue defaultValue, std::string description) {
  spec_.name = std::move(name);
  spec_.defaultValue = std::move(defaultValue);
  spec_.description = std::move(description);
}

ParamBuilder ParamBuilder::range(double min, double max) && {
  spec_.min = min;
  spec_.max = max;
  return std::move(*this);
}

ParamBuilder ParamBuilder::atLeast(double min) && {
  spec_.min = min;
  return std::move(*this);
}

ParamBuilder ParamBuilder::slider(double softMin, double softMax) && {
  spec_.softMin = softMin;
  spec_.softMax = softMax;
  return std::move(*this);
}

ParamBuilder ParamBuilder::unit(std::string word) && {
  spec_.unit = std::move(word);
  return std::move(*this);
}

ParamBuilder ParamBuilder::unitWhen(std::string other, std::vector<ParamValue> in) && {
  spec_.unitWhen = {std::move(other), std::move(in)};
  return std::move(*this);
}

ParamBuilder ParamBuilder::choices(std::vector<std::string> words) && {
  spec_.choices = std::move(words);
  return std::move(*this);
}

ParamBuilder ParamBuilder::animatable() && {
  spec_.animatable = true;
  return std::move(*this);
}

ParamBuilder ParamBuilder::advanced() && {
  spec_.advanced = true;
  return std::move(*this);
}

ParamBuilder ParamBuilder::group(std::string heading) && {
  spec_.group = std::move(heading);
  return std::move(*this);
}

ParamBuilder ParamBuilder::showWhen(std::string other, std::vector<ParamValue> in) && {
  spec_.showWhen = {std::move(other), std::move(in)};
  return std::move(*this);
}

ParamBuilder ParamBuilder::worldDirection() && {
  spec_.worldDirection = true;
  return std::move(*this);
}

ParamBuilder ParamBuilder::vectorExpression() && {
  spec_.vectorExpression = true;
  return std::move(*this);
}

ParamBuilder param(std::string name, double value, std::string description) {
  return {std::move(name), value, std::move(description)};
}
ParamBuilder param(std::string name, int value, std::string description) {
  return {std::move(name), std::int64_t{value}, std::move(description)};
}
ParamBuilder param(std::string name, bool value, std::string description) {
  return {std::move(name), value, std::move(description)};
}
ParamBuilder param(std::string name, const char* value, std::string description) {
  return {std::move(name), std::string(value), std::move(description)};
}
ParamBuilder param(std::string name, Vec3f value, std::string description) {
  return {std::move(name), value, std::move(description)};
}
ParamBuilder param(std::string name, Ramp value, std::string description) {
  return {std::move(name), std::move(value), std::move(description)};
}

std::vector<ParamValue> words(std::vector<std::string> texts) {
  return {texts.begin(), texts.end()};
}

std::vector<ParamValue> integers(std::vector<std::int64_t> numbers) {
  return {numbers.begin(), numbers.end()};
}

}  // namespace kestrane
