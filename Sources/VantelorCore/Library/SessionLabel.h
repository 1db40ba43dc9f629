#pragma once

#include <array>
#include <optional>

#include <QString>

namespace vantelor {

// A colour label. The raw values are what sidecars, profiles and the CLI write.
enum class SessionLabel { none, red, yellow, green, blue, purple };

namespace SessionLabels {

inline constexpr std::array<SessionLabel, 6> allCases = {
    SessionLabel::none, SessionLabel::red, SessionLabel::yellow,
    SessionLabel::green, SessionLabel::blue, SessionLabel::purple};

QString rawValue(SessionLabel label);
// Exactly the six raw values, case-sensitive; nothing for any other text.
std::optional<SessionLabel> fromRawValue(const QString& raw);

} // namespace SessionLabels
} // namespace vantelor
