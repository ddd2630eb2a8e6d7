#include "cli/command_application.h"

namespace kestrow {

std::unique_ptr<QCoreApplication> commandApplication() {
    // Qt keeps the references for the application's whole life.
    static int argc = 1;
    static char name[] = "kestrow";
    static char* argv[] = {name, nullptr};
    if (QCoreApplication::instance() != nullptr) return nullptr;
    return std::make_unique<QCoreApplication>(argc, argv);
}

}  // namespace kestrow
