// The system server's commands: one row per id, with the payload the id
// carries (a fixed number of bytes, or a text sent with its length and no
// terminator) and what it means. Senders name a command by its enum; the
// width comes from its row, and a constant payload of the wrong size does not
// compile (sys_port.h).
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

enum class SysCmd : uint8_t {
    ip = 0,
    mac = 1,
    gateway = 2,
    netmask = 3,
    dns = 4,
    dhcp = 5,
    rtsp_port = 6,
    rtsp_encrypt = 7,
    web_port = 8,
    rtmp_port = 9,
    http_port = 10,
    visca_port = 11,
    onvif_port = 12,
    control_hub_port = 13,
    ssdp = 14,
    multicast_main = 15,
    multicast_sub = 16,
    serial_number = 17,
    device_name = 18,
    dante = 20,
    ndi = 21,
    srt = 29,
    gb28181 = 30,
    freed = 31,
    record = 32,
    language = 33,
    work_mode = 34,
    stream = 35,
    key_frame = 36,
    rtmp_url_main = 37,
    rtmp_url_sub = 38,
    rtmp_enable_main = 39,
    rtmp_enable_sub = 40,
    snapshot = 41,
    video_output = 47,
    digital_zoom = 49,
    audio = 57,
    volume = 58,
    hdmi_audio = 59,
    ndi_audio = 60,
    reset = 61,
    defaults = 62,
    login = 63,
    standby = 64,
    reboot = 65,
    power_schedule = 66,
    network_test = 67,
    clock_changed = 68,
    time_zone = 69,
    ntp = 70,
};

inline constexpr int16_t kSysText = -1;  // a text, its own length, no terminator

struct SysCmdRow {
    SysCmd id;
    int16_t width;  // payload bytes, or kSysText
    std::string_view meaning;
};

// clang-format off
inline constexpr auto kSysCmds = std::to_array<SysCmdRow>({
    {SysCmd::ip,               4,   "IPv4 address"},
    {SysCmd::mac,              18,  "MAC address as text with its terminator"},
    {SysCmd::gateway,          4,   "gateway"},
    {SysCmd::netmask,          4,   "netmask"},
    {SysCmd::dns,              4,   "name server"},
    {SysCmd::dhcp,             4,   "DHCP on/off"},
    {SysCmd::rtsp_port,        2,   "RTSP port"},
    {SysCmd::rtsp_encrypt,     4,   "RTSP encryption"},
    {SysCmd::web_port,         2,   "web port"},
    {SysCmd::rtmp_port,        2,   "RTMP port"},
    {SysCmd::http_port,        2,   "HTTP port"},
    {SysCmd::visca_port,       2,   "VISCA port"},
    {SysCmd::onvif_port,       2,   "ONVIF port"},
    {SysCmd::control_hub_port, 2,   "control hub port"},
    {SysCmd::ssdp,             4,   "SSDP on/off"},
    {SysCmd::multicast_main,   12,  "RTP multicast of the main stream: enable, group, port"},
    {SysCmd::multicast_sub,    12,  "RTP multicast of the sub stream: enable, group, port"},
    {SysCmd::serial_number,    kSysText, "serial number"},
    {SysCmd::device_name,      kSysText, "device name"},
    {SysCmd::dante,            4,   "Dante on/off"},
    {SysCmd::ndi,              4,   "NDI on/off"},
    {SysCmd::srt,              616, "SRT settings"},
    {SysCmd::gb28181,          112, "GB28181 settings"},
    {SysCmd::freed,            38,  "FreeD settings"},
    {SysCmd::record,           176, "recording settings"},
    {SysCmd::language,         1,   "language"},
    {SysCmd::work_mode,        1,   "work mode"},
    {SysCmd::stream,           52,  "encoder settings of one stream"},
    {SysCmd::key_frame,        4,   "a key frame on a stream"},
    {SysCmd::rtmp_url_main,    kSysText, "RTMP URL of the main stream"},
    {SysCmd::rtmp_url_sub,     kSysText, "RTMP URL of the sub stream"},
    {SysCmd::rtmp_enable_main, 4,   "RTMP push of the main stream on/off"},
    {SysCmd::rtmp_enable_sub,  4,   "RTMP push of the sub stream on/off"},
    {SysCmd::snapshot,         4,   "take a snapshot"},
    {SysCmd::video_output,     4,   "video output on/off"},
    {SysCmd::digital_zoom,     4,   "digital zoom (1024 minus the value)"},
    {SysCmd::audio,            36,  "audio settings"},
    {SysCmd::volume,           4,   "audio volume"},
    {SysCmd::hdmi_audio,       4,   "HDMI audio on/off"},
    {SysCmd::ndi_audio,        4,   "NDI audio on/off"},
    {SysCmd::reset,            1,   "reset: 0 image, 1 factory, 2 system"},
    {SysCmd::defaults,         1,   "defaults: 1 keep the settings, 0 forget them"},
    {SysCmd::login,            36,  "credentials: user, password, a word"},
    {SysCmd::standby,          1,   "standby: 1 enter, 0 leave"},
    {SysCmd::reboot,           1,   "reboot"},
    {SysCmd::power_schedule,   96,  "power schedule: 8 tasks of 12 bytes"},
    {SysCmd::network_test,     1,   "network test"},
    {SysCmd::clock_changed,    1,   "the clock was set"},
    {SysCmd::time_zone,        kSysText, "time zone"},
    {SysCmd::ntp,              140, "NTP settings"},
});
// clang-format on

// The widths by id, compiled from the table as the build runs (the meanings
// are for readers and never reach the binary).
inline constexpr auto kSysCmdWidths = [] {
    std::array<int16_t, 71> widths{};
    for (const SysCmdRow& row : kSysCmds) widths[static_cast<size_t>(row.id)] = row.width;
    return widths;
}();

// The payload width of a command (kSysText for a text; 0 for an id it lacks).
constexpr int sys_cmd_width(SysCmd id) {
    const auto i = static_cast<size_t>(id);
    return i < kSysCmdWidths.size() ? kSysCmdWidths[i] : 0;
}

// One row per id, in id order, every id below the channel's limit of 71.
constexpr bool sys_cmds_in_order() {
    for (size_t i = 0; i < kSysCmds.size(); ++i) {
        if (static_cast<int>(kSysCmds[i].id) > 70 || kSysCmds[i].width == 0) return false;
        if (i > 0 && kSysCmds[i - 1].id >= kSysCmds[i].id) return false;
    }
    return true;
}
static_assert(sys_cmds_in_order(), "the command rows are one per id, in order");
