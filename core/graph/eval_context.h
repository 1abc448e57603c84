// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "core/expr/expression_map.h"
#include "core/graph/graph_value.h"

namespace kestrane {

/// Where operators' warnings go. Safe from parallel loops; an empty text or one already there is
/// dropped. Texts stand in the order in which they came; those of a parallel loop, which come in
/// any order, are sorted.
class WarningSink {
 public:
  void add(std::string text);
  std::vector<std::string> texts() const;

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> texts_;
  std::size_t settled_ = 0;  // texts from here on came from parallel loops
};

/// One object of the scene, with the revision that node keys fold.
struct SceneInput {
  GraphValue value;
  double number = 0.0;  // of a control
  std::uint64_t revision = 0;
};

/// Scene objects by name; control values stand under "control:NAME", meshes beside the scalp under
/// "mesh:NAME".
class SceneTable {
 public:
  void set(std::string name, SceneInput input);
  const SceneInput* find(std::string_view name) const;
  std::uint64_t revision(std::string_view name) const;  // 0 if absent

 private:
  std::map<std::string, SceneInput, std::less<>> inputs_;
};

/// Inputs that all nodes of one evaluation share, beside the scene table.
struct EvalResources {
  /// Finds a file in the search paths; the path itself where it is found nowhere.
  std::function<std::string(const std::string&)> resolvePath;
  /// A map painted in this groom, by name, with a revision; null if there is none.
  struct PaintedMap {
    std::shared_ptr<const ExpressionMap> map;
    std::uint64_t revision = 0;
    /// Why a map that is there cannot be read ("the texture map has no image file yet", "the vertex
    /// map does not fit this scalp"); then `map` is null.
    std::string problem;
  };
  std::function<PaintedMap(std::string_view)> paintedMap;
  /// The partings, in the scene table's terms; null for none.
  std::shared_ptr<const PartData> parts;
  std::uint64_t partsRevision = 0;
  /// The most points that a preview may make; 0 for no budget.
  std::uint64_t pointBudget = 0;
  double framesPerSecond = 24.0;
};

class Found;

/// What one evaluation is made for.
struct EvalContext {
  float detail = 1.0f;              // level of detail and preview density, 0 to 1
  double time = 0.0;                // the frame
  const void* frameData = nullptr;  // the session's, for motion operators
  bool viewport = false;            // the interactive view, not a render or export
  const SceneTable* scene = nullptr;
  const EvalResources* resources = nullptr;
  bool motion = false;
  std::uint64_t variant = 0;  // a word of the request
  bool preview = false;
  /// Whoever evaluates will ask for the extent of the strands that the node at hand makes, which is
  /// found most cheaply while they are made. Set per node.
  bool wantsExtent = false;
  std::int32_t resampleSegments = 0;  // the highest of the Resample nodes; 0: not yet found
  WarningSink* warnings = nullptr;    // of the node that runs
  /// The surface that the strands of the node at hand are rooted on: the nearest Scalp node's mesh
  /// upstream, or the scene's own scalp. Set per node.
  ScalpMeshPtr surface;
  /// The maps that expressions have found so far; null: each looks for itself.
  std::shared_ptr<Found> found;

  void warn(std::string text) const {
    if (warnings != nullptr) warnings->add(std::move(text));
  }
};

}  // namespace kestrane
