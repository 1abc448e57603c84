// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/graph/param_spec.h"
#include "core/values/field_value.h"

namespace kestrane {

/// The effective parameter list of one operator type, shared by all its instances.
struct ParamDeclarations {
  std::vector<ParamSpec> specs;  // in the order of the user interface
  std::map<std::string, std::size_t, std::less<>> index;

  explicit ParamDeclarations(std::vector<ParamSpec> list);
  const ParamSpec* find(std::string_view name) const;
};

/// The current values of one operator: those that were set, over the declared defaults; and, while
/// a node is evaluated, what its parameter ports carry. Not thread-safe for writing.
class ParamSet {
 public:
  /// The hard limits of a parameter.
  struct Limits {
    std::optional<double> min, max;

    /// Within the limits; what is no number counts as the lower one.
    double clamp(double value) const;
  };

  ParamSet();
  explicit ParamSet(std::shared_ptr<const ParamDeclarations> declarations);

  const ParamDeclarations& declarations() const { return *declarations_; }
  /// Replaces the declarations; values stay.
  void declare(std::shared_ptr<const ParamDeclarations> declarations);
  const std::map<std::string, ParamValue, std::less<>>& values() const { return values_; }

  void set(std::string name, ParamValue value);
  void unset(std::string_view name);
  bool isSet(std::string_view name) const;

  /// The value set, or the declared default. Throws GraphError "unknown parameter 'NAME'".
  const ParamValue& value(std::string_view name) const;

  /// None for a parameter that is not declared.
  Limits limits(std::string_view name) const;

  // Getters by kind. A value of another kind gives the declared default, and that failing the
  // fallback. Numbers take floats and ints and are clamped to the declared hard limits; a number
  // is one that a float holds. A wired field that does not vary comes before the own value of a
  // number or a bool.
  double number(std::string_view name, double fallback = 0.0) const;
  std::int64_t integer(std::string_view name, std::int64_t fallback = 0) const;
  bool boolean(std::string_view name, bool fallback = false) const;
  std::string text(std::string_view name, std::string fallback = {}) const;
  Vec3f vec3(std::string_view name, Vec3f fallback = {}) const;
  /// A curve wired to the parameter comes before its own value.
  Ramp ramp(std::string_view name, Ramp fallback = {}) const;
  /// The map set for the parameter, or null.
  const MapRef* map(std::string_view name) const;

  // What parameter ports carry, filled by the evaluation before a node runs.
  void wireField(std::string name, FieldValuePtr field);
  void wireCurve(std::string name, std::shared_ptr<const Ramp> curve);
  void clearWires();
  FieldValuePtr wiredField(std::string_view name) const;

  // Values that keyed parameters take from controls; they come before set values and are part of
  // the hash. They stay until the next evaluation finds others.
  void key(std::string name, ParamValue value);
  void unkey(std::string_view name);
  void clearKeys();

  /// Over names and values in name order; feeds the node key. Wires do not count.
  std::uint64_t hash() const;

  /// One sentence for each value set or field wired that its parameter cannot take, so that another
  /// value stands in for it. Throws GraphError as vectorMap does.
  std::vector<std::string> misfits() const;
  /// The expression in place of a vec3, or null. Throws GraphError for a map of another kind, which
  /// gives no vector.
  const MapRef* vectorMap(std::string_view name) const;

 private:
  using Values = std::map<std::string, ParamValue, std::less<>>;

  const ParamValue* current(std::string_view name) const;
  template <class T>
  const T* valueOf(std::string_view name) const;
  std::optional<double> wiredNumber(std::string_view name) const;
  void put(Values& values, std::string name, ParamValue value);

  std::shared_ptr<const ParamDeclarations> declarations_;
  Values values_;
  Values keyed_;
  std::map<std::string, FieldValuePtr, std::less<>> fields_;
  std::map<std::string, std::shared_ptr<const Ramp>, std::less<>> curves_;
  mutable std::uint64_t hash_ = 0;
  mutable bool hashed_ = false;  // whether hash_ is that of the values
};

}  // namespace kestrane
