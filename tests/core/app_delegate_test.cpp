#include "app/app_delegate.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "app/settings/settings_keys.h"
#include "support/recording_log_sink.h"
#include "support/temp_folder.h"
#include "support/virtual_scheduler.h"

namespace kestrow {
namespace {

using Events = std::vector<std::string>;

struct RecordingService final : Service {
    RecordingService(Events& log, std::string serviceName)
        : events(log), name(std::move(serviceName)) {}
    void start() override { events.push_back("start " + name); }
    void stop() override { events.push_back("stop " + name); }
    Events& events;
    std::string name;
};

struct RecordingLoginItems final : LoginItems {
    explicit RecordingLoginItems(Events& log) : events(log) {}
    bool isEnabled() const override { return enabled; }
    std::optional<std::string> setEnabled(bool value) override {
        events.push_back(value ? "register login item" : "unregister login item");
        if (failure) return failure;
        enabled = value;
        return std::nullopt;
    }
    Events& events;
    bool enabled = false;
    std::optional<std::string> failure;
};

struct RecordingNotifications final : UserNotifications {
    explicit RecordingNotifications(Events& log) : events(log) {}
    void requestAuthorization(std::function<void(bool)> done) override {
        events.push_back("request notification authorization");
        done(false);
    }
    void post(std::string identifier, std::string, std::string) override {
        events.push_back("notify " + identifier);
    }
    Events& events;
};

struct RecordingWidgetHost final : WidgetHost {
    explicit RecordingWidgetHost(Events& log) : events(log) {}
    std::vector<Process> runningWidgetProcesses() const override {
        events.push_back("stale widget check");
        return processes;
    }
    void terminate(int pid) override { events.push_back("terminate " + std::to_string(pid)); }
    std::optional<WallTime> appBinaryReplaced() const override { return replaced; }
    void reloadTimelines(std::string_view kind) override {
        events.push_back("reload " + std::string(kind));
    }
    Events& events;
    std::vector<Process> processes;
    std::optional<WallTime> replaced;
};

struct RecordingShell final : AppShell {
    explicit RecordingShell(Events& log) : events(log) {}
    bool hasVisibleWindows() const override { return windowVisible; }
    void showFirstRunWindow() override {
        events.push_back("show first-run window");
        windowVisible = true;
    }
    void showStatusItem() override { events.push_back("show status item"); }
    void showMenu() override { events.push_back("show menu"); }
    Events& events;
    bool windowVisible = false;
};

struct FakePreferencesFile final : PreferencesFileHandle {
    FakePreferencesFile(Events& log, bool& granted) : events(log), access(granted) {}
    bool hasAccess() const override { return access; }
    bool demo() const override { return false; }
    void recheckAccess() override { events.push_back("recheck access"); }
    Events& events;
    bool& access;
};

const Events kStartOrder{"start shares",
                         "start vpn",
                         "start protection refresh",
                         "start background monitoring",
                         "start nightly backup",
                         "start browser cleaner",
                         "start developer cleaner",
                         "start keep awake",
                         "start caffeine",
                         "start drive health",
                         "start hog watch"};

class AppDelegateTest : public ::testing::Test {
protected:
    Events events;
    testing::TempFolder folder;
    testing::RecordingLogSink sink;
    VirtualScheduler scheduler;
    SettingsStore standard{folder / "standard.plist", Logger(sink, LogArea::general)};
    RecordingLoginItems loginItems{events};
    RecordingNotifications notifications{events};
    RecordingWidgetHost widgetHost{events};
    StaleWidgetCheck staleCheck{widgetHost, Logger(sink, LogArea::general)};
    RecordingShell shell{events};
    MenuBarState menu{standard, scheduler.mainExecutor()};
    std::map<std::string, std::string> environment;
    bool hasAccess = false;
    std::vector<std::unique_ptr<RecordingService>> services;

    RecordingService& service(const std::string& name) {
        services.push_back(std::make_unique<RecordingService>(events, name));
        return *services.back();
    }

    bool installed = true;
    std::function<bool()> backupNeedsSetup;

