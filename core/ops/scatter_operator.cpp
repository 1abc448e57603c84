// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <list>
#include <memory>
#include <mutex>
#include <vector>

#include "core/base/errors.h"
#include "core/base/hash.h"
#include "core/base/parallel.h"
#include "core/data/kd_tree.h"
#include "core/data/surface_walk.h"
#include "core/graph/operator_registry.h"
#include "core/graph/scalar_field.h"
#include "core/ops/blue_noise.h"
#include "core/ops/scatter_candidates.h"

namespace kestrane {

namespace {

constexpr std::size_t grain = 256;
constexpr double mostStrands = 50e6;
constexpr double mostPreviewPoints = 60e6;
constexpr double mostPoints = 400e6;
constexpr std::uint64_t densitySalt = 0xD3A5;
constexpr std::uint64_t placedKey = 0x91ACED5CA77E2ull;
constexpr float defaultWidth = 0.007f;

/// Roots in candidate order. Shared and never changed.
struct Placed {
  std::vector<std::uint64_t> ids;
  std::vector<StrandRoot> roots;  // at random
  std::vector<StrandRoot> even;   // evenly spread; empty where nobody asked
};

/// The last placements, so that a change of randomness, length or preview thinning alone reuses
/// them. A pure cache.
class PlacedCache {
 public:
  std::shared_ptr<const Placed> find(std::uint64_t key) {
    const std::lock_guard lock(mutex_);
    for (auto place = records_.begin(); place != records_.end(); ++place) {
      if (place->first != key) continue;
      records_.splice(records_.begin(), records_, place);
      return records_.front().second;
    }
    return nullptr;
  }
  void insert(std::uint64_t key, std::shared_ptr<const Placed> placed) {
    const std::lock_guard lock(mutex_);
    records_.remove_if([&](const auto& record) { return record.first == key; });
    records_.emplace_front(key, std::move(placed));
    if (records_.size() > 2) records_.pop_back();
  }
  void adopt(PlacedCache& other) {
    const std::scoped_lock lock(mutex_, other.mutex_);
    records_ = other.records_;
  }

 private:
  std::mutex mutex_;
  std::list<std::pair<std::uint64_t, std::shared_ptr<const Placed>>> records_;  // newest first
};

const OperatorDeclaration& scatterDeclaration() {
  static const OperatorDeclaration declaration{
      "Scatter",
      "grow",
      "Roots over the scalp: how many hairs, and where.",
      {{"scalp", PortType::mesh}, {"guides", PortType::guides, true}},
      {"out", PortType::strands},
      {
          param("density", 200.0,
                "Strands per unit area (mappable: texture, color set, expression, guide layer)")
              .atLeast(0)
              .slider(0, 2000)
              .unit("density"),
          param("seed", 0, "Random seed").advanced(),
          param("length", 1.0, "Initial strand length along the surface normal")
              .slider(0, 10)
              .animatable()
              .unit("length"),
          param(
              "randomness", 1.0,
              "How random the roots are: 0 evenly spread (blue noise), 1 at random (white noise); "
              "in between each root moves smoothly from its even spot to its random one, past 1 on "
              "beyond it (more clumps and gaps), up to 2. The same strands at every value")
              .range(0, 2)
              .slider(0, 1)
              .animatable()
              .unit("fraction")
              .showWhen("layout", words({"random"})),
          param("layout", "random",
                "random: roots at random (randomness 0 spreads them evenly); uvGrid: one per cell "
                "of a grid over the scalp's UVs (rows x columns; density maps thin it)")
              .choices({"random", "uvGrid"}),
          param("gridRows", 100, "uvGrid: rows of the grid, along V")
              .range(1, 20000)
              .slider(1, 1000)
              .showWhen("layout", words({"uvGrid"})),
          param("gridColumns", 100, "uvGrid: columns of the grid, along U")
              .range(1, 20000)
              .slider(1, 1000)
              .showWhen("layout", words({"uvGrid"})),
          param("gridRandom", 0.0, "uvGrid: each root moved at random up to this share of its cell")
              .range(0, 1)
              .unit("fraction")
              .showWhen("layout", words({"uvGrid"})),
          param(
              "previewAll", false,
              "Every root in the viewport too, whatever the groom's preview density: for a few big "
              "pieces (feather shafts, scales, instances) that a thinned preview would leave bald"),
          param("guideRadius", 0.0,
                "Only within this distance of a guide's root (the guides input): fur along drawn "
                "guides, a patch, a stripe. 0, or nothing connected to guides: the whole scalp")
              .atLeast(0)
              .slider(0, 5)
              .advanced()
              .unit("length"),
      }};
  return declaration;
}

/// The strands whose candidates' roots stand in for them until they are grown: one point each.
StrandSet rootsAsStrands(const ScalpMesh& mesh, const std::vector<std::uint64_t>& ids,
                         const std::vector<StrandRoot>& roots) {
  StrandSet strands;
  strands.resizeFromCounts(std::vector<std::uint32_t>(roots.size(), 1), StrandSet::keepPoints);
  std::copy(ids.begin(), ids.end(), strands.mutableIds().begin());
  std::copy(roots.begin(), roots.end(), strands.mutableRoots().begin());
  Array<Vec3f>& points = strands.mutablePoints();
  parallelRange(0, roots.size(), 1024, [&](std::size_t first, std::size_t last) {
    for (std::size_t i = first; i < last; ++i) points[i] = mesh.positionAt(roots[i]);
  });
  return strands;
}

class ScatterOp final : public DeclaredOperator {
 public:
  ScatterOp() : DeclaredOperator(scatterDeclaration()) {}

