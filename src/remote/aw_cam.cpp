#include "remote/aw_cam.h"
int aw_cam(const char*) { return -1; }
