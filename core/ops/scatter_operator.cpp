// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <list>
#include <memory>
#include <mutex>
#include <numeric>
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
// Where the highest density is looked for.
constexpr double searchedSpots = 65536.0;

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
    const Settings settings = readSettings(mesh, valueAs<GuideSet>(inputs[1]), context);
    const double previewed = previewShare(context.detail, settings.expected, settings.points,
                                          budgetOf(context), settings.previewAll);
    checkPointLimits(settings, previewed, budgetOf(context) > 0);
    const auto share = static_cast<float>(previewed);
    const std::shared_ptr<const Placed> placed = placedFor(settings, context, share);
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
    ScalpMeshPtr mesh;
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
    /// Whether roots move away from their random spots.
    bool movesRoots() const { return randomness != 1.0f && !grid; }
  };

  static std::uint64_t budgetOf(const EvalContext& context) {
    return context.resources ? context.resources->pointBudget : 0;
  }

  Settings readSettings(ScalpMeshPtr scalp, GuideSetPtr guides, const EvalContext& context) const {
    Settings settings;
    settings.mesh = std::move(scalp);
    const ScalpMesh& mesh = *settings.mesh;
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
    if (settings.guideRadius > 0.0f && guideRoots(settings).empty()) {
      throw GraphError("Scatter: guideRadius needs guides on the guides input (a Guides node)");
    }
    readDensity(context, settings);
    if (settings.grid) {
      settings.expected = settings.density > 0.0 ? static_cast<double>(settings.rows) *
                                                       static_cast<double>(settings.columns)
                                                 : 0.0;
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

  /// The density at the strands' roots, on the mesh that they are rooted on.
  ScalarField densityField(const StrandSet& strands, const Settings& settings,
                           const EvalContext& context) const {
    return bindParam(*this, "density", context, {&strands, settings.mesh, settings.guides, true});
  }

  /// The plain density; or, where something else stands in its place, the highest density that it
  /// asks for: its range for an image or a colour set, and what it gives over the whole surface
  /// where a formula, a layer or a wired field knows no range.
  void readDensity(const EvalContext& context, Settings& settings) const {
    const bool wired = parameters.wiredField("density") != nullptr;
    const MapRef* map = wired ? nullptr : parameters.map("density");
    settings.mapped = wired || map != nullptr;
    settings.density = parameters.number("density");
    if (!settings.mapped) return;
    if (map && (map->source == MapSource::texture || map->source == MapSource::colorSet)) {
      settings.density = std::max({0.0f, map->min, map->max});
      return;
    }
    settings.density = highestDensity(settings, context);
  }

  /// Looked for at every triangle's corners and middle, and at spots all over the surface, since a
  /// formula may change within a triangle.
  float highestDensity(const Settings& settings, const EvalContext& context) const {
    const ScalpMesh& mesh = *settings.mesh;
    std::vector<StrandRoot> roots;
    constexpr StrandRoot places[] = {{0, 0, 0}, {0, 1, 0}, {0, 0, 1}, {0, 1.0f / 3, 1.0f / 3}};
    for (std::size_t t = 0; t < mesh.triangleCount(); ++t) {
      for (const StrandRoot& place : places) {
        roots.push_back({static_cast<std::int32_t>(t), place.u, place.v});
      }
    }
    if (const double area = mesh.area(); area > 0.0 && std::isfinite(area)) {
      for (const auto& spot : scatterCandidates(mesh, searchedSpots / area, 0, 1.0f)) {
        roots.push_back(scatterRoot(spot));
      }
    }
    std::vector<std::uint64_t> ids(roots.size());
    std::iota(ids.begin(), ids.end(), 0u);
    const StrandSet samples = rootsAsStrands(mesh, ids, roots);
    const ScalarField field = densityField(samples, settings, context);
    // The greatest of some numbers is the same in any order.
    std::vector<float> highest((roots.size() + grain - 1) / grain, 0.0f);
    parallelRange(0, highest.size(), 4, [&](std::size_t first, std::size_t last) {
      FieldReader reader(field);
      for (std::size_t block = first; block < last; ++block) {
        const std::size_t end = std::min((block + 1) * grain, roots.size());
        for (std::size_t i = block * grain; i < end; ++i) {
          highest[block] = std::max(highest[block], reader.strand(i));
        }
      }
    });
    return highest.empty() ? 0.0f : *std::max_element(highest.begin(), highest.end());
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

  std::uint64_t keyOf(const Settings& settings, const EvalContext& context) const {
    const ScalpMesh& mesh = *settings.mesh;
    std::uint64_t key = hashCombine(placedKey, mesh.pointsHash());
    if (settings.grid) {
      key = hashCombine(key, static_cast<std::uint64_t>(settings.rows));
      key = hashCombine(key, static_cast<std::uint64_t>(settings.columns));
      key = hashNumber(key, settings.gridRandom);
    }
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

  /// The roots that a share of the candidates has. What all of them share is kept: a change of
  /// randomness or preview thinning alone places nothing anew.
  std::shared_ptr<const Placed> placedFor(const Settings& settings, const EvalContext& context,
                                          float share) {
    const std::uint64_t key = keyOf(settings, context);
    std::shared_ptr<const Placed> all = cache_.find(key);
    // A preview is not worth placing all for, unless even spots ask for it.
    if (!all && share < 1.0f && !settings.movesRoots()) return place(settings, context, share);
    if (!all) all = keep(key, place(settings, context, 1.0f));
    if (settings.movesRoots() && all->even.size() != all->roots.size()) {
      auto spread = std::make_shared<Placed>(*all);
      spread->even =
          relaxRoots(*settings.mesh, all->roots, spacings(settings, context, *all), settings.seed);
      all = keep(key, std::move(spread));
    }
    if (share >= 1.0f && !settings.movesRoots()) return all;
    return chosen(settings, *all, share);
  }

  std::shared_ptr<const Placed> keep(std::uint64_t key, std::shared_ptr<const Placed> placed) {
    cache_.insert(key, placed);
    return placed;
  }

  /// How far apart even roots would stand, at each root; 0 where none should.
  std::vector<float> spacings(const Settings& settings, const EvalContext& context,
                              const Placed& placed) const {
    std::vector<float> radii(placed.roots.size(), evenSpacing(settings.density));
    if (!settings.mapped) return radii;
    const StrandSet strands = rootsAsStrands(*settings.mesh, placed.ids, placed.roots);
    const ScalarField field = densityField(strands, settings, context);
    parallelRange(0, radii.size(), grain, [&](std::size_t first, std::size_t last) {
      FieldReader reader(field);
      for (std::size_t i = first; i < last; ++i) {
        const double local = std::min<double>(reader.strand(i), settings.density);
        radii[i] = local > 0.0 ? evenSpacing(local) : 0.0f;
      }
    });
    return radii;
  }

  std::shared_ptr<const Placed> place(const Settings& settings, const EvalContext& context,
                                      float share) const {
    const ScalpMesh& mesh = *settings.mesh;
    auto placed = std::make_shared<Placed>();
    if (!(settings.density > 0.0)) return placed;
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
    if (settings.mapped) thinByMap(settings, context, *placed, kept);
    if (settings.guideRadius > 0.0f) keepNearGuides(settings, *placed, kept);
    if (settings.mapped || settings.guideRadius > 0.0f) compact(*placed, kept);
    return placed;
  }

  void thinByMap(const Settings& settings, const EvalContext& context, const Placed& placed,
                 std::vector<char>& kept) const {
    const StrandSet strands = rootsAsStrands(*settings.mesh, placed.ids, placed.roots);
    const ScalarField field = densityField(strands, settings, context);
    const auto limit = static_cast<float>(settings.density);
    parallelRange(0, kept.size(), grain, [&](std::size_t first, std::size_t last) {
      FieldReader reader(field);
      for (std::size_t i = first; i < last; ++i) {
        const float draw = unitFloat(mix64(hashCombine(placed.ids[i], densitySalt)));
        if (!(reader.strand(i) / limit > draw)) kept[i] = 0;
      }
    });
  }

  static std::vector<Vec3f> guideRoots(const Settings& settings) {
    std::vector<Vec3f> roots;
    if (!settings.guides) return roots;
    for (const Guide& guide : settings.guides->guides) {
      if (!guide.points.empty()) roots.push_back(guide.points.front());
    }
    return roots;
  }

  static void keepNearGuides(const Settings& settings, const Placed& placed,
                             std::vector<char>& kept) {
    const KdTree tree(guideRoots(settings));
    const ScalpMesh& mesh = *settings.mesh;
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
  static std::shared_ptr<const Placed> chosen(const Settings& settings, const Placed& all,
                                              float share) {
    auto placed = std::make_shared<Placed>();
    std::vector<std::uint32_t> picked;
    picked.reserve(all.ids.size());
    for (std::size_t i = 0; i < all.ids.size(); ++i) {
      if (share >= 1.0f || hashPick(all.ids[i], share)) {
        picked.push_back(static_cast<std::uint32_t>(i));
      }
    }
    placed->ids.resize(picked.size());
    placed->roots.resize(picked.size());
    parallelRange(0, picked.size(), grain, [&](std::size_t first, std::size_t last) {
      for (std::size_t k = first; k < last; ++k) {
        const std::size_t i = picked[k];
        placed->ids[k] = all.ids[i];
        placed->roots[k] = settings.movesRoots() ? between(*settings.mesh, all.even[i],
                                                           all.roots[i], settings.randomness)
                                                 : all.roots[i];
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
