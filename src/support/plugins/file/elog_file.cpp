#include "support/plugins/file/elog_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <string>

#include "support/elog.h"
#include "support/owners.h"

namespace {

struct FileSink {
    std::string name;
    size_t max_size = 0;
    int max_rotate = 0;
    FilePtr fp;
    bool initialised = false;
};

FileSink g_sink;

bool exists(const std::string& path) {
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0;
}

std::string numbered(int n) { return g_sink.name + "." + std::to_string(n); }

}  // namespace

int elog_file_init(const char* name, size_t max_size, int max_rotate) {
    ELOG_ASSERT(name);
    if (!name || !*name) return -1;
    g_sink.name = name;
    g_sink.max_size = max_size;
    g_sink.max_rotate = max_rotate;
    g_sink.fp.reset(std::fopen(name, "a+"));
    g_sink.initialised = g_sink.fp != nullptr;
    return g_sink.initialised ? 0 : -1;
}

bool elog_file_rotate() {
    ELOG_ASSERT(g_sink.initialised);
    if (!g_sink.initialised) return false;
    g_sink.fp.reset();
    bool ok = true;
    for (int n = g_sink.max_rotate - 1; n >= 0; --n) {
        const std::string newer = numbered(n);
        const std::string older = n == 0 ? g_sink.name : numbered(n - 1);
        if (exists(newer)) std::remove(newer.c_str());
        // A missing older generation is simply not there yet.
        if (exists(older) && std::rename(older.c_str(), newer.c_str()) != 0) {
            ok = false;
            break;
        }
    }
    g_sink.fp.reset(std::fopen(g_sink.name.c_str(), "a+"));
    return ok && g_sink.fp != nullptr;
}

void elog_file_write(const char* log, size_t size) {
    ELOG_ASSERT(g_sink.initialised);
    ELOG_ASSERT(log);
    if (!g_sink.initialised || !log) return;
    if (!g_sink.fp) {
        // A failed reopen after rotation: try once more before giving up the line.
        g_sink.fp.reset(std::fopen(g_sink.name.c_str(), "a+"));
        if (!g_sink.fp) return;
    }
    struct stat st {};
    if (::fstat(fileno(g_sink.fp.get()), &st) == 0 && static_cast<size_t>(st.st_size) > g_sink.max_size) {
        if (g_sink.max_rotate < 1) return;
        if (!elog_file_rotate()) return;
    }
    std::fwrite(log, 1, size, g_sink.fp.get());
    std::fflush(g_sink.fp.get());
}

void elog_file_deinit() {
    g_sink.fp.reset();
    g_sink.initialised = false;
}
