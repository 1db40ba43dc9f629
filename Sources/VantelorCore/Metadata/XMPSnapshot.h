#pragma once

#include <optional>

#include <QByteArray>
#include <QString>

namespace vantelor {

// What one read of a NEF's sidecar found. `data` is the identity used to notice changes made by
// other programs: a sidecar is unchanged exactly when its bytes still equal these.
struct XMPSnapshot {
    QString raw;                      // the raw photo
    QString sidecar;                  // its sidecar, or where a new one would be created
    std::optional<QByteArray> data;   // the sidecar's bytes as read; nothing when there was none
    int rating = 0;                   // -1 to 5; 0 when absent
    std::optional<QString> label;     // the raw text of xmp:Label; nothing when absent

    friend bool operator==(const XMPSnapshot&, const XMPSnapshot&) = default;
};

} // namespace vantelor
