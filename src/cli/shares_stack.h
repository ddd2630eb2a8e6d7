#pragma once

#include <memory>

#include "cli/command_context.h"
#include "cli/shares_command.h"

namespace kestrow {

// What `kestrow shares` runs on, alive for the command's run.
class SharesCommandStack {
public:
    virtual ~SharesCommandStack() = default;
    virtual SharesCommandContext& context() = 0;
};

// The shares file and the keyring, edited as the share manager edits them. Until a share
// manager and the mount table are wired in here, nothing is connected or disconnected and the
// mount table reads as unreadable: statuses are the file's, and an unmount is left alone.
// Needs a QCoreApplication.
std::unique_ptr<SharesCommandStack> makeSharesCommandContext(const CommandContext& command);

// `kestrow shares …` as the executable runs it.
int runSharesCommandLine(const CommandContext& command);

}  // namespace kestrow
