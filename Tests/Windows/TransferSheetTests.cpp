#include <gtest/gtest.h>

#include <QTreeWidget>

#include "Support/Paths.h"
#include "TransferSheet.h"

using namespace vantelor;

namespace {

TransferItem item(const QString& name, qint64 bytes)
{
    return {QStringLiteral("/fotos/") + name, QStringLiteral("/destino/") + name, QString(64, QLatin1Char('0')), bytes};
}

} // namespace

// Each photo heads the files that share its base name (any case), with their sizes; the total
// counts every file.
TEST(TransferSheet, GroupsAssociatedFilesUnderTheirPhoto)
{
    TransferPlan plan;
    plan.kind = TransferKind::move;
    plan.destination = QStringLiteral("/destino");
    plan.items = {
        item(QStringLiteral("DSC_0001.NEF"), 25'000'000),
        item(QStringLiteral("DSC_0001.xmp"), 4'000),
        item(QStringLiteral("DSC_0001.JPG"), 3'000'000),
        item(QStringLiteral("dsc_0002.nef"), 24'000'000),
        item(QStringLiteral("DSC_0002.XMP"), 5'000),
        item(Paths::decode(QByteArray("Playa-\xe9t\xe9.JPG")), 2'000'000),
    };
    QWidget window;
    TransferSheet sheet(plan, &window);
    EXPECT_EQ(sheet.windowModality(), Qt::WindowModal);

    QTreeWidget* list = sheet.list();
    ASSERT_EQ(list->topLevelItemCount(), 3);
    struct Row { QString headPrefix; int files; };
    const Row rows[] = {
        {QStringLiteral("DSC_0001.NEF"), 3},
        {QStringLiteral("dsc_0002.nef"), 2},
        {QStringLiteral("Playa-\uFFFDt\uFFFD.JPG"), 1},
    };
    for (int i = 0; i < 3; ++i) {
        QTreeWidgetItem* top = list->topLevelItem(i);
        EXPECT_TRUE(top->text(0).startsWith(rows[i].headPrefix)) << top->text(0).toStdString();
        EXPECT_EQ(top->childCount(), rows[i].files) << top->text(0).toStdString();
        EXPECT_FALSE(top->text(1).isEmpty());
    }
    EXPECT_TRUE(sheet.totalText().startsWith(QStringLiteral("3 fotos · 6 archivos"))) << sheet.totalText().toStdString();
}
