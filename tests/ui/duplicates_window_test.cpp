#include "ui/duplicates_window.h"

#include <gtest/gtest.h>

#include <QLabel>
#include <QPushButton>
#include <QTest>
#include <QTreeWidget>

#include "app/settings/standard_settings.h"
#include "core/duplicate_test_files.h"
#include "insights/duplicates_model.h"
#include "support/recording_log_sink.h"
#include "support/temp_folder.h"
#include "support/virtual_scheduler.h"
#include "ui/image_probe.h"

namespace kestrow {
namespace {

namespace fs = std::filesystem;

using duplicate_test::noise;

// A home with copies in Documents, Downloads and Desktop, the window over it in virtual time.
struct DuplicatesScreen {
    testing::TempFolder home;
    testing::RecordingLogSink sink;
    Logger log{sink, LogArea::general};
    VirtualScheduler scheduler;
    SettingsStore standard{home / ".config/kestrow/bar.vemb.orvel.plist", log};
    duplicate_test::FolderTrash trash{home / "set-aside"};
    DuplicatesModel model{{standard,
                           scheduler.mainExecutor(),
                           scheduler.makeSerialQueue(),
                           trash,
                           UserLocations::resolve(home.homeEnvironment()),
                           log,
                           {},
                           std::nullopt}};
    QString picked;
    DuplicatesWindow window{model, [this](QWidget*) { return picked; }};

    DuplicatesScreen() {
        const auto base = fs::file_time_type::clock::now() - std::chrono::hours(24 * 40);
        int day = 0;
        const auto write = [&](const std::string& name, std::size_t size, unsigned seed) {
            home.write(name, noise(size, seed));
            fs::last_write_time(home / name, base + std::chrono::hours(24 * day++));
        };
        write("Documents/Taxes 2025.pdf", 3'400'000, 1);
        write("Downloads/Taxes 2025.pdf", 3'400'000, 1);
        write("Desktop/Taxes 2025 (1).pdf", 3'400'000, 1);
        write("Downloads/holiday.mov", 12'000'000, 2);
        write("Desktop/Movies/holiday.mov", 12'000'000, 2);
        write("Downloads/small.txt", 400'000, 3);
        write("Desktop/small copy.txt", 400'000, 3);
        write("Desktop/Keynote.app/Contents/big.bin", 12'000'000, 2);
    }
    std::string path(const std::string& name) const { return (home / name).string(); }
    QString qpath(const std::string& name) const { return QString::fromStdString(path(name)); }
};

TEST(DuplicatesWindow, ShowsTheGroupsTicksTheSpareCopiesAndMovesThem) {
    DuplicatesScreen s;
    s.window.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&s.window));
    EXPECT_EQ(s.window.caption().text(),
              QStringLiteral("Desktop, Documents, Downloads. Files of 1 MB or more; app and photo "
                             "libraries are skipped."));
    EXPECT_EQ(s.window.tree().topLevelItemCount(), 0);
    EXPECT_FALSE(s.window.trashButton().isEnabled());

    QTest::mouseClick(&s.window.scanButton(), Qt::LeftButton);
    EXPECT_FALSE(s.window.scanButton().isEnabled()) << "one scan at a time";
    s.scheduler.runPending();
    ASSERT_EQ(s.window.tree().topLevelItemCount(), 2);
    const QString movies = s.window.tree().topLevelItem(0)->text(0);
    EXPECT_TRUE(movies.startsWith(QStringLiteral("12 MB \u00b7 2 copies \u00b7 12")))
        << movies.toStdString();
    EXPECT_TRUE(movies.endsWith(QStringLiteral(" to gain"))) << movies.toStdString();
    EXPECT_EQ(s.window.tree().topLevelItem(1)->childCount(), 3);
    // The filed copy stays; the downloaded one and the one on the Desktop are ticked.
    const auto checked = [&](const std::string& name) {
        const QTreeWidgetItem* item = s.window.fileItem(s.qpath(name));
        return item != nullptr && item->checkState(0) == Qt::Checked;
    };
    EXPECT_FALSE(checked("Documents/Taxes 2025.pdf"));
    EXPECT_TRUE(checked("Downloads/Taxes 2025.pdf"));
    EXPECT_TRUE(checked("Desktop/Taxes 2025 (1).pdf"));
    EXPECT_TRUE(checked("Downloads/holiday.mov"));
    EXPECT_FALSE(checked("Desktop/Movies/holiday.mov"));
    EXPECT_EQ(s.window.fileItem(s.qpath("Desktop/Keynote.app/Contents/big.bin")), nullptr);
    EXPECT_TRUE(
        s.window.status().text().startsWith(QStringLiteral("2 groups of duplicates \u00b7 ")));
    ASSERT_TRUE(s.window.grab().save(testing::screenshotPath(QStringLiteral("duplicates.png"))));

    // Unticking a copy in the window is the model's selection.
    s.window.fileItem(s.qpath("Downloads/holiday.mov"))->setCheckState(0, Qt::Unchecked);
    EXPECT_FALSE(s.model.selected.get().contains(s.path("Downloads/holiday.mov")));
    QTest::mouseClick(&s.window.trashButton(), Qt::LeftButton);
    s.scheduler.runPending();
    EXPECT_EQ(s.trash.moved, (std::vector<std::string>{s.path("Desktop/Taxes 2025 (1).pdf"),
                                                       s.path("Downloads/Taxes 2025.pdf")}));
    EXPECT_EQ(s.window.status().text(), QStringLiteral("Moved 2 files to the Trash"));
    ASSERT_EQ(s.window.tree().topLevelItemCount(), 1);
    EXPECT_FALSE(s.window.trashButton().isEnabled()) << "nothing ticked any more";

    s.picked = QString::fromStdString((s.home / "Archive").string());
    QTest::mouseClick(&s.window.addFolderButton(), Qt::LeftButton);
    EXPECT_EQ(StandardSettings(s.standard).duplicateFinderFolders(),
              std::vector<std::string>{s.picked.toStdString()});
    EXPECT_TRUE(s.window.caption().text().startsWith(
        QStringLiteral("Desktop, Documents, Downloads, ") + s.picked + QStringLiteral(". Files")));
}

}  // namespace
}  // namespace kestrow
