// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>

namespace kestrane::detail {

/// Filters one row of a PNG picture: writes the filter's number and then `size` filtered bytes to
/// `out`. Of the five filters the first is taken whose bytes, read as signed numbers, have the
/// least sum of magnitudes. `pixelSize` is the bytes of a pixel; `above` is the row above, a
/// row of zeros for the first.
void filterPngRow(const std::uint8_t* row, const std::uint8_t* above, std::size_t size,
                  std::size_t pixelSize, std::uint8_t* out);

}  // namespace kestrane::detail
