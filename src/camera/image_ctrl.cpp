// The camera command set: each named operation is one line over the runner
// below, which copies a row's packet template, writes the value in, sends it
// and decodes the reply as the row says.
#include "camera/image_ctrl.h"

#include <arpa/inet.h>
#include <strings.h>
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <vector>
#include <string>
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "camera/image_runner.h"
#include "camera/visca_ops.h"
#include "ipc/CamMsgDrv.h"
#include "ipc/sys_port.h"
#include "platform/platform.h"
#include "support/log.h"
#include "support/support.h"

using visca::Enc;
using visca::Form;
using visca::Kind;
using visca::Row;
using visca::row;

namespace camera_run {

// ---- transport ---------------------------------------------------------------------
// Nothing leaves that the camera-control process could mis-frame: a packet
// whose inside holds a terminator or an address byte is refused here, as a
// failed send.
// Once the camera has let one reply time out, the rest of the request does
// not wait for it again: every further inquiry fails at once.
bool g_camera_silent = false;

bool refused(const uint8_t* packet, int length) {
    if (visca::framed(packet, length)) return false;
    LOG_ERR("packet refused: a value breaks its framing\n");
    return true;
}

// The real channel's answer with its time-out told apart: -2.
int real_wait(uint8_t* packet, int length, int* capacity) {
    const int result = TramsMsg2Cam(packet, length, capacity);
    return result < 0 && CamMsgLastTimedOut() != 0 ? -2 : result;
}

int chan_wait(uint8_t* packet, int length, int* capacity) {
    if (refused(packet, length) || g_camera_silent) return -1;
    const int result = platform_pick(&Platform::camera_wait, real_wait)(packet, length, capacity);
    if (result == -2) g_camera_silent = true;
    return result < 0 ? -1 : result;
}
int chan_nowait(const uint8_t* packet, int length) {
    if (refused(packet, length)) return -1;
    return platform_pick(&Platform::camera_send, TramsMsg2CamNowait)(packet, length);
}
void chan_flush() { platform_pick(&Platform::camera_flush, FlushMsgFromCam)(); }

// ---- packets -----------------------------------------------------------------------
Buf load(const Row& r) {
    Buf buf;
    std::memcpy(buf.b.data(), r.packet.b.data(), r.packet.len);
    buf.len = r.packet.len;
    return buf;
}

void put_nibbles(Buf& buf, int pos, unsigned value, int count) {
    for (int i = 0; i < count; ++i)
        buf.b[pos + i] = static_cast<uint8_t>((value >> (4 * (count - 1 - i))) & 0x0F);
}

// Writes `value` at the row's position in the row's encoding (choices are
// already turned into their code). False when the value has no encoding.
bool put(Buf& buf, const Row& r, int value, int pos) {
    const unsigned u = static_cast<unsigned>(value);
    switch (r.enc) {
    case Enc::None: return true;
    case Enc::Byte:  // a whole byte above 7F is no value: it would break the framing
        if (u > visca::kValueMax) return false;
        buf.b[pos] = static_cast<uint8_t>(u);
        return true;
    case Enc::Choice: buf.b[pos] = static_cast<uint8_t>(u); return true;
    case Enc::Nibble: buf.b[pos] = static_cast<uint8_t>(u & 0x0F); return true;
    case Enc::Mask7F: buf.b[pos] = static_cast<uint8_t>(u & 0x7F); return true;
    case Enc::Flag: buf.b[pos] = value ? 0x02 : 0x03; return true;
    case Enc::Nib2: put_nibbles(buf, pos, u & 0xFF, 2); return true;
    case Enc::Nib4: put_nibbles(buf, pos, u & 0xFFFF, 4); return true;
    case Enc::Nib8: put_nibbles(buf, pos, u, 8); return true;
    case Enc::Bytes4:
        for (int i = 0; i < 4; ++i) buf.b[pos + i] = static_cast<uint8_t>(u >> (8 * i));
        return true;
    case Enc::Index:
        if (value < 0 || static_cast<size_t>(value) >= r.codes().size()) return false;
        buf.b[pos] = r.codes()[value];
        return true;
    }
    return false;
}

// Sends a command as its row says: without waiting, or waiting for the reply
// (with the row's reply capacity, or none). 0 or -1.
int send(const Row& r, Buf& buf) {
    if (r.kind == Kind::SetWait) {
        int capacity = r.reply;
        return chan_wait(buf.b.data(), buf.len, r.reply ? &capacity : nullptr) < 0 ? -1 : 0;
    }
    return chan_nowait(buf.b.data(), buf.len) < 0 ? -1 : 0;
}

// Sends an inquiry and leaves the reply in `buf`; the reply count, or -1.
int ask(Buf& buf, int capacity) {
    int n = chan_wait(buf.b.data(), buf.len, &capacity);
    if (n < 0) return -1;
    return n < visca::kBufSize ? n : visca::kBufSize;
}
int ask(const Row& r, Buf& buf) { return ask(buf, r.reply ? r.reply : r.packet.len); }

int nibbles(const Buf& buf, int pos) {
    return (buf.b[pos] & 0x0F) << 12 | (buf.b[pos + 1] & 0x0F) << 8 | (buf.b[pos + 2] & 0x0F) << 4 |
           (buf.b[pos + 3] & 0x0F);
}
int le16(const Buf& buf, int pos) { return buf.b[pos] | buf.b[pos + 1] << 8; }

// Reads a reply of `n` bytes in the given form; -1 when it is too short or
// not a completion where one is expected.
int decode(Form form, const Buf& buf, int n) {
    const bool completion = n >= 3 && buf.b[1] == 0x50;
    switch (form) {
    case Form::B0: return n >= 1 ? buf.b[0] : -1;
    case Form::W0: return n >= 2 ? le16(buf, 0) : -1;
    case Form::P2: return completion ? buf.b[2] : -1;
    case Form::P2Flag: return completion ? (buf.b[2] == 0x02 ? 1 : 0) : -1;
    case Form::P4: return completion && n >= 6 ? nibbles(buf, 2) : -1;
    case Form::P4Signed: return completion && n >= 6 ? static_cast<int16_t>(nibbles(buf, 2)) : -1;
    case Form::Raw: return -1;
    }
    return -1;
}

// ---- the runner ----------------------------------------------------------------------
int op_get(const Row& r, Buf& buf) {
    int n = ask(r, buf);
    if (n < 0) return -1;
    if (r.exact && n != r.exact) return -1;
    return decode(r.form, buf, n);
}
int op_get(const Row& r) {
    Buf buf = load(r);
    return op_get(r, buf);
}

// The mode gate: asks the row's inquiry first and lets the setter through
// only in one of the modes it allows.
bool gate_open(const Row& r) {
    if (r.gate == visca::kNoGate) return true;
    int mode = op_get(visca::kRows[r.gate]);
    return mode >= 0 && mode < 16 && (r.modes >> mode & 1);
}

// -2 when the value has no encoding (nothing is sent), -1 when the gate or
// the channel failed, 0 when sent.
int op_put_send(const Row& r, int value) {
    Buf buf = load(r);
    if (!put(buf, r, value, r.pos)) return -2;
    if (!gate_open(r)) return -1;
    return send(r, buf);
}
// The setters' own convention: 0 or -1.
int op_set(const Row& r, int value) { return op_put_send(r, value) < 0 ? -1 : 0; }
int op_send(const Row& r) { return op_set(r, 0); }

int op_choose(const Row& r, const char* word) {
    const WordCode* w = word_find(r.words(), word);
    return w != nullptr ? op_set(r, w->code) : -1;
}

// The pan-tilt drive's four value bytes as the row's argument.
int drive_word(int pan_speed, int tilt_speed, int pan_dir, int tilt_dir) {
    const auto byte = [](int v) { return static_cast<unsigned>(v) & 0xFFu; };
    return static_cast<int>(byte(pan_speed) | byte(tilt_speed) << 8 | byte(pan_dir) << 16 |
                            byte(tilt_dir) << 24);
}

// Zoom and focus drive byte: 2p moves one way, 3p the other, 00 stops.
int drive_byte(int direction, int speed) {
    if (direction == 1) return 0x20 | (speed & 0x0F);
    if (direction == 2) return 0x30 | (speed & 0x0F);
    return 0x00;
}

// Absolute moves: each send is preceded by dropping stale replies.
int send_after_flush(const Row& r, Buf& buf) {
    chan_flush();
    return send(r, buf);
}

void send_pan_tilt(int pan, int tilt) {
    const Row& r = row("abs pan tilt");
    Buf buf = load(r);
    put(buf, r, pan, r.pos);
    put(buf, r, tilt, r.pos + 4);
    send_after_flush(r, buf);
}

}  // namespace camera_run

