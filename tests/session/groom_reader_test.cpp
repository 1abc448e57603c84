// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <algorithm>

#include "core/base/hash.h"
#include "core/base/json.h"
#include "tests/session/groom_fixtures.h"

namespace kestrane {
namespace {

using test::makeDocument;

/// The complaint about a text; empty where it is read.
std::string complaint(const std::string& text) {
  try {
    (void)parseGroomFile(text);
    return {};
  } catch (const GroomFileError& error) {
    return error.what();
  } catch (const SchemaError& error) {
    return std::string("schema: ") + error.what();
  }
}

std::string groom(const std::string& members) {
  return R"({"format":"kestrane.groom",)" + members + "}";
}

/// An array of so many numbers, long enough to be cut out before the parser sees it.
std::string numbers(int count, const std::string& number = "0.25") {
  std::string text = "[";
  for (int i = 0; i < count; ++i) text += (i ? "," : "") + number;
  return text + "]";
}

TEST(GroomReader, Complaints) {
  const std::string mesh = R"("points":[0,0,0,1,0,0,0,1,0],"triangles":[0,1,2])";
  const struct {
    std::string text, message;
  } cases[] = {
      {"[1]", "not a Kestrane groom file"},
      {"{}", "not a Kestrane groom file"},
      {R"({"format":"kestrane.graph"})", "not a Kestrane groom file"},
      {R"({"format":["kestrane.groom"]})", "not a Kestrane groom file"},
      {groom(R"("version":2)"),
       "schema: groom file version 2 is newer than this Kestrane supports (1); update Kestrane to "
       "open it"},
      {groom(R"("version":0)"), "schema: groom file version 0 is not valid"},
      {groom(R"("version":1.5)"), "schema: groom file version 1.5 is not a whole number"},
      {groom(R"("upAxis":"X")"), "groom file: upAxis is \"Y\" or \"Z\", not \"X\""},
      {groom(R"("framesPerSecond":"24")"), "groom file: 'framesPerSecond' must hold numbers"},
      {groom(R"("framesPerSecond":-1)"), "groom file: 'framesPerSecond' must not be below 0"},
      {groom(R"("units":5)"), "groom file: 'units' must be a text"},
      {groom(R"("units":)" + numbers(60)), "groom file: 'units' must be a text"},
      {groom(R"("searchPaths":["a",)" + numbers(60) + "]"),
       "groom file: 'searchPaths' must be a text"},
      {groom(R"("graph":[1])"), "groom file: invalid graph JSON"},
      {groom(R"("graph":"{")"), "groom file: invalid graph JSON"},
      {groom(R"("graph":"[]")"), "groom file: invalid graph JSON"},
      {groom(R"("parts":{"parts":[],"version":9})"),
       "groom file: part data version is newer than this Kestrane supports"},
      {groom(R"("flow":{"pins":[{}],"sinks":[]})"), "groom file: key 'face' not found"},
      {groom(R"("controls":[])"), "groom file: 'controls' must be an object"},
      {groom(R"("controls":{"wet":"1"})"), "groom file: 'controls' must hold numbers"},
      {groom(R"("maps":{"a":{"kind":"image"}})"),
       "groom file: map 'a' has unknown kind 'image' (vertices or texture)"},
      {groom(R"("maps":{"a":{"channels":4,"values":[1,2,3]}})"),
       "groom file: 'maps.values' must be an array of 4-tuples"},
      {groom(R"("scalp":{"points":[1,2],"triangles":[]})"),
       "groom file: 'scalp.points' must be an array of 3-tuples"},
      {groom(R"("scalp":{"triangles":[]})"),
       "groom file: 'scalp.points' must be an array of 3-tuples"},
      {groom(R"("scalp":{"points":["a",0,0],"triangles":[]})"),
       "groom file: 'scalp.points' must hold numbers"},
      {groom(R"("scalp":{"points":[1e39,0,0],"triangles":[]})"),
       "groom file: 'scalp.points' must hold numbers"},
      {groom(R"("scalp":{"points":)" + numbers(40) + R"(,"triangles":[]})"),
       "groom file: 'scalp.points' must be an array of 3-tuples"},
      {groom(R"("scalp":{"points":)" + numbers(42, "\"x\"") + R"(,"triangles":[]})"),
       "groom file: 'scalp.points' must hold numbers"},
      {groom(R"("scalp":{"points":[],"triangles":[0,0]})"), "groom file: bad scalp.triangles"},
      {groom(R"("scalp":{"points":[],"triangles":[0,0,0.5]})"), "groom file: bad scalp.triangles"},
      {groom(R"("scalp":{"points":[0,0,0],"triangles":[0,1,0]})"),
       "groom file: bad scalp.triangles: ScalpMesh: triangle index out of range"},
      {groom(R"("scalp":{)" + mesh + R"(,"polygons":[2]})"),
       "groom file: bad scalp.polygons: ScalpMesh: the polygons' triangles (2) are not the mesh's "
       "(1)"},
      {groom(R"("scalp":{)" + mesh + R"(,"polygons":[2,-1]})"),
       "groom file: bad scalp.polygons: ScalpMesh: a polygon with a negative triangle count"},
      {groom(R"("scalp":{)" + mesh + R"(,"uvs":[0,1]})"),
       "groom file: bad scalp.uvs: ScalpMesh: expected one UV per triangle corner"},
      {groom(R"("scalp":{)" + mesh + R"(,"colorSets":{"a":[0,1,0,1]}})"),
       "groom file: bad scalp.colorSets: ScalpMesh: expected one color per triangle corner"},
      {groom(R"("scalp":{)" + mesh + R"(,"restPoints":[0,1,0]})"),
       "groom file: bad scalp.restPoints: ScalpMesh: rest points must match the mesh's point "
       "count"},
      {groom(R"("colliders":{"body":{"points":[0,0,0],"triangles":[0,0,7]}})"),
       "groom file: bad colliders.triangles: ScalpMesh: triangle index out of range"},
      {groom(R"("guides":[{"id":1,"points":[0,0,0,1,1,1,2]}])"),
       "groom file: 'guides.points' must be an array of 3-tuples"},
      {groom(R"("guides":[{"points":[]}])"),
       "groom file: 'guides.id' must be a whole number from "
       "0"},
      {groom(R"("guides":[{"id":1,"root":[0.5,0,0],"points":[]}])"),
       "groom file: 'guides.root' must be a whole number in range"},
      {groom(R"("guides":{})"), "groom file: 'guides' must be an array"},
      {groom(R"("followScalp":1)"), "groom file: 'followScalp' must be true or false"},
      {groom(R"("prototypes":{"a":{"points":[0,0,0],"triangles":[0,0]}})"),
       "groom file: bad prototypes.triangles"},
      {groom(R"("prototypes":{"a":{"points":[0,0,0],"triangles":[0,0,1]}})"),
       "groom file: a prototype's triangle names a point it does not have"},
      {groom(R"("prototypes":{"a":{"points":[],"normals":[0]}})"),
       "groom file: 'prototypes.normals' must be an array of 3-tuples"},
      {groom(R"("prototypes":{"a":{"points":[],"uvs":[0]}})"),
       "groom file: 'prototypes.uvs' must be an array of 2-tuples"},
      {groom(R"("simCaches":[])"), "simCaches: not an object of Simulate nodes' bakes"},
      {groom(R"("simCaches":" 5")"), "simCaches: not an object of Simulate nodes' bakes"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(complaint(c.text), c.message) << c.text;
    // The same with something to cut out of the text, so that the fast reader meets it first.
    if (c.text.find("kestrane.groom\",") == std::string::npos) continue;
    std::string longer = c.text;
    longer.insert(longer.size() - 1, R"(,"later":)" + numbers(60));
    EXPECT_EQ(complaint(longer), c.message) << longer;
  }
}

TEST(GroomReader, AGraphAsDeepAsGraphsMayBeComesBack) {
  const std::string deep = R"({"backdrops":)" + std::string(deepestJson - 1, '[') +
                           std::string(deepestJson - 1, ']') + "}";
  GroomDocument document;
  document.graph = parseJson(deep);
  EXPECT_EQ(parseGroomFile(groomFileText(document)).graph.dump(), deep);
}

TEST(GroomReader, ComplaintsThatTheParserWords) {
  for (const std::string& text :
       {std::string(), std::string("{"), std::string("{\"format\":\"kestrane.groom\"} x"),
        groom("\"x\":[1,]"), groom("\"x\":" + numbers(50) + "}"), groom(numbers(50) + ":1"),
        groom("\"x\":[" + numbers(50).substr(1, 80) + ",01]"),
        groom("\"x\":" + numbers(50).substr(1))}) {
    EXPECT_TRUE(complaint(text).starts_with("groom file: invalid JSON: ")) << text;
  }
  EXPECT_EQ(complaint(groom("\"x\":" + std::string(300, '[') + std::string(300, ']'))),
            "groom file: invalid JSON: the JSON is nested deeper than 264 levels");
  EXPECT_TRUE(complaint(groom(R"("hierarchy":5)"))
                  .starts_with("groom file: invalid hierarchy "
                               "JSON: "));
  EXPECT_TRUE(complaint(groom(R"("hierarchy":{"guides":[{}]})"))
                  .starts_with("groom file: invalid hierarchy JSON: "));
  // Two keys of one name: the last one counts, in whichever way the text is read.
  const GroomDocument document = parseGroomFile(
      groom(R"("scalp":{"points":)" + numbers(60) + R"(,"triangles":[],"points":[0,0,1]})"));
  EXPECT_EQ(document.scalp.mesh->points().size(), 1u);
}

/// Cut short at any byte, a groom is refused; nothing else happens.
TEST(GroomReader, TruncatedFiles) {
  const std::string text = groomFileText(makeDocument());
  for (std::size_t size = 0; size < text.size(); size += 1 + size / 97) {
    EXPECT_FALSE(complaint(text.substr(0, size)).empty()) << size;
  }
  EXPECT_FALSE(complaint(text.substr(0, text.size() - 1)).empty());
}

/// Whether a text is read, and not refused by a sentence. What the fast way reads is what the plain
/// way reads, which a text with this mark takes.
bool isRead(std::string text) {
  GroomDocument document;
  try {
    document = parseGroomFile(text);
  } catch (const GroomFileError&) {
    return false;
  } catch (const SchemaError&) {
    return false;
  }
  text.insert(text.rfind('}'), R"(,"mark":"\ufdd0")");
  EXPECT_EQ(groomFileText(parseGroomFile(text)), groomFileText(document)) << text;
  return true;
}

/// Every value in turn becomes something else: it is read or refused by a sentence, never worse.
void mutate(Json& root, Json& value, const std::vector<Json>& others, int& refused) {
  const Json kept = value;
  for (const Json& other : others) {
    value = other;
    const std::string text = root.dump(-1, ' ', false, Json::error_handler_t::replace);
    refused += isRead(text) ? 0 : 1;
  }
  value = kept;
  if (!value.is_structured()) return;
  std::size_t seen = 0;
  for (Json& element : value) {
    if (value.is_array() && seen++ >= 2) break;  // elements further on are alike
    mutate(root, element, others, refused);
  }
}

TEST(GroomReader, MistypedFiles) {
  Json root = Json::parse(groomFileText(makeDocument()));
  root.erase("graph");  // any object is read, and the session judges it
  auto& guides = root["hierarchy"]["guides"];
  guides.erase(guides.begin() + 1, guides.end());
  const std::vector<Json> others = {nullptr,
                                    true,
                                    -1,
                                    1e300,
                                    UINT64_MAX,
                                    2147483647,
                                    "",
                                    "@kestrane.floats:0@",
                                    Json::array(),
                                    Json::object(),
                                    Json::parse("[[[0]]]"),
                                    std::vector<double>(70, -7.5)};
  int refused = 0;
  mutate(root, root, others, refused);
  EXPECT_GT(refused, 400);
}

/// Bytes changed at random.
TEST(GroomReader, GarbledFiles) {
  const std::string text = groomFileText(makeDocument());
  int refused = 0;
  for (std::uint64_t round = 0; round < 300; ++round) {
    std::string garbled = text;
    for (std::uint64_t i = 0; i <= round % 4; ++i) {
      const std::uint64_t h = hashCombine(round, i);
      garbled[h % garbled.size()] = "0[]{},:\"\\-.e9\xEFn\n"[(h >> 40) % 16];
    }
    refused += complaint(garbled).empty() ? 0 : 1;
  }
  EXPECT_GT(refused, 200);
}

}  // namespace
}  // namespace kestrane
