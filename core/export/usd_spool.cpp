// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/export/usd_spool.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <stdexcept>

#include "core/base/array.h"
#include "core/base/parallel.h"

namespace kestrane::detail {

UsdSelection::UsdSelection(std::span<const Run> runs) : blocks_{0} {
  std::size_t held = 0;
  for (Run run : runs) {
    while (run.begin < run.end) {
      const std::size_t take = std::min(run.end - run.begin, blockSize - held);
      pieces_.push_back({run.begin, run.begin + take});
      run.begin += take;
      held += take;
      if (held < blockSize) continue;
      blocks_.push_back(pieces_.size());
      held = 0;
    }
  }
  if (held > 0) blocks_.push_back(pieces_.size());
}

UsdSpool::UsdSpool(std::string declaration, std::string metadata, std::string path, bool exclusive)
    : declaration_(std::move(declaration)), metadata_(std::move(metadata)), path_(std::move(path)) {
  file_ = std::fopen(path_.c_str(), exclusive ? "w+bx" : "w+b");
  if (file_ == nullptr) throw std::runtime_error("cannot open '" + path_ + "'");
}

UsdSpool::~UsdSpool() {
  std::fclose(file_);
  std::remove(path_.c_str());
}

void UsdSpool::put(std::string_view text) {
  if (std::fwrite(text.data(), 1, text.size(), file_) != text.size()) {
    throw std::runtime_error("cannot write '" + path_ + "'");
  }
}

void UsdSpool::writeSample(double time, std::string_view value) {
  std::string text = "        ";
  appendNumber(text, time);
  put(text.append(": ").append(value).append(",\n"));
}

void UsdSpool::writeBlocks(double time, const UsdSelection& selection, std::size_t room,
                           const WriteBlock& write) {
  if (selection.empty()) return writeSample(time, "[]");
  std::string text = "        ";
  appendNumber(text, time);
  put(text.append(": ["));

  // The text of a wave of blocks is made on all threads while that of the wave before is written to
  // the file, so that no more than two waves are held.
  struct Wave {
    Array<char> text;
    std::vector<std::size_t> sizes;  // of the blocks' texts
  };
  Wave making, made;
  const std::size_t blocks = selection.blockCount();
  const std::size_t perWave = std::min(blocks, 16 * threadCount());
  const std::size_t blockRoom = UsdSelection::blockSize * room + longestNumber;
  for (Wave* wave : {&making, &made}) wave->text.resize(perWave * blockRoom);
  for (std::size_t first = 0; first < blocks || !made.sizes.empty(); first += perWave) {
    const std::size_t count = first < blocks ? std::min(perWave, blocks - first) : 0;
    making.sizes.assign(count, 0);
    kestrane::parallelRange(0, count + 1, 1, [&](std::size_t begin, std::size_t end) {
      for (std::size_t task = begin; task < end; ++task) {
        if (task == 0) {
          for (std::size_t i = 0; i < made.sizes.size(); ++i) {
            put({made.text.data() + i * blockRoom, made.sizes[i]});
          }
          continue;
        }
        char* out = making.text.data() + (task - 1) * blockRoom;
        making.sizes[task - 1] =
            static_cast<std::size_t>(write(out, selection.block(first + task - 1)) - out);
      }
    });
    if (count > 0 && first + count == blocks) making.sizes.back() -= 2;  // the comma at the end
    std::swap(making, made);
  }
  put("],\n");
}

void UsdSpool::copyTo(const std::function<void(std::string_view)>& take) {
  if (std::fflush(file_) != 0 || std::ferror(file_) != 0) {
    throw std::runtime_error("cannot write '" + path_ + "'");
  }
  std::rewind(file_);
  Array<char> buffer(1 << 20);
  std::size_t count = 0;
  while ((count = std::fread(buffer.data(), 1, buffer.size(), file_)) > 0) {
    take({buffer.data(), count});
  }
  if (std::ferror(file_) != 0) throw std::runtime_error("cannot read '" + path_ + "'");
}

char* writeUsd(char* out, std::int64_t value) {
  return std::to_chars(out, out + longestNumber, value).ptr;
}

std::string usdQuoted(std::string_view text) {
  std::string quoted = "\"";
  for (const char c : utf8Text(text)) {
    switch (c) {
      case '"':
      case '\\':
        quoted += '\\';
        quoted += c;
        break;
      case '\n':
        quoted += "\\n";
        break;
      case '\r':
        quoted += "\\r";
        break;
      case '\t':
        quoted += "\\t";
        break;
      default:
        // Other control characters are nothing that a text could mean to show.
        quoted += static_cast<unsigned char>(c) < 0x20 || c == 0x7f ? ' ' : c;
    }
  }
  return quoted += '"';
}

std::string usdIdentifier(std::string_view text) {
  std::string name;
  for (const char c : text) {
    const bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
    const bool digit = c >= '0' && c <= '9';
    // The bytes of a character beyond ASCII after its first are left out.
    if ((static_cast<unsigned char>(c) & 0xc0) == 0x80) continue;
    if (digit && name.empty()) name += '_';
    name += letter || digit ? c : '_';
  }
  return name.empty() ? "_" : name;
}

}  // namespace kestrane::detail
