#include "tools/commands.h"

#include <CLI/CLI.hpp>

#include "tools/cmd_dump.h"

std::vector<KovToolCommand> kovToolAddCommands(CLI::App& app) {
  return {kovToolAddDump(app)};
}
