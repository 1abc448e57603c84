// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/ops/mesh_refiner.h"

#include <gtest/gtest.h>

#include "tests/support/test_meshes.h"

namespace kestrane {
namespace {

TEST(MeshRefiner, FollowsPosesAndOtherCages) {
  const ScalpMesh grid = test::makeGrid(2);
  std::vector<Vec3f> points = grid.points();
  points.push_back({5, 5, 5});
  // The faces stay the same, but there is a vertex more that none of them uses.
  ScalpMesh loose(points, grid.triangles());
  loose.setPolygons(grid.polygons());
  loose.setUvs(grid.uvs());
  const SceneMesh cages[] = {{.mesh = std::make_shared<const ScalpMesh>(grid)},
                             {.mesh = grid.withPoints(std::vector<Vec3f>(9, {1, 2, 3}))},
                             {.mesh = std::make_shared<const ScalpMesh>(loose)},
                             {.mesh = std::make_shared<const ScalpMesh>(grid)},
                             {.mesh = std::make_shared<const ScalpMesh>(test::makeGrid(3))}};
  MeshRefiner refiner;
  for (const SceneMesh& cage : cages) {
    const ScalpMeshPtr fine = refiner.refine(cage, "2");
    const ScalpMeshPtr fresh = makeSubdivisionPlan(*cage.mesh, 2)->refineMesh(*cage.mesh);
    EXPECT_EQ(fine->contentHash(), fresh->contentHash()) << &cage - cages;
    EXPECT_EQ(refiner.refine(cage, "2"), fine) << "made twice";
    EXPECT_EQ(MeshRefiner(refiner).refine(cage, "off"), cage.mesh);
  }
}

}  // namespace
}  // namespace kestrane
