// A program's standard output cut into pieces anywhere, read line by line under a small bound.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "support/line_assembler.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2) return 0;
    // The first byte picks the bound, the second the size of the pieces.
    const std::size_t limit = data[0] % 64;
    const std::size_t piece = 1 + data[1] % 16;
    const std::string_view stream(reinterpret_cast<const char*>(data) + 2, size - 2);
    kestrow::LineAssembler assembler(limit);
    std::size_t delivered = 0;
    const auto check = [&](std::string_view line) {
        // A line never holds its newline, never outgrows the bound, and is never more than
        // what came in.
        if (line.find('\n') != std::string_view::npos || line.size() > limit) std::abort();
        delivered += line.size();
        if (delivered > stream.size()) std::abort();
    };
    for (std::size_t at = 0; at < stream.size(); at += piece)
        assembler.feed(stream.substr(at, piece), check);
    assembler.finish(check);
    return 0;
}
