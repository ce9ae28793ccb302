// The maintenance members of the "system" section: the SD card (state,
// recordings, deletion, formatting), the log links, the parameter export and
// the firmware update's two steps.
#include <dirent.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <string_view>

#include "cgi/upload.h"
#include "ipc/sys_port.h"
#include "json/json_fields.h"
#include "json/json_section.h"
#include "json/json_system.h"
#include "json/json_system_rows.h"
#include "platform/platform.h"
#include "net/net_config.h"
#include "support/log.h"
#include "support/owners.h"
#include "support/support.h"

namespace {

using namespace system_section;

// ---- paths ------------------------------------------------------------------------------
constexpr const char* kSdStatus = "/tmp/sd.status";
constexpr const char* kSdDevice = "/tmp/sddev";
constexpr const char* kSdMount = "/mnt/sd/";
constexpr const char* kSdFiles = "/mnt/sd/DCIM";
constexpr const char* kParamsFile = "/opt/ipnc/www/fw_params.bin";
constexpr const char* kParamsArchive = "/tmp/params.tar.gz";
constexpr const char* kWebTmp = "/opt/ipnc/www/tmp";
constexpr int kLogLinksMax = 128;

// ---- small readers ----------------------------------------------------------------------

// The first line of a small file the other processes write, at most 127
// bytes, without its line end; empty when it cannot be read.
std::string small_file(const char* path) {
    char text[128] = "";
    if (file_read_text(platform_path(path).c_str(), text, sizeof text) < 0) return {};
    return std::string(text, std::strcspn(text, "\r\n"));
}

}  // namespace

namespace system_section {

// ---- SD card ----------------------------------------------------------------------------

int sd_state() { return std::atoi(small_file(kSdStatus).c_str()); }

// Total or available size of the card in MiB, false when the card is not
// ready or its file system cannot be asked.
cJSON* sd_size(bool available) {
    struct statfs fs {};
    if (sd_state() != 1 || statfs(platform_path(kSdMount).c_str(), &fs) != 0) return cJSON_CreateFalse();
    const unsigned long long blocks = available ? fs.f_bavail : fs.f_blocks;
    return cJSON_CreateNumber(
        static_cast<double>((blocks * static_cast<unsigned long long>(fs.f_bsize)) >> 20));
}
cJSON* sd_storage_size(const Field&, const uint8_t*, int) { return sd_size(false); }
cJSON* sd_avail_size(const Field&, const uint8_t*, int) { return sd_size(true); }
cJSON* sd_state_value(const Field&, const uint8_t*, int) { return cJSON_CreateNumber(sd_state()); }

cJSON* sd_filelist(const Field&, const uint8_t*, int) {
    DIR* dir = opendir(platform_path(kSdFiles).c_str());
    if (dir == nullptr) return nullptr;
    cJSON* list = cJSON_CreateArray();
    for (const dirent* entry = readdir(dir); entry != nullptr && list != nullptr; entry = readdir(dir)) {
        if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0) continue;
        cJSON_AddItemToArray(list, cJSON_CreateString(entry->d_name));
    }
    closedir(dir);
    return list;
}

constexpr auto kSdFields = std::to_array<Field>({
    own_field("state").read_by(sd_state_value),
    own_field("storage size").read_by(sd_storage_size),
    own_field("avail size").read_by(sd_avail_size),
    own_field("filelist").read_by(sd_filelist).only_in(kInKeyed),
});

int get_sd(const Row&, cJSON* item, cJSON* answer) { return fields_read(kSdFields, nullptr, item, answer); }

// A device name the other processes wrote, used in shell lines only when it
// is a plain name.
bool plain_name(std::string_view name) {
    return !name.empty() && std::all_of(name.begin(), name.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
               c == '-';
    });
}

struct Format {
    std::string_view name;
    const char* command;
};
constexpr std::array<Format, 2> kFormats{{{"fat32", "mkfs.vfat /dev/%s"}, {"ntfs", "mkntfs -f /dev/%s"}}};

