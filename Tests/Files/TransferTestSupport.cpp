#include "TransferTestSupport.h"

#include <QRandomGenerator>

namespace vantelor::test {

Result<TransferReceipt> execute(const TransferPlan& plan, std::shared_ptr<TransferFileSystem> fileSystem, std::optional<int> failAfter)
{
    FileWorkflow workflow(std::move(fileSystem));
    workflow.setFailAfterCommitting(failAfter);
    return workflow.execute(plan).result();
}

QByteArray patternBytes(qsizetype size, int seed)
{
    QByteArray bytes(size, Qt::Uninitialized);
    QRandomGenerator random{quint32(seed)};
    for (char& byte : bytes)
        byte = char(random.generate());
    return bytes;
}

int expectNothingLost(const Originals& originals, const QString& destination)
{
    int atDestination = 0;
    std::map<QString, const QByteArray*> byName;
    for (const auto& [path, bytes] : originals) {
        const QString name = Paths::fileName(path);
        byName[name] = &bytes;
        const auto holds = [&expected = bytes](const QString& at) { return pathExists(at) && readFile(at) == expected; };
        const bool placed = holds(Paths::join(destination, name));
        bool found = placed || holds(path);
        const QString area = Paths::join(Paths::parent(path), QStringLiteral(".vantelor-move-recovery"));
        for (const QString& id : allNames(area))
            found = found || holds(Paths::join(Paths::join(area, id), name));
        atDestination += placed ? 1 : 0;
        EXPECT_TRUE(found) << "lost: " << Paths::displayText(path).toStdString();
    }
    for (const QString& name : visibleNames(destination)) {
        if (const auto original = byName.find(name); original != byName.end()) {
            EXPECT_EQ(readFile(Paths::join(destination, name)), *original->second)
                << "a destination name holds other bytes: " << Paths::displayText(name).toStdString();
        }
    }
    return atDestination;
}

Status FailingFileSystem::pass(Call call, const QString& path, const std::function<Status()>& real)
{
    const int n = ++m_counts[int(call)];
    if (beforeCall)
        beforeCall(call, n, path);
    if (m_call && *m_call == call && (n == m_occurrence || (m_persistent && n > m_occurrence))) {
        m_fired = true;
        return SystemError(m_error, path);
    }
    return real();
}

Shoot::Shoot(int count, qsizetype photoBytes, bool twins, const QString& where) : box(where)
{
    for (int n = 1; n <= count; ++n) {
        const QString base = QStringLiteral("src/DSC_%1").arg(n, 4, 10, QLatin1Char('0'));
        photos.append(box.write(base + QStringLiteral(".NEF"), patternBytes(photoBytes + n * (twins ? 512 : 1), n)));
        box.write(base + QStringLiteral(".xmp"), patternBytes(300 + n, 10 + n));
        if (twins && n % 2 == 0)
            box.write(base + QStringLiteral(".JPG"), patternBytes(6 * 1024 + n, 200 + n));
    }
    for (const QString& name : visibleNames(src))
        originals[Paths::join(src, name)] = readFile(Paths::join(src, name));
}

TransferPlan Shoot::plan(TransferKind kind, const QStringList& selected) const
{
    auto planned = FileWorkflow().plan(selected.isEmpty() ? photos : selected, dest, kind).result();
    EXPECT_TRUE(planned.ok()) << planned.message().toStdString();
    return planned.ok() ? *planned : TransferPlan{};
}

} // namespace vantelor::test
