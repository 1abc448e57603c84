// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/graph/param_set.h"

#include <algorithm>
#include <cfloat>
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

std::int64_t rounded(double value) {
  constexpr double edge = 9223372036854775808.0;  // 2^63
  if (std::isnan(value)) return 0;
  if (value >= edge) return INT64_MAX;
  if (value < -edge) return INT64_MIN;
  return std::llround(value);
}

bool isNumeric(ParamKind kind) {
  return kind == ParamKind::number || kind == ParamKind::integer;
}

/// "a float", "an int" and so on.
std::string oneOf(ParamKind kind) {
  return (kind == ParamKind::integer ? "an " : "a ") + std::string(kindWord(kind));
}

/// Whether a value can be read as the parameter asks. A map can where the binding takes one.
bool fits(const ParamSpec& spec, ParamKind given) {
  const ParamKind wanted = kindOf(spec.defaultValue);
  if (given == wanted) return true;
  if (given != ParamKind::map) return isNumeric(given) && isNumeric(wanted);
  return wanted == ParamKind::vec3 ? spec.vectorExpression : isNumeric(wanted) && spec.mappable();
}

/// What is wrong with a text that is none of the parameter's words; empty if nothing is.
std::string wordMisfit(const ParamSpec& spec, const ParamValue& value) {
  const std::string* word = std::get_if<std::string>(&value);
  const std::vector<std::string>& choices = spec.choices;
  if (word == nullptr || choices.empty() ||
      std::find(choices.begin(), choices.end(), *word) != choices.end()) {
    return {};
  }
  std::string sentence = "param '" + spec.name + "' takes ";
  for (std::size_t i = 0; i < choices.size(); ++i) {
    if (i > 0) sentence += i + 1 < choices.size() ? ", " : " or ";
    sentence += choices[i];
  }
  return sentence + ", not '" + *word + "'";
}

/// The same for a field wired to the parameter.
std::string fieldMisfit(const ParamSpec& spec, const FieldValue& field) {
  const ParamKind wanted = kindOf(spec.defaultValue);
  if (spec.mappable() && isNumeric(wanted)) return {};
  const bool isNumber = isNumeric(wanted) || wanted == ParamKind::boolean;
  if (isNumber && field.isConstant()) return {};
  return "param '" + spec.name + "' takes " + oneOf(wanted) +
         (isNumber ? ", not a field that varies" : ", not a field") + ": its own value is used";
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

double ParamSet::Limits::clamp(double value) const {
  if (min && !(value >= *min)) return *min;
  if (max && !(value <= *max)) return *max;
  return value;
}

ParamSet::Limits ParamSet::limits(std::string_view name) const {
  const ParamSpec* spec = declarations_->find(name);
  return spec != nullptr ? Limits{spec->min, spec->max} : Limits();
}

std::optional<double> ParamSet::wiredNumber(std::string_view name) const {
  const FieldValuePtr field = wiredField(name);
  if (!field) return std::nullopt;
  const std::optional<float> value = field->constant();
  return value ? std::optional<double>(*value) : std::nullopt;
}

double ParamSet::number(std::string_view name, double fallback) const {
  const auto within = [&](double value) {
    return std::clamp<double>(limits(name).clamp(value), -FLT_MAX, FLT_MAX);
  };
  if (const auto number = wiredNumber(name)) return within(*number);
  if (const ParamValue* value = current(name)) {
    if (const auto number = numeric(*value)) return within(*number);
  }
  if (const ParamSpec* spec = declarations_->find(name)) {
    if (const auto number = numeric(spec->defaultValue)) return within(*number);
  }
  return fallback;
}

std::int64_t ParamSet::integer(std::string_view name, std::int64_t fallback) const {
  const Limits hard = limits(name);
  if (const auto number = wiredNumber(name)) return rounded(hard.clamp(*number));
  const auto read = [&hard](const ParamValue& value) -> std::optional<std::int64_t> {
    const auto number = numeric(value);
    if (!number) return std::nullopt;
    const double within = hard.clamp(*number);
    // A large integer loses digits as a double, so it is taken as it is where no limit holds it.
    const auto* exact = std::get_if<std::int64_t>(&value);
    return exact && within == *number ? *exact : rounded(within);
  };
  if (const ParamValue* value = current(name)) {
    if (const auto number = read(*value)) return *number;
  }
  if (const ParamSpec* spec = declarations_->find(name)) {
    if (const auto number = read(spec->defaultValue)) return *number;
  }
  return fallback;
}

bool ParamSet::boolean(std::string_view name, bool fallback) const {
  if (const auto number = wiredNumber(name)) return *number != 0.0;
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
    if (spec == nullptr) continue;
    const ParamKind given = kindOf(value), wanted = kindOf(spec->defaultValue);
    if (wanted == ParamKind::vec3) vectorMap(name);
    if (fits(*spec, given)) {
      if (std::string word = wordMisfit(*spec, value); !word.empty()) {
        sentences.push_back(std::move(word));
      }
      continue;
    }
    sentences.push_back("param '" + name + "' takes " + oneOf(wanted) + ", not " + oneOf(given) +
                        ": its default is used");
  }
  for (const auto& [name, field] : fields_) {
    const ParamSpec* spec = declarations_->find(name);
    if (spec == nullptr) continue;
    if (std::string sentence = fieldMisfit(*spec, *field); !sentence.empty()) {
      sentences.push_back(std::move(sentence));
    }
  }
  return sentences;
}

const MapRef* ParamSet::vectorMap(std::string_view name) const {
  const MapRef* found = map(name);
  if (found == nullptr || found->source == MapSource::expression) return found;
  throw GraphError("param '" + std::string(name) + "': a vector takes an expression (a " +
                   std::string(sourceWord(found->source)) + " map gives one number)");
}

}  // namespace kestrane
