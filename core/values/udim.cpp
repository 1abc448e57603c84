// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/values/udim.h"

#include <algorithm>
#include <filesystem>
#include <string_view>

namespace kestrane {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view token = "<UDIM>";

std::size_t nameStart(std::string_view path) {
  const std::size_t separator = path.find_last_of("/\\");
  return separator == std::string_view::npos ? 0 : separator + 1;
}

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

/// The tile that four characters spell; 0 if they spell none.
int tileOf(std::string_view digits) {
  int tile = 0;
  for (const char c : digits) {
    if (!isDigit(c)) return 0;
    tile = 10 * tile + (c - '0');
  }
  return tile >= firstUdimTile && tile <= lastUdimTile ? tile : 0;
}

/// Where a tile number stands alone in a file name, or npos.
std::size_t findTile(std::string_view name) {
  const auto apart = [&](std::size_t at) {
    return at >= name.size() || std::string_view("-._").find(name[at]) != std::string_view::npos;
  };
  for (std::size_t at = 0; at + 4 <= name.size(); ++at) {
    if ((at == 0 || apart(at - 1)) && apart(at + 4) && tileOf(name.substr(at, 4)) != 0) return at;
  }
  return std::string_view::npos;
}

/// Where the token stands in a pattern: in its file name, if it is there.
std::size_t findToken(const std::string& pattern) {
  const std::size_t inName = pattern.find(token, nameStart(pattern));
  return inName != std::string::npos ? inName : pattern.find(token);
}

}  // namespace

std::string udimTilePath(const std::string& pattern, int tile) {
  const std::size_t at = findToken(pattern);
  if (at == std::string::npos) return pattern;
  std::string path = pattern;
  return path.replace(at, token.size(), std::to_string(tile));
}

std::vector<int> udimTiles(const std::string& pattern) {
  std::vector<int> tiles;
  const std::size_t start = nameStart(pattern), at = findToken(pattern);
  if (at == std::string::npos || at < start) return tiles;
  const std::string_view before = std::string_view(pattern).substr(start, at - start);
  const std::string_view after = std::string_view(pattern).substr(at + token.size());
  std::error_code error;
  fs::directory_iterator entry(start == 0 ? "." : pattern.substr(0, start), error);
  while (!error && entry != fs::directory_iterator()) {
    const std::string name = entry->path().filename().string();
    if (name.size() == before.size() + 4 + after.size() && name.starts_with(before) &&
        name.ends_with(after)) {
      const int tile = tileOf(std::string_view(name).substr(before.size(), 4));
      if (tile != 0) tiles.push_back(tile);
    }
    entry.increment(error);
  }
  std::sort(tiles.begin(), tiles.end());
  return tiles;
}

std::string udimPattern(const std::string& path) {
  const std::size_t start = nameStart(path);
  for (const std::string_view spelling :
       {token, std::string_view("<udim>"), std::string_view("%(UDIM)d")}) {
    const std::size_t at = path.find(spelling, start);
    if (at == std::string::npos) continue;
    std::string pattern = path;
    return pattern.replace(at, spelling.size(), token);
  }
  const std::size_t at = findTile(std::string_view(path).substr(start));
  if (at == std::string_view::npos) return {};
  std::string pattern = path;
  pattern.replace(start + at, 4, token);
  const int own = tileOf(std::string_view(path).substr(start + at, 4));
  const std::vector<int> tiles = udimTiles(pattern);
  const bool others =
      std::any_of(tiles.begin(), tiles.end(), [&](int tile) { return tile != own; });
  return others ? pattern : std::string();
}

}  // namespace kestrane
