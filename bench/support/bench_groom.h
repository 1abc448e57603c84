// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <benchmark/benchmark.h>

#include <memory>
#include <string>

#include "core/guides/guide_hierarchy.h"
#include "core/session/groom_session.h"

namespace kestrane {

/// The head to grow on: head.obj of the sample data, or a sphere where that is missing.
ScalpMeshPtr benchScalp();
/// The guides beside it, bound to the scalp; on the sphere, 140 made here.
std::shared_ptr<GuideHierarchy> benchGuides(const ScalpMesh& scalp);

/// A session with that scalp and those guides, and a graph whose nodes are called as in the default
/// one. Throws std::runtime_error for whatever goes wrong.
class BenchGroom {
 public:
  explicit BenchGroom(std::int64_t strands, std::string_view graph = GroomSession::defaultGraph());

  GroomSession session;
  const ScalpMeshPtr scalp = benchScalp();
  const std::shared_ptr<GuideHierarchy> guides = benchGuides(*scalp);

  /// Gives a node's parameter another value. The graph is put in anew, as a host does it.
  void set(const std::string& node, const std::string& param, ParamValue value);
  /// The strands that this node makes become the result.
  void endAt(const std::string& node);
  /// Three of the guides, far from one another, bent by `lean` centimetres at their tips.
  std::shared_ptr<GuideHierarchy> threeGuidesMoved(float lean) const;
  /// The scalp's points swayed as a head turns: every point elsewhere, by up to `sway` centimetres.
  std::vector<Vec3f> posedPoints(float sway) const;

  void evaluate();
  /// Milliseconds that the node took in the last evaluation.
  double nodeTime(const std::string& node) const;
  /// Evaluates, and then measures one pose of the scalp after another.
  void evaluatePoses(benchmark::State& state);
  /// All nodes' times as counters, in milliseconds.
  void countNodeTimes(benchmark::State& state) const;
  std::int64_t strandCount() const;

 private:
  void install();

  GraphDocument document_;
};

}  // namespace kestrane
