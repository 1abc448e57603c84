// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

// What is read off a whole set: its bounds, piece by piece, and its hash.

#include <algorithm>
#include <array>
#include <bit>

#include "core/base/hash.h"
#include "core/base/lanes.h"
#include "core/base/parallel.h"
#include "core/data/extent_finder.h"
#include "core/data/polyline.h"
#include "core/data/strand_set.h"

namespace kestrane {

namespace {

/// Strands are bounded in pieces of 8: where a few in a hundred change, as they do when a guide
/// moves, most pieces hold none of them, however the strands are ordered.
constexpr std::size_t pieceStrands = 8;

std::size_t pieceCount(std::size_t strands) {
  return (strands + pieceStrands - 1) / pieceStrands;
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

/// The length of the longest strand from first to last.
float longestOf(const StrandSet& set, std::size_t first, std::size_t last) {
  const std::uint64_t* const offsets = set.offsets().data();
  // Segments of all strands at once, with those between two strands, which belong to neither.
  constexpr std::size_t most = 512;
  float lengths[most];
  const std::size_t points = offsets[last] - offsets[first];
  float longest = 0.0f;
  if (points > most) {
    for (std::size_t strand = first; strand < last; ++strand) {
      longest = std::max(longest, polylineLength(set.strandPoints(strand)));
    }
    return longest;
  }
  segmentLengths({set.points().data() + offsets[first], points}, lengths);
  for (std::size_t strand = first; strand < last; ++strand) {
    float sum = 0.0f;
    for (std::uint64_t k = offsets[strand]; k + 1 < offsets[strand + 1]; ++k) {
      sum += lengths[k - offsets[first]];
    }
    longest = std::max(longest, sum);
  }
  return longest;
}

Extent pieceExtent(const StrandSet& set, std::size_t piece) {
  const std::size_t first = piece * pieceStrands;
  const std::size_t last = std::min(set.strandCount(), first + pieceStrands);
  const Vec3f* const points = set.points().data();
  PointBounds bounds;
  bounds.add({points + set.offsets()[first], points + set.offsets()[last]});
  Extent extent;
  bounds.writeTo(extent);
  extent.maxLength = longestOf(set, first, last);
  return extent;
}

void fold(Extent& whole, const Extent& part) {
  whole.min = min(whole.min, part.min);
  whole.max = max(whole.max, part.max);
  whole.maxLength = std::max(whole.maxLength, part.maxLength);
  whole.finite = whole.finite && part.finite;
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
  extentPieces_.reset();
  extentValid_.store(false, std::memory_order_release);
}

ExtentPiecesPtr StrandSet::extentPieces() const {
  if (!extentValid_.load(std::memory_order_acquire)) return nullptr;
  const std::lock_guard lock(cacheMutex_);
  return extentPieces_;
}

Extent StrandSet::keepExtents(std::vector<Extent> pieces) const {
  constexpr std::size_t group = 256;
  std::vector<Extent> groups((pieces.size() + group - 1) / group);
  parallelRange(0, groups.size(), 16, [&](std::size_t first, std::size_t last) {
    for (std::size_t g = first; g < last; ++g) {
      const std::size_t end = std::min(pieces.size(), (g + 1) * group);
      for (std::size_t i = g * group; i < end; ++i) fold(groups[g], pieces[i]);
    }
  });
  auto whole = std::make_shared<Extent>();
  for (const Extent& part : groups) fold(*whole, part);
  auto kept = std::make_shared<const ExtentPieces>(
      ExtentPieces{strandCount(), pointCount(), std::move(pieces)});
  const std::lock_guard lock(cacheMutex_);
  extentCache_ = whole;
  extentPieces_ = std::move(kept);
  extentValid_.store(true, std::memory_order_release);
  return *whole;
}

ExtentFinder::ExtentFinder(const StrandSet& set)
    : set_(set), pieces_(pieceCount(set.strandCount())) {}

void ExtentFinder::find(std::size_t block) {
  static_assert(blockStrands % pieceStrands == 0);
  for (std::size_t i = begin(block) / pieceStrands; i < pieceCount(end(block)); ++i) {
    pieces_[i] = pieceExtent(set_, i);
  }
}

Extent ExtentFinder::keep() {
  return set_.keepExtents(std::move(pieces_));
}

Extent StrandSet::extent() const {
  if (extentValid_.load(std::memory_order_acquire)) {
    const std::lock_guard lock(cacheMutex_);
    return *extentCache_;
  }
  ExtentFinder finder(*this);
  parallelRange(0, finder.blockCount(), 8, [&](std::size_t first, std::size_t last) {
    for (std::size_t block = first; block < last; ++block) finder.find(block);
  });
  return finder.keep();
}

Extent StrandSet::extentAfter(const ExtentPiecesPtr& previous, const StrandChanges& changes) const {
  const bool known = extentValid_.load(std::memory_order_acquire);
  const bool reusable = previous && !changes.all && previous->strandCount == strandCount() &&
                        previous->pointCount == pointCount();
  if (known || !reusable) return extent();
  std::vector<Extent> pieces = previous->pieces;
  std::vector<std::size_t> touched;
  for (const std::uint32_t strand : changes.strands) {
    const std::size_t piece = strand / pieceStrands;
    if (piece < pieces.size() && (touched.empty() || touched.back() != piece)) {
      touched.push_back(piece);
    }
  }
  parallelRange(0, touched.size(), 64, [&](std::size_t first, std::size_t last) {
    for (std::size_t i = first; i < last; ++i) {
      pieces[touched[i]] = pieceExtent(*this, touched[i]);
    }
  });
  return keepExtents(std::move(pieces));
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
