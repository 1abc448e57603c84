// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <algorithm>
#include <cmath>
#include <memory>
#include <numbers>
#include <vector>

#include "core/base/errors.h"
#include "core/base/hash.h"
#include "core/base/text.h"
#include "core/data/polyline.h"
#include "core/graph/operator_registry.h"
#include "core/graph/strand_operator.h"
#include "core/ops/noise_kernel.h"
#include "core/ops/resample_kernel.h"
#include "core/ops/strand_profile.h"

namespace kestrane {

namespace {

// Salts, so that operators of one seed do not draw the same numbers.
constexpr std::uint64_t noisePickSalt = 0x4E015E50ull;
constexpr std::uint64_t trimPickSalt = 0x1E46A7001ull;
constexpr std::uint64_t trimDrawSalt = 0x1E46A7002ull;
constexpr std::uint64_t widthSalt = 0x31D7A001ull;

const PortSpec curvesIn{"strands", PortType::curves};
const PortSpec curvesOut{"out", PortType::curves};
const PortSpec strandsIn{"strands", PortType::strands};
const PortSpec strandsOut{"out", PortType::strands};

const OperatorDeclaration& noiseDeclaration() {
  static const OperatorDeclaration declaration{
      "Noise",
      "look",
      "Random displacement; on a fraction of the strands at a high frequency, frizz.",
      {curvesIn},
      curvesOut,
      {
          param("amplitude", 0.2, "Displacement size, scene units (mappable, per point)")
              .slider(0, 1)
              .animatable()
              .unit("length"),
          param("frequency", 3.0, "Features per scene unit (world) or per strand length (strand)")
              .slider(0, 20)
              .animatable()
              .unit("perLength")
              .unitWhen("space", words({"world"})),
          param("octaves", 2, "Fractal octaves").range(1, 8).animatable().advanced(),
          param("profile", Ramp({{0.0f, 0.0f}, {1.0f, 1.0f}}),
                "Amplitude along the length, root to tip")
              .animatable(),
          param("space", "strand", "strand: independent per strand; world: coherent across strands")
              .choices({"strand", "world"})
              .animatable(),
          param("fraction", 1.0,
                "Share of the strands that get it, 0-1 (mappable): a few, at a high frequency, for "
                "frizz")
              .slider(0, 1)
              .animatable()
              .unit("fraction"),
          param("seed", 0, "Random seed").advanced(),
          param("mode", "smooth",
                "smooth: waves; kinky: sharp kinks, straight between random offsets frequency "
                "apart (scraggle, frizz)")
              .choices({"smooth", "kinky"})
              .animatable(),
      }};
  return declaration;
}

class NoiseOp final : public StrandOperator {
 public:
  NoiseOp() : StrandOperator(noiseDeclaration()) {}

  void edit(StrandEdit& edit) override {
    const ScalarField amplitude = edit.field("amplitude");
    const ScalarField fraction = edit.field("fraction");
    const Ramp profile = parameters.ramp("profile");
    const std::uint64_t seed = static_cast<std::uint64_t>(parameters.integer("seed"));
    NoiseShape shape;
    shape.frequency = static_cast<float>(parameters.number("frequency"));
    shape.octaves = static_cast<int>(parameters.integer("octaves"));
    shape.world = parameters.text("space") == "world";
    shape.kinky = parameters.text("mode") == "kinky";
    shape.seed = seed;
    if (amplitude.isConstant() && amplitude.constant() == 0.0f) return edit.passThrough();

    const StrandSet& in = edit.input();
    const std::span<Vec3f> out = edit.points();
    edit.run(128, [&](const StrandRange& strands) {
      FieldReader amplitudes(amplitude), fractions(fraction);
      NoiseKernel kernel(shape);
      std::vector<float> strength;
      for (const std::size_t strand : strands) {
        const std::uint64_t id = in.ids()[strand];
        const std::span<const Vec3f> points = in.strandPoints(strand);
        const std::span<Vec3f> moved = out.subspan(in.offsets()[strand], points.size());
        if (!hashPick(hashCombine(id, seed ^ noisePickSalt), fractions.strand(strand))) {
          std::copy(points.begin(), points.end(), moved.begin());
          continue;
        }
        const std::span<const float> shares = kernel.measure(points);
        const float* amount = amplitudes.points(strand, points.size());
        strength.resize(points.size());
        profile.evaluate(shares, strength);
        for (std::size_t i = 0; i < points.size(); ++i) strength[i] *= amount[i];
        kernel.displace(id, points, strength, moved);
      }
    });
  }

