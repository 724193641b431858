// Pictures as the interop comparisons see them, pixels top row first, grey
// or red-green-blue: read from a DIB, from a PNM file, or decoded by libjpeg.
#pragma once

#include <cstdio>  // jpeglib.h needs FILE and size_t first

#include <jpeglib.h>

#include <algorithm>
#include <csetjmp>
#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <fstream>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "support/peers.h"

namespace velmora::peers {

struct Picture {
    uint32_t width = 0, height = 0, channels = 0;
    std::vector<uint8_t> pixels;
};

// A DIB of 8 or 24 bits per pixel: 8-bit values as stored, 24-bit pixels
// turned from blue-green-red into red-green-blue.
inline Picture FromDib(const BITMAPINFOHEADER* header) {
    Picture picture;
    picture.width = static_cast<uint32_t>(header->biWidth);
    picture.height = static_cast<uint32_t>(header->biHeight);
    picture.channels = header->biBitCount / 8;
    const uint32_t colours = header->biBitCount > 8 ? 0 : header->biClrUsed ? header->biClrUsed : 1u << header->biBitCount;
    const uint8_t* rows = reinterpret_cast<const uint8_t*>(header) + header->biSize + 4 * colours;
    const size_t stride = (size_t{picture.width} * header->biBitCount + 31) / 32 * 4;
    for (uint32_t y = 0; y < picture.height; ++y) {
        const uint8_t* row = rows + stride * (picture.height - 1 - y);
        for (uint32_t x = 0; x < picture.width; ++x) {
            if (picture.channels == 3) {
                picture.pixels.insert(picture.pixels.end(), {row[3 * x + 2], row[3 * x + 1], row[3 * x]});
            } else {
                picture.pixels.push_back(row[x]);
            }
        }
    }
    return picture;
}

// The same for a DIB in a movable block, which stays.
inline Picture FromDib(HGLOBAL dib) {
    Picture picture = FromDib(static_cast<const BITMAPINFOHEADER*>(velmora::platform::MemLock(dib)));
    velmora::platform::MemUnlock(dib);
    return picture;
}

// A binary PPM or PGM of 8-bit samples.
inline bool ReadPnm(const std::string& path, Picture* picture) {
    const std::vector<uint8_t> bytes = ReadFile(path);
    if (bytes.size() < 3 || bytes[0] != 'P' || (bytes[1] != '5' && bytes[1] != '6')) return false;
    picture->channels = bytes[1] == '6' ? 3 : 1;
    size_t at = 2;
    uint32_t values[3];
    for (uint32_t& value : values) {
        while (at < bytes.size() && std::isspace(bytes[at])) ++at;
        value = 0;
        while (at < bytes.size() && std::isdigit(bytes[at])) value = value * 10 + (bytes[at++] - '0');
    }
    ++at;
    picture->width = values[0];
    picture->height = values[1];
    const size_t size = size_t{picture->width} * picture->height * picture->channels;
    if (values[2] != 255 || bytes.size() < at + size) return false;
    picture->pixels.assign(bytes.begin() + static_cast<std::ptrdiff_t>(at),
                           bytes.begin() + static_cast<std::ptrdiff_t>(at + size));
    return true;
}

inline void WritePnm(const Picture& picture, const std::string& path) {
    std::ofstream out(path, std::ios::binary);
    out << (picture.channels == 1 ? "P5\n" : "P6\n") << picture.width << " " << picture.height << "\n255\n";
    out.write(reinterpret_cast<const char*>(picture.pixels.data()), static_cast<std::streamsize>(picture.pixels.size()));
}

// The largest difference of one channel, or -1 when the sizes differ.
inline int LargestDifference(const Picture& a, const Picture& b) {
    if (a.width != b.width || a.height != b.height || a.channels != b.channels) return -1;
    int largest = 0;
    for (size_t i = 0; i < a.pixels.size(); ++i) largest = std::max(largest, std::abs(a.pixels[i] - b.pixels[i]));
    return largest;
}

// libjpeg's decoding of a stream with its integer inverse DCT; `adjust` may
// change the decompression settings after the header was read, and
// `tables`, when given, is a tables-only stream read first, as a TIFF reader
// does. False, with libjpeg's message in `error`, when libjpeg fails or warns.
inline bool LibjpegDecode(const std::vector<uint8_t>& stream, Picture* out, std::string* error = nullptr,
                          const std::function<void(jpeg_decompress_struct&)>& adjust = {},
                          const std::vector<uint8_t>* tables = nullptr) {
    struct Failure {
        jpeg_error_mgr manager;
        jmp_buf jump;
        char message[JMSG_LENGTH_MAX] = "";
    } failure;
    jpeg_decompress_struct info;
    info.err = jpeg_std_error(&failure.manager);
    failure.manager.error_exit = [](j_common_ptr common) {
        Failure* f = reinterpret_cast<Failure*>(common->err);
        (*common->err->format_message)(common, f->message);
        longjmp(f->jump, 1);
    };
    std::string ignored;
    std::string& message = error != nullptr ? *error : ignored;
    if (setjmp(failure.jump) != 0) {
        message = failure.message;
        jpeg_destroy_decompress(&info);
        return false;
    }
    jpeg_create_decompress(&info);
    if (tables != nullptr) {
        jpeg_mem_src(&info, tables->data(), static_cast<unsigned long>(tables->size()));
        if (jpeg_read_header(&info, FALSE) != JPEG_HEADER_TABLES_ONLY) {
            message = "not a tables-only stream";
            jpeg_destroy_decompress(&info);
            return false;
        }
    }
    jpeg_mem_src(&info, stream.data(), static_cast<unsigned long>(stream.size()));
    jpeg_read_header(&info, TRUE);
    info.dct_method = JDCT_ISLOW;
    if (adjust) adjust(info);
    jpeg_start_decompress(&info);
    out->width = info.output_width;
    out->height = info.output_height;
    out->channels = static_cast<uint32_t>(info.output_components);
    const size_t rowBytes = size_t{out->width} * out->channels;
    out->pixels.assign(rowBytes * out->height, 0);
    while (info.output_scanline < info.output_height) {
        JSAMPROW row = out->pixels.data() + rowBytes * info.output_scanline;
        jpeg_read_scanlines(&info, &row, 1);
    }
    jpeg_finish_decompress(&info);
    const bool warned = failure.manager.num_warnings != 0;
    if (warned) message = "libjpeg warned";
    jpeg_destroy_decompress(&info);
    return !warned;
}

}  // namespace velmora::peers
