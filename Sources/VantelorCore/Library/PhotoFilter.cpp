#include "Library/PhotoFilter.h"

#include "Library/PhotoItem.h"

namespace vantelor {

bool PhotoFilter::includes(const PhotoItem& item, const SessionMark& mark) const
{
    if (mark.rating < minimumRating)
        return false;
    if (label && *label != mark.label)
        return false;
    if (query.isEmpty())
        return true;
    return item.name().contains(query, Qt::CaseInsensitive);
}

} // namespace vantelor
