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

static std::map<QString, Factory>& table()
{
    static std::map<QString, Factory> commands;
    return commands;
}

bool add(const QString& name, Factory factory)
{
    table().emplace(name, std::move(factory));
    return true;
}

std::unique_ptr<Command> create(const QString& name)
{
    const auto it = table().find(name);
    return it == table().end() ? nullptr : it->second();
}

std::vector<std::unique_ptr<Command>> all()
{
    std::vector<std::unique_ptr<Command>> commands;
    for (const auto& [name, factory] : table())
        commands.push_back(factory());
    return commands;
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

QString about(const QString& path, const QString& message)
{
    if (message.startsWith(path + QStringLiteral(": ")) || message.startsWith(Paths::displayText(Paths::clean(path)) + QStringLiteral(": ")))
        return message;
    return path + QStringLiteral(": ") + message;
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

int Command::run(const QStringList& arguments)
{
    return runParsed(arguments, syntax(), [this](const QCommandLineParser& parser) { return execute(parser); });
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
