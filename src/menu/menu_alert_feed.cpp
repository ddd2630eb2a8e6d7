#include "menu/menu_alert_feed.h"

#include "app/settings/standard_settings.h"
#include "backup/source_wording.h"

namespace kestrow {

struct MenuAlertFeed::Subscriptions {
    Signal<>::Connection evaluated;
    Signal<std::vector<HogAlert>>::Connection hogs;
    Signal<std::optional<int>>::Connection daysUntilFull;
    Signal<std::optional<DriveHealth::Reading>>::Connection health;
};

MenuAlertFeed::MenuAlertFeed(Dependencies dependencies)
    : d_(std::move(dependencies)), subscriptions_(std::make_unique<Subscriptions>()) {
    subscriptions_->evaluated = d_.backup.evaluated.connect([this] { update(); });
    if (d_.hogWatch != nullptr) {
        subscriptions_->hogs = d_.hogWatch->alerts().observe([this](const auto&) { update(); });
        subscriptions_->daysUntilFull =
            d_.hogWatch->daysUntilFull().observe([this](const auto&) { update(); });
    }
    if (d_.driveHealth != nullptr)
        subscriptions_->health = d_.driveHealth->health.observe([this](const auto&) { update(); });
    update();
}

MenuAlertFeed::~MenuAlertFeed() = default;

MenuAlertFacts MenuAlertFeed::collect(const Dependencies& d) {
    MenuAlertFacts facts;
    if (d.driveHealth != nullptr) facts.driveHealth = d.driveHealth->health.get();
    if (d.hogWatch != nullptr) {
        facts.hogs = d.hogWatch->alerts().get();
        facts.daysUntilFull = d.hogWatch->daysUntilFull().get();
    }
    if (d.freeBytes) facts.freeBytes = d.freeBytes();
    facts.destination = d.backup.destination();
    facts.automaticBackups = d.backup.automaticBackups();
    facts.nightlyBackupEnabled = StandardSettings(d.standardStore).nightlyBackupEnabled();
    facts.lastAttemptFailed = d.backup.verdict.get().lastAttemptFailed;
    facts.failureReason = d.backup.failureReason.get();
    return facts;
}

Wording MenuAlertFeed::wording() const {
    return linuxWording(d_.backup.source.get());
}

MenuAlertFacts MenuAlertFeed::facts() const {
    MenuAlertFacts facts = collect(d_);
    facts.settingsReadable = settingsReadable_;
    facts.localNetworkRefused = localNetworkRefused_;
    return facts;
}

void MenuAlertFeed::update() {
    alerts.set(MenuAlerts::raise(facts()));
}

void MenuAlertFeed::setSettingsReadable(std::optional<bool> readable) {
    settingsReadable_ = readable;
    update();
}

void MenuAlertFeed::setLocalNetworkRefused(bool refused) {
    localNetworkRefused_ = refused;
    update();
}

void MenuAlertFeed::turnOnNightlyBackup() {
    StandardSettings(d_.standardStore).setNightlyBackupEnabled(true);
    update();
}

void MenuAlertFeed::quiet(const std::string& folder) {
    // The hog watch publishes again, which updates the cards.
    if (d_.hogWatch != nullptr) d_.hogWatch->dismiss(folder);
}

}  // namespace kestrow
