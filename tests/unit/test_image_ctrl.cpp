// Camera command set over a recording transport: each row runs operations
// against scripted replies and names the result and every exchange, written
// "n 81 01 .." (sent without waiting), "w5 81 09 .." (waited, capacity 5),
// "w- .." (waited, no capacity) or "flush".

#include <cstdio>
#include <sstream>

#include "camera/image_ctrl.h"
#include "fake_camera.h"

namespace {

using fake::Bytes;
using Reply = std::optional<Bytes>;  // nullopt: the channel fails
const Reply kFail = std::nullopt;

struct Row {
    const char* name;
    std::vector<Reply> replies;
    std::function<int()> run;
    int result;
    std::vector<std::string> log;
};

std::string exchange(const fake::Exchange& e) {
    if (e.how == "flush") return "flush";
    const std::string how = e.how == "nowait" ? "n"
                            : e.capacity < 0  ? "w-"
                                              : "w" + std::to_string(e.capacity);
    return how + " " + fake::hex_of(e.packet);
}

bool same(const char* text, const char* expected) {
    return text != nullptr && std::strcmp(text, expected) == 0;
}

int pt(int16_t want_pan, int16_t want_tilt) {
    int16_t pan = 0, tilt = 0;
    return image_pt_pos_get(&pan, &tilt) == 0 && pan == want_pan && tilt == want_tilt ? 1 : 0;
}
int feature_pos(int want_a, int want_b) {
    int a = 0, b = 0;
    const int r = image_feature_pos_get(&a, &b);
    return r == 0 && a == want_a && b == want_b ? 1 : r;
}

// clang-format off
const std::vector<Row> kRows = {
    // named choices
    {"choice words, any case", {}, [] {
         return image_focus_distance_set("1.5m") + image_focus_distance_set("10m") +
                image_exposure_mode_set("AUTO") + image_wb_mode_set("One Push");
     }, 0, {"n 81 01 04 28 00 00 00 00 ff", "n 81 01 04 28 04 00 00 00 ff", "n 81 01 04 39 00 ff",
            "n 81 01 04 35 03 ff"}},
    {"unknown choice words", {}, [] {
         return image_focus_distance_set("5m") + image_focus_mode_set("automatic") + image_focus_mode_set(nullptr);
     }, -3, {}},
    // value encodings
    {"3D noise reduction levels", {}, [] { return image_nr3d_set(5) + image_nr3d_set(0); }, 0,
     {"n 81 01 04 53 00 ff", "n 81 01 04 53 01 ff"}},
    {"3D noise reduction out of range", {}, [] { return image_nr3d_set(6) + image_nr3d_set(-1); }, -2, {}},
    {"flags: any non-zero is on", {}, [] { return image_mirror_set(7) + image_flip_set(0); }, 0,
     {"n 81 01 04 61 02 ff", "n 81 01 04 66 03 ff"}},
    {"one nibble, seven bits", {}, [] { return image_gamma_set(0x1F) + image_preset_move_speed_set(0xFF); }, 0,
     {"n 81 01 04 5b 0f ff", "n 81 01 7e 01 0b 00 7f ff"}},
    {"low byte as two nibbles, 16 bits as four", {}, [] {
         return image_brightness_set(0x1A7) + image_genlock_phase_set(-2) + image_frame_rate_set(0x3C);
     }, 0, {"n 81 01 04 a4 00 00 0a 07 ff", "n 81 01 04 3b 0f 0f 0f 0e ff", "n 81 01 04 c7 03 0c ff"}},
    {"waited setters", {Bytes{0x90, 0x50, 0xFF}, kFail, Bytes{0x90, 0x50, 0xFF}}, [] {
         return image_feature_size_set(0x90) * 100 + image_feature_size_set(0x70) * 10 +
                image_feature_set_set(1) + image_feature_pos_set(0x1234, 0xABCD);
     }, -101, {"w- 81 01 04 24 74 00 70 ff", "w- 81 01 06 33 01 ff",
               "w- 81 01 06 32 00 00 01 02 03 04 0a 0b 0c 0d ff"}},
    // mode gates
    {"iris refused in shutter priority", {Bytes{3, 0x50, 0xFF}}, [] { return image_iris_set(0x1C); }, -1,
     {"w5 81 09 04 39 ff"}},
    {"iris in manual", {Bytes{1, 0x50, 0xFF}}, [] { return image_iris_set(0x1C); }, 0,
     {"w5 81 09 04 39 ff", "n 81 01 04 4b 00 00 01 0c ff"}},
    {"gate inquiry fails", {kFail}, [] { return image_gain_set(4); }, -1, {"w5 81 09 04 39 ff"}},
    {"shutter priority lets shutter through, iris priority not", {Bytes{3}, Bytes{2}}, [] {
         return image_shutter_set(5) * 10 + image_shutter_set(5);
     }, -1, {"w5 81 09 04 39 ff", "n 81 01 04 4a 00 00 00 05 ff", "w5 81 09 04 39 ff"}},
    {"gain limit in auto", {Bytes{0}}, [] { return image_gain_limit_set(0x12); }, 0,
     {"w5 81 09 04 39 ff", "n 81 01 04 2c 02 ff"}},
    {"temperature mode: no red gain, a colour temperature", {Bytes{6}, Bytes{6}}, [] {
         return image_r_gain_set(1) * 10 + image_color_temperature_set(0x1234);
     }, -10, {"w5 81 09 04 35 ff", "w5 81 09 04 35 ff", "n 81 01 04 2a 01 02 03 04 ff"}},
    // reply forms
    {"first byte of a six-byte inquiry", {Bytes{0x02, 0x50, 0xFF, 0, 0, 0}}, [] { return image_focus_area_get(); },
     2, {"w6 81 09 04 38 02 ff"}},
    {"little-endian word", {Bytes{0x34, 0x12}}, [] { return image_color_temperature_get(); }, 0x1234,
     {"w5 81 09 04 2a ff"}},
    {"first byte, capacity 16", {Bytes{0x07}}, [] { return image_abs_focus_get(); }, 7, {"w16 81 09 04 68 ff"}},
    {"failed or empty replies", {kFail, Bytes{}}, [] { return image_wb_mode_get() + image_zoom_pos_get(); }, -2,
     {"w5 81 09 04 35 ff", "w5 81 09 04 47 ff"}},
    {"completion flag", {Bytes{0x90, 0x50, 0x02, 0xFF}, Bytes{0x90, 0x50, 0x03, 0xFF}}, [] {
         return image_dc_iris_get() * 10 + image_phantom_power_get();
     }, 10, {"w5 81 09 04 a9 ff", "w5 81 09 04 d9 ff"}},
    {"not a completion", {Bytes{0x90, 0x60, 0x02, 0xFF}, Bytes{0x90, 0x51, 0x45, 0xFF}}, [] {
         return image_dc_iris_get() + image_tally_bright_get();
     }, -2, {"w5 81 09 04 a9 ff", "w16 81 09 7e 01 0a 01 ff"}},
    {"completion value", {Bytes{0x90, 0x50, 0x45, 0xFF}}, [] { return image_nd_filter_get(); }, 0x45,
     {"w16 81 09 04 da ff"}},
    {"signed four nibbles, exactly seven bytes", {Bytes{0x90, 0x50, 0x0F, 0x0F, 0x0F, 0x0E, 0xFF},
                                                   Bytes{0x90, 0x50, 0, 0, 1, 0, 0xFF, 0}}, [] {
         return image_genlock_phase_get() * 10 + image_genlock_phase_get();
     }, -21, {"w16 81 09 04 3b ff", "w16 81 09 04 3b ff"}},
    {"unsigned four nibbles", {Bytes{0x90, 0x50, 0x0F, 0x0F, 0x0F, 0x0E, 0x00, 0xFF}}, [] {
         return image_genlock_vertical_get();
     }, 0xFFFE, {"w16 81 09 04 3e ff"}},
    {"feature position: two words in eleven bytes",
     {Bytes{0x90, 0x50, 1, 2, 3, 4, 0x0A, 0x0B, 0x0C, 0x0D, 0xFF}, Bytes{0x90, 0x50, 1, 2, 3, 4, 0x0A, 0x0B, 0x0C, 0xFF}},
     [] { return feature_pos(0x1234, 0xABCD) * 10 + feature_pos(0, 0); }, 9,
     {"w16 81 09 06 32 ff", "w16 81 09 06 32 ff"}},
    {"pan and tilt: two signed words", {Bytes{0x00, 0x80, 0, 0, 0xFE, 0xFF, 0, 0}, Bytes{0x10, 0, 0, 0, 0x20, 0, 0, 0}, kFail},
     [] { return pt(-32768, -2) * 100 + image_tilt_pos_get() + image_pan_pos_get() * 1000; }, -1000 + 100 + 0x20,
     {"w8 81 09 06 12 ff", "w8 81 09 06 12 ff", "w8 81 09 06 12 ff"}},
    // IR-cut filter
    {"IR-cut automatic", {Bytes{0x01, 0x50, 0xFF}}, [] { return image_ircut_get(); }, 2, {"w5 81 09 04 51 ff"}},
    {"IR-cut automatic in a reply of one byte", {Bytes{0x01}}, [] { return image_ircut_get(); }, 2, {"w5 81 09 04 51 ff"}},
    {"IR-cut filter asked with the first reply's count", {Bytes{0x00, 0x50, 0xFF}, Bytes{0x90, 0x50, 0x02, 0xFF},
                                                          Bytes{0x00, 0x50, 0xFF}, Bytes{0x90, 0x50, 0x03, 0xFF}},
     [] { return image_ircut_get() * 10 + image_ircut_get(); }, 10,
     {"w5 81 09 04 51 ff", "w3 81 09 04 01 ff", "w5 81 09 04 51 ff", "w3 81 09 04 01 ff"}},
    {"IR-cut filter reply cut to one byte, or failing", {Bytes{0x00}, Bytes{0x90, 0x50, 0x02, 0xFF},
                                                         Bytes{0x00, 0x50, 0xFF}, kFail},
     [] { return image_ircut_get() + image_ircut_get(); }, -2,
     {"w5 81 09 04 51 ff", "w1 81 09 04 01 ff", "w5 81 09 04 51 ff", "w3 81 09 04 01 ff"}},
    {"IR-cut: an empty first reply asks the filter with a length of 0", {Bytes{}, Bytes{0x90, 0x50, 0x02, 0xFF}},
     [] { return image_ircut_get(); }, -1, {"w5 81 09 04 51 ff", "w0 81 09 04 01 ff"}},
    {"a bare version reply is an empty text", {Bytes{0x90, 0x50, 0xFF}}, [] {
         char v[8] = "x";
         return image_camera_version(v, sizeof v) * 10 + (v[0] == '\0');
     }, 1, {"w64 81 09 00 03 ff"}},
    {"IR-cut settings", {}, [] { return image_ircut_set(2) + image_ircut_set(1) + image_ircut_set(0); }, 0,
     {"n 81 01 04 51 02 ff", "n 81 01 04 51 03 ff", "n 81 01 04 01 02 ff", "n 81 01 04 51 03 ff",
      "n 81 01 04 01 03 ff"}},
    // output format
    {"format set on the first SDI", {Bytes{0x90, 0x50, 0xFF}}, [] { return image_resolution_set(1, "3840x2160p@60hz"); },
     0, {"w8 81 01 04 24 73 01 0f ff"}},
    {"formats refused", {}, [] {
         return image_resolution_set(0, "3840X2160P@24Hz") + image_resolution_set(3, "1920X1080P@60Hz") +
                image_resolution_set(0, "1920X1080P@61Hz") + image_resolution_set(0, nullptr);
     }, -4, {}},
    {"format read on the second SDI", {Bytes{0x1B, 0x50, 0xFF}}, [] {
         return same(image_resolution_get(2), "3840X2160P@24Hz");
     }, 1, {"w6 81 09 04 24 74 ff"}},
    {"format codes without a name", {Bytes{0x2F}, Bytes{0x03}, Bytes{48}, Bytes{0x00}}, [] {
         return same(image_resolution_get(0), "1920X1080P@50Hz") * 10 + (image_resolution_get(0) == nullptr) +
                (image_resolution_get(0) == nullptr) + (image_resolution_get(0) == nullptr) +
                (image_resolution_get(-1) == nullptr);
     }, 14, {"w6 81 09 04 24 72 ff", "w6 81 09 04 24 72 ff", "w6 81 09 04 24 72 ff", "w6 81 09 04 24 72 ff"}},
    // drives
    {"drives out of range", {}, [] { return image_zoom_ctrl(1, 8) + image_zoom_ctrl(3, 1) + image_focus_ctrl(1, 8); },
     -3, {}},
    {"zoom and focus drives", {}, [] {
         return image_zoom_ctrl(2, 7) + image_focus_ctrl(0, 3) + image_focus_ctrl(1, 3) + image_zoom_drive(1, 0x1A) +
                image_focus_drive(9, 3);
     }, 0, {"n 81 01 04 07 37 ff", "n 81 01 04 38 03 ff", "n 81 01 04 08 00 ff", "n 81 01 04 38 03 ff",
            "n 81 01 04 08 23 ff", "n 81 01 04 07 2a ff", "n 81 01 04 38 03 ff", "n 81 01 04 08 00 ff"}},
    {"pan-tilt actions", {}, [] {
         return image_ptz_ctrl(0, 5) + image_ptz_ctrl(3, 25) + image_ptz_ctrl(11, 1) + image_ptz_ctrl(9, 24) +
                image_ptz_ctrl(5, 0) + image_ptz_ctrl(6, 0) + image_ptz_drive(2, 0x10, 1, 0x08);
     }, -2, {"n 81 01 06 01 05 05 03 03 ff", "n 81 01 06 01 18 18 02 01 ff", "n 81 01 06 04 ff",
             "n 81 01 06 05 ff", "flush", "n 81 01 06 01 10 08 02 01 ff"}},
    {"absolute pan keeps the tilt where it is", {Bytes{0x11, 0, 0, 0, 0xCD, 0xAB, 0, 0}}, [] {
         return image_abs_position(-1, -1, 0x1234, -1);
     }, 0, {"w8 81 09 06 12 ff", "flush", "n 81 01 06 02 18 18 01 02 03 04 0a 0b 0c 0d ff"}},
    {"absolute tilt with the position unknown", {kFail}, [] { return image_abs_position(-1, -1, -1, -2); }, 0,
     {"w8 81 09 06 12 ff", "flush", "n 81 01 06 02 18 18 00 00 00 00 0f 0f 0f 0e ff"}},
    {"absolute zoom and focus, then focus with pan and tilt", {}, [] {
         return image_abs_position(0x4000, 0x0123, -1, -1) + image_abs_position(-1, 0x0123, 1, 2);
     }, 0, {"flush", "n 81 01 04 47 04 00 00 00 00 01 02 03 ff", "flush", "n 81 01 04 48 00 01 02 03 ff", "flush",
            "n 81 01 06 02 18 18 00 00 00 01 00 00 00 02 ff"}},
    // presets
    {"preset inquiry", {Bytes{0x01, 0x50, 0xFF}}, [] { return image_preset_query(0xE6) * 10 + image_preset_query(256); },
     9, {"w7 81 09 04 3f 0e 06 ff"}},
    {"presets 0 and 255 are presets", {Bytes{0x01, 0x50, 0xFF}}, [] {
         return image_preset_query(0) * 10 + image_preset_ctrl(2, 0) + image_preset_ctrl(0, 255) + image_preset_ctrl(1, -1);
     }, 9, {"w7 81 09 04 3f 00 00 ff", "n 81 01 04 3f 02 00 00 ff", "n 81 01 04 3f 00 0f 0f ff"}},
    {"preset actions and resets", {}, [] {
         return image_preset_ctrl(1, 0x12) + image_preset_ctrl(3, 1) + image_preset_ctrl(0, 256) +
                image_params_reset(0) + image_params_save(0) + image_params_save(1);
     }, -2, {"n 81 01 04 3f 01 01 02 ff", "n 81 01 04 3f 10 01 ff"}},
    {"snapshot names and sizes refused before anything is sent", {}, [] {
         int r = 0;
         for (const char* name : {"a/b", "x;reboot", "$(id)", "..", "a b", "`x`"}) r += image_snapshot(1, name, 1920, 1080, 0);
         return r + image_snapshot(1, nullptr, 0, 1080, 0) + image_snapshot(300, "ok.jpg", 1920, 1080, 0);
     }, -8, {}},
};
// clang-format on

class ImageCtrl : public fake::FakeCameraTest {};

TEST_F(ImageCtrl, Rows) {
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.name);
        camera.log.clear();
        camera.queue.assign(row.replies.begin(), row.replies.end());
        EXPECT_EQ(row.run(), row.result);
        std::vector<std::string> log;
        for (const fake::Exchange& e : camera.log) log.push_back(exchange(e));
        EXPECT_EQ(log, row.log);
    }
}

}  // namespace

