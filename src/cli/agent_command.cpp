#include "cli/agent_command.h"

#include <QApplication>
#include <QCoreApplication>
#include <QObject>

#include <filesystem>
#include <memory>

#include "cli/agent.h"
#include "platform/linux/journal_log_sink.h"
#include "platform/linux/single_instance.h"
#include "platform/linux/termination_signals.h"

namespace kestrow {
namespace {

// A window system to show windows on; without one the agent runs headless.
bool displayAvailable(const EnvironmentLookup& environment) {
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"}) {
        if (auto value = environment(name); value && !value->empty()) return true;
    }
    return false;
}

std::filesystem::path executablePath(const char* argv0) {
    std::error_code ec;
    auto self = std::filesystem::read_symlink("/proc/self/exe", ec);
    return ec ? std::filesystem::absolute(argv0, ec) : self;
}

std::filesystem::path instanceFolder(const UserLocations& locations) {
    return (locations.runtimeDir.empty() ? locations.cacheHome : locations.runtimeDir) / "kestrow";
}

}  // namespace

int runAgentCommand(const CommandContext& context, int argc, char** argv) {
    Agent::Options options;
    for (const auto& arg : context.arguments) {
        if (arg == "--demo") {
            options.demo = true;
        } else if (arg == "--login-item") {
            options.launchedAsLogInItem = true;  // written into our autostart entry
        } else {
            context.err << "kestrow: unknown option '" << arg << "'\nusage: kestrow [--demo]\n";
            return kExitUsage;
        }
    }
    if (isRunningPreviews(context.environment)) return kExitDone;

    options.withDisplay = displayAvailable(context.environment);
    options.executable = executablePath(argv[0]);
    std::unique_ptr<QCoreApplication> app;
    if (options.withDisplay) {
        app = std::make_unique<QApplication>(argc, argv);
        QApplication::setQuitOnLastWindowClosed(false);  // closing a window never ends the agent
    } else {
        app = std::make_unique<QCoreApplication>(argc, argv);
    }
    QCoreApplication::setApplicationName("Kestrow");
    QCoreApplication::setOrganizationDomain("vemb.bar");

    // Before anything else exists, so that a SIGTERM during start-up still ends in the stop
    // sequence (delivered once the event loop runs) instead of killing the process half-launched.
    TerminationSignals termination;
    QObject::connect(&termination, &TerminationSignals::terminationRequested, app.get(),
                     [] { QCoreApplication::quit(); });

    const auto sink = makeSystemLogSink();
    SingleInstance instance(instanceFolder(context.locations()));
    switch (instance.claim()) {
        case SingleInstance::Role::handedOver:
            return kExitDone;
        case SingleInstance::Role::failed:
            context.err << "kestrow: " << instance.errorText() << "\n";
            return kExitFailed;
        case SingleInstance::Role::primary:
            break;
    }

    Agent agent(options, context.environment, *sink);
    QObject::connect(&instance, &SingleInstance::reopenRequested, [&agent] {
        agent.delegate().applicationShouldHandleReopen(agent.shell().hasVisibleWindows());
    });
    agent.delegate().applicationDidFinishLaunching();
    agent.showMenuWhenNoTray();
    QCoreApplication::exec();
    agent.delegate().applicationWillTerminate();
    return kExitDone;
}

}  // namespace kestrow
