// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/ops/mesh_refiner.h"

#include <algorithm>

#include "core/base/errors.h"

namespace kestrane {

namespace {

int levelOf(const SceneMesh& scene, const std::string& subdivision) {
  if (subdivision == "matchRender") return std::clamp(scene.renderLevels, 0, 3);
  if (subdivision == "off") return 0;
  if (subdivision == "1" || subdivision == "2" || subdivision == "3") return subdivision[0] - '0';
  throw GraphError("unknown subdivision '" + subdivision + "' (matchRender, off, 1, 2 or 3)");
}

}  // namespace

ScalpMeshPtr MeshRefiner::refine(const SceneMesh& scene, const std::string& subdivision) {
  const int level = levelOf(scene, subdivision);
  matched_ = subdivision == "matchRender";
  if (level == 0) {
    *this = MeshRefiner();
    return scene.mesh;
  }
  from_ = scene.levelsFrom;
  if (fine_ && cage_ == scene.mesh && level_ == level) return fine_;
  try {
    SubdivisionPlanPtr plan = plan_;
    if (!plan || level_ != level || !plan->fits(*scene.mesh)) {
      plan = makeSubdivisionPlan(*scene.mesh, level);
    }
    fine_ = plan->refineMesh(*scene.mesh);
    plan_ = std::move(plan);
  } catch (const std::invalid_argument& error) {
    *this = MeshRefiner();
    throw GraphError(error.what());
  }
  cage_ = scene.mesh;
  level_ = level;
  return fine_;
}

std::string MeshRefiner::note() const {
  if (!fine_) return {};
  const std::size_t faces =
      cage_->polygons().empty() ? cage_->triangleCount() : cage_->polygons().size();
  return "Catmull-Clark x" + std::to_string(level_) + ": " +
         std::to_string(fine_->triangleCount()) + " triangles from " + std::to_string(faces) +
         " faces" +
         (!matched_       ? ""
          : from_.empty() ? " (match render)"
                          : " (match render: " + from_ + ")");
}

}  // namespace kestrane
