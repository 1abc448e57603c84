// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/export/deflate.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <string>
#include <vector>

#include "core/base/hash.h"
#include "core/base/parallel.h"

namespace kestrane {
namespace {

using Bytes = std::vector<std::uint8_t>;

/// The same greedy search in its plain form, one byte after the other: a chain of earlier positions
/// per hash, no chunks, no sorting. What the encoder must write for every chunk size.
class PlainEncoder {
 public:
  explicit PlainEncoder(const Bytes& bytes)
      : bytes_(bytes), head_(32768, -1), chain_(32768, -1), out_{0x78, 0x01} {
    put(3, 3);
    for (std::size_t position = 0; position < bytes_.size();) {
      std::size_t distance = 0;
      const std::size_t length = longest(position, distance);
      if (length < 3) {
        putSymbol(bytes_[position]);
        enter(position++);
        continue;
      }
      putLength(length);
      putDistance(distance);
      for (std::size_t i = 0; i < length; ++i) enter(position++);
    }
    putSymbol(256);
    if (bitCount_ > 0) out_.push_back(static_cast<std::uint8_t>(bits_));
    const uLong adler = ::adler32(1, bytes_.data(), static_cast<uInt>(bytes_.size()));
    for (int shift = 24; shift >= 0; shift -= 8) {
      out_.push_back(static_cast<std::uint8_t>(adler >> shift));
    }
  }
  const Bytes& stream() const { return out_; }

 private:
  std::size_t hash(std::size_t i) const {
    const std::uint32_t three =
        static_cast<std::uint32_t>(bytes_[i] << 16 | bytes_[i + 1] << 8) | bytes_[i + 2];
    return (three * 0x9E3779B1u) >> 17;
  }
  void enter(std::size_t i) {
    if (i + 3 > bytes_.size()) return;
    chain_[i & 0x7fff] = head_[hash(i)];
    head_[hash(i)] = static_cast<long>(i);
  }
  std::size_t longest(std::size_t position, std::size_t& distance) const {
    const std::size_t limit = std::min<std::size_t>(258, bytes_.size() - position);
    std::size_t best = 0;
    if (limit < 3) return best;
    long candidate = head_[hash(position)];
    for (int tried = 0; tried < 48 && candidate >= 0; ++tried) {
      const auto from = static_cast<std::size_t>(candidate);
      if (position - from > 32768) break;
      std::size_t length = 0;
      while (length < limit && bytes_[from + length] == bytes_[position + length]) ++length;
      if (length > best) {
        best = length;
        distance = position - from;
      }
      if (best == limit || chain_[from & 0x7fff] >= candidate) break;
      candidate = chain_[from & 0x7fff];
    }
    return best;
  }
  void put(unsigned value, int count) {  // lowest bit first
    for (int i = 0; i < count; ++i) {
      bits_ |= (value >> i & 1) << bitCount_;
      if (++bitCount_ < 8) continue;
      out_.push_back(static_cast<std::uint8_t>(bits_));
      bits_ = 0;
      bitCount_ = 0;
    }
  }
  void putCode(unsigned value, int count) {  // highest bit first
    while (count-- > 0) put(value >> count & 1, 1);
  }
  void putSymbol(unsigned s) {
    if (s < 144) return putCode(0x30 + s, 8);
    if (s < 256) return putCode(0x190 + s - 144, 9);
    if (s < 280) return putCode(s - 256, 7);
    putCode(0xC0 + s - 280, 8);
  }
  void putLength(std::size_t length) {
    static const unsigned bases[] = {3,  4,  5,  6,  7,  8,  9,  10, 11, 13,  15,  17,  19,  23,
                                     27, 31, 35, 43, 51, 59, 67, 83, 99, 115, 131, 163, 195, 227};
    if (length == 258) return putSymbol(285);
    unsigned code = 27;
    while (bases[code] > length) --code;
    putSymbol(257 + code);
    put(static_cast<unsigned>(length) - bases[code], code < 8 ? 0 : static_cast<int>(code) / 4 - 1);
  }
  void putDistance(std::size_t distance) {
    unsigned code = 0, base = 1;
    const auto extra = [&] { return code < 4 ? 0u : code / 2 - 1; };
    while (distance >= base + (1u << extra())) {
      base += 1u << extra();
      ++code;
    }
    putCode(code, 5);
    put(static_cast<unsigned>(distance) - base, static_cast<int>(extra()));
  }

