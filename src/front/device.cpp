#include "front/device.h"

#include <strings.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include <cJSON.h>

#include "camera/snapshot.h"
#include "cgi/output.h"
#include "cgi/reply.h"
#include "ipc/sys_port.h"
#include "platform/platform.h"
#include "support/log.h"
#include "support/support.h"
#include "support/owners.h"

namespace {

constexpr const char* kLogoPath = "/opt/params/logo.jpg";
constexpr int kInUseWaitTries = 20;  // 500 ms apart

using PathHandler = int (*)();

struct DevicePath {
    const char* path;
    size_t compare_len;
    PathHandler handler;
};

constexpr std::array<DevicePath, 2> kPaths{{
    {"/mw-api/v1/preview/image", 24, device_preview},
    {"/mw-api/v1/device/summary", 25, device_summary},
}};

void copy_to_reply(std::FILE* f) {
    std::array<char, 1024> piece;
    size_t n;
    while ((n = std::fread(piece.data(), 1, piece.size(), f)) > 0) out_write(piece.data(), n);
}

// Adds a fresh object under `key` and returns it, or null when it cannot be
// created (the member is then left out).
cJSON* add_object(cJSON* parent, const char* key) {
    cJSON* obj = cJSON_CreateObject();
    if (obj != nullptr) cJSON_AddItemToObject(parent, key, obj);
    return obj;
}

}  // namespace

int device_path_route(const char* path) {
    if (path == nullptr) return 0;
    for (const DevicePath& p : kPaths) {
        if (strncasecmp(path, p.path, p.compare_len) == 0) {
            p.handler();
            return 0;
        }
    }
    return 0;  // an unknown path is not answered
}

int device_summary() {
    JsonTree root(cJSON_CreateObject());
    const SysInfo* info = sys_info();
    if (!root || info == nullptr) {
        LOG_ERR("device summary unavailable\n");
        return -1;
    }
    reply_header(kHdrJson);

    if (cJSON* device = add_object(root.get(), "device")) {
        char name[sizeof info->device_name + 1] = {};
        char sn[sizeof info->serial_number + 1] = {};
        std::snprintf(name, sizeof name, "%.*s", static_cast<int>(sizeof info->device_name),
                      info->device_name);
        std::snprintf(sn, sizeof sn, "%.*s", static_cast<int>(sizeof info->serial_number),
                      info->serial_number);
        char firmware[16];
        std::snprintf(firmware, sizeof firmware, "V%s", kWebVersion);
        cJSON_AddItemToObject(device, "name", cJSON_CreateString(name));
        cJSON_AddItemToObject(device, "sn", cJSON_CreateString(sn));
        cJSON_AddItemToObject(device, "module-name", cJSON_CreateString("camera"));
        cJSON_AddItemToObject(device, "firmware-ver", cJSON_CreateString(firmware));
    }
    if (cJSON* features = add_object(root.get(), "features")) {
        cJSON_AddItemToObject(features, "img-preview", cJSON_CreateTrue());
    }
    cJSON_AddItemToObject(root.get(), "timeout-sec", cJSON_CreateNumber(0));
    cJSON_AddItemToObject(root.get(), "result", cJSON_CreateNumber(0));

    JsonText text(cJSON_Print(root.get()));
    if (text) out_printf("%s\n", text.get());
    return 0;
}

int device_preview() {
    reply_header(kHdrJpeg);

    // A stored logo replaces the live picture.
    if (FilePtr logo(std::fopen(platform_path(kLogoPath).c_str(), "rb")); logo) {
        copy_to_reply(logo.get());
        return 0;
    }

    // Let a snapshot still being written finish, but do not wait forever.
    const PlatformPath snap_file = platform_path(kSnapFile);
    for (int i = 0; i < kInUseWaitTries && file_in_use(snap_file.c_str()) == 1; ++i) platform_sleep_ms(500);
    pox_system("rm /tmp/snap.jpg 1>/dev/null 2>/dev/null");

    static constexpr uint8_t kPreviewRequest[4] = {0x68, 0x01, 0x40, 0x41};
    if (snapshot_take(kPreviewRequest) != 0) return 0;  // the header alone

    FilePtr snap(std::fopen(snap_file.c_str(), "rb"));
    if (!snap) {
        LOG_ERR("no snapshot picture\n");
        return 0;
    }
    copy_to_reply(snap.get());
    return 0;
}
