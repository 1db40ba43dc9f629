#include "Metadata/XMLTree.h"

#include <algorithm>
#include <climits>

#include <expat.h>

namespace vantelor {

namespace {

// Hostile documents are bounded by their count of parts, not only by their size: 16 MiB of "<a/>"
// would otherwise cost gigabytes of tree. Real sidecars hold a few hundred.
constexpr size_t maximumParts = 1'000'000;

// Expat joins namespace URI, local name and prefix with this character. It cannot occur in a
// URI: XML 1.0 forbids it everywhere, even as a character reference.
constexpr char separator = '\x01';

bool isSpace(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

// One attribute or namespace declaration as it stands in a start tag.
struct RawAttribute {
    QByteArrayView qualifiedName;
    qsizetype separatorBegin = 0;
    qsizetype nameBegin = 0;
    qsizetype valueBegin = 0;
    qsizetype valueEnd = 0;
    char quote = '"';
};

bool isNamespaceDeclaration(QByteArrayView qualifiedName)
{
    return qualifiedName == QByteArrayView("xmlns") || qualifiedName.startsWith(QByteArrayView("xmlns:"));
}

// The names and most values of a tree are slices of its own bytes, which it keeps for its whole
// life: no copies for them.
QByteArray slice(const QByteArray& bytes, qsizetype begin, qsizetype length)
{
    return QByteArray::fromRawData(bytes.constData() + begin, length);
}

// Finds the attributes of a start tag that expat has already found well-formed, so this only
// has to split it, not to check it. Returns false if the tag does not look as expected.
bool lexStartTag(const QByteArray& bytes, qsizetype begin, qsizetype end, qsizetype& nameEnd,
                 std::vector<RawAttribute>& out)
{
    const char* b = bytes.constData();
    if (end - begin < 3 || b[begin] != '<')
        return false;
    qsizetype pos = begin + 1;
    while (pos < end && !isSpace(b[pos]) && b[pos] != '/' && b[pos] != '>')
        ++pos;
    nameEnd = pos;
    for (;;) {
        RawAttribute raw;
        raw.separatorBegin = pos;
        while (pos < end && isSpace(b[pos]))
            ++pos;
        if (pos >= end)
            return false;
        if (b[pos] == '/' || b[pos] == '>')
            return true;
        if (pos == raw.separatorBegin)
            return false;
        raw.nameBegin = pos;
        while (pos < end && !isSpace(b[pos]) && b[pos] != '=')
            ++pos;
        raw.qualifiedName = QByteArrayView(b + raw.nameBegin, pos - raw.nameBegin);
        while (pos < end && isSpace(b[pos]))
            ++pos;
        if (pos >= end || b[pos] != '=')
            return false;
        ++pos;
        while (pos < end && isSpace(b[pos]))
            ++pos;
        if (pos >= end || (b[pos] != '"' && b[pos] != '\''))
            return false;
        raw.quote = b[pos];
        raw.valueBegin = ++pos;
        while (pos < end && b[pos] != raw.quote)
            ++pos;
        if (pos >= end)
            return false;
        raw.valueEnd = pos++;
        out.push_back(std::move(raw));
    }
}

// "uri␁local␁prefix", "uri␁local" or "local", as expat reports names: the shared URI (they repeat
// on almost every name), and the qualified name as it is written, to be found in the tag.
void splitName(const char* name, std::vector<QByteArray>& uris, QByteArray& uri, QByteArrayView& prefix,
               QByteArrayView& localName)
{
    const QByteArrayView all(name);
    const qsizetype first = all.indexOf(separator);
    prefix = {};
    if (first < 0) {
        uri.clear();
        localName = all;
        return;
    }
    const QByteArrayView uriView = all.first(first);
    const auto known = std::find_if(uris.begin(), uris.end(), [&](const QByteArray& u) { return u == uriView; });
    if (known != uris.end()) {
        uri = *known;
    } else {
        uri = uriView.toByteArray();
        uris.push_back(uri);
    }
    const QByteArrayView rest = all.sliced(first + 1);
    const qsizetype second = rest.indexOf(separator);
    if (second < 0) {
        localName = rest;
    } else {
        localName = rest.first(second);
        prefix = rest.sliced(second + 1);
    }
}

bool sameQualifiedName(QByteArrayView written, QByteArrayView prefix, QByteArrayView localName)
{
    if (prefix.isEmpty())
        return written == localName;
    return written.size() == prefix.size() + 1 + localName.size() && written.startsWith(prefix)
        && written[prefix.size()] == ':' && written.endsWith(localName);
}

} // namespace

struct XMLTreeBuilder {
    XML_Parser parser = nullptr;
    XMLTree tree;
    std::vector<int> open{0};
    std::vector<XMLTree::NamespaceDeclaration> pending;
    std::vector<QByteArray> uris;
    std::vector<RawAttribute> raw;
    bool documentTypeDeclaration = false;
    bool unexpected = false;
    bool tooLarge = false;

