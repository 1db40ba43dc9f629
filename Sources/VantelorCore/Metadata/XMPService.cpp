#include "Metadata/XMPService.h"

#include "Metadata/SidecarReader.h"
#include "Metadata/SidecarWriter.h"
#include "Support/Paths.h"

namespace vantelor {

XMPService::XMPService() : m_executor(QStringLiteral("com.vantelor.xmp")) {}

bool XMPService::supports(const QString& url)
{
    return Paths::suffix(url).toLower() == QLatin1String("nef");
}

QFuture<Result<XMPSnapshot>> XMPService::read(const QString& raw)
{
    return m_executor.run([raw = Paths::clean(raw)](const CancelCheck& cancelled) -> Result<XMPSnapshot> {
        if (cancelled())
            return Cancelled();
        return SidecarReader::read(raw);
    });
}

QFuture<QList<MetadataReadResult>> XMPService::readMany(const QList<QString>& raws)
{
    return m_executor.run([raws](const CancelCheck& cancelled) {
        QList<QString> cleaned;
        cleaned.reserve(raws.size());
        for (const QString& raw : raws)
            cleaned.append(Paths::clean(raw));
        const QList<Result<XMPSnapshot>> results = SidecarReader::readAll(cleaned, false, cancelled);
        QList<MetadataReadResult> out;
        out.reserve(results.size());
        for (qsizetype i = 0; i < results.size(); ++i) {
            MetadataReadResult result;
            result.url = raws[i];
            if (results[i].ok())
                result.snapshot = *results[i];
            else
                result.error = results[i].message();
            out.append(std::move(result));
        }
        return out;
    });
}

QFuture<Result<XMPSnapshot>> XMPService::save(const XMPSnapshot& snapshot, const XMPPatch& patch)
{
    return m_executor.run([snapshot, patch, seam = m_seam](const CancelCheck& cancelled) -> Result<XMPSnapshot> {
        if (cancelled())
            return Cancelled();
        return SidecarWriter(seam).save(snapshot, patch);
    });
}

} // namespace vantelor