  const Bytes& bytes_;
  std::vector<long> head_, chain_;
  Bytes out_;
  unsigned bits_ = 0;
  int bitCount_ = 0;
};

Bytes noise(std::size_t size, unsigned values, std::uint64_t seed) {
  Bytes bytes(size);
  for (std::size_t i = 0; i < size; ++i) {
    bytes[i] = static_cast<std::uint8_t>(hashCombine(seed, i) % values);
  }
  return bytes;
}

Bytes operator+(Bytes a, const Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

struct Case {
  std::string name;
  Bytes bytes;
};

std::vector<Case> cases() {
  std::vector<Case> all = {{"nothing", {}},
                           {"one byte", {7}},
                           {"two bytes", {7, 7}},
                           {"three bytes", {7, 7, 7}},
                           {"four bytes", {9, 9, 9, 9}},
                           {"five bytes", {1, 2, 1, 2, 1}},
                           {"nine bits a literal", noise(3000, 256, 1)},
                           {"two values", noise(70000, 2, 2)},
                           {"four values", noise(150000, 4, 3)},
                           {"few values", noise(100000, 20, 4)},
                           {"one value", Bytes(100000, 0)}};
  Bytes period(70000);
  for (std::size_t i = 0; i < period.size(); ++i) period[i] = "abcd"[i % 4];
  all.push_back({"a period of four", period});
  for (const std::size_t run : {50u, 51u, 52u, 99u, 100u, 147u, 258u, 259u, 300u, 516u, 70000u}) {
    // A run behind a longer and a shorter one, whose ends differ.
    all.push_back({"runs of " + std::to_string(run),
                   noise(10, 200, run) + Bytes(run + 40, 5) + noise(5, 200, 8) + Bytes(run, 5) +
                       noise(3, 200, 8) + Bytes(run / 2, 5) + noise(5, 200, 8) + Bytes(run, 5)});
  }
  // Runs of any length behind one another: most candidates lie in earlier runs.
  Bytes runs;
  for (std::uint64_t i = 0; i < 900; ++i) {
    const std::uint64_t draw = mix64(i);
    constexpr std::uint8_t values[] = {0, 0, 255, 7};
    runs = runs + Bytes(draw % 7 == 0 ? 3 + draw % 300 : 3 + draw % 60, values[draw >> 20 & 3]) +
           noise(draw >> 30 & 3, 3, i);
  }
  all.push_back({"many runs", runs});
  // A text that comes again just inside the window, just outside, and where its place has the same
  // low 16 bits again.
  const Bytes text = noise(300, 250, 5);
  for (const std::size_t distance :
       {32767u, 32768u, 32769u, 65535u, 65536u, 65537u, 98304u, 131072u}) {
    all.push_back({"again after " + std::to_string(distance),
                   text + noise(distance - text.size(), 250, 6) + text});
  }
  // A run whose beginning has left the window while its end has not.
  for (const std::size_t inside : {1u, 20u, 44u}) {
    all.push_back({"a run cut by the window " + std::to_string(inside),
                   Bytes(45, 255) + noise(32768 - inside, 250, 12) + Bytes(60, 255)});
  }
  // 60 candidates of one hash; the longest lies behind 47, 48 and more nearer ones.
  Bytes many;
  for (std::uint8_t i = 0; i < 60; ++i) {
    many = many + Bytes{1, 2, 3, static_cast<std::uint8_t>(100 + i), static_cast<std::uint8_t>(i)};
  }
  for (const std::uint8_t i : {10, 11, 12, 13, 14, 15, 59}) {
    many = many + Bytes{1, 2, 3, static_cast<std::uint8_t>(100 + i), i};
  }
  all.push_back({"many candidates", many});
  // Rows of a picture after filtering: flat stretches and small differences that repeat.
  Bytes rows;
  for (int row = 0; row < 60; ++row) {
    rows = rows + Bytes(1, 2) + Bytes(900, 0) + noise(300 + static_cast<std::size_t>(row), 3, 7) +
           noise(200, 9, static_cast<std::uint64_t>(row)) + Bytes(600, 255);
  }
  all.push_back({"rows", rows});
  return all;
}

TEST(Deflate, IsTheGreedyStreamForEveryChunkSize) {
  for (const Case& test : cases()) {
    const PlainEncoder plain(test.bytes);
    for (const std::size_t chunkSize : {0u, 300u, 5000u, 33000u, 40000u}) {
      // Every chunk begins by looking back over the window, which many small ones make slow.
      if (chunkSize == 300 && test.bytes.size() > 20000) continue;
      const Array<std::uint8_t> stream = zlibCompress(test.bytes, chunkSize);
      EXPECT_EQ(Bytes(stream.begin(), stream.end()), plain.stream())
          << test.name << ", chunks of " << chunkSize;
    }
  }
}

TEST(Deflate, InflatesToTheSameBytes) {
  for (const Case& test : cases()) {
    for (const std::size_t chunkSize : {0u, 1000u}) {
      const Array<std::uint8_t> stream = zlibCompress(test.bytes, chunkSize);
      Bytes back(test.bytes.size() + 1);
      uLongf size = back.size();
      ASSERT_EQ(uncompress(back.data(), &size, stream.data(), stream.size()), Z_OK) << test.name;
      back.resize(size);
      EXPECT_EQ(back, test.bytes) << test.name;
    }
  }
}

TEST(Deflate, OfNothingIsAnEmptyBlock) {
  const Array<std::uint8_t> stream = zlibCompress({});
  EXPECT_EQ(Bytes(stream.begin(), stream.end()), (Bytes{0x78, 0x01, 0x03, 0x00, 0, 0, 0, 1}));
}

TEST(Deflate, ThreadsDoNotChangeTheStream) {
  const Bytes bytes = noise(300000, 6, 9) + Bytes(200000, 1) + noise(300000, 40, 10);
  setThreadCount(1);
  const Array<std::uint8_t> one = zlibCompress(bytes, 10000);
  setThreadCount(0);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(zlibCompress(bytes, 10000), one);
}

}  // namespace
}  // namespace kestrane
