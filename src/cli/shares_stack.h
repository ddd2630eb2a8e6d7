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

// The shares file and the keyring, edited as the share manager edits them, with statuses and
// ownership read from the desktop's mount table and the agent's ledger. A command does not
// connect or disconnect by itself: that is the running agent's work.
// Needs a QCoreApplication.
std::unique_ptr<SharesCommandStack> makeSharesCommandContext(const CommandContext& command);

// `kestrow shares …` as the executable runs it.
int runSharesCommandLine(const CommandContext& command);

}  // namespace kestrow
