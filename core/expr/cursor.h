// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace kestrane::detail {

/// A place in an expression's text, and the words of the language read from it. Reading past the
/// end gives character 0, which no word begins with.
class ExpressionCursor {
 public:
  explicit ExpressionCursor(std::string_view text) : text_(text) {}

  std::size_t position() const { return position_; }
  void moveTo(std::size_t position) { position_ = position; }
  bool atEnd() const { return position_ >= text_.size(); }
  char peek(std::size_t ahead = 0) const {
    return position_ + ahead < text_.size() ? text_[position_ + ahead] : '\0';
  }
  void skip(std::size_t count = 1) { position_ += count; }

  /// Skips white space and comments.
  void skipSpace();
  /// Skips space, then takes the character or word if it stands there.
  bool accept(std::string_view word);

  /// Reads what strtod reads in the C locale: digits with a point and an exponent, or hexadecimal.
  /// Numbers beyond the range of doubles, at either end, read as infinity. Nothing where no number
  /// stands.
  std::optional<double> number();
  /// Letters, digits and _ from here on; may be empty.
  std::string_view name();
  /// The text in quotes that begins here, without them; nothing if they are not closed.
  std::optional<std::string_view> quoted();

 private:
  std::string_view text_;
  std::size_t position_ = 0;
};

constexpr bool isDigit(char c) {
  return c >= '0' && c <= '9';
}
/// Whether a name without a $ may begin with it.
constexpr bool isNameStart(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}
constexpr bool isNameCharacter(char c) {
  return isNameStart(c) || isDigit(c);
}
constexpr bool isQuote(char c) {
  return c == '"' || c == '\'';
}

/// The whole character of UTF-8 text at a position, or \xNN for a byte that shows nothing.
std::string printableCharacter(std::string_view text, std::size_t position);
/// The text with bytes that show nothing, other than white space, written as \xNN.
std::string printableText(std::string_view text);

}  // namespace kestrane::detail
