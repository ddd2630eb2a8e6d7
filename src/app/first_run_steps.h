#pragma once

#include <string>
#include <vector>

#include "support/wording.h"

namespace kestrow {

enum class StepAction {
    grantAccess,
    openSystemSettings,
    enableStartAtLaunch,
    addServer,
    viewWidgetInstructions
};

// One numbered card of the first-run window. A done card shows a check mark instead of its number.
struct StepCard {
    int number = 0;
    std::string title;
    std::string text;
    std::string buttonTitle;
    bool done = false;
    StepAction action = StepAction::grantAccess;
    // False where the button has nothing to do yet (the share editor is not part of this build).
    bool buttonEnabled = true;
    // False once pressing it again would have nothing left to do.
    bool buttonShown = true;
};

// What the first-run window shows depends on these facts only.
struct FirstRunFacts {
    bool hasAccess = false;
    // The user already pressed "Grant Permission" and access is still missing.
    bool accessAsked = false;
    bool startAtLaunchEnabled = false;
    bool hasShares = false;
};

struct FirstRunContent {
    std::string title;
    std::string headline;
    std::vector<StepCard> steps;
    std::string footer;
};

// The window's texts are the product's, said in `wording`.
FirstRunContent firstRunContent(const FirstRunFacts& facts, const Wording& wording);

}  // namespace kestrow
