// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/export/match_finder.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

#include "core/export/bit_writer.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace kestrane::detail {

namespace {

std::uint32_t hashOf(std::uint64_t eight) {
  const auto three = static_cast<std::uint32_t>(__builtin_bswap64(eight) >> 40);
  return (three * 0x9E3779B1u) >> 17;
}

bool allEqual(std::uint64_t eight) {
  return ((eight ^ (eight >> 8)) << 8) == 0;
}

/// Replaces each number by the sum of the numbers up to it. The sums fit 16 bits.
void sumUp(Array<std::uint16_t>& numbers) {
  std::uint64_t sum = 0;
  std::size_t i = 0;
  if constexpr (std::endian::native == std::endian::little) {
    // Four at a time: a product with ones in all lanes sums up the lanes below each lane.
    constexpr std::uint64_t ones = 0x0001000100010001u;
    for (; i + 4 <= numbers.size(); i += 4) {
      std::uint64_t lanes = 0;
      std::memcpy(&lanes, &numbers[i], 8);
      lanes *= ones;
      const std::uint64_t sums = lanes + sum * ones;
      std::memcpy(&numbers[i], &sums, 8);
      sum += lanes >> 48;
    }
  }
  for (; i < numbers.size(); ++i) {
    sum += numbers[i];
    numbers[i] = static_cast<std::uint16_t>(sum);
  }
}

/// The fourth and fifth byte in the high half, where entries have them.
std::uint32_t tagOf(std::uint64_t eight) {
  return static_cast<std::uint32_t>(eight >> 24) << 16;
}
constexpr std::uint32_t bothBytes = 0xffff0000, fourthByte = 0x00ff0000, placeBits = 0x0000ffff;

#if defined(__SSE2__)

/// Of 16 entries: a bit for each that has the same bits as `entry` within the mask.
std::uint32_t agreeing16(const std::uint32_t* entries, __m128i entry, __m128i mask) {
  const auto four = [&](std::size_t i) {
    const __m128i* at = reinterpret_cast<const __m128i*>(entries + i);
    const __m128i differing = _mm_and_si128(_mm_xor_si128(_mm_loadu_si128(at), entry), mask);
    return _mm_cmpeq_epi32(differing, _mm_setzero_si128());
  };
  const __m128i low = _mm_packs_epi32(four(0), four(4)), high = _mm_packs_epi32(four(8), four(12));
  return static_cast<std::uint32_t>(_mm_movemask_epi8(_mm_packs_epi16(low, high)));
}

std::uint64_t agreeing48(const std::uint32_t* entries, std::uint32_t entry, std::uint32_t mask) {
  const __m128i all = _mm_set1_epi32(static_cast<int>(entry));
  const __m128i masks = _mm_set1_epi32(static_cast<int>(mask));
  return agreeing16(entries, all, masks) |
         static_cast<std::uint64_t>(agreeing16(entries + 16, all, masks)) << 16 |
         static_cast<std::uint64_t>(agreeing16(entries + 32, all, masks)) << 32;
}

#else

std::uint64_t agreeing48(const std::uint32_t* entries, std::uint32_t entry, std::uint32_t mask) {
  std::uint64_t bits = 0;
  for (std::size_t i = 0; i < 48; ++i) {
    bits |= static_cast<std::uint64_t>(((entries[i] ^ entry) & mask) == 0) << i;
  }
  return bits;
}

#endif

}  // namespace

std::uint64_t MatchFinder::Candidates::all() const {
  return ((std::uint64_t{1} << count) - 1) << (mostCandidates - count);
}

/// Which of the 48 entries before the end are candidates and have the same bits within the mask:
/// bit 47 for the nearest.
std::uint64_t MatchFinder::Candidates::agreeing(std::uint32_t entry, std::uint32_t mask) const {
  return agreeing48(end - mostCandidates, entry, mask) & all();
}

/// Calls visitor(position) for the given candidates, the nearest first, until it answers true.
template <class Visit>
bool MatchFinder::Candidates::visit(std::uint64_t which, const Visit& visitor) const {
  while (which != 0) {
    const int bit = std::bit_width(which) - 1;
    which ^= std::uint64_t{1} << bit;
    const std::uint32_t place = end[bit - static_cast<int>(mostCandidates)] & placeBits;
    if (place < leastPlace) return false;
    if (visitor(base + place)) return true;
  }
  return false;
}

