// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>

#include "core/session/groom_document.h"

namespace kestrane {

/// Writes a groom file. Throws CommandFailure (unwritable).
void saveGroom(const std::string& path, const GroomDocument& document);

}  // namespace kestrane
