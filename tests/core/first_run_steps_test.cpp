#include "app/first_run_steps.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace kestrow {
namespace {

std::vector<std::string> allTexts(const FirstRunContent& content) {
    std::vector<std::string> texts{content.title, content.headline, content.notice, content.footer};
    for (const StepCard& step : content.steps) {
        texts.push_back(step.title);
        texts.push_back(step.text);
        texts.push_back(step.buttonTitle);
    }
    return texts;
}

bool anyContains(const FirstRunContent& content, const std::string& word) {
    for (const std::string& text : allTexts(content))
        if (text.find(word) != std::string::npos) return true;
    return false;
}

FirstRunFacts linuxFacts(std::optional<std::string> source, bool restic, bool dejaDup) {
    FirstRunFacts facts;
    facts.backupSetup = BackupSetupFacts{std::move(source), restic, dejaDup};
    return facts;
}

TEST(FirstRunSteps, TheTimeMachineEditionKeepsItsAccessStepAndTextsExactly) {
    FirstRunFacts facts;
    facts.accessAsked = true;
    const FirstRunContent content = firstRunContent(facts);
    EXPECT_EQ(content.headline, "Know your Mac is backed up. Keep your servers mounted.");
    EXPECT_EQ(content.footer, "Kestrow lives in your menu bar — look for the rings.");
    EXPECT_TRUE(content.notice.empty());
    ASSERT_EQ(content.steps.size(), 4U);
    EXPECT_EQ(content.steps[0].text,
              "Kestrow needs Full Disk Access to read your Time Machine status.");
    EXPECT_EQ(content.steps[0].buttonTitle, "Open System Settings");
    EXPECT_EQ(content.steps[0].action, StepAction::openSystemSettings);
    EXPECT_EQ(content.steps[3].text,
              "See your backup protection at a glance on the desktop or in Notification Center.");

    EXPECT_TRUE(firstRunWindowNeeded(facts));
    facts.hasAccess = true;
    EXPECT_FALSE(firstRunWindowNeeded(facts));
}

TEST(FirstRunSteps, OnLinuxWithoutABackupTheFirstStepCreatesOneAndTheWindowSaysSo) {
    const FirstRunFacts facts = linuxFacts(std::nullopt, false, false);
    const FirstRunContent content = firstRunContent(facts);
    ASSERT_EQ(content.steps.size(), 4U);
    const StepCard& first = content.steps[0];
    EXPECT_EQ(first.number, 1);
    EXPECT_EQ(first.title, "Set Up a Backup");
    EXPECT_EQ(first.action, StepAction::createBackup);
    EXPECT_EQ(first.buttonTitle, "Create Backup…");
    EXPECT_FALSE(first.done);
    EXPECT_TRUE(first.buttonShown);
    EXPECT_EQ(content.notice, "This computer is not backed up yet: no backup is set up.");
    EXPECT_TRUE(firstRunWindowNeeded(facts));

    // Nothing of the Mac is left in what a Linux user reads, and the other steps stay in place.
    for (const char* macWord : {"Full Disk Access", "Mac", "menu bar", "Notification Center",
                                "System Settings", "Time Machine"})
        EXPECT_FALSE(anyContains(content, macWord)) << macWord;
    EXPECT_EQ(content.headline, "Know your computer is backed up. Keep your servers mounted.");
    EXPECT_EQ(content.footer, "Kestrow lives in your system tray — look for the rings.");
    EXPECT_EQ(content.steps[1].action, StepAction::enableStartAtLaunch);
    EXPECT_EQ(content.steps[2].action, StepAction::addServer);
    EXPECT_FALSE(content.steps[2].buttonEnabled) << "no share editor to open";
    FirstRunFacts withShares = facts;
    withShares.canAddServers = true;
    withShares.hasShares = true;
    const StepCard servers = firstRunContent(withShares).steps[2];
    EXPECT_TRUE(servers.buttonEnabled);
    EXPECT_TRUE(servers.done);
    EXPECT_TRUE(servers.buttonShown) << "more servers can always be added";
    EXPECT_EQ(content.steps[3].action, StepAction::viewWidgetInstructions);
    EXPECT_EQ(content.steps[3].number, 4);
}

TEST(FirstRunSteps, DejaDupAlreadySetUpIsOfferedWithOneButton) {
    const FirstRunContent offered = firstRunContent(linuxFacts(std::nullopt, false, true));
    EXPECT_EQ(offered.steps[0].buttonTitle, "Use Déjà Dup");
    EXPECT_EQ(offered.steps[0].action, StepAction::useDejaDup);
    EXPECT_FALSE(offered.steps[0].done);

    // Taken up: the step is done, with nothing left for its button to do.
    const FirstRunFacts watched = linuxFacts("Déjà Dup", false, true);
    const FirstRunContent content = firstRunContent(watched);
    EXPECT_TRUE(content.steps[0].done);
    EXPECT_FALSE(content.steps[0].buttonShown);
    EXPECT_NE(content.steps[0].text.find("Backups by Déjà Dup"), std::string::npos);
    EXPECT_TRUE(content.notice.empty());
    EXPECT_FALSE(firstRunWindowNeeded(watched));
}

TEST(FirstRunSteps, WithResticJobsTheStepIsDoneAndMoreCanBeAdded) {
    const FirstRunFacts facts = linuxFacts("restic", true, true);
    const FirstRunContent content = firstRunContent(facts);
    EXPECT_TRUE(content.steps[0].done);
    EXPECT_TRUE(content.steps[0].buttonShown);
    EXPECT_EQ(content.steps[0].action, StepAction::createBackup);
    EXPECT_EQ(content.steps[0].buttonTitle, "Add Backup…");
    EXPECT_FALSE(firstRunWindowNeeded(facts));
    // Start at launch is still its own step, done or not as before.
    FirstRunFacts started = facts;
    started.startAtLaunchEnabled = true;
    EXPECT_TRUE(firstRunContent(started).steps[1].done);
    EXPECT_FALSE(firstRunContent(started).steps[1].buttonShown);
}

}  // namespace
}  // namespace kestrow
