// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <algorithm>
#include <cmath>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "core/base/errors.h"
#include "core/base/hash.h"
#include "core/graph/operator_registry.h"
#include "core/graph/strand_operator.h"
#include "core/guides/part_crossing.h"
#include "core/ops/clearance_field.h"
#include "core/ops/color_map.h"
#include "core/ops/color_regions.h"
#include "core/ops/guide_binding.h"
#include "core/ops/guide_shapes.h"

namespace kestrane {

namespace {

constexpr std::size_t grain = 256;
// Over the last twentieth of the limit the influence fades whatever the falloff says, so that a
// flat one has no visible edge.
constexpr float edgeFade = 20.0f;

const OperatorDeclaration& interpolateDeclaration() {
  static const OperatorDeclaration declaration{
      "Interpolate",
      "grow",
      "Grows each root into a strand shaped like the guides around it.",
      {{"strands", PortType::strands},
       {"guides", PortType::guides, true},
       {"scalp", PortType::mesh, true}},
      {"out", PortType::strands},
      {
          param("neighbors", 3,
                "How far each guide reaches: to its neighbors-th nearest guide (times reach). 1: "
                "every strand takes its nearest guide alone, with hard edges")
              .range(1, 16)
              .slider(1, 8)
              .animatable(),
          param("reach", 1.5,
                "Each guide's reach, as a multiple of the distance to its neighbors-th nearest "
                "guide; more blends more guides into each strand")
              .atLeast(1)
              .slider(1, 4)
              .animatable(),
          param("power", 2.0,
                "Falloff power of the guide weights over distance (2 neighbors or more)")
              .atLeast(0)
              .slider(0, 4)
              .animatable()
              .advanced()
              .showWhen("neighbors",
                        integers({2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16})),
          param("smoothGuides", true,
                "Follow each guide as the smooth curve the viewport draws through its points (a "
                "centripetal Catmull-Rom spline), not straight lines between them, so a bend drawn "
                "with few points stays round in the hair")
              .animatable()
              .advanced(),
          param("preserveLength", true,
                "Scale each blended strand to its guides' blended length (blending guides that "
                "point different ways would shorten it; take shape)")
              .animatable()
              .advanced()
              .showWhen("take", words({"shape"})),
          param("keepClearance", true,
                "Keep each strand as high above the scalp as its guides are at the same share of "
                "their length: where the skin under a strand bulges more than under its guides (an "
                "ear, a cheek, the neck), the part of it that would sink in is lifted out, its "
                "length kept (take shape; needs the scalp input)")
              .animatable()
              .showWhen("take", words({"shape"})),
          param("respectParts", true, "Never blend guides from the other side of a part")
              .animatable(),
          param("followSurface", true,
                "Measure how far guides reach along the scalp (the scalp input), not in a straight "
                "line, so they do not reach across an ear, a fold or a thin shell (the same on a "
                "smooth scalp)")
              .animatable(),
          param("limitDistance", 0.0,
                "How far guides reach: strands farther from every guide root keep their incoming "
                "shape (e.g. from Flow); 0: every strand follows the guides (and falloff and "
                "influenceChannel do nothing)")
              .atLeast(0)
              .slider(0, 10)
              .animatable()
              .unit("length")
              .group("Limit"),
          param("falloff", Ramp({{0.0f, 1.0f}, {1.0f, 0.0f}}),
                "With limitDistance above 0: the guides' influence over it, at the guide to "
                "limitDistance away")
              .animatable()
              .group("Limit"),
          param("take", "shape",
                "shape: the guides' shape and length; length: each strand keeps its own shape and "
                "takes the guides' length")
              .choices({"shape", "length"})
              .animatable()
              .advanced(),
          param("influenceChannel", "guideInfluence",
                "With limitDistance above 0: per-strand channel receiving the guides' influence, "
                "0-1 (empty: none)")
              .animatable()
              .advanced()
              .group("Limit"),
          param("regionMap", "",
                "Regions painted on the scalp in colors (empty: none): a strand blends only the "
                "guides rooted in its own region, with a hard edge between regions, like a part. "
                "Each color guides are rooted on is a region (soft paint between two joins the "
                "nearer); a strand in a color no guide is rooted on blends the nearest guides of "
                "any region. A map painted in Groom Tools > Paint by name, a color set of that "
                "name on the scalp, or an image file at the scalp's UVs")
              .animatable()
              .group("Regions"),
          param("regionChannel", "region",
                "With a regionMap: per-strand channel receiving each strand's region number (-1: "
                "none), which Clump, BlendNeighbors and Tangle keep within (empty: none)")
              .animatable()
              .advanced()
              .group("Regions"),
      }};
  return declaration;
}

/// What a binding was made of, to tell whether it still holds.
struct BindingKey {
  StrandSet roots;  // only its IDs and roots, which it shares with the strands that were bound
  GuideSetPtr guides;
  ScalpMeshPtr scalp;
  std::shared_ptr<const PartData> parts;
  BindingSettings settings;
  bool followSurface = false;
  std::string regionMap;
  std::uint64_t regionKey = 0;
};

bool sameRoots(const StrandSet& a, const StrandSet& b) {
  return (a.sharesIdsWith(b) || a.ids() == b.ids()) &&
         (a.sharesRootsWith(b) || a.roots() == b.roots());
}

/// Whether two guide sets root the same guides in the same places, whatever their shapes.
bool sameGuideRoots(const GuideSet& a, const GuideSet& b) {
  if (&a == &b) return true;
  return std::equal(a.guides.begin(), a.guides.end(), b.guides.begin(), b.guides.end(),
                    [](const Guide& g, const Guide& h) {
                      return g.id == h.id && g.points.empty() == h.points.empty() &&
                             (g.points.empty() || g.points.front() == h.points.front());
                    });
}

bool sameLayers(const GuideSet& a, const GuideSet& b) {
  return std::equal(
      a.guides.begin(), a.guides.end(), b.guides.begin(), b.guides.end(),
      [](const Guide& g, const Guide& h) {
        return g.attributes.size() == h.attributes.size() &&
               g.pointAttributes.size() == h.pointAttributes.size() &&
               std::equal(g.attributes.begin(), g.attributes.end(), h.attributes.begin(),
                          [](const auto& l, const auto& r) { return l.first == r.first; }) &&
               std::equal(g.pointAttributes.begin(), g.pointAttributes.end(),
                          h.pointAttributes.begin(),
                          [](const auto& l, const auto& r) { return l.first == r.first; });
      });
}

bool operator==(const BindingSettings& a, const BindingSettings& b) {
  return a.neighbors == b.neighbors && a.reach == b.reach && a.power == b.power &&
         a.farthest == b.farthest;
}

/// A binding and what it was made of. Immutable.
struct Bound {
  BindingKey key;
  std::shared_ptr<const GuideBinding> binding;
  std::vector<std::int32_t> strandRegions;  // empty without a region map
};

class InterpolateOp final : public StrandOperator {
 public:
  InterpolateOp() : StrandOperator(interpolateDeclaration()) {}

