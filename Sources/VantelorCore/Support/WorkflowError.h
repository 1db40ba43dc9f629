#pragma once

#include <QString>

namespace vantelor {

// Errors of sidecars, transfers and rules. Each carries its complete Spanish message, which is
// also what the window shows. `conflict` means a file changed under us: callers treat it apart.
class WorkflowError {
public:
    enum class Kind { invalid, conflict, io };

    static WorkflowError invalid(QString message) { return {Kind::invalid, std::move(message)}; }
    static WorkflowError conflict(QString message) { return {Kind::conflict, std::move(message)}; }
    static WorkflowError io(QString message) { return {Kind::io, std::move(message)}; }

    Kind kind() const { return m_kind; }
    const QString& message() const { return m_message; }
    // "invalid", "conflict" or "io", for machine-readable output.
    QString kindName() const;

    friend bool operator==(const WorkflowError&, const WorkflowError&) = default;

private:
    WorkflowError(Kind kind, QString message) : m_kind(kind), m_message(std::move(message)) {}

    Kind m_kind;
    QString m_message;
};

} // namespace vantelor
