// Camera-control process of the simulated camera.
//
// Serves the camera command queue (217701) as channel 1: every VISCA packet is
// journalled to run/visca.log, matched against one table of packet patterns
// and answered the way the camera's own firmware answers it. A motor thread
// moves pan, tilt, zoom and focus over time and publishes the positions (and
// the tracking settings) in the store segment of the system server.
// run/camsim.ctl holds the fault switches.
#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/shm.h>
#include <thread>
#include <vector>

#include "common/sim_env.h"
#include "records.h"

namespace {

using Clock = std::chrono::steady_clock;
using Bytes = std::vector<uint8_t>;

constexpr int kOwnChannel = 1;
constexpr uint8_t kEncoderBoardAddr[4] = {192, 168, 1, 101};
constexpr std::string_view kVersion = "V1.4.2";

// ---- image settings ---------------------------------------------------------

enum class Reg : uint8_t {
    FocusMode,
    FocusArea,
    FocusDistance,
    FocusSens,
    AbsFocus,
    ExpMode,
    Shutter,
    AntiFlicker,
    ExpBright,
    Iris,
    Gain,
    GainLimit,
    WbMode,
    RGain,
    BGain,
    ColorTemp,
    RegC0,
    Mirror,
    Flip,
    Freeze,
    Backlight,
    Gamma,
    DZoom,
    WdrEnable,
    WdrLevel,
    Brightness,
    Sharpness,
    Contrast,
    Saturation,
    DcIris,
    IrAuto,
    IrCut,
    NdFilter,
    Nr2d,
    Nr3d,
    VoFormat,
    Sdi1Format,
    Sdi2Format,
    Phantom,
    GenlockStatus,
    GenlockPhase,
    GenlockStep,
    GenlockVertical,
    Tally,
    FeatureSize,
    FpgaMode,
    FeatureSet,
    FeaturePos1,
    FeaturePos2,
    FrameRate,
    PresetZoomSpeed,
    PresetMoveSpeed,
    PtLimit,
    Count,
};

constexpr size_t kRegs = static_cast<size_t>(Reg::Count);

struct Default {
    Reg reg;
    int value;
};

// Power-on image settings, in the camera's own numbers.
constexpr Default kDefaults[] = {
    {Reg::FocusMode, 0},
    {Reg::FocusArea, 0},
    {Reg::FocusDistance, 2},
    {Reg::FocusSens, 2},
    {Reg::AbsFocus, 0},
    {Reg::ExpMode, 0},
    {Reg::Shutter, 11},
    {Reg::AntiFlicker, 0},
    {Reg::ExpBright, 7},
    {Reg::Iris, 5},
    {Reg::Gain, 0},
    {Reg::GainLimit, 15},
    {Reg::WbMode, 0},
    {Reg::RGain, 0x80},
    {Reg::BGain, 0x80},
    {Reg::ColorTemp, 5000},
    {Reg::RegC0, 0},
    {Reg::Mirror, 0},
    {Reg::Flip, 0},
    {Reg::Freeze, 0},
    {Reg::Backlight, 0},
    {Reg::Gamma, 0},
    {Reg::DZoom, 0},
    {Reg::WdrEnable, 0},
    {Reg::WdrLevel, 3},
    {Reg::Brightness, 7},
    {Reg::Sharpness, 7},
    {Reg::Contrast, 7},
    {Reg::Saturation, 7},
    {Reg::DcIris, 0x03},
    {Reg::IrAuto, 1},
    {Reg::IrCut, 0x03},
    {Reg::NdFilter, 0},
    {Reg::Nr2d, 2},
    {Reg::Nr3d, 2},
    {Reg::VoFormat, 0x1D},
    {Reg::Sdi1Format, 0x06},
    {Reg::Sdi2Format, 0x06},
    {Reg::Phantom, 0x03},
    {Reg::GenlockStatus, 0},
    {Reg::GenlockPhase, 0},
    {Reg::GenlockStep, 1},
    {Reg::GenlockVertical, 0},
    {Reg::Tally, 8},
    {Reg::FeatureSize, 0},
    {Reg::FpgaMode, 0},
    {Reg::FeatureSet, 0},
    {Reg::FeaturePos1, 0},
    {Reg::FeaturePos2, 0},
    {Reg::FrameRate, 30},
    {Reg::PresetZoomSpeed, 16},
    {Reg::PresetMoveSpeed, 16},
    {Reg::PtLimit, 0},
};

// Video output format codes the firmware knows (code - 1 indexes its table).
constexpr uint8_t kFormatCodes[] = {
    0x01, 0x02, 0x04, 0x06, 0x07, 0x08, 0x09, 0x0A, 0x0C, 0x0E, 0x0F, 0x11, 0x13, 0x1B, 0x1C,
    0x1D, 0x1E, 0x1F, 0x20, 0x21, 0x22, 0x23, 0x24, 0x25, 0x26, 0x2A, 0x2B, 0x2E, 0x2F,
};

bool known_format(int code) {
    return std::find(std::begin(kFormatCodes), std::end(kFormatCodes), code) != std::end(kFormatCodes);
}

// Sent code → the camera's own number.
struct MapEntry {
    int sent, own;
};
struct Map {
    const MapEntry* entries;
    size_t count;
};

constexpr MapEntry kFocusModeMap[] = {{0x02, 0}, {0x03, 1}};
constexpr MapEntry kExpModeMap[] = {{0x00, 0}, {0x03, 1}, {0x0A, 3}, {0x0B, 2}, {0x0D, 4}};
// Switches: 02 on / 03 off, and the plain 1 / 0 some panels send.
constexpr MapEntry kFlagMap[] = {{0x02, 1}, {0x03, 0}, {0x01, 1}, {0x00, 0}};
// Settings that report in completion form keep the sent code itself.
constexpr MapEntry kOnOffCodeMap[] = {{0x02, 0x02}, {0x03, 0x03}};
constexpr MapEntry kIrAutoMap[] = {{0x02, 1}, {0x03, 0}};
constexpr MapEntry kNr3dMap[] = {{0x01, 0}, {0x02, 1}, {0x03, 2}, {0x04, 3}, {0x05, 4}, {0x00, 5}};
constexpr MapEntry kPeopleChangeMap[] = {{0x02, 0x02}, {0x03, 0x03}};

#define MAP(m) (Map{m, std::size(m)})

// ---- motors -----------------------------------------------------------------

struct Axis {
    double pos = 0, lo = 0, hi = 0;
    enum class Mode { Idle, Drive, Target } mode = Mode::Idle;
    double rate = 0;  // units per second (signed while driving)
    double target = 0;

