#include "cgi/upload.h"

#include "platform/platform.h"

namespace {
constexpr const char* kUploadPath = "/tmp/update.bin";
bool g_armed = false;
bool g_complete = true;
}  // namespace

void upload_set_armed(bool armed) {
    g_armed = armed;
    if (armed) g_complete = true;
}
bool upload_is_armed() { return g_armed; }
void upload_mark_incomplete() { g_complete = false; }
bool upload_is_complete() { return g_complete; }
PlatformPath upload_path() { return platform_path(kUploadPath); }
