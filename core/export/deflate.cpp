// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/export/deflate.h"

#include <algorithm>
#include <array>
#include <bit>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "core/base/parallel.h"
#include "core/export/bit_writer.h"
#include "core/export/checksums.h"
#include "core/export/match_finder.h"

namespace kestrane {

namespace detail {

namespace {

constexpr std::size_t defaultChunk = 1048576;
/// Only the tokens that start in a chunk's first bytes can be joined by the chunk before it.
constexpr std::size_t syncZone = 4096;

/// Bits as the stream holds them, the first lowest.
struct Code {
  std::uint32_t bits = 0;
  std::uint32_t count = 0;
};

/// The fixed Huffman codes of RFC 1951. Codes go into the stream from their highest bit on.
struct FixedCodes {
  std::array<Code, 257> symbols;                            // literals, and the end of the block
  std::array<Code, MatchFinder::longestMatch + 1> lengths;  // with their extra bits
  std::array<std::uint32_t, 30> distanceGroups;             // 5 bits each
};

constexpr std::uint32_t reversed(std::uint32_t bits, std::uint32_t count) {
  std::uint32_t result = 0;
  for (std::uint32_t i = 0; i < count; ++i) result |= (bits >> i & 1u) << (count - 1 - i);
  return result;
}

constexpr Code symbolCode(std::uint32_t symbol) {
  if (symbol < 144) return {reversed(0x30 + symbol, 8), 8};
  if (symbol < 256) return {reversed(0x190 + symbol - 144, 9), 9};
  if (symbol < 280) return {reversed(symbol - 256, 7), 7};
  return {reversed(0xC0 + symbol - 280, 8), 8};
}

/// Lengths and distances come in groups of 1, 2, 4, ... numbers, 2^log2Groups groups of each size
/// after twice as many of 1. Returns a number's group; `extra` becomes its bits within the group.
constexpr std::uint32_t groupOf(std::uint32_t number, std::uint32_t log2Groups, Code& extra) {
  extra.count =
      static_cast<std::uint32_t>(std::bit_width(number | 1u << log2Groups)) - log2Groups - 1;
  extra.bits = number & ((1u << extra.count) - 1);
  return (extra.count << log2Groups) + (number >> extra.count);
}

constexpr FixedCodes makeFixedCodes() {
  FixedCodes codes{};
  for (std::uint32_t i = 0; i < codes.symbols.size(); ++i) codes.symbols[i] = symbolCode(i);
  for (std::uint32_t length = 3; length < MatchFinder::longestMatch; ++length) {
    Code extra;
    const Code group = symbolCode(257 + groupOf(length - 3, 2, extra));
    codes.lengths[length] = {group.bits | extra.bits << group.count, group.count + extra.count};
  }
  codes.lengths[MatchFinder::longestMatch] = symbolCode(285);
  for (std::uint32_t i = 0; i < 30; ++i) codes.distanceGroups[i] = reversed(i, 5);
  return codes;
}

constexpr FixedCodes fixedCodes = makeFixedCodes();
constexpr std::uint32_t endOfBlock = 256;

/// Writes the token at a position; returns how many bytes it stands for.
std::size_t putToken(std::span<const std::uint8_t> bytes, std::size_t position, MatchFinder& finder,
                     BitWriter& writer) {
  const Match match = finder.longest(position);
  if (match.length == 0) {
    const Code& literal = fixedCodes.symbols[bytes[position]];
    writer.put(literal.bits, literal.count);
    return 1;
  }
  const Code& length = fixedCodes.lengths[match.length];
  Code extra;
  const std::uint32_t group = fixedCodes.distanceGroups[groupOf(match.distance - 1, 1, extra)];
  writer.put(length.bits | (group | extra.bits << 5) << length.count,
             length.count + 5 + extra.count);
  return match.length;
}

/// Bytes that hold the tokens of `count` bytes: a token takes at most 9 bits a byte, and the last
/// match may run past the end.
std::size_t roomFor(std::size_t count) {
  return count + count / 8 + 512;
}

/// What one thread needs to encode; larger than most chunks' results, and reused.
struct Scratch {
  MatchFinder finder;
  Array<std::uint8_t> bits;

