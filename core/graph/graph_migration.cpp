// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/graph/graph_migration.h"

#include <algorithm>

#include "core/base/json.h"

namespace kestrane {

std::span<const MigrationStep> migrationSteps() {
  return {};
}

int migrateNode(Json& node, std::string_view type, int version, int current,
                std::span<const MigrationStep> steps) {
  while (version < current) {
    const auto step = std::find_if(steps.begin(), steps.end(), [&](const MigrationStep& s) {
      return s.type == type && s.from == version;
    });
    if (step == steps.end()) break;
    step->rewrite(node);
    node["version"] = ++version;
  }
  return version;
}

}  // namespace kestrane
