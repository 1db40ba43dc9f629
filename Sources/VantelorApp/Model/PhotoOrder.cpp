#include "PhotoOrder.h"

namespace vantelor::PhotoOrders {

namespace {

struct Row {
    PhotoOrder order;
    const char* raw;
    const char* title;
};

constexpr Row rows[] = {
    {PhotoOrder::captured, "captured", "Fecha de captura"},
    {PhotoOrder::name, "name", "Nombre"},
    {PhotoOrder::created, "created", "Fecha de creación"},
    {PhotoOrder::size, "size", "Tamaño"},
};

const Row& row(PhotoOrder order)
{
    return rows[static_cast<int>(order)];
}

} // namespace

QString rawValue(PhotoOrder order)
{
    return QString::fromLatin1(row(order).raw);
}

std::optional<PhotoOrder> fromRawValue(const QString& raw)
{
    for (const Row& r : rows) {
        if (raw == QLatin1String(r.raw))
            return r.order;
    }
    return std::nullopt;
}

QString title(PhotoOrder order)
{
    return QString::fromUtf8(row(order).title);
}

} // namespace vantelor::PhotoOrders
