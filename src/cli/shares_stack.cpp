#include "cli/shares_stack.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QTimer>

#include "cli/command_application.h"
#include "cli/password_input.h"
#include "platform/linux/qt_keychain_secret_store.h"
#include "platform/linux/shares/gvfs_mount_table.h"
#include "shares/mount_ledger.h"
#include "shares/mount_matching.h"
#include "shares/mount_ownership.h"
#include "shares/stored_share_control.h"
#include "support/log_sink.h"

namespace kestrow {
namespace {

bool runEventsUntil(const std::function<bool()>& done, double seconds) {
    if (done()) return true;
    QElapsedTimer elapsed;
    elapsed.start();
    const auto limit = static_cast<qint64>(seconds * 1000.0);
    QEventLoop loop;
    QTimer poll;
    poll.setInterval(50);
    QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
        if (done() || elapsed.elapsed() >= limit) loop.quit();
    });
    poll.start();
    loop.exec();
    return done();
}

class StoredSharesStack final : public SharesCommandStack {
public:
    explicit StoredSharesStack(const CommandContext& command)
        : store_(command.locations().dataHome),
          passwords_(keyring_),
          standard_(command.locations().standardStoreFile(), Logger(sink_, LogArea::mounting)),
          ledger_(standard_),
          control_(store_, passwords_, table_),
          context_{control_, false, table_, [] { return std::optional<std::vector<VPNService>>(); },
                   // The agent's own ledger: a mount it made in this boot is Kestrow's.
                   [this](const SMBShare& share, const std::vector<MountEntry>& table) {
                       const std::int64_t boot = table_.bootIdentity();
                       const auto owned = ledger_.load();
                       for (const std::string& path : MountMatching::mountedPaths(share, table))
                           if (MountOwnership::owns(path, table, owned, boot)) return true;
                       return false;
                   },
                   [] { return readSecretLine("Password: "); }, runEventsUntil,
                   [this] { return control_.settled(); }} {}

    SharesCommandContext& context() override { return context_; }

private:
    StderrLogSink sink_{LogLevel::error};
    QtKeychainSecretStore keyring_;
    ShareStore store_;
    SharePasswords passwords_;
    GvfsMountTable table_;
    SettingsStore standard_;
    MountLedger ledger_;
    StoredShareControl control_;
    SharesCommandContext context_;
};

}  // namespace

std::unique_ptr<SharesCommandStack> makeSharesCommandContext(const CommandContext& command) {
    return std::make_unique<StoredSharesStack>(command);
}

int runSharesCommandLine(const CommandContext& command) {
    const auto app = commandApplication();
    const auto stack = makeSharesCommandContext(command);
    return runSharesCommand(command.arguments, stack->context(), command.out, command.err);
}

}  // namespace kestrow
