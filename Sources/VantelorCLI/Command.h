#pragma once

#include <functional>
#include <memory>
#include <vector>

#include <QCommandLineParser>
#include <QJsonValue>
#include <QString>
#include <QStringList>

#include "Library/ScanSnapshot.h"
#include "Support/Result.h"

namespace vantelor::cli {

// Exit statuses of every command.
enum Exit { success = 0, failed = 1, usage = 2 };

// One verb of vantelor-cli ("scan", "dates", …). A command file defines a subclass and registers
// it with VANTELOR_CLI_COMMAND; main() finds it by name.
class Command {
public:
    virtual ~Command() = default;
    virtual QString name() const = 0;
    // One line for the list of commands.
    virtual QString summary() const = 0;
    // `arguments` starts with the program and the command name, as QCommandLineParser expects.
    virtual int run(const QStringList& arguments) = 0;
};

namespace Registry {
using Factory = std::function<std::unique_ptr<Command>()>;
bool add(const QString& name, Factory factory);
std::unique_ptr<Command> create(const QString& name);
// Every registered command, sorted by name.
std::vector<std::unique_ptr<Command>> all();
} // namespace Registry

// Shared plumbing of the commands.
namespace Io {
// Standard output and error. Paths are written as the bytes the file system knows them by.
void out(const QString& line);
void err(const QString& line);
// One JSON document on standard output, indented.
void json(const QJsonValue& value);
// ISO 8601 in UTC with a Z ("2024-03-01T10:15:30Z").
QString isoDate(const class QDateTime& date);
} // namespace Io

// Lists a folder to its end through the scanner, as the app does.
Result<ScanSnapshot> scanToEnd(const QString& folder);

// A parser with --help and --json set up. Returns an exit status when the command must end at
// once (help printed: success; bad usage reported: usage), or -1 to go on.
int parseArguments(QCommandLineParser& parser, const QStringList& arguments, const QString& description,
                   const QString& positionalSyntax, int minimumPositional);

} // namespace vantelor::cli

#define VANTELOR_CLI_COMMAND(Type)                                                                         \
    namespace {                                                                                            \
    const bool registered##Type = ::vantelor::cli::Registry::add(Type().name(), [] { return std::make_unique<Type>(); }); \
    }
