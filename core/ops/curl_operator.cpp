// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <bit>
#include <optional>
#include <vector>

#include "core/base/errors.h"
#include "core/base/hash.h"
#include "core/graph/operator_registry.h"
#include "core/graph/strand_operator.h"
#include "core/ops/curl_clumps.h"
#include "core/ops/curl_kernel.h"

namespace kestrane {

namespace {

// Salts, so that operators of one seed do not draw the same numbers.
constexpr std::uint64_t strandSalt = 0xC0217001ull;
constexpr std::uint64_t clumpSalt = 0xC0217002ull;

const OperatorDeclaration& curlDeclaration() {
  static const OperatorDeclaration declaration{
      "Curl",
      "look",
      "Helical curls around each strand.",
      {{"strands", PortType::curves}},
      {"out", PortType::curves},
      {
          param("radius", 0.5,
                "Curl radius, scene units (mappable, per point); a coil's is coilWidths")
              .slider(0, 2)
              .animatable()
              .unit("length")
              .showWhen("shape", words({"helix", "wave", "zigzag"})),
          param("frequency", 0.4, "Turns per unit of length")
              .slider(0, 2)
              .animatable()
              .unit("perLength"),
          param("frequencyProfile", Ramp({{0.0f, 1.0f}}),
                "Frequency along the length, root to tip, a share of frequency (the tightest): "
                "curls loosening or tightening toward the tip")
              .animatable(),
          param("randomness", 0.3, "Per-strand variation of radius and frequency, 0-1")
              .range(0, 1)
              .animatable()
              .unit("fraction"),
          param("spacingRandom", 0.0,
                "Smooth random variation of the spacing along each strand (each clump's with "
                "coherence clump), 0-1: the frequency varies by up to this share every turn or two")
              .range(0, 1)
              .animatable()
              .unit("fraction"),
          param("profile", Ramp({{0.0f, 0.0f}, {0.25f, 1.0f}, {1.0f, 1.0f}}),
                "Radius along the length, root to tip (eased in from 0 at the root over the first "
                "quarter turn)")
              .animatable(),
          param("shape", "helix",
                "helix: around the strand; wave: a planar sine; zigzag: sharp planar kinks (kinky "
                "hair); coil: a tight helix coilWidths strand widths across (coily hair)")
              .choices({"helix", "wave", "zigzag", "coil"})
              .animatable(),
          param("coilWidths", 3.0,
                "Coil: its radius in strand widths at each point (the widths the strands carry: "
                "put a Width node before it)")
              .slider(0, 10)
              .animatable()
              .showWhen("shape", words({"coil"})),
          param("phase", 0.0, "Where along a turn every curl starts, in turns (0-1)")
              .slider(0, 1)
              .animatable()
              .unit("turns"),
          param("phaseRandom", 1.0,
                "How much of a turn each strand's (or clump's) start varies at random, 0-1")
              .range(0, 1)
              .animatable()
              .unit("fraction"),
          param("coherence", "strand",
                "strand: each strand curls on its own; clump: the strands of a clump curl together "
                "around its middle, with one phase, frequency and plane (ringlets; after a Clump)")
              .choices({"strand", "clump"})
              .animatable(),
          param("clumpChannel", "clumpId",
                "Coherence clump: the channel naming each strand's clump (Clump writes clumpId)")
              .animatable()
              .advanced()
              .showWhen("coherence", words({"clump"})),
          param("tolerance", 0.5,
                "How far a straight segment may stray from the round curl, a share of its radius: "
                "where the points coming in are too few a turn for it, Curl adds points (0.5: 3 a "
                "turn, so no curl aliases into another; 0.3: 4; 0.1: 7; 0.03: 13; a zigzag gets "
                "its kinks). 0: only the points coming in. Points added take the GPU preview off "
                "this node: more Resample segments keep it")
              .range(0, 1)
              .slider(0, 0.5)
              .advanced()
              .unit("fraction"),
          param("maxSegments", 256, "The most segments a strand may have with the points Curl adds")
              .range(1, 4096)
              .slider(16, 1024)
              .advanced(),
          param("seed", 0, "Random seed").advanced(),
      }};
  return declaration;
}

/// What one evaluation curls by, bound to its strands.
struct CurlPlan {
  const StrandSet& in;
  const ScalpMesh* surface;
  CurlShape shape;
  bool coil = false;
  ScalarField radius;  // a coil's in widths
  std::uint64_t seed = 0;
  std::optional<CurlClumps> clumps;

  std::uint64_t keyOf(std::size_t strand) const {
    return hashCombine(in.ids()[strand], seed ^ strandSalt);
  }
  /// The clump that the strand curls with; null where it curls on its own.
  const CurlClumps::Clump* clumpOf(std::size_t strand) const {
    return clumps ? clumps->of(strand) : nullptr;
  }
  /// Takes the strand into the kernel, up to its turns.
  void begin(CurlKernel& kernel, std::size_t strand) const {
    const float length = kernel.measure(in.strandPoints(strand));
    const CurlClumps::Clump* clump = clumpOf(strand);
    if (clump == nullptr) return kernel.turn(CurlTurns(shape, keyOf(strand), length));
    const auto number = std::bit_cast<std::uint32_t>(clump->number);
    kernel.turn(CurlTurns(shape, hashCombine(number, seed ^ clumpSalt), clump->longest));
  }
  void follow(CurlKernel& kernel, std::size_t strand) const {
    const CurlClumps::Clump* clump = clumpOf(strand);
    if (clump != nullptr && clump->hasAxis) return kernel.follow(clump->axis);
    kernel.follow(curlHint(surface, in.roots()[strand]));
  }
};

class CurlOp final : public StrandOperator {
 public:
  CurlOp() : StrandOperator(curlDeclaration()) {}

