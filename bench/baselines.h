#pragma once
// The bounds the frame benchmarks are measured against, on the same pixels: a plain memcmp of the
// frame with a copy of itself, and libjpeg-turbo compressing it directly at the loop's settings
// (quality 50, 4:2:0).

#include <benchmark/benchmark.h>
#include <turbojpeg.h>

#include <cstring>
#include <vector>

#include "halvora/platform/rgba_frame.h"

namespace halvora::bench {

inline void memcmpBaseline(benchmark::State& state, const platform::RgbaFrame& frame) {
    const std::vector<std::uint8_t> last = frame.pixels;
    for (auto _ : state) benchmark::DoNotOptimize(std::memcmp(frame.pixels.data(), last.data(), last.size()));
}

inline void tjCompressBaseline(benchmark::State& state, const platform::RgbaFrame& frame) {
    tjhandle handle = tjInitCompress();
    unsigned char* buffer = nullptr;
    unsigned long size = 0;
    for (auto _ : state) {
        if (tjCompress2(handle, frame.pixels.data(), frame.width, static_cast<int>(frame.bytesPerRow), frame.height,
                        TJPF_RGBA, &buffer, &size, TJSAMP_420, 50, 0) != 0) {
            state.SkipWithError(tjGetErrorStr2(handle));
            break;
        }
        benchmark::DoNotOptimize(buffer);
    }
    state.counters["jpeg_bytes"] = static_cast<double>(size);
    tjFree(buffer);
    tjDestroy(handle);
}

}  // namespace halvora::bench
