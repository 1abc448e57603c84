// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <cstdio>
#include <functional>
#include <stdexcept>

#include "core/base/errors.h"
#include "core/base/file.h"
#include "core/base/json.h"
#include "core/guides/correctives.h"
#include "core/guides/flow.h"
#include "core/guides/guide_hierarchy.h"
#include "core/guides/parts.h"
#include "core/session/finite_check.h"
#include "core/session/groom_document.h"
#include "core/session/groom_text.h"
#include "core/session/number_text.h"
#include "core/session/up_axis.h"

namespace kestrane {

namespace {

template <class Row>
std::span<const std::int32_t> flat(const std::vector<Row>& rows) {
  return {reinterpret_cast<const std::int32_t*>(rows.data()),
          rows.size() * (sizeof(Row) / sizeof(std::int32_t))};
}

class GroomWriter {
 public:
  explicit GroomWriter(const GroomDocument& document) : document_(document) {}

  GroomText write() {
    text_.open('{');
    field("format", "kestrane.groom");
    field("version", groomFileVersion);
    writeScene();
    writeGroom();
    writeMaps();
    if (document_.scalp.mesh) {
      text_.key("scalp");
      writeMesh("scalp", document_.scalp, true);
    }
    writeGuides();
    writeReferences();
    writePrototypes();
    if (!document_.colliders.empty()) {
      text_.key("colliders");
      text_.open('{');
      for (const auto& [name, mesh] : document_.colliders) {
        if (mesh.mesh == nullptr) continue;
        text_.key(name);
        writeMesh("colliders", mesh, false);
      }
      text_.close('}');
    }
    text_.close('}');
    return std::move(text_);
  }

 private:
  void field(const char* key, const Json& value) {
    text_.key(key);
    text_.value(key, value);
  }
  void textField(const char* key, const std::string& text) {
    if (!text.empty()) field(key, text);
  }
  template <class Values>
  void numbersField(const char* key, const std::string& name, const Values& values) {
    text_.key(key);
    text_.numbers(name, std::span(values));
  }
  template <class Rows>
  void rowsField(const char* key, const Rows& rows) {
    text_.key(key);
    text_.integers(flat(rows));
  }

  void writeScene() {
    if (document_.framesPerSecond != 0.0) {
      text_.key("framesPerSecond");
      text_.number("framesPerSecond", document_.framesPerSecond);
    }
    field("units", document_.units);
    checkUpAxis(document_.upAxis);
    field("upAxis", document_.upAxis);
    textField("source", document_.source);
  }

  void writeGroom() {
    if (!document_.graph.is_null()) field("graph", document_.graph);
    nested("hierarchy", document_.hierarchy.get(), &GuideHierarchy::toJson);
    nested("parts", document_.parts.get(), partsToJson);
    nested("correctives", document_.correctives.get(), correctivesToJson);
    nested("flow", document_.flow.get(), flowToJson);
    if (document_.controls.empty()) return;
    text_.key("controls");
    text_.open('{');
    for (const auto& [name, value] : document_.controls) {
      text_.key(name);
      text_.number("controls", value);
    }
    text_.close('}');
  }

  /// A document with a writer of its own, if there is one.
  template <class Data, class ToText>
  void nested(const char* key, const Data* data, ToText toText) {
    if (data == nullptr) return;
    checkFinite(*data);
    text_.key(key);
    text_.text(std::invoke(toText, *data));
  }

  void writeMaps() {
    if (document_.maps.empty()) return;
    text_.key("maps");
    text_.open('{');
    for (const auto& [name, map] : document_.maps) {
      text_.key(name);
      text_.open('{');
      field("kind", map.kind);
      field("texture", map.texture);
      if (map.channels == 4) field("channels", 4);
      if (!map.values.empty()) numbersField("values", "maps.values", map.values);
      text_.close('}');
    }
    text_.close('}');
  }

