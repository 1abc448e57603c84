// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <algorithm>
#include <bit>
#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "core/base/errors.h"
#include "core/base/hash.h"
#include "core/graph/operator_registry.h"
#include "core/graph/strand_operator.h"
#include "core/ops/color_map.h"
#include "core/ops/color_writing.h"
#include "core/ops/melanin.h"
#include "core/ops/strand_profile.h"

namespace kestrane {

namespace {

// One salt per draw: a strand's hue, saturation, value and greyness are drawn apart.
constexpr std::uint64_t hueSalt = 0xC0108003ull;
constexpr std::uint64_t saturationSalt = 0xC0108004ull;
constexpr std::uint64_t valueSalt = 0xC0108005ull;
constexpr std::uint64_t greySalt = 0xC0108006ull;

// The pigment of a grey hair: nearly none, and none of it red.
constexpr float greyMelanin = 0.07f;

const PortSpec strandsIn{"strands", PortType::strands};
const PortSpec strandsOut{"out", PortType::strands};

template <class Names>
void removeStrandColor(StrandEdit& edit, const Names& names) {
  for (const char* name : names) edit.removeStrandChannel(name);
}

void removePointColors(StrandEdit& edit) {
  for (const char* name : colorChannels::color) edit.removePointChannel(name);
  edit.removePointChannel(colorChannels::melanin);
  edit.removePointChannel(colorChannels::redness);
}

const OperatorDeclaration& hairColorDeclaration() {
  static const OperatorDeclaration declaration{
      "HairColor",
      "color",
      "The hair's color: pigment and dye, a map, greys, randomness and a tip color.",
      {strandsIn},
      strandsOut,
      {
          param("melanin", 0.35, "Pigment, 0 (blond, white) to 1 (black) (mappable)")
              .range(0, 1)
              .animatable()
              .group("Base"),
          param("redness", 0.2, "Pigment redness, 0 (brown) to 1 (red) (mappable)")
              .range(0, 1)
              .animatable()
              .group("Base"),
          param("dye", Vec3f{1.0f, 1.0f, 1.0f},
                "Tint over the pigment, linear RGB (white: none); the hair shader's dye")
              .animatable()
              .unit("color")
              .group("Base"),
          param("greys", 0.0, "Fraction of grey strands (mappable)")
              .range(0, 1)
              .animatable()
              .unit("fraction")
              .group("Base"),
          param("map", "",
                "Color read as RGB at each root (empty: none): a map painted in Groom Tools > "
                "Paint, by name (a color map's color, a gray map's value as gray), a color set of "
                "that name on the scalp, or an image file sampled at the scalp's UVs")
              .animatable()
              .group("Base"),
          param("mode", "replace",
                "How the map sets the color: replace the pigment's, or multiply it")
              .choices({"replace", "multiply"})
              .animatable()
              .group("Base"),
          param("colorSource", "auto",
                "What Arnold renders the strands by: auto (the pigment, or the RGB for the whole "
                "groom when any color node colors by more than it), melanin (the pigment and dye "
                "only), rgb (the RGB), or mix (per strand by dyeAmount). Any but auto mixes the "
                "two looks strand by strand in one groom")
              .choices({"auto", "melanin", "rgb", "mix"})
              .animatable()
              .group("Base"),
          param("dyeAmount", 1.0,
                "With colorSource mix: each strand's share of the RGB look, 0 (the pigment) to 1 "
                "(mappable, per strand: a map, or an expression such as step(0.7, rand))")
              .range(0, 1)
              .animatable()
              .unit("fraction")
              .group("Base")
              .showWhen("colorSource", words({"mix"})),
          param("melaninRandom", 0.1, "Random pigment offset per strand, +/-")
              .slider(0, 0.5)
              .animatable()
              .group("Random"),
          param("rednessRandom", 0.05, "Random redness offset per strand, +/-")
              .slider(0, 0.5)
              .animatable()
              .group("Random"),
          param("hueRandom", 0.0,
                "Random hue turn per strand, 0-1 (1: up to half a turn either way)")
              .range(0, 1)
              .animatable()
              .unit("fraction")
              .group("Random"),
          param("saturationRandom", 0.0,
                "Random saturation scale per strand, 0-1 (+/- that fraction)")
              .range(0, 1)
              .animatable()
              .unit("fraction")
              .group("Random"),
          param("valueRandom", 0.0,
                "Random brightness scale per strand, 0-1 (+/- that fraction): as more or less "
                "melanin where the pigment colors the strand, so the look stays the pigment's")
              .range(0, 1)
              .animatable()
              .unit("fraction")
              .group("Random"),
          param("clumpShare", 0.5,
                "Share of the randomness common to a clump (the clumpChannel), 0-1")
              .range(0, 1)
              .animatable()
              .unit("fraction")
              .group("Random"),
          param("clumpChannel", "clumpId",
                "The channel naming each strand's clump, for clumpShare: a Clump's clumpChannel "
                "(clumpId by default; with chained Clumps, the one whose clumps should share a "
                "color)")
              .animatable()
              .group("Random"),
          param("tipColor", Vec3f{0.55f, 0.42f, 0.28f},
                "Color the strands blend toward at the tip, linear RGB")
              .animatable()
              .unit("color")
              .group("Tip"),
          param("tipStrength", 0.0,
                "How far toward tipColor the tip goes, 0-1 (mappable, per point: a painted "
                "per-point layer or an expression of t paints color along the strands; set "
                "tipProfile flat to use it alone); above 0 the color is also written per point (at "
                "0, per-point colors from an earlier color node are removed)")
              .range(0, 1)
              .animatable()
              .unit("fraction")
              .group("Tip"),
          param("tipProfile", Ramp({{0.0f, 0.0f}, {1.0f, 1.0f}}),
                "Blend to tipColor along the length, root to tip, times tipStrength")
              .animatable()
              .group("Tip"),
          param("seed", 0, "Random seed").advanced().group("Advanced"),
      }};
  return declaration;
}

class HairColorOp final : public StrandOperator {
 public:
  HairColorOp() : StrandOperator(hairColorDeclaration()) {}

