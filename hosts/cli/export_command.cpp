// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <memory>

#include "core/base/parallel.h"
#include "core/export/usd_writer.h"
#include "core/ops/strand_color.h"
#include "hosts/cli/commands.h"
#include "hosts/cli/evaluation_options.h"
#include "hosts/cli/frame_range.h"
#include "hosts/cli/progress.h"
#include "hosts/cli/units.h"

namespace kestrane {

namespace {

struct Options {
  std::string groom, layer;
  std::string frames;
  EvaluationOptions evaluation;
};

FrameRange framesOf(const Options& options) {
  if (options.frames.empty()) return {options.evaluation.frame, 1.0, 1};
  if (const auto range = parseFrameRange(options.frames)) return *range;
  throw CommandFailure(exitUsage, "--frames " + options.frames +
                                      ": expected FIRST:LAST or FIRST:LAST:STEP, with a step "
                                      "above 0 and at most a million frames");
}

/// What a layer says of each strand's root: where it is on the surface's UVs, and its colour.
struct RootValues {
  std::vector<Vec2f> uvs;
  std::vector<Vec3f> colors;

  RootValues(const StrandSet& strands, const ScalpMesh* surface)
      : uvs(surface != nullptr ? strands.strandCount() : 0), colors(strands.strandCount()) {
    const StrandColorReader reader(strands);
    parallelRange(0, strands.strandCount(), 1024, [&](std::size_t begin, std::size_t end) {
      for (std::size_t i = begin; i < end; ++i) {
        colors[i] = reader.strandAt(i);
        if (surface != nullptr) uvs[i] = surface->uvAt(strands.roots()[i]);
      }
    });
  }
};

class Exporter {
 public:
  Exporter(const Options& options, const Console& console)
      : options_(options), console_(console), frames_(framesOf(options)) {
    loadGroom(session_, options.groom, options.evaluation.settings);
  }

  void run() {
    const GroomDocument document = session_.document();
    const auto metres = metersPerUnit(document.units);
    if (!metres) {
      console_.warning("the unit '" + document.units +
                       "' is not known; the layer says centimetres");
    }
    const double rate = document.framesPerSecond > 0.0 ? document.framesPerSecond : 24.0;
    UsdWriter writer(options_.layer, std::filesystem::path(options_.groom).stem().string(), rate,
                     metres.value_or(0.01), document.upAxis);
    writer.options.note = document.source;
    try {
      writeFrames(writer);
      writer.close();
    } catch (const UsdError& error) {
      throw CommandFailure(exitUnwritable, error.what());
    } catch (...) {
      writer.abandon();
      throw;
    }
    if (const std::size_t count = writer.skippedStrands()) {
      console_.warning(std::to_string(count) +
                       " strands of fewer than two points are not in the layer");
    }
  }

 private:
  void writeFrames(UsdWriter& writer) {
    const bool streams = frames_.count > 1;
    Progress progress(console_, "Exporting", streams ? frames_.count : 0);
    EvaluateRequest request = options_.evaluation.request();
    // One frame needs no results again; over a range, what does not move is not grown twice.
    request.lean = !streams;
    for (std::size_t i = 0; i < frames_.count; ++i) {
      request.time = frames_.frame(i);
      const std::vector<SessionMessage> messages = session_.evaluate(request);
      if (messages != reported_) progress.aside([&] { console_.report(messages); });
      reported_ = messages;
      const StrandSetPtr strands = session_.strands();
      if (hasErrors(messages) || !strands) throw CommandFailure(exitFailed, "");
      writeFrame(writer, request.time, *strands);
      progress.reach(i + 1);
    }
  }

  void writeFrame(UsdWriter& writer, double time, const StrandSet& strands) {
    const ScalpMeshPtr surface = session_.surface();
    const bool uvs = surface && surface->hasUvs();
    const RootValues values(strands, uvs ? surface.get() : nullptr);
    writer.options.writeUvs = uvs;
    writer.options.writeColors = true;
    writer.writeFrame(time, strands, {values.uvs, values.colors});
  }

  const Options& options_;
  const Console& console_;
  const FrameRange frames_;
  GroomSession session_;
  std::vector<SessionMessage> reported_;
};

}  // namespace

void addExportCommand(CLI::App& app, CommandWork& work) {
  const auto options = std::make_shared<Options>();
  CLI::App* const command = app.add_subcommand("export", "Write the strands as USD");
  command->add_option("FILE.groom", options->groom, "The groom")->required();
  command->add_option("OUT.usda", options->layer, "The layer to write")->required();
  const auto frames = command->add_option("--frames", options->frames,
                                          "FIRST:LAST or FIRST:LAST:STEP, as time samples");
  options->evaluation.declare(*command);
  frames->excludes("--frame");
  command->callback([options, &work] {
    work = [options](const Console& console) { Exporter(*options, console).run(); };
  });
}

}  // namespace kestrane
