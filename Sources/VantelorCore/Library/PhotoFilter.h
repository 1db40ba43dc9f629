#pragma once

#include <optional>

#include <QString>

#include "Library/SessionLabel.h"
#include "Library/SessionMark.h"

namespace vantelor {

struct PhotoItem;

// The rating, label and name filter of the photo list.
struct PhotoFilter {
    int minimumRating = 0;
    std::optional<SessionLabel> label;  // absent: any label
    QString query;                      // not trimmed: two blanks match only two blanks

    // Rating first, then label, then a case-insensitive search of the file name that keeps
    // diacritics ("jose" does not find "JOSÉ").
    bool includes(const PhotoItem& item, const SessionMark& mark) const;

    friend bool operator==(const PhotoFilter&, const PhotoFilter&) = default;
};

} // namespace vantelor
