// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "core/data/scalp_mesh.h"
#include "core/guides/correctives.h"
#include "core/guides/guide_hierarchy.h"

namespace kestrane {

/// Guides as a session poses them: bound to its scalp once, then carried by every pose of it, with
/// the correctives of the time on top. The last two poses are kept, since a groom that follows its
/// scalp needs the rest pose and the posed one by turns. Not thread-safe.
class GuidePoser {
 public:
  void setGuides(std::shared_ptr<const GuideHierarchy> guides);

  /// The guides as they were set, bound to the scalp where they are not yet. The same object until
  /// the guides or the scalp's topology change.
  std::shared_ptr<const GuideHierarchy> bound(const ScalpMeshPtr& scalp);
  /// The guides on this pose of the scalp at a time. Null without guides.
  std::shared_ptr<const GuideHierarchy> pose(const ScalpMeshPtr& scalp,
                                             const std::shared_ptr<const CorrectiveData>& layers,
                                             double time);

 private:
  std::shared_ptr<const GuideHierarchy> guides_;
  std::shared_ptr<const GuideHierarchy> bound_;
  ScalpMeshPtr boundScalp_;  // the pose that they were bound to

  struct Pose {
    std::uint64_t key = 0;
    std::shared_ptr<const CorrectiveData> layers;
    std::shared_ptr<const GuideHierarchy> guides;
  };
  std::array<Pose, 2> poses_;
  std::size_t next_ = 0;  // the one to go
};

}  // namespace kestrane
