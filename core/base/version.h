// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string_view>

namespace kestrane {

/// The version that files written by this program name.
inline constexpr std::string_view kestraneVersion = "0.2.0";

}  // namespace kestrane
