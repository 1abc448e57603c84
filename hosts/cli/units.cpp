// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "hosts/cli/units.h"

#include <array>
#include <utility>

namespace kestrane {

namespace {

constexpr std::array<std::pair<std::string_view, double>, 7> units = {{
    {"mm", 0.001},
    {"cm", 0.01},
    {"m", 1.0},
    {"km", 1000.0},
    {"in", 0.0254},
    {"ft", 0.3048},
    {"yd", 0.9144},
}};

}  // namespace

std::optional<double> metersPerUnit(std::string_view word) {
  for (const auto& [known, metres] : units) {
    if (known == word) return metres;
  }
  return std::nullopt;
}

std::vector<std::string> unitWords() {
  std::vector<std::string> words;
  for (const auto& [word, metres] : units) words.emplace_back(word);
  return words;
}

}  // namespace kestrane
