// The frame pass on real Qt Quick windows (offscreen, software scene graph) of a phone's size
// (390x844 points) and two desktop sizes (1280x800, 1920x1080), all one pixel per point:
// an unchanged pass (capture + compare), the comparison against memcmp of the same buffer, the
// encoding against libjpeg-turbo compressing the same pixels directly, a changed pass sent whole
// and one sent as changed regions (a caret blinking). Also what placing the blanks of 200
// sensitive items adds. Ends with summary lines of the ratios to their bounds.
//   quick_frame_bench [benchmark flags]     (--benchmark_filter=/1 for the 1280x800 window only)

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <QByteArray>
#include <QGuiApplication>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWindow>

#include <array>
#include <cstdio>
#include <map>
#include <memory>
#include <string>

#include "bench/allocation_counter.h"
#include "bench/baselines.h"
#include "bench/quick_scene.h"
#include "bench/recording_reporter.h"
#include "capture/frame_change_detector.h"
#include "capture/jpeg_encoder.h"
#include "capture/screen_capture.h"
#include "halvora/halvora.h"
#include "halvora/platform.h"
#include "halvora/quick.h"

namespace {

using halvora::RgbaFrame;
using halvora::bench::capture;
using halvora::bench::kSizes;
using halvora::bench::loadWindow;

// The window of that size, the only one shown (the capture takes the key window).
QQuickWindow* sceneWindow(std::size_t index) {
    static std::map<std::size_t, QQuickWindow*> windows;
    QQuickWindow*& window = windows[index];
    if (!window) {
        const auto [width, height] = kSizes.at(index);
        window = loadWindow(halvora::bench::sceneQml(width, height));
    }
    for (auto& [other, shown] : windows) {
        if (shown && other != index) shown->hide();
    }
    if (window) {
        window->show();
        window->requestActivate();
        QCoreApplication::processEvents();
    }
    return window;
}

// The first capture of each size, for the benchmarks that work on still pixels.
const RgbaFrame& capturedFrame(std::size_t index) {
    static std::map<std::size_t, RgbaFrame> frames;
    RgbaFrame& frame = frames[index];
    if (frame.pixels.empty()) {
        sceneWindow(index);
        capture(frame);
    }
    return frame;
}

QQuickWindow* windowFor(benchmark::State& state) {
    QQuickWindow* window = sceneWindow(static_cast<std::size_t>(state.range(0)));
    if (!window) state.SkipWithError("the scene did not load");
    return window;
}

void UnchangedPass_CaptureAndCompare(benchmark::State& state) {
    if (!windowFor(state)) return;
    RgbaFrame frame;
    halvora::FrameChangeDetector detector;
    capture(frame);
    detector.changed(frame);
    const auto before = halvora::bench::allocationCount();
    for (auto _ : state) {
        if (!capture(frame)) state.SkipWithError("nothing captured");
        if (detector.changed(frame)) state.SkipWithError("an unchanged screen counted as changed");
    }
    state.counters["allocs"] = halvora::bench::allocationsPer(before, halvora::bench::allocationCount(), state.iterations());
}

void UnchangedPass_CaptureOnly(benchmark::State& state) {
    if (!windowFor(state)) return;
    RgbaFrame frame;
    for (auto _ : state) benchmark::DoNotOptimize(capture(frame));
}

// The library's own share of an unchanged pass: asking for the windows and choosing them, without
// Qt's grab.
void UnchangedPass_WindowChoice(benchmark::State& state) {
    if (!windowFor(state)) return;
    const auto before = halvora::bench::allocationCount();
    std::size_t chosen = 0;
    for (auto _ : state) {
        auto& application = halvora::platform::application();
        for (const auto& window : application.windows())
            chosen += halvora::Halvora::instance().shouldCaptureWindow(*window);
        benchmark::DoNotOptimize(application.keyWindow());
    }
    benchmark::DoNotOptimize(chosen);
    state.counters["allocs"] = halvora::bench::allocationsPer(before, halvora::bench::allocationCount(), state.iterations());
}

void Compare_Detector(benchmark::State& state) {
    const RgbaFrame& frame = capturedFrame(static_cast<std::size_t>(state.range(0)));
    halvora::FrameChangeDetector detector;
    detector.changed(frame);
    const auto before = halvora::bench::allocationCount();
    for (auto _ : state) benchmark::DoNotOptimize(detector.changed(frame));
    state.counters["allocs"] = halvora::bench::allocationsPer(before, halvora::bench::allocationCount(), state.iterations());
}

void Compare_Memcmp(benchmark::State& state) {
    halvora::bench::memcmpBaseline(state, capturedFrame(static_cast<std::size_t>(state.range(0))));
}

void Encode_JpegEncoder(benchmark::State& state) {
    const RgbaFrame& frame = capturedFrame(static_cast<std::size_t>(state.range(0)));
    halvora::JpegEncoder encoder;
    std::size_t size = 0;
    for (auto _ : state) {
        size = encoder.encode(frame).size();
        benchmark::DoNotOptimize(size);
    }
    state.counters["jpeg_bytes"] = static_cast<double>(size);
}

void Encode_TjCompress2(benchmark::State& state) {
    halvora::bench::tjCompressBaseline(state, capturedFrame(static_cast<std::size_t>(state.range(0))));
}

// A changed pass sent whole: the badge changes colour, then capture, compare and encode.
void ChangedPass_Whole(benchmark::State& state) {
    QQuickWindow* window = windowFor(state);
    if (!window) return;
    auto* badge = window->findChild<QQuickItem*>("badge");
    RgbaFrame frame;
    halvora::FrameChangeDetector detector;
    halvora::JpegEncoder encoder;
    int flip = 0;
    for (auto _ : state) {
        badge->setProperty("color", (++flip & 1) ? QColor("#e8891c") : QColor("#2a6fdb"));
        capture(frame);
        if (!detector.changed(frame)) state.SkipWithError("a changed screen counted as unchanged");
        benchmark::DoNotOptimize(encoder.encode(frame).data());
    }
}

// A changed pass sent as regions: the caret blinks, then capture, compare, join and encode what
// changed. Counts the bytes of the regions' pictures per pass.
void ChangedPass_Regions(benchmark::State& state) {
    QQuickWindow* window = windowFor(state);
    if (!window) return;
    auto* caret = window->findChild<QQuickItem*>("caret");
    RgbaFrame frame;
    halvora::FrameChangeDetector detector;
    halvora::JpegEncoder encoder;
    std::vector<std::uint8_t> out;
    capture(frame);
    detector.compare(frame);
    std::size_t bytes = 0;
    std::size_t regions = 0;
    for (auto _ : state) {
        caret->setVisible(!caret->isVisible());
        capture(frame);
        auto changes = detector.compare(frame);
        halvora::joinRegions(changes.regions, 10);
        if (changes.regions.empty()) state.SkipWithError("the caret changed nothing");
        for (const auto& region : changes.regions) {
            encoder.encodeRegionInto(frame, region, out);
            bytes += out.size();
        }
        regions += changes.regions.size();
    }
    state.counters["region_bytes"] = static_cast<double>(bytes) / static_cast<double>(state.iterations());
    state.counters["regions"] = static_cast<double>(regions) / static_cast<double>(state.iterations());
}

// 200 sensitive items on show, each declaring itself, inside a clipped Flickable a few levels deep.
constexpr const char* kSensitiveScene = R"(
import QtQuick
import Halvora
Window {
    width: 390; height: 844; visible: true; color: "white"
    Flickable { y: 60; width: parent.width; height: 760; clip: true; contentHeight: 900
        Item { width: parent.width; height: 900
            Grid { x: 10; y: 10; columns: 10; spacing: 2
                Repeater { model: 200
                    Item { width: 35; height: 35
                        Rectangle { id: cell; anchors.fill: parent; anchors.margins: 2; color: "#c03060"
                            Halvora.redactedItems: [cell] } } } } } }
}
)";