// The output formats as the camera numbers them ("*": readable, not
// settable): each is set as 81 01 04 24 72 0p 0q FF and read back by its code.
TEST_F(ImageCtrl, OutputFormatsByTheirCodes) {
    const std::string formats =
        "01 1920X1080I@60Hz 02 1920X1080I@59.94Hz 04 1920X1080I@50Hz 06 1920X1080P@30Hz 07 "
        "1920X1080P@29.97Hz "
        "08 1920X1080P@25Hz 09 1280X720P@60Hz 0A 1280X720P@59.94Hz 0C 1280X720P@50Hz 0E 1280X720P@30Hz "
        "0F 1280X720P@29.97Hz 11 1280X720P@25Hz 13 1920X1080P@59.94Hz 1B* 3840X2160P@24Hz 1C* "
        "3840X2160P@23.98Hz "
        "1D 3840X2160P@30Hz 1E 3840X2160P@25Hz 1F 3840X2160P@60Hz 20 3840X2160P@50Hz 21 3840X2160P@59.94Hz "
        "22 3840X2160P@29.97Hz 23 1920X1080P@120Hz 24 1280X720P@120Hz 25 1920X1080P@100Hz 26 1280X720P@100Hz "
        "2A 1920X1080P@24Hz 2B 1920X1080P@23.98Hz 2E 1920X1080P@60Hz 2F 1920X1080P@50Hz";
    std::istringstream in(formats);
    for (std::string code, name; in >> code >> name;) {
        SCOPED_TRACE(name);
        const int value = std::stoi(code.substr(0, 2), nullptr, 16);
        camera.log.clear();
        camera.queue = {Bytes{0x90, 0x51, 0xFF}, Bytes{static_cast<uint8_t>(value), 0x50, 0xFF}};
        if (code.size() == 3) {
            EXPECT_EQ(image_resolution_set(0, name.c_str()), -1);
            camera.queue.pop_front();
        } else {
            EXPECT_EQ(image_resolution_set(0, name.c_str()), 0);
            char packet[32];
            std::snprintf(packet, sizeof packet, "81 01 04 24 72 %02x %02x ff", value >> 4, value & 15);
            EXPECT_EQ(camera.sent(), std::vector<std::string>{packet});
        }
        const char* read = image_resolution_get(0);
        EXPECT_STREQ(read != nullptr ? read : "(none)", name.c_str());
    }
}
