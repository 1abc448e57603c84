// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/guides/flow.h"

#include "core/guides/guide_frames.h"
#include "tests/guides/guide_fixtures.h"

namespace kestrane {
namespace {

TEST(Flow, APinHoldsTheDirectionAlongTheSurface) {
  const ScalpMesh scalp = test::makeSphere(16, 32, 5.0f);
  const Vec3f direction{3, -1, 2};
  for (std::int32_t face = 0; face < 200; face += 7) {
    const StrandRoot point{face, 0.3f, 0.2f};
    const FlowPin pin = makePin(scalp, point, direction);
    const SurfaceFrame frame = surfaceFrameAt(scalp, point);
    const Vec3f world = frame.tangent * pin.direction.x + frame.bitangent * pin.direction.y;
    EXPECT_NEAR(length(world), 1.0f, 1e-5f);
    EXPECT_NEAR(dot(world, frame.normal), 0.0f, 1e-5f);
    // What the direction has more than the pin is along the normal.
    EXPECT_LE(length(cross(direction - world * dot(world, direction), frame.normal)), 1e-4f);
    EXPECT_GT(dot(world, direction), 0.0f);
    EXPECT_EQ(pin.line, -1);
    EXPECT_EQ(pin.direction.z, 0.0f);
  }
}

TEST(Flow, RefusesWithItsWords) {
  const ScalpMesh scalp = test::makeQuad();
  const auto refusal = [&](std::int32_t face, Vec3f direction) {
    return test::thrownBy<std::invalid_argument>([&] { makePin(scalp, {face, 0, 0}, direction); });
  };
  EXPECT_EQ(refusal(-1, {1, 0, 0}), "flow pin: not a point on the scalp");
  EXPECT_EQ(refusal(2, {1, 0, 0}), "flow pin: not a point on the scalp");
  for (const Vec3f up : {Vec3f{0, 3, 0}, Vec3f{}, Vec3f{std::nanf(""), 0, 0}}) {
    EXPECT_EQ(refusal(0, up), "flow pin: the direction is along the surface normal");
  }
  EXPECT_EQ(sinkAngle("whorl"), 70.0f);
  EXPECT_EQ(sinkAngle("whorlcw"), -70.0f);
  EXPECT_EQ(sinkAngle("converge"), 180.0f);
  EXPECT_EQ(sinkAngle("part"), 0.0f);
  EXPECT_EQ(test::thrownBy<std::invalid_argument>([] { sinkAngle("Whorl"); }),
            "flow sink: unknown kind 'Whorl' (whorl, whorlcw, converge, part)");
}

TEST(Flow, TextsRoundTripAndFaultsAreNamed) {
  const FlowData flow{{{{3, 0.1f, 0.2f}, {0.6f, -0.8f, 0}}, {{4, 0, 0}, {1, 0, 0}, 0, 7}},
                      {{{5, 0.5f, 0.25f}, -70.0f, 2.5f}}};
  EXPECT_EQ(flowToJson(flow),
            R"({"pins":[{"face":3,"u":0.1,"v":0.2,"dir":[0.6,-0.8,0.0]},)"
            R"({"face":4,"u":0.0,"v":0.0,"dir":[1.0,0.0,0.0],"line":0,"seq":7}],)"
            R"("sinks":[{"face":5,"u":0.5,"v":0.25,"angle":-70.0,"radius":2.5}],"version":1})");
  EXPECT_EQ(flowFromJson(flowToJson(flow)), flow);
  EXPECT_EQ(flowFromJson("    "), FlowData());
  const struct {
    const char* text;
    const char* reason;
  } cases[] = {
      {R"({"pins":[]})", "key 'sinks' not found"},
      {R"({"sinks":[]})", "key 'pins' not found"},
      {R"({"pins":[{"face":0,"u":0,"v":0}],"sinks":[]})", "key 'dir' not found"},
      {R"({"pins":[{"face":0,"u":0,"v":0,"dir":[1,0]}],"sinks":[]})",
       "point array length is not a multiple of 3"},
      {R"({"pins":[{"face":0,"u":0,"v":0,"dir":[]}],"sinks":[]})", "a vector needs 3 numbers"},
      {R"({"pins":[],"sinks":[{"face":0,"u":0,"v":0,"angle":0}]})", "key 'radius' not found"},
      {R"({"pins":[],"sinks":[],"version":9})",
       "flow data version 9 is newer than this Kestrane supports (1); update Kestrane to open it"},
  };
  for (const auto& [text, reason] : cases) {
    EXPECT_EQ(test::thrownBy<std::runtime_error>([&] { flowFromJson(text); }), reason) << text;
  }
}

}  // namespace
}  // namespace kestrane
