// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/session/groom_values.h"

#include <cmath>
#include <limits>

#include "core/base/errors.h"
#include "core/base/json.h"
#include "core/session/number_text.h"

namespace kestrane {

namespace {

[[noreturn]] void fail(const std::string& key, const std::string& words) {
  throw GroomFileError("groom file: '" + key + "' " + words);
}

bool isWhole(const Json& value, std::int64_t low, std::int64_t high, std::int64_t& number) {
  if (value.is_number_unsigned()) {
    const auto unsignedNumber = value.get<std::uint64_t>();
    if (unsignedNumber > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
      return false;
    }
    number = static_cast<std::int64_t>(unsignedNumber);
  } else if (value.is_number_integer()) {
    number = value.get<std::int64_t>();
  } else if (value.is_number_float()) {
    // Some writers give every number a point.
    const double real = value.get<double>();
    if (!(std::abs(real) < 9007199254740992.0) || real != std::floor(real)) return false;
    number = static_cast<std::int64_t>(real);
  } else {
    return false;
  }
  return number >= low && number <= high;
}

}  // namespace

GroomValues::GroomValues(const GroomCuts* cuts)
    : cuts_(cuts), read_(cuts ? cuts->cuts.size() : 0) {}

std::string GroomValues::string(const std::string& key, const Json& value) const {
  // What stands for a cut is a text, too, but of the reader's own making.
  const bool isCut = cuts_ != nullptr && cutNumber(value);
  if (!value.is_string() || isCut) fail(key, "must be a text");
  return value.get<std::string>();
}

bool GroomValues::boolean(const std::string& key, const Json& value) const {
  if (!value.is_boolean()) fail(key, "must be true or false");
  return value.get<bool>();
}

double GroomValues::number(const std::string& key, const Json& value) const {
  if (value.is_null()) return 0.0;
  if (!value.is_number()) fail(key, "must hold numbers");
  return value.get<double>();
}

std::int64_t GroomValues::integer(const std::string& key, const Json& value, std::int64_t low,
                                  std::int64_t high) const {
  std::int64_t number = 0;
  if (!isWhole(value, low, high, number)) fail(key, "must be a whole number in range");
  return number;
}

const Json& GroomValues::object(const std::string& key, const Json& value) const {
  if (!value.is_object()) fail(key, "must be an object");
  return value;
}

const Json& GroomValues::array(const std::string& key, const Json& value) const {
  if (!value.is_array()) fail(key, "must be an array");
  return value;
}

const std::string_view* GroomValues::cutOf(const Json& value) {
  if (cuts_ == nullptr) return nullptr;
  const auto number = cutNumber(value);
  if (!number) return nullptr;
  read_[*number] = true;
  return &cuts_->cuts[*number];
}

void GroomValues::floats(const std::string& key, const Json& value, std::size_t width,
                         const std::function<float*(std::size_t)>& room) {
  const auto failShape = [&] {
    fail(key, "must be an array of " + std::to_string(width) + "-tuples");
  };
  if (const std::string_view* cut = cutOf(value)) {
    const bool good =
        cut->front() == '[' && readNumbers(cut->substr(1, cut->size() - 2), [&](std::size_t count) {
          if (count % width != 0) failShape();
          return room(count);
        });
    if (!good) fail(key, "must hold numbers");
    return;
  }
  if (!value.is_array() || value.size() % width != 0) failShape();
  float* out = room(value.size());
  for (const Json& element : value) {
    // Null is how other writers put what is not a number; such files must still open.
    if (!element.is_number() && !element.is_null()) fail(key, "must hold numbers");
    *out = element.is_null() ? 0.0f : static_cast<float>(element.get<double>());
    if (!std::isfinite(*out++)) fail(key, "must hold numbers");
  }
}

void GroomValues::integers(const Json& value, std::size_t width, const std::string& failure,
                           const std::function<std::int32_t*(std::size_t)>& room) {
  if (const std::string_view* cut = cutOf(value)) {
    const bool good =
        cut->front() == '[' && readNumbers(cut->substr(1, cut->size() - 2), [&](std::size_t count) {
          return count % width == 0 ? room(count) : nullptr;
        });
    if (!good) throw GroomFileError(failure);
    return;
  }
  if (!value.is_array() || value.size() % width != 0) throw GroomFileError(failure);
  std::int32_t* out = room(value.size());
  for (const Json& element : value) {
    std::int64_t number = 0;
    if (!isWhole(element, std::numeric_limits<std::int32_t>::min(),
                 std::numeric_limits<std::int32_t>::max(), number)) {
      throw GroomFileError(failure);
    }
    *out++ = static_cast<std::int32_t>(number);
  }
}

std::string_view GroomValues::document(const Json& value, std::string& room) {
  if (const std::string_view* cut = cutOf(value)) return *cut;
  room = value.is_string() ? value.get<std::string>() : whole(value).dump();
  return room;
}

Json GroomValues::whole(const Json& value) {
  if (const std::string_view* cut = cutOf(value)) return parseJson(*cut);
  Json copy = value;
  if (cuts_ == nullptr) return copy;
  if (copy.is_structured()) {
    for (Json& element : copy) element = whole(element);
  }
  return copy;
}

void GroomValues::checkUnread() const {
  for (std::size_t i = 0; i < read_.size(); ++i) {
    if (!read_[i]) (void)parseJson(cuts_->cuts[i]);
  }
}

}  // namespace kestrane
