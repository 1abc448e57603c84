// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "core/data/scalp_mesh.h"
#include "core/data/strand_set.h"

namespace kestrane {

/// The strands carried from one pose of their surface to another: each moves as a rigid body with
/// the tangent frame of its root. Strands that are rooted nowhere on it stay. The very set comes
/// back where the surface has not moved. Both meshes have one topology.
StrandSetPtr carryStrands(const StrandSetPtr& strands, const ScalpMesh& from, const ScalpMesh& to);

}  // namespace kestrane
