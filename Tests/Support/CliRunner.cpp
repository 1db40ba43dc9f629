#include "Support/CliRunner.h"

#include <QProcess>

namespace vantelor::test {

QString CliRun::message() const
{
    return QString::fromUtf8(err).trimmed().section(QLatin1Char('\n'), 0, 0);
}

QString cliProgram()
{
    return qEnvironmentVariable("VANTELOR_CLI", QStringLiteral(VANTELOR_CLI_PATH));
}

CliRun runCli(const QStringList& arguments, const QProcessEnvironment& environment, const QString& program)
{
    QProcess process;
    process.setProcessEnvironment(environment);
    process.setStandardInputFile(QProcess::nullDevice());
    process.start(program, arguments);
    CliRun run;
    if (!process.waitForFinished(120'000)) {
        process.kill();
        process.waitForFinished();
        return run;
    }
    run.status = process.exitCode();
    run.out = process.readAllStandardOutput();
    run.err = process.readAllStandardError();
    return run;
}

} // namespace vantelor::test