    int append(XMLTree::Node node)
    {
        if (tree.m_nodes.size() + tree.m_attributes.size() >= maximumParts) {
            tooLarge = true;
            stop();
        }
        const int index = int(tree.m_nodes.size());
        node.parent = open.back();
        XMLTree::Node& parent = tree.m_nodes[size_t(node.parent)];
        if (parent.lastChild >= 0)
            tree.m_nodes[size_t(parent.lastChild)].nextSibling = index;
        else
            parent.firstChild = index;
        parent.lastChild = index;
        tree.m_nodes.push_back(std::move(node));
        return index;
    }

    void stop()
    {
        XML_StopParser(parser, XML_FALSE);
    }

    static void startNamespace(void* data, const XML_Char* prefix, const XML_Char* uri)
    {
        auto* self = static_cast<XMLTreeBuilder*>(data);
        self->pending.push_back({QByteArray(prefix ? prefix : ""), QByteArray(uri ? uri : "")});
    }

    static void startElement(void* data, const XML_Char* name, const XML_Char** atts)
    {
        auto* self = static_cast<XMLTreeBuilder*>(data);
        XMLTree& tree = self->tree;
        const qsizetype begin = qsizetype(XML_GetCurrentByteIndex(self->parser));
        const qsizetype end = begin + XML_GetCurrentByteCount(self->parser);

        XMLTree::Node node;
        node.kind = XMLTree::Kind::element;
        node.begin = begin;
        node.startTagEnd = end;
        node.emptyElementTag = end - begin >= 2 && tree.m_bytes.at(end - 2) == '/' && tree.m_bytes.at(end - 1) == '>';

        std::vector<RawAttribute>& raw = self->raw;
        raw.clear();
        qsizetype nameEnd = 0;
        QByteArrayView prefix;
        QByteArrayView localName;
        splitName(name, self->uris, node.uri, prefix, localName);
        if (!lexStartTag(tree.m_bytes, begin, end, nameEnd, raw)
            || !sameQualifiedName(QByteArrayView(tree.m_bytes).sliced(begin + 1, nameEnd - begin - 1), prefix, localName)) {
            self->unexpected = true;
            self->stop();
            return;
        }
        node.qualifiedName = slice(tree.m_bytes, begin + 1, nameEnd - begin - 1);
        node.localName = slice(tree.m_bytes, nameEnd - localName.size(), localName.size());
        node.insertionPoint = raw.empty() ? nameEnd : raw.back().valueEnd + 1;
        node.attributeSeparator = raw.empty()
            ? QByteArray(" ")
            : slice(tree.m_bytes, raw.back().separatorBegin, raw.back().nameBegin - raw.back().separatorBegin);

        // Expat reports the specified attributes in the order of the tag, with the namespace
        // declarations taken out; match them to their positions one by one.
        node.firstAttribute = int(tree.m_attributes.size());
        size_t next = 0;
        for (const XML_Char** att = atts; *att; att += 2) {
            while (next < raw.size() && isNamespaceDeclaration(raw[next].qualifiedName))
                ++next;
            XMLTree::Attribute attribute;
            splitName(att[0], self->uris, attribute.uri, prefix, localName);
            if (next >= raw.size() || !sameQualifiedName(raw[next].qualifiedName, prefix, localName)) {
                self->unexpected = true;
                self->stop();
                return;
            }
            const RawAttribute& written = raw[next];
            attribute.qualifiedName = slice(tree.m_bytes, written.nameBegin, written.qualifiedName.size());
            attribute.localName = slice(tree.m_bytes, written.nameBegin + written.qualifiedName.size() - localName.size(),
                                        localName.size());
            // Most values are written as they read: no references, no line ends to normalise.
            const QByteArrayView decoded(att[1]);
            const QByteArrayView source = QByteArrayView(tree.m_bytes).sliced(written.valueBegin, written.valueEnd - written.valueBegin);
            attribute.value = decoded == source ? slice(tree.m_bytes, written.valueBegin, source.size()) : decoded.toByteArray();
            attribute.valueBegin = written.valueBegin;
            attribute.valueEnd = written.valueEnd;
            attribute.quote = written.quote;
            tree.m_attributes.push_back(std::move(attribute));
            ++next;
        }
        node.attributeCount = int(tree.m_attributes.size()) - node.firstAttribute;

        node.firstNamespace = int(tree.m_namespaces.size());
        node.namespaceCount = int(self->pending.size());
        for (auto& declaration : self->pending)
            tree.m_namespaces.push_back(std::move(declaration));
        self->pending.clear();

        self->open.push_back(self->append(std::move(node)));
    }

