// The camera command set: each named operation is one line over the runner
// below, which copies a row's packet template, writes the value in, sends it
// and decodes the reply as the row says.
#include "camera/image_ctrl.h"

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

#include "camera/visca_ops.h"
#include "ipc/CamMsgDrv.h"
#include "ipc/sys_port.h"
#include "support/log.h"
#include "support/support.h"

using visca::Enc;
using visca::Form;
using visca::Kind;
using visca::Row;
using visca::row;

namespace {

// ---- transport ---------------------------------------------------------------------
const CamTransport* g_transport = nullptr;

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

int chan_wait(uint8_t* packet, int length, int* capacity) {
    if (refused(packet, length) || g_camera_silent) return -1;
    if (g_transport && g_transport->wait) return g_transport->wait(packet, length, capacity);
    const int result = TramsMsg2Cam(packet, length, capacity);
    if (result < 0 && CamMsgLastTimedOut() != 0) g_camera_silent = true;
    return result;
}
int chan_nowait(const uint8_t* packet, int length) {
    if (refused(packet, length)) return -1;
    return g_transport && g_transport->nowait ? g_transport->nowait(packet, length)
                                              : TramsMsg2CamNowait(packet, length);
}
void chan_flush() {
    if (g_transport && g_transport->flush)
        g_transport->flush();
    else
        FlushMsgFromCam();
}

// ---- packets -----------------------------------------------------------------------
// The working copy of a template; replies are written back into it.
struct Buf {
    std::array<uint8_t, visca::kBufSize> b{};
    int len = 0;
};

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
    case Enc::Index:
        if (value < 0 || static_cast<size_t>(value) >= r.codes.size()) return false;
        buf.b[pos] = r.codes[value];
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
    if (r.gate.inquiry.empty()) return true;
    const Row* inquiry = nullptr;
    for (const Row& g : visca::kRows)
        if (g.name == r.gate.inquiry) inquiry = &g;
    if (!inquiry) return false;
    int mode = op_get(*inquiry);
    return mode >= 0 && mode < 16 && (r.gate.modes >> mode & 1);
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
    const WordCode* w = word_find(r.words, word);
    return w != nullptr ? op_set(r, w->code) : -1;
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

// ---- drive tables --------------------------------------------------------------------
struct Direction {
    std::string_view log;
    int direction;
};
constexpr Direction kZoomDirections[] = {{"Zoom Stop\n", 0}, {"Zoom In\n", 1}, {"Zoom Out\n", 2}};
constexpr Direction kFocusDirections[] = {{"Focus Stop\n", 0}, {"Focus Near\n", 1}, {"Focus Far\n", 2}};

enum class PtzPacket : uint8_t { Drive, Home, Reset };
struct PtzAction {
    std::string_view log;
    PtzPacket packet;
    uint8_t pan;   // 01 left, 02 right, 03 none
    uint8_t tilt;  // 01 up, 02 down, 03 none
};
constexpr PtzAction kPtzActions[] = {
    {"PTZ Stop\n", PtzPacket::Drive, 3, 3},       {"PTZ Up\n", PtzPacket::Drive, 3, 1},
    {"PTZ Down\n", PtzPacket::Drive, 3, 2},       {"PTZ Left\n", PtzPacket::Drive, 1, 3},
    {"PTZ Right\n", PtzPacket::Drive, 2, 3},      {"PTZ Home\n", PtzPacket::Home, 0, 0},
    {"PTZ Reset\n", PtzPacket::Reset, 0, 0},      {"PTZ Up Left\n", PtzPacket::Drive, 1, 1},
    {"PTZ Down Left\n", PtzPacket::Drive, 1, 2},  {"PTZ Up Right\n", PtzPacket::Drive, 2, 1},
    {"PTZ Down Right\n", PtzPacket::Drive, 2, 2},
};

const visca::Format* format_by_code(int code) {
    for (const visca::Format& f : visca::kFormats)
        if (f.code == code) return &f;
    return nullptr;
}

// ---- snapshot ------------------------------------------------------------------------
constexpr const char* kSnapFile = "/tmp/snap.jpg";
constexpr int kSnapPolls = 30;  // 100 ms apart: at most 3 s
constexpr size_t kSnapNameMax = 63;

// Named snapshots are links in the web root. Each new name would add one
// for good, so at most kSnapLinksMax are kept: before a new name is linked,
// the oldest links go until there is room (a name already there is only
// pointed anew).
constexpr const char* kSnapDir = "/opt/ipnc/www/images/snap";
constexpr size_t kSnapLinksMax = 32;

void snap_links_make_room(const char* name) {
    struct Link {
        std::string name;
        time_t made;
    };
    std::vector<Link> links;
    if (DIR* dir = opendir(kSnapDir)) {
        while (const dirent* e = readdir(dir)) {
            const std::string entry = e->d_name;
            if (entry == "." || entry == "..") continue;
            if (entry == name) {
                closedir(dir);
                return;
            }
            struct stat st {};
            const std::string full = std::string(kSnapDir) + "/" + entry;
            if (lstat(full.c_str(), &st) == 0 && S_ISLNK(st.st_mode)) links.push_back({entry, st.st_mtime});
        }
        closedir(dir);
    }
    if (links.size() < kSnapLinksMax) return;
    std::sort(links.begin(), links.end(), [](const Link& a, const Link& b) { return a.made < b.made; });
    for (size_t i = 0; i + kSnapLinksMax <= links.size(); ++i)
        unlink((std::string(kSnapDir) + "/" + links[i].name).c_str());
}

// A link name is a plain file name: letters, digits, '.', '_' and '-', not
// "." or "..", so it can neither leave the snapshot directory nor reach a shell.
bool snap_name_ok(const char* name) {
    size_t len = std::strlen(name);
    if (len == 0 || len > kSnapNameMax) return false;
    if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0) return false;
    for (size_t i = 0; i < len; ++i) {
        char c = name[i];
        bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
                  c == '_' || c == '-';
        if (!ok) return false;
    }
    return true;
}

}  // namespace

