#include <gtest/gtest.h>

#include "Metadata/XMPDocument.h"
#include "Support/XmpFixtures.h"

namespace vantelor {
namespace {

using test::XmpFixtures::captureOne;
using test::XmpFixtures::darktable;
using test::XmpFixtures::lightroom;

const QByteArray rdfUri = "http://www.w3.org/1999/02/22-rdf-syntax-ns#";
const QByteArray xmpUri = "http://ns.adobe.com/xap/1.0/";

// A minimal sidecar whose one empty-about description has the given attributes and children.
QByteArray sidecar(const QByteArray& attributes, const QByteArray& children = {})
{
    return "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\"><rdf:RDF xmlns:rdf=\"" + rdfUri
        + "\"><rdf:Description rdf:about=\"\" xmlns:xmp=\"" + xmpUri + "\"" + attributes + ">" + children
        + "</rdf:Description></rdf:RDF></x:xmpmeta>";
}

Result<XMPValues> read(const QByteArray& bytes)
{
    const Result<XMPDocument> document = XMPDocument::parse(bytes);
    if (!document)
        return document.failure();
    return document->values();
}

QString messageOf(const QByteArray& bytes)
{
    return read(bytes).message();
}

XMPValues valuesOf(const QByteArray& bytes)
{
    const Result<XMPValues> values = read(bytes);
    EXPECT_TRUE(values.ok()) << values.message().toStdString();
    return values ? *values : XMPValues{};
}

// Rows hold plain values: GCC 12 misreads std::optional<QString> members of constant tables.
XMPPatch makePatch(std::optional<int> rating, const char* label)
{
    XMPPatch patch;
    patch.rating = rating;
    if (label)
        patch.label = QString::fromUtf8(label);
    return patch;
}

Result<QByteArray> patched(const QByteArray& bytes, const XMPPatch& patch)
{
    const Result<XMPDocument> document = XMPDocument::parse(bytes);
    if (!document)
        return document.failure();
    return document->applying(patch);
}

// The bytes that `patched` must produce: the original with exactly one region replaced.
QByteArray replacedOnce(QByteArray bytes, const QByteArray& from, const QByteArray& to)
{
    const qsizetype at = bytes.indexOf(from);
    EXPECT_GE(at, 0) << from.toStdString();
    EXPECT_EQ(bytes.indexOf(from, at + 1), -1) << "ambiguous expectation: " << from.toStdString();
    return bytes.replace(at, from.size(), to);
}

TEST(XMPDocumentValues, ratingTextsAreReadOrRefused)
{
    const struct { QByteArray attributes; QByteArray children; int rating; const char* error; } rows[] = {
        {"", "", 0, nullptr},
        {" xmp:Rating=\"5\"", "", 5, nullptr},
        {" xmp:Rating=\"  5 \"", "", 5, nullptr},
        {" xmp:Rating=\"-1\"", "", -1, nullptr},
        {"", "<xmp:Rating>\n 4\n</xmp:Rating>", 4, nullptr},
        {" xmp:Rating=\"6\"", "", 0, "Valoración XMP no compatible"},
        {" xmp:Rating=\"2.5\"", "", 0, "Valoración XMP no compatible"},
        {" xmp:Rating=\"0/\"", "", 0, "Valoración XMP no compatible"},   // '/' is the digit before '0'
        {" xmp:Rating=\"99999999999999999999\"", "", 0, "Valoración XMP no compatible"},
        {" xmp:Rating=\"\xD9\xA3\"", "", 0, "Valoración XMP no compatible"},   // Arabic-Indic three
        {" xmp:Rating=\"3\"", "<xmp:Rating>3</xmp:Rating>", 0, "Valoración o etiqueta XMP duplicada y ambigua"},
        {" xmp:Label=\"Red\"", "<xmp:Label>Red</xmp:Label>", 0, "Valoración o etiqueta XMP duplicada y ambigua"},
    };
    for (const auto& row : rows) {
        const QByteArray bytes = sidecar(row.attributes, row.children);
        SCOPED_TRACE(bytes.toStdString());
        if (row.error) {
            EXPECT_EQ(messageOf(bytes), QString::fromUtf8(row.error));
        } else {
            EXPECT_EQ(valuesOf(bytes).rating, row.rating);
        }
    }
}

TEST(XMPDocumentValues, labelIsTheUntrimmedTextOrAbsent)
{
    EXPECT_EQ(valuesOf(sidecar("")).label, std::nullopt);
    EXPECT_EQ(valuesOf(sidecar(" xmp:Label=\" Red \"")).label, QStringLiteral(" Red "));
    EXPECT_EQ(valuesOf(sidecar(" xmp:Label=\"\"")).label, QString());
    EXPECT_EQ(valuesOf(sidecar("", "<xmp:Label>Ro<!-- a comment -->jo &amp; <![CDATA[<azul>]]></xmp:Label>")).label,
              QStringLiteral("Rojo & <azul>"));
    // Any prefix bound to the xmp namespace counts; the prefix "xmp" bound elsewhere does not.
    EXPECT_EQ(valuesOf(sidecar(" xmlns:b=\"" + xmpUri + "\" b:Rating=\"2\"")).rating, 2);
    EXPECT_EQ(valuesOf("<rdf:RDF xmlns:rdf=\"" + rdfUri
                       + "\"><rdf:Description xmlns:xmp=\"urn:other\" xmp:Rating=\"9\"/></rdf:RDF>")
                  .rating,
              0);
}

TEST(XMPDocumentValues, onlyTopLevelDescriptionsAboutThisFileCount)
{
    const QByteArray two = "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\"><rdf:RDF xmlns:rdf=\"" + rdfUri
        + "\" xmlns:xmp=\"" + xmpUri + "\"><rdf:Description rdf:about=\"\" xmp:Rating=\"2\"/>"
          "<rdf:Description xmp:Rating=\"4\"/></rdf:RDF></x:xmpmeta>";
    EXPECT_EQ(messageOf(two), QStringLiteral("Valoración o etiqueta XMP duplicada y ambigua"));

    const QByteArray elsewhere = "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\"><rdf:RDF xmlns:rdf=\"" + rdfUri
        + "\" xmlns:xmp=\"" + xmpUri + "\"><rdf:Description rdf:about=\"\"/>"
          "<rdf:Description rdf:about=\"uuid:faf5bdd5\" xmp:Rating=\"4\"/></rdf:RDF></x:xmpmeta>";
    EXPECT_EQ(valuesOf(elsewhere).rating, 0);
    EXPECT_EQ(valuesOf("<rdf:RDF xmlns:rdf=\"" + rdfUri + "\" xmlns:xmp=\"" + xmpUri
                       + "\"><rdf:Description rdf:about=\"\"/><o:Description xmlns:o=\"urn:o\" xmp:Rating=\"4\"/></rdf:RDF>")
                  .rating,
              0);
    const Result<QByteArray> saved = patched(elsewhere, makePatch(1, nullptr));
    ASSERT_TRUE(saved.ok()) << saved.message().toStdString();
    EXPECT_EQ(*saved, replacedOnce(elsewhere, "<rdf:Description rdf:about=\"\"/>",
                                   "<rdf:Description rdf:about=\"\" xmp:Rating=\"1\"/>"));
}

TEST(XMPDocumentParsing, unsafeOrUnsupportedDocumentsAreRefusedWithTheirMessage)
{
    const QString unsafe = QStringLiteral("El XMP debe ser XML UTF-8 sin DTD ni entidades");
    const QByteArray lol = "<?xml version=\"1.0\"?><!DOCTYPE lolz [<!ENTITY lol \"lol\">"
                           "<!ENTITY lol2 \"&lol;&lol;&lol;&lol;&lol;&lol;&lol;&lol;&lol;&lol;\">"
                           "<!ENTITY lol3 \"&lol2;&lol2;&lol2;&lol2;&lol2;&lol2;&lol2;&lol2;&lol2;\">]>"
                           "<lolz>&lol3;</lolz>";
    const struct { QByteArray bytes; QString message; } rows[] = {
        {lol, unsafe},
        {"<!DOCTYPE x SYSTEM \"file:///etc/passwd\"><x>&xxe;</x>", unsafe},
        {sidecar("", "<!-- an <!entity in lower case is refused as well -->"), unsafe},
        {sidecar(" xmp:Label=\"&lt;!DocType\""), QString()},   // escaped text is not a declaration
        {sidecar("", "<!-- <!ENT\xC4\xB1TY ... the dotless i upper-cases to I -->"), unsafe},
        {sidecar(" xmp:Label=\"\xC3\x28\""), unsafe},             // broken UTF-8
        {sidecar(" xmp:Label=\"\xC0\xAF\""), unsafe},             // an over-long form
        {QByteArray(), QStringLiteral("XML vacío")},
        {"<x:xmpmeta xmlns:x=\"adobe:ns:meta/\"/>", QStringLiteral("Se esperaba un único contenedor RDF")},
        {"<x:xmpmeta xmlns:x=\"adobe:ns:meta/\"><rdf:RDF xmlns:rdf=\"" + rdfUri + "\"/><rdf:RDF xmlns:rdf=\"" + rdfUri
             + "\"/></x:xmpmeta>",
         QStringLiteral("Se esperaba un único contenedor RDF")},
        {"<a><b><rdf:RDF xmlns:rdf=\"" + rdfUri + "\"/></b></a>", QStringLiteral("Se esperaba un único contenedor RDF")},
        {"<x:xmpmeta xmlns:x=\"adobe:ns:meta/\"><rdf:RDF xmlns:rdf=\"urn:not-rdf\"><rdf:Description/></rdf:RDF></x:xmpmeta>",
         QStringLiteral("Se esperaba un único contenedor RDF")},
        {"<rdf:RDF xmlns:rdf=\"" + rdfUri + "\"/>", QStringLiteral("Estructura XMP no compatible")},
        {"<rdf:RDF xmlns:rdf=\"" + rdfUri + "\"><rdf:Description rdf:about=\"x.jpg\"/></rdf:RDF>",
         QStringLiteral("Estructura XMP no compatible")},
        {"<rdf:RDF xmlns:rdf=\"" + rdfUri + "\"><rdf:Description/></rdf:RDF>", QString()},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.bytes.toStdString());
        EXPECT_EQ(messageOf(row.bytes), row.message);
    }
}

TEST(XMPDocumentParsing, parserErrorsSayWhereAndNeverLoadAnything)
{
    const QString message = messageOf(sidecar(" xmp:Rating=\"1\"", "<open>"));
    EXPECT_TRUE(message.startsWith(QStringLiteral("XML no válido (línea 1, columna "))) << message.toStdString();
    EXPECT_TRUE(messageOf(sidecar(" xmp:Label=\"&undefined;\"")).contains(QStringLiteral("undefined entity")));
    EXPECT_EQ(messageOf("<x>\x01</x>"), QStringLiteral("XML no válido (línea 1, columna 4): not well-formed (invalid token)"));
    EXPECT_TRUE(messageOf(QByteArray("<x>\0</x>", 8)).startsWith(QStringLiteral("XML no válido")));
}

struct PatchRow {
    const char* name;
    QByteArray original;
    std::optional<int> rating;
    const char* label;
    QByteArray from;   // the one region that changes …
    QByteArray to;     // … and what it becomes
};

TEST(XMPDocumentPatching, onlyTheEditedValuesChangeByteForByte)
{
    const QByteArray lr = lightroom(3, QStringLiteral("Red"));
    const QByteArray lrBare = lightroom(std::nullopt, std::nullopt);
    const QByteArray c1 = captureOne(2, QStringLiteral("Green"));
    const QByteArray dt = darktable(1, std::nullopt);
    const PatchRow rows[] = {
        {"Lightroom rating", lr, 5, nullptr, "xmp:Rating=\"3\"", "xmp:Rating=\"5\""},
        {"Lightroom label", lr, std::nullopt, "purple", "xmp:Label=\"Red\"", "xmp:Label=\"purple\""},
        {"Lightroom both absent: inserted after the last attribute, in the tag's own layout", lrBare,
         4, "green", "crs:HasSettings=\"True\">",
         "crs:HasSettings=\"True\"\n   xmp:Rating=\"4\"\n   xmp:Label=\"green\">"},
        {"Capture One elements in the second description", c1, -1, "",
         "<xmp:Rating>2</xmp:Rating>\n  <xmp:Label>Green</xmp:Label>",
         "<xmp:Rating>-1</xmp:Rating>\n  <xmp:Label></xmp:Label>"},
        {"darktable label absent, rating kept", dt, 1, "yellow",
         "darktable:iop_order_version=\"4\">", "darktable:iop_order_version=\"4\"\n   xmp:Label=\"yellow\">"},
        {"single quotes keep their style", sidecar(" xmp:Label='Red'"), std::nullopt, "it's",
         "xmp:Label='Red'", "xmp:Label='it&apos;s'"},
        {"line ends in a label survive as references", sidecar(" xmp:Label=\"Red\""),
         std::nullopt, "a\tb\r\nc", "xmp:Label=\"Red\"", "xmp:Label=\"a&#9;b&#13;&#10;c\""},
        {"an element keeps its own declaration", sidecar("", "<b:Rating xmlns:b=\"" + xmpUri + "\">1</b:Rating>"),
         2, nullptr, ">1</b:Rating>", ">2</b:Rating>"},
        {"the template", XMPDocument::newSidecarTemplate(), 3, "red",
         "xmlns:xmp=\"" + xmpUri + "\"/>", "xmlns:xmp=\"" + xmpUri + "\" xmp:Rating=\"3\" xmp:Label=\"red\"/>"},
        {"the prefix xmp is taken: xmpp with its own declaration",
         "<rdf:RDF xmlns:rdf=\"" + rdfUri + "\" xmlns:xmp=\"urn:other\"><rdf:Description xmp:Rating=\"9\"/></rdf:RDF>",
         2, "red", "xmp:Rating=\"9\"/>",
         "xmp:Rating=\"9\" xmlns:xmpp=\"" + xmpUri + "\" xmpp:Rating=\"2\" xmpp:Label=\"red\"/>"},
        {"xmp and xmpp taken: xmppp",
         "<rdf:RDF xmlns:rdf=\"" + rdfUri
             + "\" xmlns:xmp=\"urn:a\" xmlns:xmpp=\"urn:b\"><rdf:Description rdf:about=\"\"></rdf:Description></rdf:RDF>",
         1, nullptr, "rdf:about=\"\">", "rdf:about=\"\" xmlns:xmppp=\"" + xmpUri + "\" xmppp:Rating=\"1\">"},
        // Whatever escaping the other program chose stays; nothing to write means identical bytes.
        {"a value already there keeps its bytes", sidecar(" xmp:Rating=\"3\" xmp:Label=\"R&#101;d\""), 3, "Red",
         "xmp:Rating=\"3\"", "xmp:Rating=\"3\""},
        {"a description without attributes", "<rdf:RDF xmlns:rdf=\"" + rdfUri + "\"><rdf:Description>\n</rdf:Description></rdf:RDF>",
         1, nullptr, "<rdf:Description>", "<rdf:Description xmlns:xmp=\"" + xmpUri + "\" xmp:Rating=\"1\">"},
    };
    for (const PatchRow& row : rows) {
        SCOPED_TRACE(row.name);
        const XMPPatch patch = makePatch(row.rating, row.label);
        const Result<QByteArray> saved = patched(row.original, patch);
        ASSERT_TRUE(saved.ok()) << saved.message().toStdString();
        EXPECT_EQ(*saved, replacedOnce(row.original, row.from, row.to));
        const XMPValues read = valuesOf(*saved);
        if (patch.rating) {
            EXPECT_EQ(read.rating, *patch.rating);
        }
        if (patch.label) {
            EXPECT_EQ(read.label, patch.label);
        }
    }
}

TEST(XMPDocumentPatching, complexOrAmbiguousPropertiesAreNeverTouched)
{
    const struct { QByteArray bytes; std::optional<int> rating; const char* label; QString message; } rows[] = {
        {sidecar("", "<xmp:Label><rdf:Alt><rdf:li xml:lang=\"x-default\">Red</rdf:li></rdf:Alt></xmp:Label>"),
         std::nullopt, "Blue",
         QStringLiteral("El campo XMP complejo Label no se puede reemplazar de forma segura")},
        {sidecar("", "<xmp:Rating rdf:parseType=\"Resource\">3</xmp:Rating>"), 1, nullptr,
         QStringLiteral("El campo XMP complejo Rating no se puede reemplazar de forma segura")},
        {sidecar("", "<xmp:Rating>3<!-- keep --></xmp:Rating>"), 1, nullptr,
         QStringLiteral("El campo XMP complejo Rating no se puede reemplazar de forma segura")},
        // Reading stops the edit before anything is changed, even of the other field.
        {sidecar(" xmp:Rating=\"1\"", "<xmp:Rating>2</xmp:Rating>"), std::nullopt, "red",
         QStringLiteral("Valoración o etiqueta XMP duplicada y ambigua")},
        {sidecar(" xmp:Rating=\"7\""), std::nullopt, "red", QStringLiteral("Valoración XMP no compatible")},
        // A label that XML cannot hold is caught when the new bytes are read back.
        {sidecar(""), std::nullopt, "a\x01", QString()},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.bytes.toStdString());
        const Result<QByteArray> saved = patched(row.bytes, makePatch(row.rating, row.label));
        ASSERT_FALSE(saved.ok());
        if (row.message.isEmpty()) {
            EXPECT_TRUE(saved.message().startsWith(QStringLiteral("XML no válido"))) << saved.message().toStdString();
        } else {
            EXPECT_EQ(saved.message(), row.message);
        }
    }
    XMPPatch surrogate;
    surrogate.label = QString(QChar(0xD800));
    EXPECT_EQ(patched(sidecar(""), surrogate).message(), QStringLiteral("La validación del XMP después de guardar ha fallado"));
}

