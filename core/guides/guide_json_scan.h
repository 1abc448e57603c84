// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kestrane::detail {

/// A guide data document taken apart without parsing it.
struct GuideSpans {
  std::string outside;                     // the document with an empty "guides" array
  std::vector<std::string_view> elements;  // the text of each element of the array, in the text
};

/// Finds the one "guides" array at the top level of an object and the span of each of its elements.
/// Gives up (no value) on anything unusual, which the whole parser then judges: no such key or two,
/// keys with escapes at the top level, brackets that do not match up. An element may still be any
/// text at all.
std::optional<GuideSpans> findGuideSpans(std::string_view text);

}  // namespace kestrane::detail
