// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/expr/cursor.h"

#include <charconv>
#include <cmath>

namespace kestrane::detail {

namespace {

bool isSpace(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

bool isHexDigit(char c) {
  return isDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

/// The length of the UTF-8 character at a position, 0 where there is none or it shows nothing.
std::size_t characterLength(std::string_view text, std::size_t position) {
  const auto byte = [&](std::size_t i) {
    return position + i < text.size() ? static_cast<unsigned char>(text[position + i]) : 0u;
  };
  const unsigned lead = byte(0);
  if (lead < 0x80) return lead >= 0x20 && lead != 0x7F ? 1 : 0;
  const std::size_t length = lead >= 0xC2 && lead < 0xE0   ? 2
                             : lead >= 0xE0 && lead < 0xF0 ? 3
                             : lead >= 0xF0 && lead < 0xF5 ? 4
                                                           : 0;
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return 0;
  }
  // Forms that are longer than they need be, halves of pairs, and numbers past the last character.
  const unsigned next = byte(1);
  const bool wrong = (lead == 0xE0 && next < 0xA0) || (lead == 0xED && next >= 0xA0) ||
                     (lead == 0xF0 && next < 0x90) || (lead == 0xF4 && next >= 0x90);
  return wrong ? 0 : length;
}

}  // namespace

void ExpressionCursor::skipSpace() {
  while (!atEnd()) {
    if (isSpace(peek())) {
      skip();
    } else if (peek() == '#' || (peek() == '/' && peek(1) == '/')) {
      const std::size_t end = text_.find('\n', position_);
      position_ = end == std::string_view::npos ? text_.size() : end;
    } else {
      return;
    }
  }
}

bool ExpressionCursor::accept(std::string_view word) {
  skipSpace();
  if (text_.substr(position_, word.size()) != word) return false;
  skip(word.size());
  return true;
}

std::optional<double> ExpressionCursor::number() {
  const char* first = text_.data() + position_;
  const char* last = text_.data() + text_.size();
  const bool prefixed = peek() == '0' && (peek(1) == 'x' || peek(1) == 'X');
  const bool hex = prefixed && (isHexDigit(peek(2)) || (peek(2) == '.' && isHexDigit(peek(3))));
  if (hex) first += 2;
  if (!isDigit(peek()) && peek() != '.') return std::nullopt;
  double value = 0.0;
  const auto read = std::from_chars(first, last, value,
                                    hex ? std::chars_format::hex : std::chars_format::general);
  if (read.ec == std::errc::invalid_argument) return std::nullopt;
  if (read.ec == std::errc::result_out_of_range) value = HUGE_VAL;
  position_ = static_cast<std::size_t>(read.ptr - text_.data());
  return value;
}

std::string_view ExpressionCursor::name() {
  const std::size_t first = position_;
  while (isNameCharacter(peek())) skip();
  return text_.substr(first, position_ - first);
}

std::optional<std::string_view> ExpressionCursor::quoted() {
  const std::size_t first = position_ + 1;
  const std::size_t end = text_.find(peek(), first);
  if (end == std::string_view::npos) return std::nullopt;
  position_ = end + 1;
  return text_.substr(first, end - first);
}

std::string printableCharacter(std::string_view text, std::size_t position) {
  if (const std::size_t length = characterLength(text, position); length > 0) {
    return std::string(text.substr(position, length));
  }
  constexpr std::string_view digits = "0123456789ABCDEF";
  const auto byte = static_cast<unsigned char>(text[position]);
  return {'\\', 'x', digits[byte >> 4], digits[byte & 15]};
}

std::string printableText(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  for (std::size_t i = 0; i < text.size();) {
    if (isSpace(text[i])) {
      result += text[i++];
      continue;
    }
    result += printableCharacter(text, i);
    const std::size_t length = characterLength(text, i);
    i += length > 0 ? length : 1;
  }
  return result;
}

}  // namespace kestrane::detail
