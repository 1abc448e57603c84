// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/values/texture_cache.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <optional>

#include "core/base/errors.h"
#include "core/base/hash.h"
#include "core/values/udim.h"

namespace kestrane {

namespace detail {

namespace {

namespace fs = std::filesystem;

using Stamp = std::optional<std::uint64_t>;

/// What changes when the file does; none if there is no such file.
Stamp fileStamp(const fs::path& path) {
  std::error_code error;
  if (!fs::is_regular_file(path, error)) return std::nullopt;
  const auto time = fs::last_write_time(path, error).time_since_epoch().count();
  const std::uint64_t size = error ? 0 : fs::file_size(path, error);
  if (error) return std::nullopt;
  return hashCombine(hashCombine(0x7E87, static_cast<std::uint64_t>(time)), size);
}

/// What changes when a tile comes, goes or is written anew; none if there is no such folder.
Stamp patternStamp(const std::string& pattern) {
  fs::path folder = fs::path(pattern).parent_path();
  if (folder.empty()) folder = ".";
  std::error_code error;
  if (!fs::is_directory(folder, error)) return std::nullopt;
  const auto time = fs::last_write_time(folder, error).time_since_epoch().count();
  if (error) return std::nullopt;
  std::uint64_t stamp = hashCombine(0x7E87, static_cast<std::uint64_t>(time));
  // A tile that is written over leaves its folder as it was.
  for (const int tile : udimTiles(pattern)) {
    stamp = hashCombine(stamp, fileStamp(udimTilePath(pattern, tile)).value_or(0));
  }
  return stamp;
}

TexturePtr makeTexture(const std::string& path, const std::string& pattern) {
  std::shared_ptr<Texture> texture;
  if (!pattern.empty()) {
    texture = std::make_shared<Texture>(pattern);
  } else {
    Image image = decodeImage(path);
    texture = std::make_shared<Texture>(image.width, image.height, std::move(image.pixels),
                                        image.bitDepth);
  }
  texture->name = pattern.empty() ? path : pattern;
  return texture;
}

}  // namespace

std::size_t textureCacheLimit(const char* megabytes) {
  constexpr std::size_t mebibyte = 1048576;
  constexpr long long most = static_cast<long long>(SIZE_MAX / mebibyte / 2);
  long long count = 1024;
  if (megabytes != nullptr && *megabytes != '\0') {
    char* end = nullptr;
    const long long value = std::strtoll(megabytes, &end, 10);
    if (end != megabytes && *end == '\0') count = value;
  }
  return static_cast<std::size_t>(std::clamp(count, 1LL, most)) * mebibyte;
}

std::size_t TextureCache::size() const {
  const std::lock_guard lock(mutex_);
  return entries_.size();
}

/// Puts an entry in front. Returns what had to go for it, to be freed when the lock is released.
TextureCache::Entries TextureCache::take(Entry entry) {
  Entries gone;
  if (const auto old = byKey_.find(entry.key); old != byKey_.end()) {
    gone.splice(gone.end(), entries_, old->second);
    byKey_.erase(old);
  }
  entries_.push_front(std::move(entry));
  byKey_[entries_.front().key] = entries_.begin();
  std::size_t total = 0;
  for (const Entry& held : entries_) total += held.texture->byteSize();
  while (entries_.size() > 1 && total > byteLimit_) {
    total -= std::min(total, entries_.back().texture->byteSize());
    byKey_.erase(entries_.back().key);
    gone.splice(gone.end(), entries_, std::prev(entries_.end()));
  }
  return gone;
}

TexturePtr TextureCache::load(const std::string& path) {
  const std::string pattern = udimPattern(path);
  const Stamp stamp = pattern.empty() ? fileStamp(path) : patternStamp(pattern);
  if (!stamp) throw TextureError("cannot read '" + path + "': file not found");
  const std::string& key = pattern.empty() ? path : pattern;

  std::promise<TexturePtr> promise;
  {
    std::unique_lock lock(mutex_);
    const auto held = byKey_.find(key);
    if (held != byKey_.end() && held->second->stamp == *stamp) {
      entries_.splice(entries_.begin(), entries_, held->second);
      return held->second->texture;
    }
    const auto [load, isOurs] = loads_.try_emplace({key, *stamp});
    if (!isOurs) {
      const std::shared_future<TexturePtr> theirs = load->second;
      lock.unlock();
      return theirs.get();
    }
    load->second = promise.get_future().share();
  }

  Entries gone;
  try {
    TexturePtr texture = makeTexture(path, pattern);
    const std::lock_guard lock(mutex_);
    gone = take({key, *stamp, texture});
    loads_.erase({key, *stamp});
    promise.set_value(texture);
    return texture;
  } catch (...) {
    const std::lock_guard lock(mutex_);
    loads_.erase({key, *stamp});
    promise.set_exception(std::current_exception());
    throw;
  }
}

}  // namespace detail

TexturePtr loadTexture(const std::string& path) {
  // Never destroyed: textures may be asked for while static objects go.
  static auto* cache =
      new detail::TextureCache(detail::textureCacheLimit(std::getenv("KESTRANE_TEXTURE_CACHE_MB")));
  return cache->load(path);
}

}  // namespace kestrane
