#include "cli/agent.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDesktopServices>
#include <QMessageBox>
#include <QUrl>

#include "app/headless_shell.h"
#include "app/readable_settings_file.h"
#include "app/start_at_launch.h"
#include "ui/ui_shell.h"

namespace kestrow {
namespace {

constexpr std::array<const char*, 12> kServiceNames{"Share monitoring",
                                                    "VPN monitor",
                                                    "Protection refresh",
                                                    "Background monitoring",
                                                    "Nightly backup",
                                                    "Browser cache cleaner",
                                                    "Developer cache cleaner",
                                                    "Keep awake",
                                                    "Caffeine",
                                                    "Drive health",
                                                    "Hog watch",
                                                    "Wake observer"};

const char* const kWidgetInstructions =
    "Kestrow keeps its latest backup verdict in its shared settings and announces each change on "
    "the session bus (bar.vemb.orvel.Widgets, TimelinesChanged).\n\n"
    "To show it in a panel or status bar, have the panel run:\n\n"
    "    kestrow status --json\n\n"
    "and refresh it when the signal arrives.";

}  // namespace

Agent::Agent(Options options, EnvironmentLookup environment, LogSink& sink)
    : options_(std::move(options)),
      environment_(std::move(environment)),
      log_(sink, LogArea::general),
      locations_(UserLocations::resolve(environment_)),
      standardStore_(locations_.standardStoreFile(), log_),
      sharedStore_(locations_.sharedStoreFile(), log_),
      loginItems_(locations_.autostartEntry(), options_.executable),
      notifications_(QDBusConnection::sessionBus()),
      widgetHost_(QDBusConnection::sessionBus()),
      staleWidgetCheck_(widgetHost_, log_),
      menu_(standardStore_, mainExecutor_) {
    for (std::size_t i = 0; i < placeholders_.size(); ++i) {
        placeholders_[i] = std::make_unique<PlaceholderService>(kServiceNames[i], log_);
    }
    if (options_.withDisplay) {
        auto ui = std::make_unique<UiShell>(
            menu_, [this] { return firstRunFacts(); },
            [this](StepAction action) { perform(action); }, [] { QCoreApplication::quit(); });
        uiShell_ = ui.get();
        shell_ = std::move(ui);
    } else {
        shell_ = std::make_unique<HeadlessShell>(log_);
    }

    const auto service = [this](std::size_t i) -> Service& { return *placeholders_[i]; };
    AppDelegate::Dependencies d{
        environment_,
        options_.launchedAsLogInItem,
        options_.demo,
        clock_,
        mainExecutor_,
        standardStore_,
        loginItems_,
        notifications_,
        staleWidgetCheck_,
        [this]() -> std::unique_ptr<PreferencesFileHandle> {
            return std::make_unique<ReadableSettingsFile>(
                ReadableSettingsFile::location(environment_));
        },
        AppServices{service(0), service(1), service(2), service(3), service(4), service(5),
                    service(6), service(7), service(8), service(9), service(10)},
        service(11),
        *shell_,
        menu_,
        log_,
    };
    delegate_ = std::make_unique<AppDelegate>(std::move(d));
}

Agent::~Agent() = default;

void Agent::showMenuWhenNoTray() {
    if (uiShell_ != nullptr && !uiShell_->hasTray()) uiShell_->showMenuWindow();
}

FirstRunFacts Agent::firstRunFacts() const {
    const PreferencesFileHandle* file = delegate_ ? delegate_->preferenceFile() : nullptr;
    FirstRunFacts facts;
    facts.hasAccess = file == nullptr || file->hasAccess();
    facts.accessAsked = accessAsked_ && !facts.hasAccess;
    facts.startAtLaunchEnabled = loginItems_.isEnabled();
    return facts;
}

void Agent::perform(StepAction action) {
    switch (action) {
        case StepAction::grantAccess:
            if (PreferencesFileHandle* file = delegate_->preferenceFile()) {
                file->recheckAccess();
                accessAsked_ = !file->hasAccess();
            }
            break;
        case StepAction::openSystemSettings: {
            // Linux has no privacy pane: show the folder, where the file's permissions can be
            // fixed.
            const auto folder = ReadableSettingsFile::location(environment_).parent_path();
            QDesktopServices::openUrl(QUrl::fromLocalFile(QString::fromStdString(folder.string())));
            break;
        }
        case StepAction::enableStartAtLaunch:
            StartAtLaunch(loginItems_, log_).setEnabled(true);
            break;
        case StepAction::addServer:
            break;  // the share editor arrives with network shares; the button is disabled until
                    // then
        case StepAction::viewWidgetInstructions:
            QMessageBox::information(nullptr, "Kestrow", kWidgetInstructions);
            break;
    }
}

}  // namespace kestrow
