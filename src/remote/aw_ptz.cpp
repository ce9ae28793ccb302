// "aw_ptz?cmd=..." : pan-tilt head, zoom, focus, presets, standby and the
// position and status answers of the remote-control protocol.
#include "remote/aw_ptz.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

#include "camera/image_ctrl.h"
#include "cgi/reply.h"
#include "ipc/sys_port.h"
#include "records/records.h"
#include "remote/remote_common.h"
#include "support/compiled.h"
#include "support/log.h"

using namespace remote;

namespace {

// State of one request. The parameter slots start at zero; a conversion that
// finds no digit leaves its slot as it was.
struct Request {
    std::array<int32_t, 4> slot{};
    std::array<int, 5> value{};  // numbers for the row's reply format
    std::string text;            // reply built by the handler itself
};

// A handler returns 0, or -1 when a camera or system operation failed.
using Handler = int (*)(Request&, int arg);

struct Line {
    std::string_view pattern;  // exact text, or the prefix when length != 0
    uint8_t length;            // 0: exact comparison
    std::string_view fields;   // conversions after the prefix (see scan_fields)
    Handler run;
    int arg;
    std::string_view reply;  // printf format over Request::value; empty: Request::text
};

// A line as the build compiles it (texts by offset, the handler by place).
struct Row {
    Text pattern, fields, reply;
    uint8_t length;
    uint8_t run;
    int8_t arg;
};

void appendf(std::string& out, const char* format, ...) __attribute__((format(printf, 2, 3)));
void appendf(std::string& out, const char* format, ...) {
    char buffer[64];
    va_list ap;
    va_start(ap, format);
    const int n = std::vsnprintf(buffer, sizeof buffer, format, ap);
    va_end(ap);
    if (n > 0) out.append(buffer, std::min(static_cast<size_t>(n), sizeof buffer - 1));
}

// ---- live records ---------------------------------------------------------------

// Standby answer digit: 1 while the camera is awake.
int awake_digit(int& digit) {
    const SysState* state = sys_state(1);
    if (!state) return -1;
    digit = (state->standby == 0) ? 1 : 0;
    return 0;
}

struct Positions {
    int pan, tilt, zoom, focus;
};

int motor_positions(Positions& p) {
    CamInfo* cam = sys_cam_info();
    if (!cam) return -1;
    p = {cam->pan(), cam->tilt(), cam->zoom(), cam->focus()};
    return 0;
}

// ---- handlers ----------------------------------------------------------------------

// arg: 1 enter standby, 0 leave it, -1 only report.
int standby(Request& r, int arg) {
    if (arg >= 0) {
        if (sys_send_number<SysCmd::standby>(static_cast<uint32_t>(arg)) < 0) return -1;
    }
    return awake_digit(r.value[0]);
}

// arg: installation position to set, -1 only inquire. The camera keeps it
// under function code C0.
int install(Request& r, int arg) {
    if (arg >= 0 && image_reg_c0_set(arg) < 0) return -1;
    const int pos = image_reg_c0_get();
    if (pos < 0) return -1;
    r.value[0] = pos;
    return 0;
}

// arg 0: pan and tilt as received. arg 1: the four-value form, whose speed and
// table share storage with the pan and the tilt's low byte: the move uses pan 0
// and the tilt with its low byte cleared; speed and table are only echoed.
int pan_tilt_move(Request& r, int arg) {
    int pan = static_cast<int16_t>(r.slot[0]);
    int tilt = static_cast<int16_t>(r.slot[1]);
    if (arg == 1) {
        pan = 0;
        tilt = static_cast<int16_t>(r.slot[1] & 0xFF00);
    }
    if (image_abs_position(-1, -1, pan, tilt) < 0) return -1;
    r.value = {pan, tilt, r.slot[2], r.slot[3], 0};
    return 0;
}

int pan_tilt_inquiry(Request& r, int) {
    int16_t pan = 0, tilt = 0;
    if (image_pt_pos_get(&pan, &tilt) < 0) return -1;
    r.value[0] = pan;
    r.value[1] = tilt;
    return 0;
}

// arg: 0 "#P", 1 "#T", 2 "#PTS".
int pan_tilt_drive(Request& r, int arg) {
    constexpr Drive kStop{3, 10};
    Drive pan = kStop, tilt = kStop;
    if (arg == 0) pan = pan_tilt_speed(r.slot[0], kPanK);
    if (arg == 1) tilt = pan_tilt_speed(r.slot[0], kPanK);
    if (arg == 2) {
        pan = pan_tilt_speed(r.slot[0], kPanK);
        tilt = pan_tilt_speed(r.slot[1], kPtsTiltK);
    }
    image_ptz_drive(pan.direction, pan.speed, tilt.direction, tilt.speed);
    r.value = {r.slot[0], r.slot[1], 0, 0, 0};
    return 0;
}

// arg: 0 zoom, 1 focus.
int lens_move(Request& r, int arg) {
    const int target = position_to_motor(r.slot[0]);
    const int rc =
        (arg == 0) ? image_abs_position(target, -1, -1, -1) : image_abs_position(-1, target, -1, -1);
    if (rc < 0) return -1;
    r.value[0] = target;
    return 0;
}

// arg: 0 zoom, 1 focus.
int lens_position(Request& r, int arg) {
    Positions p{};
    if (motor_positions(p) < 0) return -1;
    r.value[0] = position_from_motor(arg == 0 ? p.zoom : p.focus);
    return 0;
}

// arg: 0 zoom, 1 focus.
int lens_drive(Request& r, int arg) {
    if (arg == 0) {
        const Drive d = zoom_speed(r.slot[0]);
        json_ptz_zoom(d.direction, d.speed);
    } else {
        const Drive d = focus_speed(r.slot[0]);
        json_ptz_focus(d.direction, d.speed);
    }
    r.value[0] = r.slot[0];
    return 0;
}

int focus_mode_set(Request& r, int) {
    image_focus_mode_set(r.slot[0] != 0 ? "auto" : "manual");
    r.value[0] = r.slot[0];
    return 0;
}

// The answer is "1" only when the inquiry reads 0.
int focus_mode_inquiry(Request& r, int) {
    r.value[0] = (image_focus_mode_get() == 0) ? 1 : 0;
    return 0;
}

// arg: 0 store, 1 recall, 2 clear.
int preset(Request& r, int arg) {
    image_preset_ctrl(arg, r.slot[0]);
    r.value[0] = r.slot[0];
    return 0;
}

// Answers the first parameter slot, or `arg` when it is not negative.
int echo_slot(Request& r, int arg) {
    r.value[0] = (arg >= 0) ? arg : r.slot[0];
    return 0;
}

int exposure_status(Request& r, int) {
    const int mode = image_exposure_mode_get();
    const int gain = image_gain_get();
    const int temperature = image_color_temperature_get();
    const int shutter = image_shutter_get();
    const int frame_rate = image_frame_rate_get();
    const int nd = image_nd_filter_get();
    if (mode < 0 || gain < 0 || temperature < 0 || shutter < 0 || frame_rate < 0) return -1;

    r.text = "pTG";
    if (mode != 0)
        appendf(r.text, "%02x", (gain + 4) * 2);
    else
        r.text += "80";
    appendf(r.text, "%04x", temperature);
    r.text += (mode == 1) ? '1' : (mode == 3) ? '2' : '3';
    const bool fifty = fifty_hertz_family(frame_rate);
    const ShutterPair pair = ptg_shutter(shutter, fifty);
    appendf(r.text, "%04x%05x", pair.speed, pair.tenths);
    if (fifty) appendf(r.text, "%d", nd < 0 ? 0 : nd);
    return 0;
}

int motor_status(Request& r, int) {
    Positions p{};
    if (motor_positions(p) < 0) return -1;
    r.value = {p.pan, p.tilt, position_from_motor(p.zoom), p.focus, 0xfff};
    return 0;
}

int iris_status(Request& r, int) {
    Positions p{};
    if (motor_positions(p) < 0) return -1;
    r.value = {p.pan, p.tilt, p.zoom, p.focus, iris_code(image_iris_get())};
    return 0;
}

// In matching order: the first row that matches handles the command.
constexpr auto kLines = std::to_array<Line>({
    {"#O0", 0, "", standby, 1, "p%d"},
    {"#Of", 0, "", standby, 1, "p%d"},
    {"#O1", 0, "", standby, 0, "p%d"},
    {"#On", 0, "", standby, 0, "p%d"},
    {"#O", 0, "", standby, -1, "p%d"},
    {"#INS0", 0, "", install, 0, "iNS%d"},
    {"#INS1", 0, "", install, 1, "iNS%d"},
    {"#INS", 0, "", install, -1, "iNS%d"},
    {"#APC", 12, "x4x4", pan_tilt_move, 0, "aPC%04x%04x"},
    {"#APC", 0, "", pan_tilt_inquiry, 0, "aPC%04x%04x"},
    {"#APS", 15, "x4x4x2x1", pan_tilt_move, 1, "aPC%04x%04x%02x%1x"},
    {"#RPC", 12, "x4x4", pan_tilt_move, 0, "rPC%04x%04x"},
    {"#RPS", 15, "x4x4x2x1", pan_tilt_move, 1, "rPS%04x%04x%02x%1x"},
    {"#P", 4, "d2", pan_tilt_drive, 0, "pS%02d"},
    {"#T", 4, "d2", pan_tilt_drive, 1, "pT%02d"},
    {"#PTS", 8, "d2d2", pan_tilt_drive, 2, "pTS%02d%02d"},
    {"#AXZ", 7, "x3", lens_move, 0, "axz%03x"},
    {"#AXZ", 0, "", lens_position, 0, "axz%03x"},
    {"#Z", 4, "d2", lens_drive, 0, "zS%02d"},
    {"#AXF", 7, "x3", lens_move, 1, "axf%03x"},
    {"#AXF", 0, "", lens_position, 1, "axf%03x"},
    {"#F", 4, "d2", lens_drive, 1, "fS%02d"},
    {"#D1", 4, "d0", focus_mode_set, 0, "d1%d"},
    {"#D1", 0, "", focus_mode_inquiry, 0, "d1%d"},
    {"#M", 4, "d2", preset, 0, "s%d"},
    {"#R", 4, "d2", preset, 1, "s%d"},
    {"#C", 4, "d2", preset, 2, "s%d"},
    {"#TAE", 5, "d0", echo_slot, -1, "tAE%d"},
    {"#TAE", 0, "", echo_slot, 1, "tAE%d"},
    {"#DA", 3, "", echo_slot, -1, "dA%d"},  // nothing to scan: the slot as it was
    {"#PTG", 0, "", exposure_status, 0, ""},
    {"#PTV", 0, "", motor_status, 0, "pTV%04x%04x%03x%03x%03x"},
    {"#PTD", 0, "", iris_status, 0, "pTD%04x%04x%03x%02x%02x"},
});
constexpr auto kHandlers = distinct_of<kLines, &Line::run>();
constexpr auto kRows = compile_lines<kLines, [](const Line& l, auto& texts) {
    return Row{texts.add(l.pattern),       texts.add(l.fields),  texts.add(l.reply), l.length,
               place_in(kHandlers, l.run), narrow<int8_t>(l.arg)};
}>();

}  // namespace

