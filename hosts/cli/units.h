// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kestrane {

/// The length of a linear unit in metres; nothing for a word that is none of unitWords().
std::optional<double> metersPerUnit(std::string_view word);
std::vector<std::string> unitWords();

}  // namespace kestrane
