// Stands in for the Time Machine tool in tests, answering from files in $FAKE_TMUTIL_DIR:
//   <command>.out    written to standard output as it is (read again on every call)
//   <command>.err    written to standard error
//   <command>.delay  seconds to wait after writing, before exiting
//   <command>.exit   the exit code (0 when missing)
// where <command> is "status" (for "status -X") or "startbackup". Every call appends its
// arguments, joined by spaces, as one line to calls.log. Without the folder the known commands
// print nothing and succeed.
#include <cstdlib>
#include <string>
#include <vector>

#include "fake_tool_answer.h"

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    const char* folderVariable = std::getenv("FAKE_TMUTIL_DIR");
    const std::string folder = folderVariable != nullptr ? folderVariable : "";
    if (!folder.empty()) fake_tool::logCall(folder, arguments);

    std::string command;
    if (arguments == std::vector<std::string>{"status", "-X"}) {
        command = "status";
    } else if (arguments == std::vector<std::string>{"startbackup"}) {
        command = "startbackup";
    } else {
        fake_tool::write(stderr, "usage: fake_tmutil status -X | startbackup\n");
        return 64;
    }
    if (folder.empty()) return 0;
    const std::string base = folder + "/" + command;
    return fake_tool::answer({base + ".out", base + ".err", base + ".delay", base + ".exit"});
}
