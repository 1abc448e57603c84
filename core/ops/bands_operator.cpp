// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "core/base/errors.h"
#include "core/base/lanes.h"
#include "core/data/polyline.h"
#include "core/graph/operator_registry.h"
#include "core/ops/color_writing.h"
#include "core/ops/melanin.h"

namespace kestrane {

namespace {

constexpr std::uint64_t guardSalt = 0xBA2D5001ull;
constexpr std::uint64_t bandOffsetSalt = 0xBA2D5002ull;
constexpr std::uint64_t bandWidthSalt = 0xBA2D5003ull;

const PortSpec strandsIn{"strands", PortType::strands};
const PortSpec strandsOut{"out", PortType::strands};

/// Turns shares of the length into places within a period of the bands. With one period, what is
/// shifted past an end stays there, so that a root band does not come in again at the tip.
KESTRANE_WIDE void placeInPeriods(float stretch, float count, float offset,
                                  std::span<float> shares) {
  for (float& share : shares) {
    const float place = share / stretch * count + offset;
    const float within = place == count ? 1.0f : place - std::floor(place);
    share = count <= 1.0f ? std::clamp(place, 0.0f, 1.0f) : within;
  }
}

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

    const bool drawsGuards = guardsBy == "random" || guards <= 0.0f || guards >= 1.0f;
    edit.run(128, [&](const StrandRange& strands) {
      FieldReader strength(strengthField);
      std::vector<float> shares, values;
      for (const std::size_t strand : strands) {
        const std::uint64_t id = in.ids()[strand];
        const std::span<const Vec3f> points = in.strandPoints(strand);
        const std::size_t first = in.offsets()[strand];
        const bool guard = drawsGuards ? hashPick(hashCombine(id, seed ^ guardSalt), guards)
                                       : polylineLength(points) >= guardLength;
        shares.assign(points.size(), 0.0f);
        const float* amount = strength.points(strand, points.size());
        const float melanin =
            std::clamp(bandMelanin + randomness * signedDraw(id, seed ^ melaninSalt), 0.0f, 1.0f);
        const float redness =
            std::clamp(bandRedness + randomness * signedDraw(id, seed ^ rednessSalt), 0.0f, 1.0f);
        const float offset = offsetRandom * signedDraw(id, seed ^ bandOffsetSalt);
        const float stretch = 1.0f + widthRandom * signedDraw(id, seed ^ bandWidthSalt);
        // Undercoat is in the plain colour: without what varies along the strand.
        const float ownMelanin = melaninIn ? (*melaninIn)[strand] : 0.5f;
        const float ownRedness = rednessIn ? (*rednessIn)[strand] : 0.2f;
        const float* pointMelanin = guard && pointMelaninIn ? pointMelaninIn->data() : nullptr;
        const float* pointRedness = guard && pointRednessIn ? pointRednessIn->data() : nullptr;
        if (guard) {
          arcShares(points, shares);
          placeInPeriods(stretch, count, offset, shares);
          values.resize(points.size());
          profile.evaluate(shares, values);
          for (std::size_t i = 0; i < points.size(); ++i) {
            shares[i] = std::clamp(amount[i] * values[i], 0.0f, 1.0f);
          }
        }
        mixPigment(pointMelanin, first, ownMelanin, melanin, shares, melanins);
        mixPigment(pointRedness, first, ownRedness, redness, shares, rednesses);
        if (!byRgb) continue;
        const Vec3f band = melaninColor(melaninConcentration(melanin), redness, bandDye);
        for (std::size_t i = 0; i < points.size(); ++i) {
          const std::size_t point = first + i;
          Vec3f own = before.at(strand, point);
          if (!guard) {
            own = before.strandAt(strand);
            own = {own.x * undercoatDye.x, own.y * undercoatDye.y, own.z * undercoatDye.z};
          }
          colors.set(point, lerp(own, band, shares[i]));
        }
      }
    });
  }

 private:
  float number(const char* name) const { return static_cast<float>(parameters.number(name)); }

  /// Writes the strand's own pigment mixed with the band's by the shares: own per point where there
  /// is such a channel.
  static void mixPigment(const float* perPoint, std::size_t first, float perStrand, float band,
                         std::span<const float> shares, std::span<float> out) {
    float* result = out.data() + first;
    if (perPoint == nullptr) {
      for (std::size_t i = 0; i < shares.size(); ++i) result[i] = lerp(perStrand, band, shares[i]);
    } else {
      for (std::size_t i = 0; i < shares.size(); ++i) {
        result[i] = lerp(perPoint[first + i], band, shares[i]);
      }
    }
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

void registerBandsOperator(OperatorRegistry& registry) {
  registry.add<BandsOp>();
}

}  // namespace kestrane