void Redaction_Place200Items(benchmark::State& state) {
    static QQuickWindow* window = [] {
        QQuickWindow* created = loadWindow(kSensitiveScene);
        QCoreApplication::processEvents();
        return created;
    }();
    if (!window) {
        state.SkipWithError("the scene did not load");
        return;
    }
    RgbaFrame canvas = capturedFrame(0);
    auto& application = halvora::platform::application();
    for (auto _ : state) {
        const auto sensitive = application.sensitiveViews();
        if (sensitive.size() != 200) state.SkipWithError("not 200 sensitive items");
        if (!halvora::blankSensitiveAreas(sensitive, {0, 0}, 1.0f, canvas)) state.SkipWithError("a place was unknown");
    }
}

void eachSize(benchmark::internal::Benchmark* benchmark) {
    benchmark->Unit(benchmark::kMicrosecond)->ArgName("size");
    for (std::size_t i = 0; i < kSizes.size(); ++i) benchmark->Arg(static_cast<std::int64_t>(i));
}

BENCHMARK(UnchangedPass_CaptureAndCompare)->Apply(eachSize);
BENCHMARK(UnchangedPass_CaptureOnly)->Apply(eachSize);
BENCHMARK(UnchangedPass_WindowChoice)->Apply(eachSize);
BENCHMARK(Compare_Detector)->Apply(eachSize);
BENCHMARK(Compare_Memcmp)->Apply(eachSize);
BENCHMARK(Encode_JpegEncoder)->Apply(eachSize);
BENCHMARK(Encode_TjCompress2)->Apply(eachSize);
BENCHMARK(ChangedPass_Whole)->Apply(eachSize);
BENCHMARK(ChangedPass_Regions)->Apply(eachSize);
BENCHMARK(Redaction_Place200Items)->Unit(benchmark::kMicrosecond);  // last: its window stays

}  // namespace

