// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace kestrane::detail {

/// The Adler-32 of bytes (RFC 1950); 1 for none.
std::uint32_t adler32(std::span<const std::uint8_t> bytes);

/// The Adler-32 of two runs of bytes from theirs, the second being `secondSize` bytes long.
std::uint32_t joinedAdler32(std::uint32_t first, std::uint32_t second, std::size_t secondSize);

/// The CRC-32 of PNG chunks (polynomial 0xedb88320). Pass the result on to go on with more bytes.
std::uint32_t crc32(std::span<const std::uint8_t> bytes, std::uint32_t crc = 0);

}  // namespace kestrane::detail
