// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "core/base/text.h"
#include "core/base/vec.h"

namespace kestrane::detail {

/// Some elements of an array, cut into blocks that are written at once.
class UsdSelection {
 public:
  struct Run {
    std::size_t begin = 0;
    std::size_t end = 0;
  };

  /// The elements of the runs, in their order.
  explicit UsdSelection(std::span<const Run> runs);

  std::size_t blockCount() const { return blocks_.size() - 1; }
  /// The runs of a block; they hold at most `blockSize` elements together.
  std::span<const Run> block(std::size_t index) const {
    return {pieces_.data() + blocks_[index], pieces_.data() + blocks_[index + 1]};
  }
  bool empty() const { return pieces_.empty(); }

  static constexpr std::size_t blockSize = 2048;

 private:
  std::vector<Run> pieces_;
  std::vector<std::size_t> blocks_;  // one more than blocks
};

/// The samples of one attribute, as text in a file of its own until the layer is put together. The
/// file is removed with the object. Every failure throws std::runtime_error; one thread uses a
/// spool.
class UsdSpool {
 public:
  /// Creates the file. `exclusive`: it must be new.
  UsdSpool(std::string declaration, std::string metadata, std::string path, bool exclusive);
  ~UsdSpool();
  UsdSpool(const UsdSpool&) = delete;
  UsdSpool& operator=(const UsdSpool&) = delete;

  const std::string& declaration() const { return declaration_; }  // such as "point3f[] points"
  const std::string& metadata() const { return metadata_; }        // may be empty

  /// One sample whose value is given as text.
  void writeSample(double time, std::string_view value);

  /// One sample of an array: `write(out, index)` writes an element's text, of at most `room`
  /// characters, and returns its end. It is called on several threads, which makes no difference to
  /// the text.
  template <class Write>
  void writeArray(double time, const UsdSelection& selection, std::size_t room,
                  const Write& write) {
    writeBlocks(time, selection, room + 2,
                [&write](char* out, std::span<const UsdSelection::Run> runs) {
                  for (const UsdSelection::Run run : runs) {
                    for (std::size_t i = run.begin; i < run.end; ++i) {
                      out = write(out, i);
                      *out++ = ',';
                      *out++ = ' ';
                    }
                  }
                  return out;
                });
  }

  /// Passes all text on, piece by piece.
  void copyTo(const std::function<void(std::string_view)>& take);

 private:
  using WriteBlock = std::function<char*(char* out, std::span<const UsdSelection::Run> runs)>;

  void writeBlocks(double time, const UsdSelection& selection, std::size_t room,
                   const WriteBlock& write);
  void put(std::string_view text);

  std::string declaration_;
  std::string metadata_;
  std::string path_;
  std::FILE* file_ = nullptr;
};

// Values as USD text. Each writes to `out` and returns the end; room is what writeArray needs.

inline constexpr std::size_t usdNumberRoom = longestNumber;
inline constexpr std::size_t usdVec3Room = 3 * longestNumber + 6;
inline constexpr std::size_t usdVec2Room = 2 * longestNumber + 4;

char* writeUsd(char* out, std::int64_t value);
inline char* writeUsd(char* out, std::int32_t value) {
  return writeUsd(out, std::int64_t{value});
}
inline char* writeUsd(char* out, float value) {
  return writeNumber(out, value);
}
inline char* writeUsd(char* out, Vec2f value) {
  *out++ = '(';
  out = writeNumber(out, value.x);
  *out++ = ',';
  *out++ = ' ';
  out = writeNumber(out, value.y);
  *out++ = ')';
  return out;
}
inline char* writeUsd(char* out, Vec3f value) {
  *out++ = '(';
  out = writeNumber(out, value.x);
  *out++ = ',';
  *out++ = ' ';
  out = writeNumber(out, value.y);
  *out++ = ',';
  *out++ = ' ';
  out = writeNumber(out, value.z);
  *out++ = ')';
  return out;
}

/// A text in quotes, with what would end it or break the line escaped, and replacement characters
/// for what is no UTF-8.
std::string usdQuoted(std::string_view text);

/// The text as an identifier: letters, digits and underscores, no digit first, never empty. Each
/// other character becomes one underscore.
std::string usdIdentifier(std::string_view text);

}  // namespace kestrane::detail
