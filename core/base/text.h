// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <string_view>

namespace kestrane {

/// The text without the characters " \t\r\n" at both ends.
std::string_view trimmed(std::string_view text);

/// The text with the replacement character for every byte that is no part of UTF-8, as a file name
/// may hold.
std::string utf8Text(std::string_view text);

/// Appends the shortest decimal text that reads back as the same number, in the C locale. Whole
/// numbers have no point, as std::to_chars writes them.
void appendNumber(std::string& text, float value);
void appendNumber(std::string& text, double value);

/// Room for the text of any number.
inline constexpr int longestNumber = 40;
/// Writes the float's text to memory that has that much room, all of which may be written to;
/// returns its end. Faster than std::to_chars for floats of ordinary size.
char* writeNumber(char* out, float value);

/// The double whose shortest text is the float's own: 0.1 for 0.1f, not 0.10000000149011612. What a
/// writer stores for a float in JSON, whose numbers are doubles; it reads back as the same float.
double shortestDouble(float value);

}  // namespace kestrane
