// SPDX-License-Identifier: MIT
// JPEG through libjpeg-turbo. Colour images are decoded straight to their luma (Y) channel, which is
// the BT.601 grey the other readers compute. libjpeg reports errors through a callback that must not return:
// it longjmps back, so the function that calls setjmp holds only plain locals and everything with a
// destructor lives in a JpegSession owned by the caller.
#include <cstdio>
// jpeglib.h needs FILE and size_t declared first.
#include <jpeglib.h>
// The message codes, to tell a stream that ends early from other warnings.
#include <jerror.h>

#include <algorithm>
#include <csetjmp>
#include <cstring>
#include <new>

#include <ombrel/framework/hal.h>

#include "image_io.h"

namespace ombrel::cli {
namespace {

// Progressive files may hold any number of scans, each a full pass over the coefficients; a hostile
// file with thousands of tiny scans would take minutes. No real camera or encoder writes this many.
constexpr int kMaxScans = 1000;

struct JpegError {
    jpeg_error_mgr manager;
    std::jmp_buf jump;
    char message[JMSG_LENGTH_MAX] = {};
    bool truncated = false;
};

struct JpegSession {
    jpeg_decompress_struct info{};
    JpegError error;
    jpeg_progress_mgr progress{};
    bool created = false;
    DecodedImage result;
    ~JpegSession() {
        if (created) jpeg_destroy_decompress(&info);
    }
};

[[noreturn]] void OnJpegError(j_common_ptr info) {
    auto* error = reinterpret_cast<JpegError*>(info->err);
    (*info->err->format_message)(info, error->message);
    std::longjmp(error->jump, 1);
}

// Warnings about a corrupt but readable stream are not shown; a stream that ends early is decoded to the
// end (libjpeg pads it) and then reported as truncated.
void OnJpegMessage(j_common_ptr info, int level) {
    if (level < 0 && info->err->msg_code == JWRN_JPEG_EOF)
        reinterpret_cast<JpegError*>(info->err)->truncated = true;
}

void OnProgress(j_common_ptr info) {
    if (info->is_decompressor) {
        auto* d = reinterpret_cast<j_decompress_ptr>(info);
        if (d->input_scan_number > kMaxScans) {
            auto* error = reinterpret_cast<JpegError*>(info->err);
            std::snprintf(error->message, sizeof error->message, "more than %d scans", kMaxScans);
            std::longjmp(error->jump, 1);
        }
    }
}

// Kept out of DecodeInSession so that no string is alive there when libjpeg jumps out.
bool AcceptSize(JpegSession* s, int64_t width, int64_t height, const DecodeLimits& limits) {
    s->result.error = detail::CheckImageSize(width, height, 0, limits);
    return s->result.error.empty();
}

bool AllocateImage(JpegSession* s, int width, int height) {
    s->result.image = detail::AllocateGrey(width, height, &s->result.error);
    return s->result.image != nullptr;
}

bool DecodeInSession(JpegSession* s, const uint8_t* data, size_t size, const DecodeLimits& limits) {
    if (setjmp(s->error.jump)) return false;
    jpeg_create_decompress(&s->info);
    s->created = true;
    s->progress.progress_monitor = OnProgress;
    s->info.progress = &s->progress;
    // Progressive images keep every coefficient in memory; libjpeg fails cleanly beyond this budget.
    s->info.mem->max_memory_to_use = static_cast<long>(std::min<uint64_t>(
        limits.maxBytes != 0 ? limits.maxBytes : (memAvail() != 0 ? memAvail() : uint64_t{1} << 31),
        uint64_t{1} << 40));
    jpeg_mem_src(&s->info, data, static_cast<unsigned long>(size));
    jpeg_read_header(&s->info, TRUE);
    s->result.sourceBits = s->info.data_precision;
    s->result.sourceColour = s->info.num_components > 1;
    if (s->info.jpeg_color_space == JCS_CMYK || s->info.jpeg_color_space == JCS_YCCK) {
        std::snprintf(s->error.message, sizeof s->error.message,
                      "CMYK JPEG images are not supported: convert to RGB or grey");
        s->result.error = "unsupported";
        return false;
    }
    if (!AcceptSize(s, s->info.image_width, s->info.image_height, limits)) return false;
    s->info.out_color_space = JCS_GRAYSCALE;
    jpeg_start_decompress(&s->info);
    if (!AllocateImage(s, static_cast<int>(s->info.output_width), static_cast<int>(s->info.output_height)))
        return false;
    while (s->info.output_scanline < s->info.output_height) {
        JSAMPROW row = s->result.image->Row(static_cast<int>(s->info.output_scanline));
        if (jpeg_read_scanlines(&s->info, &row, 1) != 1) {
            std::snprintf(s->error.message, sizeof s->error.message, "the image data ends early");
            return false;
        }
    }
    if (s->error.truncated) {
        std::snprintf(s->error.message, sizeof s->error.message, "the image data ends early");
        return false;
    }
    jpeg_finish_decompress(&s->info);
    return true;
}

}  // namespace

namespace detail {

DecodedImage DecodeJpeg(const uint8_t* data, size_t size, const DecodeLimits& limits) {
    JpegSession session;
    session.result.format = "JPEG";
    session.info.err = jpeg_std_error(&session.error.manager);
    session.error.manager.error_exit = OnJpegError;
    session.error.manager.emit_message = OnJpegMessage;
    bool ok = false;
    try {
        ok = DecodeInSession(&session, data, size, limits);
    } catch (const std::bad_alloc&) {
        session.result.error = "not enough memory to decode the image";
    }
    if (ok) return std::move(session.result);
    session.result.image.reset();
    if (session.result.error.empty() || session.result.error == "unsupported") {
        const bool unsupported = session.result.error == "unsupported";
        session.result.error = unsupported ? std::string(session.error.message)
                               : session.error.truncated
                                   ? std::string("truncated JPEG: ") + session.error.message
                                   : std::string("corrupt JPEG: ") + session.error.message;
    }
    return std::move(session.result);
}

}  // namespace detail
}  // namespace ombrel::cli