TEST(XMPDocumentCanonicalForm, ignoresAttributeOrderAndDeclarationsButNothingElse)
{
    const auto semantic = [](const QByteArray& bytes) {
        const Result<XMPDocument> document = XMPDocument::parse(bytes);
        EXPECT_TRUE(document.ok()) << document.message().toStdString();
        return document ? document->semantic(true, false) : QByteArray();
    };
    const QByteArray base = semantic(sidecar(" a=\"1\" b=\"2\" xmp:Rating=\"1\"", "<c>t</c><!--n--><?pi d?>"));
    EXPECT_EQ(semantic(sidecar(" b=\"2\" a=\"1\"", "<c>t</c><!--n--><?pi d?>")), base);
    EXPECT_EQ(semantic(sidecar(" xmlns:z=\"urn:z\" b=\"2\" xmp:Rating=\"5\" a=\"1\"", "<c>t</c><!--n--><?pi d?>")), base);
    for (const QByteArray& changed : {
             sidecar(" a=\"1\" b=\"3\"", "<c>t</c><!--n--><?pi d?>"),
             sidecar(" a=\"1\" b=\"2\"", "<c>u</c><!--n--><?pi d?>"),
             sidecar(" a=\"1\" b=\"2\"", "<c>t</c><!--m--><?pi d?>"),
             sidecar(" a=\"1\" b=\"2\"", "<c>t</c><?pi d?><!--n-->"),
             sidecar(" a=\"1\" b=\"2\"", "<c>t</c><!--n--><?pi e?>"),
             sidecar(" a=\"1\" b=\"2\" xmp:Label=\"\"", "<c>t</c><!--n--><?pi d?>"),
         })
        EXPECT_NE(semantic(changed), base) << changed.toStdString();
}

TEST(XMPDocumentParsing, deepNestingAndLargeDocumentsDoNotExhaustTheStack)
{
    QByteArray deep = sidecar("", QByteArray("<a>").repeated(200000) + QByteArray("</a>").repeated(200000));
    const Result<QByteArray> saved = patched(deep, makePatch(2, nullptr));
    ASSERT_TRUE(saved.ok()) << saved.message().toStdString();
    EXPECT_EQ(valuesOf(*saved).rating, 2);
}

} // namespace
} // namespace vantelor