    static void endElement(void* data, const XML_Char*)
    {
        auto* self = static_cast<XMLTreeBuilder*>(data);
        XMLTree::Node& node = self->tree.m_nodes[size_t(self->open.back())];
        const int count = XML_GetCurrentByteCount(self->parser);
        if (count == 0) {
            node.endTagBegin = node.startTagEnd;
            node.end = node.startTagEnd;
        } else {
            node.endTagBegin = qsizetype(XML_GetCurrentByteIndex(self->parser));
            node.end = node.endTagBegin + count;
        }
        self->open.pop_back();
    }

    static void characters(void* data, const XML_Char* text, int length)
    {
        auto* self = static_cast<XMLTreeBuilder*>(data);
        XMLTree::Node& parent = self->tree.m_nodes[size_t(self->open.back())];
        if (parent.lastChild >= 0 && self->tree.m_nodes[size_t(parent.lastChild)].kind == XMLTree::Kind::text) {
            self->tree.m_nodes[size_t(parent.lastChild)].value.append(text, length);
            return;
        }
        XMLTree::Node node;
        node.kind = XMLTree::Kind::text;
        node.value = QByteArray(text, length);
        self->append(std::move(node));
    }

    static void comment(void* data, const XML_Char* text)
    {
        auto* self = static_cast<XMLTreeBuilder*>(data);
        XMLTree::Node node;
        node.kind = XMLTree::Kind::comment;
        node.value = QByteArray(text);
        self->append(std::move(node));
    }

    static void processingInstruction(void* data, const XML_Char* target, const XML_Char* text)
    {
        auto* self = static_cast<XMLTreeBuilder*>(data);
        XMLTree::Node node;
        node.kind = XMLTree::Kind::processingInstruction;
        node.localName = QByteArray(target);
        node.value = QByteArray(text);
        self->append(std::move(node));
    }

    static void startDoctype(void* data, const XML_Char*, const XML_Char*, const XML_Char*, int)
    {
        auto* self = static_cast<XMLTreeBuilder*>(data);
        self->documentTypeDeclaration = true;
        self->stop();
    }

    static void entityDeclaration(void* data, const XML_Char*, int, const XML_Char*, int, const XML_Char*,
                                  const XML_Char*, const XML_Char*, const XML_Char*)
    {
        auto* self = static_cast<XMLTreeBuilder*>(data);
        self->documentTypeDeclaration = true;
        self->stop();
    }