  void writeMesh(const std::string& key, const GroomMesh& groomMesh, bool isScalp) {
    const ScalpMesh& mesh = *groomMesh.mesh;
    text_.open('{');
    numbersField("points", key + ".points", mesh.points());
    rowsField("triangles", mesh.triangles());
    if (!mesh.polygons().empty()) rowsField("polygons", mesh.polygons());
    if (groomMesh.renderLevels != 0) {
      field("subdivision", Json{{"levels", groomMesh.renderLevels}});
    }
    textField("subdivisionFrom", groomMesh.subdivisionFrom);
    if (isScalp) {
      char topology[17];
      std::snprintf(topology, sizeof(topology), "%016llx",
                    static_cast<unsigned long long>(mesh.topologyHash()));
      field("topology", topology);
      if (mesh.hasUvs()) numbersField("uvs", key + ".uvs", mesh.uvs());
      if (!mesh.colorSets().empty()) {
        text_.key("colorSets");
        text_.open('{');
        for (const auto& [name, colors] : mesh.colorSets()) {
          text_.key(name);
          text_.numbers(key + ".colorSets", std::span(colors));
        }
        text_.close('}');
      }
    }
    if (!mesh.restPoints().empty() && mesh.restPoints() != mesh.points()) {
      numbersField("restPoints", key + ".restPoints", mesh.restPoints());
    }
    text_.close('}');
  }

  void writeGuides() {
    if (document_.guides.empty()) return;
    text_.key("guides");
    text_.open('[');
    for (const GroomGuide& guide : document_.guides) {
      text_.element();
      text_.open('{');
      field("id", guide.id);
      text_.key("root");
      text_.open('[');
      text_.integer(guide.root.face);
      for (const float* weight : {&guide.root.u, &guide.root.v}) {
        text_.element();
        text_.number("guides.root", *weight);
      }
      text_.close(']');
      numbersField("points", "guides.points", guide.points);
      if (guide.frameUp) {
        numbersField("frameUp", "guides.frameUp", std::span(&*guide.frameUp, 1));
      }
      text_.close('}');
    }
    text_.close(']');
  }

  void writeReferences() {
    const auto reference = [&](const char* key, const GroomCacheReference& cache) {
      if (cache.empty()) return;
      field(key, Json{{"file", cache.file}, {"object", cache.object}, {"stamp", cache.stamp}});
    };
    reference("scalpCache", document_.scalpCache);
    reference("guideCache", document_.guideCache);
    if (!document_.searchPaths.empty()) field("searchPaths", document_.searchPaths);
    if (document_.followScalp) field("followScalp", true);
    if (!document_.cardBake.empty()) {
      field("cardBake",
            Json{{"prefix", document_.cardBake.prefix}, {"strands", document_.cardBake.strands}});
    }
    if (!document_.simCaches.is_null()) field("simCaches", document_.simCaches);
  }

  void writePrototypes() {
    if (document_.prototypes.empty()) return;
    text_.key("prototypes");
    text_.open('{');
    for (const auto& [name, prototype] : document_.prototypes) {
      text_.key(name);
      text_.open('{');
      numbersField("points", "prototypes.points", prototype.points);
      rowsField("triangles", prototype.triangles);
      numbersField("normals", "prototypes.normals", prototype.normals);
      numbersField("uvs", "prototypes.uvs", prototype.uvs);
      text_.close('}');
    }
    text_.close('}');
  }

  const GroomDocument& document_;
  GroomText text_;
};

}  // namespace

std::string groomFileText(const GroomDocument& document) {
  const GroomText text = GroomWriter(document).write();
  std::string result;
  result.reserve(text.expectedSize());
  text.stream([&](std::string_view part) { result += part; });
  return result;
}

void writeGroomFile(const std::string& path, const GroomDocument& document) {
  const GroomText text = GroomWriter(document).write();
  try {
    OutputFile file(path);
    text.stream([&](std::string_view part) { file.write(part); });
    file.commit();
  } catch (const std::runtime_error& error) {
    throw GroomFileError(error.what());
  }
}

}  // namespace kestrane
