// The camera command set's movements: zoom, focus and pan-tilt drives by
// direction and speed, and the absolute moves, over the runner's rows.
#include <cstdint>
#include <iterator>
#include <string_view>

#include "camera/image_ctrl.h"
#include "camera/image_runner.h"
#include "camera/visca_ops.h"
#include "support/log.h"

using namespace camera_run;
using visca::Row;
using visca::row;

namespace {

struct Direction {
    std::string_view log;
    int direction;
};
constexpr Direction kZoomDirections[] = {{"Zoom Stop\n", 0}, {"Zoom In\n", 1}, {"Zoom Out\n", 2}};
constexpr Direction kFocusDirections[] = {{"Focus Stop\n", 0}, {"Focus Near\n", 1}, {"Focus Far\n", 2}};

enum class PtzPacket : uint8_t { Drive, Home, Reset };
struct PtzAction {
    std::string_view log;
    PtzPacket packet;
    uint8_t pan;   // 01 left, 02 right, 03 none
    uint8_t tilt;  // 01 up, 02 down, 03 none
};
constexpr PtzAction kPtzActions[] = {
    {"PTZ Stop\n", PtzPacket::Drive, 3, 3},       {"PTZ Up\n", PtzPacket::Drive, 3, 1},
    {"PTZ Down\n", PtzPacket::Drive, 3, 2},       {"PTZ Left\n", PtzPacket::Drive, 1, 3},
    {"PTZ Right\n", PtzPacket::Drive, 2, 3},      {"PTZ Home\n", PtzPacket::Home, 0, 0},
    {"PTZ Reset\n", PtzPacket::Reset, 0, 0},      {"PTZ Up Left\n", PtzPacket::Drive, 1, 1},
    {"PTZ Down Left\n", PtzPacket::Drive, 1, 2},  {"PTZ Up Right\n", PtzPacket::Drive, 2, 1},
    {"PTZ Down Right\n", PtzPacket::Drive, 2, 2},
};

}  // namespace

// ---- drives ------------------------------------------------------------------------------
int image_zoom_ctrl(int direction, int speed) {
    if (speed < 0 || speed > 7) return -1;
    for (const Direction& d : kZoomDirections) {
        if (d.direction != direction) continue;
        LOG_DBG("%s", d.log.data());
        return op_set(row("zoom drive"), drive_byte(direction, speed));
    }
    return -1;
}

// Focus moves only in manual focus, so every drive (a stop too) switches to it first.
int image_focus_ctrl(int direction, int speed) {
    if (speed < 0 || speed > 7) return -1;
    for (const Direction& d : kFocusDirections) {
        if (d.direction != direction) continue;
        LOG_DBG("%s", d.log.data());
        int manual = op_send(row("focus manual"));
        int drive = op_set(row("focus drive"), drive_byte(direction, speed));
        return manual < 0 || drive < 0 ? -1 : 0;
    }
    return -1;
}

int image_ptz_ctrl(int action, int speed) {
    if (speed < 0 || speed > 24 || action < 0 || action >= static_cast<int>(std::size(kPtzActions)))
        return -1;
    const PtzAction& a = kPtzActions[action];
    LOG_DBG("%s", a.log.data());
    if (a.packet == PtzPacket::Home) return op_send(row("pan tilt home"));
    if (a.packet == PtzPacket::Reset) return op_send(row("pan tilt reset"));
    return op_set(row("pan tilt drive"), drive_word(speed, speed, a.pan, a.tilt));
}

int image_ptz_drive(int pan_dir, int pan_speed, int tilt_dir, int tilt_speed) {
    const Row& r = row("pan tilt drive");
    Buf buf = load(r);
    put(buf, r, drive_word(pan_speed, tilt_speed, pan_dir, tilt_dir), r.pos);
    send_after_flush(r, buf);
    return 0;
}

int image_abs_position(int zoom, int focus, int pan, int tilt) {
    const Row* lens = zoom != -1 && focus != -1 ? &row("abs zoom focus")
                      : zoom != -1              ? &row("abs zoom")
                      : focus != -1             ? &row("abs focus")
                                                : nullptr;
    if (lens) {
        Buf buf = load(*lens);
        int pos = lens->pos;
        if (zoom != -1) {
            put(buf, *lens, zoom, pos);
            pos += 4;
        }
        if (focus != -1) put(buf, *lens, focus, pos);
        send_after_flush(*lens, buf);
    }
    if (pan == -1 && tilt == -1) return 0;
    if (pan == -1 || tilt == -1) {
        // One axis: keep the other where the head is now (0 if unknown).
        int16_t cur_pan = 0, cur_tilt = 0;
        if (image_pt_pos_get(&cur_pan, &cur_tilt) < 0) cur_pan = cur_tilt = 0;
        if (pan == -1) pan = cur_pan;
        if (tilt == -1) tilt = cur_tilt;
    }
    send_pan_tilt(pan, tilt);
    return 0;
}

// Unchecked drives of the remote-control protocol.
int image_zoom_drive(int direction, int speed) {
    return op_set(row("zoom drive"), drive_byte(direction, speed));
}
int image_focus_drive(int direction, int speed) {
    int manual = op_send(row("focus manual"));
    int drive = op_set(row("focus drive"), drive_byte(direction, speed));
    return manual < 0 || drive < 0 ? -1 : 0;
}
int image_ptz_home() { return op_send(row("pan tilt home")); }
