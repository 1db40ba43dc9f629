#include "Library/PhotoItem.h"

#include <charconv>

#include "Support/FileStat.h"
#include "Support/NaturalOrder.h"
#include "Support/Paths.h"

namespace vantelor {

namespace {

int compareNames(const PhotoItem& a, const PhotoItem& b, const std::optional<QCollatorSortKey>& ka,
                 const std::optional<QCollatorSortKey>& kb)
{
    if (ka && kb)
        return ka->compare(*kb);
    return naturalCollator().compare(a.name(), b.name());
}

// Code-point order of the canonical (NFC) forms. UTF-16 order differs from it only where a
// surrogate pair meets a character above U+E000, so compare code points explicitly.
bool codePointLess(const QString& a, const QString& b)
{
    const QString na = a.normalized(QString::NormalizationForm_C);
    const QString nb = b.normalized(QString::NormalizationForm_C);
    const auto ua = na.toUcs4();
    const auto ub = nb.toUcs4();
    return std::lexicographical_compare(ua.begin(), ua.end(), ub.begin(), ub.end());
}

// The shortest text that reads back as the same double, with ".0" on whole numbers ("5.0").
QString shortestDouble(double value)
{
    char buffer[64];
    const auto [end, ec] = std::to_chars(buffer, buffer + sizeof buffer, value);
    QString text = QString::fromLatin1(buffer, ec == std::errc() ? end - buffer : 0);
    if (!text.contains(QLatin1Char('.')) && !text.contains(QLatin1Char('e')) && !text.contains(QLatin1Char('n')))
        text += QStringLiteral(".0");
    return text;
}

void appendField(QString& key, const QString& field)
{
    key += QString::number(field.toUtf8().size());
    key += QLatin1Char(':');
    key += field;
}

} // namespace

PhotoItem::PhotoItem(QString url_, qint64 byteSize_, QDateTime created_, QDateTime modified_, QString resourceID_)
    : url(std::move(url_))
    , byteSize(byteSize_)
    , created(std::move(created_))
    , modified(std::move(modified_))
    , resourceID(std::move(resourceID_))
    , m_sortKey(naturalCollator().sortKey(name()))
{
}

QString PhotoItem::name() const
{
    return Paths::fileName(url);
}

const QSet<QString>& PhotoItem::supportedExtensions()
{
    static const QSet<QString> extensions = {
        QStringLiteral("nef"), QStringLiteral("nrw"), QStringLiteral("jpg"), QStringLiteral("jpeg"),
        QStringLiteral("heic"), QStringLiteral("heif"), QStringLiteral("tif"), QStringLiteral("tiff"),
        QStringLiteral("png"), QStringLiteral("dng"), QStringLiteral("arw"), QStringLiteral("cr2"),
        QStringLiteral("cr3")};
    return extensions;
}

bool PhotoItem::hasSupportedExtension(const QString& path)
{
    const QString ext = Paths::suffix(path);
    return !ext.isEmpty() && ext.size() <= 4 && supportedExtensions().contains(ext.toLower());
}

Result<std::optional<PhotoItem>> PhotoItem::inspect(const QString& path)
{
    if (!hasSupportedExtension(path))
        return std::optional<PhotoItem>();
    const QString clean = Paths::clean(path);
    auto st = FileStat::read(clean);
    if (!st)
        return st.failure();
    if (!st->isRegular() || st->isSymlink())
        return std::optional<PhotoItem>();
    return std::optional<PhotoItem>(PhotoItem(clean, st->size, st->created, st->modified, st->resourceID()));
}

bool PhotoItem::ordered(const PhotoItem& a, const PhotoItem& b)
{
    const int byName = compareNames(a, b, a.m_sortKey, b.m_sortKey);
    if (byName != 0)
        return byName < 0;
    if (a.url == b.url)
        return false;
    return codePointLess(a.url, b.url);
}

QString PhotoItem::cacheKey(int dimension) const
{
    QString key;
    appendField(key, url);
    appendField(key, resourceID);
    appendField(key, QString::number(byteSize));
    appendField(key, shortestDouble(double(modified.toMSecsSinceEpoch()) / 1000.0));
    appendField(key, QString::number(dimension));
    return key;
}

bool operator==(const PhotoItem& a, const PhotoItem& b)
{
    return a.url == b.url && a.byteSize == b.byteSize && a.created == b.created && a.modified == b.modified
        && a.resourceID == b.resourceID;
}

size_t qHash(const PhotoItem& item, size_t seed)
{
    return qHashMulti(seed, item.url, item.byteSize, item.created, item.modified, item.resourceID);
}

} // namespace vantelor
