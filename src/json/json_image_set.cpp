// Writing the "image" section: one table of settings and actions in which a
// setting is sent and then read back through the reading key table, and an
// action answers true or false (or its own answer).
#include <strings.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>

#include "camera/image_ctrl.h"
#include "ipc/sys_port.h"
#include "json/json_feature.h"
#include "json/json_describe.h"
#include "json/json_image.h"
#include "json/json_section.h"
#include "platform/platform.h"
#include "support/compiled.h"

namespace {

// ---- how a member's value reaches the camera -----------------------------------

enum class JsonType : uint8_t { string, number, object, pair, any };

enum class Apply : uint8_t {
    text,         // string setter, then read back
    value,        // number setter (value masked when a mask is given), then read back
    resolution,   // format string for the output selected by `arg`, then read back
    feature_pos,  // upper and lower 16 bits as two values, then read back
    own,          // a function that answers for itself
};

struct WriteLine {
    std::string_view name;
    JsonType type;
    Apply apply;
    int (*set_text)(const char*) = nullptr;
    int (*set_value)(int) = nullptr;
    int arg = 0;  // mask of the value, or the output selector
    int (*own)(const cJSON* item, cJSON* answer) = nullptr;
};

// A line as the build compiles it: the functions by their places.
struct WriteRow {
    Text name;
    JsonType type;
    Apply apply;
    uint8_t set_text, set_value, own;
    uint16_t arg;
};

constexpr WriteLine text(std::string_view name, int (*set)(const char*)) {
    return {name, JsonType::string, Apply::text, set};
}
constexpr WriteLine value(std::string_view name, int (*set)(int), int mask = 0) {
    return {name, JsonType::number, Apply::value, nullptr, set, mask};
}
constexpr WriteLine output(std::string_view name, int selector) {
    return {name, JsonType::string, Apply::resolution, nullptr, nullptr, selector};
}
constexpr WriteLine own(std::string_view name, JsonType type, int (*fn)(const cJSON* item, cJSON* answer)) {
    return {name, type, Apply::own, nullptr, nullptr, 0, fn};
}

// ---- white balance with its one-push wait ------------------------------------------

constexpr int kWbOnePushState = 3;
constexpr int kWbOnePushPolls = 101;
constexpr int kWbPollGapMs = 1;

int set_wb_mode(const char* mode) {
    if (image_wb_mode_set(mode) != 0) return -1;
    if (strcasecmp(mode, "one push") == 0) {
        for (int poll = 0; poll < kWbOnePushPolls; ++poll) {
            if (poll > 0) platform_sleep_ms(kWbPollGapMs);
            if (image_wb_mode_get() != kWbOnePushState) break;  // done, or the inquiry failed
        }
    }
    return 0;
}

// ---- settings kept by the system server ------------------------------------------------

constexpr int32_t kDigitalZoomFull = 1024;

int send_to_system(SysCmd command, int32_t value) {
    return sys_send_number(command, static_cast<uint32_t>(value));
}

int write_vo_en(const cJSON* item, cJSON* answer) {
    if (send_to_system(SysCmd::video_output, item->valueint) != 0) {
        json_answer_false(answer, item->string);
        return -1;
    }
    const SysInfo* info = sys_info();
    json_answer_number(answer, item->string, info != nullptr ? info->vo_en : 0);
    return 0;
}

// The zoom factor runs from 0 to the full 1024; anything else would send the
// server a field it cannot hold, so it is refused before any arithmetic.
int write_digital_zoom(const cJSON* item, cJSON* answer) {
    const int32_t wanted = item->valueint;
    if (wanted < 0 || wanted > kDigitalZoomFull ||
        send_to_system(SysCmd::digital_zoom, kDigitalZoomFull - wanted) != 0) {
        json_answer_false(answer, item->string);
        return -1;
    }
    json_answer_number(answer, item->string, wanted);
    return 0;
}

// ---- actions ------------------------------------------------------------------------------

int answer_done(const cJSON* item, cJSON* answer, int status) {
    if (status == 0) {
        json_answer_true(answer, item->string);
        return 0;
    }
    json_answer_false(answer, item->string);
    return -1;
}

// The two numbers of a "zoom", "focus" or "ptz" array; false unless the
// array holds exactly two numbers.
bool number_pair(const cJSON* item, int& first, int& second) {
    if (!cJSON_IsArray(item) || cJSON_GetArraySize(item) != 2) return false;
    const cJSON* a = item->child;
    const cJSON* b = a->next;
    if (!cJSON_IsNumber(a) || !cJSON_IsNumber(b)) return false;
    first = a->valueint;
    second = b->valueint;
    return true;
}

template <int (*Drive)(int, int)>
int write_drive(const cJSON* item, cJSON* answer) {
    int direction = 0;
    int speed = 0;
    number_pair(item, direction, speed);  // the row's type has checked the pair
    return answer_done(item, answer, Drive(direction, speed));
}

// While auto-tracking runs, manual pan-tilt is locked out except for stop,
// up and down with the tilt lock set; a locked-out request answers -1.
constexpr int kPtzLastTiltAction = 2;

int write_ptz(const cJSON* item, cJSON* answer) {
    int action = 0;
    int speed = 0;
    const bool pair = number_pair(item, action, speed);
    const AiInfo* ai = sys_ai_info();
    if (ai != nullptr && ai->enable != 0) {
        if (ai->tiltLock == 0 || !pair || action < 0 || action > kPtzLastTiltAction) {
            json_answer_number(answer, item->string, -1);
            return 0;
        }
    }
    if (!pair) return answer_done(item, answer, -1);
    return answer_done(item, answer, image_ptz_ctrl(action, speed));
}

struct AbsAxis {
    std::string_view name;
};
constexpr auto kAbsAxes = std::to_array<AbsAxis>({{"zoom"}, {"focus"}, {"pan"}, {"tilt"}});

// A value that is not an object is skipped: nothing answered, no failure.
int write_abs_ctrl(const cJSON* item, cJSON* answer) {
    if (!cJSON_IsObject(item)) return 0;
    std::array<int, kAbsAxes.size()> position{-1, -1, -1, -1};
    for (const cJSON* axis = item->child; axis != nullptr; axis = axis->next) {
        const AbsAxis* row = find_row(std::span<const AbsAxis>(kAbsAxes), axis->string);
        if (row == nullptr || !cJSON_IsNumber(axis)) return answer_done(item, answer, -1);
        position[static_cast<size_t>(row - kAbsAxes.data())] = axis->valueint;
    }
    return answer_done(item, answer, image_abs_position(position[0], position[1], position[2], position[3]));
}

template <int (*Operation)(int)>
int write_once(const cJSON* item, cJSON* answer) {
    const int status = item->valueint != 0 ? Operation(item->valueint) : 0;
    return answer_done(item, answer, status < 0 ? -1 : 0);
}

// Preset actions of the camera command set: 0 store, 1 recall, 2 clear.
constexpr WordCode kPresetActions[] = {{"add", 0}, {"call", 1}, {"del", 2}};
constexpr int kPresetMax = 255;

int write_preset(const cJSON* item, cJSON* answer) {
    for (const cJSON* step = item->child; step != nullptr; step = step->next) {
        const WordCode* action = word_find(kPresetActions, step->string);
        if (action == nullptr || !cJSON_IsNumber(step) || !(step->valuedouble >= 0) ||
            step->valuedouble > kPresetMax || image_preset_ctrl(action->code, step->valueint) != 0)
            return answer_done(item, answer, -1);
    }
    return answer_done(item, answer, 0);
}

struct SnapRequest {
    int mode = 1;
    const char* name = nullptr;
    int width = 1920;
    int height = 1080;
    int flag = 0;
};

int write_snap(const cJSON* item, cJSON* answer) {
    SnapRequest snap;
    if (cJSON_IsNumber(item)) {
        snap.mode = item->valueint;
    } else if (cJSON_IsString(item)) {
        snap.name = item->valuestring;
    } else if (cJSON_IsObject(item)) {
        const auto number = [item](const char* key, int fallback) {
            const cJSON* v = cJSON_GetObjectItem(item, key);
            return cJSON_IsNumber(v) ? v->valueint : fallback;
        };
        snap.mode = number("mode", snap.mode);
        snap.width = number("col", snap.width);
        snap.height = number("line", snap.height);
        snap.flag = number("flag", snap.flag);
        const cJSON* name = cJSON_GetObjectItem(item, "name");
        if (cJSON_IsString(name)) snap.name = name->valuestring;
    } else {
        return answer_done(item, answer, -1);
    }
    return answer_done(item, answer,
                       image_snapshot(snap.mode, snap.name, snap.width, snap.height, snap.flag));
}

int write_feature(const cJSON* item, cJSON* answer) {
    cJSON* slots = nullptr;
    const int status = json_feature_write(item, &slots);
    if (slots == nullptr) return answer_done(item, answer, -1);
    json_answer(answer, item->string, slots);
    return status == 0 ? 0 : -1;
}

// ---- the table, one row per key -----------------------------------------------------------

constexpr auto kWriteLines = std::to_array<WriteLine>({
    text("focus_mode", image_focus_mode_set),
    value("focus_area", image_focus_area_set, 0x0F),
    text("focus_distance", image_focus_distance_set),
    text("focus_sensitivity", image_focus_sensitivity_set),
    value("abs focus", image_abs_focus_set),
    text("exposure_mode", image_exposure_mode_set),
    value("shutter", image_shutter_set),
    value("anti_flicker", image_anti_flicker_set),
    value("exposure_brightness", image_exposure_brightness_set),
    value("iris", image_iris_set),
    value("gain", image_gain_set),
    value("gain_limit", image_gain_limit_set),
    text("WB_mode", set_wb_mode),
    value("R_gain", image_r_gain_set),
    value("B_gain", image_b_gain_set),
    value("color_temperature", image_color_temperature_set),
    value("mirror", image_mirror_set),
    value("flip", image_flip_set),
    value("freeze", image_freeze_set),
    value("backlight_compensation", image_backlight_set),
    value("gamma", image_gamma_set),
    value("digital_zoom_enable", image_digital_zoom_set),
    value("WDR_enable", image_wdr_enable_set),
    value("WDR_level", image_wdr_level_set),
    value("brightness", image_brightness_set),
    value("sharpness", image_sharpness_set),
    value("contrast", image_contrast_set),
    value("saturation", image_saturation_set),
    value("DC_iris", image_dc_iris_set),
    value("ircut", image_ircut_set),
    value("nd_filter", image_nd_filter_set),
    value("noise_reduction_2D", image_nr2d_set),
    value("noise_reduction_3D", image_nr3d_set),
    value("frame_rate", image_frame_rate_set),
    output("vo_resolution", 0),
    output("sdi1_resolution", 1),
    output("sdi2_resolution", 2),
    value("phantom_power_enable", image_phantom_power_set),
    value("genlock_status", image_genlock_status_set),
    value("genlock_phase", image_genlock_phase_set),
    value("genlock_phase_step", image_genlock_phase_step_set),
    value("genlock_vertical", image_genlock_vertical_set),
    value("tally_bright", image_tally_bright_set),
    value("fpga_mode", image_fpga_mode_set),
    value("feature_size", image_feature_size_set),
    value("feature_set", image_feature_set_set),
    {"feature_pos", JsonType::number, Apply::feature_pos},
    value("preset zoom speed", image_preset_zoom_speed_set, 0x7F),
    value("preset move speed", image_preset_move_speed_set, 0x7F),
    own("vo_en", JsonType::number, write_vo_en),
    own("digital_zoom", JsonType::any, write_digital_zoom),
    own("zoom", JsonType::pair, write_drive<image_zoom_ctrl>),
    own("focus", JsonType::pair, write_drive<image_focus_ctrl>),
    own("ptz", JsonType::any, write_ptz),
    own("abs ctrl", JsonType::any, write_abs_ctrl),
    own("image_reset", JsonType::number, write_once<image_params_reset>),
    own("image_save", JsonType::number, write_once<image_params_save>),
    own("preset", JsonType::object, write_preset),
    own("snap", JsonType::any, write_snap),
    own("feature", JsonType::object, write_feature),
});

bool type_fits(JsonType type, const cJSON* item) {
    int first = 0;
    int second = 0;
    switch (type) {
    case JsonType::string: return cJSON_IsString(item) && item->valuestring != nullptr;
    case JsonType::number: return cJSON_IsNumber(item);
    case JsonType::object: return cJSON_IsObject(item);
    case JsonType::pair: return number_pair(item, first, second);
    case JsonType::any: return true;
    }
    return false;
}

constexpr auto kTextSetters = distinct_of<kWriteLines, &WriteLine::set_text>();
constexpr auto kValueSetters = distinct_of<kWriteLines, &WriteLine::set_value>();
constexpr auto kOwnWriters = distinct_of<kWriteLines, &WriteLine::own>();
constexpr auto kWriteTable = compile_lines<kWriteLines, [](const WriteLine& l, auto& texts) {
    return WriteRow{texts.add(l.name),
                    l.type,
                    l.apply,
                    place_in(kTextSetters, l.set_text),
                    place_in(kValueSetters, l.set_value),
                    place_in(kOwnWriters, l.own),
                    narrow<uint16_t>(l.arg)};
}>();

// Sends a setting; 0 when the camera took it.
int send_setting(const WriteRow& row, const cJSON* item) {
    const int number = item->valueint;
    switch (row.apply) {
    case Apply::text: return kTextSetters[row.set_text](item->valuestring);
    case Apply::value: return kValueSetters[row.set_value](row.arg != 0 ? number & row.arg : number);
    case Apply::resolution: return image_resolution_set(row.arg, item->valuestring);
    case Apply::feature_pos: {
        const auto bits = static_cast<uint32_t>(number);
        return image_feature_pos_set(static_cast<int>(bits >> 16), static_cast<int>(bits & 0xFFFF));
    }
    case Apply::own: break;
    }
    return -1;
}

void write_member(cJSON* item, cJSON* answer, int& result) {
    const WriteRow* row = find_compiled(kWriteTable, item->string);
    if (row == nullptr || !type_fits(row->type, item)) {
        json_answer_false(answer, item->string);
        result = -1;
        return;
    }
    if (row->apply == Apply::own) {
        if (kOwnWriters[row->own](item, answer) != 0) result = -1;
        return;
    }
    if (send_setting(*row, item) != 0) {
        json_answer_false(answer, item->string);
        result = -1;
        return;
    }
    // The answer carries the request's own spelling of the key.
    if (json_image_read_key(item->string, answer) != 0) result = -1;
}

}  // namespace

int json_image_set_ctrl(cJSON* member, cJSON* reply) {
    return json_section_walk(member, reply, write_member);
}

void json_image_set_describe(KeyList& out) {
    for (const WriteLine& l : kWriteLines) {
        KeyInfo k{.section = "image", .key = l.name, .read = false};
        switch (l.type) {
        case JsonType::string: k.type = KeyType::text; break;
        case JsonType::number: k.type = KeyType::number; break;
        case JsonType::object:
        case JsonType::pair: k.type = KeyType::object; break;
        case JsonType::any: k.type = KeyType::any; break;
        }
        if (l.apply == Apply::value && l.arg != 0) k.max = l.arg;  // the value's mask
        if (l.apply == Apply::feature_pos) k.max = 0xFFFFFFFF;     // two 16-bit halves
        out.push_back(k);
    }
}
