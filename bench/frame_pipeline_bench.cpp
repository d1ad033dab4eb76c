// The frame path on a 390x844-point screen scaled to a 500-pixel longer side (231x500 px):
// (a) an unchanged pass through FrameChangeDetector against a plain memcmp of the same buffers,
// (b) a changed pass encoded by JpegEncoder against tjCompress2 called directly on the same pixels.
// Ends with a summary line of the ratios (ours / baseline; 1.0 means no overhead).
#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <random>
#include <string>

#include <unistd.h>

#include "bench/allocation_counter.h"
#include "bench/baselines.h"
#include "bench/recording_reporter.h"
#include "capture/frame_change_detector.h"
#include "capture/jpeg_encoder.h"

namespace {

using halvora::RgbaFrame;

constexpr int kWidth = 231;
constexpr int kHeight = 500;

void fillRect(RgbaFrame& frame, int x0, int y0, int x1, int y1, std::uint8_t r, std::uint8_t g, std::uint8_t b) {
    for (int y = y0; y < y1 && y < frame.height; ++y) {
        for (int x = x0; x < x1 && x < frame.width; ++x) {
            std::uint8_t* p = frame.row(y) + x * 4;
            p[0] = r, p[1] = g, p[2] = b, p[3] = 255;
        }
    }
}

// A list screen: status and navigation bars, white rows with separators, icons, and lines of
// "text" made of dark glyph-sized blobs with anti-aliased grey edges.
RgbaFrame uiLikeFrame() {
    RgbaFrame frame;
    frame.resize(kWidth, kHeight);
    std::mt19937 random(42);
    fillRect(frame, 0, 0, kWidth, kHeight, 242, 242, 247);
    fillRect(frame, 0, 0, kWidth, 52, 248, 248, 248);
    fillRect(frame, 0, 52, kWidth, 53, 200, 200, 204);
    for (int top = 70, index = 0; top + 44 < kHeight - 40; top += 45, ++index) {
        fillRect(frame, 0, top, kWidth, top + 44, 255, 255, 255);
        fillRect(frame, 14, top + 44, kWidth, top + 45, 220, 220, 224);
        fillRect(frame, 12, top + 10, 36, top + 34, static_cast<std::uint8_t>(40 + index * 20), 120, 220);
        int x = 46;
        while (x < kWidth - 20) {
            const int glyph = 3 + static_cast<int>(random() % 4);
            for (int y = top + 16; y < top + 27; ++y) {
                for (int dx = 0; dx < glyph; ++dx) {
                    if (random() % 3 == 0) continue;
                    const auto shade = static_cast<std::uint8_t>(random() % 2 ? 20 : 120 + random() % 100);
                    fillRect(frame, x + dx, y, x + dx + 1, y + 1, shade, shade, shade);
                }
            }
            x += glyph + 1 + (random() % 6 == 0 ? 4 : 0);
        }
    }
    fillRect(frame, 0, kHeight - 40, kWidth, kHeight, 248, 248, 248);
    return frame;
}

const RgbaFrame& sampleFrame() {
    static const RgbaFrame frame = uiLikeFrame();
    return frame;
}

void UnchangedPass_Detector(benchmark::State& state) {
    const RgbaFrame& frame = sampleFrame();
    halvora::FrameChangeDetector detector;
    detector.changed(frame);
    const auto before = halvora::bench::allocationCount();
    for (auto _ : state) benchmark::DoNotOptimize(detector.changed(frame));
    state.counters["allocs"] = halvora::bench::allocationsPer(before, halvora::bench::allocationCount(), state.iterations());
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(frame.pixels.size()));
}

void UnchangedPass_Memcmp(benchmark::State& state) {
    halvora::bench::memcmpBaseline(state, sampleFrame());
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(sampleFrame().pixels.size()));
}

void ChangedPass_JpegEncoder(benchmark::State& state) {
    const RgbaFrame& frame = sampleFrame();
    halvora::JpegEncoder encoder;
    std::size_t size = 0;
    for (auto _ : state) {
        size = encoder.encode(frame).size();
        benchmark::DoNotOptimize(size);
    }
    if (size == 0) state.SkipWithError(encoder.error().c_str());
    state.counters["jpeg_bytes"] = static_cast<double>(size);
}

void ChangedPass_TjCompress2(benchmark::State& state) { halvora::bench::tjCompressBaseline(state, sampleFrame()); }

// A whole changed pass as the frame loop does it: detect, remember, encode.
void ChangedPass_DetectAndEncode(benchmark::State& state) {
    RgbaFrame frame = sampleFrame();
    halvora::FrameChangeDetector detector;
    halvora::JpegEncoder encoder;
    detector.changed(frame);
    encoder.encode(frame);  // buffers grow once, on the first frame
    const auto before = halvora::bench::allocationCount();
    for (auto _ : state) {
        frame.pixels[0] ^= 1;
        if (detector.changed(frame)) benchmark::DoNotOptimize(encoder.encode(frame).data());
    }
    state.counters["allocs"] = halvora::bench::allocationsPer(before, halvora::bench::allocationCount(), state.iterations());
}

BENCHMARK(UnchangedPass_Detector);
BENCHMARK(UnchangedPass_Memcmp);
BENCHMARK(ChangedPass_JpegEncoder)->Unit(benchmark::kMicrosecond);
BENCHMARK(ChangedPass_TjCompress2)->Unit(benchmark::kMicrosecond);
BENCHMARK(ChangedPass_DetectAndEncode)->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    halvora::bench::RecordingReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();

    std::printf("summary: frame %dx%d, unchanged detector/memcmp = %.2f, encode JpegEncoder/tjCompress2 = %.2f\n",
                kWidth, kHeight, reporter.ratio("UnchangedPass_Detector", "UnchangedPass_Memcmp"),
                reporter.ratio("ChangedPass_JpegEncoder", "ChangedPass_TjCompress2"));
    std::printf("summary: C++ allocations per pass after the first: unchanged %.1f, changed %.1f\n",
                reporter.counter("UnchangedPass_Detector", "allocs"),
                reporter.counter("ChangedPass_DetectAndEncode", "allocs"));
    return 0;
}
