// Inter-process records shared with the system server, the camera-control
// process and the log collector. Every offset here is part of the wire or
// shared-memory format: the static_asserts pin them.
#pragma once

#include <cstddef>
#include <cstdint>

// ---- keys and fixed sizes -------------------------------------------------
inline constexpr int kSysInfoKey = 12930021;  // store segment and its queue
inline constexpr int kSysMsgKey = 14073;      // command queue and segment
inline constexpr int kCamMsgKey = 217701;     // camera command queue
inline constexpr int kLogMsgKey = 19088811;   // log collector queue
inline constexpr int kShmSize = 276480;       // 27 slices
inline constexpr int PROC_MEM_SIZE = 10240;   // one slice
inline constexpr uint32_t kInfoMagic = 0x5AC33CA5;
inline constexpr uint32_t kCamInfoMarker = 0x5AA555AA;

#pragma pack(push, 1)

// One video encoder stream: 13 little-endian 32-bit words.
struct StreamParams {
    uint32_t word[13];
};
static_assert(sizeof(StreamParams) == 52);

// Audio block, sent whole with system command 57.
struct AudioParams {
    int32_t enable;        // 228
    uint32_t inputSel;     // 232  0 line in, 1 microphone
    uint32_t samplerate;   // 236
    uint32_t bitwidth;     // 240
    uint32_t soundMode;    // 244  0 mono, 1 stereo
    uint32_t encMode;      // 248  0..6 G711A G711U ADPCMA G726 LPCM AAC OPUS
    uint32_t bitrate;      // 252
    uint16_t volume;       // 256  the low half of a 32-bit word whose byte 258
    uint8_t ndiCap;        // 258  bit 0: NDI present
    uint8_t reserved0;     // 259  also carries the NDI capability
    uint8_t hdmiAudEn;     // 260
    uint8_t ndiAudEn;      // 261
    uint8_t reserved1[2];  // 262
};
static_assert(sizeof(AudioParams) == 36);
static_assert(offsetof(AudioParams, inputSel) == 4);
static_assert(offsetof(AudioParams, samplerate) == 8);
static_assert(offsetof(AudioParams, bitwidth) == 12);
static_assert(offsetof(AudioParams, soundMode) == 16);
static_assert(offsetof(AudioParams, encMode) == 20);
static_assert(offsetof(AudioParams, bitrate) == 24);
static_assert(offsetof(AudioParams, volume) == 28);
static_assert(offsetof(AudioParams, hdmiAudEn) == 32);
static_assert(offsetof(AudioParams, ndiAudEn) == 33);

// RTP multicast block of one stream, sent with commands 15 and 16.
struct McastParams {
    uint32_t enable;
    uint32_t addr;  // IPv4, network byte order
    uint32_t port;
};
static_assert(sizeof(McastParams) == 12);

// GB28181 block, sent whole with command 30.
struct Gb28181Params {
    int32_t enable;               // 0
    uint16_t sipPort;             // 4
    char serverSipId[24];         // 6
    uint32_t serverSipAddr;       // 30  IPv4, network byte order
    uint16_t serverSipPort;       // 34
    char sipId[24];               // 36
    char sipPassword[32];         // 60
    int32_t registerValidTime;    // 92
    int32_t registerState;        // 96  kept by the service
    int32_t heartbeatCycle;       // 100
    int32_t streamSel;            // 104
    int32_t maxHeartbeatTimeout;  // 108
};
static_assert(sizeof(Gb28181Params) == 112);
static_assert(offsetof(Gb28181Params, sipPort) == 4);
static_assert(offsetof(Gb28181Params, serverSipId) == 6);
static_assert(offsetof(Gb28181Params, serverSipAddr) == 30);
static_assert(offsetof(Gb28181Params, serverSipPort) == 34);
static_assert(offsetof(Gb28181Params, sipId) == 36);
static_assert(offsetof(Gb28181Params, sipPassword) == 60);
static_assert(offsetof(Gb28181Params, registerValidTime) == 92);
static_assert(offsetof(Gb28181Params, registerState) == 96);
static_assert(offsetof(Gb28181Params, heartbeatCycle) == 100);
static_assert(offsetof(Gb28181Params, streamSel) == 104);
static_assert(offsetof(Gb28181Params, maxHeartbeatTimeout) == 108);

