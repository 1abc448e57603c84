// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "core/data/strand_set.h"

namespace kestrane {

/// The strands whose root, points, widths or channel values differ bytewise between two sets. Null
/// when nothing can be said: another strand or point count, offsets, ids, channel names or
/// defaults, or other attachments. Arrays that both sets share are not looked at.
StrandChangesPtr changedStrands(const StrandSet& before, const StrandSet& after);

}  // namespace kestrane
