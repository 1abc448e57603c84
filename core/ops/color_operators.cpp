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
#include "core/data/polyline.h"
#include "core/graph/operator_registry.h"
#include "core/graph/strand_operator.h"
#include "core/ops/color_map.h"
#include "core/ops/melanin.h"
#include "core/ops/strand_color.h"

namespace kestrane {

namespace {

// One salt per draw: a strand's pigment, redness, hue, saturation, value and greyness are drawn
// apart. Bands shares the first two with HairColor, so that one seed offsets both alike.
constexpr std::uint64_t melaninSalt = 0xC0108001ull;
constexpr std::uint64_t rednessSalt = 0xC0108002ull;
constexpr std::uint64_t hueSalt = 0xC0108003ull;
constexpr std::uint64_t saturationSalt = 0xC0108004ull;
constexpr std::uint64_t valueSalt = 0xC0108005ull;
constexpr std::uint64_t greySalt = 0xC0108006ull;
constexpr std::uint64_t guardSalt = 0xBA2D5001ull;
constexpr std::uint64_t bandOffsetSalt = 0xBA2D5002ull;
constexpr std::uint64_t bandWidthSalt = 0xBA2D5003ull;

// The pigment of a grey hair: nearly none, and none of it red.
constexpr float greyMelanin = 0.07f;

const PortSpec strandsIn{"strands", PortType::strands};
const PortSpec strandsOut{"out", PortType::strands};

/// A draw of -1 to 1 for a key.
float signedDraw(std::uint64_t key, std::uint64_t salt) {
  return 2.0f * unitFloat(hashCombine(key, salt)) - 1.0f;
}

struct ColorSpans {
  std::span<float> channel[3];
  void set(std::size_t index, Vec3f color) const {
    for (int axis = 0; axis < 3; ++axis) channel[axis][index] = color[axis];
  }
};

ColorSpans writeStrandColor(StrandEdit& edit, const char* const (&names)[3], float fill) {
  ColorSpans spans;
  for (int axis = 0; axis < 3; ++axis) spans.channel[axis] = edit.strandChannel(names[axis], fill);
  return spans;
}

ColorSpans writePointColor(StrandEdit& edit) {
  ColorSpans spans;
  for (int axis = 0; axis < 3; ++axis) {
    spans.channel[axis] = edit.pointChannel(colorChannels::color[axis]);
  }
  return spans;
}

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

