#include "front/web.h"

#include <malloc.h>
#include <poll.h>
#include <strings.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <unistd.h>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include <cjson/cJSON.h>

#include "camera/image_ctrl.h"
#include "front/device.h"
#include "cgi/output.h"
#include "front/post_cmd.h"
#include "cgi/reply.h"
#include "cgi/upload.h"
#include "ipc/CamMsgDrv.h"
#include "ipc/file_msg_drv.h"
#include "ipc/msg_util.h"
#include "ipc/sys_msg_drv.h"
#include "json/json_ctrl_func.h"
#include "platform/platform.h"
#include "remote/aw_cam.h"
#include "remote/aw_ptz.h"
#include "remote/session.h"
#include "support/elog.h"
#include "support/log.h"
#include "support/support.h"

namespace {

constexpr size_t kBufferSize = 2048;  // query and body area
constexpr size_t kMaxQuery = kBufferSize - 1;
constexpr size_t kPostNameSize = 32;
constexpr size_t kPostNameSkip = 5;  // "path=" is skipped unread
constexpr const char* kErrorParams = "Error params.\n";

// One spare byte behind the area keeps a full 2048-byte body terminated.
std::array<char, kBufferSize + 1> g_buffer{};
std::array<char, kBufferSize> g_decoded{};
int g_route_index = -1;
constexpr const char* kPrintConf = "/opt/params/print.conf";
volatile std::sig_atomic_t g_reload_level = 0;

using RouteHandler = int (*)(const char* argument);

enum class Match { Prefix, Whole };

struct GetRoute {
    const char* prefix;
    Match match;
    size_t compare_len;
    size_t arg_offset;
    RouteHandler handler;
};

constexpr std::array<GetRoute, 9> kGetRoutes{{
    {"func=get", Match::Prefix, 8, 8, json_get_ctrl},
    {"func=set", Match::Prefix, 8, 8, json_set_ctrl},
    {"path=", Match::Prefix, 5, 5, device_path_route},
    {"controlhub", Match::Prefix, 10, 10, [](const char*) { return device_summary(); }},
    {"aw_ptz?", Match::Prefix, 7, 7, aw_ptz},
    {"aw_cam?", Match::Prefix, 7, 7, aw_cam},
    {"event?", Match::Prefix, 6, 6, event},
    {"man_session?", Match::Prefix, 12, 12, man_session},
    {"camdata", Match::Whole, 0, 7, [](const char*) { return camdata(); }},
}};
// A prefix is compared whole and its argument starts right after it.
constexpr bool routes_consistent() {
    for (const GetRoute& r : kGetRoutes) {
        const size_t length = std::char_traits<char>::length(r.prefix);
        if ((r.match == Match::Prefix && r.compare_len != length) || r.arg_offset != length) return false;
    }
    return true;
}
static_assert(routes_consistent(), "a route compares or skips other than its prefix");

struct PostRoute {
    const char* name;
    RouteHandler handler;
};

constexpr std::array<PostRoute, 4> kPostRoutes{{
    {"sendPTZ", sendPTZ},
    {"sendPreset", sendPreset},
    {"get", json_get_ctrl},
    {"set", json_set_ctrl},
}};

void on_sigusr1(int) { g_reload_level = 1; }

// SIGTERM between requests ends the process at once; during a request it
// cuts short any wait on a peer, so the request is answered (as failed) and
// the loop ends before the next one.
volatile sig_atomic_t g_in_request = 0;
volatile sig_atomic_t g_terminate = 0;
void on_sigterm(int) {
    if (g_in_request == 0) _exit(0);
    g_terminate = 1;
    g_msg_stop = 1;
}

// The signal handler only raises a flag (reading a file is not safe inside
// it); the level is read again here, before the next request is served.
void reload_print_level_if_asked() {
    if (g_reload_level == 0) return;
    g_reload_level = 0;
    elog_load_print_level("FASTCGI", platform_path(kPrintConf).c_str());
}

// CONTENT_LENGTH in base 10; absent, negative or unreadable counts as 0.
long content_length() {
    const char* text = std::getenv("CONTENT_LENGTH");
    if (text == nullptr) return 0;
    long n = std::strtol(text, nullptr, 10);
    return n > 0 ? n : 0;
}

// Reads `length` body bytes one at a time, keeping the first `keep` in
// `dest` (may be null). A body that ends early ends the reading too.
void read_body(long length, char* dest, size_t keep) {
    for (long i = 0; i < length; ++i) {
        int c = in_getchar();
        if (c < 0) break;
        if (dest != nullptr && static_cast<size_t>(i) < keep) dest[i] = static_cast<char>(c);
    }
}

void route_get(const char* query) {
    std::memcpy(g_buffer.data(), query, std::strlen(query) + 1);
    url_decode(g_buffer.data(), g_decoded.data());
    const char* decoded = g_decoded.data();
    for (const GetRoute& r : kGetRoutes) {
        bool hit = r.match == Match::Whole ? strcasecmp(decoded, r.prefix) == 0
                                           : strncasecmp(decoded, r.prefix, r.compare_len) == 0;
        if (hit) {
            r.handler(decoded + r.arg_offset);
            return;
        }
    }
    reply_error(decoded);
}

// Appends the body to the upload file; successive POSTs between an arming
// and the update accumulate into one image.
// The reply is the same whatever the writing did; a piece that could not be
// written is logged and marks the image incomplete, so that the update is
// not started on it.
void firmware_upload() {
    long length = content_length();
    OutFile* file = out_fopen(upload_path().c_str(), "ab+");
    if (file == nullptr) LOG_ERR("open upload file failed\n");
    long total = 0;
    long written = 0;
    while (total < length) {
        size_t want = static_cast<size_t>(std::min<long>(length - total, kBufferSize));
        size_t got = in_read(g_buffer.data(), want);
        if (got == 0) break;  // the client stopped sending
        if (file != nullptr) written += static_cast<long>(out_fwrite(g_buffer.data(), got, file));
        total += static_cast<long>(got);
    }
    if (file == nullptr || out_fclose(file) != 0 || written != total) {
        LOG_ERR("upload written short: %ld of %ld bytes\n", written, total);
        upload_mark_incomplete();
    }
    reply_header(kHdrJson);
    out_printf("{\"status\":1,\"size\":%d}", static_cast<int>(total));
}

void route_post(const char* query) {
    // The name is the query from its sixth character on; one that does not
    // fit the 32-byte field cannot be a route name and is simply not found.
    std::array<char, kPostNameSize> name{};
    bool fits = true;
    if (std::strlen(query) > kPostNameSkip) {
        const char* from = query + kPostNameSkip;
        size_t len = std::strlen(from);
        fits = len < kPostNameSize;
        if (fits) std::memcpy(name.data(), from, len + 1);
    }

    if (fits && upload_is_armed() && std::strcmp(name.data(), "update") == 0) {
        firmware_upload();
        return;
    }

    long length = content_length();
    if (!fits || post_route_find(name.data()) != 0) {
        read_body(length, nullptr, 0);
        reply_error(kErrorParams);
        return;
    }
    g_buffer.fill('\0');
    read_body(length, g_buffer.data(), kBufferSize);
    kPostRoutes[static_cast<size_t>(g_route_index)].handler(g_buffer.data());
}

}  // namespace