MatchFinder::MatchFinder() : entryOf_(windowSize) {
  for (Block* block : {&current_, &previous_}) {
    block->entries.assign(mostCandidates + windowSize, 0);
    block->bounds.resize(hashCount + 2);
  }
}

void MatchFinder::start(std::span<const std::uint8_t> bytes, std::size_t begin, std::size_t end) {
  bytes_ = bytes;
  end_ = end;
  blockEnd_ = begin;
  current_.base = begin - windowSize;
  enter(current_, begin - std::min(begin, windowSize), begin);
}

std::uint64_t MatchFinder::eightBytes(std::size_t position) const {
  if (position + 8 <= bytes_.size()) return loadEight(bytes_.data() + position);
  std::uint8_t padded[8] = {};
  std::memcpy(padded, bytes_.data() + position, bytes_.size() - position);
  return loadEight(padded);
}

/// Hashes the positions to sort, and counts the hashes in bounds[hash + 2].
///
/// Positions in the middle of a long run of one byte are left out, which spares most of the work on
/// flat pictures. It changes no answer: a position that has 48 of its run before it finds them all
/// alike and takes the nearest, and a position behind the run meets its last 48 and no other.
void MatchFinder::countHashes(Block& block, std::size_t first, std::size_t last) {
  std::uint16_t* counts = block.bounds.data() + 2;
  leftOut_.clear();
  for (std::size_t position = first; position < last;) {
    const std::uint64_t eight = eightBytes(position);
    const std::uint32_t hash = hashOf(eight);
    if (!allEqual(eight) || position + 8 > bytes_.size()) {
      entryOf_[position++ - block.base] = static_cast<std::uint16_t>(hash);
      ++counts[hash];
      continue;
    }
    const std::uint8_t value = bytes_[position];
    std::size_t runBegin = position;
    while (runBegin > 0 && position - runBegin < mostCandidates && bytes_[runBegin - 1] == value) {
      --runBegin;
    }
    // Of the run's end no more is asked than whether it lies within reach of this block.
    const std::size_t farthest = std::min(bytes_.size(), last + mostCandidates + 2);
    std::size_t runEnd = position + 8;
    while (runEnd + 8 <= farthest && loadEight(bytes_.data() + runEnd) == eight) runEnd += 8;
    while (runEnd < farthest && bytes_[runEnd] == value) ++runEnd;
    const std::size_t stop = std::min(runEnd - 2, last);
    const std::size_t headEnd = std::clamp(runBegin + mostCandidates, position, stop);
    const std::size_t tail = runEnd - 2 - std::min(runEnd - 2, mostCandidates);
    const std::size_t tailBegin = std::clamp(tail, headEnd, stop);
    std::fill_n(entryOf_.begin() + static_cast<std::ptrdiff_t>(position - block.base),
                stop - position, static_cast<std::uint16_t>(hash));
    counts[hash] =
        static_cast<std::uint16_t>(counts[hash] + (stop - position) - (tailBegin - headEnd));
    if (tailBegin > headEnd) {
      leftOut_.emplace_back(headEnd - block.base, tailBegin - block.base);
    }
    position = stop;
  }
}

void MatchFinder::enter(Block& block, std::size_t first, std::size_t last) {
  std::fill(block.bounds.begin(), block.bounds.end(), std::uint16_t{0});
  last = std::min(last, bytes_.size() < 3 ? 0 : bytes_.size() - 2);
  if (first >= last) return;
  countHashes(block, first, last);
  sumUp(block.bounds);
  // bounds[hash + 1] is where the hash begins, and ends up where it ends.
  std::uint16_t* next = block.bounds.data() + 1;
  std::uint32_t* entries = block.entries.data() + mostCandidates;
  const auto sort = [&](std::uint32_t begin, std::uint32_t end) {
    for (std::uint32_t place = begin; place < end; ++place) {
      const std::uint16_t entry = next[entryOf_[place]]++;
      entries[entry] = place | tagOf(eightBytes(block.base + place));
      entryOf_[place] = entry;
    }
  };
  auto begin = static_cast<std::uint32_t>(first - block.base);
  for (const auto& [from, to] : leftOut_) {
    sort(begin, from);
    begin = to;
  }
  sort(begin, static_cast<std::uint32_t>(last - block.base));
}

