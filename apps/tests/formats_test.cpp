// SPDX-License-Identifier: MIT
// TIFF, JPEG and BMP reading, the --bits mapping of high-bit-depth data, and files that appear whole or not
// at all. Files are made by OpenCV's encoders (so our reading is checked against an independent writer) or,
// for the BMP variants OpenCV does not write, byte by byte.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <opencv2/imgcodecs.hpp>
#include <string>
#include <vector>

#include <ombrel/framework/startup.h>

#include "image_io.h"
#include "output_file.h"

namespace ombrel::cli {
namespace {

namespace fs = std::filesystem;

DecodedImage Decode(const std::vector<uint8_t>& bytes, const DecodeLimits& limits = {}) {
    return DecodeImage(bytes.data(), bytes.size(), limits);
}

cv::Mat AsMat(const Buffer& image) {
    cv::Mat m(image.Height(), image.Width(), CV_8UC1);
    for (int y = 0; y < image.Height(); ++y) std::memcpy(m.ptr(y), image.Row(y), image.Width());
    return m;
}

uint8_t TableGrey(int r, int g, int b) {
    return static_cast<uint8_t>((ColorUtilities::RedToGrey()[r] + ColorUtilities::GreenToGrey()[g] +
                                 ColorUtilities::BlueToGrey()[b]) >>
                                16);
}

// A test pattern with every grey level and some structure, so that row order and flips show.
cv::Mat Pattern(int width, int height) {
    cv::Mat m(height, width, CV_8UC1);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) m.at<uint8_t>(y, x) = static_cast<uint8_t>(x * 7 + y * 31 + x * y);
    return m;
}

cv::Mat ColourPattern(int width, int height) {
    cv::Mat m(height, width, CV_8UC3);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            m.at<cv::Vec3b>(y, x) = cv::Vec3b(static_cast<uint8_t>(x * 13), static_cast<uint8_t>(y * 17 + x),
                                              static_cast<uint8_t>(x * y + 5));
    return m;
}

// Grey of an OpenCV (BGR) image through the reader's documented BT.601 tables.
cv::Mat TableGreyOf(const cv::Mat& bgr) {
    cv::Mat grey(bgr.rows, bgr.cols, CV_8UC1);
    for (int y = 0; y < bgr.rows; ++y)
        for (int x = 0; x < bgr.cols; ++x) {
            const cv::Vec3b p = bgr.at<cv::Vec3b>(y, x);
            grey.at<uint8_t>(y, x) = TableGrey(p[2], p[1], p[0]);
        }
    return grey;
}

std::vector<uint8_t> Encoded(const std::string& extension, const cv::Mat& image,
                             const std::vector<int>& parameters = {}) {
    std::vector<uint8_t> bytes;
    EXPECT_TRUE(cv::imencode(extension, image, bytes, parameters)) << extension;
    return bytes;
}

int MaxDifference(const cv::Mat& a, const cv::Mat& b) {
    if (a.size() != b.size()) return 1000;
    double most = 0;
    cv::minMaxLoc(cv::abs(a - b) + cv::abs(b - a), nullptr, &most);
    return static_cast<int>(most);
}

TEST(TiffJpegBmp, ReadAsTheSameGreyAsOpenCvWritesThem) {
    const cv::Mat grey = Pattern(37, 23), colour = ColourPattern(29, 19);
    struct Case {
        const char* extension;
        cv::Mat written;
        cv::Mat expected;
        const char* format;
        int tolerance;
    } cases[] = {
        {".tiff", grey, grey, "TIFF", 0},
        {".tiff", colour, TableGreyOf(colour), "TIFF", 0},
        {".bmp", grey, grey, "BMP", 0},
        {".bmp", colour, TableGreyOf(colour), "BMP", 0},
        // Lossy: compared with libjpeg's own decoding to grey (OpenCV's IMREAD_GRAYSCALE).
        {".jpg", grey, cv::Mat(), "JPEG", 0},
        {".jpg", colour, cv::Mat(), "JPEG", 1},
    };
    for (const Case& c : cases) {
        const std::vector<uint8_t> bytes = Encoded(c.extension, c.written);
        const DecodedImage d = Decode(bytes);
        ASSERT_TRUE(d) << c.extension << ": " << d.error;
        EXPECT_EQ(d.format, c.format);
        EXPECT_EQ(d.sourceColour, c.written.channels() == 3) << c.extension;
        const cv::Mat expected = c.expected.empty() ? cv::imdecode(bytes, cv::IMREAD_GRAYSCALE) : c.expected;
        EXPECT_LE(MaxDifference(AsMat(*d.image), expected), c.tolerance) << c.extension << " " << c.format;
    }
    // An LZW-compressed TIFF goes through libtiff's decoder all the same.
    const DecodedImage lzw = Decode(Encoded(".tiff", grey, {cv::IMWRITE_TIFF_COMPRESSION, 5}));
    ASSERT_TRUE(lzw) << lzw.error;
    EXPECT_EQ(MaxDifference(AsMat(*lzw.image), grey), 0);
}

// A BMP byte by byte: 40-byte info header, then the palette or masks, then the rows.
std::vector<uint8_t> Bmp(int width, int height, int bits, const std::vector<uint8_t>& extra,
                         const std::vector<uint8_t>& rows, uint32_t compression = 0) {
    std::vector<uint8_t> b(54);
    auto put32 = [&](size_t at, uint32_t v) {
        for (int i = 0; i < 4; ++i) b[at + i] = static_cast<uint8_t>(v >> (8 * i));
    };
    b[0] = 'B', b[1] = 'M';
    put32(10, static_cast<uint32_t>(54 + extra.size()));
    put32(14, 40);
    put32(18, static_cast<uint32_t>(width));
    put32(22, static_cast<uint32_t>(height));
    b[26] = 1;
    b[28] = static_cast<uint8_t>(bits);
    put32(30, compression);
    b.insert(b.end(), extra.begin(), extra.end());
    b.insert(b.end(), rows.begin(), rows.end());
    put32(2, static_cast<uint32_t>(b.size()));
    return b;
}

std::vector<uint8_t> Pixels(const Buffer& image) {
    std::vector<uint8_t> out;
    for (int y = 0; y < image.Height(); ++y)
        out.insert(out.end(), image.Row(y), image.Row(y) + image.Width());
    return out;
}

TEST(TiffJpegBmp, BmpVariantsOpenCvDoesNotWrite) {
    // 1 bit, two palette entries (black, white), top-down (negative height), rows padded to 4 bytes.
    const std::vector<uint8_t> twoColours = {0, 0, 0, 0, 255, 255, 255, 0};
    DecodedImage one = Decode(Bmp(10, -2, 1, twoColours, {0b10110000, 0b01000000, 0, 0, 0xFF, 0xC0, 0, 0}));
    ASSERT_TRUE(one) << one.error;
    const uint8_t w = TableGrey(255, 255, 255);
    EXPECT_EQ(Pixels(*one.image), (std::vector<uint8_t>{w, 0, w, w, 0, 0, 0, 0, 0, w,  //
                                                        w, w, w, w, w, w, w, w, w, w}));
    // 4 bits, bottom-up: the first row in the file is the image's last.
    std::vector<uint8_t> sixteen;
    for (int i = 0; i < 16; ++i)
        sixteen.insert(sixteen.end(), {uint8_t(i * 16), uint8_t(i * 16), uint8_t(i * 16), 0});
    DecodedImage four = Decode(Bmp(3, 2, 4, sixteen, {0x12, 0x30, 0, 0, 0xAB, 0xC0, 0, 0}));
    ASSERT_TRUE(four) << four.error;
    auto g = [](int v) { return TableGrey(v, v, v); };
    EXPECT_EQ(Pixels(*four.image), (std::vector<uint8_t>{g(160), g(176), g(192), g(16), g(32), g(48)}));
    // 16 bits 5-5-5 by default; 32 bits with bit-field masks (here blue in the top byte).
    DecodedImage rgb555 = Decode(Bmp(2, 1, 16, {}, {0x00, 0x7C, 0x1F, 0x00}));
    ASSERT_TRUE(rgb555) << rgb555.error;
    EXPECT_EQ(Pixels(*rgb555.image), (std::vector<uint8_t>{TableGrey(255, 0, 0), TableGrey(0, 0, 255)}));
    const std::vector<uint8_t> masks = {0, 0, 0xFF, 0, 0, 0xFF, 0, 0, 0, 0, 0, 0xFF};  // R, G, B
    DecodedImage fields = Decode(Bmp(1, 1, 32, masks, {0x00, 0x80, 0x40, 0x20}, 3));
    ASSERT_TRUE(fields) << fields.error;
    EXPECT_EQ(Pixels(*fields.image), std::vector<uint8_t>{TableGrey(0x40, 0x80, 0x20)});

    // Hostile or unsupported files fail with a reason, and every cut of a valid file fails cleanly.
    const struct {
        std::vector<uint8_t> bytes;
        const char* reason;
    } bad[] = {
        {Bmp(4, 4, 8, {}, std::vector<uint8_t>(16), 1), "run-length compressed BMP"},
        {Bmp(4, 4, 7, {}, std::vector<uint8_t>(64)), "7 bits per pixel"},
        {Bmp(4, 4, 8, {}, std::vector<uint8_t>(8)), "truncated BMP"},
        {Bmp(40000, 1, 24, {}, {}), "at most 32766 pixels a side"},
        {Bmp(2, 2, 32, {0, 0, 0xFF, 0, 0x0F, 0xF0, 0, 0, 1, 0, 0, 0}, std::vector<uint8_t>(16), 3),
         "not contiguous"},
    };
    for (const auto& c : bad) {
        const DecodedImage d = Decode(c.bytes);
        EXPECT_FALSE(d);
        EXPECT_NE(d.error.find(c.reason), std::string::npos) << d.error;
    }
    const std::vector<uint8_t> good = Encoded(".bmp", Pattern(9, 7));
    for (size_t cut = 0; cut < good.size(); ++cut) {
        const std::vector<uint8_t> part(good.begin(), good.begin() + static_cast<long>(cut));
        const DecodedImage d = Decode(part);
        EXPECT_FALSE(d) << "cut at " << cut;
        EXPECT_FALSE(d.error.empty());
    }
}

TEST(TiffJpegBmp, DamagedTiffAndJpegFailWithAReason) {
    const std::vector<uint8_t> tiff = Encoded(".tiff", Pattern(31, 17));
    const std::vector<uint8_t> jpeg = Encoded(".jpg", Pattern(31, 17));
    for (const auto* file : {&tiff, &jpeg}) {
        for (size_t cut : {file->size() / 3, file->size() / 2, file->size() - 40}) {
            const std::vector<uint8_t> part(file->begin(), file->begin() + static_cast<long>(cut));
            const DecodedImage d = Decode(part);
            EXPECT_FALSE(d) << "cut at " << cut << " of " << file->size();
            EXPECT_TRUE(d.error.find("TIFF") != std::string::npos ||
                        d.error.find("JPEG") != std::string::npos)
                << d.error;
            EXPECT_EQ(d.error.find('\n'), std::string::npos);
        }
    }
    // Sizes are checked before pixels are allocated, whatever the codec.
    DecodeLimits tiny;
    tiny.maxBytes = 100;
    for (const auto* file : {&tiff, &jpeg}) {
        const DecodedImage d = Decode(*file, tiny);
        EXPECT_FALSE(d);
        EXPECT_NE(d.error.find("memory available"), std::string::npos) << d.error;
    }
}

TEST(HighBitDepth, BitsMapsTheSensorsRangeTo8BitsInEveryFormat) {
    // 12-bit data in 16-bit files: without --bits it would all fall below grey 16.
    cv::Mat wide(3, 5, CV_16UC1);
    const uint16_t values[] = {0, 1, 8, 2048, 4095, 4096, 65535, 100, 3000, 17, 4000, 5, 6, 7, 2047};
    for (int i = 0; i < 15; ++i) wide.at<uint16_t>(i / 5, i % 5) = values[i];
    auto expected = [&](int bits) {
        std::vector<uint8_t> out;
        const uint32_t maxval = (1u << bits) - 1;
        for (uint16_t v : values) {
            const uint32_t scaled = (std::min<uint32_t>(v, maxval) * 255u + maxval / 2) / maxval;
            out.push_back(static_cast<uint8_t>(v > maxval ? 255 : scaled));
        }
        return out;
    };
    for (const char* extension : {".png", ".tiff", ".pgm"}) {
        const std::vector<uint8_t> bytes = Encoded(extension, wide);
        for (int bits : {0, 12, 16, 10}) {
            DecodeLimits limits;
            limits.bits = bits;
            const DecodedImage d = Decode(bytes, limits);
            ASSERT_TRUE(d) << extension << ": " << d.error;
            EXPECT_EQ(d.sourceBits, 16) << extension;
            EXPECT_EQ(Pixels(*d.image), expected(bits == 0 ? 16 : bits)) << extension << " bits " << bits;
        }
    }
    // 8-bit files are not touched by --bits.
    DecodeLimits twelve;
    twelve.bits = 12;
    const cv::Mat narrow = Pattern(6, 4);
    const DecodedImage d = Decode(Encoded(".png", narrow), twelve);
    ASSERT_TRUE(d) << d.error;
    EXPECT_EQ(MaxDifference(AsMat(*d.image), narrow), 0);
}

class OutputFiles : public ::testing::Test {
  protected:
    void SetUp() override {
        _dir = fs::temp_directory_path() / ("ombrel_out_" + std::to_string(::getpid()));
        fs::create_directories(_dir);
    }
    void TearDown() override { fs::remove_all(_dir); }
    size_t Entries() const { return static_cast<size_t>(std::distance(fs::directory_iterator(_dir), {})); }
    fs::path _dir;
};

TEST_F(OutputFiles, AppearWholeOrNotAtAll) {
    const std::string target = (_dir / "result.json").string();
    {
        OutputFile file;
        ASSERT_EQ(file.Open(target), "");
        ASSERT_TRUE(file.Write("{\"old\": 1}\n", 11));
        ASSERT_EQ(file.Commit(), "");
    }
    // Abandoned half-way (an exception, a failed encoder): the old file stays, no temporary is left.
    {
        OutputFile file;
        ASSERT_EQ(file.Open(target), "");
        ASSERT_TRUE(file.Write("{\"new\"", 6));
        EXPECT_EQ(Entries(), 2u);  // the target and the hidden temporary beside it
    }
    EXPECT_EQ(Entries(), 1u);
    std::ifstream in(target);
    std::string text((std::istreambuf_iterator<char>(in)), {});
    EXPECT_EQ(text, "{\"old\": 1}\n");
    // The renamed file has the permissions an ordinary create gives, not the temporary's 0600.
    std::ofstream((_dir / "reference").string()) << "x";
    EXPECT_EQ(fs::status(target).permissions(), fs::status(_dir / "reference").permissions());
    fs::remove(_dir / "reference");

    EXPECT_NE(OutputFile().Open((_dir / "missing" / "x.png").string()).find("cannot create"),
              std::string::npos);
    EXPECT_NE(OutputPathProblem(_dir.string()).find("folder"), std::string::npos);
    EXPECT_EQ(OutputPathProblem((_dir / "fine.csv").string()), "");
    EXPECT_FALSE(fs::exists(_dir / "fine.csv"));
    EXPECT_EQ(Entries(), 1u);
}

}  // namespace
}  // namespace ombrel::cli