int aw_ptz(const char* argument) {
    if (!argument || std::strlen(argument) <= 4) {
        reply_error("Error params.");
        return -1;
    }
    std::string_view arg(argument);
    arg = arg.substr(0, arg.find('&'));
    const std::string_view command = arg.size() > 4 ? arg.substr(4) : std::string_view{};

    for (const Row& row : kRows) {
        const std::string_view pattern = kRows[row.pattern];
        if (!command_matches(command, pattern, row.length)) continue;
        // A row with parameters takes the command only when the first one has
        // a digit: "#PTG", "#PTV", "#PTD" and "#TAE" are not pan or tilt speeds.
        Request request;
        if (row.fields.len != 0 &&
            scan_fields(command.substr(pattern.size()), kRows[row.fields], request.slot) == 0)
            continue;
        if (kHandlers[row.run](request, row.arg) < 0) {
            LOG_ERR("camera operation failed\n");
            reply_error(std::string(arg).c_str());
            return -1;
        }
        if (row.reply.len != 0) {
            const auto& v = request.value;
            appendf(request.text, kRows.texts.c_str(row.reply), v[0], v[1], v[2], v[3], v[4]);
        }
        answer_text(request.text);
        return 0;
    }
    answer_refusal('1', command);
    return -1;
}

// What each drive direction logs: stop, then the two senses.
constexpr std::array<const char*, 3> kZoomLog{"Zoom Stop\n", "Zoom In\n", "Zoom Out\n"};
constexpr std::array<const char*, 3> kFocusLog{"Focus Stop\n", "Focus Near\n", "Focus Far\n"};

static const char* drive_log(const std::array<const char*, 3>& texts, int direction) {
    return texts[direction == 1 || direction == 2 ? direction : 0];
}

int json_ptz_zoom(int direction, int speed) {
    LOG_DBG("%s", drive_log(kZoomLog, direction));
    return image_zoom_drive(direction, speed);
}

int json_ptz_focus(int direction, int speed) {
    LOG_DBG("%s", drive_log(kFocusLog, direction));
    return image_focus_drive(direction, speed);
}

int json_ptz_home() {
    LOG_DBG("Home\n");
    return image_ptz_home();
}
