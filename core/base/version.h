// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string_view>

namespace kestrane {

/// The version of the program, which the files that it writes name too.
inline constexpr std::string_view kestraneVersion = "0.2.0";

}  // namespace kestrane
