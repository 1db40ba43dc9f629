#pragma once

#include <variant>

#include <QString>

#include "Support/BrowserError.h"
#include "Support/Cancelled.h"
#include "Support/SystemError.h"
#include "Support/WorkflowError.h"

namespace vantelor {

// Any way an operation of the core can fail. Every alternative carries its user-facing text.
using Failure = std::variant<BrowserError, WorkflowError, SystemError, Cancelled>;

inline QString describe(const Failure& failure)
{
    return std::visit([](const auto& f) { return f.message(); }, failure);
}

inline bool isCancelled(const Failure& failure)
{
    return std::holds_alternative<Cancelled>(failure);
}

inline bool isConflict(const Failure& failure)
{
    const auto* w = std::get_if<WorkflowError>(&failure);
    return w && w->kind() == WorkflowError::Kind::conflict;
}

} // namespace vantelor
