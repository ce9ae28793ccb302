// "aw_cam?cmd=..." : camera settings of the remote-control protocol (focus,
// zoom, shutter, gain, exposure and picture settings).
//
// A command goes through two chains of rows. The first chain only acts (its
// rows leave an answer that is never sent); the second chain answers. A
// command no second-chain row knows, which includes every first-chain
// command, is refused with "ER1".
#include "remote/aw_cam.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include "camera/image_ctrl.h"
#include "support/compiled.h"
#include "ipc/sys_port.h"
#include "records/records.h"
#include "remote/aw_ptz.h"
#include "remote/remote_common.h"

using namespace remote;

namespace {

// Speeds that persist from one request to the next. The zoom speed starts
// above the zoom drive's limit, so "HZT"/"HZW" do nothing before "LZS:".
int g_focus_speed = 3;
int g_zoom_speed = 10;

enum class Outcome { Answer, OutOfRange };

struct Request {
    std::string_view command;  // as received
    std::string_view param;    // text after the row's prefix
    std::string text;          // answer
};

using Handler = Outcome (*)(Request&, int arg);

struct Line {
    std::string_view pattern;  // exact text, or the prefix when length != 0
    uint8_t length;            // 0: exact comparison
    Handler run;               // null: no action
    int arg;
    std::string_view answer;  // fixed answer; empty: echo the command
};

// A line as the build compiles it: texts in the chain's block, the handler
// by its place in the chain's handler list.
struct Row {
    Text pattern;
    Text answer;
    uint8_t length;
    uint8_t run;
    int8_t arg;
};

void set_text(Request& r, const char* format, int value) {
    char buffer[32];
    const int n = std::snprintf(buffer, sizeof buffer, format, value);
    r.text.assign(buffer, static_cast<size_t>(std::clamp(n, 0, static_cast<int>(sizeof buffer) - 1)));
}

std::optional<int> decimal(const Request& r) { return leading_number(r.param, 10); }
std::optional<int> hex(const Request& r) { return leading_number(r.param, 16); }

// ---- first chain -------------------------------------------------------------

Outcome auto_focus_set(Request& r, int) {
    if (const auto v = decimal(r)) image_focus_mode_set(*v != 0 ? "auto" : "manual");
    return Outcome::Answer;
}

Outcome auto_focus_inquiry(Request& r, int) {
    r.text = (image_focus_mode_get() == 0) ? "OAF:1" : "OAF:0";
    return Outcome::Answer;
}

// arg: focus drive direction (0 stop, 1 near, 2 far).
Outcome focus_drive(Request&, int arg) {
    json_ptz_focus(arg, g_focus_speed);
    return Outcome::Answer;
}

// arg: 0 focus speed, 1 zoom speed.
Outcome store_speed(Request& r, int arg) {
    if (const auto v = decimal(r)) (arg == 0 ? g_focus_speed : g_zoom_speed) = std::clamp(*v, 1, 7);
    return Outcome::Answer;
}

// ---- second chain ---------------------------------------------------------------

// arg: zoom drive direction (1 in, 2 out); speeds above 7 are refused.
Outcome zoom_drive(Request&, int arg) {
    image_zoom_ctrl(arg, g_zoom_speed);
    return Outcome::Answer;
}

Outcome nd_set(Request& r, int) {
    if (const auto v = decimal(r)) image_nd_filter_set(*v);
    return Outcome::Answer;
}

Outcome nd_inquiry(Request& r, int) {
    const int v = image_nd_filter_get();
    set_text(r, "OFT:%d", v < 0 ? 0 : v);
    return Outcome::Answer;
}

Outcome lens_status(Request& r, int) {
    int zoom = 0, focus = 0;
    if (CamInfo* cam = sys_cam_info()) {
        zoom = cam->zoom();
        focus = cam->focus();
    }
    char buffer[48];
    std::snprintf(buffer, sizeof buffer, "QSI:18:%03x%03x%03x",
                  static_cast<unsigned>(position_from_motor(zoom)), static_cast<unsigned>(focus), 0xfffu);
    r.text = buffer;
    return Outcome::Answer;
}

Outcome shutter_step_set(Request& r, int) {
    if (const auto v = decimal(r)) {
        const int position = osh_position(*v);
        if (position >= 0) image_shutter_set(position);
    }
    return Outcome::Answer;
}

Outcome shutter_step_inquiry(Request& r, int) {
    const int position = image_shutter_get();
    if (position == 5)
        r.text = "OFT:f";
    else
        set_text(r, "QSH:%x", qsh_digit(position));
    return Outcome::Answer;
}

// arg: 0 "OSJ:06" (1/x seconds), 1 "OSJ:09" (1/(x/10) seconds).
Outcome shutter_speed_set(Request& r, int arg) {
    if (const auto v = hex(r)) {
        const int position = shutter_position_of(*v, arg == 1);
        if (position >= 0) image_shutter_set(position);
    }
    return Outcome::Answer;
}

Outcome shutter_speed_inquiry(Request& r, int arg) {
    const int position = image_shutter_get();
    const bool fifty = fifty_hertz_family(image_frame_rate_get());
    const int speed = shutter_speed_of(position, fifty, arg == 1);
    set_text(r, arg == 1 ? "OSJ:09:%05x" : "OSJ:06:%04x", speed);
    return Outcome::Answer;
}

Outcome gain_set(Request& r, int) {
    const int v = hex(r).value_or(-1);
    if (v == 0x80) {
        image_exposure_mode_set("auto");
    } else if (v >= 0x08 && v <= 0x26) {
        image_exposure_mode_set("manual");
        image_gain_set((v - 8) / 2);
    } else {
        return Outcome::OutOfRange;
    }
    return Outcome::Answer;
}

Outcome gain_inquiry(Request& r, int) {
    const int gain = image_gain_get();
    if (gain < 0) return Outcome::OutOfRange;
    if (image_exposure_mode_get() == 0)
        r.text = "OGU:80";
    else
        set_text(r, "OGU:%02x", (gain + 4) * 2);
    return Outcome::Answer;
}

// 3D noise reduction: the camera operation's levels 0..4, and 5 for off.
constexpr int kNoiseReductionOff = 5;

Outcome noise_reduction_switch(Request& r, int) {
    if (const auto v = hex(r)) image_nr3d_set(*v != 0 ? 0 : kNoiseReductionOff);
    return Outcome::Answer;
}

Outcome noise_reduction_inquiry(Request& r, int) {
    r.text = (image_nr3d_get() == kNoiseReductionOff) ? "OSD:3A:0" : "OSD:3A:1";
    return Outcome::Answer;
}

// Levels 1..6 of the protocol; refused while noise reduction is off.
Outcome noise_reduction_level(Request& r, int) {
    if (image_nr3d_get() == kNoiseReductionOff) return Outcome::OutOfRange;
    if (const auto v = decimal(r)) image_nr3d_set(*v - 1);
    return Outcome::Answer;
}

// Gamma: the protocol sends 103 + 3 * level.
Outcome gamma_set(Request& r, int) {
    if (const auto v = hex(r)) image_gamma_set((*v - 103) / 3);
    return Outcome::Answer;
}

Outcome gamma_inquiry(Request& r, int) {
    set_text(r, "OSA:6A:%02x", image_gamma_get() * 3 + 103);
    return Outcome::Answer;
}

Outcome backlight_set(Request& r, int) {
    if (const auto v = decimal(r)) image_backlight_set(*v);
    return Outcome::Answer;
}

Outcome backlight_inquiry(Request& r, int) {
    set_text(r, "OSE:73:%d", image_backlight_get());
    return Outcome::Answer;
}

// First chain, in matching order.
constexpr auto kActionLines = std::to_array<Line>({
    {"OAF:", 5, auto_focus_set, 0, ""},
    {"OAF", 0, auto_focus_inquiry, 0, ""},
    {"OSE:69:1", 0, nullptr, 0, ""},
    {"HFF", 0, focus_drive, 2, ""},
    {"HFN", 0, focus_drive, 1, ""},
    {"HFS", 0, focus_drive, 0, ""},
    {"LFS:", 5, store_speed, 0, ""},
    {"OSJ:28:", 12, nullptr, 0, ""},
    {"ORS:", 5, nullptr, 0, ""},
    {"ORS", 0, nullptr, 0, "ORS:0"},
    {"OSD:48:", 9, nullptr, 0, ""},
    {"OSD:48", 0, nullptr, 0, "OSD:48:0"},
    {"OSI:1D:", 9, nullptr, 0, ""},
    {"OSI:1D", 0, nullptr, 0, "OSI:1D:0"},
});

// Second chain, in matching order.
constexpr auto kAnswerLines = std::to_array<Line>({
    {"HZT", 0, zoom_drive, 1, ""},
    {"HZW", 0, zoom_drive, 2, ""},
    {"LZS:", 5, store_speed, 1, ""},
    {"OFT:", 5, nd_set, 0, ""},
    {"OFT", 0, nd_inquiry, 0, ""},
    {"QSI:18", 0, lens_status, 0, ""},
    {"OSH:", 5, shutter_step_set, 0, ""},
    {"QSH", 0, shutter_step_inquiry, 0, ""},
    {"OMS:", 5, nullptr, 0, ""},
    {"OMS", 0, nullptr, 0, "OMS:001"},
    {"OSD:BF:", 8, nullptr, 0, ""},
    {"OSD:BF", 0, nullptr, 0, "OSD:BF:1"},
    {"OSG:59:", 8, nullptr, 0, ""},
    {"OSG:59", 0, nullptr, 0, "OSG:59:1"},
    {"OSG:5A:", 8, nullptr, 0, ""},
    {"OSG:5A", 0, nullptr, 0, "OSG:5A:1"},
    {"OSG:5D:", 9, nullptr, 0, ""},
    {"OSG:5D", 0, nullptr, 0, "OSG:5D:04"},
    {"OSJ:03:", 8, nullptr, 0, ""},
    {"OSJ:03", 0, nullptr, 0, "OSJ:03:0"},
    {"OSJ:04:", 9, nullptr, 0, ""},
    {"OSJ:05:", 9, nullptr, 0, ""},
    {"OSJ:06:", 11, shutter_speed_set, 0, ""},
    {"OSJ:06", 0, shutter_speed_inquiry, 0, ""},
    {"OSJ:07:", 9, nullptr, 0, ""},
    {"OSJ:08:", 9, nullptr, 0, ""},
    {"OSJ:09:", 12, shutter_speed_set, 1, ""},
    {"OSJ:09", 0, shutter_speed_inquiry, 1, ""},
    {"OGU:", 6, gain_set, 0, ""},
    {"OGU", 0, gain_inquiry, 0, ""},
    {"OSD:69:", 9, nullptr, 0, ""},
    {"OSD:69", 0, nullptr, 0, "OSD:69:01"},
    {"OGS:", 6, nullptr, 0, ""},
    {"OGS", 0, nullptr, 0, "OGS:04"},
    {"OSA:50:", 9, nullptr, 0, ""},
    {"OSA:51:", 9, nullptr, 0, ""},
    {"OSA:52:", 9, nullptr, 0, ""},
    {"OSA:50", 0, nullptr, 0, "OSA:50:7C"},
    {"OSA:51", 0, nullptr, 0, "OSA:51:7C"},
    {"OSA:52", 0, nullptr, 0, "OSA:52:7C"},
    {"OSA:60:", 8, nullptr, 0, ""},
    {"OSA:60", 0, nullptr, 0, "OSA:60:0"},
    {"OSA:28:", 8, nullptr, 0, ""},
    {"OSA:28", 0, nullptr, 0, "OSA:28:0"},
    {"OWS", 0, nullptr, 0, "OWS"},
    {"OSA:88:", 8, nullptr, 0, ""},
    {"OSA:88", 0, nullptr, 0, "OSA:88:0"},
    {"OAW:", 5, nullptr, 0, ""},
    {"OAW", 0, nullptr, 0, "OAW:0"},
    {"OAS", 0, nullptr, 0, "OAS"},
    {"OSD:B1:", 10, nullptr, 0, ""},
    {"OSD:B1", 0, nullptr, 0, "OSD:B1:02B"},
    {"OSD:1E:", 8, nullptr, 0, ""},
    {"OSD:1F:", 8, nullptr, 0, ""},
    {"ODT:", 5, nullptr, 0, ""},
    {"ODT", 0, nullptr, 0, "ODT:0"},
    {"OSD:3A:", 9, noise_reduction_switch, 0, ""},
    {"OSD:3A", 0, noise_reduction_inquiry, 0, ""},
    {"OSG:B5:", 8, noise_reduction_level, 0, ""},
    {"OSE:33:", 8, nullptr, 0, ""},
    {"OSE:33", 0, nullptr, 0, "OSE:33:0"},
    {"OSE:72:", 8, nullptr, 0, ""},
    {"OSE:72", 0, nullptr, 0, "OSE:72:1"},
    {"OSD:50:", 8, nullptr, 0, ""},
    {"OSD:50", 0, nullptr, 0, "OSD:50:1"},
    {"OSA:6A:", 9, gamma_set, 0, ""},
    {"OSA:6A", 0, gamma_inquiry, 0, ""},
    {"OSE:73:", 8, backlight_set, 0, ""},
    {"OSE:73", 0, backlight_inquiry, 0, ""},
});

// A chain compiled: its records and the handlers they name.
template <auto& Lines>
struct Chain {
    static constexpr auto handlers = distinct_of<Lines, &Line::run>();
    static constexpr auto rows = compile_lines<Lines, [](const Line& l, auto& texts) {
        return Row{texts.add(l.pattern), texts.add(l.answer), l.length, place_in(handlers, l.run),
                   narrow<int8_t>(l.arg)};
    }>();
};
using Actions = Chain<kActionLines>;
using Answers = Chain<kAnswerLines>;

// Runs the first row of the chain that matches; false when none does.
template <typename C>
bool run_first(Request& r, Outcome& outcome) {
    for (const Row& row : C::rows) {
        const std::string_view pattern = C::rows[row.pattern];
        if (!command_matches(r.command, pattern, row.length)) continue;
        r.param = (row.length != 0) ? r.command.substr(pattern.size()) : std::string_view{};
        r.text = row.answer.len == 0 ? std::string(r.command) : std::string(C::rows[row.answer]);
        outcome = row.run ? C::handlers[row.run](r, row.arg) : Outcome::Answer;
        return true;
    }
    return false;
}

// The command text: what follows "cmd=", up to the next '&'.
std::string_view command_of(const char* argument) {
    if (!argument) return {};
    const char* at = std::strstr(argument, "cmd=");
    if (!at) return {};
    std::string_view command(at + 4);
    return command.substr(0, command.find('&'));
}

}  // namespace

int aw_cam(const char* argument) {
    Request request;
    request.command = command_of(argument);

    Outcome outcome = Outcome::Answer;
    run_first<Actions>(request, outcome);

    request.text.clear();
    outcome = Outcome::Answer;
    if (!run_first<Answers>(request, outcome)) {
        answer_refusal('1', request.command);
        return -1;
    }
    if (outcome == Outcome::OutOfRange) {
        answer_refusal('3', request.command);
        return -1;
    }
    answer_text(request.text);
    return 0;
}
