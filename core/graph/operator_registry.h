// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "core/graph/operator.h"

namespace kestrane {

/// All operator types of the process. Made under a guard at first use by calling every family's
/// register function in a fixed order, never by static initialisers; read-only afterwards, except
/// for what a host adds at its start.
class OperatorRegistry {
 public:
  using Factory = std::function<std::unique_ptr<Operator>()>;

  static OperatorRegistry& instance();

  /// The type and the parameters are asked of one operator that the factory makes. Throws
  /// std::invalid_argument for a type that is there already.
  void add(Factory factory);
  template <class Op>
  void add() {
    add([] { return std::make_unique<Op>(); });
  }

  /// Throws GraphError "unknown operator type 'TYPE'".
  std::unique_ptr<Operator> create(std::string_view type) const;
  bool has(std::string_view type) const;
  std::vector<std::string> types() const;  // in name order

 private:
  OperatorRegistry();

  struct Entry {
    Factory factory;
    // Held once: operators are made by the thousand, and doc strings are long.
    std::shared_ptr<const ParamDeclarations> params;
  };
  std::map<std::string, Entry, std::less<>> entries_;
};

// The families, each defined beside its operators.
void registerSourceOperators(OperatorRegistry& registry);
void registerScatterOperator(OperatorRegistry& registry);
void registerInterpolateOperator(OperatorRegistry& registry);
void registerShapeOperators(OperatorRegistry& registry);
void registerCurlOperator(OperatorRegistry& registry);
void registerHairColorOperator(OperatorRegistry& registry);
void registerBandsOperator(OperatorRegistry& registry);
void registerRenderDataOperator(OperatorRegistry& registry);

/// The catalogue as one JSON array of all types in name order: the only source of a user interface.
Json operatorCatalogue();
Json operatorCatalogueEntry(const Operator& op);
std::string operatorCatalogueJson();

}  // namespace kestrane
