// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <concepts>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "core/base/json.h"
#include "core/base/text.h"
#include "core/base/vec.h"

namespace kestrane::detail {

/// How the documents of guides, parts, flow and correctives write and read their values. They are
/// written by hand: a tree of a number node per float would be many times their size.

/// The shortest text that reads back as the same number, sign of zero included. Throws
/// std::runtime_error for infinity and NaN, which JSON cannot hold.
void appendValue(std::string& text, float value);
void appendValue(std::string& text, double value);
void appendValue(std::string& text, bool value);
template <std::integral Number>
requires(!std::same_as<Number, bool>) void appendValue(std::string& text, Number value) {
  text += std::to_string(value);
}
/// A quoted string; bytes that are no UTF-8 become the replacement character.
void appendValue(std::string& text, std::string_view value);
void appendValue(std::string& text, const std::string& value);
void appendValue(std::string& text, std::span<const float> values);
void appendValue(std::string& text, const std::vector<float>& values);
/// Flat: x0, y0, z0, x1, ...
void appendValue(std::string& text, const std::vector<Vec3f>& values);
void appendValue(std::string& text, Vec3f value);

/// Appends `"key":`, with a comma in front where the text does not end with an opening bracket.
void appendKey(std::string& text, std::string_view key);

template <class Value>
void appendField(std::string& text, std::string_view key, const Value& value) {
  appendKey(text, key);
  appendValue(text, value);
}

/// A list of what `append(text, element)` writes, with commas between.
template <class List, class Append>
void appendList(std::string& text, const List& list, Append append) {
  text += '[';
  for (const auto& element : list) {
    if (text.back() != '[') text += ',';
    append(text, element);
  }
  text += ']';
}

/// Every reader throws std::runtime_error in plain words for a value of a wrong kind or range.
float readFloat(const Json& json);
double readDouble(const Json& json);
bool readBool(const Json& json);
std::string readString(const Json& json);
std::int64_t readInteger(const Json& json, std::int64_t low, std::int64_t high);
std::int32_t readInt32(const Json& json);
std::uint32_t readUint32(const Json& json);
std::uint64_t readUint64(const Json& json);
const Json& readArray(const Json& json);
const Json& readObject(const Json& json);
std::vector<float> readFloats(const Json& json);
std::vector<Vec3f> readVectors(const Json& json);
Vec3f readVector(const Json& json);

/// Reads one of the small documents: blanks at the ends are free and an empty text is empty data.
/// The JSON library's own complaints (a missing key) leave as std::runtime_error.
template <class Data, class Read>
Data readDocument(std::string_view text, Read read) {
  text = trimmed(text);
  if (text.empty()) return Data{};
  try {
    return read(parseJson(text));
  } catch (const Json::exception& error) {
    throw std::runtime_error(jsonMessage(error));
  }
}

}  // namespace kestrane::detail
