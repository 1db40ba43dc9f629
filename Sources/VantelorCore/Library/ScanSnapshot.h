#pragma once

#include <QList>

#include "Library/PhotoItem.h"

namespace vantelor {

// The whole sorted list found so far (not only the new photos), and how the listing stands.
struct ScanSnapshot {
    QList<PhotoItem> photos;
    bool finished = false;
    int skippedCount = 0;
};

} // namespace vantelor
