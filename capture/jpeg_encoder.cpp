#include "capture/jpeg_encoder.h"

#include <turbojpeg.h>

#include <limits>
#include <string>
#include <utility>

namespace halvora {
namespace {

// The largest side a baseline JPEG can describe.
constexpr int kMaxJpegSide = 65535;

constexpr TJSAMP kSubsampling = TJSAMP_420;

}  // namespace

// The compressor handle and a work buffer from TurboJPEG's own allocator, sized for the worst case
// of the current frame size so that compression never reallocates it.
struct JpegEncoder::Compressor {
    tjhandle handle = tjInitCompress();
    unsigned char* buffer = nullptr;
    unsigned long capacity = 0;

    ~Compressor() {
        tjFree(buffer);
        if (handle) tjDestroy(handle);
    }

    bool reserve(int width, int height) {
        const unsigned long needed = tjBufSize(width, height, kSubsampling);
        if (needed == static_cast<unsigned long>(-1)) return false;
        if (needed <= capacity) return true;
        tjFree(buffer);
        buffer = tjAlloc(static_cast<int>(needed));
        capacity = buffer ? needed : 0;
        return buffer != nullptr;
    }
};

JpegEncoder::JpegEncoder() : compressor_(std::make_unique<Compressor>()) {}
JpegEncoder::~JpegEncoder() = default;
JpegEncoder::JpegEncoder(JpegEncoder&&) noexcept = default;
JpegEncoder& JpegEncoder::operator=(JpegEncoder&&) noexcept = default;

const std::vector<std::uint8_t>& JpegEncoder::encode(const RgbaFrame& frame, int quality) {
    encodeInto(frame, output_, quality);
    return output_;
}

bool JpegEncoder::encodeInto(const RgbaFrame& frame, std::vector<std::uint8_t>& out, int quality) {
    return encodeRegionInto(frame, {0, 0, frame.width, frame.height}, out, quality);
}

bool JpegEncoder::encodeRegionInto(const RgbaFrame& frame, PixelRect region, std::vector<std::uint8_t>& out,
                                   int quality) {
    out.clear();
    error_.clear();
    auto fail = [this](std::string message) {
        error_ = std::move(message);
        return false;
    };
    if (!compressor_ || !compressor_->handle) return fail("JPEG compressor could not be created");
    if (quality < 1 || quality > 100) return fail("JPEG quality must be from 1 to 100, got " + std::to_string(quality));
    if (frame.empty()) {
        return fail("Cannot encode an empty frame (" + std::to_string(frame.width) + "x" +
                    std::to_string(frame.height) + ")");
    }
    if (!frame.consistent()) return fail("Frame buffer is smaller than its size says");
    if (region.x < 0 || region.y < 0 || region.width <= 0 || region.height <= 0 ||
        region.width > frame.width - region.x || region.height > frame.height - region.y) {
        return fail("Region " + std::to_string(region.width) + "x" + std::to_string(region.height) + " at " +
                    std::to_string(region.x) + "," + std::to_string(region.y) + " is not within the " +
                    std::to_string(frame.width) + "x" + std::to_string(frame.height) + " frame");
    }
    if (region.width > kMaxJpegSide || region.height > kMaxJpegSide) {
        return fail("Frame too large for JPEG (" + std::to_string(region.width) + "x" +
                    std::to_string(region.height) + ")");
    }
    if (frame.bytesPerRow > static_cast<std::size_t>(std::numeric_limits<int>::max())) {
        return fail("Frame rows too long for JPEG");
    }
    if (!compressor_->reserve(region.width, region.height)) return fail("Out of memory for the JPEG buffer");

    unsigned char* destination = compressor_->buffer;
    unsigned long size = compressor_->capacity;
    // The region is read in place: its first pixel, with the whole frame's row length.
    const std::uint8_t* first = frame.row(region.y) + static_cast<std::size_t>(region.x) * RgbaFrame::kBytesPerPixel;
    // Alpha is dropped: premultiplied pixels come out as if composed on black, which is what a
    // non-opaque capture looks like once flattened.
    const int status = tjCompress2(compressor_->handle, first, region.width, static_cast<int>(frame.bytesPerRow),
                                   region.height, TJPF_RGBA, &destination, &size, kSubsampling, quality,
                                   TJFLAG_NOREALLOC);
    if (status != 0) return fail(std::string("JPEG encoding failed: ") + tjGetErrorStr2(compressor_->handle));
    out.assign(destination, destination + size);
    return true;
}

}  // namespace halvora
