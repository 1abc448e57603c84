// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <CLI/CLI.hpp>
#include <memory>

#include "core/base/file.h"
#include "core/base/json.h"
#include "core/base/text.h"
#include "core/graph/graph_document.h"
#include "core/guides/guide_hierarchy.h"
#include "hosts/cli/commands.h"
#include "hosts/cli/groom_output.h"
#include "hosts/cli/units.h"
#include "hosts/obj/obj_reader.h"

namespace kestrane {

namespace {

struct Options {
  std::string groom, scalp, guides, graph;
  std::string units = "cm";
  std::string up = "Y";
};

ScalpMeshPtr readScalp(const std::string& path, const Console& console) {
  const ObjFile obj = readObj(path);
  ScalpMeshPtr mesh = scalpFromObj(obj);
  if (const std::size_t count = cornersWithoutUv(obj)) {
    console.warning(path + ": " + std::to_string(count) + " of " +
                    std::to_string(obj.corners.size()) + " corners have no UV; theirs is (0, 0)");
  }
  return mesh;
}

/// The curves as one root group, bound to the scalp.
std::shared_ptr<const GuideHierarchy> readGuides(const std::string& path, const ScalpMesh& scalp) {
  auto hierarchy = std::make_shared<GuideHierarchy>();
  const std::uint32_t group = hierarchy->addGroup("guides", 0);
  for (auto& points : curvesFromObj(readObj(path))) hierarchy->addGuide(group, std::move(points));
  hierarchy->updateFromScalp(&scalp);
  return hierarchy;
}

/// The graph's JSON, once it is known to load.
Json readGraph(const std::string& path) {
  const std::string text = readWholeFile(path);
  try {
    graphFromJson(std::string_view(text));
    return parseJson(trimmed(text));
  } catch (const std::exception& error) {
    throw CommandFailure(exitUnreadable, path + ": " + error.what());
  }
}

void makeGroom(const Options& options, const Console& console) {
  GroomDocument document;
  document.units = options.units;
  document.upAxis = options.up;
  document.source = utf8Text(options.scalp);
  try {
    document.scalp.mesh = readScalp(options.scalp, console);
    if (!options.guides.empty()) {
      document.hierarchy = readGuides(options.guides, *document.scalp.mesh);
    }
    document.graph =
        options.graph.empty() ? parseJson(defaultGraphText()) : readGraph(options.graph);
  } catch (const CommandFailure&) {
    throw;
  } catch (const std::bad_alloc&) {
    throw CommandFailure(exitUnreadable, "the input needs more memory than there is");
  } catch (const std::exception& error) {
    throw CommandFailure(exitUnreadable, error.what());
  }
  saveGroom(options.groom, document);
  const std::size_t guides = document.hierarchy ? document.hierarchy->guides().size() : 0;
  console.note(options.groom + ": " + std::to_string(document.scalp.mesh->polygons().size()) +
               " faces, " + std::to_string(guides) + " guides");
}

}  // namespace

void addNewCommand(CLI::App& app, CommandWork& work) {
  const auto options = std::make_shared<Options>();
  CLI::App* const command = app.add_subcommand("new", "Make a groom from a mesh and guide curves");
  command->add_option("OUT.groom", options->groom, "The groom to write")->required();
  command->add_option("--scalp", options->scalp, "The mesh the hair grows on (OBJ)")->required();
  command->add_option("--guides", options->guides, "Guide curves (OBJ lines), roots first");
  command->add_option("--graph", options->graph, "The graph (JSON) instead of the default one");
  command->add_option("--units", options->units, "The linear unit (cm unless told)")
      ->check(CLI::IsMember(unitWords()));
  command->add_option("--up", options->up, "The up axis, Y or Z (Y unless told)")
      ->check(CLI::IsMember({"Y", "Z"}));
  command->callback([options, &work] {
    work = [options](const Console& console) { makeGroom(*options, console); };
  });
}

}  // namespace kestrane
