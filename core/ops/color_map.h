// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "core/graph/eval_context.h"

namespace kestrane {

/// A map read as a colour at strand roots. at() may be called from many threads.
class ColorMap {
 public:
  virtual ~ColorMap() = default;
  virtual Vec3f at(StrandRoot root) const = 0;
};

/// The map of a name: one painted in this groom, then a colour set of the surface that the roots
/// are on, then an image file at its UVs. Null for an empty name. Throws GraphError "map 'NAME':
/// ..." when there is none; a layer of the guides is none, and `layerAdvice` says what to do with
/// it.
std::unique_ptr<ColorMap> openColorMap(const std::string& name, const ScalpMeshPtr& surface,
                                       const EvalContext& context, const char* layerAdvice);

/// A hash of what the name stands for in the context, for a node's key. The surface is not in it.
std::uint64_t colorMapKey(const std::string& name, const EvalContext& context);

}  // namespace kestrane
