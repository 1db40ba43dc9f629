#pragma once

#include <optional>

#include <QByteArray>
#include <QList>
#include <QString>

#include "Metadata/XMLTree.h"
#include "Metadata/XMPPatch.h"
#include "Support/Result.h"

namespace vantelor {

// The two managed properties as read: an absent rating reads as 0, an absent label as nothing.
struct XMPValues {
    int rating = 0;
    std::optional<QString> label;

    friend bool operator==(const XMPValues&, const XMPValues&) = default;
};

// One XMP sidecar as parsed: validates that it is a plain, safe XMP document, reads xmp:Rating and
// xmp:Label, and produces the sidecar's new bytes with only those two values changed. Edits are
// spliced into the original bytes, so a save never rewrites what another program wrote: outside
// the edited values, the only bytes that can appear are one new attribute (and its namespace
// declaration) in the first description whose rdf:about is empty. A canonical comparison of the
// whole tree before and after still guards every save. Confined to the thread that made it.
class XMPDocument {
public:
    enum class Field { rating, label };

    // A property as found in a description: an attribute of it or a child element.
    struct Property {
        bool isAttribute = false;
        int index = 0;   // into the tree's attributes or nodes
    };

    // The namespace URIs that the XMP and RDF specifications publish for "xmp" and "rdf".
    static const QByteArray& xmpNamespace();
    static const QByteArray& rdfNamespace();

    // Validates and parses a sidecar's bytes.
    static Result<XMPDocument> parse(const QByteArray& bytes);

    Result<XMPValues> values() const;
    // The new bytes of the sidecar with the patch applied, proven to differ from the original
    // only in the patched properties.
    Result<QByteArray> applying(const XMPPatch& patch) const;

    // The bytes of a new, empty sidecar, which a first save patches.
    static const QByteArray& newSidecarTemplate();

    // The top-level descriptions with an empty or absent rdf:about, in document order.
    const QList<int>& descriptions() const { return m_descriptions; }
    QList<Property> nodes(int description, Field field) const;
    // A canonical, length-prefixed text of the whole document that leaves out namespace
    // declarations and the excluded properties wherever they stand, and ignores attribute
    // order: equal texts mean that nothing else differs.
    QByteArray semantic(bool excludeRating, bool excludeLabel) const;

    const XMLTree& tree() const { return m_tree; }

private:
    XMPDocument(XMLTree tree, QList<int> descriptions);

    QList<Property> allNodes(Field field) const;
    QByteArray propertyValue(const Property& property) const;

    XMLTree m_tree;
    QList<int> m_descriptions;
};

} // namespace vantelor