  GraphValue evaluate(const EvalContext& context, std::span<const GraphValue> inputs) override {
    if (isEmpty(inputs[0])) throw GraphError("Interpolate: strands input not connected");
    return StrandOperator::evaluate(context, inputs);
  }

  void edit(StrandEdit& edit) override {
    const EvalContext& context = edit.context();
    const std::string take = parameters.text("take");
    if (take != "shape" && take != "length") {
      throw GraphError("Interpolate: take must be shape or length");
    }
    const GuideSetPtr guides = usableGuides(valueAs<GuideSet>(edit.inputs()[1]));
    if (!guides || guides->guides.empty()) {
      context.warn(
          "no guides: place some with the guide tools; the strands keep their incoming shape");
      return edit.passThrough();
    }
    const ScalpMeshPtr scalp = valueAs<ScalpMesh>(edit.inputs()[2]);
    const StrandSet& in = edit.input();
    const std::shared_ptr<const Bound> bound = boundTo(in, guides, scalp, context);
    const GuideBinding& binding = *bound->binding;

    const bool takesShape = take == "shape";
    const bool preserveLength = parameters.boolean("preserveLength");
    const float limit = static_cast<float>(parameters.number("limitDistance"));
    const Ramp falloff = parameters.ramp("falloff");
    const bool smooth = parameters.boolean("smoothGuides");
    std::shared_ptr<const ClearanceField> field;
    if (takesShape && scalp && parameters.boolean("keepClearance")) field = clearanceOf(scalp);
    const ScalpMesh* surface = scalp ? scalp.get() : edit.surface();
    const std::vector<Vec3f> normals = guideNormals(*guides, surface);
    const auto shapes = shapesFor(in, *guides, normals, smooth, field.get());

    const std::span<Vec3f> points = edit.points();
    std::span<float> influences;
    const std::string influenceChannel = parameters.text("influenceChannel");
    if (limit > 0.0f && !influenceChannel.empty()) {
      influences = edit.strandChannel(influenceChannel);
    }
    std::span<float> regions;
    const std::string regionChannel = parameters.text("regionChannel");
    if (!bound->strandRegions.empty() && !regionChannel.empty()) {
      regions = edit.strandChannel(regionChannel, -1.0f);
    }
    const std::vector<StrandLayer> strandLayers = openStrandLayers(edit, *guides);
    const std::vector<PointLayer> pointLayers = openPointLayers(edit, *guides);

    edit.run(grain, [&](const StrandRange& strands) {
      std::map<std::size_t, StrandBlender> blenders;
      std::vector<std::pair<std::size_t, float>> faded;  // strands with their influence
      for (const std::size_t strand : strands) {
        const std::span<const Vec3f> incoming = in.strandPoints(strand);
        const std::span<Vec3f> out = points.subspan(in.offsets()[strand], incoming.size());
        const float influence = influenceAt(binding.distance[strand], limit, falloff);
        if (!influences.empty()) influences[strand] = influence;
        if (!regions.empty()) regions[strand] = static_cast<float>(bound->strandRegions[strand]);
        for (const StrandLayer& layer : strandLayers) layer.write(binding, strand);
        for (const PointLayer& layer : pointLayers) {
          layer.write(binding, strand, in.offsets()[strand], incoming.size());
        }
        if (incoming.empty()) continue;
        if (!(influence > 0.0f) || binding.begin(strand) == binding.end(strand)) {
          std::copy(incoming.begin(), incoming.end(), out.begin());
          continue;
        }
        const auto found =
            blenders.try_emplace(incoming.size(), *shapes.at(incoming.size()), binding).first;
        StrandBlender& blender = found->second;
        const StrandRoot at = in.roots()[strand];
        const bool rooted = surface != nullptr && surface->hasFace(at.face);
        if (takesShape) {
          const Vec3f root = rooted ? surface->positionAt(at) : incoming[0];
          const Vec3f normal = rooted ? surface->normalAt(at) : normalNear(surface, root);
          blender.blend(strand, root, normal, preserveLength, out);
        } else {
          std::copy(incoming.begin(), incoming.end(), out.begin());
          scaleToLength(out, blender.targetLength(strand));
        }
        if (influence < 1.0f) faded.push_back({strand, influence});
      }
      for (auto& [count, blender] : blenders) blender.finish();
      for (const auto& [strand, influence] : faded) {
        const std::span<const Vec3f> incoming = in.strandPoints(strand);
        Vec3f* const out = points.data() + in.offsets()[strand];
        for (std::size_t k = 0; k < incoming.size(); ++k) {
          out[k] = lerp(incoming[k], out[k], influence);
        }
      }
    });
  }

