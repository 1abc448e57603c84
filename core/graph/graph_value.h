// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <memory>
#include <string>
#include <variant>

#include "core/data/guide_set.h"
#include "core/data/scalp_mesh.h"
#include "core/data/strand_set.h"
#include "core/values/field_value.h"
#include "core/values/ramp.h"

namespace kestrane {

class GuideHierarchy;
class SimCache;
struct PartData;

/// A mesh as the scene gives it: with the subdivision level that the render draws it at.
struct SceneMesh {
  ScalpMeshPtr mesh;
  int renderLevels = 0;    // 0: drawn as it is
  double friction = -1.0;  // of a collider; -1: the simulation's own
  std::string levelsFrom;  // where the levels come from, in words for the user; may be empty
};

/// What flows on a wire or stands in the scene table: nothing, or a shared pointer to a constant.
/// Values are compared by kind and pointer, never by content.
using GraphValue =
    std::variant<std::monostate, StrandSetPtr, GuideSetPtr, ScalpMeshPtr,
                 std::shared_ptr<const SceneMesh>, std::shared_ptr<const SimCache>, FieldValuePtr,
                 std::shared_ptr<const Ramp>, std::shared_ptr<const GuideHierarchy>,
                 std::shared_ptr<const PartData>>;

inline bool isEmpty(const GraphValue& value) {
  return value.index() == 0;
}

/// The value as one kind; null if it is another.
template <class T>
std::shared_ptr<const T> valueAs(const GraphValue& value) {
  const auto* pointer = std::get_if<std::shared_ptr<const T>>(&value);
  return pointer ? *pointer : nullptr;
}

}  // namespace kestrane