int post_route_find(const char* name) {
    for (size_t i = 0; i < kPostRoutes.size(); ++i) {
        if (std::strcmp(name, kPostRoutes[i].name) == 0) {
            g_route_index = static_cast<int>(i);
            return 0;
        }
    }
    return -ENOENT;
}

int post_route_selected() { return g_route_index; }

void web_handle_request() {
    reload_print_level_if_asked();
    const char* query = std::getenv("QUERY_STRING");
    const char* method = std::getenv("REQUEST_METHOD");
    if (query == nullptr || method == nullptr) return;

    if (std::strcmp(method, "GET") == 0) {
        if (std::strlen(query) > kMaxQuery) {
            reply_error(kErrorParams);
            return;
        }
        route_get(query);
    } else if (std::strcmp(method, "POST") == 0) {
        route_post(query);
    }
}

int system_init() {
    elog_init(g_print_level);
    process_info_print("web");
    elog_load_print_level("FASTCGI", platform_path(kPrintConf).c_str());

    struct sigaction sa {};
    sa.sa_handler = on_sigusr1;
    sigemptyset(&sa.sa_mask);
    sa.sa_flags = SA_RESTART;
    sigaction(SIGUSR1, &sa, nullptr);
    sa.sa_handler = on_sigterm;
    sa.sa_flags = 0;
    sigaction(SIGTERM, &sa, nullptr);

    if (InitSysMsgDrv(14) != 0) {
        LOG_ERR("system command channel init failed\n");
        return -1;
    }
    if (InitFileMsgDrv(12930021, 13) != 0) {
        LOG_ERR("system information store init failed\n");
        CleanupSysMsgDrv();
        return -1;
    }
    if (CamMsgCltInit(3) != 0) {
        LOG_ERR("camera command channel init failed\n");
        CleanupFileMsgDrv();
        CleanupSysMsgDrv();
        return -1;
    }
    json_access_key_update();
    return 0;
}

int system_deinit() {
    CleanupSysMsgDrv();
    CleanupFileMsgDrv();
    CamMsgCltExit();
    elog_deinit();
    return 0;
}

namespace {

// The bytes the JSON documents of this request took. A request that took
// many (a whole section read or written) gives its pages back to the system
// when it ends, so the process at rest holds only its own; a small one
// leaves them for the next, which would only fault them in again.
size_t g_json_bytes = 0;
constexpr size_t kGiveBackAbove = 16 * 1024;

void* json_malloc(size_t size) {
    g_json_bytes += size;
    return std::malloc(size);
}

// At rest the process holds only its own pages: once no request has come
// for this long, what the last ones left in the heap goes back too. Under
// load the next request is already waiting and nothing is spent.
constexpr int kRestMs = 50;

bool at_rest() {
    pollfd listener{0, POLLIN, 0};  // the FastCGI listening socket
    return poll(&listener, 1, kRestMs) == 0;
}

void request_end() {
    out_finish();
    if (g_json_bytes > kGiveBackAbove || at_rest()) malloc_trim(0);
    g_json_bytes = 0;
}

}  // namespace

int web_main() {
    if (system_init() != 0) {
        pox_system("echo FASTCGI:system init failed > /dev/stderr");
        return -1;
    }
    cJSON_Hooks hooks{json_malloc, std::free};
    cJSON_InitHooks(&hooks);
    while (g_terminate == 0 && out_accept() >= 0) {
        g_in_request = 1;
        image_ctrl_request_begin();
        web_handle_request();
        Msg_Timer_Off();
        g_in_request = 0;
        request_end();
    }
    system_deinit();
    return 0;
}
