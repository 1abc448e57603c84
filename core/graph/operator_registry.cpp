// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/graph/operator_registry.h"

#include <stdexcept>
#include <utility>

#include "core/base/errors.h"

namespace kestrane {

OperatorRegistry::OperatorRegistry() {
  registerSourceOperators(*this);
  registerScatterOperator(*this);
  registerInterpolateOperator(*this);
  registerShapeOperators(*this);
  registerCurlOperator(*this);
  registerColorOperators(*this);
  registerRenderDataOperator(*this);
}

OperatorRegistry& OperatorRegistry::instance() {
  static OperatorRegistry registry;
  return registry;
}

void OperatorRegistry::add(Factory factory) {
  const std::string type = factory()->type();
  if (!factories_.emplace(type, std::move(factory)).second) {
    throw std::invalid_argument("OperatorRegistry: type '" + type + "' is there already");
  }
}

std::unique_ptr<Operator> OperatorRegistry::create(std::string_view type) const {
  const auto found = factories_.find(type);
  if (found == factories_.end()) {
    throw GraphError("unknown operator type '" + std::string(type) + "'");
  }
  return found->second();
}

bool OperatorRegistry::has(std::string_view type) const {
  return factories_.find(type) != factories_.end();
}

std::vector<std::string> OperatorRegistry::types() const {
  std::vector<std::string> names;
  names.reserve(factories_.size());
  for (const auto& entry : factories_) names.push_back(entry.first);
  return names;
}

}  // namespace kestrane