  std::string note(const EvalContext& context) const override {
    const double frequency = parameters.number("frequency");
    const int segments = context.resampleSegments;
    // A wave needs two segments. In world space a segment's size is the strands' own affair.
    if (parameters.text("space") == "world" || segments <= 0 || 2.0 * frequency <= segments) {
      return {};
    }
    std::string number;
    appendNumber(number, static_cast<float>(frequency));
    return "frequency " + number + " is finer than the strands' " + std::to_string(segments) +
           " segments draw: the noise fades out; raise Resample's segments or lower the frequency";
  }
};

const OperatorDeclaration& lengthDeclaration() {
  static const OperatorDeclaration declaration{
      "Length",
      "shape",
      "Trims strands to a share of their length.",
      {curvesIn},
      curvesOut,
      {
          param("keep", 1.0,
                "Share of each strand's length kept from the root, 0-1 (mappable; to lengthen, "
                "Transform's scale)")
              .range(0, 1)
              .animatable()
              .unit("fraction"),
          param("fraction", 1.0, "Share of the strands trimmed at random, 0-1 (mappable)")
              .slider(0, 1)
              .animatable()
              .unit("fraction"),
          param("trimMin", 0.0,
                "The least share of its kept length a strand trimmed at random loses, 0-1")
              .range(0, 1)
              .animatable()
              .unit("fraction"),
          param("trimMax", 0.0,
                "The most share of its kept length a strand trimmed at random loses, 0-1 (0: no "
                "random trim)")
              .range(0, 1)
              .animatable()
              .unit("fraction"),
          param("seed", 0, "Random seed").advanced(),
      }};
  return declaration;
}

class LengthOp final : public StrandOperator {
 public:
  LengthOp() : StrandOperator(lengthDeclaration()) {}

  void edit(StrandEdit& edit) override {
    const ScalarField keep = edit.field("keep");
    const ScalarField fraction = edit.field("fraction");
    const float trimMin = static_cast<float>(parameters.number("trimMin"));
    const float trimMax = static_cast<float>(parameters.number("trimMax"));
    const std::uint64_t seed = static_cast<std::uint64_t>(parameters.integer("seed"));
    const bool trims = trimMax > 0.0f && !(fraction.isConstant() && fraction.constant() <= 0.0f);
    if (!trims && keep.isConstant() && keep.constant() >= 1.0f) return edit.passThrough();

    const StrandSet& in = edit.input();
    edit.resampleAll(256, [&](std::size_t strand, const auto& apply) {
      thread_local PolylinePlaces places;
      FieldReader keeps(keep), fractions(fraction);
      const std::uint64_t id = in.ids()[strand];
      float share = std::clamp(keeps.strand(strand), 0.0f, 1.0f);
      if (trims && hashPick(hashCombine(id, seed ^ trimPickSalt), fractions.strand(strand))) {
        const float draw = unitFloat(hashCombine(id, seed ^ trimDrawSalt));
        share *= 1.0f - lerp(std::min(trimMin, trimMax), trimMax, draw);
      }
      places.shortened(in.strandPoints(strand), share);
      apply(places);
    });
  }
};

const OperatorDeclaration& widthDeclaration() {
  static const OperatorDeclaration declaration{
      "Width",
      "shape",
      "Strand thickness, root to tip.",
      {strandsIn},
      strandsOut,
      {
          param("width", 0.007,
                "Width, scene units (mappable, per point: e.g. an expression of t or a point "
                "channel)")
              .slider(0, 0.05)
              .animatable()
              .unit("width"),
          param("profile", Ramp({{0.0f, 1.0f}, {1.0f, 0.3f}}),
                "Width along the length, root to tip, times width")
              .animatable(),
          param("randomness", 0.0,
                "Per-strand variation of the width, 0-1: up to that share thinner or thicker")
              .range(0, 1)
              .animatable()
              .unit("fraction"),
          param("seed", 0, "Random seed").advanced(),
      }};
  return declaration;
}

class WidthOp final : public StrandOperator {
 public:
  WidthOp() : StrandOperator(widthDeclaration()) {}

