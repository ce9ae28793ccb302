// Fuzz target for the section-and-key files: the input is the file's
// content, then a section, a key and a value (separated by NUL bytes). Reads
// every section and key, sets the value, and checks that a value that was
// taken reads back as written, and that no temporary is left beside the file.
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "support/elog.h"
#include "support/support.h"

namespace {

std::vector<std::string> split(const std::string& text) {
    std::vector<std::string> parts;
    size_t start = 0;
    for (size_t i = 0; i <= text.size(); ++i) {
        if (i == text.size() || text[i] == '\0') {
            parts.push_back(text.substr(start, i - start));
            start = i + 1;
        }
    }
    return parts;
}

// A directory of the fuzzer's own below the working directory, removed
// again when the run ends.
std::string g_dir;
void remove_dir() {
    std::remove((g_dir + "/t.ini").c_str());
    rmdir(g_dir.c_str());
}
const std::string& work_dir() {
    if (g_dir.empty()) {
        g_dir = "fuzz-ini-" + std::to_string(getpid());
        mkdir(g_dir.c_str(), 0700);
        std::atexit(remove_dir);
    }
    return g_dir;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    g_print_level = 0;
    const std::vector<std::string> parts = split(std::string(reinterpret_cast<const char*>(data), size));
    if (parts.size() < 4) return 0;
    const std::string path = work_dir() + "/t.ini";
    std::ofstream(path, std::ios::binary | std::ios::trunc) << parts[0];

    char names[16][64];
    const int sections = ini_get_sections(path.c_str(), names, 16);
    for (int i = 0; i < sections && i < 16; ++i) {
        char keys[16][64];
        ini_get_keys(path.c_str(), names[i], keys, 16);
    }
    const std::string& section = parts[1];
    const std::string& key = parts[2];
    const std::string& value = parts[3];
    if (ini_set_value(path.c_str(), section.c_str(), key.c_str(), value.c_str()) == 0) {
        char back[256];
        if (ini_get_value(path.c_str(), section.c_str(), key.c_str(), back, sizeof back) == 1 &&
            value.size() < sizeof back && value.find_first_of(" \t") == std::string::npos &&
            std::strcmp(back, value.c_str()) != 0)
            __builtin_trap();
    }
    int entries = 0;
    if (DIR* dir = opendir(work_dir().c_str())) {
        while (dirent* e = readdir(dir)) entries += e->d_name[0] != '.';
        closedir(dir);
    }
    if (entries != 1) __builtin_trap();
    return 0;
}

#include "replay_main.h"
