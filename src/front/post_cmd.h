// The small JSON commands posted to "sendPTZ" and "sendPreset".
#pragma once

int sendPTZ(const char* body);     // 0, or -1 when the body is unusable
int sendPreset(const char* body);  // 0 when a preset reply was sent, else -1

// Starts or stops a movement by its type (0..11); returns the result of the
// last packet sent, or 0 when the type sends nothing.
int json_ptz_ctrl(int type, int speed);