  void edit(StrandEdit& edit) override {
    const ScalarField width = edit.field("width");
    const Ramp ramp = parameters.ramp("profile");
    const float randomness = static_cast<float>(parameters.number("randomness"));
    const std::uint64_t salt = static_cast<std::uint64_t>(parameters.integer("seed")) ^ widthSalt;

    const StrandSet& in = edit.input();
    const std::span<float> out = edit.widths();
    edit.run(256, [&](const StrandRange& strands) {
      FieldReader widths(width);
      StrandProfile profile(ramp);
      for (const std::size_t strand : strands) {
        const std::span<const Vec3f> points = in.strandPoints(strand);
        const std::span<const float> values = profile.along(points);
        const float* base = widths.points(strand, points.size());
        const float draw = unitFloat(hashCombine(in.ids()[strand], salt));
        const float scale = 1.0f + randomness * (2.0f * draw - 1.0f);
        float* result = out.data() + in.offsets()[strand];
        for (std::size_t i = 0; i < points.size(); ++i) {
          result[i] = base[i] * values[i] * scale;
        }
      }
    });
  }
};

const OperatorDeclaration& resampleDeclaration() {
  static const OperatorDeclaration declaration{
      "Resample",
      "shape",
      "Evens out the points along each strand.",
      {curvesIn},
      curvesOut,
      {
          param("segments", 16,
                "Segments per strand (points = segments + 1); every Scatter grows its strands with "
                "them. 0: keep each strand's")
              .range(0, 1024)
              .slider(0, 64),
          param("mode", "even",
                "even: segments for every strand; curvature: fewer points for render and export, "
                "fewer for straighter strands, placed where they bend; length: fewer for shorter "
                "strands")
              .choices({"even", "curvature", "length"})
              .animatable(),
          param("minSegments", 3, "With length or curvature: the fewest segments a strand gets")
              .atLeast(1)
              .slider(1, 16)
              .showWhen("mode", words({"length", "curvature"})),
          param("maxAngle", 15.0,
                "With curvature: about how far (degrees) a strand may turn per segment; smaller "
                "keeps curls rounder with more points")
              .atLeast(0.5)
              .slider(1, 45)
              .unit("angle")
              .showWhen("mode", words({"curvature"})),
      }};
  return declaration;
}

class ResampleOp final : public StrandOperator {
 public:
  ResampleOp() : StrandOperator(resampleDeclaration()) {}

  void edit(StrandEdit& edit) override {
    enum class Mode { even, curvature, length };
    const std::string word = parameters.text("mode");
    if (word != "even" && word != "curvature" && word != "length") {
      throw GraphError("Resample: mode must be even, length or curvature");
    }
    Mode mode = word == "even" ? Mode::even : word == "length" ? Mode::length : Mode::curvature;
    // Fewer points are worth their unevenness only where files and renders are made of them.
    if (mode == Mode::curvature && edit.context().viewport) mode = Mode::even;
    const int segments = static_cast<int>(parameters.integer("segments"));
    if (segments == 0) return edit.passThrough();
    const int fewest =
        static_cast<int>(std::min<std::int64_t>(parameters.integer("minSegments"), segments));
    const double maxAngle = parameters.number("maxAngle") * (std::numbers::pi / 180.0);

    const StrandSet& in = edit.input();
    float longest = 0.0f;
    if (mode == Mode::length) {
      edit.readsWholeSet();
      longest = in.extent().maxLength;
    }
    const auto segmentsOf = [&](std::span<const Vec3f> points) {
      double wanted = segments;
      if (mode == Mode::length && longest > 0.0f) {
        wanted = std::ceil(segments * (polylineLength(points) / longest));
      } else if (mode == Mode::curvature) {
        wanted = std::ceil(turningAngle(points) / maxAngle);
      }
      // Written so that a length or angle that is no number gives the fewest.
      return wanted > fewest ? static_cast<int>(std::min<double>(wanted, segments)) : fewest;
    };
    edit.setPointCounts(256, [&](std::size_t strand) {
      const std::span<const Vec3f> points = in.strandPoints(strand);
      return points.empty() ? 0u : static_cast<unsigned>(segmentsOf(points) + 1);
    });
    const auto& offsets = edit.offsets();
    edit.resampleAll(256, [&](std::size_t strand, const auto& apply) {
      thread_local PolylinePlaces places;
      const std::size_t count = offsets[strand + 1] - offsets[strand];
      if (mode == Mode::curvature) {
        places.byTurning(in.strandPoints(strand), count);
      } else {
        places.even(in.strandPoints(strand), count);
      }
      apply(places);
    });
  }

  std::uint64_t contextKey(const EvalContext& context) const override {
    return parameters.text("mode") == "curvature" && context.viewport ? 1 : 0;
  }
};

}  // namespace

void registerShapeOperators(OperatorRegistry& registry) {
  registry.add<NoiseOp>();
  registry.add<LengthOp>();
  registry.add<WidthOp>();
  registry.add<ResampleOp>();
}

}  // namespace kestrane
