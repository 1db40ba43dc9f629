#pragma once

#include <array>
#include <optional>

#include <QString>

namespace vantelor {

// The sort keys of the visible photo list. Raw values are lower-case English words.
enum class PhotoOrder { captured, name, created, size };

namespace PhotoOrders {

inline constexpr std::array<PhotoOrder, 4> allCases = {
    PhotoOrder::captured, PhotoOrder::name, PhotoOrder::created, PhotoOrder::size};

QString rawValue(PhotoOrder order);
std::optional<PhotoOrder> fromRawValue(const QString& raw);
// The title the order picker shows ("Fecha de captura", "Nombre", …).
QString title(PhotoOrder order);

} // namespace PhotoOrders
} // namespace vantelor
