// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <algorithm>
#include <charconv>
#include <cmath>
#include <stdexcept>
#include <unordered_set>

#include "core/base/json.h"
#include "core/guides/correctives.h"
#include "core/guides/document_text.h"

namespace kestrane {

namespace {

using detail::appendField;

constexpr std::int64_t correctiveVersion = 1;

/// A guide ID as the key of an object; fails in the words of the standard conversion.
std::uint64_t readGuideId(const std::string& key) {
  std::uint64_t id = 0;
  const char* end = key.data() + key.size();
  const auto [last, fault] = std::from_chars(key.data(), end, id);
  if (fault == std::errc::result_out_of_range) {
    throw std::out_of_range("stoull argument out of range");
  }
  if (fault != std::errc() || last != end) throw std::invalid_argument("invalid stoull argument");
  return id;
}

CorrectiveLayer readLayer(const Json& json) {
  CorrectiveLayer layer;
  layer.name = detail::readString(json.at("name"));
  layer.time = detail::readDouble(json.at("time"));
  layer.fadeIn = detail::readDouble(json.at("fadeIn"));
  layer.fadeOut = detail::readDouble(json.at("fadeOut"));
  layer.holdBefore = detail::readBool(json.at("holdBefore"));
  layer.holdAfter = detail::readBool(json.at("holdAfter"));
  layer.weight = detail::readFloat(json.at("weight"));
  layer.enabled = detail::readBool(json.at("enabled"));
  layer.slot = detail::readInt32(json.at("slot"));
  for (const Json& key : detail::readArray(json.at("weightCurve"))) {
    if (detail::readArray(key).size() != 2) {
      throw std::runtime_error("a weight key needs a time and a weight");
    }
    layer.weightCurve.push_back({detail::readDouble(key[0]), detail::readFloat(key[1])});
  }
  std::stable_sort(layer.weightCurve.begin(), layer.weightCurve.end(),
                   [](const auto& a, const auto& b) { return a.time < b.time; });
  for (const auto& [id, offsets] : detail::readObject(json.at("offsets")).items()) {
    layer.offsets[readGuideId(id)] = detail::readVectors(offsets);
  }
  return layer;
}

void appendLayer(std::string& text, const CorrectiveLayer& layer) {
  text += '{';
  appendField(text, "name", layer.name);
  appendField(text, "time", layer.time);
  appendField(text, "fadeIn", layer.fadeIn);
  appendField(text, "fadeOut", layer.fadeOut);
  appendField(text, "holdBefore", layer.holdBefore);
  appendField(text, "holdAfter", layer.holdAfter);
  appendField(text, "weight", layer.weight);
  appendField(text, "enabled", layer.enabled);
  appendField(text, "slot", layer.slot);
  detail::appendKey(text, "weightCurve");
  detail::appendList(text, layer.weightCurve,
                     [](std::string& out, const CorrectiveLayer::WeightKey& key) {
                       out += '[';
                       detail::appendValue(out, key.time);
                       out += ',';
                       detail::appendValue(out, key.weight);
                       out += ']';
                     });
  detail::appendKey(text, "offsets");
  text += '{';
  for (const auto& [id, offsets] : layer.offsets) appendField(text, std::to_string(id), offsets);
  text += "}}";
}

}  // namespace

CorrectiveData correctivesFromJson(std::string_view text) {
  return detail::readDocument<CorrectiveData>(text, [](const Json& document) {
    checkVersion(document, "corrective data", correctiveVersion);
    CorrectiveData data;
    std::unordered_set<std::string> names;
    for (const Json& json : detail::readArray(document.at("layers"))) {
      data.layers.push_back(readLayer(json));
      const std::string& name = data.layers.back().name;
      if (!names.insert(name).second) {
        throw std::runtime_error("two corrective layers are named '" + name + "'");
      }
    }
    return data;
  });
}

std::string correctivesToJson(const CorrectiveData& data) {
  std::string text = "{";
  detail::appendKey(text, "layers");
  detail::appendList(text, data.layers, appendLayer);
  appendField(text, "version", correctiveVersion);
  return text += '}';
}

}  // namespace kestrane
