#pragma once

#include <functional>
#include <optional>
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

// One verb of vantelor-cli ("scan", "dates", …). A command file registers it with
// Registry::add or Registry::addParsed; main() finds it by name.
struct Command {
    QString name;
    // One line for the list of commands.
    QString summary;
    // `arguments` starts with the program and the command name, as QCommandLineParser expects.
    std::function<int(const QStringList& arguments)> run;
};

namespace Registry {
bool add(Command command);
std::optional<Command> find(const QString& name);
// Every registered command, sorted by name.
std::vector<Command> all();
// A command whose arguments are parsed against one syntax before its body runs (see runParsed).
bool addParsed(const QString& name, const QString& summary, const Syntax& syntax,
               const std::function<int(const QCommandLineParser&)>& body);
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

// The arguments of "NAME SUB …" as runParsed wants them, with the subcommand joined to the
// command's name so that help and usage lines read "xmp read".
QStringList subcommandArguments(const QStringList& arguments);

} // namespace vantelor::cli
