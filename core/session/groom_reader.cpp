// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <limits>
#include <stdexcept>

#include "core/base/errors.h"
#include "core/base/file.h"
#include "core/base/json.h"
#include "core/base/text.h"
#include "core/guides/correctives.h"
#include "core/guides/flow.h"
#include "core/guides/guide_hierarchy.h"
#include "core/guides/parts.h"
#include "core/session/groom_document.h"
#include "core/session/groom_values.h"
#include "core/session/up_axis.h"

namespace kestrane {

namespace {

/// Runs one step of building a mesh; what the mesh says against it becomes the file's complaint.
template <class Step>
void inMesh(const std::string& key, Step step) {
  try {
    step();
  } catch (const std::invalid_argument& error) {
    throw GroomFileError("groom file: bad " + key + ": " + error.what());
  }
}

class GroomReader {
 public:
  GroomReader(const Json& root, const GroomCuts* cuts) : root_(root), values_(cuts) {}

  GroomDocument read() {
    const Json* format = root_.is_object() ? find(root_, "format") : nullptr;
    if (format == nullptr || *format != "kestrane.groom") {
      throw GroomFileError("not a Kestrane groom file");
    }
    checkVersion(root_, "groom file", groomFileVersion);
    readScene();
    readGroom();
    readMaps();
    if (const Json* json = find(root_, "scalp")) document_.scalp = mesh("scalp", *json, true);
    readGuides();
    readReferences();
    readPrototypes();
    if (const Json* json = find(root_, "colliders")) {
      for (const auto& [name, value] : values_.object("colliders", *json).items()) {
        document_.colliders[name] = mesh("colliders", value, false);
      }
    }
    values_.checkUnread();
    return std::move(document_);
  }

 private:
  /// The value of a key; null is as good as absent.
  static const Json* find(const Json& object, const char* key) {
    const auto found = object.find(key);
    return found == object.end() || found->is_null() ? nullptr : &*found;
  }

  void readString(const Json& object, const char* key, const std::string& name, std::string& out) {
    if (const Json* json = find(object, key)) out = values_.string(name, *json);
  }

  void readScene() {
    if (const Json* json = find(root_, "framesPerSecond")) {
      document_.framesPerSecond = values_.number("framesPerSecond", *json);
      if (!(document_.framesPerSecond >= 0.0)) {
        throw GroomFileError("groom file: 'framesPerSecond' must not be below 0");
      }
    }
    readString(root_, "units", "units", document_.units);
    if (const Json* json = find(root_, "upAxis")) {
      document_.upAxis = json->is_string() ? json->get<std::string>() : json->dump();
      checkUpAxis(document_.upAxis);
    }
    readString(root_, "source", "source", document_.source);
  }

  void readGroom() {
    if (const Json* json = find(root_, "graph")) document_.graph = graph(*json);
    readDocument("hierarchy", "invalid hierarchy JSON: ", document_.hierarchy,
                 GuideHierarchy::fromJson);
    readDocument("parts", "", document_.parts, partsFromJson);
    readDocument("correctives", "", document_.correctives, correctivesFromJson);
    readDocument("flow", "", document_.flow, flowFromJson);
    if (const Json* json = find(root_, "controls")) {
      for (const auto& [name, value] : values_.object("controls", *json).items()) {
        document_.controls[name] = values_.number("controls", value);
      }
    }
  }

  /// A document with a reader of its own, whose complaint gets the words in front.
  template <class Data, class Parse>
  void readDocument(const char* key, const char* words, std::shared_ptr<const Data>& out,
                    Parse parse) {
    const Json* json = find(root_, key);
    if (json == nullptr) return;
    std::string room;
    const std::string_view text = values_.document(*json, room);
    if (trimmed(text).empty()) return;
    try {
      out = std::make_shared<const Data>(parse(text));
    } catch (const std::exception& error) {
      throw GroomFileError(std::string("groom file: ") + words + jsonMessage(error));
    }
  }

  /// An object, or a text that holds one; null for a blank text.
  Json graph(const Json& json) {
    const auto fail = [] { throw GroomFileError("groom file: invalid graph JSON"); };
    if (json.is_object()) return values_.whole(json);
    if (!json.is_string()) fail();
    const std::string text = json.get<std::string>();
    if (trimmed(text).empty()) return nullptr;
    Json parsed;
    try {
      parsed = parseJson(text);
    } catch (const std::exception&) {
      fail();
    }
    if (!parsed.is_object()) fail();
    return parsed;
  }

