#include "app/first_run_steps.h"

#include "support/wording.h"

namespace kestrow {
namespace {

StepCard accessStep(const FirstRunFacts& facts) {
    return StepCard{1,
                    "Full Disk Access",
                    "Kestrow needs Full Disk Access to read your Time Machine status.",
                    facts.accessAsked ? "Open System Settings" : "Grant Permission",
                    facts.hasAccess,
                    facts.accessAsked ? StepAction::openSystemSettings : StepAction::grantAccess,
                    true,
                    !facts.hasAccess};
}

StepCard backupStep(const BackupSetupFacts& setup) {
    StepCard card{1, "Set Up a Backup", "", "", false, StepAction::createBackup, true, true};
    if (setup.sourceName) {
        card.done = true;
        card.text = "Backups by " + *setup.sourceName +
                    ". Kestrow watches them and tells you when this computer falls behind.";
        // More restic jobs can always be added; another source is set up in its own app.
        card.buttonTitle = "Add Backup…";
        card.buttonShown = setup.sourceIsRestic;
    } else if (setup.dejaDupConfigured) {
        card.text =
            "Déjà Dup is set up on this computer. Kestrow can watch its backups and tell you "
            "when they fall behind.";
        card.buttonTitle = "Use Déjà Dup";
        card.action = StepAction::useDejaDup;
    } else {
        card.text =
            "Back up your home folder every hour with restic, to a drive, a folder or a server "
            "you choose.";
        card.buttonTitle = "Create Backup…";
    }
    return card;
}

}  // namespace

FirstRunContent firstRunContent(const FirstRunFacts& facts, const Wording& wording) {
    FirstRunContent content;
    content.title = "Kestrow";
    content.headline = "Know your Mac is backed up. Keep your servers mounted.";
    content.footer = "Kestrow lives in your menu bar — look for the rings.";
    content.steps = {
        facts.backupSetup ? backupStep(*facts.backupSetup) : accessStep(facts),
        StepCard{2, "Start at Launch",
                 "Run in the background so status stays current after you log in.", "Turn On",
                 facts.startAtLaunchEnabled, StepAction::enableStartAtLaunch, true,
                 !facts.startAtLaunchEnabled},
        StepCard{3, "Network Shares",
                 "Network shares you add are mounted automatically and reconnected after sleep or "
                 "network changes.",
                 "Add Server…", facts.hasShares, StepAction::addServer, facts.canAddServers},
        StepCard{4, "Widgets",
                 "See your backup protection at a glance on the desktop or in Notification Center.",
                 "View Instructions", false, StepAction::viewWidgetInstructions, true},
    };
    // On Linux the backup step decides the words: they follow the source it names.
    const Wording words =
        facts.backupSetup ? Wording::linux(facts.backupSetup->sourceName) : wording;
    if (facts.backupSetup && !facts.backupSetup->sourceName)
        content.notice = "This computer is not backed up yet: no backup is set up.";
    content.headline = words(content.headline);
    content.footer = words(content.footer);
    for (StepCard& step : content.steps) {
        step.title = words(step.title);
        step.text = words(step.text);
        step.buttonTitle = words(step.buttonTitle);
    }
    return content;
}

bool firstRunWindowNeeded(const FirstRunFacts& facts) {
    if (facts.backupSetup) return !facts.backupSetup->sourceName.has_value();
    return !facts.hasAccess;
}

}  // namespace kestrow
