#include "cgi/upload.h"

namespace {
constexpr const char* kUploadPath = "/tmp/update.bin";
bool g_armed = false;
bool g_complete = true;
const char* g_path = kUploadPath;
}  // namespace

void upload_set_armed(bool armed) {
    g_armed = armed;
    if (armed) g_complete = true;
}
bool upload_is_armed() { return g_armed; }
void upload_mark_incomplete() { g_complete = false; }
bool upload_is_complete() { return g_complete; }
void upload_set_path(const char* path) { g_path = path != nullptr ? path : kUploadPath; }
const char* upload_path() { return g_path; }
