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

// What one command line accepts besides --help and --json, and the help text that says so.
struct Syntax {
    QString description;
    QString positionalSyntax = {};
    int minimumPositional = 0;
    QList<QCommandLineOption> options = {};
};

// One verb of vantelor-cli ("scan", "dates", …). A command file defines a subclass and registers
// it with VANTELOR_CLI_COMMAND; main() finds it by name.
class Command {
public:
    virtual ~Command() = default;
    virtual QString name() const = 0;
    // One line for the list of commands.
    virtual QString summary() const = 0;
    // `arguments` starts with the program and the command name, as QCommandLineParser expects.
    // By default they are parsed against syntax() and execute() runs; commands with
    // sub-commands choose the syntax themselves.
    virtual int run(const QStringList& arguments);

protected:
    virtual Syntax syntax() const { return {}; }
    virtual int execute(const QCommandLineParser& /*parser*/) { return failed; }
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
// The message on standard error; returns the failed status.
int fail(const QString& message);
// One JSON document on standard output, indented.
void json(const QJsonValue& value);
// "PATH: message" for a failure about a file, without the path twice when the message (the
// system's, "PATH: Permission denied") already starts with it.
QString about(const QString& path, const QString& message);
// The warning for a preview that could be decoded only in part: shown, but not as a good frame.
void damagedPreview(const QString& path);
// ISO 8601 in UTC with a Z ("2024-03-01T10:15:30Z").
QString isoDate(const class QDateTime& date);
} // namespace Io

// Lists a folder to its end through the scanner, as the app does.
Result<ScanSnapshot> scanToEnd(const QString& folder);

// Parses the arguments against the syntax, then runs the body with the parser. Help and bad usage
// end the command before the body (success and usage).
int runParsed(const QStringList& arguments, const Syntax& syntax, const std::function<int(const QCommandLineParser&)>& body);

} // namespace vantelor::cli

#define VANTELOR_CLI_COMMAND(Type)                                                                         \
    namespace {                                                                                            \
    const bool registered##Type = ::vantelor::cli::Registry::add(Type().name(), [] { return std::make_unique<Type>(); }); \
    }
