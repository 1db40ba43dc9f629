#include <chrono>
#include <iostream>
#include <map>
#include <vector>
#include <thread>

#include <csignal>
#include <sys/stat.h>
#include <unistd.h>

#include <QElapsedTimer>
#include <QProcess>
#include <QRegularExpression>

#include <gtest/gtest.h>

#include "Support/CliRunner.h"
#include "Support/Paths.h"
#include "Support/Sandbox.h"
#include "TransferTestSupport.h"

using namespace vantelor;
using namespace vantelor::test;

namespace {

constexpr int killCount = 100;

// A shoot of 40 files: 16 NEF photos, each with its sidecar, half of them with a JPEG twin.
// The kills are spread by the clock, so the clock must tell the same story on every run: on a
// tmpfs the stages cost the same each time, while on a disk the syncs wander by tens of
// milliseconds. What a SIGKILL leaves behind does not depend on the file system.
struct CrashShoot : Shoot {
    CrashShoot()
        : Shoot(16, 24 * 1024, true, ::access("/dev/shm", W_OK) == 0 ? QStringLiteral("/dev/shm/vantelor-crash-XXXXXX") : QString())
    {
    }

    QStringList arguments() const
    {
        return QStringList{QStringLiteral("move")} + photos + QStringList{QStringLiteral("--to"), dest, QStringLiteral("--yes")};
    }

    // Every original's bytes at its own path or at its name in the destination, never both, and
    // no hidden name in either folder. Returns how many are at the destination.
    int expectEachFileOnce() const
    {
        int placed = 0;
        for (const auto& [path, bytes] : originals) {
            const QString name = Paths::fileName(path);
            const bool home = readFile(path) == bytes;
            const bool there = readFile(Paths::join(dest, name)) == bytes;
            EXPECT_TRUE(home != there) << Paths::displayText(name).toStdString() << (home ? " twice" : " lost");
            placed += there ? 1 : 0;
        }
        EXPECT_EQ(allNames(src), visibleNames(src));
        EXPECT_EQ(allNames(dest), visibleNames(dest));
        EXPECT_EQ(visibleNames(src).size() + visibleNames(dest).size(), originals.size());
        return placed;
    }

    // Which stage of the move the disk shows.
    QString stage() const
    {
        bool staging = false, staged = false;
        for (const QString& name : allNames(dest))
            if (name.startsWith(QStringLiteral(".vantelor-transfer-"))) {
                staging = true;
                staged = !allNames(Paths::join(dest, name)).filter(QRegularExpression(QStringLiteral("^item-"))).isEmpty();
            }
        int recovered = 0;
        const QString area = Paths::join(src, QStringLiteral(".vantelor-move-recovery"));
        for (const QString& id : allNames(area))
            recovered += int(visibleNames(Paths::join(area, id)).size()) - 1;  // less the journal
        if (recovered == int(originals.size()))
            return QStringLiteral("5 cierre");
        if (recovered > 0)
            return QStringLiteral("4 traslado a recuperación");
        if (!visibleNames(dest).isEmpty())
            return QStringLiteral("3 colocación");
        if (staged)
            return QStringLiteral("2 copia y verificación");
        return staging ? QStringLiteral("1 carpeta de preparación y diario") : QStringLiteral("0 arranque y plan");
    }
};

// Starts the move and returns once the plan has been printed, i.e. when execution begins.
bool startMove(QProcess& process, const CrashShoot& shoot)
{
    process.start(cliProgram(), shoot.arguments());
    if (!process.waitForStarted(10000))
        return false;
    QByteArray out;
    while (!out.contains("\xe2\x86\x92 ")) {  // "→ " ends the plan's last line
        if (!process.waitForReadyRead(20000))
            return false;
        out += process.readAllStandardOutput();
    }
    return true;
}

} // namespace

