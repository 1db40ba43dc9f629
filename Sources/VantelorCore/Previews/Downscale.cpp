#include "Previews/Downscale.h"

#include <array>
#include <cmath>
#include <vector>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace vantelor::Downscale {

namespace {

// Source-to-target mapping of one axis: for each target position the first of the two source
// samples and the second one's weight (0…256), pixel centres aligned.
struct Taps {
    std::vector<int> first;
    std::vector<quint32> weight;
};

Taps taps(int source, int target)
{
    Taps t;
    t.first.resize(size_t(target));
    t.weight.resize(size_t(target));
    const double step = double(source) / target;
    for (int i = 0; i < target; ++i) {
        const double s = std::clamp((i + 0.5) * step - 0.5, 0.0, double(source - 1));
        const int first = std::min(int(s), source - 2 < 0 ? 0 : source - 2);
        t.first[size_t(i)] = first;
        t.weight[size_t(i)] = quint32(std::lround((s - first) * 256.0));
    }
    return t;
}

// Two 8-bit channels at a time: (p, q) blended by w/256 in each byte of an ARGB pixel.
inline quint32 blend(quint32 p, quint32 q, quint32 w)
{
    const quint32 v = 256 - w;
    const quint32 rb = (((p & 0x00FF00FF) * v + (q & 0x00FF00FF) * w) >> 8) & 0x00FF00FF;
    const quint32 ag = (((p >> 8) & 0x00FF00FF) * v + ((q >> 8) & 0x00FF00FF) * w) & 0xFF00FF00;
    return rb | ag;
}

// Reductions by less than a third (what remains after the DCT scale, except below 1/4): a target
// pixel's footprint is under 1.5 source pixels, so two taps in each direction weigh every source
// pixel much as an area filter would, at a third of the cost of Qt's area averaging.
QImage interpolate(const QImage& source, QSize target)
{
    QImage out(target, source.format());
    if (out.isNull())
        return out;
    const int sw = source.width(), sh = source.height();
    const Taps xt = taps(sw, target.width());
    const Taps yt = taps(sh, target.height());
    std::vector<quint32> row(static_cast<size_t>(sw) + 1);
#ifdef __SSE2__
    // Per target column, the two source weights as eight 16-bit lanes (v v v v w w w w).
    std::vector<std::array<short, 8>> columnWeights(size_t(target.width()));
    for (int x = 0; x < target.width(); ++x) {
        const short w = short(xt.weight[size_t(x)]), v = short(256 - w);
        columnWeights[size_t(x)] = {v, v, v, v, w, w, w, w};
    }
    const __m128i zero = _mm_setzero_si128();
#endif
    for (int y = 0; y < target.height(); ++y) {
        const int y0 = yt.first[size_t(y)];
        const auto* a = reinterpret_cast<const quint32*>(source.constScanLine(y0));
        const auto* b = reinterpret_cast<const quint32*>(source.constScanLine(std::min(y0 + 1, sh - 1)));
        const quint32 wy = yt.weight[size_t(y)];
        int x = 0;
#ifdef __SSE2__
        // Rows: four pixels (sixteen channels) at a time.
        const __m128i vy = _mm_set1_epi16(short(256 - wy)), wyv = _mm_set1_epi16(short(wy));
        for (; x + 4 <= sw; x += 4) {
            const __m128i pa = _mm_loadu_si128(reinterpret_cast<const __m128i*>(a + x));
            const __m128i pb = _mm_loadu_si128(reinterpret_cast<const __m128i*>(b + x));
            const __m128i lo = _mm_srli_epi16(_mm_add_epi16(_mm_mullo_epi16(_mm_unpacklo_epi8(pa, zero), vy),
                                                            _mm_mullo_epi16(_mm_unpacklo_epi8(pb, zero), wyv)), 8);
            const __m128i hi = _mm_srli_epi16(_mm_add_epi16(_mm_mullo_epi16(_mm_unpackhi_epi8(pa, zero), vy),
                                                            _mm_mullo_epi16(_mm_unpackhi_epi8(pb, zero), wyv)), 8);
            _mm_storeu_si128(reinterpret_cast<__m128i*>(row.data() + x), _mm_packus_epi16(lo, hi));
        }
#endif
        for (; x < sw; ++x)
            row[size_t(x)] = blend(a[x], b[x], wy);
        row[size_t(sw)] = row[size_t(sw - 1)];  // the pair read at the last column stays in bounds

        auto* o = reinterpret_cast<quint32*>(out.scanLine(y));
        for (int t = 0; t < target.width(); ++t) {
            const int x0 = xt.first[size_t(t)];
#ifdef __SSE2__
            // Columns: the two neighbours' channels weighted in one multiply, halves summed.
            const __m128i pair = _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(row.data() + x0)), zero);
            const __m128i products = _mm_mullo_epi16(pair, _mm_loadu_si128(reinterpret_cast<const __m128i*>(columnWeights[size_t(t)].data())));
            const __m128i sum = _mm_srli_epi16(_mm_add_epi16(products, _mm_srli_si128(products, 8)), 8);
            o[t] = quint32(_mm_cvtsi128_si32(_mm_packus_epi16(sum, sum)));
#else
            o[t] = blend(row[size_t(x0)], row[size_t(x0 + 1)], xt.weight[size_t(t)]);
#endif
        }
    }
    return out;
}

} // namespace

QSize fittedSize(QSize size, int maxPixelSize)
{
    const int longer = std::max(size.width(), size.height());
    if (longer <= maxPixelSize || longer <= 0)
        return size;
    const double scale = double(maxPixelSize) / longer;
    return QSize(std::max(1, int(std::lround(size.width() * scale))), std::max(1, int(std::lround(size.height() * scale))));
}

QImage fit(const QImage& image, int maxPixelSize)
{
    const QSize target = fittedSize(image.size(), maxPixelSize);
    if (target == image.size())
        return image;
    const bool packed = image.format() == QImage::Format_RGB32 || image.format() == QImage::Format_ARGB32_Premultiplied;
    if (packed && target.width() * 3 >= image.width() * 2 && target.height() * 3 >= image.height() * 2
        && image.width() >= 2 && image.height() >= 2)
        return interpolate(image, target);
    // Larger reductions average every source pixel into its target (Qt's area filter).
    return image.scaled(target, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
}

} // namespace vantelor::Downscale