// NTP block, sent whole with command 70. It sits in the free space between
// the GB28181 and the FreeD blocks.
struct NtpParams {
    uint32_t enable;          // 0
    char serverAddress[128];  // 4
    uint32_t port;            // 132
    uint32_t updateInterval;  // 136
};
static_assert(sizeof(NtpParams) == 140);
static_assert(offsetof(NtpParams, serverAddress) == 4);
static_assert(offsetof(NtpParams, port) == 132);
static_assert(offsetof(NtpParams, updateInterval) == 136);

// FreeD block, sent whole with command 31.
inline constexpr int kFreedClients = 4;
struct FreedParams {
    int16_t enable;                       // 0
    uint8_t id;                           // 2
    uint8_t mode;                         // 3  0 always, 1 on demand, 2 genlock
    uint16_t rateSel;                     // 4  0 interval applies, 1 frequency
    uint16_t interval;                    // 6
    uint16_t frequency;                   // 8
    uint8_t clientEnable[kFreedClients];  // 10
    uint32_t clientIp[kFreedClients];     // 14  IPv4, network byte order
    uint16_t clientPort[kFreedClients];   // 30
};
static_assert(sizeof(FreedParams) == 38);
static_assert(offsetof(FreedParams, id) == 2);
static_assert(offsetof(FreedParams, mode) == 3);
static_assert(offsetof(FreedParams, rateSel) == 4);
static_assert(offsetof(FreedParams, interval) == 6);
static_assert(offsetof(FreedParams, frequency) == 8);
static_assert(offsetof(FreedParams, clientEnable) == 10);
static_assert(offsetof(FreedParams, clientIp) == 14);
static_assert(offsetof(FreedParams, clientPort) == 30);

// Recording block, sent whole with command 32; it runs to the record's end.
inline constexpr int kRecordTasks = 4;
struct RecordParams {
    uint8_t enable;                    // 0
    uint8_t sel;                       // 1
    uint8_t timeCnt;                   // 2
    uint8_t mode;                      // 3
    uint8_t loopRec;                   // 4
    uint8_t format;                    // 5
    uint8_t manual;                    // 6
    uint8_t state;                     // 7   kept by the recorder
    int32_t keepTime;                  // 8   kept by the recorder
    char filename[128];                // 12  kept by the recorder
    uint8_t taskEnable[kRecordTasks];  // 140
    int32_t taskStart[kRecordTasks];   // 144
    int32_t taskStop[kRecordTasks];    // 160
};
static_assert(sizeof(RecordParams) == 176);
static_assert(offsetof(RecordParams, state) == 7);
static_assert(offsetof(RecordParams, keepTime) == 8);
static_assert(offsetof(RecordParams, filename) == 12);
static_assert(offsetof(RecordParams, taskEnable) == 140);
static_assert(offsetof(RecordParams, taskStart) == 144);
static_assert(offsetof(RecordParams, taskStop) == 160);

