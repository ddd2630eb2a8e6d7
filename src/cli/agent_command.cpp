#include "cli/agent_command.h"

#include <unistd.h>
#include <QApplication>
#include <QCoreApplication>
#include <QObject>

#include <chrono>
#include <filesystem>
#include <memory>
#include <thread>

#include "cli/agent.h"
#include "platform/linux/journal_log_sink.h"
#include "platform/linux/single_instance.h"
#include "platform/linux/termination_signals.h"

namespace kestrow {
namespace {

// How long the end of the agent may take once the stop sequence has run and the workers were
// asked to stop.
constexpr auto kTeardownLimit = std::chrono::seconds(3);

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

// Once the stop sequence has run, the agent's end must not wait on a worker that cannot end (a
// read from a share that stopped answering never returns): past the limit the process exits
// without joining it. Nothing is lost by then: the stop sequence has let go of every hold.
void endWithin(std::chrono::seconds limit) {
    std::thread([limit] {
        std::this_thread::sleep_for(limit);
        ::_exit(kExitDone);
    }).detach();
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
        } else if (arg == "--find-duplicates") {
            options.findDuplicates = true;
        } else {
            context.err << "kestrow: unknown option '" << arg
                        << "'\nusage: kestrow [--demo] [--find-duplicates]\n";
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
    if (options.findDuplicates) agent.findDuplicates();
    QCoreApplication::exec();
    agent.delegate().applicationWillTerminate();
    agent.cancelWork();
    endWithin(kTeardownLimit);
    return kExitDone;  // the agent goes, joining its workers
}

}  // namespace kestrow