  GraphValue evaluate(const EvalContext& context, std::span<const GraphValue> inputs) override {
    const ScalpMeshPtr mesh = valueAs<ScalpMesh>(inputs[0]);
    if (!mesh) {
      throw GraphError("Scatter: no scalp mesh: connect a Scalp node and give the groom its mesh");
    }
    Settings settings = readSettings(*mesh, valueAs<GuideSet>(inputs[1]), context);
    const double previewed = previewShare(context.detail, settings.expected, settings.points,
                                          budgetOf(context), settings.previewAll);
    checkPointLimits(settings, previewed, budgetOf(context) > 0);
    const auto share = static_cast<float>(previewed);
    // Even spots come from all candidates together, whatever the preview then shows of them.
    const bool even = settings.randomness != 1.0f && !settings.grid;
    std::shared_ptr<const Placed> placed =
        even ? placedAll(*mesh, settings, context) : place(*mesh, settings, context, share);
    if (even) placed = blended(*mesh, *placed, settings.randomness, share);
    return grow(*mesh, *placed, settings.points, static_cast<float>(parameters.number("length")));
  }

  void adoptState(Operator& previous) override {
    cache_.adopt(static_cast<ScatterOp&>(previous).cache_);
  }

  std::uint64_t contextKey(const EvalContext& context) const override {
    return hashCombine(0x5CA77E2, budgetOf(context));
  }

 private:
  struct Settings {
    bool grid = false;
    std::int64_t rows = 0, columns = 0;
    float gridRandom = 0.0f;
    float randomness = 1.0f;
    std::uint64_t seed = 0;
    bool previewAll = false;
    double density = 0.0;  // the upper limit, where a map thins it
    bool mapped = false;
    double expected = 0.0;  // strands in all
    std::size_t points = 0;
    float guideRadius = 0.0f;
    GuideSetPtr guides;
  };

  static std::uint64_t budgetOf(const EvalContext& context) {
    return context.resources ? context.resources->pointBudget : 0;
  }

