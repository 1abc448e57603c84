// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>

#include "core/base/json_fwd.h"
#include "core/base/vec.h"
#include "core/values/map_ref.h"
#include "core/values/ramp.h"

namespace kestrane {

/// One parameter's value. The order of kinds is that of ParamKind.
using ParamValue = std::variant<bool, std::int64_t, double, std::string, Vec3f, Ramp, MapRef>;

enum class ParamKind { boolean, integer, number, string, vec3, ramp, map };

inline ParamKind kindOf(const ParamValue& value) {
  return static_cast<ParamKind>(value.index());
}

/// The word of a kind in JSON: bool, int, float, string, vec3, ramp or map.
std::string_view kindWord(ParamKind kind);
/// The key of a map's source: texture, colorSet, attribute, expression or guide.
std::string_view sourceWord(MapSource source);

/// Reads a parameter's value by its JSON shape. Throws GraphError with a sentence that names the
/// parameter.
ParamValue paramValueFromJson(const std::string& param, const Json& json);
Json paramValueToJson(const ParamValue& value);

/// Of kind and content; numbers by their bits.
std::uint64_t hashValue(const ParamValue& value);

}  // namespace kestrane