    // Never loads anything: with no document type declaration there is nothing to load, and
    // this refusal stays in place should one ever get through.
    static int externalEntity(XML_Parser, const XML_Char*, const XML_Char*, const XML_Char*, const XML_Char*)
    {
        return XML_STATUS_ERROR;
    }
};

std::optional<XMLTree> XMLTree::parse(const QByteArray& bytes, ParseError& error)
{
    error = {};
    if (bytes.size() > INT_MAX) {
        error.text = QStringLiteral("XML demasiado grande");
        return std::nullopt;
    }
    XMLTreeBuilder builder;
    builder.tree.m_bytes = bytes;
    XMLTree::Node document;
    document.kind = Kind::document;
    document.end = bytes.size();
    builder.tree.m_nodes.push_back(document);
    const size_t expected = size_t(std::min<qsizetype>(bytes.size() / 48 + 16, 4096));
    builder.tree.m_nodes.reserve(expected);
    builder.tree.m_attributes.reserve(expected);

    // One parser per thread, reset for each document: creating one costs as much as parsing a
    // small sidecar. A reset keeps namespace processing and clears every handler.
    struct ParserOfThisThread {
        XML_Parser parser = XML_ParserCreateNS("UTF-8", separator);
        ~ParserOfThisThread()
        {
            if (parser)
                XML_ParserFree(parser);
        }
    };
    thread_local ParserOfThisThread reusable;
    const XML_Parser parser = reusable.parser;
    if (!parser || !XML_ParserReset(parser, "UTF-8")) {
        error.text = QStringLiteral("XML: sin memoria");
        return std::nullopt;
    }
    builder.parser = parser;
    XML_SetUserData(parser, &builder);
    XML_SetReturnNSTriplet(parser, 1);
    XML_SetParamEntityParsing(parser, XML_PARAM_ENTITY_PARSING_NEVER);
    XML_SetExternalEntityRefHandler(parser, &XMLTreeBuilder::externalEntity);
    XML_SetStartDoctypeDeclHandler(parser, &XMLTreeBuilder::startDoctype);
    XML_SetEntityDeclHandler(parser, &XMLTreeBuilder::entityDeclaration);
    XML_SetStartNamespaceDeclHandler(parser, &XMLTreeBuilder::startNamespace);
    XML_SetElementHandler(parser, &XMLTreeBuilder::startElement, &XMLTreeBuilder::endElement);
    XML_SetCharacterDataHandler(parser, &XMLTreeBuilder::characters);
    XML_SetCommentHandler(parser, &XMLTreeBuilder::comment);
    XML_SetProcessingInstructionHandler(parser, &XMLTreeBuilder::processingInstruction);

    const XML_Status status = XML_Parse(parser, bytes.constData(), int(bytes.size()), XML_TRUE);
    std::optional<XMLTree> result;
    if (builder.documentTypeDeclaration) {
        error.documentTypeDeclaration = true;
        error.text = QStringLiteral("XML con declaración de tipo de documento");
    } else if (builder.tooLarge) {
        error.tooLarge = true;
        error.text = QStringLiteral("XML con demasiados elementos");
    } else if (builder.unexpected) {
        error.text = QStringLiteral("XML no válido (línea %1, columna %2): etiqueta no reconocida")
                         .arg(XML_GetCurrentLineNumber(parser))
                         .arg(XML_GetCurrentColumnNumber(parser) + 1);
    } else if (status != XML_STATUS_OK) {
        const XML_Error code = XML_GetErrorCode(parser);
        error.noElement = code == XML_ERROR_NO_ELEMENTS;
        error.text = QStringLiteral("XML no válido (línea %1, columna %2): %3")
                         .arg(XML_GetCurrentLineNumber(parser))
                         .arg(XML_GetCurrentColumnNumber(parser) + 1)
                         .arg(QString::fromUtf8(XML_ErrorString(code)));
    } else {
        result = std::move(builder.tree);
    }
    return result;
}

int XMLTree::rootElement() const
{
    for (int child = m_nodes.front().firstChild; child >= 0; child = node(child).nextSibling)
        if (node(child).kind == Kind::element)
            return child;
    return -1;
}

QList<int> XMLTree::childElements(int element) const
{
    QList<int> out;
    for (int child = node(element).firstChild; child >= 0; child = node(child).nextSibling)
        if (node(child).kind == Kind::element)
            out.append(child);
    return out;
}

QByteArray XMLTree::stringValue(int element) const
{
    QByteArray out;
    // Depth-first through the subtree without recursion: hostile documents can nest deeply.
    int current = node(element).firstChild;
    while (current >= 0) {
        const Node& n = node(current);
        if (n.kind == Kind::text)
            out += n.value;
        if (n.firstChild >= 0) {
            current = n.firstChild;
            continue;
        }
        int up = current;
        while (up != element && node(up).nextSibling < 0)
            up = node(up).parent;
        current = up == element ? -1 : node(up).nextSibling;
    }
    return out;
}

bool XMLTree::hasStructure(int element) const
{
    if (node(element).attributeCount > 0)
        return true;
    for (int child = node(element).firstChild; child >= 0; child = node(child).nextSibling)
        if (node(child).kind != Kind::text)
            return true;
    return false;
}

std::optional<QByteArray> XMLTree::namespaceInScope(int element, const QByteArray& prefix) const
{
    for (int e = element; e > 0; e = node(e).parent) {
        const Node& n = node(e);
        for (int i = n.firstNamespace + n.namespaceCount - 1; i >= n.firstNamespace; --i)
            if (namespaceDeclaration(i).prefix == prefix)
                return namespaceDeclaration(i).uri;
    }
    if (prefix == "xml")
        return QByteArray("http://www.w3.org/XML/1998/namespace");
    return std::nullopt;
}

} // namespace vantelor
