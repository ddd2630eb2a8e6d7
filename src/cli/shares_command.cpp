#include "cli/shares_command.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "cli/command_context.h"
#include "shares/mount_matching.h"
#include "shares/share_editor_rules.h"
#include "shares/share_url.h"
#include "shares/vpn_presentation.h"
#include "support/iso_date.h"
#include "support/wording.h"

namespace kestrow {
namespace {

using Json = nlohmann::ordered_json;

const char* const kUsage =
    "usage: kestrow shares [--json]\n"
    "       kestrow shares add --protocol smb|webdav --host HOST --share NAME [--port N]\n"
    "                          [--user USER] [--scheme https|http] [--name NAME]\n"
    "                          [--no-auto-mount] [--password-stdin]\n"
    "       kestrow shares remove ID|NAME\n"
    "       kestrow shares mount ID|NAME [--wait]\n"
    "       kestrow shares unmount ID|NAME\n";

// A mount may wait for the server, then for a password prompt's limit (125 s).
constexpr double kMountSeconds = 160.0;
constexpr double kUnmountSeconds = 30.0;
// The keyring's own limit is 10 s.
constexpr double kSettleSeconds = 15.0;

const Wording& linuxWords() {
    static const Wording words = Wording::linux(std::nullopt);
    return words;
}

const char* stateName(VPNConnectionState state) {
    switch (state) {
        case VPNConnectionState::connected:
            return "connected";
        case VPNConnectionState::connecting:
            return "connecting";
        case VPNConnectionState::disconnecting:
            return "disconnecting";
        case VPNConnectionState::off:
            return "off";
        case VPNConnectionState::unavailable:
            return "unavailable";
        case VPNConnectionState::notConfigured:
            return "notConfigured";
    }
    return "unavailable";
}

std::string address(const SMBShare& share) {
    return displayScheme(share) + "://" + displayHost(share) + "/" + share.shareName;
}

// One share as the command reports it.
struct ShareReport {
    SMBShare share;
    std::optional<std::string> mountedAt;
    bool owned = false;
    std::optional<std::string> hint;
    Json vpn = nullptr;
};

std::vector<ShareReport> reports(SharesCommandContext& context) {
    const auto table = context.mountTable.current();
    const auto services = context.readVpns ? context.readVpns() : std::nullopt;
    std::vector<ShareReport> out;
    for (SMBShare share : context.control.shares().get()) {
        ShareReport report;
        const bool mounted = table && MountMatching::isMounted(share, *table);
        if (!context.liveStatuses) {
            // Nothing but the table knows: a share it does not show is disconnected, and a past
            // error or connection time belongs to an agent that is not there.
            if (table) share.status = mounted ? MountStatus::mounted : MountStatus::disconnected;
            share.lastError.reset();
            share.lastConnected.reset();
        }
        if (table) report.mountedAt = MountMatching::mountedPath(share, *table);
        report.owned = mounted && context.owned && context.owned(share, *table);
        report.hint = VPNPresentation::hint(share.status == MountStatus::mounted,
                                            share.vpnServiceID, share.vpnName, services);
        if (share.vpnServiceID) {
            Json state = nullptr;
            if (services) {
                const auto it =
                    std::find_if(services->begin(), services->end(),
                                 [&](const VPNService& s) { return s.id == *share.vpnServiceID; });
                state = it == services->end() ? stateName(VPNConnectionState::notConfigured)
                                              : stateName(it->state);
            }
            report.vpn = {
                {"id", *share.vpnServiceID},
                {"name", VPNPresentation::displayName(*share.vpnServiceID, share.vpnName, services)
                             .value_or(*share.vpnServiceID)},
                {"state", state}};
        }
        report.share = std::move(share);
        out.push_back(std::move(report));
    }
    return out;
}

int list(SharesCommandContext& context, bool json, std::ostream& out) {
    const auto all = reports(context);
    if (json) {
        Json array = Json::array();
        for (const ShareReport& r : all) {
            const SMBShare& s = r.share;
            const auto orNull = [](const std::optional<std::string>& text) {
                return text ? Json(*text) : Json(nullptr);
            };
            array.push_back(
                {{"id", s.id},
                 {"name", s.name},
                 {"protocol", std::string(rawText(s.connectionProtocol))},
                 {"url", address(s)},
                 {"autoMount", s.autoMount},
                 {"status", std::string(rawText(s.status))},
                 {"lastError", s.lastError ? Json(linuxWords()(*s.lastError)) : Json(nullptr)},
                 {"lastConnected",
                  s.lastConnected ? Json(formatIsoDate(*s.lastConnected)) : Json(nullptr)},
                 {"mountedAt", orNull(r.mountedAt)},
                 {"owned", r.owned},
                 {"vpn", r.vpn},
                 {"hint", orNull(r.hint)}});
        }
        out << array.dump(2) << "\n";
        return kExitDone;
    }
    if (all.empty()) out << linuxWords()(ShareEditorText::kEmptyList) << "\n";
    for (const ShareReport& r : all) {
        const SMBShare& s = r.share;
        out << s.name << "  (" << s.id << ")\n  " << address(s) << "\n  " << rawText(s.status);
        if (r.mountedAt) out << " at " << *r.mountedAt << (r.owned ? " (Kestrow's own)" : "");
        out << (s.autoMount ? "" : ", not kept connected") << "\n";
        if (s.lastError)
            out << "  " << linuxWords()(*s.lastError) << "\n";
        else if (r.hint)
            out << "  " << *r.hint << "\n";
    }
    return kExitDone;
}

// The share named by its id or its name; an error on `err` when there is none or several.
std::optional<SMBShare> find(SharesCommandContext& context, const std::string& key,
                             const std::string& command, std::ostream& err) {
    const auto& shares = context.control.shares().get();
    for (const SMBShare& share : shares)
        if (share.id == key) return share;
    std::vector<SMBShare> named;
    std::copy_if(shares.begin(), shares.end(), std::back_inserter(named),
                 [&](const SMBShare& s) { return s.name == key; });
    if (named.size() == 1) return named.front();
    err << "kestrow shares " << command << ": "
        << (named.empty() ? "no share has the id or name '" + key + "'"
                          : "more than one share is named '" + key + "'; use its id")
        << "\n";
    return std::nullopt;
}

std::optional<SMBShare> current(SharesCommandContext& context, const std::string& id) {
    for (const SMBShare& share : context.control.shares().get())
        if (share.id == id) return share;
    return std::nullopt;
}

int add(const std::vector<std::string>& args, SharesCommandContext& context, std::ostream& out,
        std::ostream& err) {
    ShareForm form;
    bool protocolGiven = false;
    bool passwordFromStdin = false;
    for (std::size_t i = 1; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg == "--no-auto-mount") {
            form.autoMount = false;
            continue;
        }
        if (arg == "--password-stdin") {
            passwordFromStdin = true;
            continue;
        }
        static const std::vector<std::string> valued{"--protocol", "--host",   "--share", "--port",
                                                     "--user",     "--scheme", "--name"};
        if (std::find(valued.begin(), valued.end(), arg) == valued.end() || i + 1 >= args.size()) {
            err << "kestrow shares add: unknown or incomplete option '" << arg << "'\n" << kUsage;
            return kExitUsage;
        }
        const std::string& value = args[++i];
        if (arg == "--protocol") {
            if (value != "smb" && value != "webdav") {
                err << "kestrow shares add: --protocol is smb or webdav\n" << kUsage;
                return kExitUsage;
            }
            form.protocol = value == "smb" ? ShareProtocol::smb : ShareProtocol::webdav;
            protocolGiven = true;
        } else if (arg == "--scheme") {
            if (value != "https" && value != "http") {
                err << "kestrow shares add: --scheme is https or http\n" << kUsage;
                return kExitUsage;
            }
            form.scheme = value == "https" ? WebDAVScheme::https : WebDAVScheme::http;
        } else if (arg == "--host") {
            form.host = value;
        } else if (arg == "--share") {
            form.shareName = value;
        } else if (arg == "--port") {
            form.portText = value;
        } else if (arg == "--user") {
            form.username = value;
        } else {
            form.name = value;
        }
    }
    if (!protocolGiven) {
        err << "kestrow shares add: --protocol is needed\n" << kUsage;
        return kExitUsage;
    }
    if (const auto problem = shareFormProblem(form)) {
        err << "kestrow shares add: " << problemSentence(*problem) << "\n";
        return kExitUsage;
    }
    std::string password;
    if (passwordFromStdin) {
        auto line = context.readPassword ? context.readPassword() : std::nullopt;
        if (!line || line->empty()) {
            err << "kestrow shares add: no password was given on standard input\n";
            return kExitFailed;
        }
        password = std::move(*line);
    }
    const SMBShare record = shareRecord(form);
    context.control.add(record, password);
    std::fill(password.begin(), password.end(), '\0');
    if (!context.runUntil(context.settled, kSettleSeconds)) {
        err << "kestrow shares add: the keyring did not answer\n";
        return kExitFailed;
    }
    out << record.id << "\n";
    return kExitDone;
}

int remove(const std::vector<std::string>& args, SharesCommandContext& context, std::ostream& err) {
    if (args.size() != 2) {
        err << kUsage;
        return kExitUsage;
    }
    const auto share = find(context, args[1], "remove", err);
    if (!share) return kExitFailed;
    context.control.remove(*share);
    if (!context.runUntil(context.settled, kSettleSeconds)) {
        err << "kestrow shares remove: the keyring did not answer\n";
        return kExitFailed;
    }
    return kExitDone;
}

int mount(const std::vector<std::string>& args, SharesCommandContext& context, std::ostream& out,
          std::ostream& err) {
    const bool wait = std::find(args.begin(), args.end(), "--wait") != args.end();
    if (args.size() != (wait ? 3u : 2u) || args[1] == "--wait") {
        err << kUsage;
        return kExitUsage;
    }
    const auto share = find(context, args[1], "mount", err);
    if (!share) return kExitFailed;
    context.control.mount(*share);
    // A running agent carries on by itself; a share manager of this process must finish first.
    if (!wait && context.liveStatuses) return kExitDone;
    bool seenConnecting = false;
    const auto ended = [&] {
        const auto now = current(context, share->id);
        if (!now) return true;
        if (now->status == MountStatus::connecting) seenConnecting = true;
        if (now->status == MountStatus::mounted) return true;
        // Before the attempt has begun its status is still the old one.
        return (seenConnecting || now->lastError) && now->status != MountStatus::connecting;
    };
    context.runUntil(ended, kMountSeconds);
    const auto now = current(context, share->id);
    if (now && now->status == MountStatus::mounted) {
        out << now->name << ": " << rawText(now->status) << "\n";
        return kExitDone;
    }
    err << "kestrow shares mount: "
        << (now && now->lastError ? linuxWords()(*now->lastError)
                                  : std::string("the share did not connect"))
        << "\n";
    return kExitFailed;
}

int unmount(const std::vector<std::string>& args, SharesCommandContext& context, std::ostream& out,
            std::ostream& err) {
    if (args.size() != 2) {
        err << kUsage;
        return kExitUsage;
    }
    const auto share = find(context, args[1], "unmount", err);
    if (!share) return kExitFailed;
    const auto table = context.mountTable.current();
    const bool mounted = table && MountMatching::isMounted(*share, *table);
    // The manager leaves alone what it did not make, and says why in the share's last error.
    const bool leftAlone = !table || (mounted && !(context.owned && context.owned(*share, *table)));
    context.control.unmount(*share);
    if (leftAlone) {
        const auto now = current(context, share->id);
        err << "kestrow shares unmount: "
            << linuxWords()(now && now->lastError ? *now->lastError
                                                  : "Could not tell who connected it — left alone")
            << "\n";
        return kExitFailed;
    }
    const auto disconnected = [&] {
        const auto now = current(context, share->id);
        return !now || (now->status == MountStatus::disconnected && !now->lastError);
    };
    if (!context.runUntil(disconnected, kUnmountSeconds)) {
        const auto now = current(context, share->id);
        err << "kestrow shares unmount: "
            << (now && now->lastError ? linuxWords()(*now->lastError)
                                      : std::string("the share did not disconnect"))
            << "\n";
        return kExitFailed;
    }
    out << share->name << ": " << rawText(MountStatus::disconnected) << "\n";
    return kExitDone;
}

}  // namespace

int runSharesCommand(const std::vector<std::string>& args, SharesCommandContext& context,
                     std::ostream& out, std::ostream& err) {
    if (!args.empty() && args[0] == "add") return add(args, context, out, err);
    if (!args.empty() && args[0] == "remove") return remove(args, context, err);
    if (!args.empty() && args[0] == "mount") return mount(args, context, out, err);
    if (!args.empty() && args[0] == "unmount") return unmount(args, context, out, err);
    bool json = false;
    for (const auto& arg : args) {
        if (arg != "--json") {
            err << "kestrow shares: unknown option '" << arg << "'\n" << kUsage;
            return kExitUsage;
        }
        json = true;
    }
    return list(context, json, out);
}

}  // namespace kestrow
