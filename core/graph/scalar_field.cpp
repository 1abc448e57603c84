// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/graph/scalar_field.h"

#include <algorithm>

#include "core/base/hash.h"
#include "core/graph/map_fields.h"
#include "core/graph/map_files.h"

namespace kestrane {

namespace {

/// How far readers look ahead: enough strands, or points, to make little of what it costs to begin,
/// few enough that those read in vain at a loop's end do not count.
constexpr std::size_t mostStrandsAhead = 128;
constexpr std::size_t mostValuesAhead = 1024;

}  // namespace

float ScalarField::sample(std::size_t strand, std::size_t point) const {
  FieldReader reader(*this);
  return perPoint() ? reader.points(strand, point + 1)[point] : reader.strand(strand);
}

const float* FieldReader::ahead(std::size_t strand) {
  const ScalarField::Source& source = *field_.source();
  const StrandSet& strands = *source.readsAhead;
  const auto& offsets = strands.offsets();
  const auto placeOf = [&](std::size_t s) {
    return source.perPoint ? offsets[s] - offsets[first_] : s - first_;
  };
  if (strand < first_ || strand >= last_) {
    // A strand that does not follow the last one is read alone, as the next may be anywhere. Steps
    // end at multiples of their size, as chunks of loops often do.
    const bool follows = strand == last_ && strand == asked_ + 1;
    stepSize_ = follows ? std::min(2 * stepSize_, mostStrandsAhead) : 1;
    const auto endOfStep = [&] {
      return std::min(strand - strand % stepSize_ + stepSize_, strands.strandCount());
    };
    first_ = strand;
    last_ = endOfStep();
    while (stepSize_ > 1 && placeOf(last_) > mostValuesAhead) {
      stepSize_ /= 2;
      last_ = endOfStep();
    }
    if (ahead_.size() < placeOf(last_)) ahead_.resize(placeOf(last_));
    source.severalValues(first_, last_, {ahead_.data(), placeOf(last_)});
  }
  asked_ = strand;
  return ahead_.data() + placeOf(strand);
}

float FieldReader::strand(std::size_t strand) {
  if (field_.isConstant()) return field_.constant();
  if (field_.source()->readsAhead != nullptr && !field_.perPoint()) return *ahead(strand);
  float value = 0.0f;
  field_.source()->values(strand, {&value, 1});
  return value;
}

const float* FieldReader::points(std::size_t strand, std::size_t count) {
  if (field_.isConstant()) {
    if (buffer_.size() < count) buffer_.resize(count, field_.constant());
    return buffer_.data();
  }
  if (field_.perPoint()) {
    const StrandSet* strands = field_.source()->readsAhead;
    if (strands != nullptr && count <= strands->strandPoints(strand).size()) return ahead(strand);
    if (buffer_.size() < count) buffer_.resize(count);
    field_.source()->values(strand, {buffer_.data(), count});
  } else if (count > 0) {
    buffer_.assign(count, this->strand(strand));
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
