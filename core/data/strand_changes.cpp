// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/data/strand_changes.h"

namespace kestrane {

const StrandChangesPtr& noStrandChanges() {
  static const auto* none = new StrandChangesPtr(std::make_shared<const StrandChanges>());
  return *none;
}

}  // namespace kestrane
