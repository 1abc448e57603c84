// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string_view>

namespace kestrane {

/// Throws GroomFileError `groom file: upAxis is "Y" or "Z", not "X"` for any but those two.
void checkUpAxis(std::string_view axis);

}  // namespace kestrane
