// System server of the simulated camera.
//
// Owns the settings store (segment and queue 12930021) and the system command
// channel (queue and segment 14073). It fills the store with factory
// defaults, answers store requests, and applies system commands to the store
// so that a client reading the record after a command sees the new value.
// Every command is journalled to run/syscmd.log; run/syssim.ctl holds the
// fault switches.
#include <algorithm>
#include <array>
#include <arpa/inet.h>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/shm.h>
#include <thread>

#include "common/sim_env.h"
#include "common/snapshot.h"
#include "records.h"

namespace {

constexpr int kSysInfoSize = static_cast<int>(sizeof(SysInfo));
constexpr const char* kSnapPath = "/tmp/snap.jpg";

uint32_t ipv4(const char* dotted) {
    in_addr a{};
    inet_aton(dotted, &a);
    return a.s_addr;  // network byte order, as the record keeps it
}

template <size_t N>
void put_text(char (&field)[N], const char* text) {
    std::memset(field, 0, N);
    std::memcpy(field, text, std::min(std::strlen(text), N - 1));
}

// ---- factory defaults -----------------------------------------------------

StreamParams stream_defaults(uint32_t index) {
    // index, enable, width, height, rate, fractional, codec, rate control,
    // codec words (h264: profile, interval, bitrate), min_qp, max_qp
    static constexpr std::array<std::array<uint32_t, 13>, 4> kStreams{{
        {0, 1, 3840, 2160, 30, 0, 0, 0, 1, 30, 16384, 8, 45},
        {1, 1, 640, 360, 30, 0, 0, 0, 1, 30, 1024, 8, 45},
        {2, 0, 1280, 720, 30, 0, 1, 2, 85, 0, 0, 0, 0},
        {3, 0, 640, 360, 30, 0, 1, 2, 85, 0, 0, 0, 0},
    }};
    StreamParams s{};
    for (size_t w = 0; w < 13; ++w) s.word[w] = kStreams[index][w];
    return s;
}

void factory_info(SysInfo& si) {
    std::memset(&si, 0, sizeof si);
    for (uint32_t i = 0; i < 4; ++i) si.stream[i] = stream_defaults(i);
    si.workMode = 0;
    si.vo_en = 1;

    si.audio.enable = 1;
    si.audio.inputSel = 0;
    si.audio.samplerate = 48000;
    si.audio.bitwidth = 16;
    si.audio.soundMode = 1;
    si.audio.encMode = 5;
    si.audio.bitrate = 96000;
    si.audio.volume = 80;
    si.audio.ndiCap = 1;
    si.audio.hdmiAudEn = 1;
    si.audio.ndiAudEn = 1;

    // Camera n of several: 192.168.1.(98 + 2n), its MAC, serial and name end in n.
    const int n = sim::camera_index();
    si.ip = ipv4(("192.168.1." + std::to_string(98 + 2 * n)).c_str());
    const uint8_t mac[6] = {0x00, 0x1e, 0xc0, 0x12, 0x34, static_cast<uint8_t>(0x55 + n)};
    std::memcpy(si.mac, mac, sizeof mac);
    si.netmask = ipv4("255.255.255.0");
    si.gateway = ipv4("192.168.1.1");
    si.dns = ipv4("192.168.1.1");
    si.httpPort = 80;
    si.webPort = 8080;
    si.rtspPort = 554;
    si.rtmpPort = 1935;
    si.rtspEncrypt = 0;
    si.viscaPort = 1259;
    si.onvifPort = 2000;
    si.controlHubPort = 8000;
    si.dhcp = 0;
    si.ssdp = 1;

    const std::string name = "PTZ-4K" + std::to_string(n);
    put_text(si.device_name, name.c_str());
    put_text(si.model, "PTZ-4K1");
    put_text(si.serial_number,
             ("PTZ4K1" + std::string(n < 10 ? "00000" : "0000") + std::to_string(n)).c_str());
    put_text(si.user, "admin");
    put_text(si.password, "admin");
    si.userWord = 0;

    si.mcastMain = {0, ipv4("239.1.1.1"), 5000};
    si.mcastSub = {0, ipv4("239.1.1.2"), 5002};
    si.ndi_enable = 0;
    si.language = 0;
    si.dante_enable = 0;

    Gb28181Params& gb = si.gb28181;
    gb.enable = 0;
    gb.sipPort = 5060;
    put_text(gb.serverSipId, "34020000002000000001");
    gb.serverSipAddr = ipv4("192.168.1.10");
    gb.serverSipPort = 5060;
    put_text(gb.sipId, "34020000001320000001");
    put_text(gb.sipPassword, "12345678");
    gb.registerValidTime = 3600;
    gb.registerState = 0;
    gb.heartbeatCycle = 60;
    gb.streamSel = 0;
    gb.maxHeartbeatTimeout = 3;

    si.ntp.enable = 0;
    put_text(si.ntp.serverAddress, "pool.ntp.org");
    si.ntp.port = 123;
    si.ntp.updateInterval = 3600;

    FreedParams& fd = si.freed;
    fd.id = 1;
    fd.interval = 20;
    fd.frequency = 50;
    for (int c = 0; c < kFreedClients; ++c) {
        char addr[16];
        std::snprintf(addr, sizeof addr, "192.168.1.%d", 200 + c);
        fd.clientIp[c] = ipv4(addr);
        fd.clientPort[c] = static_cast<uint16_t>(40000 + c);
    }

    put_text(si.timezone, "UTC0");

    si.record.timeCnt = 5;  // minutes per file
    si.record.loopRec = 1;
}

void factory_state(SysState& st) {
    std::memset(&st, 0, sizeof st);
    st.ready = 1;
    st.sdPresent = 1;  // a card is in the reader
    st.standby = 0;
    st.digitalZoom = 1024 - 128;
    put_text(st.rtmp[0].url, "rtmp://192.168.1.10/live/main");
    put_text(st.rtmp[1].url, "rtmp://192.168.1.10/live/sub");
    st.encoderBoardAddr = 0xFFFFFFFFu;
}

void factory_ai(AiInfo& ai) {
    std::memset(&ai, 0, sizeof ai);
    ai.mode = 0;
    ai.peoplePos = 1;
    ai.peopleRation = 5;
    ai.bodyRatio = 1;
    ai.switchTime = 5;
}

void publish_magic(uint32_t& word) { __atomic_store_n(&word, kInfoMagic, __ATOMIC_RELEASE); }

// The main and sub streams are also kept per codec (H.264 or H.265), so that
// a stream switched back finds what it had.
void save_codec(SysStore& store, const StreamParams& stream) {
    const uint32_t index = stream.word[0], codec = stream.word[6];
    if (index >= 2 || (codec != 0 && codec != 2)) return;
    auto* saved = reinterpret_cast<SavedCodecs*>(store.ext);
    saved->stream[index][codec == 2 ? 1 : 0] = stream;
    saved->magic = kInfoMagic;
}

// ---- the server -----------------------------------------------------------

struct Server {
    sim::Segment store_seg;
    sim::Segment cmd_seg;
    int store_q = -1;
    int cmd_q = -1;
    std::mutex mu;  // guards every write to the store
    std::optional<SysInfo> user_defaults;
    sim::Journal journal{"syscmd.log"};

