#include <iostream>
#include <thread>

#include <csignal>
#include <unistd.h>

#include <QElapsedTimer>
#include <QProcess>
#include <QRegularExpression>

#include "Support/CliRunner.h"
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
        : Shoot(16, 24 * 1024, true, ::access("/dev/shm", W_OK) == 0 ? QStringLiteral("/dev/shm/vantelor-crash-XXXXXX") : QString()) {}

    // Every original's bytes at its own path or at its name in the destination, never both, and
    // no hidden name in either folder. Returns how many are at the destination.
    int expectEachFileOnce() const
    {
        const int placed = expectNothingLost(originals, dest);
        // With nothing hidden left, a file found twice or a stray file would show in the count.
        EXPECT_EQ(allNames(src), visibleNames(src));
        EXPECT_EQ(allNames(dest), visibleNames(dest));
        EXPECT_EQ(visibleNames(src).size() + visibleNames(dest).size(), originals.size());
        return placed;
    }

    // Which stage of the move the disk shows: 0 start and plan, 1 staging folder and journal,
    // 2 copying and verifying, 3 placing, 4 taking originals to recovery, 5 closing.
    int stage() const
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
        if (recovered > 0)
            return recovered == int(originals.size()) ? 5 : 4;
        return !visibleNames(dest).isEmpty() ? 3 : staged ? 2 : staging ? 1 : 0;
    }

    // Starts the move and returns once the plan has been printed, i.e. when execution begins.
    bool startMove(QProcess& process) const
    {
        process.start(cliProgram(), QStringList{QStringLiteral("move")} + photos + QStringList{QStringLiteral("--to"), dest, QStringLiteral("--yes")});
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
};

} // namespace

TEST(TransferCrash, AMoveKilledAtAnyMomentLosesNothingAndRecoverPutsItRight)
{
    ASSERT_TRUE(pathExists(cliProgram())) << cliProgram().toStdString();

    // Where each stage begins and how long execution takes here and now, watched on the disk,
    // so that the kills can be spread evenly over the stages rather than over the clock.
    std::map<int, qint64> stageStartNs;
    qint64 executionNs = 0;
    {
        CrashShoot shoot;
        QProcess process;
        ASSERT_TRUE(shoot.startMove(process));
        QElapsedTimer timer;
        timer.start();
        while (!process.waitForFinished(0)) {
            stageStartNs.emplace(shoot.stage(), timer.nsecsElapsed());
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
        executionNs = timer.nsecsElapsed();
        ASSERT_EQ(process.exitCode(), 0) << process.readAllStandardError().toStdString();
        EXPECT_EQ(expectNothingLost(shoot.originals, shoot.dest), 40);
    }
    // Windows [start, next start) of the stages seen, the last one running a little past the end;
    // each window gets an equal share of the kills, spread evenly inside it.
    std::vector<std::pair<qint64, qint64>> windows;
    for (auto stage = stageStartNs.begin(); stage != stageStartNs.end(); ++stage)
        windows.emplace_back(stage->second, std::next(stage) == stageStartNs.end() ? executionNs * 105 / 100 : std::next(stage)->second);
    const int perWindow = std::max(killCount / int(windows.size()), 1);
    std::vector<qint64> killAt;
    for (int k = 0; k < killCount; ++k) {
        const auto& [begin, end] = windows[size_t(k) * windows.size() / killCount];
        killAt.push_back(begin + (end - begin) * (2 * (k % perWindow) + 1) / (2 * perWindow));
    }

    // Each moment gets a SIGKILL; every fifth one, afterwards, alternately SIGTERM or Ctrl-C, which
    // stop at the next file and roll back, while a run they reach too late finishes.
    std::map<int, int> killsPerStage;  // 6: finished before the kill
    int completed = 0, rolledBack = 0, stopped = 0;
    for (int k = 0; k < killCount + killCount / 5; ++k) {
        const bool signal = k >= killCount;
        SCOPED_TRACE((signal ? "signal " : "kill ") + std::to_string(k));
        CrashShoot shoot;
        QProcess process;
        ASSERT_TRUE(shoot.startMove(process));
        std::this_thread::sleep_for(std::chrono::nanoseconds(killAt[size_t(signal ? (k - killCount) * 5 : k)]));
        if (signal) {
            ::kill(pid_t(process.processId()), (k - killCount) % 2 == 0 ? SIGTERM : SIGINT);
            ASSERT_TRUE(process.waitForFinished(20000));
            ASSERT_EQ(process.exitStatus(), QProcess::NormalExit);
            EXPECT_TRUE(process.exitCode() == 0 || process.exitCode() == 1) << process.exitCode();
            if (process.exitCode() == 1) {
                ++stopped;
                // Only the first line is ours; anything after it is reported so it can be chased.
                const QString said = QString::fromUtf8(process.readAllStandardError()).trimmed();
                EXPECT_EQ(said.section(QLatin1Char('\n'), 0, 0), QStringLiteral("Transferencia detenida; se ha deshecho lo hecho"));
                if (said.contains(QLatin1Char('\n')))
                    std::cout << "Stopped transfer also printed: " << said.toStdString() << "\n";
                EXPECT_EQ(shoot.expectEachFileOnce(), 0);  // every file home, nothing hidden left
            }
            EXPECT_EQ(visibleNames(shoot.dest).size() + visibleNames(shoot.src).size(), shoot.originals.size());
        } else {
            const bool finished = process.state() == QProcess::NotRunning;
            process.kill();  // SIGKILL
            process.waitForFinished(10000);
            killsPerStage[finished ? 6 : shoot.stage()]++;
            expectNothingLost(shoot.originals, shoot.dest);
            // recover finds an unfinished transfer from its destination and a finished move from
            // its sources; after both, each file is in exactly one place and nothing hidden is left.
            for (const QString& folder : {shoot.dest, shoot.src}) {
                const CliRun recovered = runCli({QStringLiteral("recover"), QStringLiteral("--purge-verified"), folder});
                EXPECT_EQ(recovered.status, 0) << recovered.out.toStdString() << recovered.err.toStdString();
            }
            shoot.expectEachFileOnce() == 0 ? ++rolledBack : ++completed;
        }
        if (::testing::Test::HasFailure())
            break;
    }

    std::cout << "Execution of the move: " << executionNs / 1000000 << " ms. Kills per stage:";
    int inside = 0;
    for (const auto& [stage, count] : killsPerStage) {
        std::cout << " " << stage << ": " << count << ";";
        inside += stage == 0 || stage == 6 ? 0 : 1;
    }
    std::cout << "\nRecovered: " << completed << " completed, " << rolledBack << " rolled back; signals: " << stopped << " of " << killCount / 5 << " stopped\n";
    EXPECT_GT(stopped, 0);
    // The kills must have landed inside the operation, not only before or after it.
    EXPECT_GE(inside, 2);
}
