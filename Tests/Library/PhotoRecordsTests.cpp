#include <gtest/gtest.h>

#include <algorithm>

#include <QSet>

#include "Library/PhotoFilter.h"
#include "Library/PhotoItem.h"
#include "Support/FileStat.h"
#include "Support/Paths.h"
#include "Support/Sandbox.h"

using namespace vantelor;
using vantelor::test::Sandbox;

namespace {

PhotoItem item(const QString& path, double modifiedSeconds = 0)
{
    return PhotoItem(path, 10, FileStat::distantPast(),
                     QDateTime::fromMSecsSinceEpoch(qint64(modifiedSeconds * 1000), Qt::UTC), QStringLiteral("x"));
}

QStringList namesInOrder(QList<PhotoItem> items)
{
    std::sort(items.begin(), items.end(), PhotoItem::ordered);
    QStringList names;
    for (const auto& i : items)
        names << i.url;
    return names;
}

} // namespace

TEST(PhotoItem, OnlyRegularFilesWithAPhotoExtensionArePhotos)
{
    Sandbox box;
    box.mkdir(QStringLiteral("b.jpg"));
    box.symlink(box.write(QStringLiteral("DSC_0001.NEF"), QByteArray(1234, 'x')), QStringLiteral("c.nef"));
    const struct { const char* name; bool photo; } rows[] = {
        {"DSC_0001.NEF", true}, {"a.JpEg", true}, {"b.heif", true}, {"a.raf", false}, {"a.xmp", false},
        {".nef", false}, {"a.nef.bak", false}, {"b.jpg", false}, {"c.nef", false},
    };
    for (const auto& row : rows) {
        const QString name = QString::fromUtf8(row.name);
        const QString path = box.exists(name) ? box.file(name) : box.write(name, "data");
        const auto inspected = PhotoItem::inspect(path);
        ASSERT_TRUE(inspected.ok()) << row.name;
        EXPECT_EQ(inspected->has_value(), row.photo) << row.name;
    }
    const PhotoItem photo = **PhotoItem::inspect(box.file(QStringLiteral("DSC_0001.NEF")));
    EXPECT_EQ(photo.byteSize, 1234);
    EXPECT_EQ(photo.modified.timeSpec(), Qt::UTC);
    EXPECT_TRUE(std::holds_alternative<SystemError>(PhotoItem::inspect(box.file(QStringLiteral("gone.nef"))).failure()));
}

TEST(PhotoItem, NamesSortAsAFileBrowserDoesWithAPathTieBreak)
{
    EXPECT_EQ(namesInOrder({item("/f/IMG_10.nef"), item("/f/IMG_2.nef"), item("/f/img_1.nef")}),
              (QStringList{"/f/img_1.nef", "/f/IMG_2.nef", "/f/IMG_10.nef"}));
    // Equal names in different folders (merged lists) order by path.
    EXPECT_EQ(namesInOrder({item("/z/a.nef"), item("/b/a.nef")}), (QStringList{"/b/a.nef", "/z/a.nef"}));
    // Names that differ only in case, or in leading zeros, compare the same: the path decides, the
    // same way every time, and a record never comes before itself.
    EXPECT_EQ(namesInOrder({item("/f/img_1.nef"), item("/f/IMG_1.nef")}), (QStringList{"/f/IMG_1.nef", "/f/img_1.nef"}));
    EXPECT_EQ(namesInOrder({item("/f/IMG_2.nef"), item("/f/IMG_02.nef")}), (QStringList{"/f/IMG_02.nef", "/f/IMG_2.nef"}));
    EXPECT_FALSE(PhotoItem::ordered(item("/f/a.nef"), item("/f/a.nef")));
    // Accents are letters of their own place, not bytes above "z".
    EXPECT_EQ(namesInOrder({item("/f/f.jpg"), item("/f/é.jpg"), item("/f/e.jpg")}),
              (QStringList{"/f/e.jpg", "/f/é.jpg", "/f/f.jpg"}));
    // Records built field by field (no collation key kept) must agree with scanned ones.
    PhotoItem bare;
    bare.url = QStringLiteral("/f/IMG_9.nef");
    EXPECT_TRUE(PhotoItem::ordered(bare, item("/f/IMG_10.nef")));
    EXPECT_FALSE(PhotoItem::ordered(item("/f/IMG_10.nef"), bare));
}

