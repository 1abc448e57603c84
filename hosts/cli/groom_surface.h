// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "core/session/groom_session.h"

namespace kestrane {

/// The scalp as the session's strands stand on it: refined as far as the graph's Scalp node asks
/// for. Null where there is no scalp.
ScalpMeshPtr grownSurface(const GroomSession& session);

/// A mesh refined by Catmull-Clark levels, or as it is for 0.
ScalpMeshPtr refinedSurface(const ScalpMeshPtr& mesh, int levels);

}  // namespace kestrane
