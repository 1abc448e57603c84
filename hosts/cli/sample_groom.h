// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "core/session/groom_document.h"

namespace kestrane {

/// The built-in sample: a head made by code with a map of where hair grows, guides of a
/// shoulder-length cut with a parting, and the default graph with settings of real hair.
GroomDocument sampleGroom();

}  // namespace kestrane
