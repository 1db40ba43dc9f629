// Parsing and patching of sidecars from hostile bytes. The first byte chooses the patch; the
// rest is the sidecar. Beyond not crashing, every accepted edit must read back with the patched
// values, must not be refused by its own guards (that would mean a wrong splice), and patching
// the result again must change nothing.
#include <cstdint>
#include <cstdlib>

#include <QByteArray>
#include <QString>

#include "Metadata/XMPDocument.h"

using namespace vantelor;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 1 || size > (1u << 20))
        return 0;
    static const QString labels[] = {QString(), QStringLiteral("red"), QStringLiteral("A&B <\"x\"> 'y'\t\r\n"),
                                      QStringLiteral("Ünïcødé ✓")};
    const uint8_t selector = data[0];
    const QByteArray bytes(reinterpret_cast<const char*>(data + 1), qsizetype(size - 1));

    const Result<XMPDocument> document = XMPDocument::parse(bytes);
    if (!document)
        return 0;
    const Result<XMPValues> values = document->values();

    XMPPatch patch;
    if (selector & 1)
        patch.rating = int(selector >> 4) % 7 - 1;
    if (selector & 2)
        patch.label = labels[(selector >> 2) & 3];
    const Result<QByteArray> patched = document->applying(patch);
    if (!patched) {
        const QString message = patched.message();
        if (message.startsWith(QStringLiteral("Los metadatos ajenos cambiaron"))
            || message.startsWith(QStringLiteral("La validación del XMP"))) {
            fprintf(stderr, "own guard refused an edit: %s\n", message.toUtf8().constData());
            abort();
        }
        return 0;
    }
    if (!values)
        abort();   // an unreadable document must never be edited
    if (patch.isEmpty() && *patched != bytes)
        abort();

    const Result<XMPDocument> again = XMPDocument::parse(*patched);
    if (!again)
        abort();
    const Result<XMPValues> readBack = again->values();
    if (!readBack || (patch.rating && readBack->rating != *patch.rating) || (patch.label && readBack->label != patch.label))
        abort();
    const Result<QByteArray> twice = again->applying(patch);
    if (!twice || *twice != *patched)
        abort();
    return 0;
}
