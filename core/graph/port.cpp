// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/graph/port.h"

#include <algorithm>
#include <array>

#include "core/base/errors.h"

namespace kestrane {

namespace {

constexpr std::array<std::string_view, 6> names = {"Strands", "Guides", "Mesh",
                                                   "Field",   "Curve",  "Curves"};

}  // namespace

std::string_view portTypeName(PortType type) {
  const auto index = static_cast<std::size_t>(type);
  return index < names.size() ? names[index] : "Unknown";
}

PortType portTypeFromName(std::string_view name) {
  const auto found = std::find(names.begin(), names.end(), name);
  if (found == names.end()) {
    throw GraphError("unknown port type '" + std::string(name) +
                     "' (Strands, Guides, Mesh, Field, Curve or Curves)");
  }
  return static_cast<PortType>(found - names.begin());
}

bool carriesCurves(PortType type) {
  return type == PortType::strands || type == PortType::guides || type == PortType::curves;
}

bool portsFit(PortType output, PortType input) {
  if (output == input) return true;
  if (output == PortType::curves) return carriesCurves(input);
  return input == PortType::curves && carriesCurves(output);
}

}  // namespace kestrane
