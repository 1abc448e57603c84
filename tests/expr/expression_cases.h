// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "core/expr/expression.h"

namespace kestrane {

/// A map that tells which component it was asked for, and where.
class ComponentMap : public ExpressionMap {
 public:
  float sample(const MapSample& sample, MapComponent component) const override {
    return static_cast<float>(component) + 1.0f + 10.0f * sample.uv.x;
  }
};

}  // namespace kestrane
