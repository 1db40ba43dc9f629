#pragma once

#include <optional>
#include <vector>

#include <QByteArray>
#include <QList>
#include <QString>

namespace vantelor {

// A parsed XML document that remembers where each element, attribute value and namespace
// declaration came from in the original bytes. It is read-only: an edit is made by splicing new
// bytes into the original at those positions, so everything that is not edited stays exactly as
// the other program wrote it (quotes, attribute order, white space, line ends, empty-element
// forms). Built by expat, which never loads an external entity here and is stopped at the first
// sign of a document type declaration. Names and most values are slices of the tree's own bytes:
// copy them (as QString does) before the tree goes away. Not shared between threads.
class XMLTree {
public:
    // The node kinds, numbered as the canonical comparison writes them.
    enum class Kind : quint8 {
        document = 1,
        element = 2,
        attribute = 3,
        namespaceDeclaration = 4,
        processingInstruction = 5,
        comment = 6,
        text = 7,
    };

    struct Attribute {
        QByteArray uri;          // empty when the attribute has no prefix
        QByteArray localName;
        QByteArray qualifiedName;
        QByteArray value;        // decoded (entities and character references resolved), UTF-8
        qsizetype valueBegin = 0; // the raw value between the quotes
        qsizetype valueEnd = 0;
        char quote = '"';
    };

    struct NamespaceDeclaration {
        QByteArray prefix;       // empty for the default namespace
        QByteArray uri;
    };

    struct Node {
        Kind kind = Kind::element;
        int parent = -1;
        int firstChild = -1;
        int lastChild = -1;
        int nextSibling = -1;
        QByteArray uri;            // elements
        QByteArray localName;      // elements; the target of a processing instruction
        QByteArray qualifiedName;  // elements
        QByteArray value;          // text, comment and processing-instruction data, UTF-8
        int firstAttribute = 0;
        int attributeCount = 0;
        int firstNamespace = 0;
        int namespaceCount = 0;
        // Elements: [begin, startTagEnd) is the start tag, [endTagBegin, end) the end tag; both
        // ranges coincide for an empty-element tag ("<a/>").
        qsizetype begin = 0;
        qsizetype startTagEnd = 0;
        qsizetype endTagBegin = 0;
        qsizetype end = 0;
        // Where a new attribute goes: just after the last attribute or declaration of the start
        // tag (or after the name when there is none), and the white space that came before that
        // last one, so that an insertion follows the tag's own layout.
        qsizetype insertionPoint = 0;
        QByteArray attributeSeparator;
        bool emptyElementTag = false;
    };

    struct ParseError {
        bool documentTypeDeclaration = false; // stopped at a DOCTYPE
        bool noElement = false;               // nothing but white space, comments or instructions
        bool tooLarge = false;                // more parts than any real sidecar holds
        QString text;                         // the parser's own description, with line and column
    };

    // Parses UTF-8 bytes (any encoding declaration is overridden). Fails on any well-formedness
    // or namespace error and at a document type declaration.
    static std::optional<XMLTree> parse(const QByteArray& bytes, ParseError& error);

    const QByteArray& bytes() const { return m_bytes; }
    const Node& node(int index) const { return m_nodes[size_t(index)]; }
    const Attribute& attribute(int index) const { return m_attributes[size_t(index)]; }
    const NamespaceDeclaration& namespaceDeclaration(int index) const { return m_namespaces[size_t(index)]; }
    // The document node is 0; this is its element child, or -1.
    int rootElement() const;
    QList<int> childElements(int element) const;
    // The concatenated text of the element's descendants.
    QByteArray stringValue(int element) const;
    // Whether an element has an attribute, or a child that is not text.
    bool hasStructure(int element) const;
    // The namespace URI bound to a prefix where the element stands; nothing when unbound.
    std::optional<QByteArray> namespaceInScope(int element, const QByteArray& prefix) const;

private:
    friend struct XMLTreeBuilder;
    QByteArray m_bytes;
    std::vector<Node> m_nodes;
    std::vector<Attribute> m_attributes;
    std::vector<NamespaceDeclaration> m_namespaces;
};

} // namespace vantelor
