// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <functional>

#include "hosts/cli/console.h"

namespace CLI {
class App;
}

namespace kestrane {

/// A command's work, run after the whole command line was read. Throws CommandFailure.
using CommandWork = std::function<void(const Console& console)>;

// Each adds its subcommand with its options; parsing that subcommand sets `work`, which must
// outlive the parsing. Each is defined in the file of its name.
void addNewCommand(CLI::App& app, CommandWork& work);
void addInfoCommand(CLI::App& app, CommandWork& work);
void addEvaluateCommand(CLI::App& app, CommandWork& work);
void addExportCommand(CLI::App& app, CommandWork& work);
void addDrawCommand(CLI::App& app, CommandWork& work);
void addOperatorsCommand(CLI::App& app, CommandWork& work);
void addExpressionCommand(CLI::App& app, CommandWork& work);
void addSampleCommand(CLI::App& app, CommandWork& work);

}  // namespace kestrane
