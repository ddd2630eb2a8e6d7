#include "child_modes.h"

#include <QCoreApplication>

#include <cstdio>
#include <string>
#include <string_view>

#include "platform/linux/journal_log_sink.h"
#include "platform/linux/single_instance.h"

namespace kestrow::testing {
namespace {

int logEveryLevel(const std::string& token) {
    const auto sink = makeSystemLogSink();
    for (const LogLevel level :
         {LogLevel::debug, LogLevel::info, LogLevel::notice, LogLevel::error, LogLevel::fault}) {
        sink->write(level, std::string(levelName(level)) + " " + token);
    }
    return 0;
}

int claim(int argc, char** argv, const std::string& folder) {
    QCoreApplication app(argc, argv);
    SingleInstance instance{std::filesystem::path(folder)};
    switch (instance.claim()) {
        case SingleInstance::Role::primary:
            std::puts("primary");
            break;
        case SingleInstance::Role::handedOver:
            std::puts("handedOver");
            break;
        case SingleInstance::Role::failed:
            std::printf("failed: %s\n", instance.errorText().c_str());
            break;
    }
    return 0;
}

}  // namespace

std::optional<int> runChildMode(int argc, char** argv) {
    if (argc != 4 || std::string_view(argv[1]) != "--kestrow-child") return std::nullopt;
    const std::string_view mode = argv[2];
    if (mode == "journal") return logEveryLevel(argv[3]);
    if (mode == "claim") return claim(argc, argv, argv[3]);
    std::fprintf(stderr, "unknown child mode %s\n", argv[2]);
    return 2;
}

}  // namespace kestrow::testing
