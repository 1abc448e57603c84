// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "core/graph/operator.h"

namespace kestrane {

/// When a node takes part; otherwise it passes its first input through.
enum class NodeEvaluation : std::uint32_t { always, viewportOnly, renderOnly };

/// "always", "viewportOnly" or "renderOnly"; "always" for any other value.
std::string_view nodeEvaluationWord(NodeEvaluation evaluation);
/// Throws GraphError for an unknown word.
NodeEvaluation nodeEvaluationFromWord(std::string_view word);

/// How a node ran last.
struct NodeReport {
  double milliseconds = 0.0;
  std::string run;                    // "bypass", "full", "full 12", "incremental 3", ...
  std::string notes;                  // warnings and advice, joined by "; "
  std::vector<std::string> warnings;  // alone
};

/// What a node remembers of its last evaluation.
struct NodeCache {
  std::uint64_t cacheKey = 0;  // full key of the result
  bool cached = false;         // whether the fields below are valid
  std::vector<GraphValue> outputs;
  std::uint64_t revision = 0;  // identifies this result in the process
  std::uint64_t ownKey = 0;    // key of the node alone
  std::vector<std::uint64_t> inputRevisions;
  std::vector<std::uint64_t> inputOutputs;  // which output of the source stood on each input
  std::vector<GraphValue> inputs;           // guides and meshes only: what the result was made from
  std::vector<StrandChangesPtr> changes;    // per output; null: everything
  std::uint64_t previousRevision = 0;       // the revision that `changes` is relative to
  bool changesFollowInput = false;
  ScalpMeshPtr surface;  // that the result's strands are rooted on
  NodeReport report;     // of the run that made the result
};

struct Node {
  std::unique_ptr<Operator> op;              // never null
  std::vector<std::uint32_t> sources;        // one per input port, 0 if open
  std::vector<std::uint64_t> sourceOutputs;  // which output of the source
  std::vector<std::string> paramInputs;      // parameters exposed as further input ports
  std::map<std::string, std::vector<std::string>> paramControls;
  bool bypass = false;
  NodeEvaluation evaluation = NodeEvaluation::always;
  std::string name;  // unique within the graph
  double uiX = 0.0, uiY = 0.0;
  NodeCache cache;
};

/// The nodes of a groom and their wiring. Not thread-safe; written only between evaluations.
class Graph {
 public:
  Graph();
  ~Graph();
  Graph(Graph&&) noexcept;
  Graph& operator=(Graph&&) noexcept;

  /// The same nodes under the same IDs with fresh operators, which adopt the state of those that
  /// they are made from; without results and statistics.
  Graph copyNodes() const;

  /// Takes the operator and names the node, after its type unless told; a name that is taken gets a
  /// number behind it. Returns its ID, from 1. Throws GraphError for a null operator.
  std::uint32_t addNode(std::unique_ptr<Operator> op, std::string name = {});
  /// Removes the node and opens all inputs that came from it.
  void removeNode(std::uint32_t id);
  /// Wires an output to an input, in place of the wire that was there. Throws GraphError and
  /// changes nothing when the slots, types or direction do not fit, or when what the wire carries
  /// would not fit further down.
  void connect(std::uint32_t from, std::uint32_t to, std::size_t inputSlot,
               std::size_t outputSlot = 0);
  void disconnect(std::uint32_t to, std::size_t inputSlot);

  Node& node(std::uint32_t id);  // throws GraphError "unknown node N"
  const Node& node(std::uint32_t id) const;
  std::uint32_t findNode(std::string_view name) const;  // 0 if there is none
  /// In ID order. Nodes come and go through addNode and removeNode alone.
  const std::map<std::uint32_t, Node>& nodes() const { return nodes_; }
  std::map<std::uint32_t, Node>& nodes() { return nodes_; }
  /// Calls visit(id, node) for each node in ID order.
  template <class Visit>
  void forEachNode(Visit&& visit) const {
    for (const auto& [id, node] : nodes_) visit(id, node);
  }
  template <class Visit>
  void forEachNode(Visit&& visit) {
    for (auto& [id, node] : nodes_) visit(id, node);
  }
  /// One more than the greatest ID that was given out.
  std::uint32_t idEnd() const { return nextId_; }

  /// The operator's inputs followed by one port per exposed parameter.
  std::vector<PortSpec> inputPorts(const Node& node) const;
  /// The type that an output really carries: Curves is followed up the first inputs.
  PortType resolvedOutputType(std::uint32_t id, std::size_t output) const;

  /// Exposes parameters as further input ports; wires to ports that remain stay. Throws GraphError
  /// and changes nothing for a name that cannot be exposed.
  void setParamInputs(std::uint32_t id, std::vector<std::string> names);
  /// Which controls of the scene key which parameters. Throws GraphError and changes nothing for a
  /// parameter that cannot be keyed so.
  void setParamControls(std::uint32_t id, std::map<std::string, std::vector<std::string>> controls);

  /// A result made elsewhere, such as by a detached evaluation, under its full key: nodes of that
  /// key take it over at the next evaluation, which then empties the map.
  struct CachedResult {
    NodeCache cache;
  };
  std::map<std::uint64_t, CachedResult> resultCache;
  /// Whether nodes keep their results.
  bool retainResults = true;
  // Statistics.
  std::uint64_t nodesEvaluated = 0;
  std::uint64_t nodesIncremental = 0;
  /// Of the runs that made what the last evaluation gave.
  std::map<std::uint32_t, NodeReport> reports;

 private:
  friend class GraphReader;

  std::uint32_t insertNode(std::unique_ptr<Operator> op, std::string name);
  /// What the input takes. Throws GraphError where there is no such input or output.
  PortType checkSlots(std::uint32_t from, std::uint32_t to, std::size_t inputSlot,
                      std::size_t outputSlot) const;
  bool isRead(std::uint32_t id) const;
  void setWire(std::uint32_t from, std::uint32_t to, std::size_t inputSlot, std::size_t outputSlot);
  bool isUpstream(std::uint32_t wanted, std::uint32_t from) const;
  bool hasCycle() const;

  std::map<std::uint32_t, Node> nodes_;
  std::vector<Node*> byId_;  // into nodes_; null where a node was removed
  std::uint32_t nextId_ = 1;
};

}  // namespace kestrane
