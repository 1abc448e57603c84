// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/session/guide_poser.h"

#include <algorithm>
#include <utility>

#include "core/base/hash.h"

namespace kestrane {

void GuidePoser::setGuides(std::shared_ptr<const GuideHierarchy> guides) {
  guides_ = std::move(guides);
  bound_ = nullptr;
  poses_ = {};
}

std::shared_ptr<const GuideHierarchy> GuidePoser::bound(const ScalpMeshPtr& scalp) {
  if (!guides_ || !scalp) return guides_;
  if (!bound_ || boundScalp_->topologyHash() != scalp->topologyHash()) {
    auto guides = std::make_shared<GuideHierarchy>(*guides_);
    guides->updateFromScalp(scalp.get());
    bound_ = std::move(guides);
    boundScalp_ = scalp;
    poses_ = {};
  }
  return bound_;
}

std::shared_ptr<const GuideHierarchy> GuidePoser::pose(
    const ScalpMeshPtr& scalp, const std::shared_ptr<const CorrectiveData>& layers, double time) {
  const std::shared_ptr<const GuideHierarchy> guides = bound(scalp);
  if (!guides) return nullptr;
  const bool corrected =
      layers && std::any_of(layers->layers.begin(), layers->layers.end(),
                            [&](const auto& layer) { return layerWeightAt(layer, time) > 0.0f; });
  const bool moved = scalp && boundScalp_->pointsHash() != scalp->pointsHash();
  if (!corrected && !moved) return guides;

  std::uint64_t key = hashCombine(0x905E, scalp ? scalp->pointsHash() : 0);
  if (corrected) {
    for (const CorrectiveLayer& layer : layers->layers) {
      key = hashNumber(key, layerWeightAt(layer, time));
    }
  }
  const std::shared_ptr<const CorrectiveData> used = corrected ? layers : nullptr;
  for (const Pose& pose : poses_) {
    if (pose.guides && pose.key == key && pose.layers == used) return pose.guides;
  }
  auto posed = std::make_shared<GuideHierarchy>(*guides);
  if (moved) posed->updateFromScalp(scalp.get());
  if (corrected) applyCorrectives(layers->layers, *posed, time, nullptr, scalp.get());
  poses_[next_] = {key, used, std::move(posed)};
  return poses_[std::exchange(next_, 1 - next_)].guides;
}

}  // namespace kestrane
