// A process's arguments are whatever it was started with or wrote over them since: any of them
// must be read without a crash, name at most one script or module, and a script's name never
// keeps a folder.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cleaners/developer_cleaners.h"
#include "platform/locations.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    std::vector<std::string> arguments;
    std::size_t start = 0;
    while (start < text.size()) {
        const std::size_t end = std::min(text.find('\0', start), text.size());
        arguments.emplace_back(text, start, end - start);
        start = end + 1;
    }
    const auto run = kestrow::InterpretedScript::of(arguments);
    if (run && !run->script.empty() && !run->module.empty()) __builtin_trap();
    if (run && run->script.find('/') != std::string::npos) __builtin_trap();

    static const auto folders =
        kestrow::UserLocations::resolve([](std::string_view name) -> std::optional<std::string> {
            if (name == "HOME") return std::string("/nonexistent-home");
            return std::nullopt;
        });
    kestrow::RunningProcess process{"x", std::nullopt, arguments};
    for (int withPath = 0; withPath < 2; ++withPath) {
        if (withPath == 1 && !arguments.empty()) process.path = arguments.front();
        for (const auto& id : kestrow::DeveloperCleaners::ids())
            (void)kestrow::DeveloperCleaners::make(id, folders)->owner().matches(process);
    }
    return 0;
}
