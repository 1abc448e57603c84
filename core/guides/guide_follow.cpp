// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <algorithm>
#include <utility>

#include "core/base/parallel.h"
#include "core/data/polyline.h"
#include "core/guides/guide_checks.h"
#include "core/guides/guide_frames.h"
#include "core/guides/guide_hierarchy.h"

namespace kestrane {

namespace {

constexpr std::size_t parallelRun = 64;
constexpr std::size_t grain = 16;
/// How much closer than its root a guide's tip lies to the scalp, as a share of its length, before
/// the guide counts as drawn the wrong way round.
constexpr float reversedShare = 0.02f;

Vec3f toSurface(const SurfaceFrame& frame, Vec3f v) {
  return {dot(frame.tangent, v), dot(frame.bitangent, v), dot(frame.normal, v)};
}

Vec3f fromSurface(const SurfaceFrame& frame, Vec3f v) {
  return frame.tangent * v.x + frame.bitangent * v.y + frame.normal * v.z;
}

/// A guide that would leave the range of numbers stays as it is; the result is false then.
bool poseFromScalp(GuideRecord& guide, const ScalpMesh& scalp) {
  const Vec3f root = scalp.positionAt(guide.root);
  const SurfaceFrame frame = surfaceFrameAt(scalp, guide.root);
  std::vector<Vec3f> points(guide.rootLocal.size());
  for (std::size_t i = 0; i < points.size(); ++i) {
    points[i] = root + fromSurface(frame, guide.rootLocal[i]);
  }
  const Vec3f up = fromSurface(frame, guide.frameUpLocal);
  if (!detail::allFinite(points) || !isFinite(up)) return false;
  guide.points = std::move(points);
  guide.frameUp = up;
  return true;
}

void turnAround(GuideRecord& guide) {
  std::reverse(guide.points.begin(), guide.points.end());
  for (auto& [name, values] : guide.pointAttributes) std::reverse(values.begin(), values.end());
  guide.frameUp = frameUpFor(guide.points);
}

/// A guide that finds no place, or none within the range of numbers, stays as it is.
void bindToScalp(GuideRecord& unbound, const ScalpMesh& scalp) {
  GuideRecord guide = unbound;
  SurfaceHit hit = scalp.closestPoint(guide.points.front());
  if (hit.root.face < 0) return;
  if (guide.parent == 0 && guide.root.face < 0) {
    const SurfaceHit tip = scalp.closestPoint(guide.points.back());
    const float margin = polylineLength(guide.points) * reversedShare;
    if (tip.root.face >= 0 && hit.distance > margin + tip.distance) {
      turnAround(guide);
      hit = tip;
    }
  }
  // A guide that still begins at its root keeps it to the bit: a search may find the same place in
  // other numbers, and an edit of a tip must not look like a moved root.
  const bool stays =
      scalp.hasFace(guide.root.face) && scalp.positionAt(guide.root) == guide.points.front();
  if (!stays) guide.root = hit.root;
  const SurfaceFrame frame = surfaceFrameAt(scalp, guide.root);
  const Vec3f start = guide.points.front();
  guide.rootLocal.resize(guide.points.size());
  for (std::size_t i = 0; i < guide.points.size(); ++i) {
    guide.rootLocal[i] = toSurface(frame, guide.points[i] - start);
  }
  guide.frameUpLocal = toSurface(frame, guide.frameUp);
  // Posed by the same arithmetic as at every later update, so that one which finds the scalp where
  // it was changes no bit.
  if (poseFromScalp(guide, scalp)) unbound = std::move(guide);
}

}  // namespace

void GuideHierarchy::updateFromScalp(const ScalpMesh* scalp) {
  std::vector<std::uint32_t> indices(guides_.size());
  for (std::uint32_t i = 0; i < indices.size(); ++i) indices[i] = i;
  updateIndices(scalp, std::move(indices));
}

void GuideHierarchy::updateFromScalp(const ScalpMesh* scalp, std::span<const std::uint64_t> ids) {
  std::vector<std::uint32_t> indices;
  for (const std::uint64_t id : ids) {
    if (const auto found = guideIndex_.find(id); found != guideIndex_.end()) {
      indices.push_back(found->second);
    }
  }
  std::sort(indices.begin(), indices.end());
  indices.erase(std::unique(indices.begin(), indices.end()), indices.end());
  updateIndices(scalp, std::move(indices));
}

void GuideHierarchy::updateIndices(const ScalpMesh* scalp, std::vector<std::uint32_t> indices) {
  if (scalp && scalp->triangleCount() == 0) scalp = nullptr;
  if (scalp && scalpTopology_ != scalp->topologyHash()) {
    if (scalpTopology_ != 0) {
      for (GuideRecord& guide : guides_) {
        if (!guide.follows()) guide.unbind();
      }
    }
    scalpTopology_ = scalp->topologyHash();
  }
  // Guides of which none follows another in the list need no order.
  const auto followsAnother = [&](std::uint32_t index) {
    const auto parent = guideIndex_.find(guides_[index].parent);
    return guides_[index].follows() && parent != guideIndex_.end() &&
           std::binary_search(indices.begin(), indices.end(), parent->second);
  };
  if (std::none_of(indices.begin(), indices.end(), followsAnother)) {
    updateRun(scalp, indices);
    return;
  }
  const std::vector<int> levels = guideLevels();
  std::stable_sort(indices.begin(), indices.end(),
                   [&](std::uint32_t a, std::uint32_t b) { return levels[a] < levels[b]; });
  for (std::size_t begin = 0; begin < indices.size();) {
    std::size_t end = begin + 1;
    while (end < indices.size() && levels[indices[end]] == levels[indices[begin]]) ++end;
    updateRun(scalp, std::span(indices).subspan(begin, end - begin));
    begin = end;
  }
}

void GuideHierarchy::updateRun(const ScalpMesh* scalp, std::span<const std::uint32_t> run) {
  // A parent's level is one less than its children's, so no guide of the run depends on another.
  const std::size_t runGrain = run.size() >= parallelRun ? grain : run.size();
  constexpr std::uint32_t nobody = UINT32_MAX;
  using CurveKey = std::pair<std::uint32_t, std::size_t>;  // the parent and the point count
  const auto curveOf = [&](const GuideRecord& guide) -> CurveKey {
    if (!guide.follows() || guide.pointCount() < 2) return {nobody, 0};
    const auto parent = guideIndex_.find(guide.parent);
    if (parent == guideIndex_.end() || guides_[parent->second].points.size() < 2) {
      return {nobody, 0};
    }
    return {parent->second, guide.pointCount()};
  };
  std::vector<CurveKey> keys;
  for (const std::uint32_t index : run) {
    if (const CurveKey key = curveOf(guides_[index]); key.first != nobody) keys.push_back(key);
  }
  std::sort(keys.begin(), keys.end());
  keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
  std::vector<FollowedCurve> curves(keys.size());
  parallelRange(0, keys.size(), run.size() >= parallelRun ? grain : keys.size(),
                [&](std::size_t begin, std::size_t end) {
                  for (std::size_t i = begin; i < end; ++i) {
                    curves[i] = followedCurve(guides_[keys[i].first], keys[i].second);
                  }
                });
  parallelRange(0, run.size(), runGrain, [&](std::size_t begin, std::size_t end) {
    for (std::size_t i = begin; i < end; ++i) {
      GuideRecord& guide = guides_[run[i]];
      if (guide.follows()) {
        const CurveKey key = curveOf(guide);
        if (key.first == nobody) continue;
        const auto place = std::lower_bound(keys.begin(), keys.end(), key) - keys.begin();
        const FollowedCurve& curve = curves[static_cast<std::size_t>(place)];
        const GuideTube& tube = guides_[key.first].tube;
        // A child whose parent could not be followed so far begins from where it stands.
        if (guide.offsets.empty()) {
          std::vector<Vec3f> offsets = offsetsOf(guide.points, tube, curve);
          if (!detail::allFinite(offsets)) continue;
          guide.offsets = std::move(offsets);
        }
        poseChild(guide, tube, curve, scalp);
      } else if (scalp && guide.points.size() >= 2) {
        const bool bound =
            scalp->hasFace(guide.root.face) && guide.rootLocal.size() == guide.points.size();
        if (bound) {
          poseFromScalp(guide, *scalp);
        } else {
          bindToScalp(guide, *scalp);
        }
      }
    }
  });
}

}  // namespace kestrane
