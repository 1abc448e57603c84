// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/ops/guide_binding.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <numeric>

#include "core/base/parallel.h"

namespace kestrane {

namespace {

constexpr float infinity = std::numeric_limits<float>::infinity();
constexpr std::size_t strandsPerChunk = 4096;
constexpr float nearestDistance = 1e-6f;

/// The guides of one region, or all of them.
struct GuideRegion {
  std::vector<std::uint32_t> guides;  // numbers in the whole set
  std::vector<Vec3f> roots;
  std::vector<float> reach;
  KdTree tree;
  GuideLookup lookup;

  GuideRegion(std::vector<std::uint32_t> members, const BindingInput& input,
              const BindingSettings& settings)
      : guides(std::move(members)) {
    for (const std::uint32_t g : guides) roots.push_back(input.guideRoots[g]);
    tree = KdTree(roots);
    const auto neighbors = static_cast<std::size_t>(settings.neighbors);
    std::vector<KdHit> hits(neighbors + 1);
    for (std::size_t i = 0; i < roots.size(); ++i) {
      // The guide itself is its own nearest.
      const std::size_t found = tree.nearest(roots[i], hits);
      reach.push_back(found > neighbors
                          ? settings.reach * std::sqrt(hits[neighbors].distanceSquared)
                          : infinity);
    }
    lookup = GuideLookup(roots, reach);
  }
};

struct Candidate {
  std::uint32_t guide;  // in its region
  float distance;
  float weight;
};

/// The modified Shepard weight of a distance within a reach; 0 at or beyond it.
float reachWeight(float d, float reach) {
  d = std::max(d, nearestDistance);
  if (!std::isfinite(reach)) return 1.0f / d;
  return d < reach ? (reach - d) / (reach * d) : 0.0f;
}

float coverageOf(float d, float reach) {
  if (!std::isfinite(reach)) return 1.0f;
  d = std::max(d, nearestDistance);
  return d < reach ? (reach - d) / reach : 0.0f;
}

/// Divides by the largest weight, raises to the power and returns the sum.
float sharpen(std::vector<Candidate>& candidates, float power) {
  float largest = 0.0f;
  for (const Candidate& c : candidates) largest = std::max(largest, c.weight);
  if (!(largest > 0.0f)) return 0.0f;
  float sum = 0.0f;
  for (Candidate& c : candidates) {
    const float w = c.weight / largest;
    c.weight = w <= 0.0f ? 0.0f : power == 2.0f ? w * w : std::pow(w, power);
    sum += c.weight;
  }
  return sum;
}

/// Binds strand after strand; one per chunk, for its buffers.
class StrandBinder {
 public:
  StrandBinder(const BindingInput& input, const BindingSettings& settings,
               const SurfaceReach* along)
      : input_(input), settings_(settings), along_(along) {}

  /// Fills entries() and returns the distance to the nearest usable guide.
  float bind(std::size_t strand, const GuideRegion& region) {
    entries_.clear();
    strand_ = strand;
    position_ = input_.strandRoots[strand];
    if (along_ != nullptr && input_.strandFaces[strand] != face_.face &&
        input_.strandFaces[strand] >= 0) {
      along_->enter(input_.strandFaces[strand], face_);
    }
    float nearest = infinity, coverage = 0.0f;
    inReach_.clear();
    for (const std::uint32_t g : region.lookup.at(position_)) {
      const float straight = distance(position_, region.roots[g]);
      if (!(straight < region.reach[g])) continue;
      const float d = usableDistance(region, g, straight);
      const float w = reachWeight(d, region.reach[g]);
      nearest = std::min(nearest, d);
      if (!(w > 0.0f)) continue;
      coverage = std::max(coverage, coverageOf(d, region.reach[g]));
      inReach_.push_back({g, d, w});
    }
    const float share = settings_.neighbors == 1 ? 0.0f : std::min(4.0f * coverage, 1.0f);
    const float sum = share > 0.0f ? sharpen(inReach_, settings_.power) : 0.0f;
    if (share < 1.0f || !(sum > 0.0f)) {
      nearest = std::min(nearest, findNearest(region));
      const float nearestSum = sharpen(nearest_, settings_.power);
      const float keep = sum > 0.0f && nearestSum > 0.0f ? share : sum > 0.0f ? 1.0f : 0.0f;
      for (Candidate& c : inReach_) c.weight *= sum > 0.0f ? keep / sum : 0.0f;
      for (const Candidate& c : nearest_) {
        if (nearestSum > 0.0f) add(c.guide, (1.0f - keep) * c.weight / nearestSum);
      }
    } else {
      for (Candidate& c : inReach_) c.weight /= sum;
      // The nearest guide may be one of too small a reach.
      if (settings_.farthest > 0.0f) nearest = std::min(nearest, findNearest(region));
    }
    keepStrongest();
    std::sort(inReach_.begin(), inReach_.end(),
              [](const Candidate& a, const Candidate& b) { return a.guide < b.guide; });
    return nearest;
  }