  Settings readSettings(const ScalpMesh& mesh, GuideSetPtr guides,
                        const EvalContext& context) const {
    Settings settings;
    settings.grid = parameters.text("layout") == "uvGrid";
    settings.rows = parameters.integer("gridRows");
    settings.columns = parameters.integer("gridColumns");
    settings.gridRandom = static_cast<float>(parameters.number("gridRandom"));
    settings.randomness = static_cast<float>(parameters.number("randomness"));
    settings.seed = static_cast<std::uint64_t>(parameters.integer("seed"));
    settings.previewAll = parameters.boolean("previewAll");
    settings.guideRadius = static_cast<float>(parameters.number("guideRadius"));
    settings.guides = std::move(guides);
    settings.points = static_cast<std::size_t>(std::max(context.resampleSegments, 1)) + 1;
    if (settings.grid && !mesh.hasUvs()) {
      throw GraphError("Scatter: the uvGrid layout needs the scalp's UVs");
    }
    if (settings.guideRadius > 0.0f && (!settings.guides || settings.guides->guides.empty())) {
      throw GraphError("Scatter: guideRadius needs guides on the guides input (a Guides node)");
    }
    readDensity(mesh, context, settings);
    if (settings.grid) {
      settings.expected =
          static_cast<double>(settings.rows) * static_cast<double>(settings.columns);
      if (settings.expected > mostStrands) {
        throw GraphError("Scatter: the grid would create more than 50M strands");
      }
    } else {
      settings.expected = settings.density * mesh.area();
      if (!std::isfinite(settings.expected)) {
        throw GraphError("Scatter: the density (or the scalp's area) is not a finite number");
      }
      if (settings.expected > mostStrands) {
        throw GraphError("Scatter: density would create more than 50M strands");
      }
    }
    return settings;
  }

  FieldTarget target(const StrandSet& strands, const Settings& settings,
                     const EvalContext& context) const {
    return {&strands, context.surface, settings.guides, true};
  }

  /// The plain density; or, where a map stands in its place, the highest density that the map asks
  /// for: its range for an image or a colour set, and what it gives over the triangles' corners and
  /// middles where a formula or layer knows no range.
  void readDensity(const ScalpMesh& mesh, const EvalContext& context, Settings& settings) const {
    const MapRef* map = parameters.map("density");
    settings.mapped = map != nullptr || parameters.wiredField("density") != nullptr;
    settings.density = parameters.number("density");
    if (map == nullptr) return;
    settings.density = std::max({0.0f, map->min, map->max});
    if (map->source == MapSource::texture || map->source == MapSource::colorSet) return;
    std::vector<std::uint64_t> ids;
    std::vector<StrandRoot> roots;
    constexpr StrandRoot places[] = {{0, 0, 0}, {0, 1, 0}, {0, 0, 1}, {0, 1.0f / 3, 1.0f / 3}};
    for (std::size_t t = 0; t < mesh.triangleCount(); ++t) {
      for (const StrandRoot& place : places) {
        ids.push_back(roots.size());
        roots.push_back({static_cast<std::int32_t>(t), place.u, place.v});
      }
    }
    const StrandSet samples = rootsAsStrands(mesh, ids, roots);
    const ScalarField field =
        bindParam(*this, "density", context, target(samples, settings, context));
    FieldReader reader(field);
    float highest = 0.0f;
    for (std::size_t i = 0; i < roots.size(); ++i) highest = std::max(highest, reader.strand(i));
    settings.density = highest;
  }

  static void checkPointLimits(const Settings& settings, double share, bool budget) {
    const double total = share * static_cast<double>(settings.points) * settings.expected;
    char text[256];
    if (!budget && share < 1.0 && total > mostPreviewPoints) {
      std::snprintf(text, sizeof(text),
                    "Scatter: the preview would have %.0fM points (%.0fk strands x %zu): lower the "
                    "preview density, density or the Resample's segments",
                    total / 1e6, share * settings.expected / 1000.0, settings.points);
      throw GraphError(text);
    }
    if (total > mostPoints) {
      std::snprintf(text, sizeof(text),
                    "Scatter: %.0fM points (strands x %zu) is more than memory holds: lower the "
                    "density or the Resample's segments",
                    total / 1e6, settings.points);
      throw GraphError(text);
    }
  }

