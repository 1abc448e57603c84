// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/export/match_finder.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

#include "core/export/bit_writer.h"

namespace kestrane::detail {

namespace {

std::uint32_t hashOf(std::uint64_t eight) {
  const auto three = static_cast<std::uint32_t>(__builtin_bswap64(eight) >> 40);
  return (three * 0x9E3779B1u) >> 17;
}

bool allEqual(std::uint64_t eight) {
  return ((eight ^ (eight >> 8)) << 8) == 0;
}

}  // namespace

MatchFinder::MatchFinder() : entryOf_(windowSize), gathered_(windowSize), hashes_(windowSize) {
  for (Block* block : {&current_, &previous_}) {
    block->keys.resize(windowSize);
    block->places.resize(windowSize);
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

/// Collects the positions to sort, and counts their hashes in bounds[hash + 2].
///
/// Positions in the middle of a long run of one byte are left out, which spares most of the work on
/// flat pictures. It changes no answer: a position that has 48 of its run before it finds them all
/// alike and takes the nearest, and a position behind the run meets its last 48 and no other.
std::size_t MatchFinder::gather(Block& block, std::size_t first, std::size_t last) {
  std::size_t count = 0;
  const auto take = [&](std::size_t position, std::uint32_t hash) {
    gathered_[count] = static_cast<std::uint16_t>(position - block.base);
    hashes_[count++] = static_cast<std::uint16_t>(hash);
    ++block.bounds[hash + 2];
  };
  for (std::size_t position = first; position < last;) {
    const std::uint64_t eight = eightBytes(position);
    const std::uint32_t hash = hashOf(eight);
    if (!allEqual(eight) || position + 8 > bytes_.size()) {
      take(position++, hash);
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
    const std::size_t headEnd = std::min(runBegin + mostCandidates, stop);
    const std::size_t tailBegin =
        std::max(headEnd, runEnd - 2 - std::min(runEnd - 2, mostCandidates));
    while (position < headEnd) take(position++, hash);
    for (position = std::max(position, tailBegin); position < stop;) take(position++, hash);
    position = stop;
  }
  return count;
}

void MatchFinder::enter(Block& block, std::size_t first, std::size_t last) {
  std::fill(block.bounds.begin(), block.bounds.end(), std::uint16_t{0});
  last = std::min(last, bytes_.size() < 3 ? 0 : bytes_.size() - 2);
  if (first >= last) return;
  const std::size_t count = gather(block, first, last);
  std::uint16_t sum = 0;
  for (std::uint16_t& bound : block.bounds) bound = sum = static_cast<std::uint16_t>(sum + bound);
  // bounds[hash + 1] is where the hash begins, and ends up where it ends.
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint16_t place = gathered_[i];
    const std::uint16_t entry = block.bounds[hashes_[i] + 1]++;
    block.keys[entry] = eightBytes(block.base + place);
    block.places[entry] = place;
    entryOf_[place] = entry;
  }
}

/// Whether the position has at least 48 positions of one run of bytes before it and is itself one.
bool MatchFinder::deepInRun(std::size_t position) const {
  if (position < mostCandidates) return false;
  const std::uint8_t* from = bytes_.data() + position - mostCandidates;
  const std::uint8_t value = bytes_[position];
  for (std::size_t i = 0; i < mostCandidates; ++i) {
    if (from[i] != value) return false;
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

/// Which of the first eight bytes agree with those of some candidate that agrees in all bytes
/// before them, too: the highest bit of each such byte. No branch depends on the data.
std::uint64_t MatchFinder::agreeingBytes(const std::uint64_t* keys, std::size_t count,
                                         std::uint64_t key) {
  std::uint64_t agreeing = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint64_t differing = keys[i] ^ key;
    agreeing |= (differing - 1) & ~differing;
  }
  return agreeing & 0x8080808080808080u;
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
  if (((key ^ (key >> 8)) & 0xffff) == 0 && deepInRun(position)) {
    return {static_cast<std::uint32_t>(sharedLength(position - 1, position, 3, limit)), 1};
  }
  const std::uint32_t hash = hashOf(key);
  const auto place = static_cast<std::uint16_t>(position - current_.base);
  const std::size_t own = entryOf_[place];
  const std::size_t ownCount = std::min<std::size_t>(own - current_.bounds[hash], mostCandidates);
  const std::size_t last = previous_.bounds[hash + 1];
  std::size_t first =
      last - std::min<std::size_t>(last - previous_.bounds[hash], mostCandidates - ownCount);
  // What lies farther back than the window has a lower place in its block than this position here.
  while (first < last && previous_.places[first] < place) ++first;

  const std::uint64_t* ownKeys = current_.keys.data() + own - ownCount;
  const std::uint64_t* previousKeys = previous_.keys.data() + first;
  std::uint64_t agreeing =
      agreeingBytes(ownKeys, ownCount, key) | agreeingBytes(previousKeys, last - first, key);
  if (limit < 8) agreeing &= (std::uint64_t{1} << (8 * limit)) - 1;
  if (agreeing < std::uint64_t{1} << 23) return {};
  std::size_t length = static_cast<std::size_t>(std::bit_width(agreeing)) / 8;
  const std::uint64_t mask = ~std::uint64_t{0} >> (64 - 8 * length);
  std::size_t distance = 0;
  const bool mayGrow = length == 8 && limit > 8;
  // The nearest candidate that agrees so far; where that is all eight bytes, the others that do may
  // go on agreeing for longer.
  const auto look = [&](const Block& block, std::size_t from, std::size_t end) {
    for (std::size_t entry = end; entry-- > from;) {
      if (((block.keys[entry] ^ key) & mask) != 0) continue;
      const std::size_t candidate = block.base + block.places[entry];
      if (!mayGrow) {
        distance = position - candidate;
        return true;
      }
      if (distance != 0 && bytes_[candidate + length] != bytes_[position + length]) continue;
      const std::size_t shared = sharedLength(candidate, position, 8, limit);
      if (shared > length || distance == 0) {
        length = shared;
        distance = position - candidate;
        if (length == limit) return true;
      }
    }
    return false;
  };
  if (!look(current_, own - ownCount, own)) look(previous_, first, last);
  return {static_cast<std::uint32_t>(length), static_cast<std::uint32_t>(distance)};
}

}  // namespace kestrane::detail