    SysStore& store() { return *reinterpret_cast<SysStore*>(store_seg.data()); }
    SysInfo& info() { return store().info; }
    SysState& state() { return store().state; }
    uint8_t* info_bytes() { return reinterpret_cast<uint8_t*>(&store().info); }
    uint8_t* state_bytes() { return reinterpret_cast<uint8_t*>(&store().state); }

    void fill_store() {
        std::lock_guard lock(mu);
        SysStore& s = store();
        s.info.magic = 0;
        s.state.magic = 0;
        SysInfo si;
        factory_info(si);
        SysState st;
        factory_state(st);
        std::memcpy(reinterpret_cast<uint8_t*>(&s.info) + 4, reinterpret_cast<uint8_t*>(&si) + 4,
                    sizeof si - 4);
        std::memcpy(reinterpret_cast<uint8_t*>(&s.state) + 4, reinterpret_cast<uint8_t*>(&st) + 4,
                    sizeof st - 4);
        std::memset(&s.cam, 0, sizeof s.cam);
        s.cam.word[994] = static_cast<int32_t>(kCamInfoMarker);
        factory_ai(s.ai);
        std::memset(s.ext, 0, sizeof s.ext);
        save_codec(s, si.stream[0]);
        save_codec(s, si.stream[1]);
        std::memset(&s.motor, 0, sizeof s.motor);
        publish_magic(s.state.magic);
        publish_magic(s.info.magic);  // last: readers take the store as valid from here on
    }

