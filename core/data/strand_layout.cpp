// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

// What changes which strands a set holds: growing, clearing, laying out anew, picking.

#include <functional>
#include <numeric>
#include <stdexcept>
#include <utility>

#include "core/base/bulk.h"
#include "core/data/strand_set.h"

namespace kestrane {

namespace {

template <class T>
void shrinkTo(SharedArray<T>& array, std::size_t count, std::mutex& mutex) {
  if (array.read().size() > count) array.write(mutex).resize(count);
}

/// Whether the span looks into the array, so that growing the array would pull it away.
template <class T>
bool liesIn(std::span<const T> part, const Array<T>& array) {
  const std::less<const T*> before;
  return !part.empty() && !before(part.data(), array.data()) &&
         before(part.data(), array.data() + array.size());
}

template <class T>
SharedArray<T> gathered(const Array<T>& from, std::span<const std::uint32_t> indices) {
  SharedArray<T> picked(indices.size());
  T* to = picked.overwrite(indices.size()).data();
  parallelRange(0, indices.size(), 4096, [&](std::size_t first, std::size_t last) {
    for (std::size_t i = first; i < last; ++i) to[i] = from[indices[i]];
  });
  return picked;
}

template <class T>
SharedArray<T> gatheredPoints(const Array<T>& from, const Array<std::uint64_t>& starts,
                              std::span<const std::uint32_t> indices,
                              const Array<std::uint64_t>& newStarts) {
  SharedArray<T> picked(newStarts.back());
  T* to = picked.overwrite(newStarts.back()).data();
  parallelRange(0, indices.size(), 256, [&](std::size_t first, std::size_t last) {
    while (first < last) {
      // Neighbours that stay neighbours are copied as one run.
      std::size_t end = first + 1;
      while (end < last && indices[end] == indices[end - 1] + 1) ++end;
      const T* run = from.data() + starts[indices[first]];
      std::copy(run, from.data() + starts[indices[end - 1] + 1], to + newStarts[first]);
      first = end;
    }
  });
  return picked;
}

}  // namespace

/// Grows every array for so many more strands and points, whose values the caller writes. On a
/// failure the set is as it was.
void StrandSet::extend(std::size_t strands, std::size_t points) {
  const std::size_t oldStrands = strandCount(), oldPoints = pointCount();
  try {
    ids_.extend(arrayMutex_, oldStrands + strands);
    roots_.extend(arrayMutex_, oldStrands + strands);
    offsets_.extend(arrayMutex_, oldStrands + strands + 1);
    points_.extend(arrayMutex_, oldPoints + points);
    widths_.extend(arrayMutex_, oldPoints + points);
    for (auto& [name, channel] : strandChannels_) {
      channel.values.extend(arrayMutex_, oldStrands + strands);
    }
    for (auto& [name, channel] : pointChannels_) {
      channel.values.extend(arrayMutex_, oldPoints + points);
    }
  } catch (...) {
    truncate(oldStrands, oldPoints);
    throw;
  }
}

/// Takes back what extend did. Cannot fail: an array that was grown is held by nobody else.
void StrandSet::truncate(std::size_t strands, std::size_t points) {
  shrinkTo(ids_, strands, arrayMutex_);
  shrinkTo(roots_, strands, arrayMutex_);
  shrinkTo(offsets_, strands + 1, arrayMutex_);
  shrinkTo(points_, points, arrayMutex_);
  shrinkTo(widths_, points, arrayMutex_);
  for (auto& [name, channel] : strandChannels_) shrinkTo(channel.values, strands, arrayMutex_);
  for (auto& [name, channel] : pointChannels_) shrinkTo(channel.values, points, arrayMutex_);
}

std::size_t StrandSet::addStrand(std::uint64_t id, StrandRoot root, std::span<const Vec3f> points,
                                 std::span<const float> widths) {
  if (!widths.empty() && widths.size() != points.size()) {
    throw std::invalid_argument("StrandSet::addStrand: widths must be empty or match points");
  }
  if (liesIn(points, this->points()) || liesIn(widths, this->widths())) {
    const std::vector<Vec3f> ownPoints(points.begin(), points.end());
    const std::vector<float> ownWidths(widths.begin(), widths.end());
    return addStrand(id, root, ownPoints, ownWidths);
  }
  const std::size_t strand = strandCount(), firstPoint = pointCount();
  extend(1, points.size());
  mutableIds()[strand] = id;
  mutableRoots()[strand] = root;
  mutableOffsets()[strand + 1] = firstPoint + points.size();
  std::copy(points.begin(), points.end(), mutablePoints().begin() + firstPoint);
  float* newWidths = mutableWidths().data() + firstPoint;
  if (widths.empty()) {
    std::fill_n(newWidths, points.size(), 1.0f);
  } else {
    std::copy(widths.begin(), widths.end(), newWidths);
  }
  for (auto& [name, channel] : strandChannels_) {
    channel.values.write(arrayMutex_)[strand] = channel.defaultValue;
  }
  for (auto& [name, channel] : pointChannels_) {
    std::fill_n(channel.values.write(arrayMutex_).data() + firstPoint, points.size(),
                channel.defaultValue);
  }
  return strand;
}

void StrandSet::append(const StrandSet& other) {
  // The other set may be this one: its sizes are read before anything grows, and what it had then
  // stays in place.
  const std::size_t oldStrands = strandCount(), oldPoints = pointCount();
  const std::size_t strands = other.strandCount(), points = other.pointCount();

  // The new channels are made aside, so that running out of memory leaves this set as it was.
  const auto missing = [](const Channels& mine, const Channels& others, std::size_t oldCount,
                          std::size_t count) {
    Channels made;
    for (const auto& [name, channel] : others) {
      if (mine.contains(name)) continue;
      Channel fresh{SharedArray<float>(oldCount + count), channel.defaultValue};
      float* values = fresh.values.overwrite(oldCount + count).data();
      fillElements(values, oldCount, channel.defaultValue);
      made.emplace(name, std::move(fresh));
    }
    return made;
  };
  Channels strandChannels = missing(strandChannels_, other.strandChannels_, oldStrands, strands);
  Channels pointChannels = missing(pointChannels_, other.pointChannels_, oldPoints, points);
  if (strands > 0) extend(strands, points);
  strandChannels_.merge(strandChannels);
  pointChannels_.merge(pointChannels);
  if (strands == 0) return;

  copyElements(other.ids().data(), strands, mutableIds().data() + oldStrands);
  copyElements(other.roots().data(), strands, mutableRoots().data() + oldStrands);
  copyElements(other.points().data(), points, mutablePoints().data() + oldPoints);
  copyElements(other.widths().data(), points, mutableWidths().data() + oldPoints);
  std::uint64_t* starts = mutableOffsets().data() + oldStrands + 1;
  const std::uint64_t* otherStarts = other.offsets().data() + 1;
  for (std::size_t i = 0; i < strands; ++i) starts[i] = oldPoints + otherStarts[i];

  const auto fill = [this](Channels& mine, const Channels& others, std::size_t oldCount,
                           std::size_t count) {
    for (auto& [name, channel] : mine) {
      float* values = channel.values.write(arrayMutex_).data() + oldCount;
      const auto found = others.find(name);
      if (found != others.end()) {
        copyElements(found->second.values.read().data(), count, values);
      } else {
        fillElements(values, count, channel.defaultValue);
      }
    }
  };
  fill(strandChannels_, other.strandChannels_, oldStrands, strands);
  fill(pointChannels_, other.pointChannels_, oldPoints, points);
}

void StrandSet::clear() {
  Channels* const maps[] = {&strandChannels_, &pointChannels_};
  for (Channels* channels : maps) {
    for (auto& [name, channel] : *channels) channel.values = SharedArray<float>();
  }
  StrandSet empty;
  empty.strandChannels_.swap(strandChannels_);
  empty.pointChannels_.swap(pointChannels_);
  *this = std::move(empty);
}

void StrandSet::resizeFromCounts(std::span<const std::uint32_t> counts, unsigned keep) {
  const std::size_t strands = counts.size();
  const std::size_t points = std::accumulate(counts.begin(), counts.end(), std::size_t{0});
  dropExtents();
  try {
    Array<std::uint64_t>& starts = offsets_.overwrite(strands + 1);
    starts[0] = 0;
    for (std::size_t i = 0; i < strands; ++i) starts[i + 1] = starts[i] + counts[i];
    fillElements(ids_.overwrite(strands).data(), strands, std::uint64_t{0});
    fillElements(roots_.overwrite(strands).data(), strands, StrandRoot{});
    Vec3f* newPoints = points_.overwrite(points).data();
    if ((keep & keepPoints) == 0) fillElements(newPoints, points, Vec3f{});
    float* newWidths = widths_.overwrite(points).data();
    if ((keep & keepWidths) == 0) fillElements(newWidths, points, 1.0f);
    for (auto& [name, channel] : strandChannels_) {
      fillElements(channel.values.overwrite(strands).data(), strands, channel.defaultValue);
    }
    for (auto& [name, channel] : pointChannels_) {
      fillElements(channel.values.overwrite(points).data(), points, channel.defaultValue);
    }
  } catch (...) {
    clear();
    throw;
  }
}

StrandSet StrandSet::subset(std::span<const std::uint32_t> indices) const {
  const std::size_t count = indices.size(), strands = strandCount();
  const auto& starts = offsets();
  SharedArray<std::uint64_t> newOffsets(count + 1);
  Array<std::uint64_t>& newStarts = newOffsets.overwrite(count + 1);
  newStarts[0] = 0;
  bool inOrder = count == strands;
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint32_t strand = indices[i];
    if (strand >= strands) {
      throw std::invalid_argument("StrandSet::subset: an index lies past the last strand");
    }
    inOrder &= strand == i;
    newStarts[i + 1] = newStarts[i] + (starts[strand + 1] - starts[strand]);
  }
  if (inOrder) return *this;

  StrandSet picked;
  picked.offsets_ = std::move(newOffsets);
  picked.ids_ = gathered(ids(), indices);
  picked.roots_ = gathered(roots(), indices);
  picked.points_ = gatheredPoints(points(), starts, indices, newStarts);
  picked.widths_ = gatheredPoints(widths(), starts, indices, newStarts);
  for (const auto& [name, channel] : strandChannels_) {
    picked.strandChannels_.emplace(
        name, Channel{gathered(channel.values.read(), indices), channel.defaultValue});
  }
  for (const auto& [name, channel] : pointChannels_) {
    picked.pointChannels_.emplace(
        name, Channel{gatheredPoints(channel.values.read(), starts, indices, newStarts),
                      channel.defaultValue});
  }
  picked.cardMesh = cardMesh;
  picked.featherLayers = featherLayers;
  picked.scaleMeshes = scaleMeshes;
  return picked;
}

}  // namespace kestrane
