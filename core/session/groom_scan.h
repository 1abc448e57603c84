// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/base/json.h"

namespace kestrane {

/// A groom file's text with its bulk taken out, so that the JSON library sees the rest alone. What
/// was cut was looked at for its ends only, never parsed.
struct GroomCuts {
  std::string rest;                    // each cut replaced by a string that names it
  std::vector<std::string_view> cuts;  // in the text: "[...]" of numbers, or "{...}" of a document
};

/// Cuts out the long arrays of numbers, and whole the documents that have readers of their own (the
/// values of the top-level keys hierarchy, parts, correctives and flow). Gives up (no value) on
/// anything unusual, which is then to be parsed the plain way.
std::optional<GroomCuts> cutGroomText(std::string_view text);

/// Which cut a value of the parsed rest stands for, if it does.
std::optional<std::size_t> cutNumber(const Json& value);

}  // namespace kestrane
