// The camera command set: one small operation per camera setting. This is
// the only code that builds VISCA packets. Setters return 0 or -1; getters
// return the decoded value or -1.
#pragma once

#include <cstddef>
#include <cstdint>

// ---- named-choice settings (words compared without regard to case) --------
int image_focus_mode_get();
int image_focus_mode_set(const char* mode);  // "auto", "manual"
int image_focus_distance_get();
int image_focus_distance_set(const char* distance);  // "1.5m" .. "10m"
int image_focus_sensitivity_get();
int image_focus_sensitivity_set(const char* level);  // "high", "middle", "low"
int image_exposure_mode_get();
int image_exposure_mode_set(const char* mode);
int image_wb_mode_get();
int image_wb_mode_set(const char* mode);

// ---- numeric settings -------------------------------------------------------
// The settings run straight from their two rows of the operation table
// ("image_<name>_get", "image_<name>_set"): this list is the one place that
// names them; image_ctrl.cpp defines them from it.
// clang-format off
#define IMAGE_TABLE_OPS(X)                                                                  \
    X(focus_area) X(shutter) X(anti_flicker) X(exposure_brightness) X(iris) X(gain)         \
    X(gain_limit) X(r_gain) X(b_gain) X(color_temperature) X(reg_c0) X(mirror) X(flip)      \
    X(freeze) X(backlight) X(gamma) X(digital_zoom) X(wdr_enable) X(wdr_level)              \
    X(brightness) X(sharpness) X(contrast) X(saturation) X(dc_iris) X(nd_filter) X(nr2d)    \
    X(nr3d) X(phantom_power) X(genlock_status) X(genlock_phase) X(genlock_phase_step)       \
    X(genlock_vertical) X(tally_bright) X(feature_size) X(fpga_mode) X(feature_set)         \
    X(frame_rate) X(abs_focus) X(preset_zoom_speed) X(preset_move_speed)
// clang-format on

#define IMAGE_DECLARE_NUMERIC(name) \
    int image_##name##_get();       \
    int image_##name##_set(int value);
IMAGE_TABLE_OPS(IMAGE_DECLARE_NUMERIC)
#undef IMAGE_DECLARE_NUMERIC

// The IR-cut filter: 2 automatic switching, 1 filter in, 0 out (two rows each way).
int image_ircut_get();
int image_ircut_set(int value);

// ---- read-only positions ----------------------------------------------------
int image_zoom_pos_get();
int image_focus_pos_get();
int image_pan_pos_get();
int image_tilt_pos_get();
int image_pt_pos_get(int16_t* pan, int16_t* tilt);  // 0 or -1

// ---- video output format (selector 0 main, 1 first SDI, 2 second SDI) --------
const char* image_resolution_get(int selector);  // null when unknown
int image_resolution_set(int selector, const char* format);

// ---- two-value feature position ------------------------------------------------
int image_feature_pos_get(int* first, int* second);  // 0 or -1
int image_feature_pos_set(int first, int second);

// ---- presets, resets -----------------------------------------------------------
int image_preset_query(int preset);             // first reply byte or -1
int image_preset_ctrl(int action, int preset);  // 0 store, 1 recall, 2 clear
int image_params_reset(int value);
int image_params_save(int value);

// ---- identity: the camera's version text, 0 or -1 ----------------------------------
int image_camera_version(char* out, size_t size);
// The device's IPv4 address (network byte order) told to the camera module.
int image_announce_addr(uint32_t addr);
// The encoder board's IPv4 address (network byte order), or 0xFFFFFFFF (-1).
uint32_t fpga_get_ip();
// Tells the encoder board to load its configuration again; the send's result.
int image_encoder_reload();

// ---- drives and moves ------------------------------------------------------------
int image_zoom_ctrl(int direction, int speed);   // 0 stop, 1 in, 2 out; speed 0..7
int image_focus_ctrl(int direction, int speed);  // 0 stop, 1 near, 2 far; speed 0..7
int image_ptz_ctrl(int action, int speed);       // actions 0..10; speed 0..24
int image_ptz_drive(int pan_dir, int pan_speed, int tilt_dir, int tilt_speed);
int image_abs_position(int zoom, int focus, int pan, int tilt);  // -1 leaves an axis

// Unchecked drives of the remote-control protocol: only the speed's low four
// bits reach the camera; any direction other than 1 or 2 stops.
int image_zoom_drive(int direction, int speed);   // 1 in, 2 out
int image_focus_drive(int direction, int speed);  // 1 near, 2 far (manual focus first)
int image_ptz_home();

// ---- snapshot: picture through the system server into /tmp/snap.jpg ----------------
int image_snapshot(int mode, const char* name, int width, int height, int flag);

// ---- any row of the operation table (camera/visca_ops.h) ----------------------------
namespace visca {
struct Row;
}
int image_row_set(const visca::Row& row, int value);            // 0, -1 failed, -2 value refused unsent
int image_row_choose(const visca::Row& row, const char* word);  // 0 or -1 (unknown word)
int image_row_get(const visca::Row& row);                       // decoded value or -1

// ---- the request's camera ---------------------------------------------------------
// Packets go through the installed platform's camera (the real command
// channel by default).
// Starts a request: the camera counts as answering again. Within a request,
// after one reply has timed out every further inquiry fails at once.
void image_ctrl_request_begin();