TEST(TransferCrash, AMoveKilledAtAnyMomentLosesNothingAndRecoverPutsItRight)
{
    ASSERT_TRUE(pathExists(cliProgram())) << cliProgram().toStdString();

    // Where each stage begins and how long execution takes here and now, watched on the disk,
    // so that the kills can be spread evenly over the stages rather than over the clock.
    std::map<QString, qint64> stageStartNs;
    qint64 executionNs = 0;
    {
        CrashShoot shoot;
        QProcess process;
        ASSERT_TRUE(startMove(process, shoot));
        QElapsedTimer timer;
        timer.start();
        while (!process.waitForFinished(0)) {
            const QString stage = shoot.stage();
            if (!stageStartNs.count(stage))
                stageStartNs[stage] = timer.nsecsElapsed();
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
        executionNs = timer.nsecsElapsed();
        ASSERT_EQ(process.exitCode(), 0) << process.readAllStandardError().toStdString();
        EXPECT_EQ(expectNothingLost(shoot.originals, shoot.dest), 40);
    }
    // Windows [start, next start) of the stages seen, the last one running a little past the end.
    std::vector<std::pair<qint64, qint64>> windows;
    for (auto stage = stageStartNs.begin(); stage != stageStartNs.end(); ++stage) {
        const auto next = std::next(stage);
        windows.emplace_back(stage->second, next == stageStartNs.end() ? executionNs * 105 / 100 : next->second);
    }
    std::vector<qint64> killAt;
    for (int k = 0; k < killCount; ++k) {
        const auto& [begin, end] = windows[size_t(k) * windows.size() / killCount];
        const int perWindow = killCount / int(windows.size());
        const int slot = k % std::max(perWindow, 1);
        killAt.push_back(begin + (end - begin) * (2 * slot + 1) / (2 * std::max(perWindow, 1)));
    }

    std::map<QString, int> killsPerStage;
    int completed = 0;
    int rolledBack = 0;
    for (int k = 0; k < killCount; ++k) {
        SCOPED_TRACE("kill " + std::to_string(k));
        CrashShoot shoot;
        QProcess process;
        ASSERT_TRUE(startMove(process, shoot));
        std::this_thread::sleep_for(std::chrono::nanoseconds(killAt[size_t(k)]));
        const bool finished = process.state() == QProcess::NotRunning;
        process.kill();  // SIGKILL
        process.waitForFinished(10000);
        killsPerStage[finished ? QStringLiteral("6 terminado antes") : shoot.stage()]++;

        expectNothingLost(shoot.originals, shoot.dest);

        // recover finds an unfinished transfer from its destination and a finished move from its
        // sources; after both, each file is in exactly one place and nothing hidden is left.
        for (const QString& folder : {shoot.dest, shoot.src}) {
            const CliRun recovered = runCli({QStringLiteral("recover"), QStringLiteral("--purge-verified"), folder});
            EXPECT_EQ(recovered.status, 0) << recovered.out.toStdString() << recovered.err.toStdString();
        }
        shoot.expectEachFileOnce() == 0 ? ++rolledBack : ++completed;
        if (::testing::Test::HasFailure())
            break;
    }

    // Ctrl-C and SIGTERM stop at the next file and roll back; a run they reach too late finishes.
    int stopped = 0;
    for (int k = 0; k < killCount; k += 5) {
        SCOPED_TRACE("signal " + std::to_string(k));
        CrashShoot shoot;
        QProcess process;
        ASSERT_TRUE(startMove(process, shoot));
        std::this_thread::sleep_for(std::chrono::nanoseconds(killAt[size_t(k)]));
        ::kill(pid_t(process.processId()), k % 2 == 0 ? SIGTERM : SIGINT);
        ASSERT_TRUE(process.waitForFinished(20000));
        ASSERT_EQ(process.exitStatus(), QProcess::NormalExit);
        if (process.exitCode() == 1) {
            ++stopped;
            // Only the first line is ours; anything after it is reported so it can be chased.
            const std::string said = process.readAllStandardError().trimmed().toStdString();
            const std::string expected = "Transferencia detenida; se ha deshecho lo hecho";
            EXPECT_EQ(said.substr(0, said.find('\n')), expected);
            if (said != expected)
                std::cout << "Stopped transfer also printed: " << said << "\n";
            EXPECT_EQ(allNames(shoot.dest), QStringList());
            EXPECT_EQ(allNames(shoot.src).size(), qsizetype(shoot.originals.size()));
        } else {
            EXPECT_EQ(process.exitCode(), 0);
        }
        EXPECT_EQ(visibleNames(shoot.dest).size() + visibleNames(shoot.src).size(), shoot.originals.size());
        if (::testing::Test::HasFailure())
            break;
    }

    std::cout << "Execution of the move: " << executionNs / 1000000 << " ms. Kills per stage:";
    int inside = 0;
    for (const auto& [stage, count] : killsPerStage) {
        std::cout << " " << stage.toStdString() << ": " << count << ";";
        inside += stage.startsWith(QLatin1Char('0')) || stage.startsWith(QLatin1Char('6')) ? 0 : 1;
    }
    std::cout << "\nRecovered: " << completed << " completed, " << rolledBack << " rolled back; signals: " << stopped
              << " of " << killCount / 5 << " stopped and rolled back\n";
    EXPECT_GT(stopped, 0);
    // The kills must have landed inside the operation, not only before or after it.
    EXPECT_GE(inside, 2);
}
