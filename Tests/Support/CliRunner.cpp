#include "Support/CliRunner.h"

#include <iostream>

#include <QDir>
#include <QFile>
#include <QProcess>

namespace vantelor::test {

namespace {

constexpr int timeoutMs = 120'000;

QString procText(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()).trimmed() : QStringLiteral("?");
}

// Where a process that did not finish is waiting, thread by thread, as /proc tells it: enough to
// tell a deadlock (futex) from a blocked write (pipe) or a stopped leak check (ptrace).
QString whereItWaits(qint64 pid)
{
    const QString proc = QStringLiteral("/proc/%1").arg(pid);
    QString text = QStringLiteral("still running after %1 s: ").arg(timeoutMs / 1000) + QFile::symLinkTarget(proc + QStringLiteral("/exe"));
    const QStringList tasks = QDir(proc + QStringLiteral("/task")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString& tid : tasks) {
        const QString task = proc + QStringLiteral("/task/") + tid;
        // The state letter follows the parenthesised command name in stat.
        const QString stat = procText(task + QStringLiteral("/stat"));
        text += QStringLiteral("\n  thread %1 %2: %3 in %4, syscall %5")
                    .arg(tid, procText(task + QStringLiteral("/comm")), stat.section(QStringLiteral(") "), -1).left(1),
                         procText(task + QStringLiteral("/wchan")), procText(task + QStringLiteral("/syscall")));
    }
    return text;
}

} // namespace

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
    for (int attempt = 1;; ++attempt) {
        QProcess process;
        process.setProcessEnvironment(environment);
        process.setStandardInputFile(QProcess::nullDevice());
        process.start(program, arguments);
        CliRun run;
        if (process.waitForFinished(timeoutMs)) {
            run.status = process.exitCode();
            run.out = process.readAllStandardOutput();
            run.err = process.readAllStandardError();
            return run;
        }
        if (process.state() == QProcess::NotRunning) {
            run.err = ("did not start: " + process.errorString()).toUtf8();
            return run;
        }
        const QString where = whereItWaits(process.processId());
        const bool neverExeced = QFile::symLinkTarget(QStringLiteral("/proc/%1/exe").arg(process.processId()))
                                 == QFile::symLinkTarget(QStringLiteral("/proc/self/exe"));
        process.kill();
        process.waitForFinished();
        // A child that never reached exec is still a copy of this test program: the fork itself
        // hung (a lock held by another thread at fork time), not the program under test.
        if (attempt == 1 && neverExeced) {
            std::cerr << "runCli: the child hung before exec; starting it again\n" << where.toStdString() << "\n";
            continue;
        }
        run.out = process.readAllStandardOutput();
        run.err = process.readAllStandardError() + "\n" + where.toUtf8();
        return run;
    }
}

} // namespace vantelor::test