  std::uint64_t contextKey(const EvalContext& context) const override {
    std::uint64_t key = colorMapKey(parameters.text("regionMap"), context);
    if (context.resources != nullptr && parameters.boolean("respectParts")) {
      key = hashCombine(key, context.resources->partsRevision);
    }
    return key;
  }

  void adoptState(Operator& previous) override {
    auto& other = static_cast<InterpolateOp&>(previous);
    const std::scoped_lock lock(mutex_, other.mutex_);
    bound_ = other.bound_;
    fieldScalp_ = other.fieldScalp_;
    field_ = other.field_;
  }

 protected:
  /// Strands that changed themselves, and those bound to a guide whose shape changed. A guide that
  /// came, went or moved its root changes the binding, and with it everything.
  StrandChangesPtr strandsToRun(const EvalContext& context, std::span<const GraphValue> inputs,
                                const IncrementalState& state) override {
    const StrandChangesPtr& strands = state.inputChanges[0];
    if (!strands || strands->all) return nullptr;
    for (std::size_t i = 2; i < state.inputChanges.size(); ++i) {
      if (!state.inputChanges[i] || !state.inputChanges[i]->empty()) return nullptr;
    }
    if (state.inputChanges[1] && state.inputChanges[1]->empty()) return strands;
    if (state.previousInputs.size() < 2) return nullptr;
    const GuideSetPtr before = usableGuides(valueAs<GuideSet>(state.previousInputs[1]));
    const GuideSetPtr after = usableGuides(valueAs<GuideSet>(inputs[1]));
    if (!before || !after || !sameGuideRoots(*before, *after) || !sameLayers(*before, *after)) {
      return nullptr;
    }
    std::vector<std::uint32_t> moved;
    for (std::size_t g = 0; g < after->guides.size(); ++g) {
      if (before->guides[g] != after->guides[g]) moved.push_back(static_cast<std::uint32_t>(g));
    }
    const StrandSetPtr in = valueAs<StrandSet>(inputs[0]);
    const ScalpMeshPtr scalp = valueAs<ScalpMesh>(inputs[2]);
    const auto held = boundTo(*in, after, scalp, context);
    auto changes = std::make_shared<StrandChanges>();
    std::vector<std::uint32_t> follow = held->binding->strandsOf(moved);
    if (strands->strands.empty()) {
      changes->strands = std::move(follow);
      return changes;
    }
    std::set_union(follow.begin(), follow.end(), strands->strands.begin(), strands->strands.end(),
                   std::back_inserter(changes->strands));
    return changes;
  }

