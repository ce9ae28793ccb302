// Interpreter of the "aw_ptz?" queries of the camera remote-control protocol.
#pragma once

int aw_ptz(const char* argument);
// Drives shared with the POST commands; sent without waiting for an answer.
int json_ptz_zoom(int direction, int speed);   // 0 stop, 1 in, 2 out
int json_ptz_focus(int direction, int speed);  // 0 stop, 1 near, 2 far
int json_ptz_home();
