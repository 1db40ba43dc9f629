#include <gtest/gtest.h>

#include <cerrno>
#include <sys/xattr.h>

#include "Model/FolderTags.h"
#include "NavigatorTestSupport.h"
#include "Support/Paths.h"
#include "Support/SystemError.h"

using namespace vantelor;
using namespace vantelor::test;

namespace {

std::optional<QByteArray> tagsOf(const QString& folder)
{
    char value[8192];
    const ssize_t size = ::getxattr(Paths::encode(folder).constData(), "user.xdg.tags", value, sizeof value);
    if (size < 0)
        return std::nullopt;
    return QByteArray(value, size);
}

void setTags(const QString& folder, const QByteArray& value)
{
    ASSERT_EQ(::setxattr(Paths::encode(folder).constData(), "user.xdg.tags", value.constData(), value.size(), 0), 0);
}

// A file system that refuses extended attributes (FAT cards, some network shares).
FolderLabels::Attribute refusingAttribute()
{
    return {[](const QString& folder) -> Result<QByteArray> { return SystemError(EOPNOTSUPP, folder); },
            [](const QString& folder, const QByteArray&) -> Status { return SystemError(EOPNOTSUPP, folder); }};
}

} // namespace

// The colour is found among the file manager's other tags, in either language and any case, and
// setting one keeps every foreign tag byte for byte.
TEST(FolderTags, ColourTagIsFoundAndReplacedAmongForeignTags)
{
    struct Row { QByteArray value; SessionLabel found; SessionLabel set; QByteArray expected; };
    const Row rows[] = {
        {"", SessionLabel::none, SessionLabel::red, "Rojo"},
        {"trabajo,Verde", SessionLabel::green, SessionLabel::blue, "trabajo,Azul"},
        {" viaje , ,Rojo,,\xffx", SessionLabel::red, SessionLabel::green, " viaje ,\xffx,Verde"},
        {"red,Verde,boda", SessionLabel::red, SessionLabel::purple, "boda,Morado"},
        {"Amarilla", SessionLabel::yellow, SessionLabel::none, ""},
        {"\xff\xfe,Amarillo", SessionLabel::yellow, SessionLabel::yellow, "\xff\xfe,Amarillo"},
        {"rojo claro", SessionLabel::none, SessionLabel::none, "rojo claro"},
        {"a;rojo", SessionLabel::none, SessionLabel::none, "a;rojo"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.value.toStdString());
        EXPECT_EQ(FolderTags::label(row.value), row.found);
        EXPECT_EQ(FolderTags::withLabel(row.value, row.set), row.expected);
    }
}

TEST(FolderLabels, LabelsRoundTripThroughTheFileManagersTags)
{
    Sandbox sandbox;
    auto model = makeNavigator(sandbox);
    const QString home = sandbox.file(QStringLiteral("home"));
    setTags(home, QByteArray("boda,\xff\xfe,Clientes"));

    model->setLabel(home, SessionLabel::red);
    EXPECT_EQ(model->label(home), SessionLabel::red) << "shown at once";
    EXPECT_TRUE(eventually([&] { return tagsOf(home) == QByteArray("boda,\xff\xfe,Clientes,Rojo"); }));

    auto reopened = makeNavigator(sandbox);
    EXPECT_TRUE(eventually([&] { return reopened->label(home) == SessionLabel::red; }));
    EXPECT_EQ(homeRow(*reopened).data(NavigatorModel::LabelRole).toInt(), int(SessionLabel::red));

    model->setLabel(home, SessionLabel::none);
    EXPECT_TRUE(eventually([&] { return tagsOf(home) == QByteArray("boda,\xff\xfe,Clientes"); }));

    // A value longer than the first read's buffer.
    const QByteArray longTag(3000, 'x');
    setTags(home, longTag + ",Verde");
    auto third = makeNavigator(sandbox);
    EXPECT_TRUE(eventually([&] { return third->label(home) == SessionLabel::green; }));
    third->setLabel(home, SessionLabel::purple);
    EXPECT_TRUE(eventually([&] { return tagsOf(home) == longTag + ",Morado"; }));

    // With no other tag, the attribute goes rather than staying empty.
    setTags(home, "Azul");
    model->setLabel(home, SessionLabel::yellow);
    model->setLabel(home, SessionLabel::none);
    EXPECT_TRUE(eventually([&] { return !tagsOf(home); }));
    EXPECT_EQ(model->label(home), SessionLabel::none) << "the last choice wins";
}

// A folder new in a list is read for its colour at once, not at the next refresh.
TEST(FolderLabels, AFolderNewInAListShowsItsColour)
{
    Sandbox sandbox;
    auto model = makeNavigator(sandbox);
    const QString shoot = sandbox.mkdir(QStringLiteral("shoot"));
    setTags(shoot, "Verde");
    model->record(shoot);
    const QModelIndex row = model->index(0, 0, model->sectionIndex(NavigatorModel::Section::recent));
    ASSERT_EQ(row.data(NavigatorModel::PathRole).toString(), shoot);
    EXPECT_TRUE(eventually([&] { return row.data(NavigatorModel::LabelRole).toInt() == int(SessionLabel::green); }));
}

TEST(FolderLabels, FileSystemWithoutAttributesKeepsTheLabelInThePreferences)
{
    preferences().clear();
    Sandbox sandbox;
    const QString home = sandbox.file(QStringLiteral("home"));
    const auto storedLabels = [] { return preferences().value(QStringLiteral("VantelorFolderLabels")).toMap(); };
    {
        auto model = makeNavigator(sandbox, true, refusingAttribute());
        model->setLabel(home, SessionLabel::green);
        EXPECT_TRUE(eventually([&] { return storedLabels().value(Paths::fileUrl(home)) == QStringLiteral("green"); }));
        EXPECT_EQ(model->label(home), SessionLabel::green);
    }
    EXPECT_FALSE(tagsOf(home));

    auto restarted = makeNavigator(sandbox, true, refusingAttribute());
    EXPECT_EQ(restarted->label(home), SessionLabel::green);
    QTest::qWait(0);
    EXPECT_EQ(restarted->label(home), SessionLabel::green) << "the refused read does not clear it";

    // The folder later sits where tags work: the label moves into them and out of the preferences.
    auto tagged = makeNavigator(sandbox, true);
    EXPECT_EQ(tagged->label(home), SessionLabel::green);
    tagged->setLabel(home, SessionLabel::blue);
    EXPECT_TRUE(eventually([&] { return tagsOf(home) == QByteArray("Azul"); }));
    EXPECT_TRUE(eventually([&] { return !preferences().contains(QStringLiteral("VantelorFolderLabels")); }));
    preferences().clear();
}
