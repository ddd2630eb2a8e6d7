#pragma once

#include <QWidget>

#include <functional>
#include <memory>
#include <vector>

#include "platform/locations.h"
#include "support/environment.h"

class QLabel;
class QCheckBox;
class QPushButton;

namespace kestrow {

class DriveHealthMonitor;
class Executor;
class HogWatchScheduler;
class SettingsStore;

// The menu's "Disk": folders growing fast (each can be quieted), when the disk fills at this
// rate, the disks' SMART health, applications unused for half a year, what starts with the
// session, and the way to the duplicate finder.
class DiskSection : public QWidget {
    Q_OBJECT

public:
    struct Services {
        SettingsStore& standardStore;
        HogWatchScheduler& hogWatch;
        DriveHealthMonitor& driveHealth;
        Executor& mainExecutor;
        Executor& worker;  // the application and startup scans read files
        UserLocations folders;
        EnvironmentLookup environment;
        std::function<void()> findDuplicates;
    };

    explicit DiskSection(Services services, QWidget* parent = nullptr);
    ~DiskSection() override;

    QLabel& hogs() const { return *hogs_; }
    QLabel& daysUntilFull() const { return *daysUntilFull_; }
    QLabel& health() const { return *health_; }
    QLabel& unusedApps() const { return *unused_; }
    QLabel& startupItems() const { return *startup_; }
    QCheckBox& watchSwitch() const { return *watch_; }
    QPushButton& findDuplicates() const { return *duplicates_; }
    // The dismiss buttons of the alerts shown, in their order.
    std::vector<QPushButton*> dismissButtons() const;

protected:
    void showEvent(QShowEvent* event) override;

private:
    void showHogs();
    void showHealth();
    void scanReports();

    Services s_;
    QWidget* alerts_;
    QLabel* hogs_;
    QLabel* daysUntilFull_;
    QCheckBox* watch_;
    QLabel* health_;
    QLabel* unused_;
    QLabel* startup_;
    QPushButton* duplicates_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
    std::vector<std::shared_ptr<void>> subscriptions_;
};

}  // namespace kestrow
