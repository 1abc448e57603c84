// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "core/base/json_fwd.h"
#include "core/graph/graph.h"

namespace kestrane {

/// The newest format of graph JSON.
inline constexpr std::int64_t graphVersion = 1;

/// A graph as read from JSON, with the node whose strands it shows.
struct GraphDocument {
  Graph graph;
  std::uint32_t output = 0;
  std::string backdrops;  // the user interface's own JSON text, kept as it was; empty for none
};

/// Reads a graph. Throws GraphError, or SchemaError for its version; nothing is half-loaded.
GraphDocument graphFromJson(std::string_view text);
inline GraphDocument graphFromJson(const char* text) {
  return graphFromJson(std::string_view(text));
}
inline GraphDocument graphFromJson(const std::string& text) {
  return graphFromJson(std::string_view(text));
}
GraphDocument graphFromJson(const Json& json);
Json graphToJson(const GraphDocument& document);

/// A copy with fresh operators of the same parameters; caches stay behind, but each new operator
/// adopts the state of the one that it is made from.
GraphDocument copyGraph(const GraphDocument& document);

/// The graph that a new groom gets.
std::string_view defaultGraphText();

}  // namespace kestrane
