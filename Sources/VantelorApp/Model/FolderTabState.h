#pragma once

#include <optional>

#include <QDateTime>
#include <QList>
#include <QSet>
#include <QString>

#include "Library/PhotoItem.h"
#include "Library/SessionLabel.h"
#include "Model/PhotoOrder.h"

namespace vantelor {

// What a folder tab remembers while another folder is live. Marks, capture dates, sidecar
// snapshots and the display settings are not part of it: marks of NEF files live in their
// sidecars and are read again; the display belongs to the window, not to a tab.
struct FolderTabState {
    QList<PhotoItem> photos;
    std::optional<QString> selected;
    QSet<QString> selection;
    int rating = 0;
    std::optional<SessionLabel> label;
    QString search;
    PhotoOrder order = PhotoOrder::captured;
    bool descending = false;
    bool timeEnabled = false;
    QDateTime timeFrom;
    QDateTime timeTo;
    // The folder had been read and prepared to the end: restoring it needs no scan.
    bool complete = false;
};

} // namespace vantelor
