// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/base/text.h"

#include <charconv>
#include <cmath>
#include <cstdint>

namespace kestrane {

namespace {

using NumberText = char[longestNumber];

char* writeShortest(NumberText& text, double value) {
  return std::to_chars(text, text + sizeof(text), value).ptr;
}

char* writeShortest(NumberText& text, float value) {
  return writeNumber(text, value);
}

template <class Number>
void appendShortest(std::string& text, Number value) {
  NumberText buffer;
  const auto end = writeShortest(buffer, value);
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

double shortestDouble(float value) {
  if (!std::isfinite(value)) return value;
  NumberText buffer;
  const auto end = writeShortest(buffer, value);
  double result = 0.0;
  std::from_chars(buffer, end, result);
  return result;
}

}  // namespace kestrane