  const std::vector<Candidate>& entries() const { return inReach_; }

 private:
  /// The distance that counts; infinite for a guide across a part or out of the surface's reach.
  float usableDistance(const GuideRegion& region, std::uint32_t g, float straight) const {
    if (input_.parts != nullptr && input_.parts->crosses(position_, region.roots[g])) {
      return infinity;
    }
    if (along_ == nullptr || input_.strandFaces[strand_] < 0) return straight;
    return along_->distanceTo(face_, position_, region.guides[g], straight);
  }

  void keepStrongest() {
    if (inReach_.size() <= mostGuidesPerStrand) return;
    const auto first = inReach_.begin() + mostGuidesPerStrand;
    std::nth_element(inReach_.begin(), first, inReach_.end(),
                     [](const Candidate& a, const Candidate& b) {
                       return a.weight > b.weight || (a.weight == b.weight && a.guide < b.guide);
                     });
    const float left = first->weight;
    inReach_.erase(first, inReach_.end());
    float sum = 0.0f;
    for (const Candidate& c : inReach_) sum += c.weight - left;
    // All of one weight: then each is as good as any other.
    const bool alike = !(sum > 0.0f);
    for (Candidate& c : inReach_) {
      c.weight = alike ? 1.0f / static_cast<float>(mostGuidesPerStrand) : (c.weight - left) / sum;
    }
  }

  /// The weights of the nearest guides alone: the set that no strand is left without. Returns the
  /// nearest distance.
  float findNearest(const GuideRegion& region) {
    const auto neighbors = static_cast<std::size_t>(settings_.neighbors);
    // Guides that may not be used make the search go on to farther ones.
    const bool led = along_ == nullptr || input_.strandFaces[strand_] < 0 || face_.hasSeeds();
    for (std::size_t asked = neighbors + 1;; asked *= 2) {
      hits_.resize(asked);
      const std::size_t found = region.tree.nearest(position_, hits_);
      nearest_.clear();
      for (std::size_t i = 0; i < found; ++i) {
        const float straight = std::sqrt(hits_[i].distanceSquared);
        const float d = usableDistance(region, hits_[i].index, straight);
        if (std::isfinite(d)) nearest_.push_back({hits_[i].index, d, 0.0f});
      }
      const bool exhausted = found < asked;
      hits_.resize(found);
      if (nearest_.size() > neighbors || exhausted || asked > 64 || !led) break;
    }
    const bool reached = !nearest_.empty();
    if (!reached) takeUnreached(region);
    if (nearest_.empty()) return infinity;
    std::stable_sort(nearest_.begin(), nearest_.end(), [](const Candidate& a, const Candidate& b) {
      return a.distance < b.distance;
    });
    const float closest = reached ? nearest_.front().distance : infinity;
    // The radius is the first guide past those that count. At its own distance a guide would weigh
    // nothing, so guides that lie level with it count by nearness alone.
    float radius = nearest_.size() > neighbors ? nearest_[neighbors].distance : infinity;
    const std::size_t used = std::min(nearest_.size(), neighbors);
    if (nearest_[used - 1].distance >= radius) radius = infinity;
    nearest_.resize(used);
    if (settings_.neighbors == 1) radius = infinity;
    for (Candidate& c : nearest_) c.weight = reachWeight(c.distance, radius);
    return closest;
  }

