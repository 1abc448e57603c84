// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <span>
#include <string_view>

#include "core/base/json_fwd.h"

namespace kestrane {

/// Rewrites the JSON of a node of one type from one version of that type to the next.
struct MigrationStep {
  std::string_view type;
  int from = 0;
  void (*rewrite)(Json& node) = nullptr;
};

/// All steps that this program knows. None so far: every type is at its first version.
std::span<const MigrationStep> migrationSteps();

/// Applies, one version after the other, the steps that there are for the type, from `version`
/// until `current` is reached or a step is missing. Returns the version reached, which the node's
/// key "version" then says; without any step the node stays as it is.
int migrateNode(Json& node, std::string_view type, int version, int current,
                std::span<const MigrationStep> steps);

}  // namespace kestrane
