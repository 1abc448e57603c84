// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "core/graph/graph.h"

namespace kestrane {

/// What the wires of a graph really carry: a Curves output is followed up the first inputs. Each
/// node is looked at once, so the graph must not change meanwhile.
class WireTypes {
 public:
  explicit WireTypes(const Graph& graph);

  /// Curves where the chain above is open, and where it is a cycle.
  PortType output(std::uint32_t id, std::size_t output);
  /// As if a wire that carries the type came into the node's first input. To be said before any
  /// question about what lies below the node.
  void assumeFirstInput(std::uint32_t id, PortType type);
  /// Throws GraphError "type mismatch: ..." where an output does not fit an input.
  void check(std::uint32_t from, std::size_t output, PortType input);
  /// Checks all wires of the graph.
  void checkAll();

 private:
  enum State : std::uint8_t { unknown, open, known };

  /// What comes out of a node's Curves outputs.
  PortType carried(std::uint32_t id);

  const Graph& graph_;
  std::vector<std::uint8_t> states_;  // by ID
  std::vector<PortType> carried_;
};

}  // namespace kestrane
