// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/ops/guide_binding.h"

#include <algorithm>
#include <cfloat>
#include <cmath>

#include "core/base/parallel.h"
#include "core/ops/guide_lookup.h"
#include "core/ops/surface_reach.h"
#include "tests/ops/ops_fixtures.h"

namespace kestrane {
namespace {

using test::OpsFixture;

BindingInput inputOf(const std::vector<Vec3f>& roots, const std::vector<std::int32_t>& faces,
                     const std::vector<Vec3f>& guides) {
  BindingInput input;
  input.strandRoots = roots;
  input.strandFaces = faces;
  input.guideRoots = guides;
  return input;
}

TEST(GuideBinding, WeightsSumToOneAndReachIsRespected) {
  std::vector<Vec3f> guides, roots;
  for (int i = 0; i < 60; ++i) {
    guides.push_back({10 * unitFloat(mix64(static_cast<std::uint64_t>(i))), 0,
                      10 * unitFloat(mix64(static_cast<std::uint64_t>(i) + 500))});
  }
  for (std::uint64_t i = 0; i < 3000; ++i) {
    roots.push_back({12 * unitFloat(mix64(i + 1000)) - 1, 0, 12 * unitFloat(mix64(i + 9000)) - 1});
  }
  const std::vector<std::int32_t> faces(roots.size(), -1);
  for (const int neighbors : {1, 2, 3, 8}) {
    const auto binding = bindToGuides(inputOf(roots, faces, guides), {neighbors, 1.5f, 2.0f, 1.0f});
    for (std::size_t i = 0; i < roots.size(); ++i) {
      float sum = 0.0f, nearest = 1e9f;
      for (std::size_t e = binding->begin(i); e < binding->end(i); ++e) sum += binding->weight(e);
      EXPECT_NEAR(sum, 1.0f, 1e-3f);
      for (const Vec3f g : guides) nearest = std::min(nearest, distance(g, roots[i]));
      EXPECT_NEAR(binding->distance[i], nearest, 1e-5f);
      if (neighbors == 1) {
        EXPECT_EQ(binding->end(i) - binding->begin(i), 1u);
        EXPECT_EQ(binding->weights[binding->begin(i)], 65535);
      }
    }
  }
}

/// The weights as they are told: modified Shepard over the reach, sharpened, and near the edge of
/// all reaches mixed with those of the nearest guides alone.
TEST(GuideBinding, FollowsItsFormula) {
  // Distances between the guides: 1, 2 and 3 along a line.
  const std::vector<Vec3f> guides{{0, 0, 0}, {1, 0, 0}, {3, 0, 0}, {6, 0, 0}};
  constexpr int neighbors = 2;
  constexpr float reachFactor = 1.5f;
  for (const float power : {2.0f, 1.0f, 3.5f}) {
    std::vector<Vec3f> roots;
    for (int i = -20; i <= 90; ++i)
      roots.push_back({0.1f * static_cast<float>(i) + 0.013f, 0.3f, 0});
    const std::vector<std::int32_t> faces(roots.size(), -1);
    const auto binding =
        bindToGuides(inputOf(roots, faces, guides), {neighbors, reachFactor, power, 0.0f});
    // To the second nearest guide, times the factor.
    const double reach[] = {1.5 * 3, 1.5 * 2, 1.5 * 3, 1.5 * 5};
    for (std::size_t i = 0; i < roots.size(); ++i) {
      std::vector<std::pair<double, std::size_t>> nearest;
      for (std::size_t g = 0; g < 4; ++g) nearest.push_back({distance(roots[i], guides[g]), g});
      std::sort(nearest.begin(), nearest.end());
      const auto sharpened = [&](std::vector<double> weights) {
        const double most = *std::max_element(weights.begin(), weights.end());
        double sum = 0.0;
        for (double& w : weights) sum += w = most > 0.0 ? std::pow(w / most, power) : 0.0;
        for (double& w : weights) w = sum > 0.0 ? w / sum : 0.0;
        return weights;
      };
      std::vector<double> inReach(4, 0.0), among(4, 0.0);
      double coverage = 0.0;
      for (const auto& [d, g] : nearest) {
        if (d >= reach[g]) continue;
        inReach[g] = (reach[g] - d) / (reach[g] * d);
        coverage = std::max(coverage, (reach[g] - d) / reach[g]);
      }
      const double radius = nearest[neighbors].first;
      for (std::size_t k = 0; k < neighbors; ++k) {
        const auto& [d, g] = nearest[k];
        among[g] = (radius - d) / (radius * d);
      }
      inReach = sharpened(inReach);
      among = sharpened(among);
      const double share = std::min(4.0 * coverage, 1.0);
      std::vector<double> found(4, 0.0);
      for (std::size_t e = binding->begin(i); e < binding->end(i); ++e) {
        found[binding->guide(e)] = static_cast<double>(binding->weight(e));
      }
      for (std::size_t g = 0; g < 4; ++g) {
        EXPECT_NEAR(found[g], share * inReach[g] + (1.0 - share) * among[g], 1e-4)
            << power << ' ' << roots[i].x << ' ' << g;
      }
    }
  }
}

TEST(GuideBinding, HoldsBackNoneAndTooManyOfTheGuides) {
  // 500 guides that all reach everywhere.
  std::vector<Vec3f> guides, roots;
  for (std::uint64_t i = 0; i < 500; ++i) {
    guides.push_back({10 * unitFloat(mix64(i)), 0, 10 * unitFloat(mix64(i + 700))});
  }
  for (int i = 0; i <= 4000; ++i) roots.push_back({0.0025f * static_cast<float>(i), 0, 5});
  const std::vector<std::int32_t> faces(roots.size(), -1);
  for (const float reach : {1000.0f, 1e20f, 8e37f, FLT_MAX}) {
    const auto binding = bindToGuides(inputOf(roots, faces, guides), {3, reach, 2.0f, 0.0f});
    std::vector<float> last(guides.size(), -1.0f);
    for (std::size_t i = 0; i < roots.size(); ++i) {
      ASSERT_LE(binding->end(i) - binding->begin(i), mostGuidesPerStrand);
      float sum = 0.0f;
      std::vector<float> weights(guides.size(), 0.0f);
      for (std::size_t e = binding->begin(i); e < binding->end(i); ++e) {
        sum += weights[binding->guide(e)] = binding->weight(e);
      }
      EXPECT_NEAR(sum, 1.0f, 1e-3f);
      // No guide comes or goes with a step.
      for (std::size_t g = 0; g < guides.size() && i > 0; ++g) {
        EXPECT_LT(std::abs(weights[g] - last[g]), 0.06f) << i;
      }
      last = std::move(weights);
    }
  }
}

TEST(GuideBinding, PrefersGuidesThatTheSurfaceLeadsTo) {
  // Two plates, one above the other, and a third alone.
  std::vector<Vec3f> points;
  std::vector<ScalpMesh::Triangle> triangles;
  for (const Vec3f at : {Vec3f{0, 0, 0}, Vec3f{0, 0.5f, 0}, Vec3f{30, 0, 0}}) {
    const auto first = static_cast<std::int32_t>(points.size());
    for (const Vec3f corner : {Vec3f{0, 0, 0}, Vec3f{8, 0, 0}, Vec3f{8, 0, 8}, Vec3f{0, 0, 8}}) {
      points.push_back(at + corner);
    }
    triangles.push_back({first, first + 2, first + 1});
    triangles.push_back({first, first + 3, first + 2});
  }
  const ScalpMesh plates(points, triangles);
  const std::vector<Vec3f> guides{{6, 0, 6}, {2, 0.5f, 2}, {2.2f, 0.5f, 2}, {2, 0.5f, 2.2f}};
  const std::vector<Vec3f> roots{{2, 0, 2}, {34, 0, 4}};
  std::vector<StrandRoot> guideRoots;
  for (const Vec3f guide : guides) guideRoots.push_back(plates.closestPoint(guide).root);
  std::vector<std::int32_t> faces;
  for (const Vec3f root : roots) faces.push_back(plates.closestPoint(root).root.face);
  BindingInput input = inputOf(roots, faces, guides);
  input.guideSurfaceRoots = guideRoots;
  input.surface = &plates;
  const auto binding = bindToGuides(input, {2, 1.5f, 2.0f, 100.0f});
  ASSERT_EQ(binding->end(0) - binding->begin(0), 1u);
  EXPECT_EQ(binding->guide(binding->begin(0)), 0u);
  EXPECT_NEAR(binding->distance[0], std::sqrt(32.0f), 1e-3f);
  // No guide stands on its plate: it follows the nearest rather than none, but none is near.
  EXPECT_GT(binding->end(1), binding->begin(1));
  EXPECT_TRUE(std::isinf(binding->distance[1]));
}

TEST(GuideBinding, IsTheSameOnAllThreads) {
  std::vector<Vec3f> guides, roots;
  for (std::uint64_t i = 0; i < 50; ++i) {
    guides.push_back({10 * unitFloat(mix64(i)), 0, 10 * unitFloat(mix64(i + 700))});
  }
  for (std::uint64_t i = 0; i < 20000; ++i) {
    roots.push_back({10 * unitFloat(mix64(i + 3000)), 0, 10 * unitFloat(mix64(i + 90000))});
  }
  const std::vector<std::int32_t> faces(roots.size(), -1);
  std::shared_ptr<const GuideBinding> bindings[2];
  for (const std::size_t threads : {1, 8}) {
    runWithThreads(threads, [&] {
      bindings[threads > 1] = bindToGuides(inputOf(roots, faces, guides), {3, 1.5f, 2.0f, 1.0f});
    });
  }
  EXPECT_EQ(bindings[0]->offsets, bindings[1]->offsets);
  EXPECT_EQ(bindings[0]->guides16, bindings[1]->guides16);
  EXPECT_EQ(bindings[0]->weights, bindings[1]->weights);
  EXPECT_EQ(bindings[0]->distance, bindings[1]->distance);
}

TEST(GuideBinding, ChangesSmoothlyOverTheScalp) {
  std::vector<Vec3f> guides, roots;
  for (int i = 0; i < 40; ++i) {
    guides.push_back({10 * unitFloat(mix64(static_cast<std::uint64_t>(i))), 0,
                      10 * unitFloat(mix64(static_cast<std::uint64_t>(i) + 500))});
  }
  constexpr int steps = 20000;
  for (int i = 0; i <= steps; ++i) {
    const float t = static_cast<float>(i) / steps;
    roots.push_back({14 * t - 2, 0, 5 + 2 * std::sin(9 * t)});
  }
  const std::vector<std::int32_t> faces(roots.size(), -1);
  const auto binding = bindToGuides(inputOf(roots, faces, guides), {});
  std::vector<float> last(guides.size(), -1.0f);
  for (std::size_t i = 0; i < roots.size(); ++i) {
    std::vector<float> weights(guides.size(), 0.0f);
    for (std::size_t e = binding->begin(i); e < binding->end(i); ++e) {
      weights[binding->guide(e)] = binding->weight(e);
    }
    if (i > 0) {
      for (std::size_t g = 0; g < guides.size(); ++g) {
        EXPECT_LT(std::abs(weights[g] - last[g]), 0.05f) << "step " << i << " guide " << g;
      }
    }
    last = weights;
  }
}

TEST(GuideBinding, LivesThroughCoincidentFewAndManyGuides) {
  const std::vector<Vec3f> roots{{0, 0, 0}, {1, 0, 0}, {5, 0, 0}};
  const std::vector<std::int32_t> faces(3, -1);
  const std::vector<Vec3f> one{{2, 0, 0}};
  const auto alone = bindToGuides(inputOf(roots, faces, one), {});
  for (std::size_t i = 0; i < 3; ++i) EXPECT_EQ(alone->weights[alone->begin(i)], 65535);
  const std::vector<Vec3f> pile(9, Vec3f{1, 0, 0});
  const auto piled = bindToGuides(inputOf(roots, faces, pile), {});
  for (std::size_t i = 0; i < 3; ++i) {
    float sum = 0.0f;
    for (std::size_t e = piled->begin(i); e < piled->end(i); ++e) sum += piled->weight(e);
    EXPECT_NEAR(sum, 1.0f, 1e-3f);
  }
  std::vector<Vec3f> many;
  for (int i = 0; i < 70000; ++i) {
    many.push_back({static_cast<float>(i % 300), 0, static_cast<float>(i / 300)});
  }
  const auto wide = bindToGuides(inputOf(roots, faces, many), {});
  EXPECT_TRUE(wide->wide);
  // The inverse lists exactly the strands bound to a guide.
  for (const std::uint32_t g : {0u, 1u, 5u, 69999u}) {
    const std::vector<std::uint32_t> listed = wide->strandsOf(std::vector<std::uint32_t>{g});
    for (std::uint32_t i = 0; i < 3; ++i) {
      bool bound = false;
      for (std::size_t e = wide->begin(i); e < wide->end(i); ++e) bound |= wide->guide(e) == g;
      EXPECT_EQ(std::count(listed.begin(), listed.end(), i), bound ? 1 : 0);
    }
  }
}

TEST(GuideLookup, MissesNoGuideThatReaches) {
  std::vector<Vec3f> roots;
  std::vector<float> reaches;
  for (std::uint64_t i = 0; i < 200; ++i) {
    roots.push_back({unitFloat(mix64(i)), unitFloat(mix64(i + 300)), unitFloat(mix64(i + 600))});
    reaches.push_back(i % 17 == 0 ? 0.8f : 0.05f + 0.1f * unitFloat(mix64(i + 900)));
  }
  const GuideLookup lookup(roots, reaches);
  for (std::uint64_t i = 0; i < 3000; ++i) {
    const Vec3f p = Vec3f{unitFloat(mix64(i + 5000)), unitFloat(mix64(i + 15000)),
                          unitFloat(mix64(i + 25000))} *
                        1.6f -
                    Vec3f{0.3f, 0.3f, 0.3f};
    const auto found = lookup.at(p);
    EXPECT_TRUE(std::is_sorted(found.begin(), found.end()));
    for (std::uint32_t g = 0; g < roots.size(); ++g) {
      if (distance(p, roots[g]) < reaches[g]) {
        EXPECT_TRUE(std::binary_search(found.begin(), found.end(), g));
      }
    }
  }
}

TEST(SurfaceReach, IsStraightOnASmoothSurfaceAndLongAcrossAFold) {
  const OpsFixture fixture;
  const StrandRoot seed = fixture.scalp->closestPoint({0, 10, 0}).root;
  const SurfaceReach smooth(*fixture.scalp, std::vector<StrandRoot>{seed},
                            std::vector<float>{8.0f});
  SurfaceReach::Face face;
  for (const float angle : {0.1f, 0.3f, 0.5f}) {
    const SurfaceHit hit =
        fixture.scalp->closestPoint(Vec3f{std::sin(angle), std::cos(angle), 0} * 10.0f);
    smooth.enter(hit.root.face, face);
    const float straight = distance(hit.position, fixture.scalp->positionAt(seed));
    EXPECT_NEAR(smooth.distanceTo(face, hit.position, 0, straight), straight, 0.02f * straight);
  }
  // Two sheets of a folded strip, 1 apart and joined 10 away.
  std::vector<Vec3f> points;
  std::vector<ScalpMesh::Triangle> triangles;
  for (int i = 0; i <= 40; ++i) {
    const float along = i <= 20 ? 0.5f * static_cast<float>(i) : 0.5f * static_cast<float>(40 - i);
    const float height = i <= 20 ? 0.0f : 1.0f;
    points.push_back({along, height, 0});
    points.push_back({along, height, 1});
    if (i == 0) continue;
    const int b = 2 * i;
    triangles.push_back({b - 2, b, b - 1});
    triangles.push_back({b - 1, b, b + 1});
  }
  const ScalpMesh fold(points, triangles);
  const StrandRoot below = fold.closestPoint({1, 0, 0.5f}).root;
  const SurfaceReach folded(fold, std::vector<StrandRoot>{below}, std::vector<float>{100.0f});
  const SurfaceHit above = fold.closestPoint({1, 1, 0.5f});
  folded.enter(above.root.face, face);
  EXPECT_GT(folded.distanceTo(face, above.position, 0, 1.0f), 10.0f);
}

}  // namespace
}  // namespace kestrane
