// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <limits>

#include "core/data/polyline.h"
#include "core/expr/noise.h"
#include "core/ops/noise_kernel.h"
#include "core/ops/resample_kernel.h"
#include "tests/ops/ops_fixtures.h"

namespace kestrane {
namespace {

using test::OpsFixture;

constexpr float pi = 3.14159265f;

std::vector<Vec3f> straight(int points, float size = 1.0f) {
  std::vector<Vec3f> line;
  for (int i = 0; i < points; ++i) {
    line.push_back({0, size * static_cast<float>(i) / static_cast<float>(points - 1), 0});
  }
  return line;
}

TEST(Length, KeepsItsShareOfEveryStrand) {
  OpsFixture fixture;
  const StrandSet strands = fixture.rootedStrands(50);
  for (const double keep : {0.25, 0.5, 0.9}) {
    const auto op = fixture.make("Length");
    op->parameters.set("keep", keep);
    const StrandSetPtr cut = fixture.run(*op, strands);
    for (std::size_t i = 0; i < strands.strandCount(); ++i) {
      const float whole = polylineLength(strands.strandPoints(i));
      EXPECT_NEAR(polylineLength(cut->strandPoints(i)), whole * static_cast<float>(keep),
                  5e-3f * whole);
      // What stays lies on the strand as it was, point for point, drawn in toward the root.
      EXPECT_EQ(cut->strandPoints(i).front(), strands.strandPoints(i).front());
      for (const Vec3f p : cut->strandPoints(i)) {
        float away = 1e9f;
        for (std::size_t k = 1; k < strands.strandPoints(i).size(); ++k) {
          const Vec3f a = strands.strandPoints(i)[k - 1], way = strands.strandPoints(i)[k] - a;
          const float t = std::clamp(dot(p - a, way) / lengthSquared(way), 0.0f, 1.0f);
          away = std::min(away, distance(p, a + way * t));
        }
        EXPECT_LT(away, 1e-5f * whole);
      }
    }
  }
}

TEST(Length, WholeStrandsPassByPointerAndNothingLeavesTheRoot) {
  OpsFixture fixture;
  const auto input = std::make_shared<const StrandSet>(fixture.rootedStrands(10));
  const auto op = fixture.make("Length");
  EXPECT_EQ(valueAs<StrandSet>(op->evaluate(fixture.context, std::vector<GraphValue>{input})),
            input);
  op->parameters.set("keep", 0.0);
  const StrandSetPtr cut = fixture.run(*op, *input);
  for (std::size_t i = 0; i < 10; ++i) {
    for (const Vec3f p : cut->strandPoints(i)) EXPECT_EQ(p, input->strandPoints(i).front());
  }
}

TEST(Length, TrimsWithinItsBoundsTheShareOfStrandsAskedFor) {
  OpsFixture fixture;
  const StrandSet strands = fixture.rootedStrands(2000, 17);
  const auto op = fixture.make("Length");
  op->parameters.set("fraction", 0.5);
  op->parameters.set("trimMin", 0.2);
  op->parameters.set("trimMax", 0.4);
  const StrandSetPtr cut = fixture.run(*op, strands);
  int trimmed = 0;
  for (std::size_t i = 0; i < strands.strandCount(); ++i) {
    const float share =
        polylineLength(cut->strandPoints(i)) / polylineLength(strands.strandPoints(i));
    if (share > 0.999f) continue;
    ++trimmed;
    EXPECT_GT(share, 0.59f);
    EXPECT_LT(share, 0.81f);
  }
  EXPECT_NEAR(trimmed, 1000, 100);
  // A strand's trim is its own: taking others away does not change it.
  std::vector<std::uint32_t> odd;
  for (std::uint32_t i = 1; i < 2000; i += 2) odd.push_back(i);
  test::expectSameStrands(cut->subset(odd), *fixture.run(*op, strands.subset(odd)));
}

TEST(PolylinePlaces, ShortenedMixesEveryValueAtTheCut) {
  const std::vector<Vec3f> line = straight(5, 4.0f);
  const std::vector<float> values{0, 10, 20, 30, 40};
  PolylinePlaces places;
  places.shortened(line, 0.625f);
  std::vector<float> out(5);
  places.apply(std::span<const float>(values), std::span<float>(out));
  for (std::size_t k = 0; k < 5; ++k) EXPECT_FLOAT_EQ(out[k], 6.25f * static_cast<float>(k));
}

TEST(Width, FollowsProfileAndStaysWithinItsRandomness) {
  OpsFixture fixture;
  const StrandSet strands = fixture.rootedStrands(400);
  const auto op = fixture.make("Width");
  op->parameters.set("width", 0.1);
  const StrandSetPtr plain = fixture.run(*op, strands);
  for (std::size_t i = 0; i < strands.strandCount(); ++i) {
    const std::size_t first = plain->offsets()[i], tip = plain->offsets()[i + 1] - 1;
    EXPECT_FLOAT_EQ(plain->widths()[first], 0.1f);
    EXPECT_FLOAT_EQ(plain->widths()[tip], 0.03f);
  }
  EXPECT_TRUE(plain->sharesPointsWith(strands));
  op->parameters.set("randomness", 0.5);
  const StrandSetPtr varied = fixture.run(*op, strands);
  float least = 1.0f, most = 0.0f;
  for (std::size_t i = 0; i < strands.strandCount(); ++i) {
    const float share = varied->widths()[varied->offsets()[i]] / 0.1f;
    least = std::min(least, share);
    most = std::max(most, share);
  }
  EXPECT_GE(least, 0.5f);
  EXPECT_LT(least, 0.55f);
  EXPECT_LE(most, 1.5f);
  EXPECT_GT(most, 1.45f);
}

TEST(Width, TakesAMapPerPoint) {
  OpsFixture fixture;
  const StrandSet strands = fixture.rootedStrands(20);
  const auto op = fixture.make("Width");
  op->parameters.set("width",
                     MapRef{MapSource::attribute, "wetness", MapComponent::luminance, 0, 2});
  op->parameters.set("profile", Ramp({{0.0f, 1.0f}}));
  const StrandSetPtr result = fixture.run(*op, strands);
  for (std::size_t p = 0; p < strands.pointCount(); ++p) {
    EXPECT_FLOAT_EQ(result->widths()[p], 2.0f * (*strands.pointChannel("wetness"))[p]);
  }
}

TEST(Resample, SpacesPointsEvenlyAndKeepsEndsAndStraightLengths) {
  OpsFixture fixture;
  StrandSet strands;
  std::vector<Vec3f> uneven{{0, 0, 0}, {0, 0.1f, 0}, {0, 0.2f, 0}, {0, 4, 0}};
  const std::vector<float> widths{4, 3.9f, 3.8f, 0};
  strands.addStrand(1, {}, uneven, widths);
  const auto op = fixture.make("Resample");
  op->parameters.set("segments", std::int64_t{8});
  const StrandSetPtr even = fixture.run(*op, strands);
  ASSERT_EQ(even->pointCount(), 9u);
  for (int k = 0; k < 9; ++k) {
    EXPECT_NEAR(even->points()[static_cast<std::size_t>(k)].y, 0.5f * static_cast<float>(k), 1e-5f);
    EXPECT_NEAR(even->widths()[static_cast<std::size_t>(k)], 4.0f - 0.5f * static_cast<float>(k),
                1e-5f);
  }
  // A second pass changes nothing that matters.
  const StrandSetPtr again = fixture.run(*op, *even);
  for (std::size_t p = 0; p < 9; ++p) {
    EXPECT_NEAR(distance(again->points()[p], even->points()[p]), 0.0f, 1e-5f);
  }
}

TEST(Resample, ModesGiveFewerPointsToShorterAndStraighterStrands) {
  OpsFixture fixture;
  StrandSet strands;
  strands.addStrand(1, {}, straight(9, 8.0f));
  strands.addStrand(2, {}, straight(9, 2.0f));
  std::vector<Vec3f> arc;
  for (int k = 0; k < 33; ++k) {
    const float angle = pi / 2.0f * static_cast<float>(k) / 32.0f;
    arc.push_back({std::cos(angle), std::sin(angle), 0});
  }
  strands.addStrand(3, {}, arc);
  const auto op = fixture.make("Resample");
  op->parameters.set("mode", std::string("length"));
  const auto countOf = [](const StrandSet& set, std::size_t i) {
    return set.strandPoints(i).size();
  };
  const StrandSetPtr byLength = fixture.run(*op, strands);
  EXPECT_EQ(countOf(*byLength, 0), 17u);
  EXPECT_EQ(countOf(*byLength, 1), 5u);
  EXPECT_EQ(countOf(*byLength, 2), 5u);
  op->parameters.set("mode", std::string("curvature"));
  const StrandSetPtr byBend = fixture.run(*op, strands);
  EXPECT_EQ(countOf(*byBend, 0), 4u);
  EXPECT_EQ(countOf(*byBend, 2), 7u);  // 90 degrees at 15 a segment
  fixture.context.viewport = true;
  EXPECT_EQ(fixture.run(*op, strands)->uniformPointCount(), 17u);
  op->parameters.set("mode", std::string("best"));
  fixture.expectError(*op, strands, "Resample: mode must be even, length or curvature");
}

TEST(Resample, ByTurningGathersPlacesAtTheBend) {
  const std::vector<Vec3f> corner{{0, 0, 0}, {0, 1, 0}, {0, 2, 0}, {0.5f, 2, 0}, {2, 2, 0}};
  PolylinePlaces places;
  places.byTurning(corner, 9);
  std::vector<Vec3f> out(9);
  places.apply(std::span<const Vec3f>(corner), std::span<Vec3f>(out));
  EXPECT_EQ(out.front(), corner.front());
  EXPECT_EQ(out.back(), corner.back());
  const auto near = std::count_if(out.begin(), out.end(), [](Vec3f p) {
    return distance(p, {0, 2, 0}) <= 1.01f;
  });
  EXPECT_GE(near, 6);
}

TEST(Resample, NoSegmentsPassesByPointer) {
  OpsFixture fixture;
  const auto input = std::make_shared<const StrandSet>(fixture.rootedStrands(4));
  const auto op = fixture.make("Resample");
  op->parameters.set("segments", std::int64_t{0});
  EXPECT_EQ(valueAs<StrandSet>(op->evaluate(fixture.context, std::vector<GraphValue>{input})),
            input);
}

TEST(Noise, LeavesRootsAndWhatItIsNotAskedFor) {
  OpsFixture fixture;
  const StrandSet strands = fixture.rootedStrands(300);
  for (const char* mode : {"smooth", "kinky"}) {
    for (const char* space : {"strand", "world"}) {
      SCOPED_TRACE(std::string(mode) + " " + space);
      const auto op = fixture.make("Noise");
      op->parameters.set("mode", std::string(mode));
      op->parameters.set("space", std::string(space));
      op->parameters.set("frequency", 0.7);
      op->parameters.set("fraction", 0.5);
      const StrandSetPtr noisy = fixture.run(*op, strands);
      int moved = 0;
      for (std::size_t i = 0; i < strands.strandCount(); ++i) {
        const auto before = strands.strandPoints(i), after = noisy->strandPoints(i);
        EXPECT_EQ(after[0], before[0]);  // the profile is 0 at the root
        moved += before.back() != after.back();
        for (std::size_t k = 0; k < before.size(); ++k) {
          // Each component of the noise stays within 1, and in kinks within 1 as well.
          EXPECT_LE(distance(before[k], after[k]), 0.2f * std::sqrt(3.0f) + 1e-4f);
        }
      }
      EXPECT_NEAR(moved, 150, 40);
    }
  }
}

TEST(Noise, IsLinearInItsAmplitudeAndStillAtZero) {
  OpsFixture fixture;
  const StrandSet strands = fixture.rootedStrands(50);
  const auto at = [&](double amplitude) {
    const auto op = fixture.make("Noise");
    op->parameters.set("amplitude", amplitude);
    return fixture.run(*op, strands);
  };
  const StrandSetPtr one = at(0.25), two = at(0.5);
  for (std::size_t p = 0; p < strands.pointCount(); ++p) {
    const Vec3f small = one->points()[p] - strands.points()[p];
    const Vec3f large = two->points()[p] - strands.points()[p];
    EXPECT_NEAR(distance(small * 2.0f, large), 0.0f, 2e-5f);
  }
  EXPECT_TRUE(at(0.0)->sharesPointsWith(strands));
}

TEST(Noise, InWorldSpaceIsOneFieldAndAlongStrandsEachItsOwn) {
  OpsFixture fixture;
  StrandSet twins;
  const std::vector<Vec3f> line = straight(9, 3.0f);
  twins.addStrand(11, {}, line);
  twins.addStrand(12, {}, line);
  const auto op = fixture.make("Noise");
  op->parameters.set("frequency", 1.0);
  const StrandSetPtr own = fixture.run(*op, twins);
  EXPECT_NE(own->strandPoints(0).back(), own->strandPoints(1).back());
  op->parameters.set("space", std::string("world"));
  const StrandSetPtr shared = fixture.run(*op, twins);
  for (std::size_t k = 0; k < 9; ++k) {
    EXPECT_EQ(shared->strandPoints(0)[k], shared->strandPoints(1)[k]);
  }
}

/// The noise alone: what strength 1 adds to a straight strand.
std::vector<Vec3f> noiseOf(const NoiseShape& shape, std::uint64_t id, std::size_t count,
                           float size) {
  const std::vector<Vec3f> line = straight(count, size);
  std::vector<Vec3f> out(count);
  NoiseKernel kernel(shape);
  kernel.measure(line);
  kernel.displace(id, line, std::vector<float>(count, 1.0f), out);
  for (std::size_t i = 0; i < count; ++i) out[i] = out[i] - line[i];
  return out;
}

TEST(Noise, IsOctavesOfTheVectorNoiseAlongItsLine) {
  NoiseShape shape;
  shape.octaves = 3;
  shape.seed = 9;
  for (const bool world : {false, true}) {
    shape.world = world;
    for (const float frequency : {0.4f, 3.0f, -2.0f}) {
      shape.frequency = frequency;
      for (const std::uint64_t id : {7u, 12345u}) {
        const auto noise = noiseOf(shape, id, 129, 2.0f);
        const std::vector<Vec3f> line = straight(129, 2.0f);
        for (std::size_t i = 0; i < 129; ++i) {
          Vec3f sum;
          for (int octave = 0; octave < 3; ++octave) {
            const float fine = frequency * static_cast<float>(1 << octave);
            const float share = static_cast<float>(i) / 128.0f;
            const Vec3f at =
                world ? line[i] * fine : strandNoiseStart(id, 9) + Vec3f{share * fine, 0.0f, 0.0f};
            sum += vectorNoise(at, noiseOctaveSeed(9, octave)) / static_cast<float>(1 << octave);
          }
          EXPECT_LT(distance(noise[i], sum / 1.75f), 1e-4f) << frequency << ' ' << i;
        }
      }
    }
  }
}

TEST(Noise, IsStraightBetweenKinks) {
  NoiseShape shape;
  shape.octaves = 1;
  shape.kinky = true;
  shape.frequency = 5.0f;
  for (const std::uint64_t id : {3u, 4u, 5u}) {
    const auto noise = noiseOf(shape, id, 201, 1.0f);
    int kinks = 0;
    float farthest = 0.0f;
    for (std::size_t i = 1; i + 1 < noise.size(); ++i) {
      kinks += length(noise[i - 1] + noise[i + 1] - noise[i] * 2.0f) > 1e-4f;
      farthest = std::max(farthest, length(noise[i]));
    }
    EXPECT_GE(kinks, 4);
    EXPECT_LE(kinks, 10);  // a kink between two points bends at both
    EXPECT_GT(farthest, 0.3f);
  }
}

TEST(Noise, FadesOutWhereSegmentsCannotDrawItAndSaysSo) {
  OpsFixture fixture;
  const StrandSet strands = fixture.rootedStrands(20);  // 8 segments
  const auto op = fixture.make("Noise");
  op->parameters.set("octaves", std::int64_t{1});
  EXPECT_EQ(op->note(fixture.context), "");
  op->parameters.set("frequency", 9.0);
  const StrandSetPtr flat = fixture.run(*op, strands);
  for (std::size_t p = 0; p < strands.pointCount(); ++p) {
    EXPECT_EQ(flat->points()[p], strands.points()[p]);
  }
  EXPECT_EQ(op->note(fixture.context),
            "frequency 9 is finer than the strands' 8 segments draw: the noise fades out; raise "
            "Resample's segments or lower the frequency");
}

}  // namespace
}  // namespace kestrane
