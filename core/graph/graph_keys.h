// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "core/graph/graph.h"

namespace kestrane {

/// Whether the strands that a node makes are rooted on what is wired to the input: a mesh that
/// comes before all strands and guides.
bool growsOn(const Node& node, std::size_t slot);

/// The keys of a graph's nodes for one evaluation, each found once. The context must outlive it and
/// have its segments filled in.
class GraphKeys {
 public:
  GraphKeys(Graph& graph, const EvalContext& context);

  /// Finds the keys of the node and of all nodes that feed it, after putting controls on their
  /// parameters.
  void findFor(std::uint32_t id);

  // Of nodes that were found.
  /// Of the result: changes when the node or anything above it does.
  std::uint64_t key(std::uint32_t id) const { return nodes_[id].key; }
  /// Of the node alone.
  std::uint64_t ownKey(std::uint32_t id) const { return nodes_[id].ownKey; }
  /// Whether the node is or follows a Scalp node, or grows strands on a mesh that is wired to it,
  /// so that its surface does not come from the scene.
  bool hasSurface(std::uint32_t id) const { return nodes_[id].hasSurface; }
  bool passesFirstInput(std::uint32_t id) const { return nodes_[id].passes; }

 private:
  struct Found {
    std::uint64_t key = 0;
    std::uint64_t ownKey = 0;
    bool begun = false;
    bool passes = false;
    bool hasSurface = false;
    bool done = false;
  };

  void find(std::uint32_t id);
  std::uint64_t ownPart(const Node& node, std::uint64_t key, bool surfaceFromScene) const;

  Graph& graph_;
  const EvalContext& context_;
  std::uint64_t seed_;
  std::vector<Found> nodes_;  // by ID
};

}  // namespace kestrane
