// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/export/match_finder.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

#include "core/base/lanes.h"
#include "core/export/bit_writer.h"
#include "core/export/byte_mask.h"

namespace kestrane::detail {

namespace {

std::uint32_t hashOf(std::uint64_t eight) {
  const auto three = static_cast<std::uint32_t>(__builtin_bswap64(eight) >> 40);
  return (three * 0x9E3779B1u) >> 17;
}

/// Eight times the first byte.
std::uint64_t repeated(std::uint64_t eight) {
  return (eight & 0xff) * 0x0101010101010101u;
}

std::uint32_t alikeBytes(std::uint64_t differing) {
  return static_cast<std::uint32_t>(std::countr_zero(differing)) / 8;
}

/// How many bytes at a and b are alike, at most `limit`.
std::size_t sharedLength(const std::uint8_t* a, const std::uint8_t* b, std::size_t limit) {
  std::size_t length = 0;
  for (; length + 8 <= limit; length += 8) {
    const std::uint64_t differing = loadEight(a + length) ^ loadEight(b + length);
    if (differing != 0) return length + alikeBytes(differing);
  }
  while (length < limit && a[length] == b[length]) ++length;
  return length;
}

Match matchOf(std::size_t length, std::uint32_t distance) {
  return {static_cast<std::uint32_t>(length), distance};
}

}  // namespace

/// What is asked, and the candidates for it: bit 0 of a mask stands for the nearest, bit 1 for the
/// next.
struct MatchFinder::Query {
  std::size_t position;
  const std::uint8_t* here;  // the bytes there
  std::size_t limit;         // no match is longer
  std::uint64_t key;         // the first eight bytes
  const Ring& ring;
  std::uint32_t entered;
  std::uint32_t count;  // of candidates

