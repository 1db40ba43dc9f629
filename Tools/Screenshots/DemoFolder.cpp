// Writes a folder of camera files made from real photographs, for screenshots and for trying the
// app: NEFs with a small and a large embedded JPEG and Nikon capture data, JPEGs with EXIF and a
// thumbnail, and Lightroom-style sidecars with ratings and labels for some NEFs.
//
//   vantelor-demo-folder OUTPUT SOURCE_IMAGE...

#include <cstdio>

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QImage>
#include <QImageReader>

#include "Support/ImageFixtures.h"
#include "Support/Sandbox.h"
#include "Support/XmpFixtures.h"

using namespace vantelor;
using namespace vantelor::test;

namespace {

struct Camera {
    const char* model;
    const char* lens;
};

constexpr Camera cameras[] = {
    {"NIKON Z 6_2", "NIKKOR Z 24-70mm f/4 S"},
    {"NIKON Z 8", "NIKKOR Z MC 105mm f/2.8 VR S"},
    {"NIKON D850", "AF-S NIKKOR 70-200mm f/2.8E FL ED VR"},
};

// A 3:2 crop of the source (cameras shoot 3:2), shifted a little for each take so that two
// files of one source do not look identical.
QImage frame(const QImage& source, int take)
{
    const int w = source.width();
    const int h = source.height();
    int cw = w;
    int ch = w * 2 / 3;
    if (ch > h) {
        ch = h;
        cw = h * 3 / 2;
    }
    const int shrink = take % 3;
    cw = cw * (100 - 8 * shrink) / 100;
    ch = ch * (100 - 8 * shrink) / 100;
    const int x = (w - cw) * (take % 2 == 0 ? 1 : 3) / 4;
    const int y = (h - ch) / 2;
    return source.copy(x, y, cw, ch).convertToFormat(QImage::Format_RGB32);
}

ExifInfo exif(int index, const QDateTime& taken, bool nikon)
{
    const Camera& camera = cameras[index % 3];
    ExifInfo info;
    info.dateTimeOriginal = taken.toString(QStringLiteral("yyyy:MM:dd HH:mm:ss")).toLatin1();
    info.make = nikon ? QByteArray("NIKON CORPORATION") : QByteArray("FUJIFILM");
    info.model = nikon ? QByteArray(camera.model) : QByteArray("X100V");
    info.lens = nikon ? QByteArray(camera.lens) : QByteArray("23mm F2");
    static const quint16 isos[] = {100, 200, 400, 800, 1600, 3200};
    info.iso = isos[index % 6];
    static const QPair<quint32, quint32> apertures[] = {{28, 10}, {40, 10}, {56, 10}, {80, 10}, {110, 10}};
    info.fNumber = apertures[index % 5];
    static const QPair<quint32, quint32> shutters[] = {{1, 250}, {1, 1000}, {1, 60}, {1, 2000}, {1, 125}, {1, 30}};
    info.exposureTime = shutters[index % 6];
    info.orientation = 1;
    return info;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() < 3) {
        std::fprintf(stderr, "usage: vantelor-demo-folder OUTPUT SOURCE_IMAGE...\n");
        return 2;
    }
    const QString output = args[1];
    QDir().mkpath(output);
    QList<QImage> sources;
    for (const QString& path : args.mid(2)) {
        QImageReader reader(path);
        reader.setAutoTransform(true);
        // Large enough for a 2560-pixel preview, small enough to write quickly.
        const QSize size = reader.size();
        if (size.isValid() && std::max(size.width(), size.height()) > 3600)
            reader.setScaledSize(size.scaled(3600, 3600, Qt::KeepAspectRatio));
        QImage image = reader.read();
        if (image.isNull()) {
            std::fprintf(stderr, "skipped %s: %s\n", qPrintable(path), qPrintable(reader.errorString()));
            continue;
        }
        sources.append(image);
    }
    if (sources.isEmpty()) {
        std::fprintf(stderr, "no readable source image\n");
        return 1;
    }

    const QDateTime start(QDate(2024, 6, 15), QTime(7, 12, 5), Qt::UTC);
    const int nefCount = int(sources.size()) * 3 / 2;
    const int jpegCount = std::max(4, int(sources.size()) / 2);
    static const std::optional<QString> labels[] = {std::nullopt, QStringLiteral("Green"), std::nullopt, QStringLiteral("Red"), QStringLiteral("Blue")};
    for (int i = 0; i < nefCount + jpegCount; ++i) {
        const QImage picture = frame(sources[i % sources.size()], i / int(sources.size()));
        const QDateTime taken = start.addSecs(i * 47 + (i % 4) * 3);
        if (i < nefCount) {
            NefLayout layout;
            layout.exif = exif(i, taken, true);
            // Never enlarged: an upscaled preview is soft and focus peaking would find nothing.
            const int longest = std::min(3008, std::max(picture.width(), picture.height()));
            const QImage large = picture.scaled(picture.size().scaled(longest, longest, Qt::KeepAspectRatio), Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
            const QImage small = picture.scaled(picture.size().scaled(640, 640, Qt::KeepAspectRatio), Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
            layout.previews = {makeJpeg(small, 85), makeJpeg(large, 90)};
            layout.rawBytes = 256 * 1024;
            layout.rawSize = QSize(6048, 4024);
            const QString name = QStringLiteral("DSC_%1").arg(4210 + i, 4, 10, QLatin1Char('0'));
            writeFile(output + QLatin1Char('/') + name + QStringLiteral(".NEF"), makeNef(layout));
            // Some photos were already rated in another tool.
            if (i % 3 == 0)
                writeFile(output + QLatin1Char('/') + name + QStringLiteral(".xmp"), XmpFixtures::lightroom(1 + (i % 5), labels[i % 5]));
        } else {
            ExifInfo info = exif(i, taken, false);
            const QImage thumb = picture.scaled(picture.size().scaled(160, 160, Qt::KeepAspectRatio), Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
            info.thumbnailJpeg = makeJpeg(thumb, 80);
            const QImage body = picture;
            const QString name = QStringLiteral("DSCF%1.JPG").arg(7300 + i, 4, 10, QLatin1Char('0'));
            writeFile(output + QLatin1Char('/') + name, makeJpeg(body, 88, info));
        }
    }
    std::printf("%d NEF and %d JPEG files in %s\n", nefCount, jpegCount, qPrintable(output));
    return 0;
}
