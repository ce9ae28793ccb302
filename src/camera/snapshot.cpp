// The snapshot: the system server writes a picture into /tmp/snap.jpg on
// request. One request and one wait for it, used by the camera command set's
// named snapshots and by the preview endpoint.
#include "camera/snapshot.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "camera/image_ctrl.h"
#include "ipc/sys_port.h"
#include "platform/platform.h"
#include "support/log.h"
#include "support/support.h"

namespace {

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
    const std::string dir_path = platform_path(kSnapDir).c_str();
    if (DIR* dir = opendir(dir_path.c_str())) {
        while (const dirent* e = readdir(dir)) {
            const std::string entry = e->d_name;
            if (entry == "." || entry == "..") continue;
            if (entry == name) {
                closedir(dir);
                return;
            }
            struct stat st {};
            const std::string full = dir_path + "/" + entry;
            if (lstat(full.c_str(), &st) == 0 && S_ISLNK(st.st_mode)) links.push_back({entry, st.st_mtime});
        }
        closedir(dir);
    }
    if (links.size() < kSnapLinksMax) return;
    std::sort(links.begin(), links.end(), [](const Link& a, const Link& b) { return a.made < b.made; });
    for (size_t i = 0; i + kSnapLinksMax <= links.size(); ++i)
        unlink((dir_path + "/" + links[i].name).c_str());
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

int snapshot_take(const uint8_t (&request)[4]) {
    if (sys_send_block<SysCmd::snapshot>(request) < 0) {
        LOG_ERR("snapshot request failed\n");
        return -1;
    }
    const PlatformPath file = platform_path(kSnapFile);
    for (int i = 0; i < kSnapPolls; ++i) {
        if (access(file.c_str(), F_OK) == 0) return 0;
        platform_sleep_ms(100);
    }
    LOG_ERR("snapshot not taken\n");
    return -1;
}

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
    unlink(platform_path(kSnapFile).c_str());
    const uint8_t request[4] = {static_cast<uint8_t>(mode), static_cast<uint8_t>(flag),
                                static_cast<uint8_t>(width / 16), static_cast<uint8_t>(height / 16)};
    if (snapshot_take(request) != 0) return -1;
    if (pox_system("mkdir -p /opt/ipnc/www/images/snap") < 0) return -1;  // kSnapDir
    if (name) {
        snap_links_make_room(name);
        char cmd[160];
        std::snprintf(cmd, sizeof cmd, "ln -sf /tmp/snap.jpg %s/%s", kSnapDir, name);
        if (pox_system(cmd) < 0) return -1;
    }
    return 0;
}
