// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

// What is read off a whole set: its bounds, block by block, and its hash.

#include <algorithm>
#include <array>
#include <bit>

#include "core/base/hash.h"
#include "core/base/lanes.h"
#include "core/base/parallel.h"
#include "core/data/polyline.h"
#include "core/data/strand_set.h"

namespace kestrane {

namespace {

/// Strands are bounded in blocks of 2048, so that a change of a few is a change of a few blocks.
constexpr unsigned blockShift = 11;

std::size_t blockCount(std::size_t strands) {
  return (strands + (1u << blockShift) - 1) >> blockShift;
}

/// Bounds of points, in the arrangement in which four points fill three rows of lanes.
class PointBounds {
 public:
  void add(std::span<const Vec3f> points) {
    constexpr std::size_t each = 4;
    std::size_t k = 0;
    for (; k + each <= points.size(); k += each) {
      for (std::size_t row = 0; row < 3; ++row) {
        addRow(row, load4(&points[k].x + 4 * row));
      }
    }
    for (; k < points.size(); ++k) {
      const Vec3f p = points[k];
      addRow(0, Float4{p.x, p.y, p.z, p.x});
    }
  }
  void writeTo(Extent& extent) const {
    float differences = 0.0f;
    for (int row = 0; row < 3; ++row) {
      for (int lane = 0; lane < 4; ++lane) {
        const int axis = (4 * row + lane) % 3;
        extent.min[axis] = std::min(extent.min[axis], lowest_[row][lane]);
        extent.max[axis] = std::max(extent.max[axis], highest_[row][lane]);
        differences += differences_[row][lane];
      }
    }
    extent.finite = differences == 0.0f;
  }

 private:
  void addRow(std::size_t row, Float4 values) {
    lowest_[row] = lower(values, lowest_[row]);
    highest_[row] = higher(values, highest_[row]);
    differences_[row] = differences_[row] + (values - values);
  }

  Float4 lowest_[3] = {splat(FLT_MAX), splat(FLT_MAX), splat(FLT_MAX)};
  Float4 highest_[3] = {splat(-FLT_MAX), splat(-FLT_MAX), splat(-FLT_MAX)};
  // Stay 0 unless a coordinate is infinite or not a number.
  Float4 differences_[3] = {splat(0.0f), splat(0.0f), splat(0.0f)};
};

Extent blockExtent(const StrandSet& set, std::size_t block) {
  Extent extent;
  PointBounds bounds;
  const std::size_t first = block << blockShift;
  const std::size_t last = std::min(set.strandCount(), first + (1u << blockShift));
  for (std::size_t strand = first; strand < last; ++strand) {
    extent.maxLength = std::max(extent.maxLength, polylineLength(set.strandPoints(strand)));
  }
  bounds.add(
      {set.points().data() + set.offsets()[first], set.points().data() + set.offsets()[last]});
  bounds.writeTo(extent);
  return extent;
}

/// The seed and then every value, as its bits.
template <class T>
std::uint64_t foldFloats(std::uint64_t seed, const Array<T>& values) {
  static_assert(sizeof(T) % sizeof(float) == 0);
  for (const T& value : values) {
    const auto parts = std::bit_cast<std::array<std::uint32_t, sizeof(T) / sizeof(float)>>(value);
    for (const std::uint32_t bits : parts) seed = hashCombine(seed, bits);
  }
  return seed;
}

}  // namespace

void StrandSet::dropExtents() {
  if (!extentValid_.load(std::memory_order_acquire)) return;
  const std::lock_guard lock(cacheMutex_);
  extentCache_.reset();
  extentBlocks_.reset();
  extentValid_.store(false, std::memory_order_release);
}

std::shared_ptr<const std::vector<Extent>> StrandSet::knownExtentBlocks() const {
  if (!extentValid_.load(std::memory_order_acquire)) return nullptr;
  const std::lock_guard lock(cacheMutex_);
  return extentBlocks_;
}

Extent StrandSet::keepExtents(std::vector<Extent> blocks) const {
  auto whole = std::make_shared<Extent>();
  for (const Extent& block : blocks) {
    whole->min = min(whole->min, block.min);
    whole->max = max(whole->max, block.max);
    whole->maxLength = std::max(whole->maxLength, block.maxLength);
    whole->finite = whole->finite && block.finite;
  }
  auto kept = std::make_shared<const std::vector<Extent>>(std::move(blocks));
  const std::lock_guard lock(cacheMutex_);
  extentCache_ = whole;
  extentBlocks_ = std::move(kept);
  extentValid_.store(true, std::memory_order_release);
  return *whole;
}

Extent StrandSet::extent() const {
  if (extentValid_.load(std::memory_order_acquire)) {
    const std::lock_guard lock(cacheMutex_);
    return *extentCache_;
  }
  std::vector<Extent> blocks(blockCount(strandCount()));
  parallelRange(0, blocks.size(), 1, [&](std::size_t first, std::size_t last) {
    for (std::size_t block = first; block < last; ++block)
      blocks[block] = blockExtent(*this, block);
  });
  return keepExtents(std::move(blocks));
}

Extent StrandSet::extentAfter(const StrandSet& previous, const StrandChanges& changes) const {
  if (extentValid_.load(std::memory_order_acquire)) return extent();
  const auto known = previous.knownExtentBlocks();
  const bool reusable = known && !changes.all && previous.strandCount() == strandCount() &&
                        previous.pointCount() == pointCount() &&
                        known->size() == blockCount(strandCount());
  if (!reusable) return extent();
  std::vector<Extent> blocks = *known;
  std::vector<std::size_t> touched;
  for (const std::uint32_t strand : changes.strands) {
    const std::size_t block = strand >> blockShift;
    if (block < blocks.size() && (touched.empty() || touched.back() != block)) {
      touched.push_back(block);
    }
  }
  parallelRange(0, touched.size(), 1, [&](std::size_t first, std::size_t last) {
    for (std::size_t i = first; i < last; ++i) blocks[touched[i]] = blockExtent(*this, touched[i]);
  });
  return keepExtents(std::move(blocks));
}

std::uint64_t StrandSet::contentHash() const {
  const auto& starts = offsets();
  std::uint64_t hash = mix64(strandCount());
  for (std::size_t i = 0; i < strandCount(); ++i) {
    const StrandRoot root = roots()[i];
    hash = hashCombine(hash, ids()[i]);
    hash = hashCombine(hash, static_cast<std::uint32_t>(root.face));
    hash = hashNumber(hash, root.u);
    hash = hashNumber(hash, root.v);
    hash = hashCombine(hash, starts[i]);
  }
  hash = foldFloats(hash, points());
  hash = foldFloats(hash, widths());
  for (const Channels* channels : {&strandChannels_, &pointChannels_}) {
    for (const auto& [name, channel] : *channels) {
      const auto& values = channel.values.read();
      hash = hashString(hash, name);
      hash = hashCombine(hash, values.size());
      hash = foldFloats(hash, values);
    }
  }
  return hash;
}

}  // namespace kestrane
