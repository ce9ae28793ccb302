#include "camera/image_ctrl.h"
int image_focus_mode_get() { return -1; }
int image_focus_mode_set(const char*) { return -1; }
int image_focus_distance_get() { return -1; }
int image_focus_distance_set(const char*) { return -1; }
int image_focus_sensitivity_get() { return -1; }
int image_focus_sensitivity_set(const char*) { return -1; }
int image_exposure_mode_get() { return -1; }
int image_exposure_mode_set(const char*) { return -1; }
int image_wb_mode_get() { return -1; }
int image_wb_mode_set(const char*) { return -1; }
#define STUB(name) int image_##name##_get() { return -1; } int image_##name##_set(int) { return -1; }
IMAGE_NUMERIC_OPS(STUB)
int image_zoom_pos_get() { return -1; }
int image_focus_pos_get() { return -1; }
int image_pan_pos_get() { return -1; }
int image_tilt_pos_get() { return -1; }
int image_pt_pos_get(int16_t*, int16_t*) { return -1; }
const char* image_resolution_get(int) { return nullptr; }
int image_resolution_set(int, const char*) { return -1; }
int image_feature_pos_get(int*, int*) { return -1; }
int image_feature_pos_set(int, int) { return -1; }
int image_preset_query(int) { return -1; }
int image_preset_ctrl(int, int) { return -1; }
int image_params_reset(int) { return -1; }
int image_params_save(int) { return -1; }
int image_zoom_ctrl(int, int) { return -1; }
int image_focus_ctrl(int, int) { return -1; }
int image_ptz_ctrl(int, int) { return -1; }
int image_ptz_drive(int, int, int, int) { return -1; }
int image_abs_position(int, int, int, int) { return -1; }
int image_zoom_drive(int, int) { return -1; }
int image_focus_drive(int, int) { return -1; }
int image_ptz_home() { return -1; }
int image_snapshot(int, const char*, int, int, int) { return -1; }