 private:
  /// The guides that have a curve; the set itself where all do.
  static GuideSetPtr usableGuides(GuideSetPtr guides) {
    if (!guides) return guides;
    const auto usable = [](const Guide& g) {
      return g.points.size() >= 2 &&
             std::all_of(g.points.begin(), g.points.end(), [](Vec3f p) { return isFinite(p); });
    };
    if (std::all_of(guides->guides.begin(), guides->guides.end(), usable)) return guides;
    auto kept = std::make_shared<GuideSet>();
    std::copy_if(guides->guides.begin(), guides->guides.end(), std::back_inserter(kept->guides),
                 usable);
    return kept;
  }

  static float influenceAt(float distance, float limit, const Ramp& falloff) {
    if (!(limit > 0.0f)) return 1.0f;
    const float x = distance / limit;
    if (!(x < 1.0f)) return 0.0f;
    return std::clamp(falloff.evaluate(x), 0.0f, 1.0f) *
           std::clamp(edgeFade * (1.0f - x), 0.0f, 1.0f);
  }

  /// The direction up at the surface nearest to a strand that is not rooted.
  static Vec3f normalNear(const ScalpMesh* surface, Vec3f position) {
    const SurfaceHit hit = surface ? surface->closestPoint(position) : SurfaceHit{};
    return hit.root.face >= 0 ? surface->normalAt(hit.root) : Vec3f{0.0f, 1.0f, 0.0f};
  }

  /// The binding, from the last evaluation where it still holds.
  std::shared_ptr<const Bound> boundTo(const StrandSet& in, const GuideSetPtr& guides,
                                       const ScalpMeshPtr& scalp, const EvalContext& context) {
    BindingKey key;
    key.guides = guides;
    key.scalp = scalp ? scalp : context.surface;
    if (context.resources != nullptr && parameters.boolean("respectParts")) {
      key.parts = context.resources->parts;
    }
    key.settings.neighbors = static_cast<int>(parameters.integer("neighbors"));
    key.settings.reach = static_cast<float>(parameters.number("reach"));
    key.settings.power = static_cast<float>(parameters.number("power"));
    key.settings.farthest = reachOf(static_cast<float>(parameters.number("limitDistance")));
    key.followSurface = parameters.boolean("followSurface") && scalp != nullptr;
    key.regionMap = parameters.text("regionMap");
    key.regionKey = colorMapKey(key.regionMap, context);
    if (!key.regionMap.empty() && key.scalp) {
      key.regionKey = hashCombine(key.regionKey, key.scalp->colorsHash());
    }
    std::shared_ptr<const Bound> held;
    {
      const std::lock_guard lock(mutex_);
      held = bound_;
    }
    if (held && holds(held->key, key, in)) return held;
    const auto made = std::make_shared<Bound>(bind(in, std::move(key), context));
    const std::lock_guard lock(mutex_);
    bound_ = made;
    return made;
  }

