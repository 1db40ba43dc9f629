#pragma once

#include <QByteArray>
#include <QJsonDocument>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

namespace vantelor::test {

// One finished run of a program.
struct CliRun {
    int status = -1;  // -1 when the process did not start or finish in time (err says which)
    QByteArray out;
    QByteArray err;

    // The message: the first line of standard error (a sanitizer may add its report after it).
    QString message() const;
    QJsonDocument json() const { return QJsonDocument::fromJson(out); }
};

// The vantelor-cli built beside the tests (VANTELOR_CLI overrides it).
QString cliProgram();

// Runs vantelor-cli (or another program: exiftool, exiv2) with no terminal on its standard input,
// so that commands that would ask a question refuse instead of waiting.
CliRun runCli(const QStringList& arguments,
              const QProcessEnvironment& environment = QProcessEnvironment::systemEnvironment(),
              const QString& program = cliProgram());

} // namespace vantelor::test