    void drive(double signed_rate) {
        mode = signed_rate == 0 ? Mode::Idle : Mode::Drive;
        rate = signed_rate;
    }
    void go(double where, double speed) {
        target = std::clamp(where, lo, hi);
        rate = speed;
        mode = Mode::Target;
    }
    void step(double dt) {
        if (mode == Mode::Drive) {
            pos = std::clamp(pos + rate * dt, lo, hi);
            if (pos == lo || pos == hi) mode = Mode::Idle;
        } else if (mode == Mode::Target) {
            const double d = target - pos;
            const double move = rate * dt;
            if (std::fabs(d) <= move) {
                pos = target;
                mode = Mode::Idle;
            } else {
                pos += d > 0 ? move : -move;
            }
        }
    }
    int value() const { return static_cast<int>(std::lround(pos)); }
};

constexpr double kLensRange = 0x4000;
constexpr double kHeadMin = -32768, kHeadMax = 32767;
// Absolute moves, presets and home cross the whole range in under a second.
constexpr double kHeadAbsRate = 81920, kLensAbsRate = 20480;

struct Position {
    int pan, tilt, zoom, focus;
};

// ---- the camera -------------------------------------------------------------

struct Camera {
    std::mutex mu;
    std::array<int, kRegs> reg{};
    Clock::time_point one_push_done{};
    Axis pan{0, kHeadMin, kHeadMax}, tilt{0, kHeadMin, kHeadMax};
    Axis zoom{0, 0, kLensRange}, focus{0x1000, 0, kLensRange};
    std::array<std::optional<Position>, 256> presets{};
    uint32_t announced_addr = 0;

    sim::Segment* store = nullptr;  // set by the motor thread once attached

    Camera() { reset_image(); }

    int& at(Reg r) { return reg[static_cast<size_t>(r)]; }

    void reset_image() {
        for (const Default& d : kDefaults) at(d.reg) = d.value;
    }

    // One-push white balance shows 3 while it measures, then settles to manual.
    void settle() {
        if (at(Reg::WbMode) == 3 && Clock::now() >= one_push_done) at(Reg::WbMode) = 5;
    }

    AiInfo* ai() {
        if (!store || !store->data()) return nullptr;
        return reinterpret_cast<AiInfo*>(store->at(offsetof(SysStore, ai), sizeof(AiInfo)));
    }

    Position position() const { return {pan.value(), tilt.value(), zoom.value(), focus.value()}; }
};

// ---- packet patterns --------------------------------------------------------

// A pattern is a row of tokens: two hex digits match that byte, "v" takes any
// byte, "n" takes a nibble (00..0F). The captured tokens fold into one value,
// 8 bits per "v" and 4 bits per "n", so "00 00 n n" is a byte and
// "n n n n" a 16-bit word.
struct Capture {
    std::array<int, 16> item{};
    std::array<uint8_t, 16> bits{};
    size_t count = 0;