using namespace camera_run;

namespace {

const visca::Format* format_by_code(int code) {
    for (const visca::Format& f : visca::kFormats)
        if (f.code == code) return &f;
    return nullptr;
}

}  // namespace

void image_ctrl_request_begin() { g_camera_silent = false; }

int image_row_set(const visca::Row& r, int value) { return op_put_send(r, value); }
int image_row_choose(const visca::Row& r, const char* word) { return op_choose(r, word); }
int image_row_get(const visca::Row& r) { return op_get(r); }

// ---- named choices -------------------------------------------------------------------
int image_focus_mode_get() { return op_get(row("image_focus_mode_get")); }
int image_focus_mode_set(const char* mode) { return op_choose(row("image_focus_mode_set"), mode); }
int image_focus_distance_get() { return op_get(row("image_focus_distance_get")); }
int image_focus_distance_set(const char* d) { return op_choose(row("image_focus_distance_set"), d); }
int image_focus_sensitivity_get() { return op_get(row("image_focus_sensitivity_get")); }
int image_focus_sensitivity_set(const char* l) { return op_choose(row("image_focus_sensitivity_set"), l); }
int image_exposure_mode_get() { return op_get(row("image_exposure_mode_get")); }
int image_exposure_mode_set(const char* mode) { return op_choose(row("image_exposure_mode_set"), mode); }
int image_wb_mode_get() { return op_get(row("image_wb_mode_get")); }
int image_wb_mode_set(const char* mode) { return op_choose(row("image_wb_mode_set"), mode); }

