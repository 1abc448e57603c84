// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "core/base/json_fwd.h"

namespace kestrane {

/// A curve over 0..1, such as an effect's strength from root to tip. Smooth ramps are monotone
/// between keys (Fritsch and Butland 1984), so that they never overshoot.
class Ramp {
 public:
  struct Key {
    float position = 0.0f;
    float value = 0.0f;
    bool operator==(const Key&) const = default;
  };

  Ramp() = default;
  /// Keys are sorted by position; keys of one position keep their order. Keys with a number that is
  /// not finite are left out.
  Ramp(std::vector<Key> keys, bool linear = false);

  const std::vector<Key>& keys() const { return keys_; }
  bool linear() const { return linear_; }

  /// The value at t; 1 without keys, the end keys' values outside them.
  float evaluate(float t) const;
  /// The values at many places, as if each were asked for alone. Both spans have one size and share
  /// nothing.
  void evaluate(std::span<const float> places, std::span<float> values) const;

  bool operator==(const Ramp& other) const {
    return keys_ == other.keys_ && linear_ == other.linear_;
  }
  std::uint64_t hash(std::uint64_t seed) const;

 private:
  /// Between two keys: a cubic in the share of the way. In doubles, so that no huge or close keys
  /// overflow and the rounded value stays between those of the keys.
  struct Segment {
    double start, perWidth;
    double value, slope, square, cube;

    float at(float t) const {
      const double u = (t - start) * perWidth;
      return static_cast<float>(value + u * (slope + u * (square + u * cube)));
    }
  };
  /// evaluate() with every segment worked out at every place, which suits few segments.
  void evaluateSideBySide(std::span<const float> places, std::span<float> values) const;

  std::vector<Key> keys_;
  std::vector<Segment> segments_;  // one fewer than keys
  bool linear_ = false;
};

/// {"keys": [[position, value], ...], "linear": true}, the second key only when true.
Json rampToJson(const Ramp& ramp);
/// Whether the JSON has the form of a ramp: such an object, or the bare array of keys. Fills `ramp`
/// only then. Positions and values must be finite numbers.
bool rampFromJson(const Json& json, Ramp& ramp);
/// A ramp's text. Throws GraphError "ramp: malformed JSON" or
/// "ramp: needs keys [[position, value], ...]".
Ramp rampFromText(const std::string& text);

}  // namespace kestrane