  /// A limit in powers of two, so that dragging it seldom binds anew.
  static float reachOf(float limit) {
    if (!(limit > 0.0f)) return 0.0f;
    int exponent = 0;
    std::frexp(std::min(limit, 1e30f), &exponent);
    return std::ldexp(1.0f, exponent);
  }

  static bool holds(const BindingKey& held, const BindingKey& key, const StrandSet& in) {
    return held.settings == key.settings && held.followSurface == key.followSurface &&
           held.regionMap == key.regionMap && held.regionKey == key.regionKey &&
           held.parts == key.parts && sameScalp(held.scalp, key.scalp) &&
           sameGuideRoots(*held.guides, *key.guides) && sameRoots(held.roots, in);
  }

  static bool sameScalp(const ScalpMeshPtr& a, const ScalpMeshPtr& b) {
    return a == b || (a && b && a->pointsHash() == b->pointsHash());
  }

  static Bound bind(const StrandSet& in, BindingKey key, const EvalContext& context) {
    Bound bound;
    const ScalpMesh* surface = key.scalp.get();
    const std::size_t strands = in.strandCount();
    std::vector<Vec3f> roots(strands);
    std::vector<std::int32_t> faces(strands, -1);
    parallelRange(0, strands, 1024, [&](std::size_t first, std::size_t last) {
      for (std::size_t i = first; i < last; ++i) {
        const StrandRoot root = in.roots()[i];
        const std::span<const Vec3f> points = in.strandPoints(i);
        const bool rooted = surface != nullptr && surface->hasFace(root.face);
        roots[i] = rooted ? surface->positionAt(root) : points.empty() ? Vec3f{} : points.front();
        if (rooted) faces[i] = root.face;
      }
    });
    std::vector<Vec3f> guideRoots;
    std::vector<StrandRoot> guideSurfaceRoots;
    for (const Guide& guide : key.guides->guides) {
      guideRoots.push_back(guide.points.front());
      guideSurfaceRoots.push_back(surface ? surface->closestPoint(guide.points.front()).root
                                          : StrandRoot{});
    }
    const PartCrossing parts =
        key.parts && surface ? PartCrossing(*key.parts, *surface) : PartCrossing();
    ColorRegions regions;
    if (const auto map =
            openColorMap(key.regionMap, key.scalp, context,
                         "a guide layer holds numbers, not the colors that regions are told by")) {
      regions = findColorRegions(*map, guideSurfaceRoots, in.roots());
    }
    BindingInput input;
    input.strandRoots = roots;
    input.strandFaces = faces;
    input.strandRegions = regions.ofStrands;
    input.guideRoots = guideRoots;
    input.guideSurfaceRoots = guideSurfaceRoots;
    input.guideRegions = regions.ofGuides;
    input.surface = key.followSurface ? surface : nullptr;
    input.parts = parts.empty() ? nullptr : &parts;
    bound.binding = bindToGuides(input, key.settings);
    bound.strandRegions = std::move(regions.ofStrands);
    key.roots.shareIdsFrom(in);
    key.roots.shareRootsFrom(in);
    bound.key = std::move(key);
    return bound;
  }

  std::shared_ptr<const ClearanceField> clearanceOf(const ScalpMeshPtr& scalp) {
    {
      const std::lock_guard lock(mutex_);
      if (field_ && sameScalp(fieldScalp_, scalp)) return field_;
    }
    const auto field = std::make_shared<const ClearanceField>(scalp);
    const std::lock_guard lock(mutex_);
    field_ = field;
    fieldScalp_ = scalp;
    return field;
  }

  static std::vector<Vec3f> guideNormals(const GuideSet& guides, const ScalpMesh* surface) {
    std::vector<Vec3f> normals(guides.guides.size(), Vec3f{0.0f, 1.0f, 0.0f});
    if (surface == nullptr) return normals;
    for (std::size_t g = 0; g < normals.size(); ++g) {
      const SurfaceHit hit = surface->closestPoint(guides.guides[g].points.front());
      if (hit.root.face >= 0) normals[g] = surface->normalAt(hit.root);
    }
    return normals;
  }

