// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/values/texture_cache.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <filesystem>
#include <optional>

#include "core/base/errors.h"
#include "core/base/hash.h"
#include "core/base/text.h"
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

/// The image file or, of UDIM tiles, the pattern that a path names, with what stands there now.
struct Source {
  std::string name;
  bool isPattern = false;
  Stamp stamp;
};

Source findSource(const std::string& path) {
  std::string pattern = udimPattern(path);
  if (pattern.empty()) return {path, false, fileStamp(path)};
  const Stamp stamp = patternStamp(pattern);
  return {std::move(pattern), true, stamp};
}

TexturePtr makeTexture(const Source& source) {
  std::shared_ptr<Texture> texture;
  if (source.isPattern) {
    texture = std::make_shared<Texture>(source.name);
  } else {
    Image image = decodeImage(source.name);
    texture = std::make_shared<Texture>(image.width, image.height, std::move(image.pixels),
                                        image.bitDepth);
  }
  texture->name = source.name;
  return texture;
}

}  // namespace

std::size_t textureCacheLimit(const char* megabytes) {
  constexpr double mebibyte = 1048576.0, most = 0x1p62;
  double count = 1024.0;
  const std::string_view text = trimmed(megabytes != nullptr ? megabytes : "");
  double value = 0.0;
  const auto read = std::from_chars(text.data(), text.data() + text.size(), value);
  const bool whole = read.ec == std::errc() && read.ptr == text.data() + text.size();
  if (whole && value == value) count = value;
  return static_cast<std::size_t>(std::min(std::max(count, 1.0) * mebibyte, most));
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
  const Source source = findSource(path);
  if (!source.stamp) throw TextureError("cannot read '" + path + "': file not found");
  const std::pair key(source.name, *source.stamp);

  std::promise<TexturePtr> promise;
  {
    std::unique_lock lock(mutex_);
    const auto held = byKey_.find(source.name);
    if (held != byKey_.end() && held->second->stamp == *source.stamp) {
      entries_.splice(entries_.begin(), entries_, held->second);
      return held->second->texture;
    }
    const auto [load, isOurs] = loads_.try_emplace(key);
    if (!isOurs) {
      const std::shared_future<TexturePtr> theirs = load->second;
      lock.unlock();
      return theirs.get();
    }
    load->second = promise.get_future().share();
  }

  Entries gone;
  try {
    TexturePtr texture = makeTexture(source);
    const std::lock_guard lock(mutex_);
    gone = take({source.name, *source.stamp, texture});
    loads_.erase(key);
    promise.set_value(texture);
    return texture;
  } catch (...) {
    const std::lock_guard lock(mutex_);
    loads_.erase(key);
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

std::uint64_t textureStamp(const std::string& path) {
  return detail::findSource(path).stamp.value_or(0);
}

}  // namespace kestrane
