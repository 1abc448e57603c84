// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/session/groom_text.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "core/base/array.h"
#include "core/base/errors.h"
#include "core/base/json.h"
#include "core/base/parallel.h"
#include "core/base/text.h"
#include "core/session/number_text.h"

namespace kestrane {

namespace {

// Other writers of this format mark the places of arrays by strings that begin so. A file that
// shows one to the user's program is broken, so a name or path that happens to hold the word is
// written with an escape, which reads back the same.
constexpr std::string_view marker = "@kestrane.floats:";
constexpr std::string_view escapedMarker = "\\u0040kestrane.floats:";

[[noreturn]] void failNonFinite(std::string_view name, std::size_t index) {
  throw GroomFileError("groom file: '" + std::string(name) +
                       "' holds a non-finite value at index " + std::to_string(index));
}

/// Looks at the numbers within a value; `index` counts them.
void checkNumbers(std::string_view name, const Json& json, std::size_t& index) {
  if (json.is_number_float() && !std::isfinite(json.get<double>())) failNonFinite(name, index);
  if (json.is_number()) ++index;
  if (!json.is_structured()) return;
  for (const Json& element : json) checkNumbers(name, element, index);
}

template <class Tuple>
std::span<const float> flat(std::span<const Tuple> values) {
  return {reinterpret_cast<const float*>(values.data()),
          values.size() * (sizeof(Tuple) / sizeof(float))};
}

}  // namespace

void GroomText::key(std::string_view name) {
  element();
  value(name, name);
  text_ += ':';
}

void GroomText::open(char bracket) {
  text_ += bracket;
}

void GroomText::close(char bracket) {
  text_ += bracket;
}

void GroomText::element() {
  if (!text_.empty() && text_.back() != '{' && text_.back() != '[') text_ += ',';
}

void GroomText::value(std::string_view name, const Json& json) {
  std::size_t index = 0;
  checkNumbers(name, json, index);
  try {
    append(json.dump());
  } catch (const Json::exception&) {
    throw GroomFileError("groom file: '" + std::string(name) + "' is not UTF-8 text");
  }
}

void GroomText::text(std::string json) {
  append(json);
}

void GroomText::append(std::string_view json) {
  for (;;) {
    const std::size_t found = json.find(marker);
    text_ += json.substr(0, found);
    if (found == std::string_view::npos) return;
    text_ += escapedMarker;
    json.remove_prefix(found + marker.size());
  }
}

void GroomText::integer(std::int64_t number) {
  text_ += std::to_string(number);
}

void GroomText::number(std::string_view name, float number) {
  checkFinite(name, std::span(&number, 1));
  char buffer[longestListed + longestNumber];
  text_.append(buffer, writeNumbers(std::span(&number, 1), false, buffer));
}

void GroomText::number(std::string_view name, double number) {
  checkFinite(name, std::span(&number, 1));
  text_ += Json(number).dump();
}

void GroomText::numbers(std::string_view name, std::span<const float> values) {
  checkFinite(name, values);
  text_ += "[]";
  cuts_.push_back({.place = text_.size() - 1, .floats = values});
}

void GroomText::numbers(std::string_view name, std::span<const Vec2f> values) {
  numbers(name, flat(values));
}
void GroomText::numbers(std::string_view name, std::span<const Vec3f> values) {
  numbers(name, flat(values));
}
void GroomText::numbers(std::string_view name, std::span<const Vec4f> values) {
  numbers(name, flat(values));
}

void GroomText::checkFinite(std::string_view name, std::span<const float> values) {
  const std::size_t bad = firstNonFinite(values);
  if (bad != values.size()) failNonFinite(name, bad);
}
void GroomText::checkFinite(std::string_view name, std::span<const double> values) {
  for (std::size_t i = 0; i < values.size(); ++i) {
    if (!std::isfinite(values[i])) failNonFinite(name, i);
  }
}
void GroomText::checkFinite(std::string_view name, std::span<const Vec3f> values) {
  checkFinite(name, flat(values));
}

void GroomText::integers(std::span<const std::int32_t> values) {
  text_ += "[]";
  cuts_.push_back({.place = text_.size() - 1, .integers = values});
}

struct GroomText::Piece {
  std::string_view before;
  std::span<const float> floats;
  std::span<const std::int32_t> integers;
  bool continued = false;  // not the array's first slice

  std::size_t room() const {
    return before.size() + (floats.size() + integers.size()) * longestListed;
  }
};

std::vector<GroomText::Piece> GroomText::pieces() const {
  constexpr std::size_t slice = 1 << 14;  // numbers
  const std::string_view text = text_;
  std::vector<Piece> pieces;
  std::size_t done = 0;
  for (const Cut& cut : cuts_) {
    pieces.push_back({.before = text.substr(done, cut.place - done)});
    done = cut.place;
    for (std::size_t begin = 0; begin < cut.size(); begin += slice) {
      if (begin > 0) pieces.push_back({.continued = true});
      const std::size_t count = std::min(slice, cut.size() - begin);
      if (cut.floats.empty()) pieces.back().integers = cut.integers.subspan(begin, count);
      if (!cut.floats.empty()) pieces.back().floats = cut.floats.subspan(begin, count);
    }
  }
  pieces.push_back({.before = text.substr(done)});
  return pieces;
}

void GroomText::stream(const std::function<void(std::string_view)>& sink) const {
  // Some chunks of pieces at a time, so that memory stays small while every thread has work.
  constexpr std::size_t chunkRoom = 1 << 19;
  constexpr std::size_t chunksAtOnce = 64;
  struct Chunk {
    std::span<const Piece> pieces;
    Array<char> text;
    std::size_t size = 0;
  };
  const std::vector<Piece> all = pieces();
  std::vector<Chunk> chunks(chunksAtOnce);
  for (std::size_t done = 0; done < all.size();) {
    std::size_t used = 0;
    while (used < chunks.size() && done < all.size()) {
      const std::size_t first = done;
      std::size_t room = longestNumber;
      while (done < all.size() && (done == first || room + all[done].room() <= chunkRoom)) {
        room += all[done++].room();
      }
      Chunk& chunk = chunks[used++];
      chunk.pieces = std::span(all).subspan(first, done - first);
      if (chunk.text.size() < room) chunk.text.resize(room);
    }
    parallelRange(0, used, 1, [&](std::size_t begin, std::size_t end) {
      for (std::size_t i = begin; i < end; ++i) {
        char* out = chunks[i].text.data();
        for (const Piece& piece : chunks[i].pieces) {
          out = std::copy(piece.before.begin(), piece.before.end(), out);
          out = writeNumbers(piece.floats, piece.continued, out);
          out = writeNumbers(piece.integers, piece.continued, out);
        }
        chunks[i].size = out - chunks[i].text.data();
      }
    });
    for (std::size_t i = 0; i < used; ++i) sink({chunks[i].text.data(), chunks[i].size});
  }
}

std::size_t GroomText::expectedSize() const {
  std::size_t size = text_.size();
  for (const Cut& cut : cuts_) size += cut.size() * 10;
  return size;
}

}  // namespace kestrane
