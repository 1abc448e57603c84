// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <CLI/CLI.hpp>
#include <memory>

#include "core/guides/guide_hierarchy.h"
#include "hosts/cli/commands.h"
#include "hosts/cli/groom_output.h"
#include "hosts/cli/sample_groom.h"

namespace kestrane {

void addSampleCommand(CLI::App& app, CommandWork& work) {
  const auto path = std::make_shared<std::string>();
  CLI::App* const command =
      app.add_subcommand("sample", "Write the built-in sample: a head with styled guides");
  command->add_option("OUT.groom", *path, "The groom to write")->required();
  command->callback([path, &work] {
    work = [path](const Console& console) {
      const GroomDocument document = sampleGroom();
      saveGroom(*path, document);
      console.note(*path + ": a head of " + std::to_string(document.scalp.mesh->polygons().size()) +
                   " faces with " + std::to_string(document.hierarchy->guides().size()) +
                   " guides");
    };
  });
}

}  // namespace kestrane
