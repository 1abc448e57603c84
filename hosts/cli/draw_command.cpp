// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <CLI/CLI.hpp>
#include <memory>

#include "core/data/subdivision.h"
#include "core/export/png.h"
#include "hosts/cli/commands.h"
#include "hosts/cli/evaluation_options.h"
#include "hosts/cli/progress.h"
#include "hosts/view/gl.h"
#include "hosts/view/picture.h"

namespace kestrane {

namespace {

struct Options {
  std::string groom, picture;
  std::string size = "1000x1000";
  std::string camera = "front";
  EvaluationOptions evaluation;
};

PictureOptions pictureOptions(const Options& options) {
  PictureOptions picture;
  char rest = 0;
  if (std::sscanf(options.size.c_str(), "%5dx%5d%c", &picture.width, &picture.height, &rest) != 2 ||
      std::min(picture.width, picture.height) < 1 ||
      std::max(picture.width, picture.height) > largestPicture) {
    throw CommandFailure(exitUsage, "--size " + options.size + ": expected WIDTHxHEIGHT, 1 to " +
                                        std::to_string(largestPicture) + " each");
  }
  if (options.camera == "side") picture.camera = CameraSide::side;
  if (options.camera == "back") picture.camera = CameraSide::back;
  if (options.camera == "three-quarter") picture.camera = CameraSide::threeQuarter;
  return picture;
}

bool sameShape(const ScalpMesh& a, const ScalpMesh& b) {
  return a.topologyHash() == b.topologyHash() && a.pointsHash() == b.pointsHash();
}

/// What is to be seen beside the strands: the mesh that they are rooted on, and the others that
/// they are kept out of, as the render draws them.
std::vector<ScalpMeshPtr> drawnSurfaces(const GroomSession& session,
                                        const GroomDocument& document) {
  std::vector<ScalpMeshPtr> surfaces;
  const ScalpMeshPtr rooted = session.surface();
  if (rooted) surfaces.push_back(rooted);
  for (const auto& [name, collider] : document.colliders) {
    ScalpMeshPtr mesh = collider.mesh;
    if (mesh && mesh->triangleCount() > 0 && collider.renderLevels > 0) {
      mesh = makeSubdivisionPlan(*mesh, collider.renderLevels)->refineMesh(*mesh);
    }
    if (mesh && !(rooted && sameShape(*mesh, *rooted))) surfaces.push_back(mesh);
  }
  return surfaces;
}

void draw(const Options& options, const Console& console) {
  PictureOptions picture = pictureOptions(options);
  GroomSession session;
  loadGroom(session, options.groom, options.evaluation.settings);
  EvaluateRequest request = options.evaluation.request();
  request.lean = true;
  const StrandSetPtr strands = growStrands(session, request, console);

  const GroomDocument document = session.document();
  picture.upAxis = document.upAxis == "Z" ? 2 : 1;
  std::vector<std::uint8_t> pixels;
  {
    Progress progress(console, "Drawing", strands->strandCount());
    picture.progress = [&](std::size_t done, std::size_t total) {
      progress.reach(total == 0 ? 0 : done * strands->strandCount() / total);
    };
    pixels = drawPicture(drawnSurfaces(session, document), *strands, picture);
  }
  try {
    writePng(options.picture, picture.width, picture.height, 3, pixels);
  } catch (const std::runtime_error& error) {
    throw CommandFailure(exitUnwritable, error.what());
  }
}

}  // namespace

void addDrawCommand(CLI::App& app, CommandWork& work) {
  const auto options = std::make_shared<Options>();
  CLI::App* const command = app.add_subcommand("draw", "Draw scalp and strands as a picture");
  command->add_option("FILE.groom", options->groom, "The groom")->required();
  command->add_option("OUT.png", options->picture, "The picture to write")->required();
  command->add_option("--size", options->size, "WIDTHxHEIGHT in pixels (1000x1000 unless told)");
  command->add_option("--camera", options->camera, "front, side, back or three-quarter")
      ->check(CLI::IsMember({"front", "side", "back", "three-quarter"}));
  options->evaluation.declare(*command);
  command->callback(
      [options, &work] { work = [options](const Console& console) { draw(*options, console); }; });
}

}  // namespace kestrane
