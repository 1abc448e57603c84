// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "hosts/obj/obj_reader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace kestrane {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const std::string square = "v 0 0 0\nv 1 0 0\nv 1 0 1\nv 0 0 1\n";

TEST(ObjReader, KeepsPolygonsAndFansTriangles) {
  const ObjFile obj = parseObj(square + "v .5 1 .5\nf 1 2 3 4\nf 1 2 5\nf 1 2 3 4 5\n", "a.obj");
  const ScalpMeshPtr mesh = scalpFromObj(obj);
  EXPECT_THAT(mesh->polygons(), ElementsAre(2, 1, 3));
  using Triangle = ScalpMesh::Triangle;
  EXPECT_THAT(mesh->triangles(),
              ElementsAre(Triangle{0, 1, 2}, Triangle{0, 2, 3}, Triangle{0, 1, 4},
                          Triangle{0, 1, 2}, Triangle{0, 2, 3}, Triangle{0, 3, 4}));
  EXPECT_FALSE(mesh->hasUvs());
}

TEST(ObjReader, UvsHaveTheirOwnIndices) {
  const ObjFile obj =
      parseObj(square + "vt 0 0\nvt 1 0\nvt 1 1\nvt 0.25\nf 1/4 2/3/1 3/2 4/-4\nf 1//1 2//1 3//1\n",
               "a.obj");
  EXPECT_THAT(obj.cornerUvs, ElementsAre(3, 2, 1, 0, -1, -1, -1));
  EXPECT_EQ(cornersWithoutUv(obj), 3u);
  const ScalpMeshPtr mesh = scalpFromObj(obj);
  EXPECT_THAT(mesh->uvs(), ElementsAre(Vec2f{0.25f, 0}, Vec2f{1, 1}, Vec2f{1, 0}, Vec2f{0.25f, 0},
                                       Vec2f{1, 0}, Vec2f{0, 0}, Vec2f{}, Vec2f{}, Vec2f{}));
}

TEST(ObjReader, TheSameWhateverStandsAround) {
  const ObjFile plain = parseObj(square + "f 1 2 3 4\nl 1 2 3\n", "a.obj");
  const std::pair<const char*, const char*> forms[] = {
      {"CRLF", "v 0 0 0\r\nv 1 0 0\r\nv 1 0 1\r\nv 0 0 1\r\nf 1 2 3 4\r\nl 1 2 3\r\n"},
      {"CR", "v 0 0 0\rv 1 0 0\rv 1 0 1\rv 0 0 1\rf 1 2 3 4\rl 1 2 3"},
      {"no last line end", "v 0 0 0\nv 1 0 0\nv 1 0 1\nv 0 0 1\nf 1 2 3 4\nl 1 2 3"},
      {"negative", "v 0 0 0\nv 1 0 0\nv 1 0 1\nv 0 0 1\nf -4 -3 -2 -1\nl -4 -3 -2\n"},
      {"faces first", "f 1 2 3 4\nl 1 2 3\nv 0 0 0\nv 1 0 0\nv 1 0 1\nv 0 0 1\n"},
      {"continued", "v 0 0 0\nv 1 0 0\nv 1 0 1\nv 0 0 1\nf 1 2 \\\n 3 \\\r\n4\nl 1 2\\\n 3\n"},
      {"decorated",
       "\xEF\xBB\xBF# C:\\path\\\nmtllib a.mtl\no x\ng y\n  v 0 0 0 1 0 0 # red\nv\t1 0 0\nv +1 0 "
       "1\n"
       "v 0 0 1.0e0\n\n \t\nvn nan 0 1\nusemtl none\ns off\nf 1//1 2//1 3//1 4//1#tail\n"
       "l 1/1 2/1 3/1\ncurv2 1\n"},
  };
  for (const auto& [name, text] : forms) {
    const ObjFile obj = parseObj(text, "a.obj");
    EXPECT_EQ(obj.points, plain.points) << name;
    EXPECT_EQ(obj.corners, plain.corners) << name;
    EXPECT_EQ(obj.faceStarts, plain.faceStarts) << name;
    EXPECT_EQ(obj.linePoints, plain.linePoints) << name;
    EXPECT_THAT(obj.cornerUvs, IsEmpty()) << name;
  }
  const auto curves = curvesFromObj(plain);
  ASSERT_EQ(curves.size(), 1u);
  EXPECT_THAT(curves[0], ElementsAre(Vec3f{0, 0, 0}, Vec3f{1, 0, 0}, Vec3f{1, 0, 1}));
}

