// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string_view>

namespace kestrane {

/// Room for any float or 32-bit integer with a comma before it and ".0" behind.
inline constexpr std::size_t longestListed = 20;

/// Writes the values separated by commas, with one before the first too where `continued`; returns
/// the end. `out` has room for longestListed characters a value, and longestNumber more. Each is
/// the shortest text that reads back as the same float, and reads as a float in any JSON reader:
/// whole numbers end in ".0" where they have no exponent. Values must be finite.
char* writeNumbers(std::span<const float> values, bool continued, char* out);
char* writeNumbers(std::span<const std::int32_t> values, bool continued, char* out);

/// The index of the first value that is infinite or not a number; values.size() if there is none.
std::size_t firstNonFinite(std::span<const float> values);

/// Reads what stands between the brackets of a JSON array of numbers, in parallel where it is long.
/// `room` is asked once for memory for so many values and may answer null to refuse. Of floats null
/// counts as 0. False, with unspecified values, for anything else in the array and for numbers out
/// of range.
bool readNumbers(std::string_view inside, const std::function<float*(std::size_t count)>& room);
bool readNumbers(std::string_view inside,
                 const std::function<std::int32_t*(std::size_t count)>& room);

}  // namespace kestrane
