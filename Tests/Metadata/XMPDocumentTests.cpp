#include <gtest/gtest.h>

#include "Metadata/XMPDocument.h"
#include "Support/XmpFixtures.h"

namespace vantelor {
namespace {

const QByteArray rdfUri = "http://www.w3.org/1999/02/22-rdf-syntax-ns#";
const QByteArray xmpUri = "http://ns.adobe.com/xap/1.0/";

// A bare RDF container with extra declarations on it.
QByteArray rdf(const QByteArray& declarations, const QByteArray& content)
{
    return "<rdf:RDF xmlns:rdf=\"" + rdfUri + "\"" + declarations + ">" + content + "</rdf:RDF>";
}

// A minimal sidecar whose one empty-about description has the given attributes and children.
QByteArray sidecar(const QByteArray& attributes, const QByteArray& children = {})
{
    return "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\">" + rdf({}, "<rdf:Description rdf:about=\"\" xmlns:xmp=\"" + xmpUri + "\"" + attributes + ">" + children + "</rdf:Description>")
        + "</x:xmpmeta>";
}

Result<XMPValues> read(const QByteArray& bytes)
{
    const Result<XMPDocument> document = XMPDocument::parse(bytes);
    return document ? document->values() : Result<XMPValues>(document.failure());
}

Result<QByteArray> patched(const QByteArray& bytes, const XMPPatch& patch)
{
    const Result<XMPDocument> document = XMPDocument::parse(bytes);
    return document ? document->applying(patch) : Result<QByteArray>(document.failure());
}

// A sidecar about this file, next to one about another file, which is neither read nor edited.
const QByteArray elsewhere = "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\">"
    + rdf(" xmlns:xmp=\"" + xmpUri + "\"", "<rdf:Description rdf:about=\"\"/><rdf:Description rdf:about=\"uuid:faf5bdd5\" xmp:Rating=\"4\"/>") + "</x:xmpmeta>";

TEST(XMPDocumentValues, readOrRefusedWithTheirMessage)
{
    const QByteArray xmpDeclaration = " xmlns:xmp=\"" + xmpUri + "\"";
    const QString unsafe = QStringLiteral("El XMP debe ser XML UTF-8 sin DTD ni entidades");
    const QString unsupported = QStringLiteral("Valoración XMP no compatible");
    const QString ambiguous = QStringLiteral("Valoración o etiqueta XMP duplicada y ambigua");
    const QString noRdf = QStringLiteral("Se esperaba un único contenedor RDF");
    const QString structure = QStringLiteral("Estructura XMP no compatible");
    // An error message, or else the rating and label (nullptr: absent) read.
    const struct { QByteArray bytes; QString error; int rating; const char* label; } rows[] = {
        {sidecar(""), {}, 0, nullptr},
        {sidecar(" xmp:Rating=\"5\""), {}, 5, nullptr},
        {sidecar(" xmp:Rating=\"  5 \""), {}, 5, nullptr},
        {sidecar(" xmp:Rating=\"-1\""), {}, -1, nullptr},
        {sidecar("", "<xmp:Rating>\n 4\n</xmp:Rating>"), {}, 4, nullptr},
        {sidecar(" xmp:Rating=\"6\""), unsupported, 0, nullptr},
        {sidecar(" xmp:Rating=\"2.5\""), unsupported, 0, nullptr},
        {sidecar(" xmp:Rating=\"0/\""), unsupported, 0, nullptr},   // '/' is the byte before '0'
        {sidecar(" xmp:Rating=\"99999999999999999999\""), unsupported, 0, nullptr},
        {sidecar(" xmp:Rating=\"\xD9\xA3\""), unsupported, 0, nullptr},   // Arabic-Indic three
        {sidecar(" xmp:Rating=\"3\"", "<xmp:Rating>3</xmp:Rating>"), ambiguous, 0, nullptr},
        {sidecar(" xmp:Label=\"Red\"", "<xmp:Label>Red</xmp:Label>"), ambiguous, 0, nullptr},
        {sidecar(" xmp:Label=\" Red \""), {}, 0, " Red "},   // labels are not trimmed
        {sidecar(" xmp:Label=\"\""), {}, 0, ""},
        {sidecar("", "<xmp:Label>Ro<!-- a comment -->jo &amp; <![CDATA[<azul>]]></xmp:Label>"), {}, 0, "Rojo & <azul>"},
        // Any prefix bound to the xmp namespace counts; the prefix "xmp" bound elsewhere does not.
        {sidecar(" xmlns:b=\"" + xmpUri + "\" b:Rating=\"2\""), {}, 2, nullptr},
        {rdf({}, "<rdf:Description xmlns:xmp=\"urn:other\" xmp:Rating=\"9\"/>"), {}, 0, nullptr},
        // Only top-level descriptions about this file count.
        {rdf(xmpDeclaration, "<rdf:Description rdf:about=\"\" xmp:Rating=\"2\"/><rdf:Description xmp:Rating=\"4\"/>"), ambiguous, 0, nullptr},
        {elsewhere, {}, 0, nullptr},
        {rdf(xmpDeclaration, "<rdf:Description rdf:about=\"\"/><o:Description xmlns:o=\"urn:o\" xmp:Rating=\"4\"/>"), {}, 0, nullptr},
        // Unsafe or unsupported documents.
        {"<?xml version=\"1.0\"?><!DOCTYPE l [<!ENTITY a \"lol\"><!ENTITY b \"&a;&a;&a;&a;&a;&a;&a;&a;\">]><l>&b;</l>", unsafe, 0, nullptr},
        {"<!DOCTYPE x SYSTEM \"file:///etc/passwd\"><x>&xxe;</x>", unsafe, 0, nullptr},
        {sidecar("", "<!-- an <!entity in lower case is refused as well -->"), unsafe, 0, nullptr},
        {sidecar(" xmp:Label=\"&lt;!DocType\""), {}, 0, "<!DocType"},   // escaped text is not a declaration
        {sidecar("", "<!-- <!ENT\xC4\xB1TY ... the dotless i upper-cases to I -->"), unsafe, 0, nullptr},
        {sidecar(" xmp:Label=\"\xC3\x28\""), unsafe, 0, nullptr},   // broken UTF-8
        {sidecar(" xmp:Label=\"\xC0\xAF\""), unsafe, 0, nullptr},   // an over-long form
        {QByteArray(), QStringLiteral("XML vacío"), 0, nullptr},
        {"<x:xmpmeta xmlns:x=\"adobe:ns:meta/\"/>", noRdf, 0, nullptr},
        {"<x:xmpmeta xmlns:x=\"adobe:ns:meta/\">" + rdf({}, {}) + rdf({}, {}) + "</x:xmpmeta>", noRdf, 0, nullptr},
        {"<a><b>" + rdf({}, {}) + "</b></a>", noRdf, 0, nullptr},
        {"<x:xmpmeta xmlns:x=\"adobe:ns:meta/\"><rdf:RDF xmlns:rdf=\"urn:not-rdf\"><rdf:Description/></rdf:RDF></x:xmpmeta>", noRdf, 0, nullptr},
        {rdf({}, {}), structure, 0, nullptr},
        {rdf({}, "<rdf:Description rdf:about=\"x.jpg\"/>"), structure, 0, nullptr},
        {rdf({}, "<rdf:Description/>"), {}, 0, nullptr},
        // The parser's errors say where, and nothing undefined is ever loaded.
        {sidecar(" xmp:Rating=\"1\"", "<open>"), QStringLiteral("XML no válido (línea 1, columna 196): mismatched tag"), 0, nullptr},
        {sidecar(" xmp:Label=\"&undefined;\""), QStringLiteral("XML no válido (línea 1, columna 102): undefined entity"), 0, nullptr},
        {"<x>\x01</x>", QStringLiteral("XML no válido (línea 1, columna 4): not well-formed (invalid token)"), 0, nullptr},
        {QByteArray("<x>\0</x>", 8), QStringLiteral("XML no válido (línea 1, columna 4): not well-formed (invalid token)"), 0, nullptr},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.bytes.toStdString());
        const Result<XMPValues> values = read(row.bytes);
        if (!row.error.isEmpty()) {
            EXPECT_EQ(values.message(), row.error) << values.message().toStdString();
        } else {
            ASSERT_TRUE(values.ok()) << values.message().toStdString();
            EXPECT_EQ(*values, (XMPValues{row.rating, row.label ? std::optional(QString::fromUtf8(row.label)) : std::nullopt}));
        }
    }
}

struct PatchRow {
    const char* name;
    QByteArray original;
    std::optional<int> rating;
    const char* label;
    QByteArray from;   // the one region that changes …
    QByteArray to;     // … and what it becomes
    const char* error = nullptr;   // or the edit is refused with this message
};

TEST(XMPDocumentPatching, onlyTheEditedValuesChangeByteForByteAndComplexOrAmbiguousOnesNever)
{
    const QByteArray lr = test::XmpFixtures::lightroom(3, QStringLiteral("Red"));
    const QByteArray deep = QByteArray("<a>").repeated(200000) + QByteArray("</a>").repeated(200000);
    const PatchRow rows[] = {
        {"Lightroom rating", lr, 5, nullptr, "xmp:Rating=\"3\"", "xmp:Rating=\"5\""},
        {"Lightroom label", lr, std::nullopt, "purple", "xmp:Label=\"Red\"", "xmp:Label=\"purple\""},
        {"Lightroom both absent: inserted after the last attribute, in the tag's own layout", test::XmpFixtures::lightroom(std::nullopt, std::nullopt), 4, "green",
         "crs:HasSettings=\"True\">", "crs:HasSettings=\"True\"\n   xmp:Rating=\"4\"\n   xmp:Label=\"green\">"},
        {"Capture One elements in the second description", test::XmpFixtures::captureOne(2, QStringLiteral("Green")), -1, "",
         "<xmp:Rating>2</xmp:Rating>\n  <xmp:Label>Green</xmp:Label>", "<xmp:Rating>-1</xmp:Rating>\n  <xmp:Label></xmp:Label>"},
        {"darktable label absent, rating kept", test::XmpFixtures::darktable(1, std::nullopt), 1, "yellow",
         "darktable:iop_order_version=\"4\">", "darktable:iop_order_version=\"4\"\n   xmp:Label=\"yellow\">"},
        {"single quotes keep their style", sidecar(" xmp:Label='Red'"), std::nullopt, "it's", "xmp:Label='Red'", "xmp:Label='it&apos;s'"},
        {"line ends in a label survive as references", sidecar(" xmp:Label=\"Red\""), std::nullopt, "a\tb\r\nc", "xmp:Label=\"Red\"", "xmp:Label=\"a&#9;b&#13;&#10;c\""},
        {"an element keeps its own declaration", sidecar("", "<b:Rating xmlns:b=\"" + xmpUri + "\">1</b:Rating>"), 2, nullptr, ">1</b:Rating>", ">2</b:Rating>"},
        {"the template", XMPDocument::newSidecarTemplate(), 3, "red", "xmlns:xmp=\"" + xmpUri + "\"/>", "xmlns:xmp=\"" + xmpUri + "\" xmp:Rating=\"3\" xmp:Label=\"red\"/>"},
        {"the prefix xmp is taken: xmpp with its own declaration", rdf(" xmlns:xmp=\"urn:other\"", "<rdf:Description xmp:Rating=\"9\"/>"), 2, "red",
         "xmp:Rating=\"9\"/>", "xmp:Rating=\"9\" xmlns:xmpp=\"" + xmpUri + "\" xmpp:Rating=\"2\" xmpp:Label=\"red\"/>"},
        {"xmp and xmpp taken: xmppp", rdf(" xmlns:xmp=\"urn:a\" xmlns:xmpp=\"urn:b\"", "<rdf:Description rdf:about=\"\"></rdf:Description>"), 1, nullptr,
         "rdf:about=\"\">", "rdf:about=\"\" xmlns:xmppp=\"" + xmpUri + "\" xmppp:Rating=\"1\">"},
        // Whatever escaping the other program chose stays; nothing to write means identical bytes.
        {"a value already there keeps its bytes", sidecar(" xmp:Rating=\"3\" xmp:Label=\"R&#101;d\""), 3, "Red", "xmp:Rating=\"3\"", "xmp:Rating=\"3\""},
        {"a description without attributes", rdf({}, "<rdf:Description>\n</rdf:Description>"), 1, nullptr, "<rdf:Description>", "<rdf:Description xmlns:xmp=\"" + xmpUri + "\" xmp:Rating=\"1\">"},
        {"only the description about this file", elsewhere, 1, nullptr, "<rdf:Description rdf:about=\"\"/>", "<rdf:Description rdf:about=\"\" xmp:Rating=\"1\"/>"},
        // Deep nesting and a large document do not exhaust the stack.
        {"deep nesting", sidecar("", deep), 2, nullptr, "\"" + xmpUri + "\"><a>", "\"" + xmpUri + "\" xmp:Rating=\"2\"><a>"},
        {"an alternative-language label", sidecar("", "<xmp:Label><rdf:Alt><rdf:li xml:lang=\"x-default\">Red</rdf:li></rdf:Alt></xmp:Label>"), std::nullopt, "Blue", {}, {},
         "El campo XMP complejo Label no se puede reemplazar de forma segura"},
        {"a resource rating", sidecar("", "<xmp:Rating rdf:parseType=\"Resource\">3</xmp:Rating>"), 1, nullptr, {}, {}, "El campo XMP complejo Rating no se puede reemplazar de forma segura"},
        {"a rating with a comment", sidecar("", "<xmp:Rating>3<!-- keep --></xmp:Rating>"), 1, nullptr, {}, {}, "El campo XMP complejo Rating no se puede reemplazar de forma segura"},
        // Reading stops the edit before anything is changed, even of the other field.
        {"a duplicate rating", sidecar(" xmp:Rating=\"1\"", "<xmp:Rating>2</xmp:Rating>"), std::nullopt, "red", {}, {}, "Valoración o etiqueta XMP duplicada y ambigua"},
        {"an unsupported rating", sidecar(" xmp:Rating=\"7\""), std::nullopt, "red", {}, {}, "Valoración XMP no compatible"},
        // A label that XML cannot hold is caught when the new bytes are read back.
        {"a label XML cannot hold", sidecar(""), std::nullopt, "a\x01", {}, {}, "XML no válido (línea 1, columna 185): not well-formed (invalid token)"},
    };
    for (const PatchRow& row : rows) {
        SCOPED_TRACE(row.name);
        // Rows hold plain values: GCC 12 misreads std::optional<QString> members of constant tables.
        const Result<QByteArray> saved = patched(row.original, {row.rating, row.label ? std::optional(QString::fromUtf8(row.label)) : std::nullopt});
        if (row.error) {
            EXPECT_EQ(saved.message(), QString::fromUtf8(row.error)) << saved.message().toStdString();
            continue;
        }
        ASSERT_TRUE(saved.ok()) << saved.message().toStdString();
        // The original with exactly one region replaced.
        const qsizetype at = row.original.indexOf(row.from);
        ASSERT_TRUE(at >= 0 && row.original.indexOf(row.from, at + 1) < 0) << "expectation not unique";
        EXPECT_EQ(*saved, QByteArray(row.original).replace(at, row.from.size(), row.to));
    }
    EXPECT_EQ(patched(sidecar(""), XMPPatch{std::nullopt, QString(QChar(0xD800))}).message(),
              QStringLiteral("La validación del XMP después de guardar ha fallado"));
}

TEST(XMPDocumentCanonicalForm, ignoresAttributeOrderAndDeclarationsButNothingElse)
{
    const auto semantic = [](const QByteArray& bytes) {
        const Result<XMPDocument> document = XMPDocument::parse(bytes);
        EXPECT_TRUE(document.ok()) << document.message().toStdString();
        return document ? document->semantic(true, false) : QByteArray();
    };
    const QByteArray body = "<c>t</c><!--n--><?pi d?>";
    const QByteArray base = semantic(sidecar(" a=\"1\" b=\"2\" xmp:Rating=\"1\"", body));
    EXPECT_EQ(semantic(sidecar(" b=\"2\" a=\"1\"", body)), base);
    EXPECT_EQ(semantic(sidecar(" xmlns:z=\"urn:z\" b=\"2\" xmp:Rating=\"5\" a=\"1\"", body)), base);
    for (const QByteArray& changed : {sidecar(" a=\"1\" b=\"3\"", body), sidecar(" a=\"1\" b=\"2\"", "<c>u</c><!--n--><?pi d?>"),
                                      sidecar(" a=\"1\" b=\"2\"", "<c>t</c><!--m--><?pi d?>"),
                                      sidecar(" a=\"1\" b=\"2\"", "<c>t</c><?pi d?><!--n-->"),
                                      sidecar(" a=\"1\" b=\"2\"", "<c>t</c><!--n--><?pi e?>"),
                                      sidecar(" a=\"1\" b=\"2\" xmp:Label=\"\"", body)})
        EXPECT_NE(semantic(changed), base) << changed.toStdString();
}

} // namespace
} // namespace vantelor
