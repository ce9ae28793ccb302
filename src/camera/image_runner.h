// The runner of the camera command set, shared by its files (the settings
// in image_ctrl.cpp, the movements in image_drive.cpp): it copies a row's
// packet template, writes the value in, sends it and decodes the reply as
// the row says. Nothing outside the camera folder uses it.
#pragma once

#include <array>
#include <cstdint>

#include "camera/visca_ops.h"

namespace camera_run {

// The working copy of a template; replies are written back into it.
struct Buf {
    std::array<uint8_t, visca::kBufSize> b{};
    int len = 0;
};

Buf load(const visca::Row& r);
// Writes `value` at `pos` in the row's encoding; false when it has none.
bool put(Buf& buf, const visca::Row& r, int value, int pos);
// Sends a command as its row says (waiting or not): 0 or -1.
int send(const visca::Row& r, Buf& buf);
// Sends an inquiry and leaves the reply in `buf`: the reply count, or -1.
int ask(const visca::Row& r, Buf& buf);
// The row's value read from the camera, decoded as the row says, or -1.
int op_get(const visca::Row& r);
// A setter's value sent through its gate: 0 or -1; op_send for a fixed packet.
int op_set(const visca::Row& r, int value);
int op_send(const visca::Row& r);
// Drops stale replies, then sends.
int send_after_flush(const visca::Row& r, Buf& buf);
// The absolute pan-tilt move's packet for both axes.
void send_pan_tilt(int pan, int tilt);
// Zoom and focus drive byte: 2p moves one way, 3p the other, 00 stops.
int drive_byte(int direction, int speed);
// The pan-tilt drive's four value bytes as its row's argument.
int drive_word(int pan_speed, int tilt_speed, int pan_dir, int tilt_dir);

}  // namespace camera_run