bool sd_format(const cJSON* item) {
    if (!cJSON_IsString(item)) return false;
    const Format* format = find_row(std::span<const Format>(kFormats), item->valuestring);
    const SysState* state = sys_state(1);
    if (format == nullptr || state == nullptr || state->sdPresent == 0) return false;
    const std::string device = small_file(kSdDevice);
    if (!plain_name(device)) return false;
    char line[256];
    pox_system("umount -fl /mnt/sd");
    std::snprintf(line, sizeof line, format->command, device.c_str());
    pox_system(line);
    std::snprintf(line, sizeof line, "sd-automount %s", device.c_str());
    pox_system(line);
    return true;
}

// Removes one recording; the name must stay inside the recordings folder.
bool sd_delete_one(const cJSON* name) {
    if (!cJSON_IsString(name) || name->valuestring == nullptr) return false;
    const std::string_view text(name->valuestring);
    if (text.empty() || text == "." || text.find("..") != std::string_view::npos ||
        text.find('/') != std::string_view::npos || text.size() > 255)
        return false;
    const std::string path = std::string(platform_path(kSdFiles).c_str()) + "/" + std::string(text);
    return unlink(path.c_str()) == 0;
}

// One name or an array of names; one answer: true when every name was
// removed (those that could be removed are, whatever the others do).
bool sd_delete(const cJSON* item) {
    if (!cJSON_IsArray(item)) return sd_delete_one(item);
    bool all = true;
    for (const cJSON* name = item->child; name != nullptr; name = name->next)
        all = sd_delete_one(name) && all;
    return all;
}

int set_sd(const Row&, cJSON* item, cJSON* answer) {
    cJSON* results = cJSON_CreateObject();
    if (results == nullptr) return give(item, answer, nullptr);
    bool failed = false;
    for (const cJSON* action = item->child; action != nullptr; action = action->next) {
        const bool done = same_word(action->string, "format")   ? sd_format(action)
                          : same_word(action->string, "delete") ? sd_delete(action)
                                                                : false;
        failed = failed || !done;
        json_answer_bool(results, action->string, done);
    }
    json_answer(answer, item->string, results);
    return failed ? -1 : 0;
}

// ---- logs ------------------------------------------------------------------------------

cJSON* log_link(const std::string& host, int port, const char* file) {
    char text[160];
    std::snprintf(text, sizeof text, "http://%s:%1d/tmp/%s", host.c_str(), port, file);
    return cJSON_CreateString(text);
}

int get_log(const Row&, cJSON* item, cJSON* answer) {
    struct stat st {};
    if (lstat(platform_path(kWebTmp).c_str(), &st) != 0) {
        pox_system("ln -s /tmp /opt/ipnc/www/tmp");
    } else if (!S_ISLNK(st.st_mode)) {
        return give(item, answer, nullptr);
    }
    const SysInfo* info = sys_info();
    const int port = info != nullptr ? info->httpPort : 80;
    const std::string host = net_eth0_dotted();
    if (same_word(item->valuestring, "kernel")) {
        pox_system("dmesg > /tmp/kernel.log");
        return give(item, answer, log_link(host, port, "kernel.log"));
    }
    if (!same_word(item->valuestring, "app")) return give(item, answer, nullptr);
    if (access(platform_path("/tmp/system.log.0").c_str(), F_OK) != 0)
        return give(item, answer, log_link(host, port, "system.log"));
    cJSON* links = cJSON_CreateArray();
    if (links == nullptr) return give(item, answer, nullptr);
    cJSON_AddItemToArray(links, log_link(host, port, "system.log"));
    for (int n = 0; n + 1 < kLogLinksMax; ++n) {
        char name[32];
        std::snprintf(name, sizeof name, "system.log.%d", n);
        if (access(platform_path((std::string("/tmp/") + name).c_str()).c_str(), F_OK) != 0) break;
        cJSON_AddItemToArray(links, log_link(host, port, name));
    }
    return give(item, answer, links);
}

// ---- parameter export ----------------------------------------------------------------------

template <typename T>
void put_le(uint8_t* at, T value) {
    for (size_t i = 0; i < sizeof(T); ++i)
        at[i] = static_cast<uint8_t>(static_cast<uint64_t>(value) >> (8 * i));
}

