#include "timemachine/time_machine_live_status.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "support/binary_plist.h"

namespace kestrow {
namespace {

using Live = TimeMachineLiveStatus;
using Details = TimeMachineLiveStatus::Details;

std::string xmlPlist(const std::string& body) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
           "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
           "<plist version=\"1.0\">\n" +
           body + "\n</plist>\n";
}

// The same answer as XML and as a binary plist.
std::vector<std::string> bothForms(const std::string& body) {
    const std::string xml = xmlPlist(body);
    return {xml, testing::binaryPlistFromXml(xml)};
}

const std::string kCopyingXml = xmlPlist(
    "<dict><key>BackupPhase</key><string>Copying</string>"
    "<key>ClientID</key><string>com.apple.backupd</string>"
    "<key>DateOfStateChange</key><date>2026-11-21T03:15:00Z</date>"
    "<key>DestinationID</key><string>B1E4C2A0-5F3D-4E7A-9C61-0D2B8F7E1A34</string>"
    "<key>Percent</key><real>0.42</real>"
    "<key>Progress</key><dict><key>Percent</key><real>0.42</real>"
    "<key>TimeRemaining</key><integer>1234</integer><key>bytes</key><integer>123456</integer>"
    "<key>files</key><integer>100</integer><key>totalBytes</key><integer>999999</integer>"
    "<key>totalFiles</key><integer>1000</integer></dict>"
    "<key>Running</key><integer>1</integer><key>Stopping</key><integer>0</integer></dict>");

// The same answer written by another plist writer (Python's plistlib), so the binary form is
// not only what our own test library produces.
const std::string kCopyingBinary = std::string(
    "\x62\x70\x6C\x69\x73\x74\x30\x30\xD8\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0A\x0B\x0C\x0D"
    "\x0E\x19\x1A\x5B\x42\x61\x63\x6B\x75\x70\x50\x68\x61\x73\x65\x58\x43\x6C\x69\x65\x6E\x74"
    "\x49\x44\x5F\x10\x11\x44\x61\x74\x65\x4F\x66\x53\x74\x61\x74\x65\x43\x68\x61\x6E\x67\x65"
    "\x5D\x44\x65\x73\x74\x69\x6E\x61\x74\x69\x6F\x6E\x49\x44\x57\x50\x65\x72\x63\x65\x6E\x74"
    "\x58\x50\x72\x6F\x67\x72\x65\x73\x73\x57\x52\x75\x6E\x6E\x69\x6E\x67\x58\x53\x74\x6F\x70"
    "\x70\x69\x6E\x67\x57\x43\x6F\x70\x79\x69\x6E\x67\x5F\x10\x11\x63\x6F\x6D\x2E\x61\x70\x70"
    "\x6C\x65\x2E\x62\x61\x63\x6B\x75\x70\x64\x33\x41\xC8\x58\xA2\x1A\x00\x00\x00\x5F\x10\x24"
    "\x42\x31\x45\x34\x43\x32\x41\x30\x2D\x35\x46\x33\x44\x2D\x34\x45\x37\x41\x2D\x39\x43\x36"
    "\x31\x2D\x30\x44\x32\x42\x38\x46\x37\x45\x31\x41\x33\x34\x23\x3F\xDA\xE1\x47\xAE\x14\x7A"
    "\xE1\xD6\x05\x0F\x10\x11\x12\x13\x0D\x14\x15\x16\x17\x18\x5D\x54\x69\x6D\x65\x52\x65\x6D"
    "\x61\x69\x6E\x69\x6E\x67\x55\x62\x79\x74\x65\x73\x55\x66\x69\x6C\x65\x73\x5A\x74\x6F\x74"
    "\x61\x6C\x42\x79\x74\x65\x73\x5A\x74\x6F\x74\x61\x6C\x46\x69\x6C\x65\x73\x11\x04\xD2\x12"
    "\x00\x01\xE2\x40\x10\x64\x12\x00\x0F\x42\x3F\x11\x03\xE8\x10\x01\x10\x00\x00\x08\x00\x19"
    "\x00\x25\x00\x2E\x00\x42\x00\x50\x00\x58\x00\x61\x00\x69\x00\x72\x00\x7A\x00\x8E\x00\x97"
    "\x00\xBE\x00\xC7\x00\xD4\x00\xE2\x00\xE8\x00\xEE\x00\xF9\x01\x04\x01\x07\x01\x0C\x01\x0E"
    "\x01\x13\x01\x16\x01\x18\x00\x00\x00\x00\x00\x00\x02\x01\x00\x00\x00\x00\x00\x00\x00\x1B"
    "\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x01\x1A",
    368);

// plistlib again: {"BackupPhase": "ThinningPostBackup", "Running": "1", "Percent": 1.5,
// "TimeRemaining": 0, "Progress": {"Percent": 0.3, "TimeRemaining": -1}}.
const std::string kOddBinary = std::string(
    "\x62\x70\x6C\x69\x73\x74\x30\x30\xD5\x01\x02\x03\x04\x05\x06\x07\x08\x0B\x0C\x5B\x42\x61"
    "\x63\x6B\x75\x70\x50\x68\x61\x73\x65\x57\x50\x65\x72\x63\x65\x6E\x74\x58\x50\x72\x6F\x67"
    "\x72\x65\x73\x73\x57\x52\x75\x6E\x6E\x69\x6E\x67\x5D\x54\x69\x6D\x65\x52\x65\x6D\x61\x69"
    "\x6E\x69\x6E\x67\x5F\x10\x12\x54\x68\x69\x6E\x6E\x69\x6E\x67\x50\x6F\x73\x74\x42\x61\x63"
    "\x6B\x75\x70\x23\x3F\xF8\x00\x00\x00\x00\x00\x00\xD2\x02\x05\x09\x0A\x23\x3F\xD3\x33\x33"
    "\x33\x33\x33\x33\x13\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\x51\x31\x10\x00\x08\x13\x1F\x27\x30"
    "\x38\x46\x5B\x64\x69\x72\x7B\x7D\x00\x00\x00\x00\x00\x00\x01\x01\x00\x00\x00\x00\x00\x00"
    "\x00\x0D\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x7F",
    172);

TEST(TimeMachineLiveStatus, ReadsARealCopyingAnswerInEveryForm) {
    for (const auto& output :
         {kCopyingXml, testing::binaryPlistFromXml(kCopyingXml), kCopyingBinary}) {
        const Live live = Live::from(output);
        EXPECT_TRUE(live.running);
        EXPECT_EQ(live.phase, "Copying");
        EXPECT_EQ(live.percent, 0.42);
        EXPECT_FALSE(live.unavailable);
        EXPECT_EQ(live.progressLine(), "Backing up — copying files · 42%");
        EXPECT_EQ(Live::statusDetails(output), (Details{true, 0.42, 1234.0}));
    }
}

TEST(TimeMachineLiveStatus, WrongTypesAndOutOfRangeNumbersReadAsAbsent) {
    const std::string odd =
        "<dict><key>BackupPhase</key><string>ThinningPostBackup</string>"
        "<key>Running</key><string>1</string><key>Percent</key><real>1.5</real>"
        "<key>TimeRemaining</key><integer>0</integer><key>Progress</key><dict>"
        "<key>Percent</key><real>0.3</real><key>TimeRemaining</key><integer>-1</integer>"
        "</dict></dict>";
    auto forms = bothForms(odd);
    forms.push_back(kOddBinary);
    for (const auto& output : forms) {
        const Live live = Live::from(output);
        EXPECT_FALSE(live.running);
        EXPECT_EQ(live.percent, 1.5);  // the lenient reading takes the top level as it is
        EXPECT_EQ(live.phase, "ThinningPostBackup");
        EXPECT_EQ(Live::statusDetails(output), (Details{std::nullopt, 0.3, std::nullopt}));
    }

    // "Running": a bool is not an integer; any integer other than 1 is a definite "no".
    for (const auto& output : bothForms("<dict><key>Running</key><true/></dict>")) {
        EXPECT_FALSE(Live::from(output).running);
        EXPECT_EQ(Live::statusDetails(output).running, std::nullopt);
    }
    for (const auto& output : bothForms("<dict><key>Running</key><integer>2</integer></dict>")) {
        EXPECT_FALSE(Live::from(output).running);
        EXPECT_EQ(Live::statusDetails(output).running, false);
    }

    // A top-level "Percent" that is no number falls back to "Progress"; integers are numbers.
    for (const auto& output :
         bothForms("<dict><key>Percent</key><string>0.9</string><key>BackupPhase</key><integer>3"
                   "</integer><key>Progress</key><dict><key>Percent</key><integer>1</integer>"
                   "<key>TimeRemaining</key><real>12.5</real></dict></dict>")) {
        const Live live = Live::from(output);
        EXPECT_EQ(live.percent, 1.0);
        EXPECT_EQ(live.phase, std::nullopt);
        EXPECT_EQ(Live::statusDetails(output), (Details{std::nullopt, 1.0, 12.5}));
    }

    // A "Progress" that is not a dictionary adds nothing; a NaN is never a usable percent.
    for (const auto& output :
         bothForms("<dict><key>Percent</key><real>nan</real><key>Progress</key><string>x</string>"
                   "<key>TimeRemaining</key><real>inf</real><key>BackupPhase</key>"
                   "<string>Copying</string></dict>")) {
        const Live live = Live::from(output);
        ASSERT_TRUE(live.percent);
        EXPECT_TRUE(std::isnan(*live.percent));
        EXPECT_EQ(live.progressLine(), "Backing up — copying files");
        EXPECT_EQ(Live::statusDetails(output), Details{});
    }
}

TEST(TimeMachineLiveStatus, UnreadableOutputIsNotRunning) {
    const Live nothing;
    std::vector<std::string> outputs = {
        "",
        "garbage",
        "bplist00\x01\x02",
        "Running = 1;",
        xmlPlist("<array><dict><key>Running</key><integer>1</integer></dict></array>"),
        testing::binaryPlistFromXml(
            xmlPlist("<array><dict><key>Running</key><integer>1</integer></dict></array>")),
        xmlPlist("<string>Running</string>")};
    // Cut inside the dictionary (XML) or anywhere before the trailer (binary).
    const auto dictEnd = kCopyingXml.rfind("</dict>");
    for (std::size_t cut = 0; cut < dictEnd; cut += 5)
        outputs.push_back(kCopyingXml.substr(0, cut));
    for (std::size_t cut = 0; cut < kCopyingBinary.size(); ++cut)
        outputs.push_back(kCopyingBinary.substr(0, cut));
    for (const auto& output : outputs) {
        EXPECT_EQ(Live::from(output), nothing);
        EXPECT_EQ(Live::statusDetails(output), Details{});
    }
    EXPECT_EQ(Live::from(std::nullopt), nothing);
    EXPECT_EQ(Live::statusDetails(std::nullopt), Details{});
}

TEST(TimeMachineLiveStatus, PhaseWords) {
    EXPECT_EQ(Live::phaseWords(" Copying\n"), "copying files");
    EXPECT_EQ(Live::phaseWords("MountingBackupVolForHealthCheck"), "checking destination");
    EXPECT_EQ(Live::phaseWords("HealthCheckCopyHFSMeta"), "verifying backup");
    EXPECT_EQ(Live::phaseWords("ThinningPostBackup"), "tidying up");
    EXPECT_EQ(Live::phaseWords("\tStopping\r\n"), "stopping");
    for (const auto& none :
         {std::optional<std::string>(), std::optional<std::string>(""),
          std::optional<std::string>(" \r\n"), std::optional<std::string>("BackupNotRunning\n"),
          std::optional<std::string>("_-!.")})
        EXPECT_EQ(Live::phaseWords(none), std::nullopt);

    // Phases not in the table are split at case changes; a run of capitals stays one word.
    EXPECT_EQ(Live::phaseWords("VerifyingSnapshots"), "verifying snapshots");
    EXPECT_EQ(Live::phaseWords("CopyHFSMeta"), "copy hfs meta");
    EXPECT_EQ(Live::phaseWords("CheckAPFS"), "check apfs");
    EXPECT_EQ(Live::phaseWords("Phase2Copy_Done"), "phase2 copy done");
    EXPECT_EQ(Live::phaseWords("copying"), "copying");
    EXPECT_EQ(Live::phaseWords("ZürichSync"), "zürich sync");
}

TEST(TimeMachineLiveStatus, ProgressLine) {
    const auto line = [](std::optional<std::string> phase, std::optional<double> percent) {
        return Live{true, std::move(phase), percent, std::nullopt}.progressLine();
    };
    EXPECT_EQ(line("Copying", 0.427), "Backing up — copying files · 42%");
    EXPECT_EQ(line(std::nullopt, std::nullopt), "Backing up");
    EXPECT_EQ(line("BackupNotRunning", std::nullopt), "Backing up");
    EXPECT_EQ(line(" ", 0.999), "Backing up · 99%");
    EXPECT_EQ(line("FindingChanges", 0.0), "Backing up — finding changes · 0%");
    // Values whose product with 100 falls just short of a whole number in binary.
    EXPECT_EQ(line(std::nullopt, 0.57), "Backing up · 57%");
    EXPECT_EQ(line(std::nullopt, 0.29), "Backing up · 29%");
    // Whatever the tool claims, the line stays within 0–100 or leaves the number out.
    EXPECT_EQ(line(std::nullopt, 1.5), "Backing up · 100%");
    EXPECT_EQ(line(std::nullopt, 1e300), "Backing up · 100%");
    EXPECT_EQ(line(std::nullopt, -0.2), "Backing up · 0%");
    EXPECT_EQ(line("Copying", std::numeric_limits<double>::infinity()),
              "Backing up — copying files");
    EXPECT_EQ(line("Copying", std::numeric_limits<double>::quiet_NaN()),
              "Backing up — copying files");
}

}  // namespace
}  // namespace kestrow
