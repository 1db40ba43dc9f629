#include "Command.h"

#include <cstdio>
#include <map>

#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include "Library/FolderIndexer.h"
#include "Support/Paths.h"

namespace vantelor::cli {

namespace Registry {

static std::map<QString, Command>& table()
{
    static std::map<QString, Command> commands;
    return commands;
}

bool add(Command command)
{
    const QString name = command.name;
    table().emplace(name, std::move(command));
    return true;
}

std::optional<Command> find(const QString& name)
{
    const auto it = table().find(name);
    return it == table().end() ? std::nullopt : std::optional(it->second);
}

std::vector<Command> all()
{
    std::vector<Command> commands;
    for (const auto& [name, command] : table())
        commands.push_back(command);
    return commands;
}

bool addParsed(const QString& name, const QString& summary, const Syntax& syntax,
               const std::function<int(const QCommandLineParser&)>& body)
{
    return add({name, summary, [syntax, body](const QStringList& arguments) { return runParsed(arguments, syntax, body); }});
}

} // namespace Registry

namespace Io {

static void write(FILE* stream, const QString& line)
{
    const QByteArray bytes = Paths::encode(line) + '\n';
    fwrite(bytes.constData(), 1, size_t(bytes.size()), stream);
}

void out(const QString& line)
{
    write(stdout, line);
}

void err(const QString& line)
{
    write(stderr, line);
}

int fail(const QString& message)
{
    err(message);
    return failed;
}

void damagedPreview(const QString& path)
{
    err(Paths::displayText(path) + QStringLiteral(": vista previa dañada; solo se pudo decodificar en parte"));
}

void json(const QJsonValue& value)
{
    QJsonDocument doc;
    if (value.isArray())
        doc.setArray(value.toArray());
    else
        doc.setObject(value.toObject());
    const QByteArray bytes = doc.toJson(QJsonDocument::Indented);
    fwrite(bytes.constData(), 1, size_t(bytes.size()), stdout);
}

QString isoDate(const QDateTime& date)
{
    return date.toUTC().toString(Qt::ISODate);
}

} // namespace Io

Result<ScanSnapshot> scanToEnd(const QString& folder)
{
    FolderIndexer indexer(Paths::clean(folder), 256);
    for (;;) {
        Result<ScanSnapshot> snapshot = indexer.nextBatch().result();
        if (!snapshot || snapshot->finished)
            return snapshot;
    }
}

QStringList subcommandArguments(const QStringList& arguments)
{
    QStringList out{arguments.value(0), arguments.value(1) + QLatin1Char(' ') + arguments.value(2)};
    out += arguments.mid(3);
    return out;
}

int runParsed(const QStringList& arguments, const Syntax& syntax, const std::function<int(const QCommandLineParser&)>& body)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(syntax.description);
    parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
    parser.addOptions(syntax.options);
    parser.addOption(QCommandLineOption(QStringLiteral("help"), QStringLiteral("Muestra esta ayuda.")));
    parser.addOption(QCommandLineOption(QStringLiteral("json"), QStringLiteral("Escribe un documento JSON.")));
    if (!syntax.positionalSyntax.isEmpty())
        parser.addPositionalArgument(syntax.positionalSyntax, QString(), syntax.positionalSyntax);
    // The parser sees "vantelor-cli scan …" as one program name followed by the arguments.
    QStringList forParser = arguments.mid(2);
    forParser.prepend(arguments.value(0));
    if (!parser.parse(forParser)) {
        Io::err(parser.errorText());
        return usage;
    }
    if (parser.isSet(QStringLiteral("help"))) {
        QString help = parser.helpText();
        const qsizetype firstLineEnd = help.indexOf(QLatin1Char('\n'));
        const QString usageLine = help.left(firstLineEnd);
        help = QStringLiteral("Uso: vantelor-cli %1 ").arg(arguments.value(1))
            + usageLine.mid(usageLine.indexOf(QLatin1Char(' '), 7) + 1) + help.mid(firstLineEnd);
        help.replace(QStringLiteral("[options]"), QStringLiteral("[opciones]"));
        help.replace(QStringLiteral("Options:"), QStringLiteral("Opciones:"));
        help.replace(QStringLiteral("Arguments:"), QStringLiteral("Argumentos:"));
        fputs(help.toUtf8().constData(), stdout);
        return success;
    }
    if (parser.positionalArguments().size() < syntax.minimumPositional) {
        Io::err(QStringLiteral("Faltan argumentos. Uso: vantelor-cli %1 %2")
                    .arg(arguments.value(1), syntax.positionalSyntax));
        return usage;
    }
    return body(parser);
}

} // namespace vantelor::cli