  std::uint64_t keyOf(const ScalpMesh& mesh, const Settings& settings,
                      const EvalContext& context) const {
    std::uint64_t key = hashCombine(placedKey, mesh.pointsHash());
    key = hashNumber(key, settings.density);
    key = hashCombine(key, settings.seed);
    key = hashCombine(key, settings.mapped ? hashValue(parameters.value("density")) : 0);
    key = hashCombine(key, settings.mapped ? paramsContextKey(parameters, context) : 0);
    key = hashCombine(key, settings.mapped ? mesh.contentHash() : 0);
    if (const FieldValuePtr field = parameters.wiredField("density")) {
      key = hashCombine(hashCombine(key, field->cacheKey()), field->contextKey(context));
    }
    key = hashNumber(key, settings.guideRadius);
    if (settings.guides && (settings.mapped || settings.guideRadius > 0.0f)) {
      key = hashCombine(key, contentHash(*settings.guides));
    }
    return key;
  }

  /// All candidates with their random and their even spots.
  std::shared_ptr<const Placed> placedAll(const ScalpMesh& mesh, const Settings& settings,
                                          const EvalContext& context) {
    const std::uint64_t key = keyOf(mesh, settings, context);
    if (auto found = cache_.find(key)) return found;
    auto placed = place(mesh, settings, context, 1.0f);
    std::vector<float> radii(placed->roots.size(), evenSpacing(settings.density));
    if (settings.mapped) {
      const StrandSet strands = rootsAsStrands(mesh, placed->ids, placed->roots);
      const ScalarField field =
          bindParam(*this, "density", context, target(strands, settings, context));
      parallelRange(0, radii.size(), grain, [&](std::size_t first, std::size_t last) {
        FieldReader reader(field);
        for (std::size_t i = first; i < last; ++i) {
          const double local = std::min<double>(reader.strand(i), settings.density);
          radii[i] = local > 0.0 ? evenSpacing(local) : 0.0f;
        }
      });
    }
    placed->even = relaxRoots(mesh, placed->roots, radii, settings.seed);
    cache_.insert(key, placed);
    return placed;
  }

  std::shared_ptr<Placed> place(const ScalpMesh& mesh, const Settings& settings,
                                const EvalContext& context, float share) const {
    auto placed = std::make_shared<Placed>();
    if (settings.grid) {
      GridCandidates grid = scatterUvGrid(mesh, settings.rows, settings.columns,
                                          settings.gridRandom, settings.seed, share);
      placed->ids = std::move(grid.ids);
      placed->roots = std::move(grid.roots);
    } else {
      const std::vector<ScatterCandidate> candidates =
          scatterCandidates(mesh, settings.density, settings.seed, share);
      placed->ids.resize(candidates.size());
      placed->roots.resize(candidates.size());
      parallelRange(0, candidates.size(), grain, [&](std::size_t first, std::size_t last) {
        for (std::size_t i = first; i < last; ++i) {
          placed->ids[i] = candidates[i].id;
          placed->roots[i] = scatterRoot(candidates[i]);
        }
      });
    }
    std::vector<char> kept(placed->ids.size(), 1);
    if (settings.mapped) thinByMap(mesh, settings, context, *placed, kept);
    if (settings.guideRadius > 0.0f) keepNearGuides(mesh, settings, *placed, kept);
    if (settings.mapped || settings.guideRadius > 0.0f) compact(*placed, kept);
    return placed;
  }

  void thinByMap(const ScalpMesh& mesh, const Settings& settings, const EvalContext& context,
                 const Placed& placed, std::vector<char>& kept) const {
    const StrandSet strands = rootsAsStrands(mesh, placed.ids, placed.roots);
    const ScalarField field =
        bindParam(*this, "density", context, target(strands, settings, context));
    const auto limit = static_cast<float>(settings.density);
    parallelRange(0, kept.size(), grain, [&](std::size_t first, std::size_t last) {
      FieldReader reader(field);
      for (std::size_t i = first; i < last; ++i) {
        const float draw = unitFloat(mix64(hashCombine(placed.ids[i], densitySalt)));
        if (limit > 0.0f && !(reader.strand(i) / limit > draw)) kept[i] = 0;
      }
    });
  }