// ---- numeric settings: the row of each name, getter and setter ------------------------
#define IMAGE_DEFINE_TABLE_OP(name)                                         \
    int image_##name##_get() { return op_get(row("image_" #name "_get")); } \
    int image_##name##_set(int value) { return op_set(row("image_" #name "_set"), value); }
IMAGE_TABLE_OPS(IMAGE_DEFINE_TABLE_OP)
#undef IMAGE_DEFINE_TABLE_OP

// IR-cut filter: 2 is automatic switching; 1 and 0 switch that off first and
// then set the filter in or out. The answer is that of the last send.
int image_ircut_set(int value) {
    if (value == 2) return op_set(row("ircut auto set"), 1);
    op_set(row("ircut auto set"), 0);
    return op_set(row("ircut filter set"), value == 1);
}

// 2 when switching is automatic, else 1 with the filter in, 0 out. The filter
// inquiry asks for as many reply bytes as the first exchange brought back.
int image_ircut_get() {
    const Row& automatic = row("ircut auto get");
    Buf buf = load(automatic);
    int n = ask(automatic, buf);
    if (n < 0) return -1;
    if (n >= 1 && buf.b[0] == 1) return 2;
    const Row& filter = row("ircut filter get");
    Buf fbuf = load(filter);
    int m = ask(fbuf, n);
    if (m < 0) return -1;
    return decode(filter.form, fbuf, m);
}

// ---- positions -----------------------------------------------------------------------
int image_zoom_pos_get() { return op_get(row("image_zoom_pos_get")); }
int image_focus_pos_get() { return op_get(row("image_focus_pos_get")); }

// Pan at bytes 0-1 and tilt at bytes 4-5 of the reply, both little-endian.
int image_pt_pos_get(int16_t* pan, int16_t* tilt) {
    const Row& r = row("pan tilt position");
    Buf buf = load(r);
    int n = ask(r, buf);
    if (n < 0) return -1;
    if (n < 6) return -1;
    if (pan) *pan = static_cast<int16_t>(le16(buf, 0));
    if (tilt) *tilt = static_cast<int16_t>(le16(buf, 4));
    return 0;
}
int image_pan_pos_get() {
    int16_t pan = 0;
    return image_pt_pos_get(&pan, nullptr) < 0 ? -1 : pan;
}
int image_tilt_pos_get() {
    int16_t tilt = 0;
    return image_pt_pos_get(nullptr, &tilt) < 0 ? -1 : tilt;
}

