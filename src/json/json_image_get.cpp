// Reading the "image" section: one key table of sources (camera inquiry with
// or without a decoding table, shared record, constant) driven by one loop.
#include <array>
#include <cstdint>
#include <span>
#include <string_view>

#include "camera/image_ctrl.h"
#include "ipc/sys_port.h"
#include "json/json_feature.h"
#include "json/json_describe.h"
#include "json/json_image.h"
#include "json/json_section.h"
#include "support/compiled.h"

namespace {

// ---- decoding tables: the camera's reading is the index, null answers false --

// The camera's reading is the code; a reading the list lacks answers false.
constexpr WordCode kFocusModeWords[] = {{"auto", 0}, {"manual", 1}};
constexpr WordCode kFocusDistanceWords[] = {{"1.5m", 0}, {"2m", 1}, {"3m", 2}, {"6m", 3}, {"10m", 4}};
constexpr WordCode kFocusSensitivityWords[] = {{"high", 1}, {"middle", 2}, {"low", 3}};
constexpr WordCode kExposureModeWords[] = {
    {"auto", 0}, {"manual", 1}, {"iris priority", 2}, {"shutter priority", 3}, {"brightness priority", 4}};
// 3 is the one-push state, reported as manual like 5.
constexpr WordCode kWbModeWords[] = {{"auto", 0},        {"indoor", 1},        {"outdoor", 2},
                                     {"manual", 3},      {"auto tracking", 4}, {"manual", 5},
                                     {"temperature", 6}, {"sodium", 8},        {"fluorescent", 9}};

// ---- the output format list ------------------------------------------------------

struct FormatBit {
    uint8_t bit;
    const char* name;
};

constexpr auto kFormatOrder = std::to_array<FormatBit>({
    {24, "3840X2160P@60Hz"},    {23, "3840X2160P@59.94Hz"}, {22, "3840X2160P@50Hz"},
    {21, "3840X2160P@30Hz"},    {20, "3840X2160P@29.97Hz"}, {19, "3840X2160P@25Hz"},
    {7, "1920X1080P@120Hz"},    {6, "1920X1080P@100Hz"},    {5, "1920X1080P@60Hz"},
    {4, "1920X1080P@59.94Hz"},  {1, "1920X1080P@50Hz"},     {3, "1920X1080P@30Hz"},
    {2, "1920X1080P@29.97Hz"},  {0, "1920X1080P@25Hz"},     {51, "1920X1080P@24Hz"},
    {50, "1920X1080P@23.98Hz"}, {10, "1920X1080I@60Hz"},    {9, "1920X1080I@59.94Hz"},
    {8, "1920X1080I@50Hz"},     {18, "1280X720P@120Hz"},    {17, "1280X720P@100Hz"},
    {16, "1280X720P@60Hz"},     {15, "1280X720P@59.94Hz"},  {14, "1280X720P@50Hz"},
    {13, "1280X720P@30Hz"},     {12, "1280X720P@29.97Hz"},  {11, "1280X720P@25Hz"},
    {30, "1024X576P@60Hz"},     {29, "1024X576P@59.94Hz"},  {28, "1024X576P@50Hz"},
    {27, "1024X576P@30Hz"},     {26, "1024X576P@29.97Hz"},  {25, "1024X576P@25Hz"},
    {43, "720X480P@60Hz"},      {42, "720X480P@59.94Hz"},   {41, "720X480P@50Hz"},
    {40, "720X480P@30Hz"},      {39, "720X480P@29.97Hz"},   {38, "720X480P@25Hz"},
    {49, "640X480P@60Hz"},      {48, "640X480P@59.94Hz"},   {47, "640X480P@50Hz"},
    {46, "640X480P@30Hz"},      {45, "640X480P@29.97Hz"},   {44, "640X480P@25Hz"},
    {37, "640X360P@60Hz"},      {36, "640X360P@59.94Hz"},   {35, "640X360P@50Hz"},
    {34, "640X360P@30Hz"},      {33, "640X360P@29.97Hz"},   {32, "640X360P@25Hz"},
});

constexpr uint64_t kShortListBits = (uint64_t{1} << 5) | (uint64_t{1} << 1);
constexpr uint64_t kVoMask = 0xc000001f9ff3fULL;
constexpr uint64_t kVoMaskNo2160 = 0xc00000001ff3fULL;
constexpr int kWorkModeNo2160 = 2;

// ---- sources built by code ---------------------------------------------------------

cJSON* number_or_null(int value) { return value == -1 ? nullptr : cJSON_CreateNumber(value); }

template <int Selector>
cJSON* read_resolution() {
    const char* format = image_resolution_get(Selector);
    return format != nullptr ? cJSON_CreateString(format) : nullptr;
}

cJSON* read_vo_support() {
    const SysInfo* info = sys_info();
    if (info == nullptr) return nullptr;
    return json_format_list(info->workMode == kWorkModeNo2160 ? kVoMaskNo2160 : kVoMask, 0);
}

constexpr int kDigitalZoomFull = 1024;

cJSON* read_digital_zoom() {
    const SysState* state = sys_state(1);
    if (state == nullptr) return nullptr;
    return cJSON_CreateNumber(kDigitalZoomFull - static_cast<int64_t>(state->digitalZoom));
}

cJSON* read_pan() {
    CamInfo* cam = sys_cam_info();
    return cam != nullptr ? cJSON_CreateNumber(json_image_degrees(cam->pan())) : nullptr;
}

cJSON* read_tilt() {
    CamInfo* cam = sys_cam_info();
    return cam != nullptr ? cJSON_CreateNumber(json_image_degrees(cam->tilt())) : nullptr;
}

cJSON* read_feature_pos() {
    int first = 0;
    int second = 0;
    if (image_feature_pos_get(&first, &second) != 0) return nullptr;
    return cJSON_CreateNumber(static_cast<double>(first) * 65536 + second);
}

cJSON* read_feature_all() { return json_feature_read(nullptr); }

// ---- the key table ----------------------------------------------------------------------

enum class Source : uint8_t {
    number,    // getter's value as a number
    words,     // getter's value through a decoding table
    constant,  // a fixed number
    unserved,  // false, not counted as a failure
    built,     // answered by a function of its own
};

struct ReadLine {
    std::string_view name;
    Source source;
    int (*get)() = nullptr;
    Words words{};
    int constant = 0;
    cJSON* (*build)() = nullptr;
};

// A line as the build compiles it: the functions and lists by their places.
struct ReadRow {
    Text name;
    Source source;
    uint8_t get, words, build;
    int16_t constant;
};

constexpr ReadLine num(std::string_view key, int (*get)()) { return {key, Source::number, get}; }
constexpr ReadLine word(std::string_view key, int (*get)(), Words words) {
    return {key, Source::words, get, words};
}
constexpr ReadLine fixed(std::string_view key, int value) {
    return {key, Source::constant, nullptr, {}, value};
}
constexpr ReadLine unserved(std::string_view key) { return {key, Source::unserved}; }
constexpr ReadLine built(std::string_view key, cJSON* (*build)()) {
    return {key, Source::built, nullptr, {}, 0, build};
}

constexpr auto kReadLines = std::to_array<ReadLine>({
    word("focus_mode", image_focus_mode_get, kFocusModeWords),
    num("focus_area", image_focus_area_get),
    word("focus_distance", image_focus_distance_get, kFocusDistanceWords),
    word("focus_sensitivity", image_focus_sensitivity_get, kFocusSensitivityWords),
    num("abs focus", image_abs_focus_get),
    word("exposure_mode", image_exposure_mode_get, kExposureModeWords),
    num("shutter", image_shutter_get),
    num("anti_flicker", image_anti_flicker_get),
    num("exposure_brightness", image_exposure_brightness_get),
    num("iris", image_iris_get),
    num("gain", image_gain_get),
    num("gain_limit", image_gain_limit_get),
    word("WB_mode", image_wb_mode_get, kWbModeWords),
    num("R_gain", image_r_gain_get),
    num("B_gain", image_b_gain_get),
    num("color_temperature", image_color_temperature_get),
    num("mirror", image_mirror_get),
    num("flip", image_flip_get),
    num("freeze", image_freeze_get),
    num("backlight_compensation", image_backlight_get),
    num("gamma", image_gamma_get),
    num("digital_zoom_enable", image_digital_zoom_get),
    fixed("digital_zoom_limit", 896),
    built("digital_zoom", read_digital_zoom),
    num("WDR_enable", image_wdr_enable_get),
    num("WDR_level", image_wdr_level_get),
    num("brightness", image_brightness_get),
    num("sharpness", image_sharpness_get),
    num("contrast", image_contrast_get),
    num("saturation", image_saturation_get),
    num("DC_iris", image_dc_iris_get),
    fixed("DC_iris_support", 1),
    num("ircut", image_ircut_get),
    num("nd_filter", image_nd_filter_get),
    num("noise_reduction_2D", image_nr2d_get),
    num("noise_reduction_3D", image_nr3d_get),
    built("vo_resolution", read_resolution<0>),
    built("sdi1_resolution", read_resolution<1>),
    built("sdi2_resolution", read_resolution<2>),
    built("vo_support", read_vo_support),
    unserved("sdi1_support"),
    unserved("sdi2_support"),
    num("phantom_power_enable", image_phantom_power_get),
    num("genlock_status", image_genlock_status_get),
    num("genlock_phase", image_genlock_phase_get),
    num("genlock_phase_step", image_genlock_phase_step_get),
    num("genlock_vertical", image_genlock_vertical_get),
    num("tally_bright", image_tally_bright_get),
    num("fpga_mode", image_fpga_mode_get),
    num("feature_size", image_feature_size_get),
    num("feature_set", image_feature_set_get),
    built("feature_pos", read_feature_pos),
    built("feature", read_feature_all),
    num("frame_rate", image_frame_rate_get),
    num("zoom", image_zoom_pos_get),
    num("focus", image_focus_pos_get),
    built("pan", read_pan),
    built("tilt", read_tilt),
    num("preset zoom speed", image_preset_zoom_speed_get),
    num("preset move speed", image_preset_move_speed_get),
});

constexpr auto kGetters = distinct_of<kReadLines, &ReadLine::get>();
constexpr auto kReadWords = distinct_of<kReadLines, &ReadLine::words>();
constexpr auto kBuilders = distinct_of<kReadLines, &ReadLine::build>();
constexpr auto kReadTable = compile_lines<kReadLines, [](const ReadLine& l, auto& texts) {
    return ReadRow{texts.add(l.name),
                   l.source,
                   place_in(kGetters, l.get),
                   place_in(kReadWords, l.words),
                   place_in(kBuilders, l.build),
                   narrow<int16_t>(l.constant)};
}>();

const ReadRow* find_read_row(const char* key) { return find_compiled(kReadTable, key); }

cJSON* read_value(const ReadRow& row) {
    switch (row.source) {
    case Source::number: return number_or_null(kGetters[row.get]());
    case Source::words: {
        const int value = kGetters[row.get]();
        const char* word = value >= 0 ? word_of(kReadWords[row.words], value) : nullptr;
        return word != nullptr ? cJSON_CreateString(word) : nullptr;
    }
    case Source::constant: return cJSON_CreateNumber(row.constant);
    case Source::unserved: return cJSON_CreateFalse();
    case Source::built: return kBuilders[row.build]();
    }
    return nullptr;
}

// ---- presets --------------------------------------------------------------------------

constexpr int kPresetMax = 255;

// First byte of the preset inquiry, or -1 for a number no preset can have.
int preset_state(const cJSON* number) {
    const double value = number->valuedouble;
    if (!(value >= 0 && value <= kPresetMax)) return -1;
    return image_preset_query(number->valueint);
}

void answer_preset_number(const cJSON* item, cJSON* answer, int& result) {
    const int state = preset_state(item);
    if (state == 0 || state == 1) {
        json_answer_number(answer, item->string, state);
        result = state;
    } else {
        json_answer_false(answer, item->string);
        result = -1;
    }
}

void answer_preset_array(const cJSON* item, cJSON* answer, int& result) {
    // More elements than there are presets is no question a client can mean.
    cJSON* states = cJSON_GetArraySize(item) <= kPresetMax + 1 ? cJSON_CreateArray() : nullptr;
    if (states == nullptr) {
        json_answer_false(answer, item->string);
        result = -1;
        return;
    }
    for (const cJSON* element = item->child; element != nullptr; element = element->next) {
        const int stored = cJSON_IsNumber(element) && preset_state(element) == 1 ? 1 : 0;
        cJSON_AddItemToArray(states, cJSON_CreateNumber(stored));
    }
    json_answer(answer, item->string, states);
}

void read_member(cJSON* item, cJSON* answer, int& result) {
    const char* key = item->string;
    if (cJSON_IsTrue(item)) {
        if (json_image_read_key(key, answer) != 0) result = -1;
    } else if (same_word(key, "preset")) {
        if (cJSON_IsNumber(item))
            answer_preset_number(item, answer, result);
        else if (cJSON_IsArray(item))
            answer_preset_array(item, answer, result);
        // any other type: nothing is answered for it
    } else if (same_word(key, "feature") && cJSON_IsObject(item)) {
        cJSON* slots = json_feature_read(item);
        if (slots != nullptr)
            json_answer(answer, key, slots);
        else
            json_answer_false(answer, key);
    } else if (cJSON_IsObject(item)) {
        json_answer_false(answer, key);
    } else {
        json_answer_false(answer, key);
        result = -1;
    }
}

}  // namespace

