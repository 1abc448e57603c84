// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <set>
#include <string>
#include <string_view>

namespace kestrane {

/// What an expression's text mentions, found without compiling it.
struct ExpressionScan {
  using Names = std::set<std::string, std::less<>>;
  Names names;        // plain names that are not called
  Names dollarNames;  // names after a $, without it
  Names functions;    // names that are called
  Names maps;         // the texts in quotes of map and cmap

  /// Whether it names a channel or variable, with a $ or without.
  bool reads(std::string_view name) const {
    return names.contains(name) || dollarNames.contains(name);
  }
  /// Whether its values may change with the timeline.
  bool readsTime() const { return reads("frame") || reads("time") || reads("F"); }
  /// Whether its values may change with a map.
  bool readsMaps() const { return functions.contains("map") || functions.contains("cmap"); }
};

}  // namespace kestrane
