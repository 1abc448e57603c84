// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <future>
#include <list>
#include <map>
#include <mutex>
#include <string>
#include <utility>

#include "core/values/texture.h"

namespace kestrane {

namespace detail {

/// Textures by path or pattern, the least recently asked for dropped when they grow too large.
/// Whoever holds a texture keeps it beyond that.
class TextureCache {
 public:
  explicit TextureCache(std::size_t byteLimit) : byteLimit_(byteLimit) {}

  TexturePtr load(const std::string& path);
  /// How many textures are held.
  std::size_t size() const;

 private:
  struct Entry {
    std::string key;
    std::uint64_t stamp = 0;
    TexturePtr texture;
  };
  using Entries = std::list<Entry>;
  /// A decode under way, by key and stamp, for which others wait.
  using Loads = std::map<std::pair<std::string, std::uint64_t>, std::shared_future<TexturePtr>>;

  Entries take(Entry entry);

  mutable std::mutex mutex_;
  std::size_t byteLimit_;
  Entries entries_;  // the newest first
  std::map<std::string, Entries::iterator> byKey_;
  Loads loads_;
};

/// The limit in bytes that a value of KESTRANE_TEXTURE_CACHE_MB asks for; null where it is not set.
/// A text that is no number counts as not set.
std::size_t textureCacheLimit(const char* megabytes);

}  // namespace detail

}  // namespace kestrane
