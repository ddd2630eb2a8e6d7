#include "cli/command_line.h"

#include <iostream>
#include <string_view>

#include "cli/agent_command.h"
#include "cli/backup_now_command.h"
#include "cli/backups_command.h"
#include "cli/cleaners_command.h"
#include "cli/drive_health_command.h"
#include "cli/duplicates_command.h"
#include "cli/hogs_command.h"
#include "cli/settings_command.h"
#include "cli/shares_stack.h"
#include "cli/sizes_command.h"
#include "cli/startup_items_command.h"
#include "cli/status_command.h"
#include "cli/unused_apps_command.h"

namespace kestrow {
namespace {

const char* const kUsage =
    "usage: kestrow [--demo]                  run the agent (tray icon and menu)\n"
    "       kestrow --find-duplicates         run the agent and start a duplicate scan\n"
    "       kestrow status [--json] [--demo]  the backup verdict now, and what backs up\n"
    "       kestrow backups [--json]          the backup source and the restic jobs\n"
    "       kestrow backups add --name NAME --repository REPO [--path DIR]... [--exclude "
    "PATTERN]...\n"
    "                           [--init] [--manual]   add a restic job (password on standard "
    "input)\n"
    "       kestrow backups remove ID|NAME    remove a restic job and its password\n"
    "       kestrow backup-now [--json] [--wait]  back up now with the active source\n"
    "       kestrow cleaners [--json]         the weekly cleaners and their last passes\n"
    "       kestrow clean [--estimate] [--json]  move what the cleaners that are on take to the "
    "Trash\n"
    "       kestrow hogs [--json] [--scan]    folders growing fast, and when the disk is full\n"
    "       kestrow sizes [--min-size BYTES] [--json] DIR...  large folders, allocated sizes\n"
    "       kestrow duplicates [--json] [DIR...]  files of 1 MB or more with identical content\n"
    "       kestrow duplicates --trash PATH...    move those copies to the Trash\n"
    "       kestrow drive-health [--json]     SMART status of this machine's and the backup disk\n"
    "       kestrow unused-apps [--json]      applications not opened for 180 days\n"
    "       kestrow startup-items [--json]    what starts with the session or the system\n"
    "       kestrow shares [--json]           the network shares and whether they are connected\n"
    "       kestrow shares add --protocol smb|webdav --host HOST --share NAME [--port N]\n"
    "                          [--user USER] [--scheme https|http] [--name NAME]\n"
    "                          [--no-auto-mount] [--password-stdin]   add a share\n"
    "       kestrow shares remove ID|NAME     remove a share and its password\n"
    "       kestrow shares mount ID|NAME [--wait]   connect a share\n"
    "       kestrow shares unmount ID|NAME    disconnect a share Kestrow connected\n"
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
    if (command == "backups") return runBackupsCommand(context);
    if (command == "backup-now") return runBackupNowCommand(context, argv[0]);
    if (command == "cleaners") return runCleanersCommand(context);
    if (command == "clean") return runCleanCommand(context);
    if (command == "hogs") return runHogsCommand(context);
    if (command == "sizes") return runSizesCommand(context);
    if (command == "duplicates") return runDuplicatesCommand(context);
    if (command == "drive-health") return runDriveHealthCommand(context);
    if (command == "unused-apps") return runUnusedAppsCommand(context);
    if (command == "startup-items") return runStartupItemsCommand(context);
    if (command == "shares") return runSharesCommandLine(context);
    std::cerr << "kestrow: unknown command '" << command << "'\n" << kUsage;
    return kExitUsage;
}

}  // namespace kestrow