TEST(ObjReader, FaultsNameFileAndLine) {
  const std::pair<std::string, const char*> cases[] = {
      {"v 1 2\n", "a.obj, line 1: a point needs three coordinates"},
      {"v 1 2 \n3\n", "a.obj, line 1: a point needs three coordinates"},
      {"\nv 1 2 x3\n", "a.obj, line 2: 'x3' is no number"},
      {"v 1 2 3x\n", "a.obj, line 1: '3x' is no number"},
      {"v 1 2 nan\n", "a.obj, line 1: a coordinate must be finite, not 'nan'"},
      {"v 1 -inf 3\n", "a.obj, line 1: a coordinate must be finite, not '-inf'"},
      {"v 1 1e39 3\n", "a.obj, line 1: '1e39' is too large for a coordinate"},
      {"v 1 -1e999 3\n", "a.obj, line 1: '-1e999' is too large for a coordinate"},
      {"vt\n", "a.obj, line 1: a UV needs a number"},
      {"vt 0 inf\n", "a.obj, line 1: a UV must be finite, not 'inf'"},
      {square + "f 1 2\n", "a.obj, line 5: a face needs three corners or more"},
      {square + "f\n", "a.obj, line 5: a face needs three corners or more"},
      {square + "l 1\n", "a.obj, line 5: a line needs two points or more"},
      {square + "f 0 1 2\n", "a.obj, line 5: a point has the index 0; they count from 1"},
      {square + "f 1 2 7\nf 1 2 9\n", "a.obj, line 6: there is no point 9; the file has 4"},
      {square + "\\\n\nf 1 2 -5\n", "a.obj, line 7: there is no point -5; 4 stand above"},
      {square + "f 1/1 2/1 3/1\n", "a.obj, line 5: there is no UV 1; the file has 0"},
      {square + "f 1/ 2/x 3\n", "a.obj, line 5: '2/x' is no index"},
      {square + "f 1 2 3.5\n", "a.obj, line 5: '3.5' is no index"},
      {square + "l 1 4294967297\n", "a.obj, line 5: there is no point 4294967297; the file has 4"},
      {square + "f 1 2 99999999999999999999\n",
       "a.obj, line 5: there is no point 9223372036854775807; the file has 4"},
      {square + "f 1 2 " + std::string(99, 'x') + "\n",
       "a.obj, line 5: 'xxxxxxxxxxxxxxxxxxxxxxxx...' is no index"},
      {std::string("v 0 0 0\n\0\0", 10), "a.obj: this is a binary file, not OBJ text"},
  };
  for (const auto& [text, message] : cases) {
    try {
      parseObj(text, "a.obj");
      ADD_FAILURE() << "accepted: " << text;
    } catch (const ObjError& error) {
      EXPECT_STREQ(error.what(), message);
    }
  }
}

TEST(ObjReader, WantsWhatIsAskedFor) {
  EXPECT_THAT([] { scalpFromObj(parseObj("", "a.obj")); },
              testing::ThrowsMessage<ObjError>("a.obj holds no faces (f), so there is no mesh"));
  EXPECT_THAT([] { curvesFromObj(parseObj(square, "a.obj")); },
              testing::ThrowsMessage<ObjError>("a.obj holds no lines (l), so there are no curves"));
  EXPECT_THAT([] { readObj("/no/such/file.obj"); },
              testing::ThrowsMessage<ObjError>("cannot read '/no/such/file.obj'"));
}

TEST(ObjReader, SmallNumbersAreKeptOrZero) {
  const ObjFile obj = parseObj("v 1e-39 1e-60 -1e-999\n", "a.obj");
  EXPECT_NEAR(obj.points[0].x, 1e-39f, 1e-42f);
  EXPECT_EQ(obj.points[0].y, 0.0f);
  EXPECT_EQ(obj.points[0].z, 0.0f);
  const std::string zeros(400, '0');
  for (const std::string& tiny :
       {"-0." + zeros + "1", "+1" + zeros + "e-500", std::string("1e-99999999999999999999")}) {
    EXPECT_EQ(parseObj("v " + tiny + " 0 0\n", "a.obj").points[0].x, 0.0f) << tiny;
  }
  for (const std::string& huge : {"1" + zeros, "-1" + zeros + "e-300", "0." + zeros + "1e500",
                                  std::string("1e+99999999999999999999")}) {
    EXPECT_THAT([&] { parseObj("v " + huge + " 0 0\n", "a.obj"); },
                testing::ThrowsMessage<ObjError>(testing::HasSubstr("is too large")))
        << huge;
  }
}

// Whatever is cut off or overwritten, the outcome is a clean error or indices within their tables.
TEST(ObjReader, MutilatedTextNeverLeavesBadIndices) {
  const std::string whole = square + "vt 0 0\nvt 1 1\nf 1/1 2/2 -2/1 4/-1\nl 1 2 \\\n 3 4\n";
  std::mt19937 random(7);
  const char alphabet[] = "0123456789-./\\\n\r #flvt ex+";
  for (int round = 0; round < 4000; ++round) {
    std::string text = whole.substr(0, random() % (whole.size() + 1));
    for (unsigned flips = random() % 4; flips > 0 && !text.empty(); --flips) {
      text[random() % text.size()] = alphabet[random() % (sizeof(alphabet) - 1)];
    }
    try {
      const ObjFile obj = parseObj(text, "a.obj");
      ASSERT_EQ(obj.faceStarts.back(), obj.corners.size());
      for (const auto& table : {obj.corners, obj.linePoints}) {
        for (const std::int32_t i : table) {
          ASSERT_TRUE(i >= 0 && static_cast<std::size_t>(i) < obj.points.size()) << text;
        }
      }
      for (const std::int32_t i : obj.cornerUvs) {
        ASSERT_TRUE(i >= -1 && i < static_cast<std::int32_t>(obj.uvs.size())) << text;
      }
    } catch (const ObjError& error) {
      ASSERT_TRUE(std::string(error.what()).starts_with("a.obj")) << error.what();
    }
  }
}

}  // namespace
}  // namespace kestrane
