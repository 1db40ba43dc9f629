#include "Library/SessionLabel.h"

namespace vantelor::SessionLabels {

QString rawValue(SessionLabel label)
{
    switch (label) {
    case SessionLabel::none: return QStringLiteral("none");
    case SessionLabel::red: return QStringLiteral("red");
    case SessionLabel::yellow: return QStringLiteral("yellow");
    case SessionLabel::green: return QStringLiteral("green");
    case SessionLabel::blue: return QStringLiteral("blue");
    case SessionLabel::purple: return QStringLiteral("purple");
    }
    return {};
}

std::optional<SessionLabel> fromRawValue(const QString& raw)
{
    for (SessionLabel label : allCases)
        if (rawValue(label) == raw)
            return label;
    return std::nullopt;
}

} // namespace vantelor::SessionLabels
