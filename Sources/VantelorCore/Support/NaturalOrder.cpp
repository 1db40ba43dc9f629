#include "Support/NaturalOrder.h"

#include <QLocale>

namespace vantelor {

QCollator& naturalCollator()
{
    thread_local QCollator collator = [] {
        QCollator c(QLocale(QLocale::Spanish, QLocale::Spain));
        c.setNumericMode(true);
        c.setCaseSensitivity(Qt::CaseInsensitive);
        return c;
    }();
    return collator;
}

} // namespace vantelor
