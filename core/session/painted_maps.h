// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "core/data/scalp_mesh.h"
#include "core/data/subdivision.h"
#include "core/graph/eval_context.h"
#include "core/session/groom_document.h"

namespace kestrane {

/// A refinement of the scalp that strands may be rooted on.
struct ScalpRefinement {
  SubdivisionPlanPtr plan;
  ScalpMeshPtr mesh;  // of any pose
};

/// The painted maps of a groom over its scalp, as nodes read them. Immutable; may be read from many
/// threads.
class PaintedMaps {
 public:
  PaintedMaps() = default;
  PaintedMaps(const std::map<std::string, GroomMap>& maps, const ScalpMeshPtr& scalp,
              std::span<const ScalpRefinement> refinements);

  /// The map of a name. A texture map's file is opened, through the process's cache, where
  /// `resolvePath` finds it. Never throws: what is wrong with a map is its problem.
  EvalResources::PaintedMap find(
      std::string_view name,
      const std::function<std::string(const std::string&)>& resolvePath) const;

 private:
  struct Entry {
    std::string texture;  // of a texture map
    int channels = 1;
    std::shared_ptr<const ExpressionMap> vertices;
    std::uint64_t revision = 0;
    std::string problem;
  };
  std::map<std::string, Entry, std::less<>> entries_;
};

}  // namespace kestrane