TEST(PhotoItem, CacheKeyFollowsEveryIdentityFieldAndNeverRunsFieldsTogether)
{
    const auto at = [](const QString& path, qint64 bytes, qint64 msecs, const QString& id) {
        return PhotoItem(path, bytes, FileStat::distantPast(), QDateTime::fromMSecsSinceEpoch(msecs, Qt::UTC), id);
    };
    const PhotoItem photo = at(QStringLiteral("/a/b.nef"), 10, 5000, QStringLiteral("x"));
    const QStringList keys = {
        photo.cacheKey(512),
        photo.cacheKey(2560),
        at(QStringLiteral("/a/b.nef"), 10, 5001, QStringLiteral("x")).cacheKey(512),
        at(QStringLiteral("/a/b.nef"), 11, 5000, QStringLiteral("x")).cacheKey(512),
        at(QStringLiteral("/a/b.nef"), 10, 5000, QStringLiteral("y")).cacheKey(512),
        // The same characters split differently between path and identity.
        at(QStringLiteral("/a/b.ne"), 10, 5000, QStringLiteral("fx")).cacheKey(512),
        at(QStringLiteral("/a/é.nef"), 10, 5000, QStringLiteral("x")).cacheKey(512),
        at(QStringLiteral("/a/e\u0301.nef"), 10, 5000, QStringLiteral("x")).cacheKey(512),
    };
    EXPECT_EQ(QSet<QString>(keys.begin(), keys.end()).size(), keys.size()) << keys.join(QLatin1Char('|')).toStdString();
    EXPECT_EQ(photo.cacheKey(512), at(QStringLiteral("/a/b.nef"), 10, 5000, QStringLiteral("x")).cacheKey(512));
    EXPECT_NE(qHash(photo), qHash(at(QStringLiteral("/a/b.nef"), 10, 5000, QStringLiteral("y"))));
}

TEST(PhotoFilter, RatingThenLabelThenNameSearch)
{
    const PhotoItem photo = item("/Fotos/JOSÉ_two  blanks.NEF");
    const struct {
        int minimum;
        std::optional<SessionLabel> label;
        const char* query;
        SessionMark mark;
        bool included;
    } rows[] = {
        {0, std::nullopt, "", {0, SessionLabel::none}, true},
        {3, std::nullopt, "", {3, SessionLabel::none}, true},
        {0, SessionLabel::none, "", {0, SessionLabel::red}, false},
        {0, SessionLabel::red, "", {4, SessionLabel::red}, true},
        {0, SessionLabel::green, "", {4, SessionLabel::red}, false},
        {0, std::nullopt, "josé", {0, SessionLabel::none}, true},
        {0, std::nullopt, "jose", {0, SessionLabel::none}, false},
        {0, std::nullopt, "fotos", {0, SessionLabel::none}, false}, // the folder is not searched
        {0, std::nullopt, ".nef", {0, SessionLabel::none}, true},
    };
    for (const auto& row : rows) {
        const PhotoFilter filter{row.minimum, row.label, QString::fromUtf8(row.query)};
        EXPECT_EQ(filter.includes(photo, row.mark), row.included)
            << row.minimum << " " << row.query << " " << row.mark.rating;
    }
    EXPECT_FALSE((PhotoFilter{0, std::nullopt, QStringLiteral("  ")}.includes(item("/f/one blank.nef"), SessionMark{})));
}

TEST(SessionLabel, RawValuesRoundTripAndNothingElseIsALabel)
{
    QStringList raws;
    for (SessionLabel label : SessionLabels::allCases) {
        raws << SessionLabels::rawValue(label);
        EXPECT_EQ(SessionLabels::fromRawValue(SessionLabels::rawValue(label)), label);
    }
    EXPECT_EQ(QSet<QString>(raws.begin(), raws.end()).size(), raws.size());
    for (const char* bad : {"Red", "", "orange", " red"})
        EXPECT_FALSE(SessionLabels::fromRawValue(QString::fromUtf8(bad)).has_value()) << bad;
}