// The settings record at the start of the store segment.
struct SysInfo {
    uint32_t magic;             // 0
    StreamParams stream[4];     // 4
    int32_t workMode;           // 212  2 drops the 2160-line formats
    uint32_t vo_en;             // 216
    uint8_t reserved220[8];     // 220
    AudioParams audio;          // 228
    uint32_t ip;                // 264  network byte order
    uint8_t mac[6];             // 268
    uint8_t reserved274[2];     // 274
    uint32_t netmask;           // 276
    uint32_t gateway;           // 280
    uint32_t dns;               // 284
    uint16_t httpPort;          // 288
    uint16_t webPort;           // 290
    uint16_t rtspPort;          // 292
    uint16_t rtmpPort;          // 294
    uint16_t rtspEncrypt;       // 296
    uint16_t viscaPort;         // 298
    uint16_t onvifPort;         // 300
    uint16_t controlHubPort;    // 302
    uint8_t dhcp;               // 304
    uint8_t ssdp;               // 305
    uint8_t reserved306[6];     // 306
    char device_name[64];       // 312
    char model[64];             // 376
    char serial_number[16];     // 440
    char user[16];              // 456
    char password[16];          // 472
    uint32_t userWord;          // 488
    McastParams mcastMain;      // 492
    McastParams mcastSub;       // 504
    uint16_t ndiFlag516;        // 516  sub-stream limit switch with ndi_enable
    uint8_t ndiFlag518;         // 518  main-stream bitrate rule with ndi_enable
    uint8_t ndi_enable;         // 519
    uint8_t language;           // 520
    uint8_t dante_enable;       // 521
    uint8_t reserved522[1658];  // 522  NDI and SRT settings
    Gb28181Params gb28181;      // 2180
    NtpParams ntp;              // 2292
    FreedParams freed;          // 2432
    uint8_t reserved2470[6];    // 2470
    char timezone[64];          // 2476
    RecordParams record;        // 2540
};

// The live-state record right behind SysInfo.
struct PowerTask {
    uint8_t enable, mode, action, pad;
    uint16_t year;
    uint8_t month, day, weekday, hour, minute, second;
};
static_assert(sizeof(PowerTask) == 12);

// One stream's RTMP push in the state record.
struct RtmpPush {
    uint8_t enable;  // 0
    uint8_t status;  // 1  kept by the system server
    uint8_t reserved[6];
    char url[256];  // 8
};
static_assert(sizeof(RtmpPush) == 264 && offsetof(RtmpPush, url) == 8);

struct SysState {
    uint32_t magic;              // 0
    uint32_t updatePort;         // 4   the update companion's port, once kept
    uint32_t updateProgress;     // 8   also the update-server flag
    uint32_t previewMain;        // 12  below 5: the main stream previews over WebRTC
    uint32_t previewSub;         // 16  the same for the sub stream
    uint8_t ready;               // 20
    uint8_t controlHub;          // 21  a control hub is attached
    uint8_t standby;             // 22
    uint8_t user_info;           // 23
    uint32_t reserved24;         // 24
    uint32_t digitalZoom;        // 28  reported as 1024 minus this
    uint8_t reserved32[8];       // 32
    RtmpPush rtmp[2];            // 40   main, then sub (304)
    uint8_t reserved568[25];     // 568
    uint8_t sdPresent;           // 593
    uint8_t reserved594;         // 594
    uint8_t dante_enable;        // 595
    uint8_t reserved596;         // 596
    uint8_t mainLock;            // 597
    uint8_t reserved598[2];      // 598
    PowerTask power[8];          // 600
    uint32_t lastAnnouncedAddr;  // 696
    uint32_t encoderBoardAddr;   // 700  -1 until known
};

// Live camera values; the positions are what the motors report.
struct CamInfo {
    int32_t word[996];
    int32_t& pan() { return word[27]; }
    int32_t& tilt() { return word[28]; }
    int32_t& zoom() { return word[29]; }
    int32_t& focus() { return word[30]; }
    uint32_t marker() const { return static_cast<uint32_t>(word[994]); }
};

// Auto-tracking state kept by the tracking process.
struct AiInfo {
    uint8_t reserved0[2];
    uint8_t mode;          // 2
    uint8_t peoplePos;     // 3
    uint8_t peopleRation;  // 4
    uint8_t bodyRatio;     // 5
    uint8_t reserved6;
    uint8_t enable;    // 7
    uint8_t zoomLock;  // 8
    uint8_t tiltLock;  // 9
    uint8_t reserved10[54];
    uint8_t switchTime;       // 64
    uint8_t boardDetectEn;    // 65
    uint8_t highLightTarget;  // 66
    uint8_t reserved67[21];
};

