// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <CLI/CLI.hpp>
#include <csignal>
#include <exception>
#include <new>
#include <sstream>
#include <string>

#include "core/base/parallel.h"
#include "core/base/version.h"
#include "hosts/cli/commands.h"

namespace kestrane {

namespace {

/// Parses and runs; returns the exit code.
int runProgram(int argumentCount, char** arguments) {
  Console console;
  std::int64_t threads = 0;
  CommandWork work;

  CLI::App app("Kestrane grows hair and fur on a mesh, from a graph of operators and from guides.",
               "kestrane");
  app.set_version_flag("--version", std::string(kestraneVersion));
  app.require_subcommand(1);
  app.fallthrough();
  app.add_flag("--quiet", console.quiet, "Errors and results only");
  // Read as a signed number, since an unsigned one would take -3 for a very large count.
  const CLI::Option* const limit =
      app.add_option("--threads", threads, "The most threads to use (0: all)")
          ->check(CLI::Range(std::int64_t{0}, std::int64_t{1} << 20));
  for (const auto add :
       {addSampleCommand, addNewCommand, addInfoCommand, addEvaluateCommand, addExportCommand,
        addDrawCommand, addOperatorsCommand, addExpressionCommand}) {
    add(app, work);
  }

  try {
    try {
      app.parse(argumentCount, arguments);
    } catch (const CLI::ParseError& error) {
      std::ostringstream out, err;
      const int code = app.exit(error, out, err);
      console.result(out.str());
      if (code == 0) return exitDone;
      std::fputs(err.str().c_str(), stderr);
      return exitUsage;
    }
    // Unless told, the limit of the environment holds.
    if (limit->count() > 0) setThreadCount(static_cast<std::size_t>(threads));
    work(console);
    return exitDone;
  } catch (const CommandFailure& failure) {
    if (*failure.what() != 0) console.error(failure.what());
    return failure.code;
  } catch (const std::bad_alloc&) {
    console.error("there is not enough memory for this");
    return exitFailed;
  } catch (const std::exception& error) {
    console.error(error.what());
    return exitFailed;
  }
}

}  // namespace

}  // namespace kestrane

int main(int argumentCount, char** arguments) {
  // A reader that goes away is a failed write, not the end of the process.
  std::signal(SIGPIPE, SIG_IGN);
  return kestrane::runProgram(argumentCount, arguments);
}
