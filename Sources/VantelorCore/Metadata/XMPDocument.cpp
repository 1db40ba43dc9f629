#include "Metadata/XMPDocument.h"

#include <algorithm>
#include <charconv>
#include <cstring>

#include <QByteArrayView>

namespace vantelor {

namespace {

const QString unsafeText = QStringLiteral("El XMP debe ser XML UTF-8 sin DTD ni entidades");
const QString unsupportedStructure = QStringLiteral("Estructura XMP no compatible");

const QByteArray& fieldName(XMPDocument::Field field)
{
    static const QByteArray rating("Rating");
    static const QByteArray label("Label");
    return field == XMPDocument::Field::rating ? rating : label;
}

// The test is made on the upper-cased text, so that no spelling of a declaration gets through,
// even in a comment or a value. Upper-casing never produces "<" or "!", so a document without
// "<!" (most sidecars: no comments, no CDATA) needs no conversion at all.
bool mentionsDeclaration(const QByteArray& bytes)
{
    if (!bytes.contains("<!"))
        return false;
    const QString upper = QString::fromUtf8(bytes).toUpper();
    return upper.contains(QLatin1String("<!DOCTYPE")) || upper.contains(QLatin1String("<!ENTITY"));
}

// Only "+" or "-" followed by ASCII digits, whatever the locale.
std::optional<int> parseRating(const QByteArray& raw)
{
    const QString text = QString::fromUtf8(raw).trimmed();
    qsizetype i = 0;
    bool negative = false;
    if (!text.isEmpty() && (text.front() == QLatin1Char('+') || text.front() == QLatin1Char('-'))) {
        negative = text.front() == QLatin1Char('-');
        i = 1;
    }
    if (i >= text.size())
        return std::nullopt;
    qint64 value = 0;
    for (; i < text.size(); ++i) {
        const char16_t c = text.at(i).unicode();
        if (c < u'0' || c > u'9')
            return std::nullopt;
        value = value * 10 + (c - u'0');
        if (value > qint64(INT_MAX))
            return std::nullopt;
    }
    if (negative)
        value = -value;
    if (value < -1 || value > 5)
        return std::nullopt;
    return int(value);
}

// In an attribute (a quote given) line ends and tabs are written as character references: a
// literal one would be turned into a space, or a carriage return into a line feed, when the file
// is read back. Element text keeps its tabs and line feeds.
QByteArray escaped(const QByteArray& text, char quote = 0)
{
    const bool attribute = quote != 0;
    QByteArray out;
    out.reserve(text.size());
    for (const char c : text) {
        switch (c) {
        case '&': out += "&amp;"; break;
        case '<': out += "&lt;"; break;
        case '>': out += "&gt;"; break;
        case '"': out += quote == '"' ? QByteArrayView("&quot;") : QByteArrayView("\""); break;
        case '\'': out += quote == '\'' ? QByteArrayView("&apos;") : QByteArrayView("'"); break;
        case '\t': out += attribute ? QByteArrayView("&#9;") : QByteArrayView("\t"); break;
        case '\n': out += attribute ? QByteArrayView("&#10;") : QByteArrayView("\n"); break;
        case '\r': out += "&#13;"; break;
        default: out += c;
        }
    }
    return out;
}

void appendNumber(QByteArray& out, qsizetype value)
{
    char digits[24];
    const auto result = std::to_chars(digits, digits + sizeof digits, qint64(value));
    out.append(digits, result.ptr - digits);
}

// kind ":" length ":" "{" uri "}" local ":" length ":" value, written straight into the text.
void appendItem(QByteArray& out, XMLTree::Kind kind, const QByteArray& uri, const QByteArray& localName,
                const QByteArray& value)
{
    appendNumber(out, int(kind));
    out += ':';
    appendNumber(out, uri.size() + localName.size() + 2);
    out += ":{";
    out += uri;
    out += '}';
    out += localName;
    out += ':';
    appendNumber(out, value.size());
    out += ':';
    out += value;
}

struct Splice {
    qsizetype at = 0;
    qsizetype length = 0;
    QByteArray bytes;
};

} // namespace

const QByteArray& XMPDocument::xmpNamespace()
{
    static const QByteArray uri("http://ns.adobe.com/xap/1.0/");
    return uri;
}

const QByteArray& XMPDocument::rdfNamespace()
{
    static const QByteArray uri("http://www.w3.org/1999/02/22-rdf-syntax-ns#");
    return uri;
}

const QByteArray& XMPDocument::newSidecarTemplate()
{
    static const QByteArray bytes = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                                    "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\"><rdf:RDF xmlns:rdf=\""
        + rdfNamespace() + "\"><rdf:Description rdf:about=\"\" xmlns:xmp=\"" + xmpNamespace()
        + "\"/></rdf:RDF></x:xmpmeta>";
    return bytes;
}

XMPDocument::XMPDocument(XMLTree tree, QList<int> descriptions)
    : m_tree(std::move(tree)), m_descriptions(std::move(descriptions))
{
}

Result<XMPDocument> XMPDocument::parse(const QByteArray& bytes)
{
    if (!QByteArrayView(bytes).isValidUtf8() || mentionsDeclaration(bytes))
        return WorkflowError::invalid(unsafeText);

    XMLTree::ParseError error;
    std::optional<XMLTree> tree = XMLTree::parse(bytes, error);
    if (!tree) {
        if (error.documentTypeDeclaration || error.tooLarge)
            return WorkflowError::invalid(unsupportedStructure);
        if (error.noElement)
            return WorkflowError::invalid(QStringLiteral("XML vacío"));
        return WorkflowError::invalid(error.text);
    }

    const int root = tree->rootElement();
    if (root < 0)
        return WorkflowError::invalid(QStringLiteral("XML vacío"));
    QList<int> candidates{root};
    candidates += tree->childElements(root);
    QList<int> containers;
    for (const int candidate : candidates) {
        const XMLTree::Node& n = tree->node(candidate);
        if (n.localName == "RDF" && n.uri == rdfNamespace())
            containers.append(candidate);
    }
    if (containers.size() != 1)
        return WorkflowError::invalid(QStringLiteral("Se esperaba un único contenedor RDF"));

    QList<int> descriptions;
    for (const int child : tree->childElements(containers.front())) {
        const XMLTree::Node& n = tree->node(child);
        if (n.localName != "Description" || n.uri != rdfNamespace())
            continue;
        bool aboutSomethingElse = false;
        for (int a = n.firstAttribute; a < n.firstAttribute + n.attributeCount; ++a) {
            const XMLTree::Attribute& attribute = tree->attribute(a);
            if (attribute.localName == "about" && attribute.uri == rdfNamespace() && !attribute.value.isEmpty())
                aboutSomethingElse = true;
        }
        if (!aboutSomethingElse)
            descriptions.append(child);
    }
    if (descriptions.isEmpty())
        return WorkflowError::invalid(unsupportedStructure);
    return XMPDocument(std::move(*tree), std::move(descriptions));
}

QList<XMPDocument::Property> XMPDocument::nodes(int description, Field field) const
{
    QList<Property> out;
    const QByteArray& name = fieldName(field);
    const XMLTree::Node& n = m_tree.node(description);
    for (int a = n.firstAttribute; a < n.firstAttribute + n.attributeCount; ++a)
        if (m_tree.attribute(a).localName == name && m_tree.attribute(a).uri == xmpNamespace())
            out.append({true, a});
    for (const int child : m_tree.childElements(description))
        if (m_tree.node(child).localName == name && m_tree.node(child).uri == xmpNamespace())
            out.append({false, child});
    return out;
}

QList<XMPDocument::Property> XMPDocument::allNodes(Field field) const
{
    QList<Property> out;
    for (const int description : m_descriptions)
        out += nodes(description, field);
    return out;
}

QByteArray XMPDocument::propertyValue(const Property& property) const
{
    return property.isAttribute ? m_tree.attribute(property.index).value : m_tree.stringValue(property.index);
}

Result<XMPValues> XMPDocument::values() const
{
    const QList<Property> ratings = allNodes(Field::rating);
    const QList<Property> labels = allNodes(Field::label);
    if (ratings.size() > 1 || labels.size() > 1)
        return WorkflowError::invalid(QStringLiteral("Valoración o etiqueta XMP duplicada y ambigua"));
    XMPValues out;
    const std::optional<int> rating = parseRating(ratings.isEmpty() ? QByteArray("0") : propertyValue(ratings.front()));
    if (!rating)
        return WorkflowError::invalid(QStringLiteral("Valoración XMP no compatible"));
    out.rating = *rating;
    if (!labels.isEmpty())
        out.label = QString::fromUtf8(propertyValue(labels.front()));
    return out;
}

QByteArray XMPDocument::semantic(bool excludeRating, bool excludeLabel) const
{
    const auto excluded = [&](const QByteArray& uri, const QByteArray& localName) {
        if (uri != xmpNamespace())
            return false;
        return (excludeRating && localName == fieldName(Field::rating))
            || (excludeLabel && localName == fieldName(Field::label));
    };
    const QByteArray none;
    QList<QByteArray> attributes;
    const auto open = [&](QByteArray& out, const XMLTree::Node& n) {
        const bool named = n.kind == XMLTree::Kind::element || n.kind == XMLTree::Kind::processingInstruction;
        const bool valued = n.kind == XMLTree::Kind::text || n.kind == XMLTree::Kind::comment
            || n.kind == XMLTree::Kind::processingInstruction;
        appendItem(out, n.kind, n.kind == XMLTree::Kind::element ? n.uri : none, named ? n.localName : none,
                   valued ? n.value : none);
        out += '[';
        attributes.clear();
        for (int a = n.firstAttribute; a < n.firstAttribute + n.attributeCount; ++a) {
            const XMLTree::Attribute& attribute = m_tree.attribute(a);
            if (excluded(attribute.uri, attribute.localName))
                continue;
            QByteArray text;
            appendItem(text, XMLTree::Kind::attribute, attribute.uri, attribute.localName, attribute.value);
            text += "[][]";
            attributes.append(text);
        }
        std::sort(attributes.begin(), attributes.end());
        for (const QByteArray& text : attributes)
            out += text;
        out += "][";
    };

    // Pre-order without recursion, closing each entered node when its last child is done.
    QByteArray out;
    out.reserve(m_tree.bytes().size() * 2);
    int current = 0;
    for (;;) {
        const XMLTree::Node& n = m_tree.node(current);
        const bool entered = !(n.kind == XMLTree::Kind::element && excluded(n.uri, n.localName));
        if (entered) {
            open(out, n);
            if (n.firstChild >= 0) {
                current = n.firstChild;
                continue;
            }
            out += ']';
        }
        while (current != 0 && m_tree.node(current).nextSibling < 0) {
            current = m_tree.node(current).parent;
            out += ']';
        }
        if (current == 0)
            break;
        current = m_tree.node(current).nextSibling;
    }
    return out;
}

Result<QByteArray> XMPDocument::applying(const XMPPatch& patch) const
{
    const Result<XMPValues> current = values();
    if (!current)
        return current.failure();
    const bool setsRating = patch.rating.has_value();
    const bool setsLabel = patch.label.has_value();
    const QByteArray before = semantic(setsRating, setsLabel);

    std::vector<Splice> splices;
    // Declarations this edit adds to the first description, seen by the second field's lookup.
    QList<QByteArray> declaredPrefixes;
    for (const Field field : {Field::rating, Field::label}) {
        const bool sets = field == Field::rating ? setsRating : setsLabel;
        if (!sets)
            continue;
        const QByteArray value = field == Field::rating ? QByteArray::number(*patch.rating) : patch.label->toUtf8();
        const QList<Property> found = allNodes(field);

        if (found.isEmpty()) {
            const int description = m_descriptions.front();
            const XMLTree::Node& n = m_tree.node(description);
            QByteArray prefix("xmp");
            bool declare = false;
            for (;;) {
                std::optional<QByteArray> bound = declaredPrefixes.contains(prefix)
                    ? std::optional<QByteArray>(xmpNamespace())
                    : m_tree.namespaceInScope(description, prefix);
                if (!bound) {
                    declare = true;
                    break;
                }
                if (*bound == xmpNamespace())
                    break;
                prefix += 'p';
            }
            QByteArray inserted;
            if (declare) {
                inserted += n.attributeSeparator + "xmlns:" + prefix + "=\"" + xmpNamespace() + '"';
                declaredPrefixes.append(prefix);
            }
            inserted += n.attributeSeparator + prefix + ':' + fieldName(field) + "=\"" + escaped(value, '"') + '"';
            splices.push_back({n.insertionPoint, 0, inserted});
            continue;
        }

        const Property& property = found.front();
        if (property.isAttribute) {
            const XMLTree::Attribute& attribute = m_tree.attribute(property.index);
            // An unchanged value keeps its bytes, whatever escaping the other program chose.
            if (attribute.value != value)
                splices.push_back({attribute.valueBegin, attribute.valueEnd - attribute.valueBegin,
                                   escaped(value, attribute.quote)});
            continue;
        }
        if (m_tree.hasStructure(property.index))
            return WorkflowError::invalid(QStringLiteral("El campo XMP complejo ") + QString::fromLatin1(fieldName(field))
                                          + QStringLiteral(" no se puede reemplazar de forma segura"));
        if (m_tree.stringValue(property.index) == value)
            continue;
        const XMLTree::Node& element = m_tree.node(property.index);
        if (element.emptyElementTag) {
            // "<xmp:Label/>" becomes "<xmp:Label>text</xmp:Label>"; its declarations stay.
            QByteArray replacement = m_tree.bytes().mid(element.begin, element.startTagEnd - element.begin - 2);
            replacement += '>' + escaped(value) + "</" + element.qualifiedName + '>';
            splices.push_back({element.begin, element.end - element.begin, replacement});
        } else {
            splices.push_back({element.startTagEnd, element.endTagBegin - element.startTagEnd, escaped(value)});
        }
    }

    std::stable_sort(splices.begin(), splices.end(), [](const Splice& a, const Splice& b) { return a.at < b.at; });
    const QByteArray& original = m_tree.bytes();
    QByteArray bytes;
    bytes.reserve(original.size() + 256);
    qsizetype done = 0;
    for (const Splice& splice : splices) {
        bytes.append(original.constData() + done, splice.at - done);
        bytes += splice.bytes;
        done = splice.at + splice.length;
    }
    bytes.append(original.constData() + done, original.size() - done);

    const Result<XMPDocument> written = parse(bytes);
    if (!written)
        return written.failure();
    if (written->semantic(setsRating, setsLabel) != before)
        return WorkflowError::invalid(QStringLiteral("Los metadatos ajenos cambiaron al generar el XML; guardado rechazado"));
    const Result<XMPValues> readBack = written->values();
    if (!readBack)
        return readBack.failure();
    if ((setsRating && readBack->rating != *patch.rating) || (setsLabel && readBack->label != patch.label))
        return WorkflowError::invalid(QStringLiteral("La validación del XMP después de guardar ha fallado"));
    return bytes;
}

} // namespace vantelor