// Writes the header and the archive behind it; false on any failure, with no
// partial file left.
bool write_params(FILE* archive, uint32_t archive_length) {
    uint8_t header[kParamsHeaderSize];
    json_params_header(header, archive_length);
    FilePtr out(std::fopen(platform_path(kParamsFile).c_str(), "wb"));
    if (!out) {
        LOG_ERR("%s open failed!\n", kParamsFile);
        return false;
    }
    size_t written = std::fwrite(header, 1, sizeof header, out.get());
    size_t total = sizeof header;
    std::array<char, 8192> chunk{};
    for (size_t n; (n = std::fread(chunk.data(), 1, chunk.size(), archive)) > 0;) {
        total += n;
        written += std::fwrite(chunk.data(), 1, n, out.get());
    }
    const bool flushed = std::fflush(out.get()) == 0;
    out.reset();
    if (written != total || total != archive_length + sizeof header || !flushed) {
        char line[96];
        std::snprintf(line, sizeof line, "rm -f %s", kParamsFile);
        pox_system(line);
        LOG_ERR("%s write failed!  %d  %d\n", kParamsFile, static_cast<int>(written),
                static_cast<int>(total));
        return false;
    }
    return true;
}

int get_params(const Row&, cJSON* item, cJSON* answer) {
    pox_system("tar -zcvf /tmp/params.tar.gz /opt/params");
    FilePtr archive(std::fopen(platform_path(kParamsArchive).c_str(), "rb"));
    struct stat st {};
    if (!archive || fstat(fileno(archive.get()), &st) != 0 || st.st_size < 0 ||
        static_cast<uint64_t>(st.st_size) > UINT32_MAX - kParamsHeaderSize ||
        !write_params(archive.get(), static_cast<uint32_t>(st.st_size)))
        return give(item, answer, nullptr);
    char link[64];
    std::snprintf(link, sizeof link, "http://%s/fw_params.bin", net_eth0_dotted().c_str());
    return give(item, answer, cJSON_CreateString(link));
}

constexpr int kUpdatePortBase = 5000;
constexpr int kUpdatePortSpan = 1000;

// Starts the update companion on a free port drawn at random.
int start_update(const Row&, cJSON* item, cJSON* answer) {
    std::srand(static_cast<unsigned>(platform_now()));
    int port = -1;
    for (int tries = 0; tries < kUpdatePortSpan && port < 0; ++tries) {
        const int candidate = kUpdatePortBase + std::rand() % kUpdatePortSpan;
        if (net_check_port(static_cast<unsigned short>(candidate)) == 0) port = candidate;
    }
    if (port < 0) return give(item, answer, nullptr);
    pox_system("killall websocketserver");
    char line[128];
    std::snprintf(line, sizeof line, "/opt/ipnc/websocketserver -p %d -s %d 1>/dev/console 2>/dev/console &",
                  port, item->valueint);
    SysState* state = sys_state(1);
    if (pox_system(line) != 0 || state == nullptr) return give(item, answer, nullptr);
    state->updateProgress = 1;
    if (state->updatePort == 0) state->updatePort = static_cast<uint32_t>(port);
    return give(item, answer, cJSON_CreateNumber(port));
}

// "start" arms the upload; "end" disarms it and hands a complete image to
// the update program. An image that lost a piece is never installed.
int post_update(const Row&, cJSON* item, cJSON* answer) {
    if (same_word(item->valuestring, "start")) {
        upload_set_armed(true);
        pox_system("rm /tmp/update.bin");
        return give(item, answer, cJSON_CreateTrue());
    }
    if (!same_word(item->valuestring, "end")) return give(item, answer, nullptr);
    upload_set_armed(false);
    if (!upload_is_complete()) {
        LOG_ERR("update image incomplete, not installed\n");
        return give(item, answer, nullptr);
    }
    pox_system("/opt/ipnc/sys_update 1>/dev/console 2>/dev/console &");
    return give(item, answer, cJSON_CreateTrue());
}

}  // namespace system_section

void json_params_header(uint8_t (&header)[kParamsHeaderSize], uint32_t archive_length) {
    std::memset(header, 0, sizeof header);
    put_le<uint32_t>(header + 4, archive_length + kParamsHeaderSize);
    std::memcpy(header + 8, "4K Conference Camera", 20);
    put_le<uint32_t>(header + 132, 208);
    put_le<uint32_t>(header + 136, 1);
    put_le<uint32_t>(header + 208, kParamsHeaderSize);
    std::memcpy(header + 212, kParamsArchive, std::strlen(kParamsArchive));
    put_le<uint32_t>(header + 340, archive_length);
}
