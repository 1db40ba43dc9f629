#pragma once

#include "Command.h"
#include "Files/TransferKind.h"

namespace vantelor::cli {

// What `plan`, `copy` and `move` share: the sources and the --to destination, planning through
// the same FileWorkflow the application uses, and the plan's text.
class TransferCommand : public Command {
protected:
    // `plan --copy|--move`: prints the plan and stops.
    int runPlan(const QStringList& arguments);
    // `copy` and `move`: plans, shows the plan, asks for confirmation unless --yes, executes.
    int runTransfer(const QStringList& arguments, TransferKind kind);
};

} // namespace vantelor::cli
