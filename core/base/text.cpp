// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/base/text.h"

#include <charconv>

namespace kestrane {

namespace {

template <class Number>
void appendShortest(std::string& text, Number value) {
  char buffer[40];
  const auto end = std::to_chars(buffer, buffer + sizeof(buffer), value).ptr;
  text.append(buffer, end);
}

}  // namespace

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view blanks = " \t\r\n";
  const auto first = text.find_first_not_of(blanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

void appendNumber(std::string& text, float value) {
  appendShortest(text, value);
}
void appendNumber(std::string& text, double value) {
  appendShortest(text, value);
}

}  // namespace kestrane
