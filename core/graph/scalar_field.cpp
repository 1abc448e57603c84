// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/graph/scalar_field.h"

#include <algorithm>

#include "core/base/hash.h"
#include "core/graph/map_fields.h"
#include "core/graph/map_files.h"

namespace kestrane {

float ScalarField::sample(std::size_t strand, std::size_t point) const {
  FieldReader reader(*this);
  return perPoint() ? reader.points(strand, point + 1)[point] : reader.strand(strand);
}

float FieldReader::strand(std::size_t strand) {
  if (field_.isConstant()) return field_.constant();
  float value = 0.0f;
  field_.source()->values(strand, {&value, 1});
  return value;
}

const float* FieldReader::points(std::size_t strand, std::size_t count) {
  if (field_.isConstant()) {
    if (buffer_.size() < count) buffer_.resize(count, field_.constant());
    return buffer_.data();
  }
  if (buffer_.size() < count) buffer_.resize(count);
  if (field_.perPoint()) {
    field_.source()->values(strand, {buffer_.data(), count});
  } else if (count > 0) {
    field_.source()->values(strand, {buffer_.data(), 1});
    std::fill_n(buffer_.begin() + 1, count - 1, buffer_[0]);
  }
  return buffer_.data();
}

ScalarField bindParam(const Operator& op, std::string_view name, const EvalContext& context,
                      const FieldTarget& target) {
  const ParamSet& params = op.parameters;
  const std::string param(name);
  const FieldValuePtr field = params.wiredField(name);
  if (field && !field->isConstant()) return detail::wiredField(field, target);
  const MapRef* map = field ? nullptr : params.map(name);
  if (map == nullptr) return ScalarField(static_cast<float>(params.number(name)));
  switch (map->source) {
    case MapSource::texture:
      return detail::textureField(*map, context, target);
    case MapSource::colorSet:
      return detail::colorSetField(*map, target);
    case MapSource::attribute:
      return detail::attributeField(param, *map, target);
    case MapSource::guide:
      return detail::guideField(param, *map, target);
    case MapSource::expression:
      break;
  }
  return detail::expressionField(param, *map, context, target);
}

VectorField resolveVector(const Operator& op, std::string_view name, const EvalContext& context,
                          const FieldTarget& target) {
  const MapRef* map = op.parameters.vectorMap(name);
  if (map == nullptr) return VectorField(op.parameters.vec3(name));
  return detail::expressionVectorField(std::string(name), *map, context, target);
}

std::uint64_t paramsContextKey(const ParamSet& params, const EvalContext& context) {
  std::uint64_t key = 0;
  for (const auto& [name, value] : params.values()) {
    const auto* map = std::get_if<MapRef>(&value);
    if (map == nullptr) continue;
    std::uint64_t own = 0;
    switch (map->source) {
      case MapSource::texture:
        own = mapFileKey(map->text, context);
        break;
      case MapSource::colorSet:
        own = context.scene != nullptr ? context.scene->revision("scalp") : 0;
        break;
      case MapSource::expression:
        own = detail::expressionContextKey(map->text, context);
        break;
      case MapSource::attribute:
      case MapSource::guide:
        break;
    }
    if (own != 0) key = hashCombine(hashString(key, name), own);
  }
  return key;
}

bool paramsReadTime(const ParamSet& params) {
  return std::any_of(params.values().begin(), params.values().end(), [](const auto& entry) {
    const auto* map = std::get_if<MapRef>(&entry.second);
    return map != nullptr && map->source == MapSource::expression &&
           detail::expressionReadsTime(map->text);
  });
}

}  // namespace kestrane
