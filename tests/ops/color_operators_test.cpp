// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <algorithm>

#include "core/guides/guide_hierarchy.h"
#include "core/ops/melanin.h"
#include "core/ops/strand_color.h"
#include "tests/ops/ops_fixtures.h"

namespace kestrane {
namespace {

using test::OpsFixture;

float luminance(Vec3f c) {
  return dot(c, {0.2126f, 0.7152f, 0.0722f});
}

TEST(Melanin, FollowsItsModel) {
  EXPECT_EQ(melaninAbsorption(0.0f, 0.5f), (Vec3f{0, 0, 0}));
  EXPECT_FLOAT_EQ(melaninConcentration(1.0f), 6.6f);
  EXPECT_FLOAT_EQ(melaninConcentration(7.0f), 6.6f);
  const Vec3f black = melaninAbsorption(1.0f, 0.0f);
  EXPECT_FLOAT_EQ(black.x, 6.6f * 0.419f);
  EXPECT_FLOAT_EQ(black.z, 6.6f * 1.37f);
  const Vec3f white = melaninColor(0.0f, 0.3f, {1, 1, 1});
  EXPECT_NEAR(distance(white, {1, 1, 1}), 0.0f, 1e-6f);
  float last = 2.0f;
  for (float m = 0.0f; m <= 1.0f; m += 0.1f) {
    const Vec3f color = melaninColor(melaninConcentration(m), 0.2f, {1, 1, 1});
    EXPECT_LT(luminance(color), last);
    EXPECT_GE(color.x, color.y);
    EXPECT_GE(color.y, color.z);
    last = luminance(color);
  }
  const Vec3f brown = melaninColor(0.8f, 0.0f, {1, 1, 1}),
              red = melaninColor(0.8f, 1.0f, {1, 1, 1});
  EXPECT_GT(red.x - red.z, brown.x - brown.z);
  EXPECT_FLOAT_EQ(longitudinalRoughness(0.0f), longitudinalRoughness(0.02f));
  EXPECT_FLOAT_EQ(longitudinalRoughness(1.0f), 1.5f);
}

TEST(Color, HsvAndRgbAreInverse) {
  for (std::uint64_t i = 0; i < 500; ++i) {
    const Vec3f rgb{unitFloat(mix64(i)), unitFloat(mix64(i + 700)), unitFloat(mix64(i + 1400))};
    EXPECT_LT(distance(rgbFromHsv(hsvFromRgb(rgb)), rgb), 1e-5f);
  }
  EXPECT_LT(distance(rgbFromHsv({1.0f / 3, 1, 1}), {0, 1, 0}), 1e-6f);
}

TEST(HairColor, DrawsPigmentAroundItsBase) {
  OpsFixture fixture;
  const auto op = fixture.make("HairColor");
  op->parameters.set("clumpShare", 0.0);
  const StrandSetPtr set = fixture.run(*op, fixture.rootedStrands(2000));
  const auto& melanin = *set->strandChannel("melanin");
  double mean = 0.0;
  for (const float m : melanin) {
    EXPECT_GE(m, 0.249f);
    EXPECT_LE(m, 0.451f);
    mean += m;
  }
  EXPECT_NEAR(mean / 2000.0, 0.35, 0.01);
  for (const char* name : {"melaninRedness", "dyeAmount", "hueShift", "saturationScale"}) {
    EXPECT_NE(set->strandChannel(name), nullptr) << name;
  }
  EXPECT_EQ(set->strandChannel("colorR"), nullptr);
}

TEST(HairColor, ClumpsShareWhatClumpShareSays) {
  OpsFixture fixture;
  const auto op = fixture.make("HairColor");
  op->parameters.set("clumpShare", 1.0);
  const StrandSetPtr set = fixture.run(*op, fixture.rootedStrands(100));
  const auto& melanin = *set->strandChannel("melanin");
  for (std::size_t i = 5; i < 100; ++i) EXPECT_EQ(melanin[i], melanin[i % 5]);
  EXPECT_NE(melanin[0], melanin[1]);
}

TEST(HairColor, GreysAreGreyAndTheirShareHolds) {
  OpsFixture fixture;
  const auto op = fixture.make("HairColor");
  op->parameters.set("greys", 1.0);
  const StrandSetPtr all = fixture.run(*op, fixture.rootedStrands(50));
  const StrandColorReader reader(*all);
  for (std::size_t i = 0; i < 50; ++i) {
    const Vec3f hsv = hsvFromRgb(reader.at(i, all->offsets()[i]));
    EXPECT_LT(hsv.y, 0.15f);
    EXPECT_GT(hsv.z, 0.7f);
  }
  op->parameters.set("greys", 0.3);
  const StrandSetPtr some = fixture.run(*op, fixture.rootedStrands(2000));
  int grey = 0;
  for (const float m : *some->strandChannel("melanin")) grey += m < 0.2f;
  EXPECT_NEAR(grey, 600, 80);
}

TEST(HairColor, TipsColorPointsAndTheirAbsenceRemovesThem) {
  OpsFixture fixture;
  const auto op = fixture.make("HairColor");
  op->parameters.set("tipStrength", 1.0);
  const StrandSetPtr tipped = fixture.run(*op, fixture.rootedStrands(20));
  const StrandColorReader reader(*tipped);
  EXPECT_TRUE(reader.perPoint());
  const Vec3f tip = reader.at(3, tipped->offsets()[4] - 1);
  EXPECT_LT(distance(tip, {0.55f, 0.42f, 0.28f}), 1e-5f);
  EXPECT_LT(distance(reader.at(3, tipped->offsets()[3]), reader.strandAt(3)), 1e-6f);
  const StrandSetPtr plain = fixture.run(*fixture.make("HairColor"), *tipped);
  EXPECT_FALSE(StrandColorReader(*plain).perPoint());
}

TEST(HairColor, ReadsAColorSetAndMultipliesIt) {
  OpsFixture fixture;
  auto mesh = std::make_shared<ScalpMesh>(*fixture.scalp);
  mesh->setColorSet("paint",
                    std::vector<Vec4f>(mesh->triangleCount() * 3, Vec4f{0.5f, 0.25f, 0.75f, 1}));
  fixture.context.surface = mesh;
  const auto op = fixture.make("HairColor");
  op->parameters.set("map", std::string("paint"));
  const StrandSet strands = fixture.rootedStrands(10);
  const StrandSetPtr set = fixture.run(*op, strands);
  EXPECT_LT(distance(StrandColorReader(*set).at(2, 20), {0.5f, 0.25f, 0.75f}), 1e-5f);
  EXPECT_EQ((*set->strandChannel("dyeAmount"))[2], 1.0f);
  op->parameters.set("mode", std::string("multiply"));
  op->parameters.set("melanin", 0.0);
  op->parameters.set("melaninRandom", 0.0);
  const StrandSetPtr product = fixture.run(*op, strands);
  EXPECT_LT(distance(StrandColorReader(*product).at(2, 20), {0.5f, 0.25f, 0.75f}), 1e-4f);
  op->parameters.set("colorSource", std::string("melanin"));
  const StrandSetPtr pigment = fixture.run(*op, strands);
  EXPECT_LT(distance(StrandColorReader(*pigment).at(2, 20), {1, 1, 1}), 1e-4f);
}

/// One colour per strand, for comparing looks.
std::vector<Vec3f> looksOf(const StrandSet& set, bool tips = false) {
  const StrandColorReader reader(set);
  std::vector<Vec3f> looks;
  for (std::size_t i = 0; i < set.strandCount(); ++i) {
    looks.push_back(reader.at(i, tips ? set.offsets()[i + 1] - 1 : set.offsets()[i]));
  }
  return looks;
}

TEST(HairColor, TheSourceDecidesWhetherTipsShow) {
  OpsFixture fixture;
  const StrandSet strands = fixture.rootedStrands(20);
  const auto op = fixture.make("HairColor");
  const auto tipsOf = [&](const char* source, double amount, double strength) {
    op->parameters.set("colorSource", std::string(source));
    op->parameters.set("dyeAmount", amount);
    op->parameters.set("tipStrength", strength);
    return looksOf(*fixture.run(*op, strands), true);
  };
  const std::vector<Vec3f> pigment = tipsOf("auto", 1.0, 0.0);
  const Vec3f tip{0.55f, 0.42f, 0.28f};
  const auto all = [&](const std::vector<Vec3f>& looks, float share) {
    for (std::size_t i = 0; i < looks.size(); ++i) {
      EXPECT_LT(distance(looks[i], lerp(pigment[i], tip, share)), 1e-5f) << i << ' ' << share;
    }
  };
  all(tipsOf("auto", 1.0, 1.0), 1.0f);
  all(tipsOf("rgb", 1.0, 1.0), 1.0f);
  all(tipsOf("melanin", 1.0, 1.0), 0.0f);
  all(tipsOf("mix", 0.25, 1.0), 0.25f);
  all(tipsOf("mix", 0.0, 1.0), 0.0f);
  // Bands read what was mixed and do not mix it again.
  op->parameters.set("dyeAmount", 0.5);
  const StrandSetPtr mixed = fixture.run(*op, strands);
  const auto bands = fixture.make("Bands");
  bands->parameters.set("strength", 0.0);
  all(looksOf(*fixture.run(*bands, *mixed), true), 0.5f);
}

TEST(HairColor, BrightnessIsMelaninForPigmentAndValueForAMap) {
  OpsFixture fixture;
  auto mesh = std::make_shared<ScalpMesh>(*fixture.scalp);
  mesh->setColorSet("paint",
                    std::vector<Vec4f>(mesh->triangleCount() * 3, Vec4f{0.4f, 0.2f, 0.6f, 1}));
  fixture.context.surface = mesh;
  const StrandSet strands = fixture.rootedStrands(200);
  const auto op = fixture.make("HairColor");
  for (const char* name : {"melaninRandom", "rednessRandom", "clumpShare"}) {
    op->parameters.set(name, 0.0);
  }
  op->parameters.set("valueRandom", 0.5);
  const auto plain = fixture.run(*op, strands);
  op->parameters.set("map", std::string("paint"));
  const auto mapped = fixture.run(*op, strands);
  const auto looks = looksOf(*mapped);
  const auto &melanin = *plain->strandChannel("melanin"),
             &under = *mapped->strandChannel("melanin");
  float least = 9.0f, most = 0.0f;
  for (std::size_t i = 0; i < 200; ++i) {
    // The same brightness whichever way it is told.
    const float value = 0.35f / melanin[i];
    EXPECT_FLOAT_EQ(under[i], melanin[i]);
    EXPECT_LT(distance(looks[i], Vec3f{0.4f, 0.2f, 0.6f} * value), 1e-4f);
    least = std::min(least, value);
    most = std::max(most, value);
  }
  EXPECT_NEAR(least, 0.5f, 0.05f);
  EXPECT_NEAR(most, 1.5f, 0.05f);
  // A map colours grey strands like all others.
  op->parameters.set("valueRandom", 0.0);
  op->parameters.set("greys", 1.0);
  for (const Vec3f look : looksOf(*fixture.run(*op, strands))) {
    EXPECT_LT(distance(look, {0.4f, 0.2f, 0.6f}), 1e-5f);
  }
}

TEST(HairColor, HueSaturationAndRednessStayWithinTheirRandomness) {
  OpsFixture fixture;
  const StrandSet strands = fixture.rootedStrands(400);
  const auto op = fixture.make("HairColor");
  for (const char* name : {"melaninRandom", "rednessRandom", "clumpShare"}) {
    op->parameters.set(name, 0.0);
  }
  const Vec3f base = hsvFromRgb(looksOf(*fixture.run(*op, strands))[0]);
  op->parameters.set("hueRandom", 0.2);
  op->parameters.set("saturationRandom", 0.5);
  const auto varied = fixture.run(*op, strands);
  const auto looks = looksOf(*varied);
  float farthest = 0.0f, palest = 1.0f;
  for (std::size_t i = 0; i < 400; ++i) {
    const Vec3f hsv = hsvFromRgb(looks[i]);
    const float turn = hsv.x - base.x - std::round(hsv.x - base.x);
    EXPECT_NEAR(turn, (*varied->strandChannel("hueShift"))[i], 1e-3f);
    EXPECT_NEAR(hsv.y, base.y * (*varied->strandChannel("saturationScale"))[i], 1e-3f);
    EXPECT_NEAR(hsv.z, base.z, 1e-4f);
    farthest = std::max(farthest, std::abs(turn));
    palest = std::min(palest, hsv.y / base.y);
  }
  EXPECT_NEAR(farthest, 0.1f, 0.01f);  // half a turn either way at 1
  EXPECT_NEAR(palest, 0.5f, 0.02f);
  op->parameters.set("rednessRandom", 0.15);
  const StrandSetPtr red = fixture.run(*op, strands);
  const auto& redness = *red->strandChannel("melaninRedness");
  const auto [low, high] = std::minmax_element(redness.begin(), redness.end());
  EXPECT_NEAR(*low, 0.05f, 0.01f);
  EXPECT_NEAR(*high, 0.35f, 0.01f);
  op->parameters.set("dye", Vec3f{1.0f, 0.5f, 0.25f});
  EXPECT_EQ((*fixture.run(*op, strands)->strandChannel("dyeG"))[7], 0.5f);
}

TEST(HairColor, NamesWhatIsWrong) {
  OpsFixture fixture;
  const StrandSet strands = fixture.rootedStrands(3);
  const auto op = fixture.make("HairColor");
  op->parameters.set("colorSource", std::string("both"));
  fixture.expectError(*op, strands, "colorSource must be auto, melanin, rgb or mix");
  op->parameters.unset("colorSource");
  op->parameters.set("map", std::string("curliness"));
  fixture.expectError(*op, strands,
                      "map 'curliness': a guide layer reaches the strands through Interpolate (put "
                      "HairColor after it)");
  // The scene's flat guides may be those of one level alone.
  auto hierarchy = std::make_shared<GuideHierarchy>();
  const std::uint32_t top = hierarchy->addGroup("top", 0);
  const std::uint64_t guide = hierarchy->addGuide(top, {{0, 0, 0}, {0, 1, 0}});
  hierarchy->setPointAttribute(guide, "stiffness", {0, 1});
  fixture.scene.set("hierarchy", {std::shared_ptr<const GuideHierarchy>(hierarchy), 0.0, 1});
  op->parameters.set("map", std::string("stiffness"));
  fixture.expectError(*op, strands,
                      "map 'stiffness': a guide layer reaches the strands through Interpolate (put "
                      "HairColor after it)");
  op->parameters.set("map", std::string("nothing"));
  fixture.expectError(*op, strands,
                      "map 'nothing': no map, color set or image of that name (Groom Tools > Paint "
                      "> New... makes a map)");
  op->parameters.unset("map");
  op->parameters.set("melanin", MapRef{MapSource::texture, "nothing.png"});
  EXPECT_THROW(fixture.run(*op, strands), GraphError);
  op->parameters.set("melanin", MapRef{MapSource::expression, "0.5 + missing"});
  fixture.expectError(
      *op, strands,
      "param 'melanin': the expression reads 'missing', which is neither a variable "
      "nor a channel of the strands");
}

TEST(Bands, StayOnGuardHairsAndWhereTheProfileSays) {
  OpsFixture fixture;
  const StrandSetPtr colored =
      fixture.run(*fixture.make("HairColor"), fixture.rootedStrands(200, 33));
  const auto op = fixture.make("Bands");
  op->parameters.set("randomness", 0.0);
  op->parameters.set("offsetRandom", 0.0);
  op->parameters.set("widthRandom", 0.0);
  const StrandSetPtr banded = fixture.run(*op, *colored);
  const auto& melanin = *banded->pointChannel("melanin");
  const auto& own = *colored->strandChannel("melanin");
  for (std::size_t i = 0; i < 200; ++i) {
    const std::size_t first = banded->offsets()[i];
    EXPECT_FLOAT_EQ(melanin[first], own[i]);
    EXPECT_FLOAT_EQ(melanin[first + 32], own[i]);
    // Fully the band's somewhere, over a fifth of the length.
    const auto least = *std::min_element(&melanin[first], &melanin[first] + 33);
    EXPECT_NEAR(least, 0.08f, 1e-4f);
    const auto within =
        std::count_if(&melanin[first], &melanin[first] + 33, [](float m) { return m < 0.09f; });
    EXPECT_NEAR(static_cast<double>(within), 6.0, 3.0);
  }
  op->parameters.set("guards", 0.0);
  const StrandSetPtr undercoat = fixture.run(*op, *colored);
  for (std::size_t p = 0; p < undercoat->pointCount(); ++p) {
    EXPECT_FLOAT_EQ((*undercoat->pointChannel("melanin"))[p], own[p / 33]);
  }
  op->parameters.set("guards", 0.25);
  op->parameters.set("guardsBy", std::string("longest"));
  const StrandSetPtr longest = fixture.run(*op, *colored);
  int guards = 0;
  for (std::size_t i = 0; i < 200; ++i) {
    const float* along = longest->pointChannel("melanin")->data() + 33 * i;
    guards += *std::min_element(along, along + 33) < own[i] - 1e-3f;
  }
  EXPECT_NEAR(guards, 50, 2);
  op->parameters.set("guardsBy", std::string("first"));
  fixture.expectError(*op, *colored, "guardsBy must be random or longest");
}

/// One strand of many points, so that the pattern along it can be read off the pigment.
TEST(Bands, RepeatShiftAndStretchTheirPattern) {
  OpsFixture fixture;
  constexpr std::size_t points = 401;
  const StrandSet strands = fixture.rootedStrands(60, points);
  const auto op = fixture.make("Bands");
  for (const char* name : {"randomness", "offsetRandom", "widthRandom"}) {
    op->parameters.set(name, 0.0);
  }
  op->parameters.set("melanin", 1.0);
  // Half of each period, in its middle.
  op->parameters.set("profile", Ramp({{0.0f, 0.0f},
                                      {0.25f, 0.0f},
                                      {0.26f, 1.0f},
                                      {0.75f, 1.0f},
                                      {0.76f, 0.0f},
                                      {1.0f, 0.0f}}));
  op->parameters.set("count", 4);
  struct Pattern {
    int bands = 0;
    std::size_t dark = 0;
    bool darkRoot = false, darkTip = false;
  };
  const auto patternOf = [&](const StrandSet& set, std::size_t strand) {
    const float* melanin = set.pointChannel("melanin")->data() + strand * points;
    Pattern found;
    for (std::size_t i = 0; i < points; ++i) {
      const bool dark = melanin[i] > 0.75f;
      found.dark += dark;
      found.bands += dark && (i == 0 || melanin[i - 1] <= 0.75f);
    }
    found.darkRoot = melanin[0] > 0.75f;
    found.darkTip = melanin[points - 1] > 0.75f;
    return found;
  };
  const StrandSetPtr regular = fixture.run(*op, strands);
  for (std::size_t i = 0; i < 60; ++i) {
    EXPECT_EQ(patternOf(*regular, i).bands, 4);
    EXPECT_NEAR(static_cast<double>(patternOf(*regular, i).dark) / points, 0.5, 0.02);
  }
  // Shifted by up to half a period either way, the pattern goes on past both ends.
  op->parameters.set("offsetRandom", 0.5);
  const StrandSetPtr shifted = fixture.run(*op, strands);
  int darkRoots = 0, darkTips = 0;
  for (std::size_t i = 0; i < 60; ++i) {
    const Pattern pattern = patternOf(*shifted, i);
    EXPECT_NEAR(static_cast<double>(pattern.dark) / points, 0.5, 0.02);
    darkRoots += pattern.darkRoot;
    darkTips += pattern.darkTip;
  }
  EXPECT_NEAR(darkRoots, 30, 12);
  EXPECT_EQ(darkRoots, darkTips);
  op->parameters.set("offsetRandom", 0.0);
  op->parameters.set("widthRandom", 0.5);
  const StrandSetPtr stretched = fixture.run(*op, strands);
  int fewest = 99, most = 0;
  for (std::size_t i = 0; i < 60; ++i) {
    fewest = std::min(fewest, patternOf(*stretched, i).bands);
    most = std::max(most, patternOf(*stretched, i).bands);
  }
  EXPECT_LE(fewest, 3);
  EXPECT_GE(most, 6);
  op->parameters.set("strength", 0.5);
  const StrandSetPtr weak = fixture.run(*op, strands);
  EXPECT_NEAR(*std::max_element(weak->pointChannel("melanin")->begin(),
                                weak->pointChannel("melanin")->end()),
              0.75f, 1e-4f);
}

TEST(Bands, TintBandsAndUndercoat) {
  OpsFixture fixture;
  const StrandSetPtr colored = fixture.run(*fixture.make("HairColor"), fixture.rootedStrands(40));
  const auto first = fixture.make("Bands");
  first->parameters.set("guards", 1.0);
  const StrandSetPtr banded = fixture.run(*first, *colored);
  const auto op = fixture.make("Bands");
  op->parameters.set("guards", 0.0);
  op->parameters.set("undercoatDye", Vec3f{0.5f, 1.0f, 0.25f});
  // Undercoat is in the plain colour, bands or not, and its pigment says the same.
  const StrandSetPtr tinted = fixture.run(*op, *banded);
  const StrandColorReader before(*colored), after(*tinted);
  for (std::size_t i = 0; i < 40; ++i) {
    const Vec3f plain = before.strandAt(i);
    for (std::size_t p = tinted->offsets()[i]; p < tinted->offsets()[i + 1]; ++p) {
      const Vec3f wanted{0.5f * plain.x, plain.y, 0.25f * plain.z};
      EXPECT_LT(distance(after.at(i, p), wanted), 1e-5f);
      EXPECT_EQ((*tinted->pointChannel("melanin"))[p], (*colored->strandChannel("melanin"))[i]);
    }
  }
  op->parameters.set("guards", 1.0);
  op->parameters.set("randomness", 0.0);
  op->parameters.set("melanin", 0.3);
  op->parameters.set("dye", Vec3f{0.1f, 0.9f, 0.1f});
  op->parameters.set("profile", Ramp({{0.0f, 1.0f}, {1.0f, 1.0f}}));
  const Vec3f band = melaninColor(melaninConcentration(0.3f), 0.6f, {0.1f, 0.9f, 0.1f});
  for (const Vec3f look : looksOf(*fixture.run(*op, *colored))) {
    EXPECT_LT(distance(look, band), 1e-5f);
  }
}

TEST(Bands, TakeHairColorsOffsetsAtTheSameSeed) {
  OpsFixture fixture;
  const StrandSet strands = fixture.rootedStrands(50);
  const auto color = fixture.make("HairColor");
  color->parameters.set("clumpShare", 0.0);
  color->parameters.set("melanin", 0.5);
  const auto op = fixture.make("Bands");
  op->parameters.set("melanin", 0.5);
  op->parameters.set("profile", Ramp({{0.0f, 1.0f}, {1.0f, 1.0f}}));
  for (const std::int64_t seed : {0, 5}) {
    color->parameters.set("seed", seed);
    op->parameters.set("seed", seed);
    const StrandSetPtr colored = fixture.run(*color, strands);
    const StrandSetPtr banded = fixture.run(*op, *colored);
    for (std::size_t i = 0; i < 50; ++i) {
      EXPECT_FLOAT_EQ((*banded->pointChannel("melanin"))[banded->offsets()[i]],
                      (*colored->strandChannel("melanin"))[i]);
    }
  }
}

TEST(RenderData, WritesChannelsWithinTheirRange) {
  OpsFixture fixture;
  const auto op = fixture.make("RenderData");
  op->parameters.set("opacityProfile", Ramp({{0.0f, 1.0f}, {1.0f, 0.0f}}));
  op->parameters.set("opacityRandom", 0.5);
  op->parameters.set("specularRandom", 1.0);
  const StrandSetPtr set = fixture.run(*op, fixture.rootedStrands(100));
  const auto& opacity = *set->pointChannel("opacity");
  for (std::size_t i = 0; i < 100; ++i) {
    EXPECT_EQ(opacity[set->offsets()[i + 1] - 1], 0.0f);
    EXPECT_GE(opacity[set->offsets()[i]], 0.5f);
    EXPECT_LE((*set->strandChannel("specular"))[i], 0.6f);
    EXPECT_EQ((*set->strandChannel("roughness"))[i], 0.5f);
  }
  op->parameters.set("roughnessRandom", 1.0);
  op->parameters.set("opacityProfile", Ramp({{0.0f, 1.0f}, {1.0f, 1.0f}}));
  const StrandSetPtr random = fixture.run(*op, fixture.rootedStrands(500));
  const auto reach = [](const Array<float>& values, float low, float high) {
    const auto [least, most] = std::minmax_element(values.begin(), values.end());
    EXPECT_NEAR(*least, low, 0.02f);
    EXPECT_NEAR(*most, high, 0.02f);
  };
  reach(*random->strandChannel("roughness"), 0.0f, 1.0f);
  reach(*random->strandChannel("specular"), 0.0f, 0.6f);
  reach(*random->pointChannel("opacity"), 0.5f, 1.0f);
}

}  // namespace
}  // namespace kestrane
