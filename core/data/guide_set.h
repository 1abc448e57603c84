// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "core/base/vec.h"
#include "core/data/strand_set.h"

namespace kestrane {

/// One guide as operators read it: its curve and the layers painted on it.
struct Guide {
  std::uint64_t id = 0;
  std::uint32_t group = 0;
  std::uint64_t parent = 0;  // the guide that it follows, 0 for none
  StrandRoot root;
  std::vector<Vec3f> points;                                  // root first
  std::map<std::string, float> attributes;                    // one value per guide
  std::map<std::string, std::vector<float>> pointAttributes;  // one value per point

  bool operator==(const Guide&) const = default;
};

/// The guides that travel on a wire: immutable once shared.
struct GuideSet {
  std::vector<Guide> guides;

  bool operator==(const GuideSet&) const = default;
};

using GuideSetPtr = std::shared_ptr<const GuideSet>;

/// Over all contents, in order.
std::uint64_t contentHash(const GuideSet& guides);

/// The guides as strands, so that one code path serves both: IDs, roots and points as they are,
/// widths 1, attributes as strand channels, point attributes as point channels (0 where a guide
/// lacks one that another has). Point attributes of another size than the guide's points are
/// resampled to fit.
StrandSet strandsFromGuides(const GuideSet& guides);

/// Strands made from guides, turned back: group and parent come from the guide of the same ID in
/// `source`; a layer that the source guide lacked and whose values are still 0 stays lacking. Point
/// channels whose size no longer fits are resampled by the operator that changed the points, so
/// sizes always fit here.
GuideSet guidesFromStrands(const StrandSet& strands, const GuideSet& source);

}  // namespace kestrane