/// Whether the position has at least 48 positions of one run of bytes before it and is itself one.
bool MatchFinder::deepInRun(std::size_t position) const {
  if (position < mostCandidates) return false;
  const std::uint8_t* from = bytes_.data() + position - mostCandidates;
  const std::uint64_t eight = bytes_[position] * 0x0101010101010101u;
  for (std::size_t i = 0; i < mostCandidates; i += 8) {
    if (loadEight(from + i) != eight) return false;
  }
  return true;
}

/// How many bytes at a and b are alike, up to the limit, given that the first `from` are.
std::size_t MatchFinder::sharedLength(std::size_t a, std::size_t b, std::size_t from,
                                      std::size_t limit) const {
  std::size_t length = from;
  while (length + 8 <= limit) {
    const std::uint64_t differing =
        loadEight(bytes_.data() + a + length) ^ loadEight(bytes_.data() + b + length);
    if (differing != 0) return length + static_cast<std::size_t>(std::countr_zero(differing)) / 8;
    length += 8;
  }
  while (length < limit && bytes_[a + length] == bytes_[b + length]) ++length;
  return length;
}

Match MatchFinder::longest(std::size_t position) {
  if (position >= blockEnd_) {
    std::swap(current_, previous_);
    current_.base = blockEnd_;
    enter(current_, blockEnd_, std::min(blockEnd_ + windowSize, end_));
    blockEnd_ += windowSize;
  }
  const std::size_t limit = std::min(longestMatch, bytes_.size() - position);
  if (limit < 3) return {};
  const std::uint64_t key = eightBytes(position);
  const auto match = [](std::size_t length, std::size_t distance) -> Match {
    return {static_cast<std::uint32_t>(length), static_cast<std::uint32_t>(distance)};
  };
  if (((key ^ (key >> 8)) & 0xffff) == 0 && deepInRun(position)) {
    return match(sharedLength(position - 1, position, 3, limit), 1);
  }
  const std::uint32_t hash = hashOf(key);
  const auto place = static_cast<std::uint16_t>(position - current_.base);
  const std::size_t own = entryOf_[place];
  Candidates here, before;
  here.end = current_.entries.data() + mostCandidates + own;
  here.count = std::min<std::size_t>(own - current_.bounds[hash], mostCandidates);
  here.base = current_.base;
  const std::size_t last = previous_.bounds[hash + 1];
  before.end = previous_.entries.data() + mostCandidates + last;
  before.count = std::min<std::size_t>(last - previous_.bounds[hash], mostCandidates - here.count);
  before.base = previous_.base;
  before.leastPlace = place;

  std::size_t length = 0, distance = 0;
  const auto better = [&](std::size_t candidate) {
    const std::uint64_t differing = loadEight(bytes_.data() + candidate) ^ key;
    std::size_t shared = static_cast<std::size_t>(std::countr_zero(differing)) / 8;
    if (differing == 0) {
      if (bytes_[candidate + length] != bytes_[position + length]) return false;
      shared = sharedLength(candidate, position, 8, limit);
    }
    if (shared <= length) return false;
    length = shared;
    distance = position - candidate;
    return length == limit;
  };
  const auto visit = [&](std::uint32_t mask, const auto& visitor) {
    const std::uint32_t tag = tagOf(key);
    return here.visit(here.agreeing(tag, mask), visitor) ||
           (before.count > 0 && before.visit(before.agreeing(tag, mask), visitor));
  };
  if (limit < 8) {
    // The last bytes of the data: what the entries say of bytes behind them is not looked at.
    const auto shortly = [&](std::size_t candidate) {
      const std::size_t shared = sharedLength(candidate, position, 0, limit);
      if (shared <= length) return false;
      length = shared;
      distance = position - candidate;
      return length == limit;
    };
    visit(0, shortly);
    return length < 3 ? Match{} : match(length, distance);
  }
  visit(bothBytes, better);
  if (length >= 5) return match(length, distance);
  // No candidate agrees in five bytes: the nearest that agrees in four or three is the longest.
  // Other bytes may have the same hash.
  for (const std::uint32_t mask : {fourthByte, std::uint32_t{0}}) {
    const std::size_t wanted = mask == 0 ? 3 : 4;
    const bool found = visit(mask, [&](std::size_t candidate) {
      const std::uint64_t differing = loadEight(bytes_.data() + candidate) ^ key;
      distance = position - candidate;
      return static_cast<std::size_t>(std::countr_zero(differing)) / 8 >= wanted;
    });
    if (found) return match(wanted, distance);
  }
  return {};
}

}  // namespace kestrane::detail
