// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <algorithm>

#include "core/expr/parser.h"

namespace kestrane {

using detail::EmittedValue;

namespace {

std::string countText(const FunctionRow& row) {
  const std::string least = std::to_string(row.least);
  return row.least == row.most ? least : least + " to " + std::to_string(row.most);
}

}  // namespace

std::vector<EmittedValue> ExpressionParser::arguments(std::string_view function) {
  std::vector<EmittedValue> values;
  if (cursor_.accept(")")) return values;
  do {
    values.push_back(conditional());
  } while (cursor_.accept(","));
  expect(")", "expected ')' after the arguments of " + std::string(function));
  return values;
}

EmittedValue ExpressionParser::call(std::string_view name, std::size_t position) {
  const FunctionRow* row = findFunction(name);
  if (row == nullptr) failAt(position, "unknown function '" + std::string(name) + "'");
  if (row->kind == FunctionClass::map) return callMap(*row);
  const std::vector<EmittedValue> values = arguments(name);
  if (row->code == ExpressionFunction::noise) row = &checkedNoise(*row, values);
  checkArguments(*row, values);
  return row->kind == FunctionClass::curve ? callCurve(*row, values) : builder_.call(*row, values);
}

const FunctionRow& ExpressionParser::checkedNoise(const FunctionRow& row,
                                                  std::span<const EmittedValue> values) {
  if (values.size() == 1) return rowOf(ExpressionFunction::noiseAt);
  if (values.size() == 3) return row;
  fail("noise takes (x, y, z) or a point (p), got " + std::to_string(values.size()) +
       " argument(s)");
}

void ExpressionParser::checkArguments(const FunctionRow& row,
                                      std::span<const EmittedValue> values) {
  const std::string name(row.name);
  if (values.size() < row.least || values.size() > row.most) {
    fail(name + " takes " + countText(row) + " argument(s), got " + std::to_string(values.size()));
  }
  if (row.kind == FunctionClass::math) return;
  const bool atPoint = row.kind == FunctionClass::noise && row.code != ExpressionFunction::noise;
  const std::string_view pattern = atPoint ? "v" : row.pattern;
  for (std::size_t i = 0; i < values.size(); ++i) {
    const std::string argument = "argument " + std::to_string(i + 1) + " of " + name;
    if (i < pattern.size()) {
      const bool vector = pattern[i] == 'v';
      if (vector && !values[i].isVector()) fail(argument + " is a vector ([x, y, z])");
      if (!vector && values[i].isVector()) fail(argument + " is a number");
    } else if (values[i].isVector()) {
      if (row.kind == FunctionClass::curve && i > 0) continue;  // a key, told of as such
      fail(name +
           (atPoint ? "'s arguments after the point are numbers" : "'s arguments are numbers"));
    }
  }
}

EmittedValue ExpressionParser::callCurve(const FunctionRow& row,
                                         std::span<const EmittedValue> values) {
  const std::string name(row.name);
  const bool even = row.code == ExpressionFunction::spline;
  if (!even && values.size() % 2 == 0) {
    fail(name + " takes t and pairs of position and value: (t, p0, v0, p1, v1, ...)");
  }
  const auto keys = values.subspan(1);
  std::vector<float> numbers;
  for (const EmittedValue& key : keys) {
    if (!builder_.isKnown(key)) {
      fail(name +
           "'s keys are numbers (or the node's own variables), fixed when the expression compiles");
    }
    numbers.push_back(builder_.knownValue(key));
  }
  if (builder_.curvesAreFull()) fail("too many curves");
  std::vector<Ramp::Key> ramp;
  if (even) {
    const float last = numbers.size() > 1 ? static_cast<float>(numbers.size() - 1) : 1.0f;
    for (std::size_t i = 0; i < numbers.size(); ++i) {
      ramp.push_back({static_cast<float>(i) / last, numbers[i]});
    }
  } else {
    for (std::size_t i = 0; i < numbers.size(); i += 2) {
      ramp.push_back({numbers[i], numbers[i + 1]});
    }
  }
  builder_.drop(keys.front());
  return builder_.callCurve(row, values.front(),
                            Ramp(std::move(ramp), row.code == ExpressionFunction::linearcurve));
}

std::shared_ptr<const ExpressionMap> ExpressionParser::mapNamed(std::string_view name,
                                                                std::size_t position) {
  const std::string key(name);
  if (const auto found = maps_.find(name); found != maps_.end()) return found->second;
  std::shared_ptr<const ExpressionMap> map;
  try {
    if (environment_.findMap) map = environment_.findMap(key);
  } catch (const ExpressionError& error) {
    failAt(position, error.what());
  }
  if (map == nullptr) {
    failAt(position,
           "no map named '" + detail::printableText(name) + "' (Groom Tools > Paint lists them)");
  }
  mapNames_.push_back(key);
  return maps_[name] = map;
}

EmittedValue ExpressionParser::callMap(const FunctionRow& row) {
  const std::string name(row.name);
  cursor_.skipSpace();
  const std::size_t position = cursor_.position();
  if (!detail::isQuote(cursor_.peek())) fail(name + " needs the map's name");
  const auto mapName = cursor_.quoted();
  if (!mapName) fail("the quotes are not closed");
  const bool color = row.code == ExpressionFunction::cmap;
  MapComponent component = MapComponent::luminance;
  if (cursor_.accept(",")) {
    if (color) fail("cmap takes the map's name alone (it gives r, g, b)");
    component = mapChannel();
    std::size_t count = 2;
    for (; cursor_.accept(","); ++count) builder_.drop(conditional());
    if (count > row.most) {
      fail(name + " takes " + countText(row) + " argument(s), got " + std::to_string(count));
    }
  }
  expect(")", "expected ')' after the arguments of " + name);
  const auto map = mapNamed(*mapName, position);
  return color ? builder_.callColorMap(map) : builder_.callMap(map, component);
}

MapComponent ExpressionParser::mapChannel() {
  constexpr std::string_view words[] = {"r", "g", "b", "a", "luminance"};
  cursor_.skipSpace();
  const std::size_t start = cursor_.position();
  if (detail::isQuote(cursor_.peek())) {
    const auto word = cursor_.quoted();
    if (!word) fail("the quotes are not closed");
    const auto found = std::find(std::begin(words), std::end(words), *word);
    if (found == std::end(words)) {
      failAt(start, "a map's channel is \"r\", \"g\", \"b\", \"a\" or \"luminance\"");
    }
    return static_cast<MapComponent>(found - std::begin(words));
  }
  const EmittedValue value = conditional();
  const float number = builder_.isKnown(value) ? builder_.knownValue(value) : -1.0f;
  if (!(number >= 0.0f && number <= 4.0f) ||
      number != static_cast<float>(static_cast<int>(number))) {
    failAt(start, "a map's channel is 0 (r), 1 (g), 2 (b), 3 (a) or 4 (luminance)");
  }
  builder_.drop(value);
  return static_cast<MapComponent>(static_cast<int>(number));
}

}  // namespace kestrane