struct MotorInfo {
    uint8_t raw[28];
};

// The encoder records the system server saves per codec, at the start of the
// further area: a stream switched between H.264 and H.265 takes back what it
// last had under that codec. Valid when `magic` is kInfoMagic and the saved
// record's codec word is the codec.
struct SavedCodecs {
    uint32_t magic;
    StreamParams stream[2][2];  // [main, sub][h264, h265]
};
static_assert(sizeof(SavedCodecs) == 212);

// The whole store as laid out in the segment.
struct SysStore {
    SysInfo info;       // 0
    SysState state;     // 2716
    CamInfo cam;        // 3420
    AiInfo ai;          // 7404
    uint8_t ext[2372];  // 7492
    MotorInfo motor;    // 9864
};

// Store queue message (type word, then the 32-byte body).
struct FileMsg {
    long type;    // 1 to the server, the client id back
    int32_t cmd;  // 1 write, 2 reset, 3 save defaults, 0 stop
    int32_t src;
    int32_t shmid;
    int32_t result;   // 2716 on success
    int32_t section;  // 1 stream, 2 network, 4 audio
    uint8_t zero[12];
};
inline constexpr int kFileMsgBody = 32;

// System command message (type word, then the 16-byte body).
struct SysMsg {
    long type;  // 1 to the server, the sender's link id back
    int32_t cmd;
    int32_t src;
    int32_t length;  // data bytes in the slice; negative: none
    int32_t offset;  // slice offset of the data
};
inline constexpr int kSysMsgBody = 16;

// Camera command message (type word, then the 80-byte body).
struct CamMsg {
    long type;  // 1 to the server, the client's id back
    int32_t src;
    int32_t seq;
    int32_t length;  // at most 64
    uint8_t packet[68];
};
inline constexpr int kCamMsgBody = 80;
inline constexpr int kViscaMax = 64;

// Log queue message: type word, header byte, text length, text.
struct LogMsg {
    long type;
    uint8_t header;
    uint32_t length;
    char text[512];
};

#pragma pack(pop)

static_assert(sizeof(long) == 8, "the records carry an 8-byte type word");

static_assert(sizeof(SysInfo) == 2716);
static_assert(offsetof(SysInfo, stream) == 4);
static_assert(offsetof(SysInfo, workMode) == 212);
static_assert(offsetof(SysInfo, vo_en) == 216);
static_assert(offsetof(SysInfo, audio) == 228);
static_assert(offsetof(SysInfo, audio) + offsetof(AudioParams, volume) == 256);
static_assert(offsetof(SysInfo, audio) + offsetof(AudioParams, ndiCap) == 258);
static_assert(offsetof(SysInfo, audio) + offsetof(AudioParams, hdmiAudEn) == 260);
static_assert(offsetof(SysInfo, audio) + offsetof(AudioParams, ndiAudEn) == 261);
static_assert(offsetof(SysInfo, ip) == 264);
static_assert(offsetof(SysInfo, mac) == 268);
static_assert(offsetof(SysInfo, netmask) == 276);
static_assert(offsetof(SysInfo, gateway) == 280);
static_assert(offsetof(SysInfo, dns) == 284);
static_assert(offsetof(SysInfo, httpPort) == 288);
static_assert(offsetof(SysInfo, webPort) == 290);
static_assert(offsetof(SysInfo, rtspPort) == 292);
static_assert(offsetof(SysInfo, rtmpPort) == 294);
static_assert(offsetof(SysInfo, rtspEncrypt) == 296);
static_assert(offsetof(SysInfo, viscaPort) == 298);
static_assert(offsetof(SysInfo, onvifPort) == 300);
static_assert(offsetof(SysInfo, controlHubPort) == 302);
static_assert(offsetof(SysInfo, dhcp) == 304);
static_assert(offsetof(SysInfo, ssdp) == 305);
static_assert(offsetof(SysInfo, device_name) == 312);
static_assert(offsetof(SysInfo, model) == 376);
static_assert(offsetof(SysInfo, serial_number) == 440);
static_assert(offsetof(SysInfo, user) == 456);
static_assert(offsetof(SysInfo, password) == 472);
static_assert(offsetof(SysInfo, userWord) == 488);
static_assert(offsetof(SysInfo, mcastMain) == 492);
static_assert(offsetof(SysInfo, mcastSub) == 504);
static_assert(offsetof(SysInfo, ndiFlag516) == 516);
static_assert(offsetof(SysInfo, ndiFlag518) == 518);
static_assert(offsetof(SysInfo, ndi_enable) == 519);
static_assert(offsetof(SysInfo, gb28181) == 2180);
static_assert(offsetof(SysInfo, ntp) == 2292);
static_assert(offsetof(SysInfo, freed) == 2432);
static_assert(offsetof(SysInfo, timezone) == 2476);
static_assert(offsetof(SysInfo, record) == 2540);

