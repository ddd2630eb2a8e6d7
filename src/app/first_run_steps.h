#pragma once

#include <optional>
#include <string>
#include <vector>

#include "support/wording.h"

namespace kestrow {

enum class StepAction {
    grantAccess,
    openSystemSettings,
    enableStartAtLaunch,
    addServer,
    viewWidgetInstructions,
    // Linux: make a restic backup job (the job editor opens).
    createBackup,
    // Linux: Déjà Dup already backs this computer up; take it as the backup to watch.
    useDejaDup,
};

// One numbered card of the first-run window. A done card shows a check mark instead of its number.
struct StepCard {
    int number = 0;
    std::string title;
    std::string text;
    std::string buttonTitle;
    bool done = false;
    StepAction action = StepAction::grantAccess;
    // False where the button has nothing to do (no share editor to open).
    bool buttonEnabled = true;
    // False once pressing it again would have nothing left to do.
    bool buttonShown = true;
};

// On Linux nothing needs a permission to be read: the first step is to have a backup at all.
struct BackupSetupFacts {
    // The active backup source's name ("restic", "Déjà Dup", "Time Machine"); none while no
    // source is configured.
    std::optional<std::string> sourceName{};
    // Whether the active source is Kestrow's own restic jobs, to which more can be added.
    bool sourceIsRestic = false;
    bool dejaDupConfigured = false;
};

// What the first-run window shows depends on these facts only.
struct FirstRunFacts {
    bool hasAccess = false;
    // The user already pressed "Grant Permission" and access is still missing.
    bool accessAsked = false;
    bool startAtLaunchEnabled = false;
    bool hasShares = false;
    // A share editor is there to open (the desktop side has the share manager).
    bool canAddServers = false;
    // Present on Linux: the backup step replaces the access step, and every text is worded for
    // Linux and the active source.
    std::optional<BackupSetupFacts> backupSetup{};
};

struct FirstRunContent {
    std::string title;
    std::string headline;
    // Above the steps when something needs doing first; empty otherwise.
    std::string notice;
    std::vector<StepCard> steps;
    std::string footer;
};

// The window's texts are the product's, said in `wording`.
FirstRunContent firstRunContent(const FirstRunFacts& facts,
                                const Wording& wording = Wording::exact());

// Whether the first-run window opens by itself at launch (not launched as a login item): while
// the Time Machine settings cannot be read, or on Linux while no backup source is configured.
bool firstRunWindowNeeded(const FirstRunFacts& facts);

}  // namespace kestrow