int json_image_read_key(const char* key, cJSON* answer) {
    const ReadRow* row = find_read_row(key);
    cJSON* value = row != nullptr ? read_value(*row) : nullptr;
    if (value == nullptr) {
        json_answer_false(answer, key);
        return -1;
    }
    json_answer(answer, key, value);
    return 0;
}

cJSON* json_format_list(uint64_t mask, int short_list) {
    if (short_list != 0) mask &= kShortListBits;
    if (mask == 0) return nullptr;
    cJSON* list = cJSON_CreateArray();
    if (list == nullptr) return nullptr;
    for (const FormatBit& format : kFormatOrder)
        if ((mask >> format.bit) & 1) cJSON_AddItemToArray(list, cJSON_CreateString(format.name));
    if (list->child == nullptr) {  // only bits outside the list were set
        cJSON_Delete(list);
        return nullptr;
    }
    return list;
}

int json_image_degrees(int32_t position) {
    return static_cast<int>(static_cast<double>(position) * 14.4 / 32768.0);
}

int json_image_get_ctrl(cJSON* member, cJSON* reply) { return json_section_walk(member, reply, read_member); }

void json_image_get_describe(KeyList& out) {
    for (const ReadLine& l : kReadLines) {
        KeyInfo k{.section = "image", .key = l.name, .write = false, .words = l.words};
        if (l.source == Source::words) k.type = KeyType::word;
        if (l.source == Source::built || l.source == Source::unserved) k.type = KeyType::any;
        out.push_back(k);
    }
}
