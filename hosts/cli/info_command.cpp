// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <CLI/CLI.hpp>
#include <memory>

#include "core/base/json.h"
#include "core/base/text.h"
#include "core/graph/graph_document.h"
#include "core/guides/guide_hierarchy.h"
#include "core/values/search_paths.h"
#include "hosts/cli/commands.h"
#include "hosts/cli/evaluation_options.h"
#include "hosts/cli/json_text.h"

namespace kestrane {

namespace {

struct Options {
  std::string groom;
  bool json = false;
};

Json vectorJson(Vec3f v) {
  return Json::array({v.x, v.y, v.z});
}

Json scalpJson(const ScalpMesh& mesh) {
  Vec3f low{FLT_MAX, FLT_MAX, FLT_MAX}, high = -low;
  for (const Vec3f& point : mesh.points()) {
    low = min(low, point);
    high = max(high, point);
  }
  Json json;
  json["points"] = mesh.points().size();
  json["polygons"] = mesh.polygons().size();
  json["triangles"] = mesh.triangleCount();
  json["area"] = mesh.area();
  json["size"] = mesh.points().empty() ? vectorJson({}) : vectorJson(high - low);
  json["uvs"] = mesh.hasUvs();
  json["colorSets"] = mesh.colorSetNames();
  json["restPose"] = !mesh.restPoints().empty();
  return json;
}

Json guidesJson(const GroomDocument& document) {
  Json json = Json::object();
  std::size_t count = document.guides.size();
  Json groups = Json::object();
  if (document.hierarchy) {
    count += document.hierarchy->guides().size();
    for (const GuideGroup& group : document.hierarchy->groups()) groups[group.name] = 0;
    for (const GuideRecord& guide : document.hierarchy->guides()) {
      const GuideGroup* const group = document.hierarchy->findGroup(guide.group);
      if (group != nullptr) groups[group->name] = groups[group->name].get<std::size_t>() + 1;
    }
  }
  json["count"] = count;
  json["groups"] = groups;
  return json;
}

void expectImage(const SearchPathResolver& resolve, const std::string& name,
                 const std::string& place, Json& missing) {
  if (!namesFile(resolve(name))) missing.push_back(place + "the file '" + name + "' is not found");
}

/// What the groom's maps read that is not there.
void findMissingImages(const GroomDocument& document, const SearchPathResolver& resolve,
                       Json& missing) {
  for (const auto& [name, map] : document.maps) {
    if (map.kind != "texture") continue;
    if (map.texture.empty()) {
      missing.push_back("map '" + name + "': it has no image file yet");
    } else {
      expectImage(resolve, map.texture, "map '" + name + "': ", missing);
    }
  }
}

/// What a graph's parameters read that is not there.
void findMissingMaps(const GroomDocument& document, const SearchPathResolver& resolve,
                     const GraphDocument& graph, Json& missing) {
  for (const auto& [id, node] : graph.graph.nodes()) {
    for (const auto& [name, value] : node.op->parameters.values()) {
      const auto* map = std::get_if<MapRef>(&value);
      if (map == nullptr) continue;
      const std::string place = "node '" + node.name + "', parameter '" + name + "': ";
      if (map->source == MapSource::colorSet) {
        const ScalpMeshPtr mesh = document.scalp.mesh;
        if (!mesh || !mesh->colorSets().contains(map->text)) {
          missing.push_back(place + "the scalp has no color set '" + map->text + "'");
        }
      } else if (map->source == MapSource::texture) {
        expectImage(resolve, map->text, place, missing);
      }
    }
  }
}

Json infoOf(const Options& options) {
  const GroomDocument document = readGroom(options.groom);
  Json missing = Json::array();
  Json json;
  json["file"] = options.groom;
  json["units"] = document.units;
  json["upAxis"] = document.upAxis;
  json["framesPerSecond"] = document.framesPerSecond;
  json["source"] = document.source;
  json["scalp"] = nullptr;
  if (document.scalp.mesh) {
    json["scalp"] = scalpJson(*document.scalp.mesh);
    if (document.scalp.mesh->triangleCount() == 0) missing.push_back("the scalp has no faces");
    if (!document.scalp.mesh->hasUvs()) missing.push_back("the scalp has no UVs");
  } else {
    missing.push_back("the groom has no scalp");
  }
  json["guides"] = guidesJson(document);
  if (json["guides"]["count"] == 0) missing.push_back("the groom has no guides");
  const SearchPathResolver resolve = searchPathResolver(searchFolders(document, options.groom));
  findMissingImages(document, resolve, missing);
  json["nodes"] = Json::array();
  json["wires"] = 0;
  if (document.graph.is_null() || document.graph.empty()) {
    missing.push_back("the groom has no graph");
  } else {
    try {
      const GraphDocument graph = graphFromJson(document.graph);
      std::size_t wires = 0;
      for (const auto& [id, node] : graph.graph.nodes()) {
        json["nodes"].push_back(Json{{"name", node.name}, {"type", node.op->type()}});
        for (const std::uint32_t source : node.sources) wires += source != 0 ? 1 : 0;
      }
      json["wires"] = wires;
      findMissingMaps(document, resolve, graph, missing);
    } catch (const std::runtime_error& error) {
      missing.push_back(std::string("the graph does not load: ") + error.what());
    }
  }
  json["maps"] = Json::array();
  for (const auto& [name, map] : document.maps) json["maps"].push_back(name);
  json["colliders"] = Json::array();
  for (const auto& [name, collider] : document.colliders) json["colliders"].push_back(name);
  json["missing"] = missing;
  return json;
}

std::string numberText(const Json& number) {
  std::string text;
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%.6g", number.get<double>());
  return buffer;
}

std::string infoText(const Json& info) {
  const std::string units = info["units"].get<std::string>();
  std::string text = info["file"].get<std::string>() + "\nunits    " + units + ", " +
                     info["upAxis"].get<std::string>() + " up\n";
  if (const Json& scalp = info["scalp"]; scalp.is_object()) {
    text += "scalp    " + scalp["polygons"].dump() + " polygons, " + scalp["triangles"].dump() +
            " triangles, " + scalp["points"].dump() + " points; " + numberText(scalp["size"][0]) +
            " x " + numberText(scalp["size"][1]) + " x " + numberText(scalp["size"][2]) + " " +
            units + ", area " + numberText(scalp["area"]) + " " + units + "^2" +
            (scalp["uvs"].get<bool>() ? ", with UVs" : "") + "\n";
    for (const Json& set : scalp["colorSets"]) {
      text += "         color set '" + set.get<std::string>() + "'\n";
    }
  }
  text += "guides   " + info["guides"]["count"].dump() + "\n";
  for (const auto& [group, count] : info["guides"]["groups"].items()) {
    text += "         " + count.dump() + " in group '" + group + "'\n";
  }
  text += "graph    " + std::to_string(info["nodes"].size()) + " nodes, " + info["wires"].dump() +
          " wires\n";
  for (const Json& node : info["nodes"]) {
    text += "         " + node["name"].get<std::string>() + " (" + node["type"].get<std::string>() +
            ")\n";
  }
  for (const Json& map : info["maps"]) text += "map      " + map.get<std::string>() + "\n";
  for (const Json& name : info["colliders"]) text += "collider " + name.get<std::string>() + "\n";
  for (const Json& what : info["missing"]) text += "missing  " + what.get<std::string>() + "\n";
  return text;
}

}  // namespace

void addInfoCommand(CLI::App& app, CommandWork& work) {
  const auto options = std::make_shared<Options>();
  CLI::App* const command = app.add_subcommand("info", "Say what is in a groom, and what it lacks");
  command->add_option("FILE.groom", options->groom, "The groom")->required();
  command->add_flag("--json", options->json, "As JSON");
  command->callback([options, &work] {
    work = [options](const Console& console) {
      const Json info = infoOf(*options);
      console.result(options->json ? jsonText(info) : infoText(info));
    };
  });
}

}  // namespace kestrane
