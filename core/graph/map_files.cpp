// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/graph/map_files.h"

#include <algorithm>
#include <filesystem>
#include <string_view>
#include <vector>

#include "core/base/hash.h"
#include "core/values/udim.h"

namespace kestrane {

namespace {

namespace fs = std::filesystem;

bool isFile(const std::string& path) {
  std::error_code error;
  return fs::is_regular_file(path, error);
}

/// The name with a suffix in front of its extension.
std::string withSuffix(const std::string& path, std::string_view suffix) {
  const std::size_t name = path.find_last_of("/\\") + 1;  // 0 where there is no folder
  const std::size_t dot = path.find_last_of('.');
  const bool hasExtension = dot != std::string::npos && dot > name;
  return std::string(path).insert(hasExtension ? dot : path.size(), suffix);
}

/// The smaller copy of an image that lies beside it, "skin_preview.png" for "skin.png"; empty where
/// there is none. A set of tiles has one where each tile has.
std::string previewCopy(const std::string& path) {
  constexpr std::string_view suffix = "_preview";
  const std::string pattern = udimPattern(path);
  if (pattern.empty()) {
    std::string copy = withSuffix(path, suffix);
    return isFile(copy) ? copy : std::string();
  }
  std::string copy = withSuffix(pattern, suffix);
  const std::vector<int> tiles = udimTiles(pattern);
  const bool isWhole = std::all_of(tiles.begin(), tiles.end(),
                                   [&](int tile) { return isFile(udimTilePath(copy, tile)); });
  return isWhole && !tiles.empty() ? copy : std::string();
}

/// The file to read: for display and previews the smaller copy, where there is one.
std::string resolved(const std::string& name, const EvalContext& context) {
  std::string path = name;
  if (context.resources != nullptr && context.resources->resolvePath) {
    path = context.resources->resolvePath(name);
  }
  if (path.empty() || !(context.viewport || context.preview)) return path;
  std::string copy = previewCopy(path);
  return copy.empty() ? path : copy;
}

}  // namespace

bool isMapFile(const std::string& name, const EvalContext& context) {
  if (name.empty()) return false;
  const std::string path = resolved(name, context);
  return isFile(path) || !udimTiles(udimPattern(path)).empty();
}

std::shared_ptr<const Texture> openMapFile(const std::string& name, const EvalContext& context) {
  return loadTexture(resolved(name, context));
}

std::uint64_t mapFileKey(const std::string& name, const EvalContext& context) {
  const std::string path = resolved(name, context);
  const std::uint64_t stamp = textureStamp(path);
  return stamp != 0 ? hashCombine(hashString(0xF11E, path), stamp) : 0;
}

}  // namespace kestrane