static_assert(sizeof(SysState) == 704);
static_assert(offsetof(SysState, updateProgress) == 8);
static_assert(offsetof(SysState, updatePort) == 4);
static_assert(offsetof(SysState, previewMain) == 12);
static_assert(offsetof(SysState, previewSub) == 16);
static_assert(offsetof(SysState, controlHub) == 21);
static_assert(offsetof(SysState, ready) == 20);
static_assert(offsetof(SysState, standby) == 22);
static_assert(offsetof(SysState, user_info) == 23);
static_assert(offsetof(SysState, digitalZoom) == 28);
static_assert(offsetof(SysState, rtmp) == 40);
static_assert(offsetof(SysState, rtmp[1].url) == 312);
static_assert(offsetof(SysState, sdPresent) == 593);
static_assert(offsetof(SysState, dante_enable) == 595);
static_assert(offsetof(SysState, mainLock) == 597);
static_assert(offsetof(SysState, power) == 600);
static_assert(offsetof(SysState, lastAnnouncedAddr) == 696);

static_assert(sizeof(CamInfo) == 3984);
static_assert(sizeof(AiInfo) == 88);
static_assert(offsetof(AiInfo, mode) == 2);
static_assert(offsetof(AiInfo, enable) == 7);
static_assert(offsetof(AiInfo, tiltLock) == 9);
static_assert(offsetof(AiInfo, switchTime) == 64);
static_assert(offsetof(AiInfo, highLightTarget) == 66);

static_assert(offsetof(SysStore, state) == 2716);
static_assert(offsetof(SysStore, cam) == 3420);
static_assert(offsetof(SysStore, ai) == 7404);
static_assert(offsetof(SysStore, ext) == 7492);
static_assert(offsetof(SysStore, motor) == 9864);
static_assert(sizeof(SysStore) == 9892 && sizeof(SysStore) <= PROC_MEM_SIZE);

static_assert(sizeof(FileMsg) == 8 + kFileMsgBody);
static_assert(offsetof(FileMsg, result) == 8 + 12);
static_assert(offsetof(FileMsg, section) == 8 + 16);
static_assert(sizeof(SysMsg) == 8 + kSysMsgBody);
static_assert(offsetof(SysMsg, length) == 8 + 8);
static_assert(sizeof(CamMsg) == 8 + kCamMsgBody);
static_assert(offsetof(CamMsg, seq) == 8 + 4);
static_assert(offsetof(CamMsg, packet) == 8 + 12);
static_assert(offsetof(LogMsg, length) == 9 && offsetof(LogMsg, text) == 13);
