// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/data/strand_diff.h"

#include <algorithm>
#include <cstring>

#include "core/base/parallel.h"

namespace kestrane {

namespace {

/// Two arrays of one kind that are compared: bytes per element, and whether there is one element
/// per point or one per strand.
struct Pair {
  const unsigned char* before = nullptr;
  const unsigned char* after = nullptr;
  std::size_t size = 0;
  bool perPoint = false;
};

template <class T>
Pair pairOf(const Array<T>& before, const Array<T>& after, bool perPoint) {
  return {reinterpret_cast<const unsigned char*>(before.data()),
          reinterpret_cast<const unsigned char*>(after.data()), sizeof(T), perPoint};
}

template <class T>
bool sameBytes(const Array<T>& a, const Array<T>& b) {
  return a.size() == b.size() &&
         (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(T)) == 0);
}

bool sameDefaults(const StrandSet& a, const StrandSet& b) {
  const auto strandNames = a.strandChannelNames(), pointNames = a.pointChannelNames();
  return strandNames == b.strandChannelNames() && pointNames == b.pointChannelNames() &&
         std::all_of(strandNames.begin(), strandNames.end(),
                     [&](const std::string& name) {
                       return a.strandChannelDefault(name) == b.strandChannelDefault(name);
                     }) &&
         std::all_of(pointNames.begin(), pointNames.end(), [&](const std::string& name) {
           return a.pointChannelDefault(name) == b.pointChannelDefault(name);
         });
}

bool comparable(const StrandSet& a, const StrandSet& b) {
  return a.strandCount() == b.strandCount() && a.pointCount() == b.pointCount() &&
         a.cardMesh == b.cardMesh && a.featherLayers == b.featherLayers &&
         a.scaleMeshes == b.scaleMeshes && sameDefaults(a, b) &&
         (a.sharesIdsWith(b) || sameBytes(a.ids(), b.ids())) &&
         (a.sharesOffsetsWith(b) || sameBytes(a.offsets(), b.offsets()));
}

/// The arrays that may differ, since each set holds its own.
std::vector<Pair> ownArrays(const StrandSet& a, const StrandSet& b) {
  std::vector<Pair> pairs;
  if (!a.sharesPointsWith(b)) pairs.push_back(pairOf(a.points(), b.points(), true));
  if (!a.sharesWidthsWith(b)) pairs.push_back(pairOf(a.widths(), b.widths(), true));
  if (!a.sharesRootsWith(b)) pairs.push_back(pairOf(a.roots(), b.roots(), false));
  for (const std::string& name : a.strandChannelNames()) {
    if (a.sharesStrandChannelWith(name, b)) continue;
    pairs.push_back(pairOf(*a.strandChannel(name), *b.strandChannel(name), false));
  }
  for (const std::string& name : a.pointChannelNames()) {
    if (a.sharesPointChannelWith(name, b)) continue;
    pairs.push_back(pairOf(*a.pointChannel(name), *b.pointChannel(name), true));
  }
  return pairs;
}

}  // namespace

StrandChangesPtr changedStrands(const StrandSet& before, const StrandSet& after) {
  if (&before == &after) return noStrandChanges();
  if (!comparable(before, after)) return nullptr;
  const std::vector<Pair> pairs = ownArrays(before, after);
  if (pairs.empty()) return noStrandChanges();

  const std::uint64_t* starts = after.offsets().data();
  const auto differs = [&](const Pair& pair, std::size_t first, std::size_t last) {
    if (pair.perPoint) first = starts[first], last = starts[last];
    const std::size_t from = first * pair.size, count = (last - first) * pair.size;
    return count > 0 && std::memcmp(pair.before + from, pair.after + from, count) != 0;
  };
  // A run that is equal as a whole, as most are after a brush stroke, costs one comparison.
  constexpr std::size_t runLength = 64, blockLength = 4096;
  const std::size_t strands = after.strandCount();
  std::vector<std::vector<std::uint32_t>> found((strands + blockLength - 1) / blockLength);
  const auto listRun = [&](std::size_t first, std::size_t last, std::vector<std::uint32_t>& list) {
    bool changed[runLength] = {};
    for (const Pair& pair : pairs) {
      if (!differs(pair, first, last)) continue;
      for (std::size_t i = first; i < last; ++i) {
        changed[i - first] = changed[i - first] || differs(pair, i, i + 1);
      }
    }
    for (std::size_t i = first; i < last; ++i) {
      if (changed[i - first]) list.push_back(static_cast<std::uint32_t>(i));
    }
  };
  parallelRange(0, found.size(), 1, [&](std::size_t firstBlock, std::size_t lastBlock) {
    for (std::size_t block = firstBlock; block < lastBlock; ++block) {
      const std::size_t end = std::min(strands, (block + 1) * blockLength);
      for (std::size_t first = block * blockLength; first < end; first += runLength) {
        listRun(first, std::min(end, first + runLength), found[block]);
      }
    }
  });

  std::size_t count = 0;
  for (const auto& list : found) count += list.size();
  if (count == 0) return noStrandChanges();
  auto changes = std::make_shared<StrandChanges>();
  changes->strands.reserve(count);
  for (const auto& list : found) {
    changes->strands.insert(changes->strands.end(), list.begin(), list.end());
  }
  return changes;
}

}  // namespace kestrane
