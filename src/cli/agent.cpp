#include "cli/agent.h"

#include <QCheckBox>
#include <QCoreApplication>
#include <QDBusConnection>
#include <QDesktopServices>
#include <QLayout>
#include <QMessageBox>
#include <QUrl>

#include "app/headless_shell.h"
#include "app/settings/settings_keys.h"
#include "app/start_at_launch.h"
#include "cli/alert_sources.h"
#include "platform/linux/file_manager_reveal.h"
#include "ui/alert_cards_view.h"
#include "ui/backup_section.h"
#include "ui/cleaners_section.h"
#include "ui/disk_section.h"
#include "ui/duplicates_window.h"
#include "ui/menu_window.h"
#include "ui/restic_job_list.h"
#include "ui/shares_section.h"
#include "ui/ui_shell.h"

namespace kestrow {
namespace {

// The services still to be built; each logs once at start that it is not there yet.
constexpr std::array<const char*, 3> kServiceNames{"Nightly backup", "Keep awake", "Caffeine"};

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
      // The demo keeps its own stores, so it never touches the user's settings or what the
      // widgets show.
      standardStore_(options_.demo
                         ? locations_.demoFolder() / locations_.standardStoreFile().filename()
                         : locations_.standardStoreFile(),
                     log_, SettingsStore::OnUnreadable::setAside),
      sharedStore_(options_.demo ? locations_.demoFolder() / locations_.sharedStoreFile().filename()
                                 : locations_.sharedStoreFile(),
                   log_, SettingsStore::OnUnreadable::setAside),
      loginItems_(locations_.autostartEntry(), options_.executable),
      notifications_(QDBusConnection::sessionBus()),
      widgetHost_(QDBusConnection::sessionBus()),
      staleWidgetCheck_(widgetHost_, log_),
      menu_(standardStore_, mainExecutor_),
      notifier_(standardStore_, notifications_, log_),
      backup_({options_.demo, environment_, 5.0, true,
               [this](const std::string& url) { return shares_.connectedShare(url); }},
              clock_, mainExecutor_, standardStore_, sharedStore_, widgetHost_, &notifier_, log_),
      shares_(
          {options_.demo, options_.demo ? locations_.demoFolder() : locations_.dataHome,
           locations_.runtimeDir},
          clock_, mainExecutor_, standardStore_, notifications_, keyring_, sink,
          [this] { return backupDestinationURLs(); }, Wording::linux(std::nullopt)),
      protectionRefresh_(backup_.model(), mainExecutor_),
      backupMonitoring_(backup_.model()),
      cleaners_(clock_, mainExecutor_, standardStore_, locations_, log_, options_.demo,
                locations_.demoFolder()),
      insights_(clock_, mainExecutor_, standardStore_, cleaners_.folders(), environment_,
                backup_.model(), log_),
      alerts_({backup_.model(), standardStore_, &insights_.hogWatch(), &insights_.driveHealth(),
               AlertSources::homeFreeBytes(options_.demo, locations_.home)}) {
    verdictFollower_ = backup_.model().verdict.observe(
        [this](const ProtectionVerdict& verdict) { followVerdict(verdict); });
    static_assert(kServiceNames.size() == kPlaceholderCount);
    for (std::size_t i = 0; i < placeholders_.size(); ++i) {
        placeholders_[i] = std::make_unique<PlaceholderService>(kServiceNames[i], log_);
    }
    if (options_.withDisplay) {
        auto ui = std::make_unique<UiShell>(
            menu_, [this] { return firstRunFacts(); },
            [this](StepAction action) { perform(action); }, [] { QCoreApplication::quit(); },
            &backup_.jobEditor(), newJobForm(), &shares_.manager(), &shares_.vpnServices());
        uiShell_ = ui.get();
        QWidget* alertArea = uiShell_->menuWindow().alertArea();
        alertArea->layout()->addWidget(new AlertCardsView(
            alerts_, [this](MenuAlertAction action, const MenuAlert& alert) { act(action, alert); },
            alertArea, &backup_.model().source));
        QWidget* backupBody = uiShell_->menuWindow().sectionBody(MenuSection::backup);
        backupBody->layout()->addWidget(new BackupSection(
            backup_.model(), ResticJobList::Dependencies{backup_.jobEditor(), newJobForm(), {}},
            backupBody));
        QWidget* sharesBody = uiShell_->menuWindow().sectionBody(MenuSection::networkShares);
        sharesBody->layout()->addWidget(
            new SharesSection(shares_.manager(), &shares_.vpnServices(), sharesBody));
        QWidget* cleanersBody = uiShell_->menuWindow().sectionBody(MenuSection::weeklyCleaners);
        cleanersBody->layout()->addWidget(new CleanersSection(
            {standardStore_, cleaners_.developer(), cleaners_.browsers(), mainExecutor_,
             cleaners_.worker(), cleaners_.folders(), CleanerStack::kXcodeInstalled},
            cleanersBody));
        QWidget* diskBody = uiShell_->menuWindow().sectionBody(MenuSection::disk);
        diskBody->layout()->addWidget(new DiskSection(
            {standardStore_, insights_.hogWatch(), insights_.driveHealth(), mainExecutor_,
             insights_.worker(), insights_.folders(), environment_, [this] { showDuplicates(); }},
            diskBody));
        followStartAtLogin(uiShell_->menuWindow());
        shell_ = std::move(ui);
    } else {
        shell_ = std::make_unique<HeadlessShell>(log_, Wording::linux(std::nullopt));
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
        [this] { return makePreferencesFile(); },
        AppServices{shares_.monitoring(), shares_.vpnService(), protectionRefresh_,
                    backupMonitoring_, service(0), cleaners_.browsers(), cleaners_.developer(),
                    service(1), service(2), insights_.driveHealth(), insights_.hogWatch()},
        shares_.wakeService(),
        *shell_,
        menu_,
        log_,
        !options_.demo && StartAtLaunch::isInstalledAgent(options_.executable, locations_.home),
        [this] { return firstRunWindowNeeded(firstRunFacts()); },
    };
    delegate_ = std::make_unique<AppDelegate>(std::move(d));
}

Agent::~Agent() = default;

std::unique_ptr<PreferencesFileHandle> Agent::makePreferencesFile() {
    auto handle = backup_.startSources();
    settingsRead_ = backup_.model().evaluated.connect(
        [this] { alerts_.setSettingsReadable(backup_.settingsReadable()); });
    alerts_.setSettingsReadable(backup_.settingsReadable());
    return handle;
}

void Agent::followVerdict(const ProtectionVerdict& verdict) {
    menu_.setProtected(verdict.state == ProtectionState::protected_);
    if (delegate_)
        delegate_->updateStatusIcon(verdict.state == ProtectionState::stale ||
                                    verdict.state == ProtectionState::unavailable);
}

void Agent::showMenuWhenNoTray() {
    if (uiShell_ != nullptr && !uiShell_->hasTray()) uiShell_->showMenuWindow();
}

void Agent::followStartAtLogin(MenuWindow& menuWindow) {
    QCheckBox* toggle = menuWindow.startAtLogin();
    if (options_.demo) {
        // The demo never changes what the user's session starts.
        toggle->setEnabled(false);
        toggle->setToolTip(QStringLiteral("Not in the demo"));
        return;
    }
    // The entry may have changed since (`kestrow settings`, the desktop's own settings), so the
    // switch reads it each time the menu opens.
    const auto show = [this, toggle] {
        const QSignalBlocker quiet(toggle);
        toggle->setChecked(loginItems_.isEnabled());
    };
    QObject::connect(&menuWindow, &MenuWindow::aboutToShow, toggle, show);
    QObject::connect(toggle, &QCheckBox::toggled, toggle, [this, show](bool on) {
        StartAtLaunch(loginItems_, log_).setEnabled(on);
        show();  // a failed write leaves the switch showing what is really there
    });
    show();
}

void Agent::showDuplicates() {
    if (!duplicatesWindow_) {
        duplicatesWindow_ = std::make_unique<DuplicatesWindow>(insights_.duplicates());
        duplicatesWindow_->setWindowTitle(QStringLiteral("Duplicates — Kestrow"));
    }
    duplicatesWindow_->show();
    duplicatesWindow_->raise();
    duplicatesWindow_->activateWindow();
}

void Agent::findDuplicates() {
    DuplicatesModel& model = insights_.duplicates();
    if (uiShell_ != nullptr) {
        showDuplicates();
    } else {
        duplicatesOutcome_ = model.scanning.observe([this, &model](bool scanning) {
            if (!scanning && !model.status.get().empty())
                log_.info("Duplicates: {}", model.status.get());
        });
    }
    log_.info("Duplicates: scanning {}", model.roots().caption());
    model.scan();
}

void Agent::cancelWork() {
    insights_.cancelWork();
}

ResticJobForm Agent::newJobForm() const {
    return ResticJobForm::forNewJob(locations_.home, locations_.cacheHome, locations_.dataHome);
}

std::optional<std::vector<std::string>> Agent::backupDestinationURLs() {
    // Read on a queue: the store is safe from any thread. No snapshot means no backup is set
    // up, so no destination to leave alone; one that cannot be decoded cannot be told.
    const auto data = sharedStore_.dataValue(keys::preferences);
    if (!data) return std::vector<std::string>{};
    const auto preferences = Preferences::fromJson(
        std::string_view(reinterpret_cast<const char*>(data->data()), data->size()));
    if (!preferences) return std::nullopt;
    std::vector<std::string> urls;
    for (const Destination& destination :
         preferences->destinations.value_or(std::vector<Destination>{}))
        if (destination.networkURL) urls.push_back(*destination.networkURL);
    return urls;
}

FirstRunFacts Agent::firstRunFacts() {
    const PreferencesFileHandle* file = delegate_ ? delegate_->preferenceFile() : nullptr;
    FirstRunFacts facts;
    facts.hasAccess = file == nullptr || file->hasAccess();
    facts.accessAsked = accessAsked_ && !facts.hasAccess;
    facts.startAtLaunchEnabled = loginItems_.isEnabled();
    // Déjà Dup, once configured, is itself the source unless restic jobs are: with no source at
    // all it is not configured.
    const auto& source = backup_.model().source.get();
    facts.hasShares = !shares_.manager().shares().get().empty();
    facts.canAddServers = uiShell_ != nullptr;
    facts.backupSetup = BackupSetupFacts{source ? std::optional(source->name) : std::nullopt,
                                         source && source->kind == BackupSourceKind::restic,
                                         backup_.dejaDupConfigured()};
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
            const auto folder = PreferencesFile::location(environment_).parent_path();
            QDesktopServices::openUrl(QUrl::fromLocalFile(QString::fromStdString(folder.string())));
            break;
        }
        case StepAction::enableStartAtLaunch:
            StartAtLaunch(loginItems_, log_).setEnabled(true);
            break;
        case StepAction::addServer:
            break;  // the shell opens the share editor itself
        case StepAction::viewWidgetInstructions:
            QMessageBox::information(nullptr, "Kestrow", kWidgetInstructions);
            break;
        case StepAction::createBackup:
            break;  // the shell opens the job editor itself
        case StepAction::useDejaDup:
            // Déjà Dup is watched as soon as it is configured: a fresh look takes it up.
            backup_.source().recheck();
            break;
    }
}

void Agent::act(MenuAlertAction action, const MenuAlert& alert) {
    switch (action) {
        case MenuAlertAction::grantAccess:
            perform(StepAction::grantAccess);
            break;
        case MenuAlertAction::openSystemSettings:
            // Only the Local Network card offers this, and Linux never refuses that access: the
            // card is raised by nothing here.
            break;
        case MenuAlertAction::turnOnNightlyBackup:
            alerts_.turnOnNightlyBackup();
            break;
        case MenuAlertAction::reveal:
            // Without a file manager on the bus, the folder itself opens.
            if (!FileManagerReveal(QDBusConnection::sessionBus()).reveal(alert.folder)) {
                QDesktopServices::openUrl(
                    QUrl::fromLocalFile(QString::fromStdString(alert.folder)));
            }
            break;
        case MenuAlertAction::quiet:
            alerts_.quiet(alert.folder);
            break;
    }
}

}  // namespace kestrow