int main(int argc, char** argv) {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    if (qEnvironmentVariableIsEmpty("QT_QUICK_BACKEND")) qputenv("QT_QUICK_BACKEND", "software");
    int qtArgc = 1;
    QGuiApplication app(qtArgc, argv);
    halvora::qt::install();
    if (!sceneWindow(0)) return 1;

    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    halvora::bench::RecordingReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();

    for (std::size_t i = 0; i < kSizes.size(); ++i) {
        const std::string at = "/size:" + std::to_string(i);
        const double unchanged = reporter.cpuNanoseconds("UnchangedPass_CaptureAndCompare" + at);
        if (unchanged < 0) continue;  // filtered out
        const RgbaFrame& frame = capturedFrame(i);
        std::printf("summary: %dx%d window captured at %dx%d px\n", kSizes[i].width, kSizes[i].height, frame.width,
                    frame.height);
        const double compare = reporter.ratio("Compare_Detector" + at, "Compare_Memcmp" + at);
        const double encode = reporter.ratio("Encode_JpegEncoder" + at, "Encode_TjCompress2" + at);
        if (compare > 0) std::printf("summary:   compare detector/memcmp = %.2f (target <= 1.2)\n", compare);
        if (encode > 0) std::printf("summary:   encode JpegEncoder/tjCompress2 = %.2f (target <= 1.2)\n", encode);
        // Passes follow renders, so a still window makes none; were it polled ten times a second,
        // as toolkits that cannot tell are, this is what it would cost.
        std::printf("summary:   unchanged pass %.0f us of CPU; polled every 0.1 s that is %.2f %% of one core\n",
                    unchanged / 1e3, 100.0 * unchanged / (unchanged + 100e6));
        const double whole = reporter.cpuNanoseconds("ChangedPass_Whole" + at);
        const double regions = reporter.cpuNanoseconds("ChangedPass_Regions" + at);
        const double wholeBytes = reporter.counter("Encode_JpegEncoder" + at, "jpeg_bytes");
        const double regionBytes = reporter.counter("ChangedPass_Regions" + at, "region_bytes");
        if (whole > 0 && regions > 0) {
            std::printf("summary:   changed pass whole %.0f us (%.1f KB), caret as regions %.0f us (%.2f KB): "
                        "time ratio %.2f, bytes ratio %.3f\n",
                        whole / 1e3, wholeBytes / 1024, regions / 1e3, regionBytes / 1024, regions / whole,
                        regionBytes / wholeBytes);
        }
        std::printf("summary:   C++ allocations per unchanged pass: %.1f in all, %.1f of them the library's window "
                    "choice, %.1f in the comparison (the rest are Qt's grab)\n",
                    reporter.counter("UnchangedPass_CaptureAndCompare" + at, "allocs"),
                    reporter.counter("UnchangedPass_WindowChoice" + at, "allocs"),
                    reporter.counter("Compare_Detector" + at, "allocs"));
    }
    const double placing = reporter.cpuNanoseconds("Redaction_Place200Items");
    const double captureOnly = reporter.cpuNanoseconds("UnchangedPass_CaptureOnly/size:0");
    if (placing > 0 && captureOnly > 0) {
        std::printf("summary: blanking 200 sensitive items %.0f us = %.2f of the 1 ms bound, %.2f of the capture itself\n",
                    placing / 1e3, placing / 1e6, placing / captureOnly);
    }
    return 0;
}
