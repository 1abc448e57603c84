// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "core/graph/affect_mix.h"
#include "core/graph/graph.h"
#include "core/graph/result_release.h"

namespace kestrane {

/// What a node is run on.
struct NodeInputs {
  std::vector<GraphValue> values;         // of the operator's ports, then of the parameter ports
  std::vector<StrandChangesPtr> changes;  // since the node's last result; null: everything
  bool bypassed = false;
  /// Whether the node keeps results at all; then whether its last one is of this own key.
  bool keepsResult = false;
  bool sameOwnKey = false;
  bool hadResult = false;
  ReleasedArrays released;  // what was taken out of the last result
};

/// What a node made.
struct NodeResult {
  std::vector<GraphValue> outputs;
  std::vector<StrandChangesPtr> changes;  // per output, against the last result; null: everything
  bool changesFollowInput = false;
  bool incremental = false;
  NodeReport report;
};

/// Runs one node once: passes its first input on, or makes its outputs incrementally or whole, and
/// finds what differs from the last result. The node's cache is only read, except that a try to run
/// incrementally may recycle the cached outputs and marks the cache as not there.
class NodeRun {
 public:
  /// The context is that of the node, with its surface.
  NodeRun(Node& node, const EvalContext& context, NodeInputs inputs);

  /// Throws GraphError that names the node.
  NodeResult run();

 private:
  void wireParams();
  void checkKinds() const;
  /// A port whose strands are needed and do not come; null if there is none.
  const PortSpec* missingInput() const;
  /// Throws GraphError for a field or curve that is needed and does not come.
  void checkFields() const;
  void makeOutputs();
  void passThrough();
  bool tryIncremental();
  void makeWhole();
  void findChanges();
  void finishChanges();
  GraphValue asGuides(const GraphValue& output) const;
  std::string runText() const;

  Node& node_;
  Operator& op_;
  EvalContext context_;
  WarningSink warnings_;
  NodeInputs inputs_;
  NodeResult result_;
  const std::vector<PortSpec> ports_;
  const std::vector<PortSpec> outputs_;
  const PortType outputType_;
  GraphValue firstInput_;  // as it came
  GuideSetPtr guides_;     // that go through as strands
  Affect affect_ = Affect::whole;
  bool paramsQuiet_ = true;
  bool passes_ = false;
  bool canIncrement_ = false;
};

}  // namespace kestrane