  /// The guides' shapes for every number of points that strands have.
  static std::map<std::size_t, std::shared_ptr<const GuideShapes>> shapesFor(
      const StrandSet& in, const GuideSet& guides, const std::vector<Vec3f>& normals, bool smooth,
      const ClearanceField* field) {
    std::map<std::size_t, std::shared_ptr<const GuideShapes>> shapes;
    const auto add = [&](std::size_t count) {
      auto& shape = shapes[count];
      if (!shape) shape = std::make_shared<GuideShapes>(guides, normals, count, smooth, field);
    };
    if (const std::size_t uniform = in.uniformPointCount()) {
      add(uniform);
    } else {
      for (std::size_t i = 0; i < in.strandCount(); ++i) {
        add(static_cast<std::size_t>(in.offsets()[i + 1] - in.offsets()[i]));
      }
    }
    return shapes;
  }

  /// A layer painted on the guides, blended onto the strands like their shapes.
  struct StrandLayer {
    std::vector<float> guides;
    std::span<float> out;

    void write(const GuideBinding& binding, std::size_t strand) const {
      float sum = 0.0f;
      for (std::size_t e = binding.begin(strand); e < binding.end(strand); ++e) {
        sum += binding.weight(e) * guides[binding.guide(e)];
      }
      out[strand] = sum;
    }
  };

  struct PointLayer {
    std::vector<std::vector<float>> guides;  // evenly spaced values; empty for a guide without
    std::span<float> out;

    void write(const GuideBinding& binding, std::size_t strand, std::size_t first,
               std::size_t count) const {
      for (std::size_t k = 0; k < count; ++k) {
        const float t = count > 1 ? static_cast<float>(k) / static_cast<float>(count - 1) : 0.0f;
        float sum = 0.0f;
        for (std::size_t e = binding.begin(strand); e < binding.end(strand); ++e) {
          sum += binding.weight(e) * at(guides[binding.guide(e)], t);
        }
        out[first + k] = sum;
      }
    }

    static float at(const std::vector<float>& values, float t) {
      if (values.empty()) return 0.0f;
      const float place = t * static_cast<float>(values.size() - 1);
      const auto i = std::min(static_cast<std::size_t>(place), values.size() - 1);
      const std::size_t next = std::min(i + 1, values.size() - 1);
      return lerp(values[i], values[next], place - static_cast<float>(i));
    }
  };

  static std::vector<StrandLayer> openStrandLayers(StrandEdit& edit, const GuideSet& guides) {
    std::map<std::string, StrandLayer> layers;
    for (std::size_t g = 0; g < guides.guides.size(); ++g) {
      for (const auto& [name, value] : guides.guides[g].attributes) {
        StrandLayer& layer = layers[name];
        layer.guides.resize(guides.guides.size(), 0.0f);
        layer.guides[g] = value;
      }
    }
    std::vector<StrandLayer> opened;
    for (auto& [name, layer] : layers) {
      layer.out = edit.strandChannel(name);
      opened.push_back(std::move(layer));
    }
    return opened;
  }

  static std::vector<PointLayer> openPointLayers(StrandEdit& edit, const GuideSet& guides) {
    std::map<std::string, PointLayer> layers;
    for (std::size_t g = 0; g < guides.guides.size(); ++g) {
      for (const auto& [name, values] : guides.guides[g].pointAttributes) {
        PointLayer& layer = layers[name];
        layer.guides.resize(guides.guides.size());
        layer.guides[g] = values;
      }
    }
    std::vector<PointLayer> opened;
    for (auto& [name, layer] : layers) {
      layer.out = edit.pointChannel(name);
      opened.push_back(std::move(layer));
    }
    return opened;
  }

  std::mutex mutex_;
  std::shared_ptr<const Bound> bound_;
  ScalpMeshPtr fieldScalp_;
  std::shared_ptr<const ClearanceField> field_;
};

}  // namespace

void registerInterpolateOperator(OperatorRegistry& registry) {
  registry.add<InterpolateOp>();
}

}  // namespace kestrane
