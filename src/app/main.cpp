#include "cli/command_line.h"

int main(int argc, char** argv) {
    return kestrow::runCommandLine(argc, argv);
}
