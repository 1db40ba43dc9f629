#include "Metadata/SidecarFolder.h"

#include <cerrno>
#include <dirent.h>

#include "Support/Paths.h"

namespace vantelor {

namespace {

QString caseKey(const QString& baseName)
{
    return baseName.toCaseFolded();
}

} // namespace

Result<SidecarFolder> SidecarFolder::list(const QString& folder)
{
    DIR* dir = ::opendir(Paths::encode(folder).constData());
    if (!dir)
        return SystemError::fromErrno(folder);
    SidecarFolder out;
    out.m_folder = folder;
    errno = 0;
    while (const dirent* entry = ::readdir(dir)) {
        const char* name = entry->d_name;
        if (name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0')))
            continue;
        const QString decoded = Paths::decode(QByteArray(name));
        out.m_namesByBase[caseKey(Paths::baseName(decoded))].append(decoded);
        errno = 0;
    }
    const int error = errno;
    ::closedir(dir);
    if (error != 0)
        return SystemError(error, folder);
    return out;
}

Result<QString> SidecarFolder::locate(const QString& raw) const
{
    const QString base = Paths::baseName(raw);
    const QStringList names = m_namesByBase.value(caseKey(base));
    int raws = 0;
    QStringList sidecars;
    for (const QString& name : names) {
        const QString extension = Paths::suffix(name).toLower();
        if (extension == QLatin1String("nef"))
            ++raws;
        else if (extension == QLatin1String("xmp"))
            sidecars.append(name);
    }
    if (raws != 1)
        return WorkflowError::invalid(QStringLiteral("Nombre base NEF ambiguo: ") + Paths::displayText(base));
    if (sidecars.size() > 1)
        return WorkflowError::invalid(QStringLiteral("Varios XMP coinciden con ") + Paths::displayText(base));
    if (sidecars.size() == 1)
        return Paths::join(m_folder, sidecars.front());
    const QString name = Paths::fileName(raw);
    const qsizetype dot = name.lastIndexOf(QLatin1Char('.'));
    return Paths::join(m_folder, (dot > 0 ? name.left(dot) : name) + QStringLiteral(".xmp"));
}

} // namespace vantelor
