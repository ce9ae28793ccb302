// Fuzz target for what the system server hands the responder: the shared
// settings record and its further areas as the store holds them, and the
// replies to system commands. A peer that writes nonsense must not crash
// the responder: every section, the device summary, the status dump and the
// remote-control inquiries read the record as the input leaves it.
// Input: the store's bytes (as many as given; the rest zero, the record's
// magic word kept as given), then the command replies: each a length byte
// (255: the command fails) and that many bytes.
#include <string>

#include "cgi/output.h"
#include "fuzz_fakes.h"
#include "front/web.h"
#include "json/json_ctrl_func.h"

namespace {

const uint8_t* g_reply = nullptr;
size_t g_reply_left = 0;

// A command's reply from the input: its length byte, then its bytes,
// copied as the channel copies them (no more than the caller's capacity).
int command(uint32_t, void* data, int, int* capacity) {
    if (g_reply_left == 0) return 0;
    const size_t n = *g_reply++;
    --g_reply_left;
    if (n == 255) return -1;
    const size_t take = n < g_reply_left ? n : g_reply_left;
    if (capacity != nullptr && data != nullptr) {
        const size_t room = *capacity > 0 ? static_cast<size_t>(*capacity) : 0;
        std::memcpy(data, g_reply, take < room ? take : room);
        if (take <= room) *capacity = static_cast<int>(take);
    }
    g_reply += take;
    g_reply_left -= take;
    return static_cast<int>(take);
}

constexpr const char* kReads[] = {
    R"({"system":{"device_name":true,"serial_number":true,"model":true,"TZ":true,"date":true,"time":true,)"
    R"("support":true,"sd":true,"power_ctrl":true,"params":true,"update":true,"app_version":true,"mcu_version":true}})",
    R"({"ethernet":{"eth0":true}})",
    R"({"venc":{"main":true,"sub":true},"VencAbility":{"main":true,"sub":true}})",
    R"({"rtmp":{"main":true,"sub":true},"rtp multicast":{"main":true,"sub":true}})",
    R"({"audio":true,"record":true,"gb28181":true,"FreeD":true,"NTP":true})",
    R"({"image":{"zoom":true,"pan":true,"tilt":true,"focus":true,"vo_support":true,"preset":[0,1,2]}})",
    R"({"ai":true})",
};
constexpr const char* kWrites[] = {
    R"({"venc":{"main":{"mode":"h265","bitrate":4000},"sub":{"mode":"mjpeg"}}})",
    R"({"system":{"power_ctrl":{"task1":{"hour":3}},"sd":{"format":"fat32"}}})",
    R"({"rtp multicast":{"main":{"port":5004}},"NTP":{"enable":1}})",
};
constexpr const char* kQueries[] = {"controlhub",
                                    "camdata",
                                    "aw_ptz?cmd=%23O&res=1",
                                    "aw_ptz?cmd=%23APC&res=1",
                                    "aw_ptz?cmd=%23PTV&res=1",
                                    "aw_cam?cmd=QSH&res=1"};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::install();
    fuzz::g_platform.sys_command = command;
    fuzz::replies_from(nullptr, 0);
    const size_t record = size < sizeof(SysStore) ? size : sizeof(SysStore);
    auto* store = reinterpret_cast<uint8_t*>(&fuzz::g_store);
    std::memset(store, 0, sizeof(SysStore));
    std::memcpy(store, data, record);
    g_reply = data + record;
    g_reply_left = size - record;

    setenv("REQUEST_METHOD", "GET", 1);
    OutputCapture capture;
    for (const char* text : kReads) {
        image_ctrl_request_begin();
        json_get_ctrl(text);
    }
    for (const char* text : kWrites) json_set_ctrl(text);
    for (const char* query : kQueries) {
        setenv("QUERY_STRING", query, 1);
        web_handle_request();
    }
    return 0;
}

#include "replay_main.h"
