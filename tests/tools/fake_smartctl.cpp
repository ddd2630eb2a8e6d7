// Stands in for smartctl in tests, answering from files in $FAKE_SMARTCTL_DIR:
//   output.json  written to standard output as it is (read again on every call)
//   delay        seconds to wait after writing, before exiting
//   exit         the exit code (0 when missing); smartctl's is a bit mask, so a disk that
//                answered may still give a code other than 0
// Every call appends its arguments, joined by spaces, as one line to calls.log. Without the
// folder it prints nothing and succeeds.
#include <cstdlib>
#include <string>
#include <vector>

#include "fake_tool_answer.h"

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    const char* folderVariable = std::getenv("FAKE_SMARTCTL_DIR");
    const std::string folder = folderVariable != nullptr ? folderVariable : "";
    if (folder.empty()) return 0;
    fake_tool::logCall(folder, arguments);
    return fake_tool::answer({folder + "/output.json", "", folder + "/delay", folder + "/exit"});
}