  void readMaps() {
    const Json* json = find(root_, "maps");
    if (json == nullptr) return;
    for (const auto& [name, value] : values_.object("maps", *json).items()) {
      GroomMap& map = document_.maps[name];
      values_.object("maps." + name, value);
      readString(value, "kind", "maps.kind", map.kind);
      if (map.kind != "vertices" && map.kind != "texture") {
        throw GroomFileError("groom file: map '" + name + "' has unknown kind '" + map.kind +
                             "' (vertices or texture)");
      }
      readString(value, "texture", "maps.texture", map.texture);
      if (const Json* channels = find(value, "channels")) map.channels = *channels == 4 ? 4 : 1;
      if (const Json* numbers = find(value, "values")) {
        if (map.channels == 4) {
          const std::vector<Vec4f> colors = values_.tuples<Vec4f>("maps.values", *numbers);
          const float* first = colors.empty() ? nullptr : &colors.front().x;
          map.values.assign(first, first + colors.size() * 4);
        } else {
          map.values = values_.tuples<float>("maps.values", *numbers);
        }
      }
    }
  }

  GroomMesh mesh(const std::string& key, const Json& json, bool isScalp) {
    values_.object(key, json);
    const auto valueOf = [&](const char* name) -> const Json& {
      static const Json absent;
      const Json* value = find(json, name);
      return value ? *value : absent;
    };
    auto points = values_.tuples<Vec3f>(key + ".points", valueOf("points"));
    auto triangles = values_.rows<ScalpMesh::Triangle>(valueOf("triangles"),
                                                       "groom file: bad " + key + ".triangles");
    ScalpMesh mesh;
    inMesh(key + ".triangles", [&] { mesh = ScalpMesh(std::move(points), std::move(triangles)); });
    if (const Json* value = find(json, "polygons")) {
      auto counts = values_.rows<std::int32_t>(*value, "groom file: bad " + key +
                                                           ".polygons: not an array of "
                                                           "whole numbers");
      inMesh(key + ".polygons", [&] { mesh.setPolygons(std::move(counts)); });
    }
    GroomMesh result;
    if (const Json* value = find(json, "subdivision")) {
      if (const Json* levels = find(values_.object(key + ".subdivision", *value), "levels")) {
        result.renderLevels =
            static_cast<int>(values_.integer(key + ".subdivision", *levels, 0, 3));
      }
    }
    readString(json, "subdivisionFrom", key + ".subdivisionFrom", result.subdivisionFrom);
    if (isScalp) {
      // Of use to a reader that has a mesh of its own; ours hashes what it has read.
      std::string topology;
      readString(json, "topology", key + ".topology", topology);
      if (const Json* value = find(json, "uvs")) {
        auto uvs = values_.tuples<Vec2f>(key + ".uvs", *value);
        inMesh(key + ".uvs", [&] { mesh.setUvs(std::move(uvs)); });
      }
      if (const Json* sets = find(json, "colorSets")) {
        for (const auto& [name, value] : values_.object(key + ".colorSets", *sets).items()) {
          auto colors = values_.tuples<Vec4f>(key + ".colorSets", value);
          inMesh(key + ".colorSets", [&] { mesh.setColorSet(name, std::move(colors)); });
        }
      }
    }
    if (const Json* value = find(json, "restPoints")) {
      auto rest = values_.tuples<Vec3f>(key + ".restPoints", *value);
      inMesh(key + ".restPoints", [&] { mesh.setRestPoints(std::move(rest)); });
    }
    result.mesh = std::make_shared<const ScalpMesh>(std::move(mesh));
    return result;
  }

  void readGuides() {
    const Json* json = find(root_, "guides");
    if (json == nullptr) return;
    for (const Json& value : values_.array("guides", *json)) {
      GroomGuide guide;
      values_.object("guides", value);
      guide.id = guideId(value);
      if (const Json* root = find(value, "root")) guide.root = surfacePoint(*root);
      const Json* points = find(value, "points");
      guide.points = values_.tuples<Vec3f>("guides.points", points ? *points : Json());
      if (const Json* up = find(value, "frameUp")) {
        const auto vectors = values_.tuples<Vec3f>("guides.frameUp", *up);
        if (vectors.size() != 1) {
          throw GroomFileError("groom file: 'guides.frameUp' must be one 3-tuple");
        }
        guide.frameUp = vectors.front();
      }
      document_.guides.push_back(std::move(guide));
    }
  }

  static std::uint64_t guideId(const Json& guide) {
    const Json* id = find(guide, "id");
    if (id == nullptr || !id->is_number_integer() ||
        (!id->is_number_unsigned() && id->get<std::int64_t>() < 0)) {
      throw GroomFileError("groom file: 'guides.id' must be a whole number from 0");
    }
    return id->get<std::uint64_t>();
  }

