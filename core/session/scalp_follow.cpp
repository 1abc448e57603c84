// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/session/scalp_follow.h"

#include "core/base/parallel.h"

namespace kestrane {

StrandSetPtr carryStrands(const StrandSetPtr& strands, const ScalpMesh& from, const ScalpMesh& to) {
  if (!strands || from.topologyHash() != to.topologyHash() ||
      from.pointsHash() == to.pointsHash()) {
    return strands;
  }
  auto carried = std::make_shared<StrandSet>(*strands);
  Array<Vec3f>& points = carried->overwritePoints();
  const Array<Vec3f>& before = strands->points();
  const Array<std::uint64_t>& offsets = strands->offsets();
  const Array<StrandRoot>& roots = strands->roots();
  parallelRange(0, strands->strandCount(), 512, [&](std::size_t first, std::size_t last) {
    for (std::size_t i = first; i < last; ++i) {
      if (!from.hasFace(roots[i].face)) {
        std::copy(before.begin() + offsets[i], before.begin() + offsets[i + 1],
                  points.begin() + offsets[i]);
        continue;
      }
      const SurfaceFrame a = from.frameAt(roots[i]);
      const SurfaceFrame b = to.frameAt(roots[i]);
      const Vec3f start = from.positionAt(roots[i]);
      const Vec3f end = to.positionAt(roots[i]);
      for (std::uint64_t p = offsets[i]; p < offsets[i + 1]; ++p) {
        const Vec3f local = before[p] - start;
        points[p] = end + b.tangent * dot(a.tangent, local) +
                    b.bitangent * dot(a.bitangent, local) + b.normal * dot(a.normal, local);
      }
    }
  });
  return carried;
}

}  // namespace kestrane