  static void keepNearGuides(const ScalpMesh& mesh, const Settings& settings, const Placed& placed,
                             std::vector<char>& kept) {
    std::vector<Vec3f> guideRoots;
    for (const Guide& guide : settings.guides->guides) {
      if (!guide.points.empty()) guideRoots.push_back(guide.points.front());
    }
    const KdTree tree(guideRoots);
    const float limit = settings.guideRadius * settings.guideRadius;
    parallelRange(0, kept.size(), grain, [&](std::size_t first, std::size_t last) {
      for (std::size_t i = first; i < last; ++i) {
        if (kept[i] && !(tree.nearest(mesh.positionAt(placed.roots[i])).distanceSquared <= limit)) {
          kept[i] = 0;
        }
      }
    });
  }

  static void compact(Placed& placed, const std::vector<char>& kept) {
    std::size_t count = 0;
    for (std::size_t i = 0; i < kept.size(); ++i) {
      if (!kept[i]) continue;
      placed.ids[count] = placed.ids[i];
      placed.roots[count++] = placed.roots[i];
    }
    placed.ids.resize(count);
    placed.roots.resize(count);
  }

  /// The candidates that a share keeps, each at its place between its even spot (0) and its random
  /// one (1), or beyond it in the same direction.
  static std::shared_ptr<const Placed> blended(const ScalpMesh& mesh, const Placed& all,
                                               float randomness, float share) {
    auto placed = std::make_shared<Placed>();
    std::vector<std::uint32_t> chosen;
    chosen.reserve(all.ids.size());
    for (std::size_t i = 0; i < all.ids.size(); ++i) {
      if (share >= 1.0f || hashPick(all.ids[i], share)) {
        chosen.push_back(static_cast<std::uint32_t>(i));
      }
    }
    placed->ids.resize(chosen.size());
    placed->roots.resize(chosen.size());
    parallelRange(0, chosen.size(), grain, [&](std::size_t first, std::size_t last) {
      for (std::size_t k = first; k < last; ++k) {
        const std::size_t i = chosen[k];
        placed->ids[k] = all.ids[i];
        placed->roots[k] = between(mesh, all.even[i], all.roots[i], randomness);
      }
    });
    return placed;
  }

  static StrandRoot between(const ScalpMesh& mesh, StrandRoot even, StrandRoot random, float t) {
    if (t <= 0.0f) return even;
    if (t == 1.0f) return random;
    const Vec3f from = mesh.positionAt(even), to = mesh.positionAt(random);
    if (t > 1.0f) return walkOnSurface(mesh, random, (to - from) * (t - 1.0f));
    // The surface point nearest the place on the straight line moves smoothly from one end to the
    // other, and both ends are close.
    const SurfaceHit hit = mesh.closestPoint(lerp(from, to, t), distance(from, to));
    return hit.root.face >= 0 ? hit.root : random;
  }

  static GraphValue grow(const ScalpMesh& mesh, const Placed& placed, std::size_t points,
                         float length) {
    StrandSet strands;
    strands.resizeFromCounts(
        std::vector<std::uint32_t>(placed.ids.size(), static_cast<std::uint32_t>(points)),
        StrandSet::keepPoints | StrandSet::keepWidths);
    Array<std::uint64_t>& ids = strands.mutableIds();
    Array<StrandRoot>& roots = strands.mutableRoots();
    Array<Vec3f>& out = strands.mutablePoints();
    Array<float>& widths = strands.mutableWidths();
    parallelRange(0, placed.ids.size(), grain, [&](std::size_t first, std::size_t last) {
      for (std::size_t i = first; i < last; ++i) {
        ids[i] = placed.ids[i];
        roots[i] = placed.roots[i];
        const Vec3f root = mesh.positionAt(roots[i]);
        const Vec3f way = mesh.normalAt(roots[i]) * length;
        for (std::size_t k = 0; k < points; ++k) {
          out[i * points + k] =
              root + way * (static_cast<float>(k) / static_cast<float>(points - 1));
        }
        std::fill_n(widths.begin() + static_cast<std::ptrdiff_t>(i * points), points, defaultWidth);
      }
    });
    return std::make_shared<const StrandSet>(std::move(strands));
  }

  PlacedCache cache_;
};

}  // namespace

void registerScatterOperator(OperatorRegistry& registry) {
  registry.add<ScatterOp>();
}

}  // namespace kestrane
