#include "cli/shares_stack.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QTimer>

#include "cli/command_application.h"
#include "cli/password_input.h"
#include "platform/linux/qt_keychain_secret_store.h"
#include "shares/stored_share_control.h"

namespace kestrow {
namespace {

// A mount table that cannot be read: nothing is claimed about what is mounted.
class UnreadMountTable final : public MountTable {
public:
    explicit UnreadMountTable(std::string volumesRoot) : volumesRoot_(std::move(volumesRoot)) {}
    std::optional<std::vector<MountEntry>> current() override { return std::nullopt; }
    std::int64_t bootIdentity() override { return 0; }
    std::string volumesRoot() const override { return volumesRoot_; }

private:
    std::string volumesRoot_;
};

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
          table_((command.locations().runtimeDir / "gvfs").string() + "/"),
          control_(store_, passwords_, table_),
          context_{control_,
                   false,
                   table_,
                   [] { return std::optional<std::vector<VPNService>>(); },
                   [](const SMBShare&, const std::vector<MountEntry>&) { return false; },
                   [] { return readSecretLine("Password: "); },
                   runEventsUntil,
                   [this] { return control_.settled(); }} {}

    SharesCommandContext& context() override { return context_; }

private:
    QtKeychainSecretStore keyring_;
    ShareStore store_;
    SharePasswords passwords_;
    UnreadMountTable table_;
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
