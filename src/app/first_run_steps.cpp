#include "app/first_run_steps.h"

namespace kestrow {

FirstRunContent firstRunContent(const FirstRunFacts& facts, const Wording& wording) {
    FirstRunContent content;
    content.title = "Kestrow";
    content.headline = "Know your Mac is backed up. Keep your servers mounted.";
    content.footer = "Kestrow lives in your menu bar — look for the rings.";
    content.steps = {
        StepCard{1, "Full Disk Access",
                 "Kestrow needs Full Disk Access to read your Time Machine status.",
                 facts.accessAsked ? "Open System Settings" : "Grant Permission", facts.hasAccess,
                 facts.accessAsked ? StepAction::openSystemSettings : StepAction::grantAccess, true,
                 !facts.hasAccess},
        StepCard{2, "Start at Launch",
                 "Run in the background so status stays current after you log in.", "Turn On",
                 facts.startAtLaunchEnabled, StepAction::enableStartAtLaunch, true,
                 !facts.startAtLaunchEnabled},
        StepCard{3, "Network Shares",
                 "Network shares you add are mounted automatically and reconnected after sleep or "
                 "network changes.",
                 "Add Server…", facts.hasShares, StepAction::addServer, false},
        StepCard{4, "Widgets",
                 "See your backup protection at a glance on the desktop or in Notification Center.",
                 "View Instructions", false, StepAction::viewWidgetInstructions, true},
    };
    content.headline = wording(content.headline);
    content.footer = wording(content.footer);
    for (StepCard& step : content.steps) {
        step.title = wording(step.title);
        step.text = wording(step.text);
        step.buttonTitle = wording(step.buttonTitle);
    }
    return content;
}

}  // namespace kestrow