  BitWriter writer(std::size_t count) {
    if (bits.size() < roomFor(count)) bits.resize(roomFor(count));
    return BitWriter(bits.data());
  }
};

class ScratchPool {
 public:
  std::unique_ptr<Scratch> take() {
    const std::lock_guard lock(mutex_);
    if (held_.empty()) return std::make_unique<Scratch>();
    std::unique_ptr<Scratch> scratch = std::move(held_.back());
    held_.pop_back();
    return scratch;
  }
  void give(std::unique_ptr<Scratch> scratch) {
    const std::lock_guard lock(mutex_);
    held_.push_back(std::move(scratch));
  }

 private:
  std::mutex mutex_;
  std::vector<std::unique_ptr<Scratch>> held_;
};

/// The bits of some tokens, readable for 8 bytes more.
struct Bits {
  Array<std::uint8_t> bytes;
  std::size_t count = 0;

  void take(BitWriter& writer, const Scratch& scratch) {
    const std::uint8_t* begin = scratch.bits.data();
    const std::uint8_t* end = writer.end();
    count = writer.bitCount();
    bytes.reserve(static_cast<std::size_t>(end - begin) + 8);
    bytes.assign(begin, end);
    bytes.insert(bytes.end(), 8, 0);
  }
};

/// Where a token starts.
struct SyncPoint {
  std::size_t position = 0;
  std::size_t bit = 0;
};

/// The tokens of a chunk, found without knowing where the chunk before it stops.
struct Chunk {
  std::size_t begin = 0;
  std::size_t end = 0;
  std::size_t stop = 0;  // where its last token ends, at or past `end`
  Bits bits;
  std::vector<SyncPoint> syncPoints;
  std::uint32_t adler = 1;
};

void encodeChunk(std::span<const std::uint8_t> bytes, Chunk& chunk, Scratch& scratch) {
  BitWriter writer = scratch.writer(chunk.end - chunk.begin);
  scratch.finder.start(bytes, chunk.begin);
  std::size_t position = chunk.begin;
  while (position < chunk.end) {
    if (position - chunk.begin < syncZone) {
      chunk.syncPoints.push_back({position, writer.bitCount()});
    }
    position += putToken(bytes, position, scratch.finder, writer);
  }
  chunk.stop = position;
  chunk.bits.take(writer, scratch);
  chunk.adler = adler32(bytes.subspan(chunk.begin, chunk.end - chunk.begin));
}

/// The tokens from where one chunk stopped inside the next to the first token that the next one has
/// found too.
struct Bridge {
  std::size_t from = 0;  // 0: not made
  std::size_t stop = 0;
  Bits bits;
  const SyncPoint* joined = nullptr;  // null: it ran to the chunk's end
};

const SyncPoint* syncPointAt(const Chunk& chunk, std::size_t position) {
  const auto found = std::lower_bound(
      chunk.syncPoints.begin(), chunk.syncPoints.end(), position,
      [](const SyncPoint& point, std::size_t wanted) { return point.position < wanted; });
  return found != chunk.syncPoints.end() && found->position == position ? &*found : nullptr;
}

Bridge makeBridge(std::span<const std::uint8_t> bytes, std::size_t from, const Chunk& chunk,
                  Scratch& scratch) {
  Bridge bridge;
  bridge.from = from;
  BitWriter writer = scratch.writer(chunk.end - from);
  scratch.finder.start(bytes, from);
  std::size_t position = from;
  while (position < chunk.end) {
    bridge.joined = syncPointAt(chunk, position);
    if (bridge.joined != nullptr) break;
    position += putToken(bytes, position, scratch.finder, writer);
  }
  bridge.stop = position;
  bridge.bits.take(writer, scratch);
  return bridge;
}

/// Bits that go into the stream.
struct Piece {
  const Bits* bits = nullptr;
  std::size_t firstBit = 0;
};

std::vector<Chunk> cutChunks(std::size_t size, std::size_t chunkSize) {
  std::vector<Chunk> chunks;
  for (std::size_t begin = 0; begin < size; begin = chunks.back().end) {
    chunks.emplace_back();
    chunks.back().begin = begin;
    chunks.back().end = size - begin > chunkSize ? begin + chunkSize : size;
  }
  return chunks;
}

}  // namespace

void appendZlib(std::span<const std::uint8_t> bytes, std::size_t chunkSize,
                Array<std::uint8_t>& out) {
  std::vector<Chunk> chunks = cutChunks(bytes.size(), chunkSize == 0 ? defaultChunk : chunkSize);
  std::vector<Bridge> bridges(chunks.size());
  ScratchPool pool;
  kestrane::parallelRange(0, chunks.size(), 1, [&](std::size_t first, std::size_t last) {
    std::unique_ptr<Scratch> scratch = pool.take();
    for (std::size_t i = first; i < last; ++i) encodeChunk(bytes, chunks[i], *scratch);
    pool.give(std::move(scratch));
  });
  // Almost every chunk is joined where the one before it stopped, so these bridges can be made all
  // at once; the stitching below makes the others.
  kestrane::parallelRange(1, std::max<std::size_t>(chunks.size(), 1), 1,
                          [&](std::size_t first, std::size_t last) {
                            std::unique_ptr<Scratch> scratch = pool.take();
                            for (std::size_t i = first; i < last; ++i) {
                              const std::size_t from = chunks[i - 1].stop;
                              if (from > chunks[i].begin && from < chunks[i].end) {
                                bridges[i] = makeBridge(bytes, from, chunks[i], *scratch);
                              }
                            }
                            pool.give(std::move(scratch));
                          });

  std::vector<Piece> pieces;
  std::size_t position = 0;
  std::uint32_t adler = 1;
  for (std::size_t i = 0; i < chunks.size(); ++i) {
    const Chunk& chunk = chunks[i];
    adler = joinedAdler32(adler, chunk.adler, chunk.end - chunk.begin);
    if (position >= chunk.end) continue;
    std::size_t firstBit = 0;
    if (position > chunk.begin) {
      Bridge& bridge = bridges[i];
      if (bridge.from != position) {
        std::unique_ptr<Scratch> scratch = pool.take();
        bridge = makeBridge(bytes, position, chunk, *scratch);
        pool.give(std::move(scratch));
      }
      pieces.push_back({&bridge.bits, 0});
      position = bridge.stop;
      if (bridge.joined == nullptr) continue;
      firstBit = bridge.joined->bit;
    }
    pieces.push_back({&chunk.bits, firstBit});
    position = chunk.stop;
  }

  const std::size_t start = out.size();
  std::size_t room = 64;
  for (const Piece& piece : pieces) room += (piece.bits->count - piece.firstBit) / 8 + 1;
  out.resize(start + room);
  out[start] = 0x78;
  out[start + 1] = 0x01;
  BitWriter writer(out.data() + start + 2);
  writer.put(3, 3);  // the last block, with fixed codes
  for (const Piece& piece : pieces) {
    writer.putAll(piece.bits->bytes.data(), piece.firstBit, piece.bits->count);
  }
  writer.put(fixedCodes.symbols[endOfBlock].bits, fixedCodes.symbols[endOfBlock].count);
  std::uint8_t* end = writer.end();
  for (int shift = 24; shift >= 0; shift -= 8) *end++ = static_cast<std::uint8_t>(adler >> shift);
  out.resize(static_cast<std::size_t>(end - out.data()));
}

}  // namespace detail

Array<std::uint8_t> zlibCompress(std::span<const std::uint8_t> bytes, std::size_t chunkSize) {
  Array<std::uint8_t> out;
  detail::appendZlib(bytes, chunkSize, out);
  return out;
}

}  // namespace kestrane
