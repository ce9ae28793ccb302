#include "remote/aw_ptz.h"
int aw_ptz(const char*) { return -1; }
int json_ptz_zoom(int, int) { return -1; }
int json_ptz_focus(int, int) { return -1; }
int json_ptz_home() { return -1; }
