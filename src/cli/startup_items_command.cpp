#include "cli/startup_items_command.h"

#include <nlohmann/json.hpp>

#include "insights/startup_items.h"

namespace kestrow {
namespace {

const char* const kStartupItemsUsage = "usage: kestrow startup-items [--json]\n";

const char* heading(StartupItem::Scope scope) {
    switch (scope) {
        case StartupItem::Scope::userAgent:
            return "Started when you log in:";
        case StartupItem::Scope::systemAgent:
            return "Started when anyone logs in:";
        case StartupItem::Scope::systemDaemon:
            return "Started with the system:";
    }
    return "";
}

}  // namespace

int runStartupItemsCommand(const CommandContext& context) {
    bool json = false;
    for (const auto& arg : context.arguments) {
        if (arg != "--json") {
            context.err << "kestrow startup-items: unknown option '" << arg << "'\n"
                        << kStartupItemsUsage;
            return kExitUsage;
        }
        json = true;
    }
    const auto items = StartupItems::list(StartupItems::Roots::standard(context.locations()));
    if (json) {
        nlohmann::ordered_json list = nlohmann::ordered_json::array();
        for (const StartupItem& item : items) {
            list.push_back({{"label", item.label},
                            {"program", item.program ? nlohmann::ordered_json(*item.program)
                                                     : nlohmann::ordered_json(nullptr)},
                            {"file", item.file},
                            {"scope", StartupItem::scopeName(item.scope)}});
        }
        context.out << list.dump(2) << "\n";
        return kExitDone;
    }
    if (items.empty()) context.out << "Nothing starts by itself\n";
    const StartupItem* previous = nullptr;
    for (const StartupItem& item : items) {
        if (previous == nullptr || previous->scope != item.scope)
            context.out << heading(item.scope) << "\n";
        context.out << "  " << item.label << "  " << item.program.value_or("(no program)") << "  "
                    << item.file << "\n";
        previous = &item;
    }
    return kExitDone;
}

}  // namespace kestrow
