// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "core/expr/expression.h"
#include "core/graph/eval_context.h"

namespace kestrane {

/// The maps that the expressions of one evaluation have found by name, so that each is opened once.
/// Safe from any thread.
class Found {
 public:
  /// The map of a name: one painted in the groom, a layer of the guides, or an image file; null for
  /// none. Throws ExpressionError for one that cannot be read.
  std::shared_ptr<const ExpressionMap> map(const std::string& name, const GuideSetPtr& guides,
                                           const EvalContext& context);

 private:
  struct Entry {
    std::string name;
    GuideSetPtr guides;  // a name may stand for a layer of some guides and not of others
    std::shared_ptr<const ExpressionMap> map;
  };
  std::mutex mutex_;
  std::vector<Entry> entries_;
};

/// What an expression sees when it compiles for a node: the maps, with layers of the guides given,
/// or else of the scene's. The context must outlive it.
ExpressionEnvironment expressionEnvironment(const EvalContext& context, GuideSetPtr guides = {});

}  // namespace kestrane
