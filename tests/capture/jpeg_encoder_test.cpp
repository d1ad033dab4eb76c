// The JPEG encoder: what it writes decodes to the frame's size and colours; bad input is refused.
#include <gtest/gtest.h>
#include <turbojpeg.h>

#include <cstdlib>

#include "capture/jpeg_encoder.h"

namespace halvora {
namespace {

struct Decoded {
    int width = 0, height = 0, subsampling = -1;
    std::vector<std::uint8_t> rgb;
};

Decoded decode(const std::vector<std::uint8_t>& jpeg) {
    Decoded out;
    tjhandle handle = tjInitDecompress();
    int colourspace = 0;
    auto* data = const_cast<unsigned char*>(jpeg.data());
    const auto size = static_cast<unsigned long>(jpeg.size());
    if (tjDecompressHeader3(handle, data, size, &out.width, &out.height, &out.subsampling, &colourspace) == 0) {
        out.rgb.resize(static_cast<std::size_t>(out.width) * static_cast<std::size_t>(out.height) * 3);
        if (tjDecompress2(handle, data, size, out.rgb.data(), out.width, 0, out.height, TJPF_RGB, 0) != 0)
            out.rgb.clear();
    }
    tjDestroy(handle);
    return out;
}

// Left half one colour, right half another, rows padded with junk the encoder must skip.
RgbaFrame twoColourFrame(int width, int height, std::size_t padding) {
    RgbaFrame frame;
    frame.width = width;
    frame.height = height;
    frame.bytesPerRow = static_cast<std::size_t>(width) * 4 + padding;
    frame.pixels.assign(frame.bytesPerRow * static_cast<std::size_t>(height), 0xEE);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            std::uint8_t* p = frame.row(y) + x * 4;
            const bool left = x < width / 2;
            p[0] = left ? 200 : 20;
            p[1] = left ? 80 : 160;
            p[2] = left ? 40 : 230;
            p[3] = 255;
        }
    }
    return frame;
}

void expectColourNear(const Decoded& image, int x, int y, int r, int g, int b) {
    const std::uint8_t* p = image.rgb.data() + (static_cast<std::size_t>(y) * image.width + x) * 3;
    EXPECT_LE(std::abs(p[0] - r), 4) << "red at " << x << "," << y;
    EXPECT_LE(std::abs(p[1] - g), 4) << "green at " << x << "," << y;
    EXPECT_LE(std::abs(p[2] - b), 4) << "blue at " << x << "," << y;
}

TEST(JpegEncoder, RoundTripKeepsSizeColoursAndRowStride) {
    JpegEncoder encoder;
    const RgbaFrame frame = twoColourFrame(231, 500, 12);
    const auto& jpeg = encoder.encode(frame);
    ASSERT_FALSE(jpeg.empty()) << encoder.error();
    EXPECT_TRUE(encoder.error().empty());
    ASSERT_GE(jpeg.size(), 4u);
    EXPECT_EQ(jpeg[0], 0xFF);
    EXPECT_EQ(jpeg[1], 0xD8);

    const Decoded image = decode(jpeg);
    ASSERT_EQ(image.width, 231);
    ASSERT_EQ(image.height, 500);
    EXPECT_EQ(image.subsampling, TJSAMP_420);
    ASSERT_FALSE(image.rgb.empty());
    for (int y : {0, 250, 499}) {
        expectColourNear(image, 10, y, 200, 80, 40);
        expectColourNear(image, 220, y, 20, 160, 230);
    }

    // Into the caller's buffer, and a higher quality costs more bytes.
    std::vector<std::uint8_t> mine;
    ASSERT_TRUE(encoder.encodeInto(frame, mine, 95)) << encoder.error();
    EXPECT_GT(mine.size(), encoder.encode(frame, 10).size());
}

TEST(JpegEncoder, BadInputGivesAnEmptyResultAndAMessageThenRecovers) {
    JpegEncoder encoder;
    RgbaFrame empty;
    EXPECT_TRUE(encoder.encode(empty).empty());
    EXPECT_NE(encoder.error().find("empty frame"), std::string::npos) << encoder.error();

    RgbaFrame zeroHigh;
    zeroHigh.resize(16, 0);
    EXPECT_TRUE(encoder.encode(zeroHigh).empty());
    EXPECT_FALSE(encoder.error().empty());

    RgbaFrame truncated = twoColourFrame(16, 16, 0);
    truncated.pixels.resize(truncated.pixels.size() - 1);
    std::vector<std::uint8_t> out{1, 2, 3};
    EXPECT_FALSE(encoder.encodeInto(truncated, out));
    EXPECT_TRUE(out.empty());
    EXPECT_NE(encoder.error().find("smaller"), std::string::npos) << encoder.error();

    RgbaFrame good = twoColourFrame(16, 16, 0);
    EXPECT_TRUE(encoder.encode(good, 0).empty());
    EXPECT_NE(encoder.error().find("quality"), std::string::npos) << encoder.error();
    EXPECT_TRUE(encoder.encode(good, 101).empty());

    EXPECT_FALSE(encoder.encode(good).empty());
    EXPECT_TRUE(encoder.error().empty());
}

}  // namespace
}  // namespace halvora