    edit.run(256, [&](const StrandRange& strands) {
      FieldReader melanin(melaninField), redness(rednessField), greys(greysField);
      FieldReader tipStrength(tipField), dyeAmount(dyeAmountField);
      std::vector<float> shares;
      for (const std::size_t strand : strands) {
        const std::uint64_t id = in.ids()[strand];
        const auto draw = [&](std::uint64_t salt) {
          const float own = signedDraw(id, seed ^ salt);
          if (clumpShare <= 0.0f) return own;
          const auto clump = std::bit_cast<std::uint32_t>((*clumps)[strand]);
          return lerp(own, signedDraw(clump, seed ^ salt ^ 0xC1), clumpShare);
        };
        const bool grey = hashPick(hashCombine(id, seed ^ greySalt), greys.strand(strand));
        const float value = 1.0f + valueRandom * draw(valueSalt);
        float pigment = melanin.strand(strand) + melaninRandom * draw(melaninSalt);
        float red = redness.strand(strand) + rednessRandom * draw(rednessSalt);
        if (grey) {
          pigment = greyMelanin;
          red = 0.0f;
        }
        // A brighter strand is one of less melanin, so that the look stays the pigment's.
        const float varied = std::clamp(pigment / std::max(value, 0.05f), 0.0f, 1.0f);
        pigment = std::clamp(pigment, 0.0f, 1.0f);
        red = std::clamp(red, 0.0f, 1.0f);
        const float hue = 0.5f * hueRandom * draw(hueSalt);
        const float saturation = 1.0f + saturationRandom * draw(saturationSalt);
        melanins[strand] = varied;
        rednesses[strand] = red;
        hues[strand] = hue;
        saturations[strand] = saturation;
        dyeAmounts[strand] = source == "auto" ? (byRgb ? 1.0f : 0.0f)
                                              : std::clamp(dyeAmount.strand(strand), 0.0f, 1.0f);
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
        shares.resize(points.size());
        arcShares(points, shares);
        const float* strength = tipStrength.points(strand, points.size());
        const float amount = dyeAmounts[strand];
        const Vec3f own = lerp(pigmentColor, color, amount);
        for (std::size_t i = 0; i < points.size(); ++i) {
          const float share = std::clamp(strength[i] * tipProfile.evaluate(shares[i]), 0.0f, 1.0f);
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

const OperatorDeclaration& bandsDeclaration() {
  static const OperatorDeclaration declaration{
      "Bands",
      "color",
      "Bands of another pigment along each hair, on the guard hairs: agouti, ticked, shaded fur. "
      "After HairColor.",
      {strandsIn},
      strandsOut,
      {
          param("strength", 1.0, "How strongly the bands show, 0 (none) to 1 (mappable, per point)")
              .range(0, 1)
              .animatable()
              .unit("fraction"),
          param("melanin", 0.08, "The bands' pigment, 0 (pale) to 1 (black)")
              .range(0, 1)
              .animatable(),
          param("redness", 0.6,
                "The bands' redness, 0 (brown) to 1 (red): agouti's band is a pale yellow-red")
              .range(0, 1)
              .animatable(),
          param("dye", Vec3f{1.0f, 1.0f, 1.0f},
                "Tint over the bands' pigment, linear RGB (white: none)")
              .animatable()
              .unit("color"),
          param("profile",
                Ramp({{0.0f, 0.0f},
                      {0.5f, 0.0f},
                      {0.6f, 1.0f},
                      {0.78f, 1.0f},
                      {0.88f, 0.0f},
                      {1.0f, 0.0f}}),
                "Where the band color is along one period of the pattern, root to tip: 0 the "
                "hair's own, 1 the band's")
              .animatable(),
          param("count", 1, "How many times the profile repeats root to tip (ticked fur: several)")
              .range(1, 1000)
              .slider(1, 10)
              .animatable(),
          param("guards", 1.0,
                "Share of the strands that are guard hairs, which take the bands and keep the tip "
                "color (1: all); the rest are undercoat in the plain color")
              .range(0, 1)
              .animatable()
              .unit("fraction")
              .group("Guard hairs"),
          param("guardsBy", "random",
                "Which strands are the guard hairs: at random, or the longest")
              .choices({"random", "longest"})
              .animatable()
              .group("Guard hairs"),
          param("undercoatDye", Vec3f{1.0f, 1.0f, 1.0f},
                "Tint over the undercoat's color, linear RGB (white: the hair's own)")
              .animatable()
              .unit("color")
              .group("Guard hairs"),
          param("randomness", 0.1,
                "Random offset of each strand's band pigment (melanin and redness), +/-")
              .slider(0, 0.5)
              .animatable()
              .group("Random"),
          param("offsetRandom", 0.15,
                "Random shift of each strand's bands along it, as a share of a period, so bands do "
                "not line up across the coat")
              .range(0, 1)
              .animatable()
              .unit("fraction")
              .group("Random"),
          param("widthRandom", 0.1, "Random stretch of each strand's bands, +/- this share")
              .range(0, 0.9)
              .animatable()
              .unit("fraction")
              .group("Random"),
          param("seed", 0, "Random seed (HairColor's, for the same pigment offsets)")
              .advanced()
              .group("Advanced"),
      }};
  return declaration;
}

class BandsOp final : public StrandOperator {
 public:
  BandsOp() : StrandOperator(bandsDeclaration()) {}

  void edit(StrandEdit& edit) override {
    const std::string guardsBy = parameters.text("guardsBy");
    if (guardsBy != "random" && guardsBy != "longest") {
      throw GraphError("guardsBy must be random or longest");
    }
    const ScalarField strengthField = edit.field("strength");
    const float bandMelanin = number("melanin"), bandRedness = number("redness");
    const Vec3f bandDye = parameters.vec3("dye");
    const Vec3f undercoatDye = parameters.vec3("undercoatDye");
    const Ramp profile = parameters.ramp("profile");
    const float count = static_cast<float>(parameters.integer("count"));
    const float guards = number("guards");
    const float randomness = number("randomness");
    const float offsetRandom = number("offsetRandom"), widthRandom = number("widthRandom");
    const std::uint64_t seed = static_cast<std::uint64_t>(parameters.integer("seed"));

    const StrandSet& in = edit.input();
    float guardLength = 0.0f;
    if (guardsBy == "longest" && guards > 0.0f && guards < 1.0f) {
      edit.readsWholeSet();
      guardLength = lengthAbove(in, guards);
    }
    const StrandColorReader before(in);
    const auto* melaninIn = in.strandChannel(colorChannels::melanin);
    const auto* rednessIn = in.strandChannel(colorChannels::redness);
    const auto* pointMelaninIn = in.pointChannel(colorChannels::melanin);
    const auto* pointRednessIn = in.pointChannel(colorChannels::redness);
    constexpr Vec3f white{1.0f, 1.0f, 1.0f};
    // Pigment alone tells the look until a tint, or a colour that is there already, makes it RGB.
    const bool byRgb = bandDye != white || undercoatDye != white ||
                       in.strandChannel(colorChannels::color[0]) != nullptr ||
                       in.strandChannel(colorChannels::dye[0]) != nullptr ||
                       in.pointChannel(colorChannels::color[0]) != nullptr;

    const std::span<float> melanins = edit.pointChannel(colorChannels::melanin);
    const std::span<float> rednesses = edit.pointChannel(colorChannels::redness);
    ColorSpans colors;
    if (byRgb) colors = writePointColor(edit);

    edit.run(128, [&](const StrandRange& strands) {
      FieldReader strength(strengthField);
      std::vector<float> shares;
      for (const std::size_t strand : strands) {
        const std::uint64_t id = in.ids()[strand];
        const std::span<const Vec3f> points = in.strandPoints(strand);
        const std::size_t first = in.offsets()[strand];
        const bool guard = guardsBy == "random" || guards <= 0.0f || guards >= 1.0f
                               ? hashPick(hashCombine(id, seed ^ guardSalt), guards)
                               : polylineLength(points) >= guardLength;
        shares.resize(points.size());
        arcShares(points, shares);
        const float* amount = strength.points(strand, points.size());
        const float melanin =
            std::clamp(bandMelanin + randomness * signedDraw(id, seed ^ melaninSalt), 0.0f, 1.0f);
        const float redness =
            std::clamp(bandRedness + randomness * signedDraw(id, seed ^ rednessSalt), 0.0f, 1.0f);
        const Vec3f band = melaninColor(melaninConcentration(melanin), redness, bandDye);
        const float offset = offsetRandom * signedDraw(id, seed ^ bandOffsetSalt);
        const float stretch = 1.0f + widthRandom * signedDraw(id, seed ^ bandWidthSalt);
        for (std::size_t i = 0; i < points.size(); ++i) {
          const std::size_t point = first + i;
          // Undercoat is in the plain colour: without what varies along the strand.
          const float ownMelanin = guard && pointMelaninIn ? (*pointMelaninIn)[point]
                                   : melaninIn             ? (*melaninIn)[strand]
                                                           : 0.5f;
          const float ownRedness = guard && pointRednessIn ? (*pointRednessIn)[point]
                                   : rednessIn             ? (*rednessIn)[strand]
                                                           : 0.2f;
          float share = 0.0f;
          if (guard) {
            const float place = shares[i] / stretch * count + offset;
            share = std::clamp(amount[i] * profile.evaluate(phase(place, count)), 0.0f, 1.0f);
          }
          melanins[point] = lerp(ownMelanin, melanin, share);
          rednesses[point] = lerp(ownRedness, redness, share);
          if (!byRgb) continue;
          Vec3f own = before.at(strand, point);
          if (!guard) {
            own = before.strandAt(strand);
            own = {own.x * undercoatDye.x, own.y * undercoatDye.y, own.z * undercoatDye.z};
          }
          colors.set(point, lerp(own, band, share));
        }
      }
    });
  }

 private:
  float number(const char* name) const { return static_cast<float>(parameters.number(name)); }

  /// The place within a period; with one period, what is shifted past an end stays there, so that a
  /// root band does not come in again at the tip.
  static float phase(float place, float count) {
    if (count <= 1.0f) return std::clamp(place, 0.0f, 1.0f);
    return place == count ? 1.0f : place - std::floor(place);
  }

  /// The length that a share of the strands reach.
  static float lengthAbove(const StrandSet& strands, float share) {
    std::vector<float> lengths(strands.strandCount());
    if (lengths.empty()) return 0.0f;
    parallelRange(0, lengths.size(), 1024, [&](std::size_t first, std::size_t last) {
      for (std::size_t i = first; i < last; ++i) {
        const float size = polylineLength(strands.strandPoints(i));
        lengths[i] = std::isnan(size) ? 0.0f : size;
      }
    });
    const auto place =
        static_cast<std::size_t>((1.0f - share) * static_cast<float>(lengths.size()));
    const auto nth = lengths.begin() + std::min(place, lengths.size() - 1);
    std::nth_element(lengths.begin(), nth, lengths.end());
    return *nth;
  }
};

}  // namespace

void registerColorOperators(OperatorRegistry& registry) {
  registry.add<HairColorOp>();
  registry.add<BandsOp>();
}

}  // namespace kestrane
