#include "support/wording.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <string>
#include <vector>

#include "app/first_run_steps.h"
#include "app/headless_shell.h"
#include "cleaners/browser_cache_targets.h"
#include "cleaners/free_up_summary.h"
#include "insights/duplicate_group.h"
#include "menu/menu_alert_text.h"
#include "summarizer/status_summary_prompt.h"
#include "support/recording_log_sink.h"
#include "support/time_machine_fakes.h"
#include "timemachine/protection_state_evaluator.h"

namespace kestrow {
namespace {

using K = MenuAlertKind;

// The macOS things no Linux user should be shown.
const std::vector<std::string> kMacWords{
    "Mac", "Finder", "Time Machine", "System Settings", "Full Disk Access", "macOS", "Keychain"};

bool names(const std::string& text, const std::string& word) {
    return std::regex_search(text, std::regex("\\b" + word + "\\b"));
}

void add(std::vector<std::string>& texts, const MenuAlertText& card) {
    texts.push_back(card.headline);
    if (card.explanation) texts.push_back(*card.explanation);
    for (const auto& button : card.buttons) {
        texts.push_back(button.title);
        if (!button.help.empty()) texts.push_back(button.help);
    }
}

// The verdict lines and Back Up Now errors that name Time Machine, made by the code that makes
// them. They are shown through a Wording by whoever shows them.
std::vector<std::string> backupTexts() {
    std::vector<std::string> texts;
    const auto evaluator = ProtectionStateEvaluator::fromThresholdHours(std::nullopt);
    const WallTime now = VirtualScheduler::defaultStart();
    ProtectionStateEvaluator::Facts notConfigured;
    notConfigured.now = now;
    ProtectionStateEvaluator::Facts silent;
    silent.timeMachineConfigured = true;
    silent.lastSuccessful = addSeconds(now, -30 * 3600.0);
    silent.lastAttempt = addSeconds(now, -2 * 3600.0);
    silent.backupRunning = false;
    silent.lastResult = 19;
    silent.failureReasonReadable = true;
    silent.now = now;
    ProtectionStateEvaluator::Facts cutOff = silent;
    cutOff.failureReason = "The backup disk image disconnected during the backup";
    cutOff.batteryLidSleepDuringBackup = addSeconds(now, -3600.0);
    for (const auto& facts : {notConfigured, silent, cutOff}) {
        for (const auto& reason : evaluator.evaluate(facts).reasons) texts.push_back(reason);
    }

    testing::BackupStatusRig rig;
    Destination disk;
    disk.snapshots = {rig.hoursAgo(2)};
    disk.attempts = disk.snapshots;
    rig.seed({disk}, disk);
    rig.model.refresh();
    for (const StartBackupOutcome& outcome :
         {StartBackupOutcome{StartBackupOutcome::LaunchFailed{"no such file"}},
          StartBackupOutcome{StartBackupOutcome::Refused{75}},
          StartBackupOutcome{StartBackupOutcome::Accepted{}}}) {
        rig.tools.startAnswer = outcome;
        rig.model.startBackup();
        rig.scheduler.advance(BackupStatusModel::kStartLimitSeconds + 1);
        if (const auto error = rig.model.startError.get()) texts.push_back(*error);
    }
    return texts;
}

// Every fixed text outside the backup section that names a macOS thing, as its owner says it in
// `wording`, and the backup texts as the menu shows them through it.
std::vector<std::string> shownTexts(const Wording& wording) {
    std::vector<std::string> texts;
    for (const K& kind : {K{K::SettingsAccess{}}, K{K::LocalNetwork{}}, K{K::BootDisk{"Failing"}},
                          K{K::BackupDisk{"Failing"}}, K{K::BackupOutOfSpace{}},
                          K{K::Unscheduled{}}, K{K::Hog{3}}, K{K::Space{}}, K{K::Retention{}}}) {
        add(texts, MenuAlertText::of(kind, wording));
    }
    for (const bool asked : {false, true}) {
        const FirstRunContent content = firstRunContent({.accessAsked = asked}, wording);
        texts.insert(texts.end(), {content.title, content.headline, content.footer});
        for (const StepCard& step : content.steps)
            texts.insert(texts.end(), {step.title, step.text, step.buttonTitle});
    }
    using Busy = FreeUpSummary::Busy;
    texts.push_back(FreeUpSummary::line(wording, 0, {}, true, {Busy::developer, Busy::browsers}));
    texts.push_back(BrowserCacheTargets::accessCaption({"Chrome"}, wording).value_or(""));
    texts.push_back(StatusSummaryPrompt::instructions(wording));
    texts.push_back(StatusSummaryPrompt::build(
        StatusFact::facts(std::vector<std::string>{"Backup in progress"}), wording));
    const DuplicateGroup clones{
        {{"/h/a", 4'000'000, 1, 0, {}, 0, "", ""}, {"/h/b", 4'000'000, 2, 0, {}, 0, "", ""}}};
    texts.push_back(gainText(clones, true, wording).value_or(""));

    testing::RecordingLogSink sink;
    HeadlessShell(Logger(sink, LogArea::general), wording).showFirstRunWindow();
    for (const auto& message : sink.messages()) texts.push_back(message);

    for (const auto& text : backupTexts()) texts.push_back(wording(text));
    return texts;
}

TEST(Wording, OnLinuxNoTextNamesAMacThingAndEachReadsAsASentence) {
    for (const std::optional<std::string>& source :
         {std::optional<std::string>(), std::optional<std::string>("restic"),
          std::optional<std::string>("Déjà Dup"), std::optional<std::string>("Time Machine")}) {
        const Wording linux = Wording::linux(source);
        // Time Machine as the source keeps its own name, and only that.
        const bool timeMachine = source == "Time Machine";
        for (const std::string& text : shownTexts(linux)) {
            for (const std::string& word : kMacWords) {
                if (timeMachine && word == "Time Machine") continue;
                EXPECT_FALSE(names(text, word)) << source.value_or("no source") << ": " << text;
            }
            // An article before the source's name must not double up with the one the name
            // brings along, and a swap must not leave a gap behind.
            EXPECT_FALSE(names(text, "[Tt]he the")) << text;
            EXPECT_EQ(text.find("  "), std::string::npos) << text;
            // Texts are worded where they are made and again where they are shown.
            EXPECT_EQ(linux(text), text) << "worded twice reads differently: " << text;
        }
    }
}

TEST(Wording, ExactKeepsEveryProductTextAsWritten) {
    const std::vector<std::string> texts = shownTexts(Wording::exact());
    // Each macOS noun the product uses is still there: nothing was translated on the way.
    for (const char* word :
         {"Mac", "Finder", "Time Machine", "System Settings", "Full Disk Access", "macOS"}) {
        EXPECT_TRUE(std::any_of(texts.begin(), texts.end(), [&](const std::string& text) {
            return names(text, word);
        })) << word;
    }
}

TEST(Wording, SaysTheSourcesNameAndTheLinuxNounsInPlace) {
    const Wording restic = Wording::linux("restic");
    const Wording none = Wording::linux(std::nullopt);
    const Wording timeMachine = Wording::linux("Time Machine");

    // A source's name keeps its own case even where it opens a sentence: restic is "restic".
    EXPECT_EQ(restic("Time Machine didn't say why (code 19)"), "restic didn't say why (code 19)");
    EXPECT_EQ(none("Time Machine didn't say why (code 19)"), "The backup didn't say why (code 19)");
    EXPECT_EQ(none("Kestrow can't read the Time Machine settings."),
              "Kestrow can't read the backup settings.");
    EXPECT_EQ(restic("Kestrow can't read the Time Machine settings."),
              "Kestrow can't read the restic settings.");
    EXPECT_EQ(Wording::linux("Déjà Dup")("Time Machine is not configured"),
              "Déjà Dup is not configured");
    EXPECT_EQ(none("Time Machine is not configured"), "No backup is set up");

    // Only whole words: neither a longer word nor a name made of one is touched.
    EXPECT_EQ(restic("MacBook Machinery Finders FinderX TimeMachine"),
              "MacBook Machinery Finders FinderX TimeMachine");
    EXPECT_EQ(restic("Back up this Mac's disk to the Mac"),
              "Back up this computer's disk to the computer");
    EXPECT_EQ(restic("Saved in the macOS Keychain, listed in Login Items"),
              "Saved in the keyring, listed in autostart");

    // Time Machine's sentences about what Time Machine does stay while it is the source.
    const std::string retention =
        "The backup disk is full, so Time Machine is deleting history faster than you may want.";
    EXPECT_EQ(timeMachine(retention), retention);
    EXPECT_EQ(restic(retention), "The backup disk is nearly full, so new backups may not fit.");
    EXPECT_EQ(timeMachine("Reveal in Finder"), "Reveal in Files");
}

}  // namespace
}  // namespace kestrow