    int value(size_t from = 0, size_t n = 16) const {
        int v = 0;
        for (size_t i = from; i < count && i < from + n; ++i) v = (v << bits[i]) | item[i];
        return v;
    }
};

struct Rule;
using Handler = Bytes (*)(Camera&, const Rule&, const Capture&, const uint8_t* pkt, size_t len);

struct Rule {
    const char* pattern;
    Handler fn;
    Reg reg = Reg::Count;
    Map map{nullptr, 0};
    int lo = 0, hi = 0xFFFF;  // accepted range of a taken value
    int aux = 0;              // handler specific (e.g. an AiInfo byte offset)
};

// Parsed once: -1 = byte, -2 = nibble, else the literal.
struct Compiled {
    std::vector<int> tok;
    const Rule* rule;
};

bool match(const Compiled& c, const uint8_t* pkt, size_t len, Capture& cap) {
    if (c.tok.size() != len) return false;
    cap.count = 0;
    for (size_t i = 0; i < len; ++i) {
        const int t = c.tok[i];
        if (t >= 0) {
            if (pkt[i] != t) return false;
        } else if (t == -2 && pkt[i] > 0x0F) {
            return false;
        }
        if (t < 0 && cap.count < cap.item.size()) {
            cap.item[cap.count] = pkt[i];
            cap.bits[cap.count] = t == -1 ? 8 : 4;
            ++cap.count;
        }
    }
    return true;
}

// ---- replies ----------------------------------------------------------------

Bytes completion() { return {0x90, 0x51, 0xFF}; }
Bytes syntax_error() { return {0x90, 0x60, 0x02, 0xFF}; }
Bytes not_executable() { return {0x90, 0x61, 0x41, 0xFF}; }

// First-byte form: as long as the inquiry, the value first, the end FF.
Bytes first_byte(int v, size_t len) {
    Bytes r(std::max<size_t>(len, 3), 0);
    r[0] = static_cast<uint8_t>(v);
    r.back() = 0xFF;
    return r;
}

// 16-bit little-endian word in bytes 0-1.
Bytes word16(int v, size_t len) {
    Bytes r(std::max<size_t>(len, 3), 0);
    r[0] = static_cast<uint8_t>(v & 0xFF);
    r[1] = static_cast<uint8_t>((v >> 8) & 0xFF);
    r.back() = 0xFF;
    return r;
}

Bytes completion_byte(int v) { return {0x90, 0x50, static_cast<uint8_t>(v), 0xFF}; }

void put_nibbles(Bytes& r, int v) {
    for (int shift = 12; shift >= 0; shift -= 4) r.push_back(static_cast<uint8_t>((v >> shift) & 0x0F));
}

Bytes completion_nibbles(std::initializer_list<int> values) {
    Bytes r{0x90, 0x50};
    for (int v : values) put_nibbles(r, v);
    r.push_back(0xFF);
    return r;
}

// ---- generic handlers ------------------------------------------------------

bool in_range(const Rule& r, int v) { return v >= r.lo && v <= r.hi; }

std::optional<int> mapped(const Map& m, int sent) {
    for (size_t i = 0; i < m.count; ++i)
        if (m.entries[i].sent == sent) return m.entries[i].own;
    return std::nullopt;
}

// Stores the captured value (through the rule's map when it has one).
Bytes set_reg(Camera& cam, const Rule& r, const Capture& c, const uint8_t*, size_t) {
    int v = c.value();
    if (r.map.count) {
        const auto own = mapped(r.map, v);
        if (!own) return syntax_error();
        v = *own;
    } else if (!in_range(r, v)) {
        return syntax_error();
    }
    cam.at(r.reg) = v;
    return completion();
}

Bytes get_first_byte(Camera& cam, const Rule& r, const Capture&, const uint8_t*, size_t len) {
    cam.settle();
    return first_byte(cam.at(r.reg), len);
}

Bytes get_word(Camera& cam, const Rule& r, const Capture&, const uint8_t*, size_t len) {
    return word16(cam.at(r.reg), len);
}

Bytes get_completion_byte(Camera& cam, const Rule& r, const Capture&, const uint8_t*, size_t) {
    return completion_byte(cam.at(r.reg));
}

Bytes get_completion_word(Camera& cam, const Rule& r, const Capture&, const uint8_t*, size_t) {
    return completion_nibbles({cam.at(r.reg)});
}

Bytes ack(Camera&, const Rule& r, const Capture& c, const uint8_t*, size_t) {
    if (r.map.count && !mapped(r.map, c.value())) return syntax_error();
    return completion();
}

// ---- special handlers ------------------------------------------------------

Bytes set_wb(Camera& cam, const Rule& r, const Capture& c, const uint8_t*, size_t) {
    const int v = c.value();
    if (!in_range(r, v)) return syntax_error();
    cam.at(Reg::WbMode) = v;
    if (v == 3) cam.one_push_done = Clock::now() + std::chrono::milliseconds(45);
    return completion();
}

Bytes set_format(Camera& cam, const Rule& r, const Capture& c, const uint8_t*, size_t) {
    if (!known_format(c.value())) return syntax_error();
    cam.at(r.reg) = c.value();
    return completion();
}

// Selector 74 is shared by the second SDI output and the feature size:
// "00 v" is a feature size; two nibbles naming a known format are an output
// format. A packet that reads both ways sets both.
Bytes set_sdi2_or_feature_size(Camera& cam, const Rule&, const Capture& c, const uint8_t*, size_t) {
    const int hi = c.item[0], lo = c.item[1];
    bool taken = false;
    if (hi == 0) {
        cam.at(Reg::FeatureSize) = lo;
        taken = true;
    }
    if (hi <= 0x0F && lo <= 0x0F && known_format(hi << 4 | lo)) {
        cam.at(Reg::Sdi2Format) = hi << 4 | lo;
        taken = true;
    }
    return taken ? completion() : syntax_error();
}

// Read so that both readers find their value: the format code is the first
// byte, the feature size the completion byte.
Bytes get_sdi2_and_feature_size(Camera& cam, const Rule&, const Capture&, const uint8_t*, size_t len) {
    Bytes r(std::max<size_t>(len, 4), 0);
    r[0] = static_cast<uint8_t>(cam.at(Reg::Sdi2Format));
    r[1] = 0x50;
    r[2] = static_cast<uint8_t>(cam.at(Reg::FeatureSize));
    r[3] = 0xFF;
    return r;
}

Bytes set_feature_pos(Camera& cam, const Rule&, const Capture& c, const uint8_t*, size_t) {
    cam.at(Reg::FeaturePos1) = c.value(0, 4);
    cam.at(Reg::FeaturePos2) = c.value(4, 4);
    return completion();
}

Bytes get_feature_pos(Camera& cam, const Rule&, const Capture&, const uint8_t*, size_t) {
    return completion_nibbles({cam.at(Reg::FeaturePos1), cam.at(Reg::FeaturePos2)});
}

Bytes get_ircut(Camera& cam, const Rule&, const Capture&, const uint8_t*, size_t) {
    return completion_byte(cam.at(Reg::IrCut));
}

Bytes set_ai(Camera& cam, const Rule& r, const Capture& c, const uint8_t*, size_t) {
    const int v = c.value();
    if (!in_range(r, v)) return syntax_error();
    if (AiInfo* ai = cam.ai()) reinterpret_cast<uint8_t*>(ai)[r.aux] = static_cast<uint8_t>(v);
    return completion();
}

// Lens drives: 00 stop, 02/03 standard speed, 2p/3p variable speed.
void drive_lens(Axis& axis, int code) {
    const int dir = code >> 4;
    int speed = code & 0x0F;
    if (code == 0x02 || code == 0x03) {
        speed = 3;
        axis.drive(code == 0x02 ? kLensRange * (speed + 1) / 8 : -kLensRange * (speed + 1) / 8);
        return;
    }
    speed = std::min(speed, 7);
    const double rate = kLensRange * (speed + 1) / 8;
    if (code == 0)
        axis.drive(0);
    else if (dir == 2)
        axis.drive(rate);
    else if (dir == 3)
        axis.drive(-rate);
}

bool lens_drive_ok(int code) {
    return code == 0 || code == 2 || code == 3 || (code >> 4) == 2 || (code >> 4) == 3;
}

Bytes zoom_drive(Camera& cam, const Rule&, const Capture& c, const uint8_t*, size_t) {
    if (!lens_drive_ok(c.value())) return syntax_error();
    drive_lens(cam.zoom, c.value());
    return completion();
}

Bytes focus_drive(Camera& cam, const Rule&, const Capture& c, const uint8_t*, size_t) {
    if (!lens_drive_ok(c.value())) return syntax_error();
    drive_lens(cam.focus, c.value());
    return completion();
}

Bytes zoom_direct(Camera& cam, const Rule&, const Capture& c, const uint8_t*, size_t) {
    cam.zoom.go(c.value(0, 4), kLensAbsRate);
    if (c.count == 8) cam.focus.go(c.value(4, 4), kLensAbsRate);
    return completion();
}

Bytes focus_direct(Camera& cam, const Rule&, const Capture& c, const uint8_t*, size_t) {
    cam.focus.go(c.value(), kLensAbsRate);
    return completion();
}

// Pan-tilt drive: VV WW speeds, then pan (01 left, 02 right, 03 stop) and
// tilt (01 up, 02 down, 03 stop). Speeds beyond the head's 24 steps are
// taken as the fastest.
Bytes pt_drive(Camera& cam, const Rule&, const Capture& c, const uint8_t*, size_t) {
    const int vv = std::clamp(c.item[0], 1, 0x18), ww = std::clamp(c.item[1], 1, 0x18);
    const int x = c.item[2], y = c.item[3];
    if (x < 1 || x > 3 || y < 1 || y > 3) return syntax_error();
    constexpr double per_step = 65536.0 / 24;  // fastest: the whole range in one second
    cam.pan.drive(x == 3 ? 0 : (x == 1 ? -vv : vv) * per_step);
    cam.tilt.drive(y == 3 ? 0 : (y == 1 ? ww : -ww) * per_step);
    return completion();
}

int16_t signed16(int v) { return static_cast<int16_t>(static_cast<uint16_t>(v)); }

Bytes pt_absolute(Camera& cam, const Rule&, const Capture& c, const uint8_t*, size_t) {
    cam.pan.go(signed16(c.value(2, 4)), kHeadAbsRate);
    cam.tilt.go(signed16(c.value(6, 4)), kHeadAbsRate);
    return completion();
}

Bytes pt_home(Camera& cam, const Rule&, const Capture&, const uint8_t*, size_t) {
    cam.pan.go(0, kHeadAbsRate);
    cam.tilt.go(0, kHeadAbsRate);
    return completion();
}

Bytes get_zoom_pos(Camera& cam, const Rule&, const Capture&, const uint8_t*, size_t len) {
    return word16(cam.zoom.value(), len);
}

Bytes get_focus_pos(Camera& cam, const Rule&, const Capture&, const uint8_t*, size_t len) {
    return word16(cam.focus.value(), len);
}

// Pan in bytes 0-1, tilt in bytes 4-5, both little-endian signed 16-bit.
Bytes get_pt_pos(Camera& cam, const Rule&, const Capture&, const uint8_t*, size_t) {
    Bytes r(8, 0);
    const auto p = static_cast<uint16_t>(signed16(cam.pan.value()));
    const auto t = static_cast<uint16_t>(signed16(cam.tilt.value()));
    r[0] = p & 0xFF;
    r[1] = p >> 8;
    r[4] = t & 0xFF;
    r[5] = t >> 8;
    r[7] = 0xFF;
    return r;
}

Bytes preset_op(Camera& cam, const Rule&, const Capture& c, const uint8_t*, size_t) {
    const int action = c.item[0];
    const int n = c.value(1, 2);
    switch (action) {
    case 0: cam.presets[n] = cam.position(); return completion();
    case 1: {
        if (!cam.presets[n]) return not_executable();
        const Position& p = *cam.presets[n];
        cam.pan.go(p.pan, kHeadAbsRate);
        cam.tilt.go(p.tilt, kHeadAbsRate);
        cam.zoom.go(p.zoom, kLensAbsRate);
        cam.focus.go(p.focus, kLensAbsRate);
        return completion();
    }
    case 2: cam.presets[n].reset(); return completion();
    default: return syntax_error();
    }
}

Bytes preset_query(Camera& cam, const Rule&, const Capture& c, const uint8_t*, size_t len) {
    return first_byte(cam.presets[c.value()] ? 1 : 0, len);
}

Bytes image_reset(Camera& cam, const Rule&, const Capture&, const uint8_t*, size_t) {
    cam.reset_image();
    return completion();
}

Bytes announce_addr(Camera& cam, const Rule&, const Capture& c, const uint8_t*, size_t) {
    cam.announced_addr = static_cast<uint32_t>(c.value());
    return completion();
}

Bytes get_encoder_addr(Camera&, const Rule&, const Capture&, const uint8_t*, size_t) {
    Bytes r{0x90, 0x50};
    for (uint8_t octet : kEncoderBoardAddr) {
        r.push_back(octet >> 4);
        r.push_back(octet & 0x0F);
    }
    r.push_back(0xFF);
    return r;
}

Bytes get_version(Camera&, const Rule&, const Capture&, const uint8_t*, size_t) {
    Bytes r(kVersion.size() + 3, 0xFF);
    r[0] = 0x90;
    r[1] = 0x50;
    std::memcpy(r.data() + 2, kVersion.data(), kVersion.size());
    return r;
}

// ---- the packet table -------------------------------------------------------

#define SET(pat, reg, lo, hi) \
    { pat, set_reg, Reg::reg, {nullptr, 0}, lo, hi, 0 }
#define SETMAP(pat, reg, map) \
    { pat, set_reg, Reg::reg, MAP(map), 0, 0xFFFF, 0 }
#define GETB(pat, reg) \
    { pat, get_first_byte, Reg::reg }
#define GETW(pat, reg) \
    { pat, get_word, Reg::reg }
#define GETP2(pat, reg) \
    { pat, get_completion_byte, Reg::reg }
#define GETP4(pat, reg) \
    { pat, get_completion_word, Reg::reg }
#define AI(pat, field, hi) \
    { pat, set_ai, Reg::Count, {nullptr, 0}, 0, hi, static_cast<int>(offsetof(AiInfo, field)) }
#define DO(pat, fn) \
    { pat, fn }

const Rule kRules[] = {
    // focus
    SETMAP("81 01 04 38 v ff", FocusMode, kFocusModeMap),
    GETB("81 09 04 38 ff", FocusMode),
    SET("81 01 04 38 02 v ff", FocusArea, 0, 15),
    GETB("81 09 04 38 02 ff", FocusArea),
    SET("81 01 04 28 v 00 00 00 ff", FocusDistance, 0, 4),
    GETB("81 09 04 28 ff", FocusDistance),
    SET("81 01 04 58 v ff", FocusSens, 1, 3),
    GETB("81 09 04 58 ff", FocusSens),
    SET("81 01 04 68 n n n n ff", AbsFocus, 0, 0xFFFF),
    GETW("81 09 04 68 ff", AbsFocus),
    // exposure
    SETMAP("81 01 04 39 v ff", ExpMode, kExpModeMap),
    GETB("81 09 04 39 ff", ExpMode),
    SET("81 01 04 4a 00 00 n n ff", Shutter, 0, 0xFF),
    GETB("81 09 04 4a ff", Shutter),
    SET("81 01 04 aa v ff", AntiFlicker, 0, 0xFF),
    GETB("81 09 04 aa ff", AntiFlicker),
    SET("81 01 04 4d 00 00 n n ff", ExpBright, 0, 0xFF),
    GETB("81 09 04 4d ff", ExpBright),
    SET("81 01 04 4b 00 00 n n ff", Iris, 0, 0xFF),
    GETB("81 09 04 4b ff", Iris),
    SET("81 01 04 4c 00 00 n n ff", Gain, 0, 0xFF),
    GETB("81 09 04 4c ff", Gain),
    SET("81 01 04 2c v ff", GainLimit, 0, 15),
    GETB("81 09 04 2c ff", GainLimit),
    // white balance
    {"81 01 04 35 v ff", set_wb, Reg::WbMode, {nullptr, 0}, 0, 9, 0},
    GETB("81 09 04 35 ff", WbMode),
    SET("81 01 04 43 00 00 n n ff", RGain, 0, 0xFF),
    GETB("81 09 04 43 ff", RGain),
    SET("81 01 04 44 00 00 n n ff", BGain, 0, 0xFF),
    GETB("81 09 04 44 ff", BGain),
    SET("81 01 04 2a n n n n ff", ColorTemp, 0, 0xFFFF),
    GETW("81 09 04 2a ff", ColorTemp),
    SET("81 01 04 c0 v ff", RegC0, 0, 0xFF),  // installation position among others
    GETB("81 09 04 c0 ff", RegC0),
    // picture switches
    SETMAP("81 01 04 61 v ff", Mirror, kFlagMap),
    GETB("81 09 04 61 ff", Mirror),
    SETMAP("81 01 04 66 v ff", Flip, kFlagMap),
    GETB("81 09 04 66 ff", Flip),
    SETMAP("81 01 04 62 v ff", Freeze, kFlagMap),
    GETB("81 09 04 62 ff", Freeze),
    SETMAP("81 01 04 33 v ff", Backlight, kFlagMap),
    GETB("81 09 04 33 ff", Backlight),
    SETMAP("81 01 04 06 v ff", DZoom, kFlagMap),
    GETB("81 09 04 06 ff", DZoom),
    SETMAP("81 01 04 3d v ff", WdrEnable, kFlagMap),
    GETB("81 09 04 3d ff", WdrEnable),
    SET("81 01 04 5b v ff", Gamma, 0, 15),
    GETB("81 09 04 5b ff", Gamma),
    SET("81 01 04 d3 v ff", WdrLevel, 0, 15),
    GETB("81 09 04 d3 ff", WdrLevel),
    // picture levels
    SET("81 01 04 a4 00 00 n n ff", Brightness, 0, 0xFF),
    GETB("81 09 04 a4 ff", Brightness),
    SET("81 01 04 42 00 00 n n ff", Sharpness, 0, 0xFF),
    GETB("81 09 04 42 ff", Sharpness),
    SET("81 01 04 a2 00 00 n n ff", Contrast, 0, 0xFF),
    GETB("81 09 04 a2 ff", Contrast),
    SET("81 01 04 a1 00 00 n n ff", Saturation, 0, 0xFF),
    GETB("81 09 04 a1 ff", Saturation),
    // optics and noise
    SETMAP("81 01 04 a9 v ff", DcIris, kOnOffCodeMap),
    GETP2("81 09 04 a9 ff", DcIris),
    SETMAP("81 01 04 51 v ff", IrAuto, kIrAutoMap),
    GETB("81 09 04 51 ff", IrAuto),
    SETMAP("81 01 04 01 v ff", IrCut, kOnOffCodeMap),
    DO("81 09 04 01 ff", get_ircut),
    SET("81 01 04 da v ff", NdFilter, 0, 0xFF),
    GETP2("81 09 04 da ff", NdFilter),
    SET("81 01 04 a5 v ff", Nr2d, 0, 0xFF),
    GETB("81 09 04 a5 ff", Nr2d),
    SETMAP("81 01 04 53 v ff", Nr3d, kNr3dMap),
    GETB("81 09 04 53 ff", Nr3d),
    // video outputs
    {"81 01 04 24 72 n n ff", set_format, Reg::VoFormat},
    GETB("81 09 04 24 72 ff", VoFormat),
    {"81 01 04 24 73 n n ff", set_format, Reg::Sdi1Format},
    GETB("81 09 04 24 73 ff", Sdi1Format),
    DO("81 01 04 24 74 v v ff", set_sdi2_or_feature_size),
    DO("81 09 04 24 74 ff", get_sdi2_and_feature_size),
    SET("81 01 04 c7 n n ff", FrameRate, 0, 0xFF),
    GETB("81 09 04 c7 ff", FrameRate),
    SETMAP("81 01 04 d9 v ff", Phantom, kOnOffCodeMap),
    GETP2("81 09 04 d9 ff", Phantom),
    // genlock and tally
    SET("81 01 04 a8 v ff", GenlockStatus, 0, 0xFF),
    GETP2("81 09 04 a8 ff", GenlockStatus),
    SET("81 01 04 3b n n n n ff", GenlockPhase, 0, 0xFFFF),
    GETP4("81 09 04 3b ff", GenlockPhase),
    SET("81 01 04 3c v ff", GenlockStep, 0, 0xFF),
    GETP2("81 09 04 3c ff", GenlockStep),
    SET("81 01 04 3e n n n n ff", GenlockVertical, 0, 0xFFFF),
    GETP4("81 09 04 3e ff", GenlockVertical),
    SET("81 01 7e 01 0a 01 v ff", Tally, 0, 15),
    GETP2("81 09 7e 01 0a 01 ff", Tally),
    // encoder board features
    SET("81 01 06 34 v ff", FpgaMode, 0, 0xFF),
    GETP2("81 09 06 34 ff", FpgaMode),
    SET("81 01 06 33 v ff", FeatureSet, 0, 0xFF),
    GETP2("81 09 06 33 ff", FeatureSet),
    DO("81 01 06 32 00 00 n n n n n n n n ff", set_feature_pos),
    DO("81 09 06 32 ff", get_feature_pos),
    DO("81 01 08 ab n n n n n n n n ff", announce_addr),
    DO("81 09 08 ab ff", get_encoder_addr),
    {"81 01 08 a0 ff", ack},
    // head setup
    SET("81 01 7e 01 2b 00 v ff", PresetZoomSpeed, 0, 0x7F),
    GETP2("81 09 7e 01 2b ff", PresetZoomSpeed),
    SET("81 01 7e 01 0b 00 v ff", PresetMoveSpeed, 0, 0x7F),
    GETP2("81 09 7e 01 0b ff", PresetMoveSpeed),
    SET("81 01 04 d7 v ff", PtLimit, 0, 0xFF),
    GETP2("81 09 04 d7 ff", PtLimit),
    // auto-tracking
    AI("81 01 04 c8 v ff", enable, 0xFF),
    AI("81 01 04 c8 01 v ff", mode, 0xFF),
    {"81 01 04 c8 02 01 ff", ack},
    {"81 01 04 ca v ff", ack, Reg::Count, MAP(kPeopleChangeMap)},
    AI("81 01 04 cb v ff", peoplePos, 0xFF),
    AI("81 01 04 cc n n ff", peopleRation, 0xFF),
    AI("81 01 04 cc 01 n n ff", bodyRatio, 0xFF),
    AI("81 01 04 cd n n ff", switchTime, 0xFF),
    AI("81 01 04 ce v ff", boardDetectEn, 0xFF),
    AI("81 01 04 cf v ff", highLightTarget, 0xFF),
    AI("81 01 04 d6 00 v ff", zoomLock, 0xFF),
    AI("81 01 04 d6 01 v ff", tiltLock, 0xFF),
    // motion
    DO("81 01 04 07 v ff", zoom_drive),
    DO("81 01 04 08 v ff", focus_drive),
    DO("81 01 04 47 n n n n ff", zoom_direct),
    DO("81 01 04 47 n n n n n n n n ff", zoom_direct),
    DO("81 01 04 48 n n n n ff", focus_direct),
    DO("81 09 04 47 ff", get_zoom_pos),
    DO("81 09 04 48 ff", get_focus_pos),
    DO("81 01 06 01 v v v v ff", pt_drive),
    DO("81 01 06 02 v v n n n n n n n n ff", pt_absolute),
    DO("81 01 06 04 ff", pt_home),
    DO("81 01 06 05 ff", pt_home),
    DO("81 09 06 12 ff", get_pt_pos),
    // presets and image memory
    DO("81 01 04 3f 00 7f ff", image_reset),
    {"81 01 04 3f 10 01 ff", ack},
    DO("81 01 04 3f v n n ff", preset_op),
    DO("81 09 04 3f n n ff", preset_query),
    // identity
    DO("81 09 00 03 ff", get_version),
};

#undef SET
#undef SETMAP
#undef GETB
#undef GETW
#undef GETP2
#undef GETP4
#undef AI
#undef DO

std::vector<Compiled> compile_rules() {
    std::vector<Compiled> out;
    for (const Rule& r : kRules) {
        Compiled c{{}, &r};
        std::string_view p(r.pattern);
        while (!p.empty()) {
            const size_t sp = p.find(' ');
            const std::string_view t = p.substr(0, sp);
            if (t == "v")
                c.tok.push_back(-1);
            else if (t == "n")
                c.tok.push_back(-2);
            else
                c.tok.push_back(static_cast<int>(std::strtol(std::string(t).c_str(), nullptr, 16)));
            p = sp == std::string_view::npos ? std::string_view{} : p.substr(sp + 1);
        }
        out.push_back(std::move(c));
    }
    return out;
}

Bytes answer(Camera& cam, const std::vector<Compiled>& rules, const uint8_t* pkt, size_t len) {
    if (len < 3 || pkt[0] != 0x81 || pkt[len - 1] != 0xFF) return syntax_error();
    Capture cap;
    for (const Compiled& c : rules) {
        if (match(c, pkt, len, cap)) {
            std::lock_guard lock(cam.mu);
            return c.rule->fn(cam, *c.rule, cap, pkt, len);
        }
    }
    return syntax_error();
}

// ---- threads ---------------------------------------------------------------

void send_reply(int qid, long to, int seq, const Bytes& bytes) {
    CamMsg m{};
    m.type = to;
    m.src = kOwnChannel;
    m.seq = seq;
    m.length = static_cast<int32_t>(std::min<size_t>(bytes.size(), kViscaMax));
    std::memcpy(m.packet, bytes.data(), static_cast<size_t>(m.length));
    // Never block: replies nobody collects must not stall the camera.
    while (::msgsnd(qid, &m, kCamMsgBody, IPC_NOWAIT) < 0) {
        if (errno != EINTR) {
            std::fprintf(stderr, "camsim: reply to %ld dropped: %s\n", to, std::strerror(errno));
            return;
        }
    }
}

void serve(Camera& cam, int qid) {
    const std::vector<Compiled> rules = compile_rules();
    sim::Journal journal("visca.log");
    CamMsg msg;
    while (!sim::stop_requested()) {
        std::memset(&msg, 0, sizeof msg);
        const ssize_t n = ::msgrcv(qid, &msg, kCamMsgBody, kOwnChannel, MSG_NOERROR);
        if (n < 0) {
            if (errno == EIDRM || errno == EINVAL) qid = sim::queue_open(kCamMsgKey);
            if (errno != EINTR) sim::sleep_ms(50);
            continue;
        }
        const size_t len = static_cast<size_t>(std::clamp<int32_t>(msg.length, 0, sizeof msg.packet));
        const auto& sw = sim::read_switches("camsim.ctl");
        if (!sim::has_switch(sw, "unjournalled")) journal.line(sim::hex_bytes(msg.packet, len));

        if (sim::has_switch(sw, "silent")) continue;
        const Bytes reply = msg.length > kViscaMax ? syntax_error() : answer(cam, rules, msg.packet, len);
        if (msg.src <= 0) continue;
        if (len >= 2 && msg.packet[1] == 0x01 && sim::has_switch(sw, "noreply-commands")) continue;
        sim::sleep_ms(sim::switch_value(sw, "late"));
        if (sim::has_switch(sw, "wrongseq")) send_reply(qid, msg.src, msg.seq - 1000, reply);
        send_reply(qid, msg.src, msg.seq, reply);
    }
}

// Moves the axes and publishes positions in the store every 10 ms. The store
// may appear late or be recreated by the system server: its id is checked
// once a second and the area attached again when it changed.
void motors(Camera& cam) {
    auto seg = std::make_unique<sim::Segment>();
    auto last = Clock::now();
    int ticks = 0;
    while (!sim::stop_requested()) {
        if (ticks++ % 100 == 0) {
            const int id = ::shmget(kSysInfoKey, 0, 0);
            if (id >= 0 && id != seg->id()) {
                auto next = std::make_unique<sim::Segment>();
                if (next->wait_attach(kSysInfoKey) && next->size() >= sizeof(SysStore)) {
                    std::lock_guard lock(cam.mu);
                    seg = std::move(next);
                    cam.store = seg.get();
                }
            }
        }
        const auto now = Clock::now();
        const double dt = std::chrono::duration<double>(now - last).count();
        last = now;
        {
            std::lock_guard lock(cam.mu);
            cam.pan.step(dt);
            cam.tilt.step(dt);
            cam.zoom.step(dt);
            cam.focus.step(dt);
            cam.settle();
            if (cam.store && cam.store->data()) {
                auto* info =
                    reinterpret_cast<CamInfo*>(cam.store->at(offsetof(SysStore, cam), sizeof(CamInfo)));
                const Position p = cam.position();
                info->pan() = p.pan;
                info->tilt() = p.tilt;
                info->zoom() = p.zoom;
                info->focus() = p.focus;
                info->word[994] = static_cast<int32_t>(kCamInfoMarker);
            }
        }
        sim::sleep_ms(10);
    }
}

}  // namespace

int main() {
    sim::block_stop_signals();
    const int qid = sim::queue_open(kCamMsgKey);
    if (qid < 0) return 1;
    static Camera cam;  // outlives the worker threads
    std::thread(motors, std::ref(cam)).detach();
    std::thread(serve, std::ref(cam), qid).detach();
    sim::say_ready();
    sim::wait_for_stop();
    std::_Exit(0);
}
