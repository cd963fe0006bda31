#include "commands.hpp"

#include <zv/version.hpp>

namespace zorvel {

// The subcommands, in the order in which they are listed. Each adds itself, is defined in
// commands/, and runs when the command line is parsed. It reports by throwing: see failure.hpp and
// interrupt.hpp.
void addReplay(Command tool);
void addReport(Command tool);
void addExplain(Command tool);
void addImport(Command tool);
void addLive(Command tool);
void addView(Command tool);
void addSend(Command tool);
void addInfo(Command tool);
void addSimulate(Command tool);
void addCut(Command tool);
void addAnnotate(Command tool);
void addExport(Command tool);
void addTypes(Command tool);

void addCommands(Command tool) {
  tool.describe(
      "zorvel", "Estimates the emotional state of the persons a robot perceives",
      R"(A recording is a text file with one JSON object per line. --help after a subcommand lists
its options.

Exit status:
  0  done
  1  the data or the system failed
  2  wrong usage

Example:
  zorvel simulate | zorvel replay - --output results)");
  tool.addVersion("zorvel " ZV_VERSION);
  tool.requireSubcommand();
  addReplay(tool);
  addReport(tool);
  addExplain(tool);
  addImport(tool);
  addLive(tool);
  addView(tool);
  addSend(tool);
  addInfo(tool);
  addSimulate(tool);
  addCut(tool);
  addAnnotate(tool);
  addExport(tool);
  addTypes(tool);
}

}  // namespace zorvel