  StrandRoot surfacePoint(const Json& json) {
    if (!json.is_array() || json.size() != 3) {
      throw GroomFileError("groom file: 'guides.root' must be face, u and v");
    }
    constexpr std::int64_t last = std::numeric_limits<std::int32_t>::max();
    const auto face = values_.integer("guides.root", json[0], -1, last);
    const auto weights = values_.tuples<Vec2f>("guides.root", Json::array({json[1], json[2]}));
    return {static_cast<std::int32_t>(face), weights.front().x, weights.front().y};
  }

  void readReferences() {
    const auto reference = [&](const char* key, GroomCacheReference& out) {
      const Json* json = find(root_, key);
      if (json == nullptr) return;
      const std::string name = key;
      values_.object(name, *json);
      readString(*json, "file", name + ".file", out.file);
      readString(*json, "object", name + ".object", out.object);
      readString(*json, "stamp", name + ".stamp", out.stamp);
    };
    reference("scalpCache", document_.scalpCache);
    reference("guideCache", document_.guideCache);
    if (const Json* json = find(root_, "searchPaths")) {
      for (const Json& path : values_.array("searchPaths", *json)) {
        document_.searchPaths.push_back(values_.string("searchPaths", path));
      }
    }
    if (const Json* json = find(root_, "followScalp")) {
      document_.followScalp = values_.boolean("followScalp", *json);
    }
    if (const Json* json = find(root_, "cardBake")) {
      values_.object("cardBake", *json);
      readString(*json, "prefix", "cardBake.prefix", document_.cardBake.prefix);
      if (const Json* strands = find(*json, "strands")) {
        document_.cardBake.strands = values_.integer("cardBake.strands", *strands, 0,
                                                     std::numeric_limits<std::int64_t>::max());
      }
    }
    if (const Json* json = find(root_, "simCaches")) document_.simCaches = simCaches(*json);
  }

  Json simCaches(const Json& json) {
    Json bakes = values_.whole(json);
    if (json.is_string() && bakes.is_string()) {
      const std::string text(trimmed(json.get<std::string>()));
      if (text.empty()) return nullptr;
      try {
        bakes = parseJson(text);
      } catch (const std::exception& error) {
        throw GroomFileError(std::string("simCaches: ") + error.what());
      }
    }
    if (!bakes.is_object()) {
      throw GroomFileError("simCaches: not an object of Simulate nodes' bakes");
    }
    return bakes;
  }

  void readPrototypes() {
    const Json* json = find(root_, "prototypes");
    if (json == nullptr) return;
    for (const auto& [name, value] : values_.object("prototypes", *json).items()) {
      values_.object("prototypes." + name, value);
      const auto valueOf = [&, &entry = value](const char* key) -> const Json& {
        static const Json none = Json::array();
        const Json* found = find(entry, key);
        return found ? *found : none;
      };
      GroomPrototype& prototype = document_.prototypes[name];
      prototype.points = values_.tuples<Vec3f>("prototypes.points", valueOf("points"));
      prototype.triangles = values_.rows<ScalpMesh::Triangle>(
          valueOf("triangles"), "groom file: bad prototypes.triangles");
      prototype.normals = values_.tuples<Vec3f>("prototypes.normals", valueOf("normals"));
      prototype.uvs = values_.tuples<Vec2f>("prototypes.uvs", valueOf("uvs"));
      for (const ScalpMesh::Triangle& triangle : prototype.triangles) {
        for (const std::int32_t corner : triangle) {
          if (corner < 0 || static_cast<std::size_t>(corner) >= prototype.points.size()) {
            throw GroomFileError(
                "groom file: a prototype's triangle names a point it does not have");
          }
        }
      }
    }
  }

  const Json& root_;
  GroomValues values_;
  GroomDocument document_;
};

}  // namespace

GroomDocument parseGroomFile(std::string_view text) {
  if (const auto cuts = cutGroomText(text)) {
    try {
      const Json rest = parseJson(cuts->rest, deepestHolder);
      return GroomReader(rest, &*cuts).read();
    } catch (const std::exception&) {
      // What is wrong is said by the plain way, which sees the text as it is.
    }
  }
  Json root;
  try {
    root = parseJson(text, deepestHolder);
  } catch (const std::exception& error) {
    throw GroomFileError(std::string("groom file: invalid JSON: ") + error.what());
  }
  return GroomReader(root, nullptr).read();
}

GroomDocument readGroomFile(const std::string& path) {
  std::string text;
  try {
    text = readWholeFile(path);
  } catch (const std::runtime_error& error) {
    throw GroomFileError(error.what());
  }
  return parseGroomFile(text);
}

}  // namespace kestrane
