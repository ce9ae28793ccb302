#include "common/snapshot.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <unistd.h>
#include <vector>

#include <jpeglib.h>

namespace sim {

namespace {

// 3x5 glyphs, one row per entry, bit 2 = left column.
struct Glyph {
    char ch;
    std::array<uint8_t, 5> rows;
};

constexpr Glyph kFont[] = {
    {'0', {7, 5, 5, 5, 7}}, {'1', {2, 6, 2, 2, 7}}, {'2', {7, 1, 7, 4, 7}}, {'3', {7, 1, 7, 1, 7}},
    {'4', {5, 5, 7, 1, 1}}, {'5', {7, 4, 7, 1, 7}}, {'6', {7, 4, 7, 5, 7}}, {'7', {7, 1, 1, 1, 1}},
    {'8', {7, 5, 7, 5, 7}}, {'9', {7, 5, 7, 1, 7}}, {'-', {0, 0, 7, 0, 0}}, {':', {0, 2, 0, 2, 0}},
    {'P', {7, 5, 7, 4, 4}}, {'T', {7, 2, 2, 2, 2}}, {'Z', {7, 1, 2, 4, 7}}, {'F', {7, 4, 6, 4, 4}},
    {' ', {0, 0, 0, 0, 0}},
};

constexpr std::array<std::array<uint8_t, 3>, 7> kBars{{
    {192, 192, 192},
    {192, 192, 0},
    {0, 192, 192},
    {0, 192, 0},
    {192, 0, 192},
    {192, 0, 0},
    {0, 0, 192},
}};

class Canvas {
public:
    Canvas(int w, int h) : w_(w), h_(h), px_(static_cast<size_t>(w) * h * 3) {}

    void fill(int x0, int y0, int x1, int y1, std::array<uint8_t, 3> c) {
        for (int y = std::max(0, y0); y < std::min(h_, y1); ++y)
            for (int x = std::max(0, x0); x < std::min(w_, x1); ++x) {
                uint8_t* p = &px_[(static_cast<size_t>(y) * w_ + x) * 3];
                p[0] = c[0];
                p[1] = c[1];
                p[2] = c[2];
            }
    }

    void text(int x, int y, int scale, std::string_view s) {
        for (char ch : s) {
            for (const Glyph& g : kFont) {
                if (g.ch != ch) continue;
                for (int r = 0; r < 5; ++r)
                    for (int c = 0; c < 3; ++c)
                        if (g.rows[r] & (4 >> c))
                            fill(x + c * scale, y + r * scale, x + (c + 1) * scale, y + (r + 1) * scale,
                                 {255, 255, 255});
            }
            x += 4 * scale;
        }
    }

    const uint8_t* row(int y) const { return &px_[static_cast<size_t>(y) * w_ * 3]; }
    int width() const { return w_; }
    int height() const { return h_; }

private:
    int w_, h_;
    std::vector<uint8_t> px_;
};

// Compresses into memory: libjpeg's own file output ends the process when a
// write fails (a full disk), so the file is written here, where a failure
// is only a failed snapshot.
bool encode(const Canvas& cv, FILE* out) {
    jpeg_compress_struct cinfo{};
    jpeg_error_mgr jerr{};
    cinfo.err = jpeg_std_error(&jerr);
    jpeg_create_compress(&cinfo);
    unsigned char* data = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&cinfo, &data, &size);
    cinfo.image_width = static_cast<JDIMENSION>(cv.width());
    cinfo.image_height = static_cast<JDIMENSION>(cv.height());
    cinfo.input_components = 3;
    cinfo.in_color_space = JCS_RGB;
    jpeg_set_defaults(&cinfo);
    jpeg_set_quality(&cinfo, 85, TRUE);
    jpeg_start_compress(&cinfo, TRUE);
    while (cinfo.next_scanline < cinfo.image_height) {
        JSAMPROW r = const_cast<JSAMPROW>(cv.row(static_cast<int>(cinfo.next_scanline)));
        jpeg_write_scanlines(&cinfo, &r, 1);
    }
    jpeg_finish_compress(&cinfo);
    const bool ok = data != nullptr && std::fwrite(data, 1, size, out) == size && std::fflush(out) == 0;
    jpeg_destroy_compress(&cinfo);
    std::free(data);
    return ok;
}

}  // namespace

bool write_snapshot(const std::string& path, int width, int height, const HeadPosition& pos) {
    if (width < 64 || width > 4096 || height < 64 || height > 4096) return false;
    Canvas cv(width, height);
    const int bar = (width + static_cast<int>(kBars.size()) - 1) / static_cast<int>(kBars.size());
    for (size_t i = 0; i < kBars.size(); ++i)
        cv.fill(static_cast<int>(i) * bar, 0, static_cast<int>(i + 1) * bar, height * 2 / 3, kBars[i]);
    cv.fill(0, height * 2 / 3, width, height, {16, 16, 16});

    char line1[64];
    char line2[64];
    std::snprintf(line1, sizeof line1, "P:%d T:%d", pos.pan, pos.tilt);
    std::snprintf(line2, sizeof line2, "Z:%d F:%d", pos.zoom, pos.focus);
    const int scale = std::max(1, height / 90);
    cv.text(scale * 4, height * 2 / 3 + scale * 4, scale, line1);
    cv.text(scale * 4, height * 2 / 3 + scale * 12, scale, line2);

    const std::string tmp = path + ".tmp." + std::to_string(::getpid());
    FILE* f = std::fopen(tmp.c_str(), "wb");
    if (!f) return false;
    const bool ok = encode(cv, f);
    if (std::fclose(f) != 0 || !ok) {
        std::remove(tmp.c_str());
        return false;
    }
    if (std::rename(tmp.c_str(), path.c_str()) != 0) {
        std::remove(tmp.c_str());
        return false;
    }
    return true;
}

}  // namespace sim
