// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <memory>
#include <string>

#include "core/graph/scalar_field.h"

namespace kestrane::detail {

/// The fields behind a parameter's map, one function per kind of source. Each throws GraphError
/// where the map does not fit what it is to be read on.
ScalarField textureField(const MapRef& map, const EvalContext& context, const FieldTarget& target);
ScalarField colorSetField(const MapRef& map, const FieldTarget& target);
ScalarField attributeField(const std::string& param, const MapRef& map, const FieldTarget& target);
ScalarField guideField(const std::string& param, const MapRef& map, const FieldTarget& target);
ScalarField wiredField(FieldValuePtr field, const FieldTarget& target);
ScalarField expressionField(const std::string& param, const MapRef& map, const EvalContext& context,
                            const FieldTarget& target);
VectorField expressionVectorField(const std::string& param, const MapRef& map,
                                  const EvalContext& context, const FieldTarget& target);

/// What an expression reads from the context, for a node's key.
std::uint64_t expressionContextKey(const std::string& text, const EvalContext& context);
bool expressionReadsTime(const std::string& text);

}  // namespace kestrane::detail