    std::unique_ptr<AppDelegate> makeDelegate(bool loginItemLaunch = false, bool demo = false) {
        services.clear();
        AppDelegate::Dependencies d{
            [this](std::string_view name) -> std::optional<std::string> {
                auto it = environment.find(std::string(name));
                return it == environment.end() ? std::nullopt : std::optional(it->second);
            },
            loginItemLaunch,
            demo,
            scheduler,
            scheduler.mainExecutor(),
            standard,
            loginItems,
            notifications,
            staleCheck,
            [this] {
                events.push_back("create preferences file");
                return std::make_unique<FakePreferencesFile>(events, hasAccess);
            },
            AppServices{service("shares"), service("vpn"), service("protection refresh"),
                        service("background monitoring"), service("nightly backup"),
                        service("browser cleaner"), service("developer cleaner"),
                        service("keep awake"), service("caffeine"), service("drive health"),
                        service("hog watch")},
            service("wake observer"),
            shell,
            menu,
            Logger(sink, LogArea::general),
            installed,
            backupNeedsSetup,
        };
        return std::make_unique<AppDelegate>(std::move(d));
    }
};

// Where backups come from elsewhere than Time Machine, the window is for setting one up: it opens
// while none is, whatever the Time Machine settings' access, and never for a login-item launch.
TEST_F(AppDelegateTest, WithOtherBackupSourcesTheWindowOpensWhileNoneIsSetUp) {
    const auto windows = [this] {
        return std::count(events.begin(), events.end(), "show first-run window");
    };
    bool needsSetup = true;
    backupNeedsSetup = [&] { return needsSetup; };
    hasAccess = true;
    makeDelegate()->applicationDidFinishLaunching();
    EXPECT_EQ(windows(), 1);

    events.clear();
    makeDelegate(/*loginItemLaunch=*/true)->applicationDidFinishLaunching();
    EXPECT_EQ(windows(), 0);

    events.clear();
    needsSetup = false;
    hasAccess = false;
    makeDelegate()->applicationDidFinishLaunching();
    EXPECT_EQ(windows(), 0) << "a configured source needs no window, access or not";
}

TEST_F(AppDelegateTest, LaunchAndQuitRunEveryStepInOrder) {
    auto delegate = makeDelegate();
    delegate->applicationDidFinishLaunching();
    Events expected{"stale widget check", "create preferences file", "register login item"};
    expected.insert(expected.end(), kStartOrder.begin(), kStartOrder.end());
    expected.insert(expected.end(), {"request notification authorization", "start wake observer",
                                     "show first-run window"});
    EXPECT_EQ(events, expected);

    events.clear();
    delegate->applicationWillTerminate();
    EXPECT_EQ(events,
              (Events{"stop keep awake", "stop caffeine", "stop shares", "stop wake observer"}));
}

TEST_F(AppDelegateTest, ThePreviewsFlagStopsEverythingOnlyWhenItIsExactlyOne) {
    environment["XCODE_RUNNING_FOR_PREVIEWS"] = "1";
    auto delegate = makeDelegate();
    delegate->applicationDidFinishLaunching();
    delegate->applicationWillTerminate();
    EXPECT_TRUE(events.empty());
    EXPECT_FALSE(std::filesystem::exists(standard.file()))
        << "not even the once-only flag is written";

    for (const char* other : {"0", "true", ""}) {
        environment["XCODE_RUNNING_FOR_PREVIEWS"] = other;
        events.clear();
        makeDelegate()->applicationDidFinishLaunching();
        EXPECT_NE(std::find(events.begin(), events.end(), "start hog watch"), events.end())
            << other;
    }
}

TEST_F(AppDelegateTest, StartAtLaunchIsTurnedOnOnceInTheAppsLife) {
    loginItems.failure =
        "permission denied";  // a failed registration is logged and does not stop launch
    makeDelegate()->applicationDidFinishLaunching();
    EXPECT_TRUE(sink.contains("Failed to enable start at launch: permission denied"));
    EXPECT_EQ(standard.boolValue(keys::didAutoEnableStartAtLaunch), true);
    EXPECT_NE(std::find(events.begin(), events.end(), "start hog watch"), events.end());

    // The user turns it off; later launches leave it off.
    loginItems.failure.reset();
    loginItems.enabled = false;
    events.clear();
    makeDelegate()->applicationDidFinishLaunching();
    EXPECT_EQ(std::count(events.begin(), events.end(), "register login item"), 0);

    // Already registered on the first launch: nothing to do, but the flag is still set.
    standard.remove(keys::didAutoEnableStartAtLaunch);
    loginItems.enabled = true;
    events.clear();
    makeDelegate()->applicationDidFinishLaunching();
    EXPECT_EQ(std::count(events.begin(), events.end(), "register login item"), 0);
    EXPECT_EQ(standard.boolValue(keys::didAutoEnableStartAtLaunch), true);
}

TEST_F(AppDelegateTest, AnAgentThatIsNotInstalledLeavesStartAtLoginAndTheOnceOnlyFlagAlone) {
    installed = false;
    makeDelegate()->applicationDidFinishLaunching();
    EXPECT_EQ(std::count(events.begin(), events.end(), "register login item"), 0);
    EXPECT_EQ(standard.boolValue(keys::didAutoEnableStartAtLaunch), std::nullopt)
        << "the installed agent's first launch is still to come";
    EXPECT_FALSE(loginItems.enabled);

    installed = true;
    events.clear();
    makeDelegate()->applicationDidFinishLaunching();
    EXPECT_EQ(std::count(events.begin(), events.end(), "register login item"), 1);
    EXPECT_TRUE(loginItems.enabled);
}

TEST_F(AppDelegateTest, NotificationsAreAskedForOnlyWhenEnabledAndDemoSkipsTheSettingsFile) {
    standard.set(keys::notificationsEnabled, PlistValue(false));
    makeDelegate(false, /*demo=*/true)->applicationDidFinishLaunching();
    EXPECT_EQ(std::count(events.begin(), events.end(), "request notification authorization"), 0);
    EXPECT_EQ(std::count(events.begin(), events.end(), "create preferences file"), 0);
    EXPECT_EQ(std::count(events.begin(), events.end(), "show first-run window"), 0);
}

TEST_F(AppDelegateTest, ALoginItemLaunchShowsNoWindowButOpeningTheAppAgainDoes) {
    auto delegate = makeDelegate(/*loginItemLaunch=*/true);
    delegate->applicationDidFinishLaunching();
    EXPECT_EQ(std::count(events.begin(), events.end(), "show first-run window"), 0);

    events.clear();
    EXPECT_TRUE(delegate->applicationShouldHandleReopen(shell.hasVisibleWindows()));
    EXPECT_EQ(events,
              (Events{"show status item", "show first-run window", "show menu", "recheck access"}));

    // With the window already visible and access granted, reopening brings the icon back and
    // opens the menu, the way to it when the desktop has no tray.
    hasAccess = true;
    events.clear();
    delegate->applicationShouldHandleReopen(shell.hasVisibleWindows());
    EXPECT_EQ(events, (Events{"show status item", "show menu"}));
}

TEST_F(AppDelegateTest, ReopeningBringsBackAnAutoHiddenIcon) {
    standard.set("hideIconWhenProtected", PlistValue(true));
    standard.set("hideIconDelaySeconds", PlistValue(2.0));
    auto delegate = makeDelegate();
    menu.setProtected(true);
    scheduler.advance(2.0);
    EXPECT_FALSE(menu.iconVisible().get());

    delegate->applicationShouldHandleReopen(true);
    EXPECT_TRUE(menu.iconVisible().get()) << "the icon is back at once";
    scheduler.advance(3600.0);
    EXPECT_TRUE(menu.iconVisible().get()) << "and stays while the verdict stays";
    menu.setProtected(true);  // the same verdict published again
    scheduler.advance(3600.0);
    EXPECT_TRUE(menu.iconVisible().get());

    // The verdict changes: the auto-hide rule applies again from then on.
    menu.setProtected(false);
    EXPECT_TRUE(menu.iconVisible().get());
    menu.setProtected(true);
    scheduler.advance(1.9);
    EXPECT_TRUE(menu.iconVisible().get());
    scheduler.advance(0.1);
    EXPECT_FALSE(menu.iconVisible().get()) << "hidden again after the chosen delay";

    delegate->updateStatusIcon(true);
    EXPECT_FALSE(menu.iconHasError().get()) << "the flag reaches the menu on the main executor";
    scheduler.runPending();
    EXPECT_TRUE(menu.iconHasError().get());
}

TEST(StaleWidgetCheck, EndsOnlyProcessesStartedBeforeTheBinaryWasReplaced) {
    const WallTime replaced = WallTime{std::chrono::seconds{1'800'000'000}};
    const WallTime now = replaced + std::chrono::hours(1);
    const std::vector<WidgetHost::Process> processes{{10, replaced - std::chrono::seconds(1)},
                                                     {11, replaced},
                                                     {12, replaced + std::chrono::seconds(5)}};
    EXPECT_EQ(StaleWidgetCheck::staleProcesses(processes, replaced, now), (std::vector<int>{10}));
    EXPECT_TRUE(StaleWidgetCheck::staleProcesses(processes, std::nullopt, now).empty());
    EXPECT_TRUE(
        StaleWidgetCheck::staleProcesses(processes, replaced, replaced - std::chrono::hours(1))
            .empty());

    Events events;
    RecordingWidgetHost host(events);
    host.processes = processes;
    host.replaced = replaced;
    testing::RecordingLogSink sink;
    EXPECT_EQ(StaleWidgetCheck(host, Logger(sink, LogArea::general)).run(now), 1u);
    EXPECT_EQ(events, (Events{"stale widget check", "terminate 10", "reload OrvelWidget"}));
    EXPECT_TRUE(sink.contains(
        "Reaped 1 stale widget process(es) running a replaced binary; timelines reloaded"));
}

}  // namespace
}  // namespace kestrow
