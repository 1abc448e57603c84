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
  registerHairColorOperator(*this);
  registerBandsOperator(*this);
  registerRenderDataOperator(*this);
}

OperatorRegistry& OperatorRegistry::instance() {
  static OperatorRegistry registry;
  return registry;
}

void OperatorRegistry::add(Factory factory) {
  const std::unique_ptr<Operator> op = factory();
  const std::string type = op->type();
  auto params = std::make_shared<const ParamDeclarations>(effectiveParams(*op));
  if (!entries_.emplace(type, Entry{std::move(factory), std::move(params)}).second) {
    throw std::invalid_argument("OperatorRegistry: type '" + type + "' is there already");
  }
}

std::unique_ptr<Operator> OperatorRegistry::create(std::string_view type) const {
  const auto found = entries_.find(type);
  if (found == entries_.end()) {
    throw GraphError("unknown operator type '" + std::string(type) + "'");
  }
  std::unique_ptr<Operator> op = found->second.factory();
  op->parameters.declare(found->second.params);
  return op;
}

bool OperatorRegistry::has(std::string_view type) const {
  return entries_.find(type) != entries_.end();
}

std::vector<std::string> OperatorRegistry::types() const {
  std::vector<std::string> names;
  names.reserve(entries_.size());
  for (const auto& entry : entries_) names.push_back(entry.first);
  return names;
}

}  // namespace kestrane