void image_ctrl_set_transport(const CamTransport* transport) { g_transport = transport; }
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
    std::array<uint8_t, 128> reply{0x81, 0x09, 0x00, 0x03, 0xFF};
    int capacity = static_cast<int>(reply.size());
    const int n = chan_wait(reply.data(), 5, &capacity);
    if (n < 3 || reply[1] != 0x50) return -1;
    const size_t length =
        std::min(static_cast<size_t>(std::min(n, static_cast<int>(reply.size()))) - 3, size - 1);
    std::memcpy(out, reply.data() + 2, length);
    out[length] = '\0';
    return 0;
}

// Tells the camera module the device's address: 81 01 08 AB, each octet as
// its high and low nibble, FF; nothing is awaited.
int image_announce_addr(uint32_t addr) {
    std::array<uint8_t, 13> packet{0x81, 0x01, 0x08, 0xAB};
    const auto* octet = reinterpret_cast<const uint8_t*>(&addr);  // network order: first octet first
    for (size_t i = 0; i < 4; ++i) {
        packet[4 + 2 * i] = static_cast<uint8_t>(octet[i] >> 4);
        packet[5 + 2 * i] = static_cast<uint8_t>(octet[i] & 0x0F);
    }
    packet[12] = 0xFF;
    return chan_nowait(packet.data(), static_cast<int>(packet.size())) < 0 ? -1 : 0;
}

// The encoder board's address: 90 50, eight nibbles (two per octet, high
// first), FF.
uint32_t fpga_get_ip() {
    std::array<uint8_t, 16> reply{0x81, 0x09, 0x08, 0xAB, 0xFF};
    int capacity = static_cast<int>(reply.size());
    if (chan_wait(reply.data(), 5, &capacity) != 11 || reply[1] != 0x50) return 0xFFFFFFFFu;
    uint32_t addr = 0;
    auto* octet = reinterpret_cast<uint8_t*>(&addr);  // network order: first octet first
    for (size_t i = 0; i < 4; ++i)
        octet[i] = static_cast<uint8_t>((reply[2 + 2 * i] & 0x0F) << 4 | (reply[3 + 2 * i] & 0x0F));
    return addr;
}

int image_encoder_reload() {
    static constexpr std::array<uint8_t, 5> kReload{0x81, 0x01, 0x08, 0xA0, 0xFF};
    return chan_nowait(kReload.data(), static_cast<int>(kReload.size()));
}

// ---- drives ------------------------------------------------------------------------------
int image_zoom_ctrl(int direction, int speed) {
    if (speed < 0 || speed > 7) return -1;
    for (const Direction& d : kZoomDirections) {
        if (d.direction != direction) continue;
        LOG_DBG("%s", d.log.data());
        return op_set(row("zoom drive"), drive_byte(direction, speed));
    }
    return -1;
}

// Focus moves only in manual focus, so every drive (a stop too) switches to it first.
int image_focus_ctrl(int direction, int speed) {
    if (speed < 0 || speed > 7) return -1;
    for (const Direction& d : kFocusDirections) {
        if (d.direction != direction) continue;
        LOG_DBG("%s", d.log.data());
        int manual = op_send(row("focus manual"));
        int drive = op_set(row("focus drive"), drive_byte(direction, speed));
        return manual < 0 || drive < 0 ? -1 : 0;
    }
    return -1;
}

