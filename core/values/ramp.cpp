// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/values/ramp.h"

#include <algorithm>
#include <cfloat>
#include <cmath>

#include "core/base/errors.h"
#include "core/base/hash.h"
#include "core/base/independent_loop.h"
#include "core/base/json.h"
#include "core/base/lanes.h"
#include "core/base/text.h"

namespace kestrane {

namespace {

/// The tangents of a curve that nowhere leaves the values of its keys: at an inner key a weighted
/// harmonic mean of the slopes beside it (Fritsch and Butland 1984), 0 where they change sign; at
/// an end the slope of the one segment there. A segment of no width has slope 0.
std::vector<double> monotoneTangents(const std::vector<Ramp::Key>& keys) {
  const std::size_t segments = keys.size() - 1;
  std::vector<double> widths(segments), slopes(segments), tangents(keys.size());
  for (std::size_t i = 0; i < segments; ++i) {
    widths[i] = double{keys[i + 1].position} - keys[i].position;
    slopes[i] = widths[i] > 0.0 ? (double{keys[i + 1].value} - keys[i].value) / widths[i] : 0.0;
  }
  tangents.front() = slopes.front();
  tangents.back() = slopes.back();
  for (std::size_t i = 1; i < segments; ++i) {
    const double s0 = slopes[i - 1], s1 = slopes[i], h0 = widths[i - 1], h1 = widths[i];
    if (s0 * s1 > 0.0) {
      tangents[i] = 3.0 * (h0 + h1) / ((2.0 * h1 + h0) / s0 + (h1 + 2.0 * h0) / s1);
    }
  }
  return tangents;
}

/// A number that is still finite as a float.
bool readFinite(const Json& json, float& value) {
  if (!json.is_number()) return false;
  const double wide = json.get<double>();
  if (!(std::abs(wide) <= FLT_MAX)) return false;
  value = static_cast<float>(wide);
  return true;
}

}  // namespace

Ramp::Ramp(std::vector<Key> keys, bool linear) : keys_(std::move(keys)), linear_(linear) {
  std::erase_if(keys_, [](const Key& key) {
    return !std::isfinite(key.position) || !std::isfinite(key.value);
  });
  std::stable_sort(keys_.begin(), keys_.end(),
                   [](const Key& a, const Key& b) { return a.position < b.position; });
  if (keys_.size() < 2) return;
  const std::vector<double> tangents = monotoneTangents(keys_);
  segments_.reserve(keys_.size() - 1);
  for (std::size_t i = 0; i + 1 < keys_.size(); ++i) {
    const double start = keys_[i].position, width = keys_[i + 1].position - start;
    const double from = keys_[i].value, rise = keys_[i + 1].value - from;
    // A segment of no width is never evaluated.
    Segment segment{start, width > 0.0 ? 1.0 / width : 0.0, from, rise, 0.0, 0.0};
    if (!linear) {
      const double m0 = width * tangents[i], m1 = width * tangents[i + 1];
      segment.slope = m0;
      segment.square = 3.0 * rise - 2.0 * m0 - m1;
      segment.cube = m0 + m1 - 2.0 * rise;
    }
    segments_.push_back(segment);
  }
}

float Ramp::evaluate(float t) const {
  if (keys_.empty()) return 1.0f;
  // Turned about, so that what is no number gives the first value.
  if (!(t > keys_.front().position)) return keys_.front().value;
  if (t >= keys_.back().position) return keys_.back().value;
  std::size_t first = 1, last = keys_.size() - 1;  // of these the first key above t is sought
  while (first < last) {
    const std::size_t middle = (first + last) / 2;
    if (keys_[middle].position > t) {
      last = middle;
    } else {
      first = middle + 1;
    }
  }
  return segments_[first - 1].at(t);
}

void Ramp::evaluate(std::span<const float> places, std::span<float> values) const {
  // Beyond this many, seeking the segment of each place beats working all of them out.
  constexpr std::size_t most = 16;
  if (keys_.empty() || segments_.size() > most) {
    for (std::size_t i = 0; i < places.size(); ++i) values[i] = evaluate(places[i]);
    return;
  }
  evaluateSideBySide(places, values);
}

KESTRANE_WIDE void Ramp::evaluateSideBySide(std::span<const float> places,
                                            std::span<float> values) const {
  const float* const t = places.data();
  float* const out = values.data();
  const Key first = keys_.front(), last = keys_.back();
  for (std::size_t i = 0; i < places.size(); ++i) out[i] = first.value;
  // Each segment's value stands until one that begins farther on overwrites it.
  for (std::size_t k = 0; k < segments_.size(); ++k) {
    const Segment segment = segments_[k];
    const float from = keys_[k].position;
    KESTRANE_INDEPENDENT_LOOP
    for (std::size_t i = 0; i < places.size(); ++i) {
      const float value = segment.at(t[i]);
      out[i] = (t[i] > first.position) & (t[i] >= from) ? value : out[i];
    }
  }
  KESTRANE_INDEPENDENT_LOOP
  for (std::size_t i = 0; i < places.size(); ++i) {
    out[i] = (t[i] > first.position) & (t[i] >= last.position) ? last.value : out[i];
  }
}

std::uint64_t Ramp::hash(std::uint64_t seed) const {
  seed = hashCombine(seed, keys_.size());
  for (const Key& key : keys_) seed = hashNumber(hashNumber(seed, key.position), key.value);
  return hashCombine(seed, linear_ ? 1 : 0);
}

Json rampToJson(const Ramp& ramp) {
  Json keys = Json::array();
  for (const Ramp::Key& key : ramp.keys()) {
    keys.push_back(Json::array({shortestDouble(key.position), shortestDouble(key.value)}));
  }
  Json json = Json::object();
  json["keys"] = std::move(keys);
  if (ramp.linear()) json["linear"] = true;
  return json;
}

bool rampFromJson(const Json& json, Ramp& ramp) {
  bool linear = false;
  const Json* list = &json;
  if (json.is_object()) {
    const auto keys = json.find("keys");
    if (keys == json.end()) return false;
    list = &*keys;
    const auto flag = json.find("linear");
    if (flag != json.end()) {
      if (!flag->is_boolean()) return false;
      linear = flag->get<bool>();
    }
  }
  if (!list->is_array()) return false;
  std::vector<Ramp::Key> keys;
  keys.reserve(list->size());
  for (const Json& pair : *list) {
    Ramp::Key key;
    if (!pair.is_array() || pair.size() != 2 || !readFinite(pair[0], key.position) ||
        !readFinite(pair[1], key.value)) {
      return false;
    }
    keys.push_back(key);
  }
  ramp = Ramp(std::move(keys), linear);
  return true;
}

Ramp rampFromText(const std::string& text) {
  Json json;
  try {
    json = parseJson(text);
  } catch (const std::runtime_error&) {
    throw GraphError("ramp: malformed JSON");
  }
  Ramp ramp;
  if (!rampFromJson(json, ramp)) throw GraphError("ramp: needs keys [[position, value], ...]");
  return ramp;
}

}  // namespace kestrane
