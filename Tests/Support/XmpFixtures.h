#pragma once

#include <optional>

#include <QByteArray>
#include <QList>
#include <QString>

namespace vantelor::test {

// Sidecars in the forms that real photo tools write them, for reading and editing tests and for
// benchmarks. Each takes the rating and label to hold (nothing leaves the property out).
namespace XmpFixtures {

// Adobe Lightroom Classic / Camera Raw: xpacket wrapper, one description whose attributes stand
// one per line, Camera Raw settings, a dc:subject bag, and xpacket padding.
QByteArray lightroom(std::optional<int> rating, std::optional<QString> label, int padding = 2048);
// Capture One: properties as child elements, several descriptions, single-quoted attributes.
QByteArray captureOne(std::optional<int> rating, std::optional<QString> label);
// darktable (written through exiv2): no xpacket, history as an rdf:Seq of attribute-only items,
// colour labels in its own namespace.
QByteArray darktable(std::optional<int> rating, std::optional<QString> label);
// digiKam (exiv2 as well): xpacket with a byte order mark, a comment, tags lists, CRLF line ends
// when asked.
QByteArray digikam(std::optional<int> rating, std::optional<QString> label, bool crlf = false);

// A Lightroom-style sidecar grown with develop settings to about the given size in bytes.
QByteArray sized(int bytes, int rating, const QString& label);

} // namespace XmpFixtures
} // namespace vantelor::test
