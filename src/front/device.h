// Device summary and preview picture for controlling applications.
#pragma once

int device_path_route(const char* path);  // text after "path="; always 0
int device_summary();                     // 0, or -1 with nothing written
int device_preview();                     // 0; on failure the header alone
