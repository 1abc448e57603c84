// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/values/search_paths.h"

#include <filesystem>

#include "core/values/udim.h"

namespace kestrane {

namespace fs = std::filesystem;

bool namesFile(const std::string& path) {
  std::error_code error;
  if (fs::exists(path, error)) return !fs::is_directory(path, error);
  const std::string pattern = udimPattern(path);
  return !pattern.empty() && !udimTiles(pattern).empty();
}

SearchPathResolver searchPathResolver(std::vector<std::string> folders) {
  return [folders = std::move(folders)](const std::string& path) {
    if (path.empty() || fs::path(path).is_absolute()) return path;
    for (const std::string& folder : folders) {
      const std::string found = (fs::path(folder) / path).string();
      if (namesFile(found)) return found;
    }
    return path;
  };
}

}  // namespace kestrane
