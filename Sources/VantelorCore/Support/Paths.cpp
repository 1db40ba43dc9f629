#include "Support/Paths.h"

#include <QDir>
#include <QUrl>
#include <QUtf8StringView>

namespace vantelor::Paths {

namespace {

constexpr char16_t escapeBase = 0xDC00;

bool isEscape(char16_t c)
{
    return c >= 0xDC80 && c <= 0xDCFF;
}

// Length of the valid UTF-8 sequence starting at p, or 0 when the bytes there are not one.
int validSequence(const unsigned char* p, const unsigned char* end)
{
    const unsigned char c = p[0];
    if (c < 0x80)
        return 1;
    int length = 0;
    char32_t min = 0;
    char32_t cp = 0;
    if ((c & 0xE0) == 0xC0) { length = 2; min = 0x80; cp = c & 0x1F; }
    else if ((c & 0xF0) == 0xE0) { length = 3; min = 0x800; cp = c & 0x0F; }
    else if ((c & 0xF8) == 0xF0) { length = 4; min = 0x10000; cp = c & 0x07; }
    else return 0;
    if (end - p < length)
        return 0;
    for (int i = 1; i < length; ++i) {
        if ((p[i] & 0xC0) != 0x80)
            return 0;
        cp = (cp << 6) | (p[i] & 0x3F);
    }
    if (cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF))
        return 0;
    return length;
}

} // namespace

QString decode(const QByteArray& bytes)
{
    if (QUtf8StringView(bytes).isValidUtf8())
        return QString::fromUtf8(bytes);
    QString out;
    out.reserve(bytes.size());
    const auto* p = reinterpret_cast<const unsigned char*>(bytes.constData());
    const auto* end = p + bytes.size();
    while (p < end) {
        const int n = validSequence(p, end);
        if (n == 0) {
            out.append(QChar(char16_t(escapeBase + *p)));
            ++p;
        } else {
            out.append(QString::fromUtf8(reinterpret_cast<const char*>(p), n));
            p += n;
        }
    }
    return out;
}

// A low surrogate right after a high one belongs to a real pair, not an escaped byte.
bool escapedAt(const QString& path, qsizetype i)
{
    return isEscape(path.at(i).unicode()) && !(i > 0 && path.at(i - 1).isHighSurrogate());
}

bool hasEscapedBytes(const QString& path)
{
    for (qsizetype i = 0; i < path.size(); ++i)
        if (escapedAt(path, i))
            return true;
    return false;
}

QByteArray encode(const QString& path)
{
    if (!hasEscapedBytes(path))
        return path.toUtf8();
    QByteArray out;
    out.reserve(path.size() * 2);
    qsizetype runStart = 0;
    for (qsizetype i = 0; i < path.size(); ++i) {
        const char16_t c = path.at(i).unicode();
        if (escapedAt(path, i)) {
            out.append(QStringView(path).mid(runStart, i - runStart).toUtf8());
            out.append(char(c - escapeBase));
            runStart = i + 1;
        }
    }
    out.append(QStringView(path).mid(runStart).toUtf8());
    return out;
}

QString clean(const QString& path)
{
    QString absolute = path;
    if (!absolute.startsWith(QLatin1Char('/')))
        absolute = QDir::currentPath() + QLatin1Char('/') + absolute;
    return QDir::cleanPath(absolute);
}

QString fileName(const QString& path)
{
    const qsizetype slash = path.lastIndexOf(QLatin1Char('/'));
    return slash < 0 ? path : path.mid(slash + 1);
}

QString parent(const QString& path)
{
    const qsizetype slash = path.lastIndexOf(QLatin1Char('/'));
    if (slash < 0)
        return QStringLiteral(".");
    if (slash == 0)
        return QStringLiteral("/");
    return path.left(slash);
}

QString suffix(const QString& path)
{
    const QString name = fileName(path);
    const qsizetype dot = name.lastIndexOf(QLatin1Char('.'));
    return dot <= 0 ? QString() : name.mid(dot + 1);
}

QString baseName(const QString& path)
{
    const QString name = fileName(path);
    const qsizetype dot = name.lastIndexOf(QLatin1Char('.'));
    return dot <= 0 ? name : name.left(dot);
}

QString join(const QString& folder, const QString& name)
{
    if (folder.endsWith(QLatin1Char('/')))
        return folder + name;
    return folder + QLatin1Char('/') + name;
}

QString displayText(const QString& path)
{
    if (!hasEscapedBytes(path))
        return path;
    QString out = path;
    for (qsizetype i = 0; i < out.size(); ++i)
        if (escapedAt(path, i))
            out[i] = QChar(QChar::ReplacementCharacter);
    return out;
}

QString jsonText(const QString& path)
{
    if (!hasEscapedBytes(path) && !path.contains(QLatin1Char('%')))
        return path;
    QString out;
    for (qsizetype i = 0; i < path.size(); ++i) {
        const char16_t c = path.at(i).unicode();
        if (escapedAt(path, i))
            out += QStringLiteral("%%1").arg(int(c - escapeBase), 2, 16, QLatin1Char('0')).toUpper();
        else if (c == u'%')  // so that a name holding "%E9" never reads as the byte 0xE9
            out += QStringLiteral("%25");
        else
            out += path.at(i);
    }
    return out;
}

QString fileUrl(const QString& path)
{
    // The same characters QUrl leaves alone in a path; everything else, invalid bytes included,
    // is percent-encoded.
    return QStringLiteral("file://")
        + QString::fromLatin1(QByteArray(encode(path)).toPercentEncoding("/!$&'()*+,;=:@"));
}

QString fromFileUrl(const QString& url)
{
    if (!url.startsWith(QStringLiteral("file://")))
        return {};
    const QByteArray bytes = QByteArray::fromPercentEncoding(url.mid(7).toLatin1());
    if (!bytes.startsWith('/'))
        return {};
    return decode(bytes);
}

} // namespace vantelor::Paths