  std::uint64_t all() const { return (std::uint64_t{1} << count) - 1; }
  /// From bytes by slot.
  std::uint64_t agreeing(const std::uint8_t* bytes, std::uint64_t byte) const {
    return std::rotl(equalBytes(bytes, static_cast<std::uint8_t>(byte)),
                     static_cast<int>(entered % ringSize));
  }
  /// Of the n-th nearest, n from 0.
  std::uint32_t distance(std::uint32_t n) const {
    return static_cast<std::uint16_t>(position - ring.places[(n - entered) % ringSize]);
  }
  std::size_t lengthAt(std::uint32_t distance) const {
    return sharedLength(here - distance, here, limit);
  }
};

MatchFinder::MatchFinder() : rings_(hashCount) {}

void MatchFinder::start(std::span<const std::uint8_t> bytes, std::size_t begin) {
  bytes_ = bytes;
  entered_ = begin - std::min(begin, windowSize);
  blockEnd_ = begin;
  inRun_ = false;
  counts_.assign(hashCount, 0);
  countsBefore_ = staleCounts_ = counts_;
}

std::uint64_t MatchFinder::eightBytes(std::size_t position) const {
  if (position + 8 <= bytes_.size()) return loadEight(bytes_.data() + position);
  std::uint8_t padded[8] = {};
  std::memcpy(padded, bytes_.data() + position, bytes_.size() - position);
  return loadEight(padded);
}

/// Enters the positions up to `last` - 1.
///
/// Those in the middle of a long run of one byte are left out, which spares most of the work on
/// flat pictures. It changes no answer: a position that has 48 of its run before it finds them all
/// alike and takes the nearest, and a position behind the run meets its last 48 and no other.
void MatchFinder::enter(std::size_t last) {
  std::size_t position = entered_;
  if (inRun_ && last - position > mostCandidates + 2) position = last - (mostCandidates + 2);
  entered_ = last;
  const std::uint8_t* bytes = bytes_.data();
  std::uint16_t* counts = counts_.data();
  const auto put = [rings = rings_.data()](std::size_t at, std::uint64_t eight, std::uint32_t hash,
                                           std::uint32_t count) {
    Ring& ring = rings[hash];
    const std::uint32_t slot = ~count % ringSize;
    ring.fourthBytes[slot] = static_cast<std::uint8_t>(eight >> 24);
    ring.fifthBytes[slot] = static_cast<std::uint8_t>(eight >> 32);
    ring.places[slot] = static_cast<std::uint16_t>(at);
  };
  const std::size_t size = bytes_.size();
  const std::size_t stop = size < 8 ? 0 : std::min(last, size - 7);
  // Two at a time: both counts are read before one is written, since reading what was written just
  // before takes longer than comparing the hashes.
  for (; position + 2 <= stop; position += 2) {
    const std::uint64_t first = loadEight(bytes + position);
    const std::uint64_t second = loadEight(bytes + position + 1);
    const std::uint32_t firstHash = hashOf(first), secondHash = hashOf(second);
    const std::uint32_t firstCount = counts[firstHash];
    const std::uint32_t secondCount = counts[secondHash] + (firstHash == secondHash ? 1u : 0u);
    counts[firstHash] = static_cast<std::uint16_t>(firstCount + 1);
    counts[secondHash] = static_cast<std::uint16_t>(secondCount + 1);
    put(position, first, firstHash, firstCount);
    put(position + 1, second, secondHash, secondCount);
  }
  for (const std::size_t end = size < 3 ? 0 : std::min(last, size - 2); position < end;
       ++position) {
    const std::uint64_t eight = eightBytes(position);
    const std::uint32_t hash = hashOf(eight);
    put(position, eight, hash, counts[hash]++);
  }
}

void MatchFinder::beginBlock() {
  std::swap(staleCounts_, countsBefore_);
  countsBefore_ = counts_;
}

/// Whether the position has at least 48 positions of one run of bytes before it and is itself one.
bool MatchFinder::deepInRun(std::size_t position, std::uint64_t key) const {
  if (position < mostCandidates) return false;
  const std::uint8_t* before = bytes_.data() + position - mostCandidates;
  const std::uint64_t value = repeated(key);
  if ((loadEight(before + mostCandidates - 8) ^ value) | ((key ^ value) & 0xffffff)) return false;
  for (std::size_t i = 0; i + 8 < mostCandidates; i += 8) {
    if (loadEight(before + i) != value) return false;
  }
  return true;
}

Match MatchFinder::longestOf(const Query& query, std::uint64_t candidates) {
  std::size_t best = 0;
  std::uint32_t bestDistance = 0;
  // A longer match agrees in the bytes from `from` to the one at `best`, eight at most.
  std::size_t from = 0;
  std::uint64_t wanted = query.key;
  std::uint32_t unasked = 56;  // bits
  while (candidates != 0) {
    const auto n = static_cast<std::uint32_t>(std::countr_zero(candidates));
    candidates &= candidates - 1;
    const std::uint32_t distance = query.distance(n);
    if (((loadEight(query.here - distance + from) ^ wanted) << unasked) != 0) continue;
    if (distance > windowSize) break;
    const std::size_t length = query.lengthAt(distance);
    if (length <= best) continue;
    best = length;
    bestDistance = distance;
    if (best == query.limit) break;
    from = best < 7 ? 0 : best - 7;
    unasked = best < 7 ? 56 - 8 * static_cast<std::uint32_t>(best) : 0;
    wanted = loadEight(query.here + from);
  }
  return matchOf(best, bestDistance);
}

/// longestOf() for a position whose eight bytes are alike. Going back through an earlier run of
/// that byte, candidates repeat one byte more each, until the ends of both runs meet: so two
/// candidates of a run are enough to look at, its last one and that one.
Match MatchFinder::longestInRuns(const Query& query, std::uint64_t candidates) {
  const std::size_t run = 1 + sharedLength(query.here, query.here + 1, query.limit - 1);
  std::size_t best = 0;
  std::uint32_t bestDistance = 0;
  const auto take = [&](std::size_t length, std::uint32_t distance) {
    if (length > best) {
      best = length;
      bestDistance = distance;
    }
    return best < query.limit;
  };
  while (candidates != 0) {
    const auto n = static_cast<std::uint32_t>(std::countr_zero(candidates));
    const std::uint32_t distance = query.distance(n);
    if (distance > windowSize) break;
    const std::size_t length = query.lengthAt(distance);
    if (!take(length, distance)) break;
    std::uint32_t back = 0;
    if (length >= 3) {  // else other bytes have the same hash
      const auto farthest = std::min<std::uint32_t>(query.count - 1 - n, windowSize - distance);
      while (back < farthest && *(query.here - distance - back - 1) == *query.here) ++back;
    }
    if (length < run && back > 0) {
      const auto step = static_cast<std::uint32_t>(std::min<std::size_t>(run - length, back));
      const std::uint32_t there = distance + step;
      if (!take(query.lengthAt(there), there)) break;
    }
    candidates &= ~std::uint64_t{0} << (n + back) << 1;
  }
  return matchOf(best, bestDistance);
}

/// The nearest that agrees in as many bytes, where none agrees in more; at most 8.
Match MatchFinder::nearestOf(const Query& query, std::uint64_t candidates, std::uint32_t length) {
  while (candidates != 0) {
    const auto n = static_cast<std::uint32_t>(std::countr_zero(candidates));
    candidates &= candidates - 1;
    const std::uint32_t distance = query.distance(n);
    if (distance > windowSize) break;
    if (alikeBytes(loadEight(query.here - distance) ^ query.key) >= length) {
      return matchOf(length, distance);
    }
  }
  return {};
}

/// For the last seven bytes of the data.
Match MatchFinder::longestNearEnd(const Query& query) {
  Match match;
  for (std::uint32_t n = 0; n < query.count && match.length < query.limit; ++n) {
    const std::uint32_t distance = query.distance(n);
    if (distance > windowSize) break;
    const std::size_t length = query.lengthAt(distance);
    if (length > match.length) match = matchOf(length, distance);
  }
  return match.length < 3 ? Match{} : match;
}

Match MatchFinder::longest(std::size_t position) {
  if (position >= blockEnd_) {
    enter(blockEnd_);
    beginBlock();
    blockEnd_ += windowSize;
  }
  const std::size_t limit = std::min(longestMatch, bytes_.size() - position);
  if (limit < 3) return {};
  const std::uint8_t* here = bytes_.data() + position;
  const std::uint64_t key = eightBytes(position);
  if (deepInRun(position, key)) {
    if (!inRun_) enter(position);
    inRun_ = true;
    return matchOf(sharedLength(here - 1, here, limit), 1);
  }
  const std::uint32_t hash = hashOf(key);
  const Ring& ring = rings_[hash];
  prefetch(ring);
  enter(position);
  inRun_ = false;

  const std::uint16_t entered = counts_[hash];
  const std::uint32_t fresh = static_cast<std::uint16_t>(entered - staleCounts_[hash]);
  if (fresh == 0) return {};
  const Query query{position, here, limit, key, ring, entered, std::min(fresh, mostCandidates)};
  if (limit < 8) return longestNearEnd(query);
  const std::uint64_t four = query.all() & query.agreeing(ring.fourthBytes, key >> 24);
  const std::uint64_t five = four & query.agreeing(ring.fifthBytes, key >> 32);
  if (five != 0) {
    const Match match = key == repeated(key) ? longestInRuns(query, five) : longestOf(query, five);
    if (match.length >= 5) return match;
  }
  if (four != 0) {
    const Match match = nearestOf(query, four, 4);
    if (match.length > 0) return match;
  }
  return nearestOf(query, query.all(), 3);
}

}  // namespace kestrane::detail
