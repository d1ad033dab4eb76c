// How big and how sharp a desktop picture is, for choosing the frame settings by measurement, on
// the benchmarks' scene at 1280x800 (offscreen, software scene graph):
//  1. the whole picture at JPEG qualities 30 to 90, chroma 4:2:0 and 4:4:4: bytes, and the PSNR
//     of the text rows' luminance against the captured pixels; with a directory given, the same
//     crop of text decoded at each setting is saved as PNG to be looked at 1:1, and a part of it
//     four times enlarged;
//  2. changed regions cut from tiles of 16, 32 and 64 pixels: the bytes a blinking caret and a
//     typed letter cost per change at the frame quality.
//   frame_quality_study [CROP_DIR]

#include <turbojpeg.h>

#include <QGuiApplication>
#include <QImage>
#include <QQuickItem>
#include <QQuickWindow>

#include <cmath>
#include <functional>
#include <cstdio>
#include <string>
#include <vector>

#include "bench/quick_scene.h"
#include "capture/frame_change_detector.h"
#include "capture/jpeg_encoder.h"
#include "halvora/quick.h"

namespace {

using halvora::RgbaFrame;

// Where the text rows are in the 1280x800 scene, and the crop that is saved.
constexpr int kTextTop = 108, kTextBottom = 600, kTextLeft = 16, kTextRight = 1100;
constexpr int kCropX = 0, kCropY = 56, kCropWidth = 640, kCropHeight = 200;

double luma(const std::uint8_t* p) { return 0.299 * p[0] + 0.587 * p[1] + 0.114 * p[2]; }

// The luminance PSNR of `decoded` against `original` over the text rows.
double textPsnr(const RgbaFrame& original, const std::vector<std::uint8_t>& decoded) {
    double squared = 0;
    long count = 0;
    for (int y = kTextTop; y < kTextBottom; ++y) {
        for (int x = kTextLeft; x < kTextRight; ++x) {
            const double d = luma(original.row(y) + x * 4) -
                             luma(decoded.data() + (static_cast<std::size_t>(y) * original.width + x) * 4);
            squared += d * d;
            ++count;
        }
    }
    const double mse = squared / static_cast<double>(count);
    return mse == 0 ? 99.0 : 10.0 * std::log10(255.0 * 255.0 / mse);
}

// The crop at 1:1 as PATH.png, and a part of it four times enlarged, pixel for pixel, as
// PATH-x4.png, where JPEG's ringing around glyphs can be seen.
void saveCrop(const std::vector<std::uint8_t>& rgba, int width, const std::string& path) {
    QImage image(rgba.data() + (static_cast<std::size_t>(kCropY) * width + kCropX) * 4, kCropWidth, kCropHeight,
                 width * 4, QImage::Format_RGBA8888);
    const QImage enlarged = image.copy(0, 0, 200, 60).scaled(800, 240, Qt::IgnoreAspectRatio, Qt::FastTransformation);
    if (!image.save(QString::fromStdString(path + ".png")) || !enlarged.save(QString::fromStdString(path + "-x4.png")))
        std::fprintf(stderr, "could not save %s\n", path.c_str());
}

void qualities(const RgbaFrame& frame, const char* cropDir) {
    std::printf("whole 1280x800 picture: quality, chroma, bytes, text PSNR (dB)\n");
    tjhandle compressor = tjInitCompress();
    tjhandle decompressor = tjInitDecompress();
    std::vector<std::uint8_t> decoded(frame.pixels.size());
    if (cropDir) {
        std::vector<std::uint8_t> original(frame.pixels.begin(), frame.pixels.end());
        saveCrop(original, frame.width, std::string(cropDir) + "/text-original");
    }
    for (const int quality : {30, 40, 50, 60, 75, 90}) {
        for (const auto& [subsampling, name] : {std::pair{TJSAMP_420, "420"}, std::pair{TJSAMP_444, "444"}}) {
            unsigned char* jpeg = nullptr;
            unsigned long size = 0;
            if (tjCompress2(compressor, frame.pixels.data(), frame.width, static_cast<int>(frame.bytesPerRow),
                            frame.height, TJPF_RGBA, &jpeg, &size, subsampling, quality, 0) != 0 ||
                tjDecompress2(decompressor, jpeg, size, decoded.data(), frame.width, frame.width * 4, frame.height,
                              TJPF_RGBA, 0) != 0) {
                std::fprintf(stderr, "libjpeg-turbo: %s\n", tjGetErrorStr2(compressor));
                tjFree(jpeg);
                continue;
            }
            std::printf("  q%-3d %s  %7.1f KB  %5.1f\n", quality, name, static_cast<double>(size) / 1024,
                        textPsnr(frame, decoded));
            if (cropDir) saveCrop(decoded, frame.width, std::string(cropDir) + "/text-q" + std::to_string(quality) + "-" + name);
            tjFree(jpeg);
        }
    }
    tjDestroy(compressor);
    tjDestroy(decompressor);
}

// Bytes per change of `change` over 10 changes, the regions cut from tiles of `tile` pixels.
double regionBytes(int tile, const std::function<void(int)>& change) {
    halvora::FrameChangeDetector detector(tile);
    halvora::JpegEncoder encoder;
    RgbaFrame frame;
    std::vector<std::uint8_t> out;
    halvora::bench::capture(frame);
    detector.compare(frame);
    double bytes = 0;
    for (int step = 1; step <= 10; ++step) {
        change(step);
        halvora::bench::capture(frame);
        auto changes = detector.compare(frame);
        halvora::joinRegions(changes.regions, 10);
        for (const auto& region : changes.regions) {
            encoder.encodeRegionInto(frame, region, out);
            bytes += static_cast<double>(out.size()) + 60;  // the region's place in the record
        }
    }
    return bytes / 10;
}

}  // namespace

int main(int argc, char** argv) {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    if (qEnvironmentVariableIsEmpty("QT_QUICK_BACKEND")) qputenv("QT_QUICK_BACKEND", "software");
    const char* cropDir = argc > 1 ? argv[1] : nullptr;
    int qtArgc = 1;
    QGuiApplication app(qtArgc, argv);
    halvora::qt::install();
    QQuickWindow* window = halvora::bench::loadWindow(halvora::bench::sceneQml(1280, 800));
    if (!window) return 1;
    window->requestActivate();
    QCoreApplication::processEvents();
    auto* caret = window->findChild<QQuickItem*>("caret");
    auto* name = window->findChild<QObject*>("name");

    RgbaFrame frame;
    if (!halvora::bench::capture(frame) || frame.width != 1280) {
        std::fprintf(stderr, "the scene was not captured at 1280x800\n");
        return 1;
    }
    qualities(frame, cropDir);

    std::printf("changed regions at quality %d, 4:2:0: tile side, bytes per caret blink, per typed letter\n",
                halvora::JpegEncoder::kDefaultQuality);
    for (const int tile : {16, 32, 64}) {
        const double blink = regionBytes(tile, [&](int) { caret->setVisible(!caret->isVisible()); });
        const double letter = regionBytes(tile, [&](int step) {
            name->setProperty("text", QString("Ada Lovelace ") + QString(step, QChar('m')));
        });
        name->setProperty("text", "Ada Lovelace");
        std::printf("  %2d px  %6.0f B  %6.0f B\n", tile, blink, letter);
    }
    return 0;
}
