#pragma once
// JPEG encoding of captured frames. One compressor and one output buffer live as long as the
// encoder, so that steady streaming allocates nothing per frame. Not thread-safe: one encoder per
// thread that encodes.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "capture/pixel_rect.h"
#include "halvora/platform/rgba_frame.h"

namespace halvora {

class JpegEncoder {
public:
    // 50 matches the 0.5 compression quality the console's picture is tuned for.
    static constexpr int kDefaultQuality = 50;

    JpegEncoder();
    ~JpegEncoder();
    JpegEncoder(JpegEncoder&&) noexcept;
    JpegEncoder& operator=(JpegEncoder&&) noexcept;
    JpegEncoder(const JpegEncoder&) = delete;
    JpegEncoder& operator=(const JpegEncoder&) = delete;

    // The JPEG bytes (4:2:0 subsampling, alpha dropped), valid until the next call; empty on
    // failure, with error() saying why.
    const std::vector<std::uint8_t>& encode(const RgbaFrame& frame, int quality = kDefaultQuality);

    // The same into the caller's buffer (its capacity is reused). False on failure, with `out`
    // emptied and error() saying why.
    bool encodeInto(const RgbaFrame& frame, std::vector<std::uint8_t>& out, int quality = kDefaultQuality);

    // One rectangle of the frame, as a picture of its own; false as encodeInto, and when the
    // rectangle is empty or not within the frame.
    bool encodeRegionInto(const RgbaFrame& frame, PixelRect region, std::vector<std::uint8_t>& out,
                          int quality = kDefaultQuality);

    // Why the last call failed; empty after a success.
    const std::string& error() const { return error_; }

private:
    struct Compressor;
    std::unique_ptr<Compressor> compressor_;
    std::vector<std::uint8_t> output_;
    std::string error_;
};

}  // namespace halvora
