// Interpreter of the "aw_cam?" queries of the camera remote-control protocol.
#pragma once

int aw_cam(const char* argument);
