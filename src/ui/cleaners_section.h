#pragma once

#include <QWidget>

#include <memory>
#include <vector>

#include "platform/locations.h"

class QCheckBox;
class QLabel;
class QPushButton;

namespace kestrow {

class BrowserCacheReclaimer;
class Executor;
class MaintenanceCleaner;
class SettingsStore;

// The menu's "Weekly cleaners": a switch per cleaner that makes sense on this machine with what
// its last pass did, the browser caches with what they need, what the cleaners could free now,
// and the button that frees it.
class CleanersSection : public QWidget {
    Q_OBJECT

public:
    struct Services {
        SettingsStore& standardStore;
        MaintenanceCleaner& developer;
        BrowserCacheReclaimer& browsers;
        Executor& mainExecutor;
        Executor& worker;  // measuring reads the disk
        UserLocations folders;
        bool xcodeInstalled = false;
    };

    explicit CleanersSection(Services services, QWidget* parent = nullptr);
    ~CleanersSection() override;

    // The switch of a developer cleaner by id, or of the browser caches ("browsers").
    QCheckBox* toggle(const QString& id) const;
    QLabel& estimate() const { return *estimate_; }
    QLabel& result() const { return *result_; }
    QPushButton& freeUp() const { return *freeUp_; }
    // Reads the rows again and measures what the cleaners could free.
    void refresh();

protected:
    void showEvent(QShowEvent* event) override;

private:
    void rebuildRows();
    void measure();

    Services s_;
    QWidget* rows_;
    QLabel* estimate_;
    QPushButton* freeUp_;
    QLabel* result_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
    int measuring_ = 0;  // the newest measurement wins
    std::vector<std::shared_ptr<void>> subscriptions_;
};

}  // namespace kestrow