  void edit(StrandEdit& edit) override {
    const std::string source = parameters.text("colorSource");
    if (source != "auto" && source != "melanin" && source != "rgb" && source != "mix") {
      throw GraphError("colorSource must be auto, melanin, rgb or mix");
    }
    const ScalarField melaninField = edit.field("melanin");
    const ScalarField rednessField = edit.field("redness");
    const ScalarField greysField = edit.field("greys");
    const ScalarField tipField = edit.field("tipStrength");
    const ScalarField dyeAmountField =
        source == "mix" ? edit.field("dyeAmount") : ScalarField(source == "melanin" ? 0.0f : 1.0f);
    const Vec3f dye = parameters.vec3("dye");
    const float melaninRandom = number("melaninRandom"), rednessRandom = number("rednessRandom");
    const float hueRandom = number("hueRandom"), saturationRandom = number("saturationRandom");
    const float valueRandom = number("valueRandom");
    const bool multiplies = parameters.text("mode") == "multiply";
    const Vec3f tipColor = parameters.vec3("tipColor");
    const Ramp tipProfile = parameters.ramp("tipProfile");
    const std::uint64_t seed = static_cast<std::uint64_t>(parameters.integer("seed"));
    const std::unique_ptr<ColorMap> map = openColorMap(
        parameters.text("map"), edit.context().surface, edit.context(),
        "a guide layer reaches the strands through Interpolate (put HairColor after it)");

    const StrandSet& in = edit.input();
    const Array<float>* clumps = in.strandChannel(parameters.text("clumpChannel"));
    const float clumpShare = clumps ? number("clumpShare") : 0.0f;

    // Tips are RGB, which the pigment alone leaves out.
    const bool tips =
        source != "melanin" && !(tipField.isConstant() && tipField.constant() <= 0.0f);
    const bool dyes = dye != Vec3f{1.0f, 1.0f, 1.0f};
    // Whether the look is more than pigment and dye: then an RGB colour is written beside them.
    const bool byRgb = map || hueRandom > 0.0f || saturationRandom > 0.0f || tips ||
                       source == "rgb" || source == "mix";

    const std::span<float> melanins = edit.strandChannel(colorChannels::melanin);
    const std::span<float> rednesses = edit.strandChannel(colorChannels::redness);
    const std::span<float> dyeAmounts = edit.strandChannel(colorChannels::dyeAmount);
    const std::span<float> hues = edit.strandChannel(colorChannels::hueShift);
    const std::span<float> saturations = edit.strandChannel(colorChannels::saturationScale, 1.0f);
    ColorSpans dyeSpans, colors, pointColors;
    if (dyes) {
      dyeSpans = writeStrandColor(edit, colorChannels::dye, 1.0f);
    } else {
      removeStrandColor(edit, colorChannels::dye);
    }
    if (byRgb) {
      colors = writeStrandColor(edit, colorChannels::color, 0.0f);
    } else {
      removeStrandColor(edit, colorChannels::color);
    }
    removePointColors(edit);
    if (tips) pointColors = writePointColor(edit);

    // The share of the RGB look, where no parameter tells it.
    const bool sharesAlike = source == "auto";
    const float sharedAmount = byRgb ? 1.0f : 0.0f;
    edit.run(256, [&](const StrandRange& strands) {
      FieldReader melanin(melaninField), redness(rednessField), greys(greysField);
      FieldReader tipStrength(tipField), dyeAmount(dyeAmountField);
      StrandProfile tipAlong(tipProfile);
      for (const std::size_t strand : strands) {
        const std::uint64_t id = in.ids()[strand];
        const auto draw = [&](std::uint64_t salt) {
          const float own = signedDraw(id, seed ^ salt);
          if (clumpShare <= 0.0f) return own;
          const auto clump = std::bit_cast<std::uint32_t>((*clumps)[strand]);
          return lerp(own, signedDraw(clump, seed ^ salt ^ 0xC1), clumpShare);
        };
        const bool grey = hashPick(hashCombine(id, seed ^ greySalt), greys.strand(strand));
        // A draw costs more than all else, and most looks vary only some of these.
        const auto vary = [&](float amount, std::uint64_t salt) {
          return amount != 0.0f ? amount * draw(salt) : 0.0f;
        };
        const float value = 1.0f + vary(valueRandom, valueSalt);
        float pigment = melanin.strand(strand) + vary(melaninRandom, melaninSalt);
        float red = redness.strand(strand) + vary(rednessRandom, rednessSalt);
        if (grey) {
          pigment = greyMelanin;
          red = 0.0f;
        }
        // A brighter strand is one of less melanin, so that the look stays the pigment's.
        const float varied = std::clamp(pigment / std::max(value, 0.05f), 0.0f, 1.0f);
        pigment = std::clamp(pigment, 0.0f, 1.0f);
        red = std::clamp(red, 0.0f, 1.0f);
        const float hue = vary(0.5f * hueRandom, hueSalt);
        const float saturation = 1.0f + vary(saturationRandom, saturationSalt);
        melanins[strand] = varied;
        rednesses[strand] = red;
        hues[strand] = hue;
        saturations[strand] = saturation;
        dyeAmounts[strand] =
            sharesAlike ? sharedAmount : std::clamp(dyeAmount.strand(strand), 0.0f, 1.0f);
        if (dyes) dyeSpans.set(strand, dye);
        if (!byRgb) continue;

        const Vec3f pigmentColor = melaninColor(melaninConcentration(varied), red, dye);
        // What a map colours gets its brightness below.
        Vec3f color = map ? melaninColor(melaninConcentration(pigment), red, dye) : pigmentColor;
        if (map) {
          const Vec3f painted = map->at(in.roots()[strand]);
          color = multiplies ? Vec3f{color.x * painted.x, color.y * painted.y, color.z * painted.z}
                             : painted;
        }
        if (hue != 0.0f || saturation != 1.0f || (map && value != 1.0f)) {
          Vec3f hsv = hsvFromRgb(color);
          hsv.x += hue;
          hsv.y = std::clamp(hsv.y * saturation, 0.0f, 1.0f);
          if (map) hsv.z *= value;
          color = rgbFromHsv(hsv);
        }
        colors.set(strand, color);
        if (!tips) continue;
        const std::span<const Vec3f> points = in.strandPoints(strand);
        const std::span<const float> values = tipAlong.along(points);
        const float* strength = tipStrength.points(strand, points.size());
        const float amount = dyeAmounts[strand];
        const Vec3f own = lerp(pigmentColor, color, amount);
        for (std::size_t i = 0; i < points.size(); ++i) {
          const float share = std::clamp(strength[i] * values[i], 0.0f, 1.0f);
          pointColors.set(in.offsets()[strand] + i, lerp(own, tipColor, share * amount));
        }
      }
    });
  }

  std::uint64_t contextKey(const EvalContext& context) const override {
    return colorMapKey(parameters.text("map"), context);
  }

 private:
  float number(const char* name) const { return static_cast<float>(parameters.number(name)); }
};

}  // namespace

void registerHairColorOperator(OperatorRegistry& registry) {
  registry.add<HairColorOp>();
}

}  // namespace kestrane
