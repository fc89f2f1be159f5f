#include "tools/commands.h"

#include <CLI/CLI.hpp>

#include "tools/cmd_diff.h"
#include "tools/cmd_dump.h"
#include "tools/cmd_getset.h"
#include "tools/cmd_salvage.h"
#include "tools/cmd_view.h"

std::vector<KovToolCommand> kovToolAddCommands(CLI::App& app) {
  std::vector<KovToolCommand> commands{kovToolAddDump(app)};
  for (KovToolCommand& c : kovToolAddGetSet(app)) commands.push_back(std::move(c));
  commands.push_back(kovToolAddDiff(app));
  commands.push_back(kovToolAddSalvage(app));
  commands.push_back(kovToolAddView(app));
  return commands;
}