  void edit(StrandEdit& edit) override {
    const CurlPlan plan = planFor(edit);
    const bool adds = plan.shape.piecesPerTurn > 0 && edit.addPoints(128, [&](std::size_t strand) {
      thread_local CurlKernel kernel;
      plan.begin(kernel, strand);
      return kernel.neededPoints();
    });
    if (!adds && plan.radius.isConstant() && plan.radius.constant() == 0.0f) {
      return edit.passThrough();
    }
    if (adds) {
      curlAddingPoints(plan, edit);
    } else {
      curlInPlace(plan, edit);
    }
  }

 private:
  static void curlInPlace(const CurlPlan& plan, StrandEdit& edit) {
    const StrandSet& in = plan.in;
    const std::span<Vec3f> out = edit.points();
    edit.run(128, [&](const StrandRange& strands) {
      FieldReader radii(plan.radius);
      CurlKernel kernel;
      for (const std::size_t strand : strands) {
        const std::span<const Vec3f> points = in.strandPoints(strand);
        const std::size_t first = in.offsets()[strand], count = points.size();
        plan.begin(kernel, strand);
        plan.follow(kernel, strand);
        const float scale = curlRadiusScale(plan.shape, plan.keyOf(strand));
        const std::span<Vec3f> moved = out.subspan(first, count);
        if (plan.coil) {
          kernel.displace(points, {in.widths().data() + first, count},
                          scale * plan.radius.constant(), moved);
        } else {
          kernel.displace(points, {radii.points(strand, count), count}, scale, moved);
        }
      }
    });
  }

  static void curlAddingPoints(const CurlPlan& plan, StrandEdit& edit) {
    const StrandEdit::PointArrays arrays = edit.pointArrays();
    edit.run(128, [&](const StrandRange& strands) {
      FieldReader radii(plan.radius);
      CurlKernel kernel;
      std::vector<float> placedRadii;
      for (const std::size_t strand : strands) {
        const std::span<Vec3f> moved = arrays.points(strand);
        if (moved.empty()) continue;
        plan.begin(kernel, strand);
        kernel.addPoints();
        arrays.apply(strand, kernel);
        plan.follow(kernel, strand);
        const float scale = curlRadiusScale(plan.shape, plan.keyOf(strand));
        if (plan.coil) {
          kernel.displace(moved, arrays.widths(strand), scale * plan.radius.constant(), moved);
        } else {
          const std::size_t count = plan.in.strandPoints(strand).size();
          placedRadii.resize(moved.size());
          kernel.apply(std::span(radii.points(strand, count), count), std::span(placedRadii));
          kernel.displace(moved, placedRadii, scale, moved);
        }
      }
    });
  }

  CurlPlan planFor(StrandEdit& edit) const {
    CurlPlan plan{edit.input(), edit.surface(), {}, {}, {}, {}, {}};
    plan.shape = shapeOf(parameters.text("shape"));
    plan.coil = parameters.text("shape") == "coil";
    plan.radius = plan.coil ? ScalarField(static_cast<float>(parameters.number("coilWidths")))
                            : edit.field("radius");
    plan.seed = static_cast<std::uint64_t>(parameters.integer("seed"));
    if (parameters.text("coherence") == "clump") {
      edit.readsWholeSet();
      const std::string channel = parameters.text("clumpChannel");
      const Array<float>* numbers = plan.in.strandChannel(channel);
      if (numbers == nullptr) {
        throw GraphError("Curl: coherence clump needs a Clump before it (no '" + channel +
                         "' channel)");
      }
      plan.clumps.emplace(plan.in, *numbers, plan.surface);
    }
    return plan;
  }

  CurlShape shapeOf(const std::string& word) const {
    CurlShape shape;
    shape.form = word == "wave"     ? CurlShape::Form::wave
                 : word == "zigzag" ? CurlShape::Form::zigzag
                                    : CurlShape::Form::helix;
    shape.frequency = parameters.number("frequency");
    shape.frequencyProfile = FrequencyProfile(parameters.ramp("frequencyProfile"));
    shape.profile = parameters.ramp("profile");
    shape.randomness = static_cast<float>(parameters.number("randomness"));
    shape.spacingRandom = static_cast<float>(parameters.number("spacingRandom"));
    shape.phase = parameters.number("phase");
    shape.phaseRandom = static_cast<float>(parameters.number("phaseRandom"));
    shape.piecesPerTurn = curlPiecesPerTurn(parameters.number("tolerance"));
    shape.maxSegments = static_cast<int>(parameters.integer("maxSegments"));
    return shape;
  }
};

}  // namespace

void registerCurlOperator(OperatorRegistry& registry) {
  registry.add<CurlOp>();
}

}  // namespace kestrane