int image_ptz_ctrl(int action, int speed) {
    if (speed < 0 || speed > 24 || action < 0 || action >= static_cast<int>(std::size(kPtzActions)))
        return -1;
    const PtzAction& a = kPtzActions[action];
    LOG_DBG("%s", a.log.data());
    if (a.packet == PtzPacket::Home) return op_send(row("pan tilt home"));
    if (a.packet == PtzPacket::Reset) return op_send(row("pan tilt reset"));
    const Row& r = row("pan tilt drive");
    Buf buf = load(r);
    buf.b[4] = buf.b[5] = static_cast<uint8_t>(speed);
    buf.b[6] = a.pan;
    buf.b[7] = a.tilt;
    return send(r, buf);
}

int image_ptz_drive(int pan_dir, int pan_speed, int tilt_dir, int tilt_speed) {
    const Row& r = row("pan tilt drive");
    Buf buf = load(r);
    buf.b[4] = static_cast<uint8_t>(pan_speed);
    buf.b[5] = static_cast<uint8_t>(tilt_speed);
    buf.b[6] = static_cast<uint8_t>(pan_dir);
    buf.b[7] = static_cast<uint8_t>(tilt_dir);
    send_after_flush(r, buf);
    return 0;
}

int image_abs_position(int zoom, int focus, int pan, int tilt) {
    const Row* lens = zoom != -1 && focus != -1 ? &row("abs zoom focus")
                      : zoom != -1              ? &row("abs zoom")
                      : focus != -1             ? &row("abs focus")
                                                : nullptr;
    if (lens) {
        Buf buf = load(*lens);
        int pos = lens->pos;
        if (zoom != -1) {
            put(buf, *lens, zoom, pos);
            pos += 4;
        }
        if (focus != -1) put(buf, *lens, focus, pos);
        send_after_flush(*lens, buf);
    }
    if (pan == -1 && tilt == -1) return 0;
    if (pan == -1 || tilt == -1) {
        // One axis: keep the other where the head is now (0 if unknown).
        int16_t cur_pan = 0, cur_tilt = 0;
        if (image_pt_pos_get(&cur_pan, &cur_tilt) < 0) cur_pan = cur_tilt = 0;
        if (pan == -1) pan = cur_pan;
        if (tilt == -1) tilt = cur_tilt;
    }
    send_pan_tilt(pan, tilt);
    return 0;
}

// Unchecked drives of the remote-control protocol.
int image_zoom_drive(int direction, int speed) {
    return op_set(row("zoom drive"), drive_byte(direction, speed));
}
int image_focus_drive(int direction, int speed) {
    int manual = op_send(row("focus manual"));
    int drive = op_set(row("focus drive"), drive_byte(direction, speed));
    return manual < 0 || drive < 0 ? -1 : 0;
}
int image_ptz_home() { return op_send(row("pan tilt home")); }

// ---- snapshot ------------------------------------------------------------------------
// Asks the system server for a still picture of width x height (system
// command 41, payload: mode, flag, width / 16, height / 16), waits up to 3 s
// for it to land in /tmp/snap.jpg and, given a name, links it by that name
// under the web's snapshot directory.
int image_snapshot(int mode, const char* name, int width, int height, int flag) {
    if (name && *name == '\0') name = nullptr;
    if (name && !snap_name_ok(name)) {
        LOG_ERR("invalid snapshot name\n");
        return -1;
    }
    if (mode < 0 || mode > 255 || flag < 0 || flag > 255 || width < 16 || width > 4080 || height < 16 ||
        height > 4080) {
        LOG_ERR("invalid snapshot parameters\n");
        return -1;
    }
    unlink(kSnapFile);
    uint8_t payload[4] = {static_cast<uint8_t>(mode), static_cast<uint8_t>(flag),
                          static_cast<uint8_t>(width / 16), static_cast<uint8_t>(height / 16)};
    if (sys_send_block<SysCmd::snapshot>(payload) < 0) {
        LOG_ERR("snapshot request failed\n");
        return -1;
    }
    bool present = false;
    for (int i = 0; i < kSnapPolls && !present; ++i) {
        present = access(kSnapFile, F_OK) == 0;
        if (!present) usleep(100 * 1000);
    }
    if (!present) {
        LOG_ERR("snapshot not taken\n");
        return -1;
    }
    if (pox_system("mkdir -p /opt/ipnc/www/images/snap") < 0) return -1;  // kSnapDir
    if (name) {
        snap_links_make_room(name);
        char cmd[160];
        std::snprintf(cmd, sizeof cmd, "ln -sf /tmp/snap.jpg %s/%s", kSnapDir, name);
        if (pox_system(cmd) < 0) return -1;
    }
    return 0;
}
