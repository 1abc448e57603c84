// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/graph/map_files.h"

#include <filesystem>

#include "core/base/hash.h"
#include "core/values/udim.h"

namespace kestrane {

namespace {

namespace fs = std::filesystem;

std::string resolved(const std::string& name, const EvalContext& context) {
  if (context.resources == nullptr || !context.resources->resolvePath) return name;
  return context.resources->resolvePath(name);
}

}  // namespace

bool isMapFile(const std::string& name, const EvalContext& context) {
  if (name.empty()) return false;
  const std::string path = resolved(name, context);
  std::error_code error;
  return fs::is_regular_file(path, error) || !udimPattern(path).empty();
}

std::shared_ptr<const Texture> openMapFile(const std::string& name, const EvalContext& context) {
  return loadTexture(resolved(name, context));
}

std::uint64_t mapFileKey(const std::string& name, const EvalContext& context) {
  const std::string path = resolved(name, context);
  std::error_code error;
  const fs::path file = fs::exists(path, error) ? fs::path(path) : fs::path(path).parent_path();
  const auto time = fs::last_write_time(file, error);
  if (error) return 0;
  std::uint64_t key = hashString(0xF11E, path);
  key = hashCombine(key, static_cast<std::uint64_t>(time.time_since_epoch().count()));
  return hashCombine(key, fs::is_regular_file(file, error) ? fs::file_size(file, error) : 0);
}

}  // namespace kestrane
