// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kestrane {

/// What a port carries. Curves is strands or guides, whichever comes in.
enum class PortType : std::uint32_t { strands, guides, mesh, field, curve, curves };

/// The spelling in JSON and messages: Strands, Guides, Mesh, Field, Curve or Curves; "Unknown" for
/// any other value.
std::string_view portTypeName(PortType type);
/// Throws GraphError for a name that is none of the six.
PortType portTypeFromName(std::string_view name);

/// Whether strands or guides may come by it.
bool carriesCurves(PortType type);
/// Whether an output of one type may feed an input of the other.
bool portsFit(PortType output, PortType input);

struct PortSpec {
  std::string name;
  PortType type = PortType::strands;
  bool optional = false;
};

}  // namespace kestrane
