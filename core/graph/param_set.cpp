// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/graph/param_set.h"

#include <cmath>
#include <optional>
#include <utility>

#include "core/base/errors.h"
#include "core/base/hash.h"

namespace kestrane {

namespace {

const std::shared_ptr<const ParamDeclarations>& noDeclarations() {
  static const auto none = std::make_shared<const ParamDeclarations>(std::vector<ParamSpec>());
  return none;
}

std::optional<double> numeric(const ParamValue& value) {
  if (const auto* number = std::get_if<double>(&value)) return *number;
  if (const auto* integer = std::get_if<std::int64_t>(&value)) {
    return static_cast<double>(*integer);
  }
  return std::nullopt;
}

/// Within the declared hard limits; a number that is none counts as the lower one.
double limited(const ParamSpec* spec, double value) {
  if (spec == nullptr) return value;
  if (spec->min && !(value >= *spec->min)) return *spec->min;
  if (spec->max && !(value <= *spec->max)) return *spec->max;
  return value;
}

std::int64_t rounded(double value) {
  constexpr double edge = 9223372036854775808.0;  // 2^63
  if (std::isnan(value)) return 0;
  if (value >= edge) return INT64_MAX;
  if (value < -edge) return INT64_MIN;
  return std::llround(value);
}

/// "a float", "an int" and so on.
std::string oneOf(ParamKind kind) {
  return (kind == ParamKind::integer ? "an " : "a ") + std::string(kindWord(kind));
}

}  // namespace

ParamDeclarations::ParamDeclarations(std::vector<ParamSpec> list) : specs(std::move(list)) {
  for (std::size_t i = 0; i < specs.size(); ++i) index.emplace(specs[i].name, i);
}

const ParamSpec* ParamDeclarations::find(std::string_view name) const {
  const auto found = index.find(name);
  return found == index.end() ? nullptr : &specs[found->second];
}

ParamSet::ParamSet() : declarations_(noDeclarations()) {}

ParamSet::ParamSet(std::shared_ptr<const ParamDeclarations> declarations)
    : declarations_(std::move(declarations)) {}

void ParamSet::declare(std::shared_ptr<const ParamDeclarations> declarations) {
  declarations_ = std::move(declarations);
}

void ParamSet::put(Values& values, std::string name, ParamValue value) {
  const auto found = values.find(name);
  if (found != values.end() && found->second == value) return;
  hashed_ = false;
  if (found != values.end()) {
    found->second = std::move(value);
  } else {
    values.emplace(std::move(name), std::move(value));
  }
}

void ParamSet::set(std::string name, ParamValue value) {
  put(values_, std::move(name), std::move(value));
}

void ParamSet::unset(std::string_view name) {
  const auto found = values_.find(name);
  if (found == values_.end()) return;
  values_.erase(found);
  hashed_ = false;
}

bool ParamSet::isSet(std::string_view name) const {
  return values_.find(name) != values_.end();
}

const ParamValue* ParamSet::current(std::string_view name) const {
  if (const auto keyed = keyed_.find(name); keyed != keyed_.end()) return &keyed->second;
  const auto found = values_.find(name);
  return found == values_.end() ? nullptr : &found->second;
}

const ParamValue& ParamSet::value(std::string_view name) const {
  if (const ParamValue* value = current(name)) return *value;
  if (const ParamSpec* spec = declarations_->find(name)) return spec->defaultValue;
  throw GraphError("unknown parameter '" + std::string(name) + "'");
}

template <class T>
const T* ParamSet::valueOf(std::string_view name) const {
  if (const ParamValue* value = current(name)) {
    if (const T* typed = std::get_if<T>(value)) return typed;
  }
  const ParamSpec* spec = declarations_->find(name);
  return spec ? std::get_if<T>(&spec->defaultValue) : nullptr;
}

double ParamSet::number(std::string_view name, double fallback) const {
  const ParamSpec* spec = declarations_->find(name);
  if (const ParamValue* value = current(name)) {
    if (const auto number = numeric(*value)) return limited(spec, *number);
  }
  if (spec != nullptr) {
    if (const auto number = numeric(spec->defaultValue)) return limited(spec, *number);
  }
  return fallback;
}

std::int64_t ParamSet::integer(std::string_view name, std::int64_t fallback) const {
  const ParamSpec* spec = declarations_->find(name);
  const auto read = [spec](const ParamValue& value) -> std::optional<std::int64_t> {
    const auto number = numeric(value);
    if (!number) return std::nullopt;
    const double within = limited(spec, *number);
    // A large integer loses digits as a double, so it is taken as it is where no limit holds it.
    const auto* exact = std::get_if<std::int64_t>(&value);
    return exact && within == *number ? *exact : rounded(within);
  };
  if (const ParamValue* value = current(name)) {
    if (const auto number = read(*value)) return *number;
  }
  if (spec != nullptr) {
    if (const auto number = read(spec->defaultValue)) return *number;
  }
  return fallback;
}

bool ParamSet::boolean(std::string_view name, bool fallback) const {
  const bool* value = valueOf<bool>(name);
  return value ? *value : fallback;
}

std::string ParamSet::text(std::string_view name, std::string fallback) const {
  const std::string* value = valueOf<std::string>(name);
  return value ? *value : fallback;
}

Vec3f ParamSet::vec3(std::string_view name, Vec3f fallback) const {
  const Vec3f* value = valueOf<Vec3f>(name);
  return value ? *value : fallback;
}

Ramp ParamSet::ramp(std::string_view name, Ramp fallback) const {
  if (const auto wired = curves_.find(name); wired != curves_.end()) return *wired->second;
  const Ramp* value = valueOf<Ramp>(name);
  return value ? *value : fallback;
}

const MapRef* ParamSet::map(std::string_view name) const {
  const ParamValue* value = current(name);
  return value ? std::get_if<MapRef>(value) : nullptr;
}

void ParamSet::wireField(std::string name, FieldValuePtr field) {
  if (field) fields_.insert_or_assign(std::move(name), std::move(field));
}

void ParamSet::wireCurve(std::string name, std::shared_ptr<const Ramp> curve) {
  if (curve) curves_.insert_or_assign(std::move(name), std::move(curve));
}

void ParamSet::clearWires() {
  fields_.clear();
  curves_.clear();
}

FieldValuePtr ParamSet::wiredField(std::string_view name) const {
  const auto found = fields_.find(name);
  return found == fields_.end() ? nullptr : found->second;
}

void ParamSet::key(std::string name, ParamValue value) {
  put(keyed_, std::move(name), std::move(value));
}

void ParamSet::unkey(std::string_view name) {
  const auto found = keyed_.find(name);
  if (found == keyed_.end()) return;
  keyed_.erase(found);
  hashed_ = false;
}

void ParamSet::clearKeys() {
  hashed_ = hashed_ && keyed_.empty();
  keyed_.clear();
}

std::uint64_t ParamSet::hash() const {
  if (hashed_) return hash_;
  std::uint64_t h = 0xCF294D6E7526D148;
  const auto fold = [&h](const auto& entry) {
    h = hashCombine(hashString(h, entry.first), hashValue(entry.second));
  };
  auto keyed = keyed_.begin();
  for (const auto& entry : values_) {
    for (; keyed != keyed_.end() && keyed->first < entry.first; ++keyed) fold(*keyed);
    if (keyed != keyed_.end() && keyed->first == entry.first) {
      fold(*keyed++);
    } else {
      fold(entry);
    }
  }
  for (; keyed != keyed_.end(); ++keyed) fold(*keyed);
  hash_ = h;
  hashed_ = true;
  return h;
}

std::vector<std::string> ParamSet::misfits() const {
  std::vector<std::string> sentences;
  for (const auto& [name, value] : values_) {
    const ParamSpec* spec = declarations_->find(name);
    // A map takes the place of a number or vector, and what it cannot do the binding says.
    if (spec == nullptr || value.index() == spec->defaultValue.index() ||
        kindOf(value) == ParamKind::map || (numeric(value) && numeric(spec->defaultValue))) {
      continue;
    }
    sentences.push_back("param '" + name + "' takes " + oneOf(kindOf(spec->defaultValue)) +
                        ", not " + oneOf(kindOf(value)) + ": its default is used");
  }
  return sentences;
}

}  // namespace kestrane