// ---- video output format -----------------------------------------------------------
const char* image_resolution_get(int selector) {
    if (selector < 0 || selector >= static_cast<int>(std::size(visca::kOutputSelectors))) return nullptr;
    const Row& r = row("image_resolution_get");
    Buf buf = load(r);
    buf.b[4] = visca::kOutputSelectors[selector];
    int code = op_get(r, buf);
    if (code < 1 || code > visca::kFormatCodes) return nullptr;
    const visca::Format* f = format_by_code(code);
    return f ? f->text.data() : nullptr;
}

int image_resolution_set(int selector, const char* format) {
    if (selector < 0 || selector >= static_cast<int>(std::size(visca::kOutputSelectors)) || !format)
        return -1;
    for (const visca::Format& f : visca::kFormats) {
        if (!f.settable || !same_word(format, f.text)) continue;
        const Row& r = row("image_resolution_set");
        Buf buf = load(r);
        buf.b[4] = visca::kOutputSelectors[selector];
        put(buf, r, f.code, r.pos);
        return send(r, buf);
    }
    return -1;
}

// ---- feature position: two 16-bit values ----------------------------------------------
int image_feature_pos_get(int* first, int* second) {
    const Row& r = row("image_feature_pos_get");
    Buf buf = load(r);
    int a = op_get(r, buf);
    if (a < 0) return -1;
    if (first) *first = a;
    if (second) *second = nibbles(buf, 6);
    return 0;
}

int image_feature_pos_set(int first, int second) {
    const Row& r = row("image_feature_pos_set");
    Buf buf = load(r);
    put(buf, r, first, r.pos);
    put(buf, r, second, r.pos + 4);
    return send(r, buf);
}

// ---- presets and resets ----------------------------------------------------------------
int image_preset_query(int preset) {
    if (preset < 0 || preset > 255) return -1;
    const Row& r = row("image_preset_query");
    Buf buf = load(r);
    put_nibbles(buf, 4, static_cast<unsigned>(preset), 2);
    return op_get(r, buf);
}

// Action 0 stores the current position, 1 goes to it, 2 deletes it.
int image_preset_ctrl(int action, int preset) {
    if (action < 0 || action > 2 || preset < 0 || preset > 255) return -1;
    const Row& r = row("image_preset_ctrl");
    Buf buf = load(r);
    buf.b[4] = static_cast<uint8_t>(action);
    put(buf, r, preset, r.pos);
    return send(r, buf);
}

int image_params_reset(int value) { return value ? op_send(row("image_params_reset")) : value; }
int image_params_save(int value) { return value ? op_send(row("image_params_save")) : 0; }

// ---- identity ----------------------------------------------------------------------------
// The version inquiry answers 90 50, the version text, FF.
int image_camera_version(char* out, size_t size) {
    if (out == nullptr || size == 0) return -1;
    const Row& r = row("camera version");
    Buf buf = load(r);
    const int n = ask(r, buf);
    if (n < 3 || buf.b[1] != 0x50) return -1;
    const size_t length = std::min(static_cast<size_t>(n) - 3, size - 1);
    std::memcpy(out, buf.b.data() + 2, length);
    out[length] = '\0';
    return 0;
}

// Tells the camera module the device's address: 81 01 08 AB, each octet as
// its high and low nibble, FF; nothing is awaited.
int image_announce_addr(uint32_t addr) {
    return op_set(row("announce address"), static_cast<int>(ntohl(addr)));  // the first octet first
}

// The encoder board's address: 90 50, eight nibbles (two per octet, high
// first), FF.
uint32_t fpga_get_ip() {
    const Row& r = row("encoder board address");
    Buf buf = load(r);
    if (ask(r, buf) != r.exact || buf.b[1] != 0x50) return 0xFFFFFFFFu;
    uint32_t addr = 0;
    auto* octet = reinterpret_cast<uint8_t*>(&addr);  // network order: first octet first
    for (size_t i = 0; i < 4; ++i)
        octet[i] = static_cast<uint8_t>((buf.b[2 + 2 * i] & 0x0F) << 4 | (buf.b[3 + 2 * i] & 0x0F));
    return addr;
}

int image_encoder_reload() { return op_send(row("encoder reload")); }