    // Replaces the settings record by `src`, keeping the magic valid, and
    // optionally keeping the network identity of the running device.
    void restore_info(const SysInfo& src, bool keep_network) {
        SysInfo next = src;
        if (keep_network) {
            const SysInfo& cur = info();
            next.ip = cur.ip;
            std::memcpy(next.mac, cur.mac, sizeof next.mac);
            next.netmask = cur.netmask;
            next.gateway = cur.gateway;
            next.dns = cur.dns;
            next.dhcp = cur.dhcp;
        }
        std::memcpy(info_bytes() + 4, reinterpret_cast<uint8_t*>(&next) + 4, sizeof next - 4);
    }

    void restore_state_settings() {
        SysState st;
        factory_state(st);
        SysState& cur = state();
        cur.standby = 0;
        cur.digitalZoom = st.digitalZoom;
        for (int i = 0; i < 2; ++i) {
            cur.rtmp[i].enable = 0;
            std::memcpy(cur.rtmp[i].url, st.rtmp[i].url, sizeof cur.rtmp[i].url);
        }
        cur.dante_enable = 0;
        std::memset(cur.power, 0, sizeof cur.power);
    }

    void snapshot() {
        const CamInfo& cam = store().cam;
        sim::HeadPosition pos{cam.word[27], cam.word[28], cam.word[29], cam.word[30]};
        if (!sim::write_snapshot(kSnapPath, 640, 360, pos))
            std::fprintf(stderr, "syssim: cannot write %s\n", kSnapPath);
    }
};

// ---- system commands ------------------------------------------------------

struct Row;
using Payload = std::span<const uint8_t>;
using Apply = bool (*)(Server&, const Row&, Payload);

// One system command: where its payload goes and how it is taken.
struct Row {
    int id;
    const char* what;
    Apply apply;
    size_t offset;  // in SysInfo or SysState, as the handler decides
    size_t width;   // field width
};

uint32_t u32_of(Payload p) {
    uint32_t v = 0;
    std::memcpy(&v, p.data(), 4);
    return v;
}

// Payload copied as it is into a SysInfo field of the row's width.
bool info_raw(Server& s, const Row& r, Payload p) {
    if (p.size() < r.width) return false;
    std::memcpy(s.info_bytes() + r.offset, p.data(), r.width);
    return true;
}

// The camera's system server puts a new static address, mask or gateway on
// the interface at once: the whole addressing is laid on eth0 again from
// the record (a DHCP camera keeps the address it has).
bool set_addressing(Server& s, const Row& r, Payload p) {
    if (!info_raw(s, r, p)) return false;
    const SysInfo& si = s.info();
    if (si.dhcp != 0) return true;
    const int prefix = __builtin_popcount(si.netmask);
    char addr[INET_ADDRSTRLEN], gw[INET_ADDRSTRLEN];
    inet_ntop(AF_INET, &si.ip, addr, sizeof addr);
    inet_ntop(AF_INET, &si.gateway, gw, sizeof gw);
    char line[256];
    std::snprintf(line, sizeof line,
                  "ip addr flush dev eth0 && ip addr add %s/%d brd + dev eth0 && "
                  "{ ip route replace default via %s dev eth0 2>/dev/null || true; }",
                  addr, prefix, gw);
    if (std::system(line) != 0)
        std::fprintf(stderr, "syssim: could not apply %s/%d via %s\n", addr, prefix, gw);
    return true;
}

bool state_raw(Server& s, const Row& r, Payload p) {
    if (p.size() < r.width) return false;
    std::memcpy(s.state_bytes() + r.offset, p.data(), r.width);
    return true;
}

// A 32-bit integer narrowed into a field of 1 or 2 bytes.
bool narrow_int(uint8_t* base, const Row& r, Payload p) {
    if (p.size() < 4) return false;
    const uint32_t v = u32_of(p);
    if (r.width == 1)
        base[r.offset] = static_cast<uint8_t>(v);
    else {
        const uint16_t w = static_cast<uint16_t>(v);
        std::memcpy(base + r.offset, &w, 2);
    }
    return true;
}

bool info_int(Server& s, const Row& r, Payload p) { return narrow_int(s.info_bytes(), r, p); }
// A push switched on reports itself pushing (status 1) at once; off, 0. The
// status byte follows the enable byte.
bool set_push(Server& s, const Row& r, Payload p) {
    if (!narrow_int(s.state_bytes(), r, p)) return false;
    s.state_bytes()[r.offset + 1] = s.state_bytes()[r.offset] != 0 ? 1 : 0;
    return true;
}

// Text payload (with or without its terminator) into a zero-padded field.
bool copy_text(uint8_t* field, size_t width, Payload p) {
    if (p.empty()) return false;
    size_t n = 0;
    while (n < p.size() && n + 1 < width && p[n] != 0) ++n;
    std::memset(field, 0, width);
    std::memcpy(field, p.data(), n);
    return true;
}

bool info_text(Server& s, const Row& r, Payload p) {
    return copy_text(s.info_bytes() + r.offset, r.width, p);
}
bool state_text(Server& s, const Row& r, Payload p) {
    return copy_text(s.state_bytes() + r.offset, r.width, p);
}

// Accepted, nothing of it is kept in the store.
bool journal_only(Server&, const Row& r, Payload p) { return p.size() >= r.width; }

bool set_mac(Server& s, const Row&, Payload p) {
    char text[32] = {};
    std::memcpy(text, p.data(), std::min(p.size(), sizeof text - 1));
    unsigned b[6];
    char tail = 0;
    if (std::sscanf(text, "%2x:%2x:%2x:%2x:%2x:%2x%c", &b[0], &b[1], &b[2], &b[3], &b[4], &b[5], &tail) != 6)
        return false;
    if (b[0] & 1) return false;  // a multicast address cannot be an interface's own
    uint8_t mac[6];
    for (int i = 0; i < 6; ++i) mac[i] = static_cast<uint8_t>(b[i]);
    if (std::all_of(mac, mac + 6, [](uint8_t x) { return x == 0; })) return false;
    std::memcpy(s.info().mac, mac, 6);
    return true;
}

bool set_dante(Server& s, const Row&, Payload p) {
    if (p.size() < 4) return false;
    const auto v = static_cast<uint8_t>(u32_of(p));
    s.info().dante_enable = v;
    s.state().dante_enable = v;
    return true;
}

bool set_gb28181(Server& s, const Row&, Payload p) {
    if (p.size() < sizeof(Gb28181Params)) return false;
    Gb28181Params next;
    std::memcpy(&next, p.data(), sizeof next);
    next.registerState = s.info().gb28181.registerState;  // kept by the SIP service
    next.sipId[sizeof next.sipId - 1] = 0;
    next.sipPassword[sizeof next.sipPassword - 1] = 0;
    std::memcpy(&s.info().gb28181, &next, sizeof next);
    return true;
}

bool set_record(Server& s, const Row&, Payload p) {
    if (p.size() < sizeof(RecordParams)) return false;
    RecordParams next;
    std::memcpy(&next, p.data(), sizeof next);
    // the state, keep time and file name belong to the recorder
    const RecordParams& now = s.info().record;
    next.state = now.state;
    next.keepTime = now.keepTime;
    std::memcpy(next.filename, now.filename, sizeof next.filename);
    std::memcpy(&s.info().record, &next, sizeof next);
    return true;
}

bool set_work_mode(Server& s, const Row&, Payload p) {
    if (p.empty()) return false;
    s.info().workMode = p[0];
    return true;
}

bool set_stream(Server& s, const Row&, Payload p) {
    if (p.size() < sizeof(StreamParams)) return false;
    StreamParams next;
    std::memcpy(&next, p.data(), sizeof next);
    if (next.word[0] >= 4) return false;
    std::memcpy(&s.info().stream[next.word[0]], &next, sizeof next);
    save_codec(s.store(), next);
    return true;
}

bool set_audio(Server& s, const Row&, Payload p) {
    if (p.size() < sizeof(AudioParams)) return false;
    AudioParams next;
    std::memcpy(&next, p.data(), sizeof next);
    next.ndiCap = s.info().audio.ndiCap;  // a hardware capability, not a setting
    std::memcpy(&s.info().audio, &next, sizeof next);
    return true;
}

bool take_snapshot(Server& s, const Row&, Payload) {
    s.snapshot();
    return true;
}

bool do_reset(Server& s, const Row&, Payload p) {
    if (p.empty() || p[0] > 2) return false;
    if (p[0] == 0) return true;  // image reset: the camera-control process owns the image settings
    SysInfo factory;
    factory_info(factory);
    if (p[0] == 1) {
        s.restore_info(factory, false);
        s.restore_state_settings();
        s.user_defaults.reset();
    } else {
        s.restore_info(s.user_defaults ? *s.user_defaults : factory, true);
    }
    return true;
}

bool do_defaults(Server& s, const Row&, Payload p) {
    if (p.empty() || p[0] > 1) return false;
    if (p[0] == 1)
        s.user_defaults = s.info();
    else
        s.user_defaults.reset();
    return true;
}

bool set_credentials(Server& s, const Row&, Payload p) {
    if (p.size() < 36 || p[0] == 0 || p[16] == 0) return false;
    SysInfo& si = s.info();
    copy_text(reinterpret_cast<uint8_t*>(si.user), sizeof si.user, p.subspan(0, 16));
    copy_text(reinterpret_cast<uint8_t*>(si.password), sizeof si.password, p.subspan(16, 16));
    std::memcpy(&si.userWord, p.data() + 32, 4);
    return true;
}

bool set_time_zone(Server& s, const Row&, Payload p) {
    return copy_text(reinterpret_cast<uint8_t*>(s.info().timezone), sizeof s.info().timezone, p);
}

#define INFO(f) offsetof(SysInfo, f)
#define STATE(f) offsetof(SysState, f)

constexpr Row kCommands[] = {
    {0, "ip address", set_addressing, INFO(ip), 4},
    {1, "mac address", set_mac, 0, 0},
    {2, "gateway", set_addressing, INFO(gateway), 4},
    {3, "netmask", set_addressing, INFO(netmask), 4},
    {4, "dns", info_raw, INFO(dns), 4},
    {5, "dhcp", info_int, INFO(dhcp), 1},
    {6, "rtsp port", info_raw, INFO(rtspPort), 2},
    {7, "rtsp encrypt", info_int, INFO(rtspEncrypt), 2},
    {8, "web port", info_raw, INFO(webPort), 2},
    {9, "rtmp port", info_raw, INFO(rtmpPort), 2},
    {10, "http port", info_raw, INFO(httpPort), 2},
    {11, "visca port", info_raw, INFO(viscaPort), 2},
    {12, "onvif port", info_raw, INFO(onvifPort), 2},
    {13, "control hub port", info_raw, INFO(controlHubPort), 2},
    {14, "ssdp", info_int, INFO(ssdp), 1},
    {15, "rtp multicast main", info_raw, INFO(mcastMain), sizeof(McastParams)},
    {16, "rtp multicast sub", info_raw, INFO(mcastSub), sizeof(McastParams)},
    {17, "serial number", info_text, INFO(serial_number), sizeof(SysInfo::serial_number)},
    {18, "device name", info_text, INFO(device_name), sizeof(SysInfo::device_name)},
    {20, "dante enable", set_dante, 0, 0},
    {21, "ndi enable", info_int, INFO(ndi_enable), 1},
    {22, "ndi text", journal_only, 0, 1},
    {23, "ndi text", journal_only, 0, 1},
    {24, "ndi setting", journal_only, 0, 12},
    {25, "ndi setting", journal_only, 0, 264},
    {26, "ndi text", journal_only, 0, 1},
    {27, "ndi text", journal_only, 0, 1},
    {28, "ndi setting", journal_only, 0, 4},
    {29, "srt settings", journal_only, 0, 616},
    {30, "gb28181", set_gb28181, 0, 0},
    {31, "freed", info_raw, INFO(freed), sizeof(FreedParams)},
    {32, "recording", set_record, 0, 0},
    {33, "language", info_raw, INFO(language), 1},
    {34, "work mode", set_work_mode, 0, 0},
    {35, "stream settings", set_stream, 0, 0},
    {36, "encoder request", journal_only, 0, 4},
    {37, "rtmp main url", state_text, STATE(rtmp[0].url), sizeof(RtmpPush::url)},
    {38, "rtmp sub url", state_text, STATE(rtmp[1].url), sizeof(RtmpPush::url)},
    {39, "rtmp main enable", set_push, STATE(rtmp[0].enable), 1},
    {40, "rtmp sub enable", set_push, STATE(rtmp[1].enable), 1},
    {41, "snapshot", take_snapshot, 0, 0},
    {47, "video output", info_raw, INFO(vo_en), 4},
    {49, "digital zoom", state_raw, STATE(digitalZoom), 4},
    {57, "audio block", set_audio, 0, 0},
    {58, "audio volume", info_int, INFO(audio) + offsetof(AudioParams, volume), 2},
    {59, "hdmi audio", info_int, INFO(audio) + offsetof(AudioParams, hdmiAudEn), 1},
    {60, "ndi audio", info_int, INFO(audio) + offsetof(AudioParams, ndiAudEn), 1},
    {61, "reset", do_reset, 0, 0},
    {62, "defaults", do_defaults, 0, 0},
    {63, "credentials", set_credentials, 0, 0},
    {64, "standby", state_raw, STATE(standby), 1},
    {65, "reboot", journal_only, 0, 1},
    {66, "power schedule", state_raw, STATE(power), sizeof(SysState::power)},
    {67, "network test", journal_only, 0, 1},
    {68, "clock changed", journal_only, 0, 1},
    {69, "time zone", set_time_zone, 0, 0},
    {70, "ntp", info_raw, INFO(ntp), sizeof(NtpParams)},
};

#undef INFO
#undef STATE

const Row* find_command(int id) {
    for (const Row& r : kCommands)
        if (r.id == id) return &r;
    return nullptr;
}

void serve_commands(Server& s) {
    SysMsg msg;
    while (!sim::stop_requested()) {
        std::memset(&msg, 0, sizeof msg);
        const ssize_t n = ::msgrcv(s.cmd_q, &msg, kSysMsgBody, 1, MSG_NOERROR);
        if (n < 0) {
            if (errno != EINTR) sim::sleep_ms(50);
            continue;
        }
        // The request data lies in the sender's slice of the 14073 segment.
        const uint8_t* data = nullptr;
        size_t len = 0;
        if (msg.length > 0 && msg.length <= PROC_MEM_SIZE) data = s.cmd_seg.at(msg.offset, msg.length);
        if (data) len = static_cast<size_t>(msg.length);
        std::string line = std::to_string(msg.cmd);
        if (len) line += ' ' + sim::hex_bytes(data, len);
        s.journal.line(line);

        if (sim::has_switch(sim::read_switches("syssim.ctl"), "silent")) continue;

        bool ok = false;
        if (const Row* row = find_command(msg.cmd)) {
            std::lock_guard lock(s.mu);
            ok = row->apply(s, *row, Payload(data ? data : reinterpret_cast<const uint8_t*>(""), len));
        }
        if (msg.src <= 0) continue;  // nobody to answer
        SysMsg reply{};
        reply.type = msg.src;
        reply.cmd = msg.cmd;
        reply.src = 1;
        reply.length = ok ? 0 : -1;
        reply.offset = msg.offset;
        while (::msgsnd(s.cmd_q, &reply, kSysMsgBody, 0) < 0 && errno == EINTR) {}
    }
}

void serve_store(Server& s) {
    FileMsg msg;
    while (!sim::stop_requested()) {
        std::memset(&msg, 0, sizeof msg);
        const ssize_t n = ::msgrcv(s.store_q, &msg, kFileMsgBody, 1, MSG_NOERROR);
        if (n < 0) {
            if (errno != EINTR) sim::sleep_ms(50);
            continue;
        }
        int result = kSysInfoSize;
        {
            std::lock_guard lock(s.mu);
            switch (msg.cmd) {
            case 1:  // the client wrote the record itself; nothing to apply here
            case 0: break;
            case 2: {
                SysInfo factory;
                factory_info(factory);
                s.restore_info(factory, false);
                break;
            }
            case 3: s.user_defaults = s.info(); break;
            default: result = -1;
            }
        }
        if (msg.src <= 0) continue;
        FileMsg reply = msg;
        reply.type = msg.src;
        reply.result = result;
        while (::msgsnd(s.store_q, &reply, kFileMsgBody, 0) < 0 && errno == EINTR) {}
    }
}

}  // namespace

int main() {
    sim::block_stop_signals();
    static Server s;  // outlives the worker threads, which never return
    if (!s.store_seg.create_or_attach(kSysInfoKey, kShmSize, 0660) || s.store_seg.size() < sizeof(SysStore) ||
        !s.cmd_seg.create_or_attach(kSysMsgKey, kShmSize, 0660)) {
        std::fprintf(stderr, "syssim: shared memory unavailable\n");
        return 1;
    }
    s.store_q = sim::queue_open(kSysInfoKey);
    s.cmd_q = sim::queue_open(kSysMsgKey);
    if (s.store_q < 0 || s.cmd_q < 0) return 1;
    s.fill_store();

    std::thread(serve_store, std::ref(s)).detach();
    std::thread(serve_commands, std::ref(s)).detach();
    sim::say_ready();
    sim::wait_for_stop();

    // Our own segments and queues go with us.
    ::msgctl(s.store_q, IPC_RMID, nullptr);
    ::msgctl(s.cmd_q, IPC_RMID, nullptr);
    ::shmctl(s.store_seg.id(), IPC_RMID, nullptr);
    ::shmctl(s.cmd_seg.id(), IPC_RMID, nullptr);
    std::_Exit(0);
}
