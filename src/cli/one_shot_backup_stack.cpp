#include "cli/one_shot_backup_stack.h"

#include <QDBusConnection>

#include "platform/linux/journal_log_sink.h"

namespace kestrow {
namespace {

// Log lines go to the journal; without one, only what is really wrong reaches the terminal, so
// that a script reading the report sees nothing else on it.
std::unique_ptr<LogSink> oneShotLogSink() {
    std::error_code ec;
    if (std::filesystem::exists("/run/systemd/journal/socket", ec)) return makeSystemLogSink();
    return std::make_unique<StderrLogSink>(LogLevel::fault);
}

std::filesystem::path storeFolder(const UserLocations& locations, bool demo) {
    return demo ? locations.demoFolder() : locations.settingsFolder();
}

}  // namespace

OneShotBackupStack::OneShotBackupStack(const CommandContext& context, bool demo,
                                       double probeTimeLimitSeconds)
    : sink_(oneShotLogSink()),
      log_(*sink_, LogArea::general),
      standard_(storeFolder(context.locations(), demo) /
                    context.locations().standardStoreFile().filename(),
                log_),
      shared_(
          storeFolder(context.locations(), demo) / context.locations().sharedStoreFile().filename(),
          log_),
      widgets_(QDBusConnection::sessionBus()),
      stack_(std::make_unique<BackupStack>(
          BackupStack::Options{demo, context.environment, probeTimeLimitSeconds, false, {}}, clock_,
          executor_, standard_, shared_, widgets_, nullptr, log_)) {}

OneShotBackupStack::~OneShotBackupStack() {
    stack_.reset();
}

}  // namespace kestrow
