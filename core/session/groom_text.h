// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "core/base/json.h"
#include "core/base/vec.h"

namespace kestrane {

/// A JSON text in the making whose number arrays stand on a side list: only their places are in the
/// text, and the numbers are formatted, in parallel, while it streams out. Neither a JSON node nor
/// the whole text of an array is ever made. The arrays must outlive the text.
///
/// Every failure is a GroomFileError.
class GroomText {
 public:
  /// Appends `"key":`, with a comma in front where one is due.
  void key(std::string_view name);
  void open(char bracket);
  void close(char bracket);
  void element();  // the comma between an array's elements, where one is due

  // Values. `name` is what messages call the value. Numbers must be finite: JSON has no text for
  // others.
  void value(std::string_view name, const Json& json);
  /// A document that is JSON text already.
  void text(std::string json);
  void integer(std::int64_t number);
  void number(std::string_view name, float number);
  void number(std::string_view name, double number);
  /// A flat array.
  void numbers(std::string_view name, std::span<const float> values);
  void numbers(std::string_view name, std::span<const Vec2f> values);
  void numbers(std::string_view name, std::span<const Vec3f> values);
  void numbers(std::string_view name, std::span<const Vec4f> values);
  void integers(std::span<const std::int32_t> values);

  /// Throws "groom file: 'NAME' holds a non-finite value at index N", counted in numbers.
  static void checkFinite(std::string_view name, std::span<const float> values);
  static void checkFinite(std::string_view name, std::span<const double> values);
  static void checkFinite(std::string_view name, std::span<const Vec3f> values);

  /// Hands the finished text out from front to back. The views are good during the call alone.
  void stream(const std::function<void(std::string_view)>& sink) const;
  /// About how long the finished text is.
  std::size_t expectedSize() const;

 private:
  /// An array whose place is in front of text_[place].
  struct Cut {
    std::size_t place = 0;
    std::span<const float> floats;
    std::span<const std::int32_t> integers;
    std::size_t size() const { return floats.size() + integers.size(); }
  };
  /// A stretch of the finished text: an array's slice, and the text in front of it.
  struct Piece;
  std::vector<Piece> pieces() const;

  void append(std::string_view json);

  std::string text_;
  std::vector<Cut> cuts_;
};

}  // namespace kestrane
