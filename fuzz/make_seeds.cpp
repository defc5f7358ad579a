// SPDX-License-Identifier: MIT
// Writes a small starting corpus for the image reader's fuzz target: one file for each kind of PNG and
// netpbm image the reader converts, so the fuzzer starts inside every branch instead of guessing headers.
#include <png.h>

#include <cstdio>
#include <string>
#include <vector>

namespace {

bool WritePng(const std::string& path, int width, int height, int colourType, int bitDepth, bool interlaced,
              bool withPalette) {
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) return false;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        std::fclose(file);
        return false;
    }
    png_init_io(png, file);
    png_set_IHDR(png, info, width, height, bitDepth, colourType,
                 interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    png_color palette[4] = {{0, 0, 0}, {255, 0, 0}, {0, 255, 0}, {0, 0, 255}};
    png_byte alpha[2] = {0, 128};
    if (withPalette) {
        png_set_PLTE(png, info, palette, 4);
        png_set_tRNS(png, info, alpha, 2, nullptr);
    }
    png_write_info(png, info);
    const int channels = colourType == PNG_COLOR_TYPE_RGB          ? 3
                         : colourType == PNG_COLOR_TYPE_RGB_ALPHA  ? 4
                         : colourType == PNG_COLOR_TYPE_GRAY_ALPHA ? 2
                                                                   : 1;
    const size_t rowBytes = (static_cast<size_t>(width) * channels * bitDepth + 7) / 8;
    std::vector<png_byte> pixels(rowBytes * height);
    for (size_t i = 0; i < pixels.size(); ++i) pixels[i] = static_cast<png_byte>(i * 37 + 11);
    if (withPalette) {
        for (auto& p : pixels) p &= (bitDepth == 8 ? 3 : 0x55);
    }
    std::vector<png_bytep> rows(height);
    for (int y = 0; y < height; ++y) rows[y] = &pixels[rowBytes * y];
    png_write_image(png, rows.data());
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    return std::fclose(file) == 0;
}

bool WriteText(const std::string& path, const std::string& bytes) {
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) return false;
    const bool ok = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    return std::fclose(file) == 0 && ok;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s CORPUS_DIR\n", argv[0]);
        return 2;
    }
    const std::string dir = argv[1];
    bool ok = true;
    ok &= WritePng(dir + "/grey8.png", 7, 5, PNG_COLOR_TYPE_GRAY, 8, false, false);
    ok &= WritePng(dir + "/grey1.png", 9, 3, PNG_COLOR_TYPE_GRAY, 1, false, false);
    ok &= WritePng(dir + "/grey16.png", 4, 4, PNG_COLOR_TYPE_GRAY, 16, false, false);
    ok &= WritePng(dir + "/grey_alpha.png", 3, 3, PNG_COLOR_TYPE_GRAY_ALPHA, 8, false, false);
    ok &= WritePng(dir + "/rgb8.png", 6, 4, PNG_COLOR_TYPE_RGB, 8, false, false);
    ok &= WritePng(dir + "/rgba16.png", 3, 2, PNG_COLOR_TYPE_RGB_ALPHA, 16, false, false);
    ok &= WritePng(dir + "/rgb_interlaced.png", 11, 9, PNG_COLOR_TYPE_RGB, 8, true, false);
    ok &= WritePng(dir + "/palette.png", 5, 5, PNG_COLOR_TYPE_PALETTE, 8, false, true);
    ok &= WritePng(dir + "/palette2.png", 8, 3, PNG_COLOR_TYPE_PALETTE, 2, true, true);
    ok &= WriteText(dir + "/ascii.pbm", "P1\n# c\n4 2\n0101\n1 0 1 0\n");
    ok &= WriteText(dir + "/ascii.pgm", "P2\n3 2\n15\n0 7 15\n1 2 3\n");
    ok &= WriteText(dir + "/ascii.ppm", "P3\n2 1\n255\n255 0 0  0 0 255\n");
    ok &= WriteText(dir + "/binary.pbm", std::string("P4\n10 2\n\xA5\xC0\x0F\x40", 13));
    ok &= WriteText(dir + "/binary.pgm", std::string("P5 4 2 255\n\x00\x10\x80\xFF\x01\x02\x03\x04", 19));
    ok &= WriteText(dir + "/binary16.pgm", std::string("P5\n2 1\n65535\n\xFF\xFF\x12\x34", 17));
    ok &= WriteText(dir + "/binary.ppm", std::string("P6\n1 2\n255\n\xFF\x00\x00\x00\xFF\x00", 17));
    return ok ? 0 : 1;
}
