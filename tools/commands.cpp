#include "tools/commands.h"

#include <CLI/CLI.hpp>

std::vector<KovToolCommand> kovToolAddCommands(CLI::App&) { return {}; }
