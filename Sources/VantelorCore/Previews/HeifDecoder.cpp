#include "Previews/HeifDecoder.h"

#include <functional>
#include <memory>
#include <vector>

#include <QHash>
#include <QMultiHash>

#include "Previews/Downscale.h"
#include "Previews/HeifLibrary.h"

namespace vantelor::HeifDecoder {

namespace {

// libheif 1.15 cannot decode at a reduced size, so the full image is always allocated; refuse
// headers beyond any camera's sensor rather than allocate gigabytes for a hostile file.
constexpr int maxSide = 32768;
constexpr qint64 maxPixels = 80'000'000;

// Derived images (grids, overlays, identity transforms) built from derived images: a camera
// writes one level (a grid of tiles), an editor at most two. libheif 1.15 follows 'dimg'
// references without a limit and starts decoder threads at every level, so a file whose grid
// names itself as its own tile makes it recurse until memory or threads run out.
constexpr int maxDerivationDepth = 3;

quint32 bigEndian(const QByteArray& data, qsizetype at, int bytes)
{
    quint32 value = 0;
    for (int i = 0; i < bytes; ++i)
        value = (value << 8) | uchar(data[at + i]);
    return value;
}

struct Box {
    QByteArray type;
    qsizetype body = 0;
    qsizetype end = 0;
};

// The boxes in [from, to); stops at the first one that does not fit.
QList<Box> boxes(const QByteArray& data, qsizetype from, qsizetype to)
{
    QList<Box> out;
    while (from + 8 <= to && out.size() < 4096) {
        quint64 size = bigEndian(data, from, 4);
        qsizetype header = 8;
        if (size == 1 && from + 16 <= to) {
            size = (quint64(bigEndian(data, from + 8, 4)) << 32) | bigEndian(data, from + 12, 4);
            header = 16;
        } else if (size == 0) {
            size = quint64(to - from);
        }
        if (size < quint64(header) || size > quint64(to - from))
            break;
        out.append(Box{data.mid(from + 4, 4), from + header, from + qsizetype(size)});
        from += qsizetype(size);
    }
    return out;
}

// The 'dimg' references of the file's 'meta' box: derived item → the items it is made of.
QMultiHash<quint32, quint32> derivations(const QByteArray& data)
{
    QMultiHash<quint32, quint32> edges;
    for (const Box& meta : boxes(data, 0, data.size())) {
        if (meta.type != "meta")
            continue;
        for (const Box& iref : boxes(data, meta.body + 4, meta.end)) {
            if (iref.type != "iref" || iref.body + 4 > iref.end)
                continue;
            const int idBytes = data[iref.body] == 0 ? 2 : 4;
            for (const Box& ref : boxes(data, iref.body + 4, iref.end)) {
                if (ref.type != "dimg" || ref.body + idBytes + 2 > ref.end)
                    continue;
                const quint32 from = bigEndian(data, ref.body, idBytes);
                const quint32 count = bigEndian(data, ref.body + idBytes, 2);
                for (quint32 i = 0; i < count; ++i) {
                    const qsizetype at = ref.body + idBytes + 2 + qsizetype(i) * idBytes;
                    if (at + idBytes > ref.end)
                        break;
                    edges.insert(from, bigEndian(data, at, idBytes));
                }
            }
        }
    }
    return edges;
}

// Whether every chain of derivations ends within the depth limit; a cycle never does.
bool derivationsBounded(const QByteArray& data)
{
    const QMultiHash<quint32, quint32> edges = derivations(data);
    QHash<quint32, int> depth; // -1 while being visited
    // Longest chain below an item, given up as soon as it passes the limit (so the recursion
    // is as shallow as the limit, whatever the file holds).
    std::function<int(quint32, int)> visit = [&](quint32 item, int level) {
        if (level > maxDerivationDepth)
            return maxDerivationDepth + 1;
        if (const auto known = depth.constFind(item); known != depth.constEnd())
            return known.value() < 0 ? maxDerivationDepth + 1 : known.value();
        depth.insert(item, -1);
        int deepest = 0;
        for (auto it = edges.constFind(item); it != edges.constEnd() && it.key() == item && deepest <= maxDerivationDepth; ++it)
            deepest = std::max(deepest, 1 + visit(it.value(), level + 1));
        depth.insert(item, deepest);
        return deepest;
    };
    for (const quint32 item : edges.uniqueKeys())
        if (visit(item, 0) > maxDerivationDepth)
            return false;
    return true;
}

// Callers reach these only through a Context whose allocation proved the library is there.
const HeifLibrary& lib()
{
    return *HeifLibrary::get();
}

struct Context {
    heif_context* ctx = HeifLibrary::get() ? lib().context_alloc() : nullptr;
    ~Context()
    {
        if (ctx)
            lib().context_free(ctx);
    }
};

// Deleters of the owners below, which call them only for a pointer they hold: a handle or image
// is released on every way out, and no null check here can turn into a leak.
void releaseHandle(heif_image_handle* handle)
{
    lib().image_handle_release(handle);
}

void releaseImage(heif_image* image)
{
    lib().image_release(image);
}

using HandlePtr = std::unique_ptr<heif_image_handle, decltype(&releaseHandle)>;
using ImagePtr = std::unique_ptr<heif_image, decltype(&releaseImage)>;

HandlePtr primary(Context& context, const QByteArray& file)
{
    HandlePtr none(nullptr, releaseHandle);
    if (!context.ctx || file.isEmpty() || !derivationsBounded(file))
        return none;
    lib().context_set_maximum_image_size_limit(context.ctx, maxSide);
    if (lib().context_read_from_memory_without_copy(context.ctx, file.constData(), size_t(file.size()), nullptr).code
        != heif_error_Ok)
        return none;
    heif_image_handle* handle = nullptr;
    if (lib().context_get_primary_image_handle(context.ctx, &handle).code != heif_error_Ok)
        return none;
    return HandlePtr(handle, releaseHandle);
}

std::optional<QImage> decodeHandle(const heif_image_handle* handle, int maxPixelSize)
{
    const int w = lib().image_handle_get_width(handle);
    const int h = lib().image_handle_get_height(handle);
    if (w <= 0 || h <= 0 || qint64(w) * h > maxPixels)
        return std::nullopt;
    heif_image* decoded = nullptr;
    if (lib().decode_image(handle, &decoded, heif_colorspace_RGB, heif_chroma_interleaved_RGBA, nullptr).code != heif_error_Ok)
        return std::nullopt;
    ImagePtr image(decoded, releaseImage);
    int stride = 0;
    const uint8_t* plane = lib().image_get_plane_readonly(image.get(), heif_channel_interleaved, &stride);
    const int width = lib().image_get_width(image.get(), heif_channel_interleaved);
    const int height = lib().image_get_height(image.get(), heif_channel_interleaved);
    if (!plane || width <= 0 || height <= 0 || stride < width * 4)
        return std::nullopt;
    // The view borrows libheif's buffer; the conversion copies the pixels before it goes.
    const QImage view(plane, width, height, stride, QImage::Format_RGBA8888);
    const bool alpha = lib().image_handle_has_alpha_channel(handle);
    const QImage owned = view.convertToFormat(alpha ? QImage::Format_ARGB32_Premultiplied : QImage::Format_RGB32);
    const QImage result = Downscale::fit(owned, maxPixelSize);
    if (result.isNull())
        return std::nullopt;
    return result;
}

} // namespace

std::optional<QSize> size(const QByteArray& file)
{
    Context context;
    HandlePtr handle = primary(context, file);
    if (!handle)
        return std::nullopt;
    return QSize(lib().image_handle_get_width(handle.get()), lib().image_handle_get_height(handle.get()));
}

std::optional<QImage> thumbnail(const QByteArray& file, int maxPixelSize)
{
    Context context;
    HandlePtr handle = primary(context, file);
    if (!handle)
        return std::nullopt;
    const int count = lib().image_handle_get_number_of_thumbnails(handle.get());
    if (count <= 0)
        return std::nullopt;
    std::vector<heif_item_id> ids(size_t(std::min(count, 16)));
    const int listed = lib().image_handle_get_list_of_thumbnail_IDs(handle.get(), ids.data(), int(ids.size()));
    HandlePtr best(nullptr, releaseHandle);
    qint64 bestPixels = 0;
    for (int i = 0; i < listed; ++i) {
        heif_image_handle* thumb = nullptr;
        if (lib().image_handle_get_thumbnail(handle.get(), ids[size_t(i)], &thumb).code != heif_error_Ok)
            continue;
        HandlePtr candidate(thumb, releaseHandle);
        const qint64 pixels = qint64(lib().image_handle_get_width(thumb)) * lib().image_handle_get_height(thumb);
        if (pixels > bestPixels) {
            bestPixels = pixels;
            best = std::move(candidate);
        }
    }
    if (!best)
        return std::nullopt;
    return decodeHandle(best.get(), maxPixelSize);
}

std::optional<QImage> image(const QByteArray& file, int maxPixelSize)
{
    Context context;
    HandlePtr handle = primary(context, file);
    if (!handle)
        return std::nullopt;
    return decodeHandle(handle.get(), maxPixelSize);
}

} // namespace vantelor::HeifDecoder
