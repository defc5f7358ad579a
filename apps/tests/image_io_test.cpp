// SPDX-License-Identifier: MIT
// The image reader and writers: every variant becomes the documented grey bytes, every damaged file a
// one-line reason, and what we write is read back the same by OpenCV's decoder.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <opencv2/imgcodecs.hpp>
#include <string>
#include <vector>

#include <ombrel/framework/startup.h>

#include "image_io.h"

namespace ombrel::cli {
namespace {

namespace fs = std::filesystem;

class ImageFiles : public ::testing::Test {
  protected:
    void SetUp() override {
        _dir = fs::temp_directory_path() / ("ombrel_io_" + std::to_string(::getpid()));
        fs::create_directories(_dir);
    }
    void TearDown() override { fs::remove_all(_dir); }
    std::string Path(const std::string& name) const { return (_dir / name).string(); }
    std::vector<uint8_t> Encode(const cv::Mat& image) const {
        std::vector<uint8_t> bytes;
        EXPECT_TRUE(cv::imencode(".png", image, bytes));
        return bytes;
    }
    fs::path _dir;
};

DecodedImage Decode(const std::string& bytes, const DecodeLimits& limits = {}) {
    return DecodeImage(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size(), limits);
}

DecodedImage Decode(const std::vector<uint8_t>& bytes, const DecodeLimits& limits = {}) {
    return DecodeImage(bytes.data(), bytes.size(), limits);
}

std::vector<uint8_t> Pixels(const Buffer& image) {
    std::vector<uint8_t> out;
    for (int y = 0; y < image.Height(); ++y)
        out.insert(out.end(), image.Row(y), image.Row(y) + image.Width());
    return out;
}

// The library's BT.601 tables, which the reader promises to use.
uint8_t TableGrey(int r, int g, int b) {
    return static_cast<uint8_t>((ColorUtilities::RedToGrey()[r] + ColorUtilities::GreenToGrey()[g] +
                                 ColorUtilities::BlueToGrey()[b]) >>
                                16);
}

TEST_F(ImageFiles, PngVariantsBecomeDocumentedGrey) {
    cv::Mat grey(3, 5, CV_8UC1);
    for (int i = 0; i < 15; ++i) grey.data[i] = static_cast<uint8_t>(i * 17);
    DecodedImage g = Decode(Encode(grey));
    ASSERT_TRUE(g) << g.error;
    EXPECT_EQ(g.image->Width(), 5);
    EXPECT_EQ(g.image->Height(), 3);
    EXPECT_EQ(Pixels(*g.image), std::vector<uint8_t>(grey.data, grey.data + 15));

    // 16-bit samples scale with rounding: v * 255 / 65535 to nearest.
    cv::Mat wide(1, 6, CV_16UC1);
    const uint16_t samples[6] = {0, 128, 129, 32767, 65400, 65535};
    for (int i = 0; i < 6; ++i) wide.at<uint16_t>(0, i) = samples[i];
    DecodedImage w = Decode(Encode(wide));
    ASSERT_TRUE(w) << w.error;
    EXPECT_EQ(w.sourceBits, 16);
    EXPECT_EQ(Pixels(*w.image), (std::vector<uint8_t>{0, 0, 1, 127, 254, 255}));

    // Colour through BT.601: pure red, green and blue give 76, 150 and 29; alpha is dropped.
    cv::Mat colour(1, 4, CV_8UC4);
    colour.at<cv::Vec4b>(0, 0) = {0, 0, 255, 255};    // BGRA: red
    colour.at<cv::Vec4b>(0, 1) = {0, 255, 0, 0};      // green, fully transparent
    colour.at<cv::Vec4b>(0, 2) = {255, 0, 0, 128};    // blue
    colour.at<cv::Vec4b>(0, 3) = {10, 200, 90, 255};  // a mix
    DecodedImage c = Decode(Encode(colour));
    ASSERT_TRUE(c) << c.error;
    EXPECT_TRUE(c.sourceColour);
    EXPECT_EQ(Pixels(*c.image), (std::vector<uint8_t>{76, 150, 29, TableGrey(90, 200, 10)}));
}

TEST_F(ImageFiles, NetpbmVariantsBecomeDocumentedGrey) {
    // PBM: 1 is black (0), 0 is white (255); ASCII bits need no separators; binary rows are byte-padded.
    DecodedImage p1 = Decode("P1\n# comment\n3 2\n010 1\n0 0\n");
    ASSERT_TRUE(p1) << p1.error;
    EXPECT_EQ(Pixels(*p1.image), (std::vector<uint8_t>{255, 0, 255, 0, 255, 255}));
    DecodedImage p4 = Decode(std::string("P4 10 2\n\xC0\x40\x00\x80", 12));
    ASSERT_TRUE(p4) << p4.error;
    EXPECT_EQ(Pixels(*p4.image)[0], 0);
    EXPECT_EQ(Pixels(*p4.image)[1], 0);
    EXPECT_EQ(Pixels(*p4.image)[2], 255);
    EXPECT_EQ(Pixels(*p4.image)[9], 0);
    EXPECT_EQ(Pixels(*p4.image)[19], 255);

    // PGM with maxval 15 scales to 0..255 with rounding; 16-bit PGM is big-endian.
    DecodedImage p2 = Decode("P2\n4 1\n15\n0 1 8 15\n");
    ASSERT_TRUE(p2) << p2.error;
    EXPECT_EQ(Pixels(*p2.image), (std::vector<uint8_t>{0, 17, 136, 255}));
    DecodedImage p5 = Decode(std::string("P5\n3 1\n65535\n\x00\x00\x80\x00\xFF\xFF", 19));
    ASSERT_TRUE(p5) << p5.error;
    EXPECT_EQ(Pixels(*p5.image), (std::vector<uint8_t>{0, 128, 255}));

    // PPM through the same BT.601 tables as PNG.
    DecodedImage p3 = Decode("P3 2 1 255  255 0 0  10 200 90\n");
    ASSERT_TRUE(p3) << p3.error;
    EXPECT_EQ(Pixels(*p3.image), (std::vector<uint8_t>{76, TableGrey(10, 200, 90)}));
    DecodedImage p6 = Decode(std::string("P6 1 1 255\n\x00\x00\xFF", 14));
    ASSERT_TRUE(p6) << p6.error;
    EXPECT_EQ(Pixels(*p6.image), std::vector<uint8_t>{29});
}

TEST_F(ImageFiles, DamagedFilesFailWithAReason) {
    const struct {
        std::string bytes;
        std::string reason;
    } cases[] = {
        {"", "file is empty"},
        {"hello, world\n", "not an image"},
        {"GIF89a\x01\x00\x01\x00", "GIF images are not supported"},
        {"\xFF\xD8\xFF\xE0 rest of a jpeg", "JPEG: "},
        {std::string("II*\0\x08\0\0\0", 8), "corrupt TIFF"},
        {"BM\x10\0\0\0", "truncated BMP"},
        {"P5\n4 5\n255\n0123456", "truncated PGM: expected 20 bytes of pixel data, found 7"},
        {"P5\n4", "truncated PGM: the header ends early"},
        {"P2\n2 1\n0\n0 0\n", "bad maxval"},
        {"P2\n2 1\n100\n50 101\n", "sample value 101 exceeds the maxval 100"},
        {"P2\n3 1\n255\n1 2\n", "truncated PGM"},
        {"P1\n0 4\n", "image has no pixels"},
        {"P5\n40000 1\n255\n", "at most 32766 pixels a side"},
        {"P6\n2 2\n255\n\x01\x02\x03", "truncated PPM"},
        {"P4\n9 2\n\x01\x02\x03", "truncated PBM"},
    };
    for (const auto& c : cases) {
        const DecodedImage d = Decode(c.bytes);
        EXPECT_FALSE(d) << c.bytes;
        EXPECT_NE(d.error.find(c.reason), std::string::npos) << "'" << c.bytes << "' gave: " << d.error;
        EXPECT_EQ(d.error.find('\n'), std::string::npos);
    }

    // Every cut of a valid PNG before the end of its pixel data fails cleanly, and says why. (A file that
    // loses only its closing 12-byte IEND chunk still holds every pixel and is read.)
    cv::Mat image(20, 30, CV_8UC3, cv::Scalar(10, 120, 240));
    cv::randu(image, 0, 255);
    const std::vector<uint8_t> png = Encode(image);
    for (size_t cut = 0; cut < png.size() - 12; cut += 7) {
        const DecodedImage d = Decode(std::vector<uint8_t>(png.begin(), png.begin() + cut));
        EXPECT_FALSE(d) << "cut at " << cut;
        EXPECT_FALSE(d.error.empty());
    }
    const DecodedImage half = Decode(std::vector<uint8_t>(png.begin(), png.begin() + png.size() / 2));
    EXPECT_EQ(half.error, "truncated PNG: the file ends before the image data does");

    // A damaged chunk is caught by its checksum.
    std::vector<uint8_t> damaged = png;
    damaged[png.size() / 2] ^= 0x55;
    const DecodedImage bad = Decode(damaged);
    EXPECT_FALSE(bad);
    EXPECT_EQ(bad.error.rfind("corrupt PNG: ", 0), 0u) << bad.error;

    // An image larger than the memory allowed is refused before its pixels are allocated.
    DecodeLimits small;
    small.maxBytes = 1000;
    const DecodedImage big = Decode(Encode(cv::Mat(100, 100, CV_8UC1, cv::Scalar(7))), small);
    EXPECT_FALSE(big);
    EXPECT_NE(big.error.find("more than the"), std::string::npos) << big.error;
}

TEST_F(ImageFiles, FilesThatCannotBeReadNameTheProblem) {
    EXPECT_EQ(ReadImageFile(Path("missing.png")).error, "No such file or directory");
    EXPECT_NE(ReadImageFile(_dir.string()).error.find("is a directory"), std::string::npos);
}

TEST_F(ImageFiles, WrittenImagesReadBackTheSame) {
    Buffer grey(37, 11, EIGHT);
    for (int y = 0; y < 11; ++y)
        for (int x = 0; x < 37; ++x) grey.Row(y)[x] = static_cast<uint8_t>(x * 7 + y * 13);
    for (const char* name : {"g.png", "g.pgm"}) {
        ASSERT_EQ(WriteImage(Path(name), grey), "") << name;
        const cv::Mat back = cv::imread(Path(name), cv::IMREAD_UNCHANGED);
        ASSERT_EQ(back.type(), CV_8UC1) << name;
        ASSERT_EQ(back.cols, 37);
        ASSERT_EQ(back.rows, 11);
        for (int y = 0; y < 11; ++y)
            ASSERT_EQ(0, std::memcmp(back.ptr(y), grey.Row(y), 37)) << name << " row " << y;
        const DecodedImage ours = ReadImageFile(Path(name));
        ASSERT_TRUE(ours) << ours.error;
        EXPECT_EQ(Pixels(*ours.image), Pixels(grey));
    }
    // PBM keeps which pixels are set: non-zero becomes white (255 when read back), zero black (0), so a
    // mask written as PBM selects the same pixels when it is read back.
    ASSERT_EQ(WriteImage(Path("g.pbm"), grey), "");
    const DecodedImage bits = ReadImageFile(Path("g.pbm"));
    ASSERT_TRUE(bits) << bits.error;
    for (int y = 0; y < 11; ++y)
        for (int x = 0; x < 37; ++x) ASSERT_EQ(bits.image->Row(y)[x], grey.Row(y)[x] != 0 ? 255 : 0);

    std::vector<uint8_t> rgb(4 * 3 * 2);
    for (size_t i = 0; i < rgb.size(); ++i) rgb[i] = static_cast<uint8_t>(i * 10);
    ASSERT_EQ(WritePngRgb(Path("c.png"), 4, 2, rgb.data(), 12), "");
    const cv::Mat colour = cv::imread(Path("c.png"), cv::IMREAD_UNCHANGED);
    ASSERT_EQ(colour.type(), CV_8UC3);
    EXPECT_EQ(colour.at<cv::Vec3b>(1, 3), cv::Vec3b(rgb[23], rgb[22], rgb[21]));  // OpenCV is BGR

    EXPECT_NE(WriteImage(Path("g.jpg"), grey).find("cannot write '.jpg'"), std::string::npos);
    EXPECT_NE(WriteImage(Path("no/such/dir/g.png"), grey).find("cannot create"), std::string::npos);
}

}  // namespace
}  // namespace ombrel::cli
