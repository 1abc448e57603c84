// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>

#include "core/base/file.h"
#include "core/base/json.h"
#include "core/base/parallel.h"
#include "tests/session/groom_fixtures.h"
#include "tests/support/temp_folder.h"

namespace kestrane {
namespace {

using test::expectSameDocument;
using test::makeDocument;
using testing::HasSubstr;
using testing::Not;

/// Files of a test, gone with it.
class GroomFile : public testing::Test {
 protected:
  GroomFile() { std::filesystem::create_directories(folder_); }
  ~GroomFile() override { std::filesystem::remove_all(folder_); }
  std::string temporaryPath(const std::string& name) const { return folder_ + name; }

 private:
  const std::string folder_ = test::tempFolder("groom_file");
};

/// A scalp large enough for its arrays to be written and read in many slices.
GroomDocument largeDocument() {
  GroomDocument document = makeDocument();
  ScalpMesh mesh = test::makeGrid(260);
  std::vector<Vec3f> points = mesh.points();
  for (std::size_t i = 0; i < points.size(); ++i) points[i].y = std::sin(0.37f * i) * 5.0f;
  std::vector<Vec3f> rest = points;
  for (Vec3f& point : rest) point.x += 0.3f;
  document.scalp.mesh = mesh.withPoints(std::move(points), std::move(rest));
  return document;
}

TEST_F(GroomFile, EveryFieldReturns) {
  const GroomDocument document = makeDocument();
  expectSameDocument(document, parseGroomFile(groomFileText(document)));
  expectSameDocument(GroomDocument{}, parseGroomFile(groomFileText(GroomDocument{})));
}

TEST_F(GroomFile, LargeArraysReturnAndTheTextIsTheSameAtEveryThreadCountThreads) {
  const GroomDocument document = largeDocument();
  std::string texts[2];
  for (const std::size_t threads : {1, 8}) {
    runWithThreads(threads, [&] { texts[threads > 1] = groomFileText(document); });
  }
  EXPECT_TRUE(texts[0] == texts[1]);
  expectSameDocument(document, parseGroomFile(texts[0]));
  const std::string path = temporaryPath("large.groom");
  writeGroomFile(path, document);
  EXPECT_TRUE(readWholeFile(path) == texts[0]);
  expectSameDocument(document, readGroomFile(path));
}

TEST_F(GroomFile, TheTextIsPlainJsonInTheOrderOfTheFormat) {
  const Json json = Json::parse(groomFileText(makeDocument()));
  std::vector<std::string> keys;
  for (const auto& [key, value] : json.items()) keys.push_back(key);
  EXPECT_EQ(
      keys,
      (std::vector<std::string>{
          "format",      "version",   "framesPerSecond", "units",       "upAxis",     "source",
          "graph",       "hierarchy", "parts",           "correctives", "flow",       "controls",
          "maps",        "scalp",     "guides",          "scalpCache",  "guideCache", "searchPaths",
          "followScalp", "cardBake",  "simCaches",       "prototypes",  "colliders"}));
  keys.clear();
  for (const auto& [key, value] : json["scalp"].items()) keys.push_back(key);
  EXPECT_EQ(keys, (std::vector<std::string>{"points", "triangles", "polygons", "subdivision",
                                            "subdivisionFrom", "topology", "uvs", "colorSets",
                                            "restPoints"}));
  EXPECT_THAT(json["scalp"]["topology"].get<std::string>(), testing::MatchesRegex("[0-9a-f]{16}"));
  EXPECT_EQ(json["maps"]["color"]["channels"], 4);
  EXPECT_FALSE(json["maps"]["density"].contains("channels"));
  for (const Json& value : json["scalp"]["points"]) EXPECT_TRUE(value.is_number_float());
}

/// Also within what has a writer of its own: a reader with types takes `0` for something else.
TEST_F(GroomFile, FloatsStayFloatsToEveryReader) {
  GroomDocument document = makeDocument();
  auto guides = std::make_shared<GuideHierarchy>(*document.hierarchy);
  guides->updateFromScalp(document.scalp.mesh.get());
  guides->setTube(guides->guides().front().id, {{1, 0, -0.0f}, 3});
  guides->setPointAttribute(guides->guides().front().id, "wet", {0, 1, 2});
  document.hierarchy = guides;
  auto correctives = std::make_shared<CorrectiveData>(*document.correctives);
  correctives->layers[0].weightCurve = {{1.0, 2.0f}};
  document.correctives = correctives;
  const std::string text = groomFileText(document);
  const Json json = Json::parse(text);
  const Json& guide = json["hierarchy"]["guides"][0];
  const Json& layer = json["correctives"]["layers"][0];
  const Json& pin = json["flow"]["pins"][0];
  const Json& sink = json["flow"]["sinks"][0];
  const Json& root = guide["root"];
  for (const Json& values :
       {guide["points"], guide["rootLocal"], guide["frameUp"], guide["frameUpLocal"],
        guide["tube"]["radius"], guide["pointAttributes"]["wet"], layer["offsets"]["3"],
        layer["weightCurve"][0], pin["dir"],
        Json{root[1], root[2], guide["tube"]["twist"], guide["attributes"]["wet"], layer["time"],
             layer["fadeIn"], layer["weight"], pin["u"], sink["angle"], sink["radius"]}}) {
    EXPECT_FALSE(values.empty());
    for (const Json& value : values) EXPECT_TRUE(value.is_number_float()) << values;
  }
  EXPECT_EQ(guide["tube"]["radius"].dump(), "[1.0,0.0,-0.0]");
  EXPECT_TRUE(root[0].is_number_integer() && guide["id"].is_number_integer());
  EXPECT_EQ(groomFileText(parseGroomFile(text)), text);
}

TEST_F(GroomFile, ARestPoseIsWrittenWhereItDiffers) {
  GroomDocument document = makeDocument();
  const ScalpMesh scalp = *document.scalp.mesh;
  for (const float shift : {0.0f, 0.5f}) {
    std::vector<Vec3f> rest = scalp.points();
    rest.back().z += shift;
    document.scalp.mesh = scalp.withPoints(scalp.points(), rest);
    const GroomDocument back = parseGroomFile(groomFileText(document));
    EXPECT_EQ(back.scalp.mesh->restPoints(), shift == 0.0f ? std::vector<Vec3f>() : rest);
  }
}

TEST_F(GroomFile, AnEmptyGroomWritesLittle) {
  EXPECT_EQ(groomFileText(GroomDocument{}),
            R"({"format":"kestrane.groom","version":1,"units":"cm","upAxis":"Y"})");
}

/// Names that look like what the format's writers use between themselves.
TEST_F(GroomFile, TheMarkOfArraysNeverAppears) {
  GroomDocument document = makeDocument();
  document.source = "@kestrane.floats:0@";
  document.controls["@kestrane.floats:1@"] = 1.0;
  document.graph["@kestrane.floats:2@"] = "x @kestrane.floats:@kestrane.floats:";
  document.searchPaths.push_back(
      "\xEF\xB7\x90"
      "0");
  const std::string text = groomFileText(document);
  EXPECT_THAT(text, Not(HasSubstr("@kestrane.floats:")));
  expectSameDocument(document, parseGroomFile(text));
}

/// The same groom in texts that only the plain parser takes, or that others may write.
TEST_F(GroomFile, OtherFormsOfTheSameGroom) {
  const GroomDocument document = makeDocument();
  const std::string text = groomFileText(document);
  expectSameDocument(document, parseGroomFile(Json::parse(text).dump(2)));
  GroomDocument sorted = parseGroomFile(nlohmann::json::parse(text).dump());
  sorted.graph = document.graph;  // whose keys were sorted, too
  expectSameDocument(document, sorted);
  Json json = Json::parse(text);
  for (const char* key : {"graph", "hierarchy", "parts", "correctives", "flow", "simCaches"}) {
    json[key] = " \t\r\n" + json[key].dump();
  }
  json["later"] = {{"points", std::vector<double>(200, 0.5)}, {"x", nullptr}};
  expectSameDocument(document, parseGroomFile(json.dump()));
  json["later"]["mark"] =
      "\xEF\xB7\x90"
      "3";
  expectSameDocument(document, parseGroomFile(json.dump()));
  expectSameDocument(document, parseGroomFile(json.dump(-1, ' ', true)));
}

TEST_F(GroomFile, NullIsZeroAndBlankDocumentsAreNone) {
  const GroomDocument document = parseGroomFile(R"({"format":"kestrane.groom","graph":" ",
      "hierarchy":"","flow":" ","simCaches":"\n","guides":[{"id":3,"points":[null,1,-0.0]}]})");
  EXPECT_TRUE(document.graph.is_null());
  EXPECT_EQ(document.hierarchy, nullptr);
  EXPECT_EQ(document.flow, nullptr);
  EXPECT_TRUE(document.simCaches.is_null());
  ASSERT_EQ(document.guides.size(), 1u);
  EXPECT_EQ(document.guides[0].points[0], (Vec3f{0, 1, 0}));
  EXPECT_TRUE(std::signbit(document.guides[0].points[0].z));
  EXPECT_EQ(document.guides[0].root, StrandRoot{});
}

TEST_F(GroomFile, AMeshWithoutTriangles) {
  GroomDocument document;
  document.scalp.mesh = std::make_shared<const ScalpMesh>();
  const GroomDocument back = parseGroomFile(groomFileText(document));
  ASSERT_NE(back.scalp.mesh, nullptr);
  EXPECT_EQ(back.scalp.mesh->triangleCount(), 0u);
}

void expectWriteFails(const GroomDocument& document, const std::string& message) {
  try {
    (void)groomFileText(document);
    FAIL() << message;
  } catch (const GroomFileError& error) {
    EXPECT_EQ(error.what(), message);
  }
}

TEST_F(GroomFile, NonFiniteValuesStopTheWrite) {
  const auto breakAt = [](std::vector<Vec3f> points) {
    points[2].y = NAN;
    return points;
  };
  GroomDocument document = makeDocument();
  document.scalp.mesh = document.scalp.mesh->withPoints(breakAt(document.scalp.mesh->points()));
  expectWriteFails(document, "groom file: 'scalp.points' holds a non-finite value at index 7");

  document = makeDocument();
  document.guides[1].points[0].x = INFINITY;
  expectWriteFails(document, "groom file: 'guides.points' holds a non-finite value at index 0");
  document = makeDocument();
  document.guides[1].root.v = NAN;
  expectWriteFails(document, "groom file: 'guides.root' holds a non-finite value at index 0");
  document = makeDocument();
  document.controls["wet"] = -INFINITY;
  expectWriteFails(document, "groom file: 'controls' holds a non-finite value at index 0");
  document = makeDocument();
  document.framesPerSecond = NAN;
  expectWriteFails(document, "groom file: 'framesPerSecond' holds a non-finite value at index 0");
  document = makeDocument();
  document.maps["density"].values[3] = NAN;
  expectWriteFails(document, "groom file: 'maps.values' holds a non-finite value at index 3");
  document = makeDocument();
  document.graph["backdrops"][1] = NAN;
  expectWriteFails(document, "groom file: 'graph' holds a non-finite value at index 2");
  document = makeDocument();
  document.simCaches["simulate"]["first"] = INFINITY;
  expectWriteFails(document, "groom file: 'simCaches' holds a non-finite value at index 0");
  document = makeDocument();
  document.upAxis = "X";
  expectWriteFails(document, "groom file: upAxis is \"Y\" or \"Z\", not \"X\"");
  document = makeDocument();
  document.source = "\xff";
  expectWriteFails(document, "groom file: 'source' is not UTF-8 text");
}

/// Numbers of the documents that have writers of their own.
TEST_F(GroomFile, NonFiniteValuesInsideStopTheWriteToo) {
  const auto expectRefused = [](const std::string& key, int index, auto breakIt) {
    GroomDocument document = makeDocument();
    breakIt(document);
    expectWriteFails(document, "groom file: '" + key + "' holds a non-finite value at index " +
                                   std::to_string(index));
  };
  const auto part = [](GroomDocument& document) {
    auto parts = std::make_shared<PartData>(*document.parts);
    parts->parts[0].points[1].v = NAN;
    document.parts = parts;
  };
  expectRefused("parts.points", 3, part);
  const auto withFlow = [](auto change) {
    return [change](GroomDocument& document) {
      auto flow = std::make_shared<FlowData>(*document.flow);
      change(*flow);
      document.flow = flow;
    };
  };
  expectRefused("flow.pins", 3, withFlow([](FlowData& flow) { flow.pins[0].direction.y = NAN; }));
  expectRefused("flow.sinks", 2, withFlow([](FlowData& flow) { flow.sinks[0].angle = INFINITY; }));
  const auto withLayer = [](auto change) {
    return [change](GroomDocument& document) {
      auto correctives = std::make_shared<CorrectiveData>(*document.correctives);
      change(correctives->layers[0]);
      document.correctives = correctives;
    };
  };
  expectRefused("correctives.layers", 2,
                withLayer([](CorrectiveLayer& layer) { layer.fadeOut = NAN; }));
  expectRefused("correctives.weightCurve", 3, withLayer([](CorrectiveLayer& layer) {
                  layer.weightCurve = {{0, 0}, {1, NAN}};
                }));
  expectRefused("correctives.offsets", 4,
                withLayer([](CorrectiveLayer& layer) { layer.offsets[3][1].y = NAN; }));
}

void expectFileFails(const std::function<void()>& run, const std::string& message) {
  try {
    run();
    FAIL() << message;
  } catch (const GroomFileError& error) {
    EXPECT_EQ(error.what(), message);
  }
}

TEST_F(GroomFile, FilesThatCannotBeReadOrWritten) {
  const std::string missing = temporaryPath("missing/there.groom");
  expectFileFails([&] { (void)readGroomFile(missing); }, "cannot read '" + missing + "'");
  expectFileFails([&] { writeGroomFile(missing, makeDocument()); },
                  "cannot write '" + missing + "'");
  const std::string folder = testing::TempDir();
  expectFileFails([&] { writeGroomFile(folder, largeDocument()); },
                  "cannot write '" + folder + "'");
}

TEST_F(GroomFile, AFailedWriteLeavesTheOldFile) {
  const std::string path = temporaryPath("kept.groom");
  writeGroomFile(path, makeDocument());
  const std::string before = readWholeFile(path);
  GroomDocument broken = makeDocument();
  broken.controls["wet"] = NAN;
  EXPECT_THROW(writeGroomFile(path, broken), GroomFileError);
  EXPECT_EQ(readWholeFile(path), before);
}

}  // namespace
}  // namespace kestrane
