// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/base/text.h"

#include <algorithm>
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

/// The length of the UTF-8 character that the text begins with; 0 where there is none.
std::size_t utf8Length(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned lead = byte(0);
  const std::size_t length = lead < 0x80                   ? 1
                             : lead >= 0xC2 && lead < 0xE0 ? 2
                             : lead >= 0xE0 && lead < 0xF0 ? 3
                             : lead >= 0xF0 && lead < 0xF5 ? 4
                                                           : 0;
  if (length > text.size()) return 0;
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return 0;
  }
  // Longer spellings than need be, halves of surrogate pairs, and what lies beyond the last
  // character are none either.
  const bool wrong = (lead == 0xE0 && byte(1) < 0xA0) || (lead == 0xED && byte(1) > 0x9F) ||
                     (lead == 0xF0 && byte(1) < 0x90) || (lead == 0xF4 && byte(1) > 0x8F);
  return wrong ? 0 : length;
}

}  // namespace

std::string utf8Text(std::string_view text) {
  std::string valid;
  while (!text.empty()) {
    const std::size_t length = utf8Length(text);
    valid += length == 0 ? "\xEF\xBF\xBD" : text.substr(0, length);
    text.remove_prefix(std::max<std::size_t>(length, 1));
  }
  return valid;
}

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
