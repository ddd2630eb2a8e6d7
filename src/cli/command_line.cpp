#include "cli/command_line.h"

#include <iostream>
#include <string_view>

#include "cli/agent_command.h"
#include "cli/cleaners_command.h"
#include "cli/settings_command.h"
#include "cli/status_command.h"

namespace kestrow {
namespace {

const char* const kUsage =
    "usage: kestrow [--demo]                  run the agent (tray icon and menu)\n"
    "       kestrow status [--json] [--demo]  the backup verdict now\n"
    "       kestrow cleaners [--json]         the weekly cleaners and their last passes\n"
    "       kestrow clean [--estimate] [--json]  move what the cleaners that are on take to the "
    "Trash\n"
    "       kestrow settings [--json]         every setting with its effective value\n"
    "       kestrow settings set KEY VALUE    store one setting in its own type\n"
    "       kestrow settings unset KEY        remove one setting\n"
    "       kestrow --help                    this help\n";

}  // namespace

int runCommandLine(int argc, char** argv) {
    std::vector<std::string> args(argv + 1, argv + argc);
    const CommandContext base{{}, std::cout, std::cerr, processEnvironment()};

    if (args.empty() || args[0].starts_with("--")) {
        if (!args.empty() && (args[0] == "--help" || args[0] == "-h")) {
            std::cout << kUsage;
            return kExitDone;
        }
        return runAgentCommand(CommandContext{args, std::cout, std::cerr, base.environment}, argc,
                               argv);
    }
    const std::string command = args[0];
    args.erase(args.begin());
    const CommandContext context{args, std::cout, std::cerr, base.environment};
    if (command == "help") {
        std::cout << kUsage;
        return kExitDone;
    }
    if (command == "settings") return runSettingsCommand(context);
    if (command == "status") return runStatusCommand(context);
    if (command == "cleaners") return runCleanersCommand(context);
    if (command == "clean") return runCleanCommand(context);
    std::cerr << "kestrow: unknown command '" << command << "'\n" << kUsage;
    return kExitUsage;
}

}  // namespace kestrow
