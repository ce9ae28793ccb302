// The camera's VISCA operations as data: one line per operation with its
// name, packet template (value positions zero), how the value is written into
// it, how the reply is read and which mode the camera must be in first. The
// lines are compiled as the build runs into `kRows`, plain read-only records
// without a pointer (names stay behind, lists become small indices); the code
// in image_ctrl.cpp runs these records and nothing else builds packets.
#pragma once

#include <array>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string_view>

#include "support/compiled.h"
#include "support/words.h"

namespace visca {

inline constexpr int kMaxPacket = 16;  // longest template is 15 bytes
inline constexpr int kBufSize = 64;    // the camera channel's packet limit

struct Packet {
    std::array<uint8_t, kMaxPacket> b{};
    uint8_t len = 0;
};

constexpr Packet pkt(std::initializer_list<uint8_t> bytes) {
    Packet p;
    for (uint8_t v : bytes) p.b[p.len++] = v;
    return p;
}

enum class Kind : uint8_t {
    Get,      // inquiry, reply awaited and decoded
    Set,      // command sent without waiting
    SetWait,  // command whose reply is awaited (and ignored)
};

// How a setter's argument lands in the packet at the row's position.
enum class Enc : uint8_t {
    None,    // fixed packet
    Byte,    // the argument whole, one byte
    Nibble,  // argument & 0x0F
    Mask7F,  // argument & 0x7F
    Flag,    // non-zero sends 02, zero 03
    Nib2,    // low 8 bits as 0p 0q
    Nib4,    // low 16 bits as 0p 0q 0r 0s
    Nib8,    // all 32 bits as eight nibbles, the highest first
    Bytes4,  // the four bytes of the argument, the lowest first (each as given)
    Choice,  // a word looked up in the row's word list, its code as one byte
    Index,   // small index looked up in the row's code list, the code as one byte
};

// How a getter's reply is read.
enum class Form : uint8_t {
    Raw,       // read by the operation itself
    B0,        // first reply byte
    W0,        // bytes 0-1, little-endian 16-bit
    P2,        // completion 90 50 vv: value byte
    P2Flag,    // as P2, value 02 gives 1, anything else 0
    P4,        // completion 90 50 0p 0q 0r 0s: 16-bit value
    P4Signed,  // as P4, read as signed 16-bit
};

// A named choice: the word compared without regard to case, and its code.
using Word = WordCode;

// Mode the camera must report before a setter may send. `inquiry` names the
// getter row asked first; bit n of `modes` set means mode n lets it through.
struct Gate {
    std::string_view inquiry;
    uint16_t modes = 0;
};

constexpr uint16_t modes_of(std::initializer_list<int> list) {
    uint16_t m = 0;
    for (int v : list) m = static_cast<uint16_t>(m | (1u << v));
    return m;
}
constexpr Gate exposure_in(std::initializer_list<int> modes) {
    return {"image_exposure_mode_get", modes_of(modes)};
}
constexpr Gate wb_in(std::initializer_list<int> modes) { return {"image_wb_mode_get", modes_of(modes)}; }

// A line of the table as it is written.
struct Line {
    std::string_view name;
    Kind kind = Kind::Get;
    Packet packet;
    Enc enc = Enc::None;
    uint8_t pos = 0;  // first value byte of a setter
    Form form = Form::Raw;
    uint8_t reply = 0;  // reply capacity; 0: the packet's own length (getters), none (SetWait)
    uint8_t exact = 0;  // reply count a getter insists on; 0: any
    Gate gate{};
    std::span<const Word> words{};
    std::span<const uint8_t> codes{};
};

// ---- line builders, so a table line reads like the operation it describes ----
constexpr Line get(std::string_view n, Packet p, Form f, uint8_t reply = 0, uint8_t exact = 0) {
    return Line{.name = n, .kind = Kind::Get, .packet = p, .form = f, .reply = reply, .exact = exact};
}
constexpr Line set(std::string_view n, Packet p, Enc e = Enc::None, uint8_t pos = 0, Gate g = {}) {
    return Line{.name = n, .kind = Kind::Set, .packet = p, .enc = e, .pos = pos, .gate = g};
}
constexpr Line set_wait(std::string_view n, Packet p, Enc e, uint8_t pos, uint8_t reply = 0) {
    Line r = set(n, p, e, pos);
    r.kind = Kind::SetWait;
    r.reply = reply;
    return r;
}
constexpr Line set_word(std::string_view n, Packet p, uint8_t pos, std::span<const Word> words) {
    Line r = set(n, p, Enc::Choice, pos);
    r.words = words;
    return r;
}
constexpr Line set_index(std::string_view n, Packet p, uint8_t pos, std::span<const uint8_t> codes) {
    Line r = set(n, p, Enc::Index, pos);
    r.codes = codes;
    return r;
}

// ---- named choices ---------------------------------------------------------------
inline constexpr Word kFocusModes[] = {{"auto", 0x02}, {"manual", 0x03}};
inline constexpr Word kFocusDistances[] = {{"1.5m", 0}, {"2m", 1}, {"3m", 2}, {"6m", 3}, {"10m", 4}};
inline constexpr Word kFocusSensitivities[] = {{"high", 1}, {"middle", 2}, {"low", 3}};
inline constexpr Word kExposureModes[] = {{"auto", 0x00},
                                          {"manual", 0x03},
                                          {"shutter priority", 0x0A},
                                          {"iris priority", 0x0B},
                                          {"brightness priority", 0x0D}};
inline constexpr Word kWbModes[] = {{"auto", 0x00},        {"indoor", 0x01},        {"outdoor", 0x02},
                                    {"one push", 0x03},    {"auto tracking", 0x04}, {"manual", 0x05},
                                    {"temperature", 0x06}, {"sodium", 0x08},        {"fluorescent", 0x09}};
// Auto-tracking: the person to switch to, as the camera numbers the sides.
inline constexpr Word kAiSides[] = {{"left", 0x03}, {"right", 0x02}};
// 3D noise reduction: level 0..4 are codes 1..5, level 5 switches it off (0).
inline constexpr uint8_t kNr3dCodes[] = {0x01, 0x02, 0x03, 0x04, 0x05, 0x00};

// ---- the operations ----------------------------------------------------------------
using enum Enc;
using enum Form;

inline constexpr Line kLines[] = {
    // focus
    get("image_focus_mode_get", pkt({0x81, 0x09, 0x04, 0x38, 0xFF}), B0),
    set_word("image_focus_mode_set", pkt({0x81, 0x01, 0x04, 0x38, 0x00, 0xFF}), 4, kFocusModes),
    get("image_focus_area_get", pkt({0x81, 0x09, 0x04, 0x38, 0x02, 0xFF}), B0),
    set("image_focus_area_set", pkt({0x81, 0x01, 0x04, 0x38, 0x02, 0x00, 0xFF}), Nibble, 5),
    get("image_focus_distance_get", pkt({0x81, 0x09, 0x04, 0x28, 0xFF}), B0),
    set_word("image_focus_distance_set", pkt({0x81, 0x01, 0x04, 0x28, 0x00, 0x00, 0x00, 0x00, 0xFF}), 4,
             kFocusDistances),
    get("image_focus_sensitivity_get", pkt({0x81, 0x09, 0x04, 0x58, 0xFF}), B0),
    set_word("image_focus_sensitivity_set", pkt({0x81, 0x01, 0x04, 0x58, 0x00, 0xFF}), 4,
             kFocusSensitivities),
    // exposure
    get("image_exposure_mode_get", pkt({0x81, 0x09, 0x04, 0x39, 0xFF}), B0),
    set_word("image_exposure_mode_set", pkt({0x81, 0x01, 0x04, 0x39, 0x00, 0xFF}), 4, kExposureModes),
    get("image_shutter_get", pkt({0x81, 0x09, 0x04, 0x4A, 0xFF}), B0),
    set("image_shutter_set", pkt({0x81, 0x01, 0x04, 0x4A, 0x00, 0x00, 0x00, 0x00, 0xFF}), Nib2, 6,
        exposure_in({1, 3})),
    get("image_anti_flicker_get", pkt({0x81, 0x09, 0x04, 0xAA, 0xFF}), B0),
    set("image_anti_flicker_set", pkt({0x81, 0x01, 0x04, 0xAA, 0x00, 0xFF}), Byte, 4),
    get("image_exposure_brightness_get", pkt({0x81, 0x09, 0x04, 0x4D, 0xFF}), B0),
    set("image_exposure_brightness_set", pkt({0x81, 0x01, 0x04, 0x4D, 0x00, 0x00, 0x00, 0x00, 0xFF}), Nib2, 6,
        exposure_in({4})),
    get("image_iris_get", pkt({0x81, 0x09, 0x04, 0x4B, 0xFF}), B0),
    set("image_iris_set", pkt({0x81, 0x01, 0x04, 0x4B, 0x00, 0x00, 0x00, 0x00, 0xFF}), Nib2, 6,
        exposure_in({1, 2})),
    get("image_gain_get", pkt({0x81, 0x09, 0x04, 0x4C, 0xFF}), B0),
    set("image_gain_set", pkt({0x81, 0x01, 0x04, 0x4C, 0x00, 0x00, 0x00, 0x00, 0xFF}), Nib2, 6,
        exposure_in({1})),
    get("image_gain_limit_get", pkt({0x81, 0x09, 0x04, 0x2C, 0xFF}), B0),
    set("image_gain_limit_set", pkt({0x81, 0x01, 0x04, 0x2C, 0x00, 0xFF}), Nibble, 4, exposure_in({0})),
    // white balance
    get("image_wb_mode_get", pkt({0x81, 0x09, 0x04, 0x35, 0xFF}), B0),
    set_word("image_wb_mode_set", pkt({0x81, 0x01, 0x04, 0x35, 0x00, 0xFF}), 4, kWbModes),
    get("image_r_gain_get", pkt({0x81, 0x09, 0x04, 0x43, 0xFF}), B0),
    set("image_r_gain_set", pkt({0x81, 0x01, 0x04, 0x43, 0x00, 0x00, 0x00, 0x00, 0xFF}), Nib2, 6, wb_in({5})),
    get("image_b_gain_get", pkt({0x81, 0x09, 0x04, 0x44, 0xFF}), B0),
    set("image_b_gain_set", pkt({0x81, 0x01, 0x04, 0x44, 0x00, 0x00, 0x00, 0x00, 0xFF}), Nib2, 6, wb_in({5})),
    get("image_color_temperature_get", pkt({0x81, 0x09, 0x04, 0x2A, 0xFF}), W0),
    set("image_color_temperature_set", pkt({0x81, 0x01, 0x04, 0x2A, 0x00, 0x00, 0x00, 0x00, 0xFF}), Nib4, 4,
        wb_in({6})),
    get("image_reg_c0_get", pkt({0x81, 0x09, 0x04, 0xC0, 0xFF}), B0),
    set("image_reg_c0_set", pkt({0x81, 0x01, 0x04, 0xC0, 0x00, 0xFF}), Byte, 4),
    // picture
    get("image_mirror_get", pkt({0x81, 0x09, 0x04, 0x61, 0xFF}), B0),
    set("image_mirror_set", pkt({0x81, 0x01, 0x04, 0x61, 0x00, 0xFF}), Flag, 4),
    get("image_flip_get", pkt({0x81, 0x09, 0x04, 0x66, 0xFF}), B0),
    set("image_flip_set", pkt({0x81, 0x01, 0x04, 0x66, 0x00, 0xFF}), Flag, 4),
    get("image_freeze_get", pkt({0x81, 0x09, 0x04, 0x62, 0xFF}), B0),
    set("image_freeze_set", pkt({0x81, 0x01, 0x04, 0x62, 0x00, 0xFF}), Flag, 4),
    get("image_backlight_get", pkt({0x81, 0x09, 0x04, 0x33, 0xFF}), B0),
    set("image_backlight_set", pkt({0x81, 0x01, 0x04, 0x33, 0x00, 0xFF}), Flag, 4),
    get("image_gamma_get", pkt({0x81, 0x09, 0x04, 0x5B, 0xFF}), B0),
    set("image_gamma_set", pkt({0x81, 0x01, 0x04, 0x5B, 0x00, 0xFF}), Nibble, 4),
    get("image_digital_zoom_get", pkt({0x81, 0x09, 0x04, 0x06, 0xFF}), B0),
    set("image_digital_zoom_set", pkt({0x81, 0x01, 0x04, 0x06, 0x00, 0xFF}), Flag, 4),
    get("image_wdr_enable_get", pkt({0x81, 0x09, 0x04, 0x3D, 0xFF}), B0),
    set("image_wdr_enable_set", pkt({0x81, 0x01, 0x04, 0x3D, 0x00, 0xFF}), Flag, 4),
    get("image_wdr_level_get", pkt({0x81, 0x09, 0x04, 0xD3, 0xFF}), B0),
    set("image_wdr_level_set", pkt({0x81, 0x01, 0x04, 0xD3, 0x00, 0xFF}), Nibble, 4),
    get("image_brightness_get", pkt({0x81, 0x09, 0x04, 0xA4, 0xFF}), B0),
    set("image_brightness_set", pkt({0x81, 0x01, 0x04, 0xA4, 0x00, 0x00, 0x00, 0x00, 0xFF}), Nib2, 6),
    get("image_sharpness_get", pkt({0x81, 0x09, 0x04, 0x42, 0xFF}), B0),
    set("image_sharpness_set", pkt({0x81, 0x01, 0x04, 0x42, 0x00, 0x00, 0x00, 0x00, 0xFF}), Nib2, 6),
    get("image_contrast_get", pkt({0x81, 0x09, 0x04, 0xA2, 0xFF}), B0),
    set("image_contrast_set", pkt({0x81, 0x01, 0x04, 0xA2, 0x00, 0x00, 0x00, 0x00, 0xFF}), Nib2, 6),
    get("image_saturation_get", pkt({0x81, 0x09, 0x04, 0xA1, 0xFF}), B0),
    set("image_saturation_set", pkt({0x81, 0x01, 0x04, 0xA1, 0x00, 0x00, 0x00, 0x00, 0xFF}), Nib2, 6),
    get("image_dc_iris_get", pkt({0x81, 0x09, 0x04, 0xA9, 0xFF}), P2Flag, 5),
    set("image_dc_iris_set", pkt({0x81, 0x01, 0x04, 0xA9, 0x00, 0xFF}), Flag, 4),
    // IR-cut filter: automatic switching, then the filter itself
    get("ircut auto get", pkt({0x81, 0x09, 0x04, 0x51, 0xFF}), B0, 5),
    set("ircut auto set", pkt({0x81, 0x01, 0x04, 0x51, 0x00, 0xFF}), Flag, 4),
    get("ircut filter get", pkt({0x81, 0x09, 0x04, 0x01, 0xFF}), P2Flag),
    set("ircut filter set", pkt({0x81, 0x01, 0x04, 0x01, 0x00, 0xFF}), Flag, 4),
    get("image_nd_filter_get", pkt({0x81, 0x09, 0x04, 0xDA, 0xFF}), P2, 16),
    set("image_nd_filter_set", pkt({0x81, 0x01, 0x04, 0xDA, 0x00, 0xFF}), Byte, 4),
    get("image_nr2d_get", pkt({0x81, 0x09, 0x04, 0xA5, 0xFF}), B0),
    set("image_nr2d_set", pkt({0x81, 0x01, 0x04, 0xA5, 0x00, 0xFF}), Byte, 4),
    get("image_nr3d_get", pkt({0x81, 0x09, 0x04, 0x53, 0xFF}), B0),
    set_index("image_nr3d_set", pkt({0x81, 0x01, 0x04, 0x53, 0x00, 0xFF}), 4, kNr3dCodes),
    // video output format: selector at byte 4
    get("image_resolution_get", pkt({0x81, 0x09, 0x04, 0x24, 0x00, 0xFF}), B0),
    set_wait("image_resolution_set", pkt({0x81, 0x01, 0x04, 0x24, 0x00, 0x00, 0x00, 0xFF}), Nib2, 5, 8),
    // audio, genlock, tally
    get("image_phantom_power_get", pkt({0x81, 0x09, 0x04, 0xD9, 0xFF}), P2Flag, 5),
    set("image_phantom_power_set", pkt({0x81, 0x01, 0x04, 0xD9, 0x00, 0xFF}), Flag, 4),
    get("image_genlock_status_get", pkt({0x81, 0x09, 0x04, 0xA8, 0xFF}), P2, 5),
    set("image_genlock_status_set", pkt({0x81, 0x01, 0x04, 0xA8, 0x00, 0xFF}), Byte, 4),
    get("image_genlock_phase_get", pkt({0x81, 0x09, 0x04, 0x3B, 0xFF}), P4Signed, 16, 7),
    set("image_genlock_phase_set", pkt({0x81, 0x01, 0x04, 0x3B, 0x00, 0x00, 0x00, 0x00, 0xFF}), Nib4, 4),
    get("image_genlock_phase_step_get", pkt({0x81, 0x09, 0x04, 0x3C, 0xFF}), P2, 16),
    set("image_genlock_phase_step_set", pkt({0x81, 0x01, 0x04, 0x3C, 0x00, 0xFF}), Byte, 4),
    get("image_genlock_vertical_get", pkt({0x81, 0x09, 0x04, 0x3E, 0xFF}), P4, 16),
    set("image_genlock_vertical_set", pkt({0x81, 0x01, 0x04, 0x3E, 0x00, 0x00, 0x00, 0x00, 0xFF}), Nib4, 4),
    get("image_tally_bright_get", pkt({0x81, 0x09, 0x7E, 0x01, 0x0A, 0x01, 0xFF}), P2, 16),
    set("image_tally_bright_set", pkt({0x81, 0x01, 0x7E, 0x01, 0x0A, 0x01, 0x00, 0xFF}), Nibble, 6),
    // feature tracking
    get("image_feature_size_get", pkt({0x81, 0x09, 0x04, 0x24, 0x74, 0xFF}), P2, 16),
    set_wait("image_feature_size_set", pkt({0x81, 0x01, 0x04, 0x24, 0x74, 0x00, 0x00, 0xFF}), Byte, 6),
    get("image_fpga_mode_get", pkt({0x81, 0x09, 0x06, 0x34, 0xFF}), P2, 16),
    set("image_fpga_mode_set", pkt({0x81, 0x01, 0x06, 0x34, 0x00, 0xFF}), Byte, 4),
    get("image_feature_set_get", pkt({0x81, 0x09, 0x06, 0x33, 0xFF}), P2, 16),
    set_wait("image_feature_set_set", pkt({0x81, 0x01, 0x06, 0x33, 0x00, 0xFF}), Byte, 4),
    get("image_feature_pos_get", pkt({0x81, 0x09, 0x06, 0x32, 0xFF}), P4, 16, 11),
    set_wait("image_feature_pos_set",
             pkt({0x81, 0x01, 0x06, 0x32, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0xFF}),
             Nib4, 6),
    // frame rate
    get("image_frame_rate_get", pkt({0x81, 0x09, 0x04, 0xC7, 0xFF}), B0),
    set("image_frame_rate_set", pkt({0x81, 0x01, 0x04, 0xC7, 0x00, 0x00, 0xFF}), Nib2, 4),
    // lens and head positions
    get("image_zoom_pos_get", pkt({0x81, 0x09, 0x04, 0x47, 0xFF}), W0),
    get("image_focus_pos_get", pkt({0x81, 0x09, 0x04, 0x48, 0xFF}), W0),
    get("image_abs_focus_get", pkt({0x81, 0x09, 0x04, 0x68, 0xFF}), B0, 16),
    set("image_abs_focus_set", pkt({0x81, 0x01, 0x04, 0x68, 0x00, 0x00, 0x00, 0x00, 0xFF}), Nib4, 4),
    get("pan tilt position", pkt({0x81, 0x09, 0x06, 0x12, 0xFF}), Raw, 8),
    // presets
    get("image_preset_zoom_speed_get", pkt({0x81, 0x09, 0x7E, 0x01, 0x2B, 0xFF}), P2, 16),
    set("image_preset_zoom_speed_set", pkt({0x81, 0x01, 0x7E, 0x01, 0x2B, 0x00, 0x00, 0xFF}), Mask7F, 6),
    get("image_preset_move_speed_get", pkt({0x81, 0x09, 0x7E, 0x01, 0x0B, 0xFF}), P2, 16),
    set("image_preset_move_speed_set", pkt({0x81, 0x01, 0x7E, 0x01, 0x0B, 0x00, 0x00, 0xFF}), Mask7F, 6),
    get("image_preset_query", pkt({0x81, 0x09, 0x04, 0x3F, 0x00, 0x00, 0xFF}), B0),
    set("image_preset_ctrl", pkt({0x81, 0x01, 0x04, 0x3F, 0x00, 0x00, 0x00, 0xFF}), Nib2, 5),
    set("image_params_reset", pkt({0x81, 0x01, 0x04, 0x3F, 0x00, 0x7F, 0xFF})),
    set("image_params_save", pkt({0x81, 0x01, 0x04, 0x3F, 0x10, 0x01, 0xFF})),
    // auto-tracking: the waited ones are sent without a reply length, their
    // result ignored (the answer is read from the tracking area)
    set_wait("ai_enable_set", pkt({0x81, 0x01, 0x04, 0xC8, 0x00, 0xFF}), Byte, 4),
    set_wait("ai_mode_set", pkt({0x81, 0x01, 0x04, 0xC8, 0x01, 0x00, 0xFF}), Byte, 5),
    set_wait("ai_people_pos_set", pkt({0x81, 0x01, 0x04, 0xCB, 0x00, 0xFF}), Byte, 4),
    set_wait("ai_people_ration_set", pkt({0x81, 0x01, 0x04, 0xCC, 0x00, 0x00, 0xFF}), Nib2, 4),
    set_wait("ai_body_ratio_set", pkt({0x81, 0x01, 0x04, 0xCC, 0x01, 0x00, 0x00, 0xFF}), Nib2, 5),
    set_wait("ai_switch_time_set", pkt({0x81, 0x01, 0x04, 0xCD, 0x00, 0x00, 0xFF}), Nib2, 4),
    set_wait("ai_board_detect_set", pkt({0x81, 0x01, 0x04, 0xCE, 0x00, 0xFF}), Byte, 4),
    set_wait("ai_highlight_set", pkt({0x81, 0x01, 0x04, 0xCF, 0x00, 0xFF}), Byte, 4),
    set_wait("ai_zoom_lock_set", pkt({0x81, 0x01, 0x04, 0xD6, 0x00, 0x00, 0xFF}), Byte, 5),
    set_wait("ai_tilt_lock_set", pkt({0x81, 0x01, 0x04, 0xD6, 0x01, 0x00, 0xFF}), Byte, 5),
    set("ai_pt_limit_set", pkt({0x81, 0x01, 0x04, 0xD7, 0x00, 0xFF}), Byte, 4),
    get("ai_pt_limit_get", pkt({0x81, 0x09, 0x04, 0xD7, 0xFF}), P2, 5),
    set_word("ai_people_change", pkt({0x81, 0x01, 0x04, 0xCA, 0x00, 0xFF}), 4, kAiSides),
    set("ai_framing_one_push", pkt({0x81, 0x01, 0x04, 0xC8, 0x02, 0x01, 0xFF})),
    // drives and moves
    set("zoom drive", pkt({0x81, 0x01, 0x04, 0x07, 0x00, 0xFF}), Byte, 4),
    set("focus manual", pkt({0x81, 0x01, 0x04, 0x38, 0x03, 0xFF})),
    set("focus drive", pkt({0x81, 0x01, 0x04, 0x08, 0x00, 0xFF}), Byte, 4),
    // pan speed, tilt speed, pan direction (01 left, 02 right, 03 none), tilt
    // direction (01 up, 02 down, 03 none)
    set("pan tilt drive", pkt({0x81, 0x01, 0x06, 0x01, 0x00, 0x00, 0x00, 0x00, 0xFF}), Bytes4, 4),
    set("pan tilt home", pkt({0x81, 0x01, 0x06, 0x04, 0xFF})),
    set("pan tilt reset", pkt({0x81, 0x01, 0x06, 0x05, 0xFF})),
    set("abs zoom focus", pkt({0x81, 0x01, 0x04, 0x47, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0xFF}),
        Nib4, 4),
    set("abs zoom", pkt({0x81, 0x01, 0x04, 0x47, 0x00, 0x00, 0x00, 0x00, 0xFF}), Nib4, 4),
    set("abs focus", pkt({0x81, 0x01, 0x04, 0x48, 0x00, 0x00, 0x00, 0x00, 0xFF}), Nib4, 4),
    // the camera module and the encoder board
    get("camera version", pkt({0x81, 0x09, 0x00, 0x03, 0xFF}), Raw, kBufSize),
    set("announce address", pkt({0x81, 0x01, 0x08, 0xAB, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF}), Nib8, 4),
    get("encoder board address", pkt({0x81, 0x09, 0x08, 0xAB, 0xFF}), Raw, 16, 11),
    set("encoder reload", pkt({0x81, 0x01, 0x08, 0xA0, 0xFF})),
    set("abs pan tilt",
        pkt({0x81, 0x01, 0x06, 0x02, 0x18, 0x18, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0xFF}), Nib4,
        6),
};

// ---- framing ------------------------------------------------------------------------
// A value byte stays below 80: FF ends a packet and 8x opens one, so either
// inside a packet would split it for the camera-control process.
inline constexpr unsigned kValueMax = 0x7F;

// The packet opens with the header, ends with the one terminator, and holds
// neither a terminator nor an address byte in between.
template <typename Bytes>
constexpr bool framed_bytes(const Bytes& b, int len) {
    if (len < 3 || b[0] != 0x81 || b[len - 1] != 0xFF) return false;
    for (int i = 1; i < len - 1; ++i)
        if (b[i] == 0xFF || (b[i] & 0xF0) == 0x80) return false;
    return true;
}
constexpr bool framed(const Packet& p) { return framed_bytes(p.b, p.len); }
inline bool framed(const uint8_t* bytes, int len) { return bytes != nullptr && framed_bytes(bytes, len); }

// Compile-time lookup: a misspelt name stops the build.
void no_such_row();  // never defined; reaching it in a constant evaluation is an error
consteval int index_of(std::string_view name) {
    for (size_t i = 0; i < std::size(kLines); ++i)
        if (kLines[i].name == name) return static_cast<int>(i);
    no_such_row();
    return 0;
}

// Every template is a well-formed VISCA packet with its value inside it.
consteval bool lines_well_formed() {
    for (const Line& r : kLines) {
        const Packet& p = r.packet;
        if (p.len < 5 || !framed(p)) return false;
        if (p.b[1] != (r.kind == Kind::Get ? 0x09 : 0x01)) return false;
        const int width = r.enc == Enc::None                           ? 0
                          : r.enc == Enc::Nib2                         ? 2
                          : r.enc == Enc::Nib4 || r.enc == Enc::Bytes4 ? 4
                          : r.enc == Enc::Nib8                         ? 8
                                                                       : 1;
        if (width && (r.pos < 4 || r.pos + width > p.len - 1)) return false;
        for (int i = 0; i < width; ++i)
            if (p.b[r.pos + i] != 0) return false;
        for (const Word& w : r.words)
            if (w.code < 0 || w.code > static_cast<int>(kValueMax)) return false;
        for (uint8_t c : r.codes)
            if (c > kValueMax) return false;
        // a gate names a getter line (index_of stops the build otherwise)
        if (!r.gate.inquiry.empty() && kLines[index_of(r.gate.inquiry)].kind != Kind::Get) return false;
    }
    return true;
}
static_assert(lines_well_formed());

// ---- the compiled records ------------------------------------------------------------
// The lists a line may name; a record keeps the list's place here.
inline constexpr std::span<const Word> kWordLists[] = {
    {}, kFocusModes, kFocusDistances, kFocusSensitivities, kExposureModes, kWbModes, kAiSides,
};
inline constexpr std::span<const uint8_t> kCodeLists[] = {{}, kNr3dCodes};
inline constexpr uint8_t kNoGate = 0xFF;

struct Row {
    Packet packet;
    Kind kind = Kind::Get;
    Enc enc = Enc::None;
    uint8_t pos = 0;
    Form form = Form::Raw;
    uint8_t reply = 0;
    uint8_t exact = 0;
    uint8_t gate = kNoGate;  // the getter asked first, by its place
    uint8_t word_list = 0;   // in kWordLists
    uint8_t code_list = 0;   // in kCodeLists
    uint16_t modes = 0;      // the gate's modes
    constexpr std::span<const Word> words() const { return kWordLists[word_list]; }
    constexpr std::span<const uint8_t> codes() const { return kCodeLists[code_list]; }
};
static_assert(sizeof(Row) == 28 && alignof(Row) == 2);

void list_not_registered();  // never defined: a line names a list the record tables lack
template <typename List, size_t N>
consteval uint8_t list_index(const List (&lists)[N], const List& list) {
    if (list.empty()) return 0;
    for (size_t i = 1; i < N; ++i)
        if (same_value(lists[i], list)) return static_cast<uint8_t>(i);
    list_not_registered();
    return 0;
}

inline constexpr auto kRows = []() consteval {
    std::array<Row, std::size(kLines)> rows{};
    static_assert(std::size(kLines) < kNoGate);
    for (size_t i = 0; i < rows.size(); ++i) {
        const Line& l = kLines[i];
        rows[i] =
            Row{.packet = l.packet,
                .kind = l.kind,
                .enc = l.enc,
                .pos = l.pos,
                .form = l.form,
                .reply = l.reply,
                .exact = l.exact,
                .gate = l.gate.inquiry.empty() ? kNoGate : static_cast<uint8_t>(index_of(l.gate.inquiry)),
                .word_list = list_index(kWordLists, l.words),
                .code_list = list_index(kCodeLists, l.codes),
                .modes = l.gate.modes};
    }
    return rows;
}
();

consteval const Row& row(std::string_view name) { return kRows[index_of(name)]; }

// ---- video output formats ---------------------------------------------------------
// Code pq of the format packet; formats missing here are empty codes. Two
// 2160-line formats can be reported but are not offered for setting.
struct Format {
    uint8_t code;
    std::string_view text;
    bool settable;
};
inline constexpr int kFormatCodes = 47;
inline constexpr Format kFormats[] = {
    {0x01, "1920X1080I@60Hz", true},     {0x02, "1920X1080I@59.94Hz", true},
    {0x04, "1920X1080I@50Hz", true},     {0x06, "1920X1080P@30Hz", true},
    {0x07, "1920X1080P@29.97Hz", true},  {0x08, "1920X1080P@25Hz", true},
    {0x09, "1280X720P@60Hz", true},      {0x0A, "1280X720P@59.94Hz", true},
    {0x0C, "1280X720P@50Hz", true},      {0x0E, "1280X720P@30Hz", true},
    {0x0F, "1280X720P@29.97Hz", true},   {0x11, "1280X720P@25Hz", true},
    {0x13, "1920X1080P@59.94Hz", true},  {0x1B, "3840X2160P@24Hz", false},
    {0x1C, "3840X2160P@23.98Hz", false}, {0x1D, "3840X2160P@30Hz", true},
    {0x1E, "3840X2160P@25Hz", true},     {0x1F, "3840X2160P@60Hz", true},
    {0x20, "3840X2160P@50Hz", true},     {0x21, "3840X2160P@59.94Hz", true},
    {0x22, "3840X2160P@29.97Hz", true},  {0x23, "1920X1080P@120Hz", true},
    {0x24, "1280X720P@120Hz", true},     {0x25, "1920X1080P@100Hz", true},
    {0x26, "1280X720P@100Hz", true},     {0x2A, "1920X1080P@24Hz", true},
    {0x2B, "1920X1080P@23.98Hz", true},  {0x2E, "1920X1080P@60Hz", true},
    {0x2F, "1920X1080P@50Hz", true},
};
// Output selector byte: main output, first SDI, second SDI.
inline constexpr uint8_t kOutputSelectors[] = {0x72, 0x73, 0x74};

}  // namespace visca
