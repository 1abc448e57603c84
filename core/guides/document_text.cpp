// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/guides/document_text.h"

#include <cfloat>
#include <cmath>
#include <limits>

#include "core/base/json.h"

namespace kestrane::detail {

namespace {

template <class Number>
void appendFinite(std::string& text, Number value) {
  if (!std::isfinite(value)) {
    throw std::runtime_error("the data hold a value that is infinite or not a number");
  }
  const std::size_t first = text.size();
  appendNumber(text, value);
  // With a point, so that it stays a float, and zero keeps its sign, in any JSON reader.
  if (text.find_first_of(".e", first) == std::string::npos) text += ".0";
}

[[noreturn]] void wrongKind(const Json& json, const char* wanted) {
  throw std::runtime_error(std::string("found ") + json.type_name() + " where " + wanted +
                           " belongs");
}

}  // namespace

void appendValue(std::string& text, float value) {
  appendFinite(text, value);
}
void appendValue(std::string& text, double value) {
  appendFinite(text, value);
}
void appendValue(std::string& text, bool value) {
  text += value ? "true" : "false";
}
void appendValue(std::string& text, std::string_view value) {
  text += Json(value).dump(-1, ' ', false, Json::error_handler_t::replace);
}
void appendValue(std::string& text, const std::string& value) {
  appendValue(text, std::string_view(value));
}
void appendValue(std::string& text, std::span<const float> values) {
  text += '[';
  for (std::size_t i = 0; i < values.size(); ++i) {
    if (i > 0) text += ',';
    appendFinite(text, values[i]);
  }
  text += ']';
}
void appendValue(std::string& text, const std::vector<float>& values) {
  appendValue(text, std::span(values));
}
void appendValue(std::string& text, const std::vector<Vec3f>& values) {
  // Packed by the type's own promise.
  appendValue(text, values.empty() ? std::span<const float>()
                                   : std::span(&values.data()->x, 3 * values.size()));
}
void appendValue(std::string& text, Vec3f value) {
  appendValue(text, std::span<const float>(&value.x, 3));
}

void appendKey(std::string& text, std::string_view key) {
  if (text.back() != '{' && text.back() != '[') text += ',';
  appendValue(text, key);
  text += ':';
}

double readDouble(const Json& json) {
  if (!json.is_number()) wrongKind(json, "a number");
  return json.get<double>();
}

float readFloat(const Json& json) {
  const double value = readDouble(json);
  // Half a step above the largest float: what lies below rounds to a finite one.
  constexpr double limit = static_cast<double>(FLT_MAX) * (1.0 + 0x1p-25);
  if (!(std::abs(value) < limit)) throw std::runtime_error("a number is too large");
  return static_cast<float>(value);
}

bool readBool(const Json& json) {
  if (!json.is_boolean()) wrongKind(json, "true or false");
  return json.get<bool>();
}

std::string readString(const Json& json) {
  if (!json.is_string()) wrongKind(json, "a text");
  return json.get<std::string>();
}

std::int64_t readInteger(const Json& json, std::int64_t low, std::int64_t high) {
  if (!json.is_number_integer()) wrongKind(json, "a whole number");
  const bool huge = json.is_number_unsigned() && json.get<std::uint64_t>() > INT64_MAX;
  const std::int64_t value = huge ? INT64_MAX : json.get<std::int64_t>();
  if (huge || value < low || value > high) {
    throw std::runtime_error("the whole number " + json.dump() + " is out of range");
  }
  return value;
}

std::int32_t readInt32(const Json& json) {
  return static_cast<std::int32_t>(readInteger(json, INT32_MIN, INT32_MAX));
}

std::uint32_t readUint32(const Json& json) {
  return static_cast<std::uint32_t>(readInteger(json, 0, UINT32_MAX));
}

std::uint64_t readUint64(const Json& json) {
  if (json.is_number_unsigned()) return json.get<std::uint64_t>();
  return static_cast<std::uint64_t>(readInteger(json, 0, INT64_MAX));
}

const Json& readArray(const Json& json) {
  if (!json.is_array()) wrongKind(json, "an array");
  return json;
}

const Json& readObject(const Json& json) {
  if (!json.is_object()) wrongKind(json, "an object");
  return json;
}

std::vector<float> readFloats(const Json& json) {
  std::vector<float> values;
  values.reserve(readArray(json).size());
  for (const Json& value : json) values.push_back(readFloat(value));
  return values;
}

std::vector<Vec3f> readVectors(const Json& json) {
  const std::vector<float> flat = readFloats(json);
  if (flat.size() % 3 != 0) {
    throw std::runtime_error("point array length is not a multiple of 3");
  }
  std::vector<Vec3f> vectors(flat.size() / 3);
  for (std::size_t i = 0; i < vectors.size(); ++i) {
    vectors[i] = {flat[3 * i], flat[3 * i + 1], flat[3 * i + 2]};
  }
  return vectors;
}

Vec3f readVector(const Json& json) {
  const std::vector<Vec3f> vectors = readVectors(json);
  if (vectors.size() != 1) throw std::runtime_error("a vector needs 3 numbers");
  return vectors[0];
}

}  // namespace kestrane::detail
