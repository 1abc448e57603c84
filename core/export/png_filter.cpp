// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/export/png_filter.h"

#include <algorithm>
#include <array>

#include "core/base/lanes.h"

namespace kestrane::detail {

namespace {

/// Bytes filtered in one go: few enough for their sum to fit 16 bits, which doubles the lanes, and
/// a constant count, which lets the compiler use vector instructions.
constexpr std::size_t stripe = 256;

// A predictor tells a byte from its neighbours to the left, above, and above to the left.

struct None {
  static std::uint8_t predict(std::uint8_t, std::uint8_t, std::uint8_t) { return 0; }
};
struct Sub {
  static std::uint8_t predict(std::uint8_t left, std::uint8_t, std::uint8_t) { return left; }
};
struct Up {
  static std::uint8_t predict(std::uint8_t, std::uint8_t above, std::uint8_t) { return above; }
};
struct Average {
  static std::uint8_t predict(std::uint8_t left, std::uint8_t above, std::uint8_t) {
    // Half the sum without a ninth bit.
    return static_cast<std::uint8_t>((left & above) + ((left ^ above) >> 1));
  }
};
struct Paeth {
  static std::uint8_t predict(std::uint8_t left, std::uint8_t above, std::uint8_t corner) {
    const auto toLeft = static_cast<std::int16_t>(above - corner);
    const auto toAbove = static_cast<std::int16_t>(left - corner);
    const auto toCorner = static_cast<std::int16_t>(toLeft + toAbove);
    const auto size = [](std::int16_t x) { return static_cast<std::int16_t>(x < 0 ? -x : x); };
    const std::int16_t a = size(toLeft), b = size(toAbove), c = size(toCorner);
    const std::uint8_t other = b <= c ? above : corner;
    return a <= b && a <= c ? left : other;
  }
};

struct Row {
  const std::uint8_t* bytes;
  const std::uint8_t* above;
  std::size_t size;
  std::size_t pixelSize;
};

/// Runs the body on the row's parts: body(filtered bytes, first, count), count being `stripe` for
/// most.
template <class Predictor, class Take>
[[gnu::always_inline]] inline void forStripes(const Row& row, const Take& take) {
  std::uint8_t filtered[stripe];
  const std::size_t head = std::min(row.pixelSize, row.size);
  for (std::size_t i = 0; i < head; ++i) {
    filtered[i] = static_cast<std::uint8_t>(row.bytes[i] - Predictor::predict(0, row.above[i], 0));
  }
  take(filtered, 0, head);
  const std::size_t back = row.pixelSize;
  const auto filter = [&](std::size_t from, std::size_t count) __attribute__((always_inline)) {
    for (std::size_t i = 0; i < count; ++i) {
      const std::size_t at = from + i;
      filtered[i] = static_cast<std::uint8_t>(
          row.bytes[at] -
          Predictor::predict(row.bytes[at - back], row.above[at], row.above[at - back]));
    }
  };
  std::size_t from = head;
  for (; from + stripe <= row.size; from += stripe) {
    filter(from, stripe);
    take(filtered, from, stripe);
  }
  filter(from, row.size - from);
  take(filtered, from, row.size - from);
}

template <class Predictor>
[[gnu::always_inline]] inline std::uint64_t costOf(const Row& row) {
  std::uint64_t cost = 0;
  forStripes<Predictor>(row, [&](const std::uint8_t* filtered, std::size_t, std::size_t count) {
    const auto sum = [&](std::size_t n) {
      std::uint16_t part = 0;
      for (std::size_t i = 0; i < n; ++i) {
        const std::uint8_t byte = filtered[i], other = static_cast<std::uint8_t>(-byte);
        part = static_cast<std::uint16_t>(part + std::min(byte, other));
      }
      return part;
    };
    cost += count == stripe ? sum(stripe) : sum(count);
  });
  return cost;
}

template <class Predictor>
[[gnu::always_inline]] inline void writeFiltered(const Row& row, std::uint8_t* out) {
  forStripes<Predictor>(row, [&](const std::uint8_t* filtered, std::size_t from,
                                 std::size_t count) { std::copy_n(filtered, count, out + from); });
}

}  // namespace

KESTRANE_WIDE void filterPngRow(const std::uint8_t* bytes, const std::uint8_t* above,
                                std::size_t size, std::size_t pixelSize, std::uint8_t* out) {
  const Row row{bytes, above, size, pixelSize};
  const std::array costs = {costOf<None>(row), costOf<Sub>(row), costOf<Up>(row),
                            costOf<Average>(row), costOf<Paeth>(row)};
  const auto best = std::min_element(costs.begin(), costs.end()) - costs.begin();
  *out++ = static_cast<std::uint8_t>(best);
  switch (best) {
    case 0:
      return writeFiltered<None>(row, out);
    case 1:
      return writeFiltered<Sub>(row, out);
    case 2:
      return writeFiltered<Up>(row, out);
    case 3:
      return writeFiltered<Average>(row, out);
    default:
      return writeFiltered<Paeth>(row, out);
  }
}

}  // namespace kestrane::detail
