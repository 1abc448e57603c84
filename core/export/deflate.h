// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "core/base/array.h"

namespace kestrane {

/// A zlib stream of the bytes (RFC 1950 and 1951), made on all cores in one block of fixed Huffman
/// codes. Chunks of `chunkSize` bytes (0: 1 MiB) are encoded at once; the stream does not depend on
/// the number of threads.
Array<std::uint8_t> zlibCompress(std::span<const std::uint8_t> bytes, std::size_t chunkSize = 0);

namespace detail {

/// Appends the stream to a buffer.
void appendZlib(std::span<const std::uint8_t> bytes, std::size_t chunkSize,
                Array<std::uint8_t>& out);

}  // namespace detail

}  // namespace kestrane