  /// Where the surface leads to none of the guides just searched, a strand follows those nearest in
  /// a straight line rather than none; but never one from the other side of a part.
  void takeUnreached(const GuideRegion& region) {
    for (const KdHit& hit : hits_) {
      if (input_.parts != nullptr && input_.parts->crosses(position_, region.roots[hit.index])) {
        continue;
      }
      nearest_.push_back({hit.index, std::sqrt(hit.distanceSquared), 0.0f});
    }
  }

  void add(std::uint32_t guide, float weight) {
    for (Candidate& c : inReach_) {
      if (c.guide == guide) {
        c.weight += weight;
        return;
      }
    }
    inReach_.push_back({guide, 0.0f, weight});
  }

  const BindingInput& input_;
  const BindingSettings& settings_;
  const SurfaceReach* along_;
  SurfaceReach::Face face_;
  std::size_t strand_ = 0;
  Vec3f position_;
  std::vector<Candidate> inReach_, nearest_, entries_;
  std::vector<KdHit> hits_;
};

std::vector<GuideRegion> makeRegions(const BindingInput& input, const BindingSettings& settings) {
  // The last region is that of all guides.
  std::vector<std::vector<std::uint32_t>> members;
  for (std::size_t g = 0; g < input.guideRegions.size(); ++g) {
    const std::int32_t region = input.guideRegions[g];
    if (region < 0) continue;
    if (members.size() <= static_cast<std::size_t>(region)) {
      members.resize(static_cast<std::size_t>(region) + 1);
    }
    members[static_cast<std::size_t>(region)].push_back(static_cast<std::uint32_t>(g));
  }
  std::vector<std::uint32_t> all(input.guideRoots.size());
  std::iota(all.begin(), all.end(), 0u);
  members.push_back(std::move(all));
  std::vector<GuideRegion> regions;
  for (auto& list : members) regions.emplace_back(std::move(list), input, settings);
  return regions;
}

}  // namespace

std::shared_ptr<const GuideBinding> bindToGuides(const BindingInput& input,
                                                 const BindingSettings& settings) {
  const std::vector<GuideRegion> regions = makeRegions(input, settings);
  std::unique_ptr<const SurfaceReach> along;
  if (input.surface != nullptr) {
    std::vector<float> limits(input.guideRoots.size(), 0.0f);
    for (const GuideRegion& region : regions) {
      for (std::size_t i = 0; i < region.guides.size(); ++i) {
        float& limit = limits[region.guides[i]];
        // Strands that no reach covers well look to guides beyond their reach, too.
        limit = std::max({limit, 3.0f * region.reach[i], settings.farthest});
      }
    }
    along = std::make_unique<SurfaceReach>(*input.surface, input.guideSurfaceRoots, limits);
  }

  const std::size_t strands = input.strandRoots.size();
  auto binding = std::make_shared<GuideBinding>();
  binding->guideCount = input.guideRoots.size();
  binding->wide = binding->guideCount > 65536;
  binding->distance.resize(strands);
  binding->offsets.assign(strands + 1, 0);
  // Chunks of a fixed size keep their entries until all counts are known.
  struct Entry {
    std::uint32_t guide;
    std::uint16_t weight;
  };
  std::vector<std::vector<Entry>> chunks((strands + strandsPerChunk - 1) / strandsPerChunk);
  parallelRange(0, chunks.size(), 1, [&](std::size_t first, std::size_t last) {
    StrandBinder binder(input, settings, along.get());
    for (std::size_t chunk = first; chunk < last; ++chunk) {
      const std::size_t begin = chunk * strandsPerChunk;
      const std::size_t end = std::min(begin + strandsPerChunk, strands);
      chunks[chunk].reserve((end - begin) * 8);
      for (std::size_t strand = begin; strand < end; ++strand) {
        const std::int32_t number = input.strandRegions.empty() ? -1 : input.strandRegions[strand];
        const GuideRegion& region =
            number >= 0 && static_cast<std::size_t>(number) + 1 < regions.size() &&
                    !regions[static_cast<std::size_t>(number)].guides.empty()
                ? regions[static_cast<std::size_t>(number)]
                : regions.back();
        binding->distance[strand] = binder.bind(strand, region);
        std::uint32_t count = 0;
        for (const Candidate& entry : binder.entries()) {
          const float fixed = entry.weight * 65536.0f + 0.5f;
          if (!(fixed >= 1.0f)) continue;
          const auto stored = static_cast<std::uint32_t>(std::min(fixed, 65536.0f)) - 1;
          chunks[chunk].push_back({region.guides[entry.guide], static_cast<std::uint16_t>(stored)});
          ++count;
        }
        binding->offsets[strand + 1] = count;
      }
    }
  });
  for (std::size_t i = 0; i < strands; ++i) binding->offsets[i + 1] += binding->offsets[i];
  binding->weights.resize(binding->offsets.back());
  if (binding->wide) {
    binding->guides32.resize(binding->offsets.back());
  } else {
    binding->guides16.resize(binding->offsets.back());
  }
  parallelRange(0, chunks.size(), 1, [&](std::size_t first, std::size_t last) {
    for (std::size_t chunk = first; chunk < last; ++chunk) {
      std::size_t entry = binding->offsets[chunk * strandsPerChunk];
      for (const Entry& e : chunks[chunk]) {
        binding->weights[entry] = e.weight;
        if (binding->wide) {
          binding->guides32[entry] = e.guide;
        } else {
          binding->guides16[entry] = static_cast<std::uint16_t>(e.guide);
        }
        ++entry;
      }
      std::vector<Entry>().swap(chunks[chunk]);
    }
  });
  return binding;
}

std::vector<std::uint32_t> GuideBinding::strandsOf(std::span<const std::uint32_t> guides) const {
  std::call_once(inverted_, [&] {
    strandOffsets_.assign(guideCount + 1, 0);
    for (std::size_t e = 0; e < weights.size(); ++e) ++strandOffsets_[guide(e) + 1];
    std::partial_sum(strandOffsets_.begin(), strandOffsets_.end(), strandOffsets_.begin());
    strands_.resize(weights.size());
    std::vector<std::uint32_t> filled(strandOffsets_.begin(), strandOffsets_.end() - 1);
    for (std::size_t strand = 0; strand + 1 < offsets.size(); ++strand) {
      for (std::size_t e = begin(strand); e < end(strand); ++e) {
        strands_[filled[guide(e)]++] = static_cast<std::uint32_t>(strand);
      }
    }
  });
  // A byte a strand, in words, as most words stay empty.
  constexpr std::size_t word = sizeof(std::uint64_t);
  const std::size_t strandCount = offsets.size() - 1;
  std::vector<char> marked((strandCount + word - 1) / word * word, 0);
  for (const std::uint32_t g : guides) {
    for (std::uint32_t i = strandOffsets_[g]; i < strandOffsets_[g + 1]; ++i) {
      marked[strands_[i]] = 1;
    }
  }
  std::vector<std::uint32_t> found;
  for (std::size_t first = 0; first < marked.size(); first += word) {
    std::uint64_t any;
    std::memcpy(&any, &marked[first], word);
    for (std::size_t strand = first; any != 0 && strand < first + word; ++strand) {
      if (marked[strand]) found.push_back(static_cast<std::uint32_t>(strand));
    }
  }
  return found;
}

}  // namespace kestrane
