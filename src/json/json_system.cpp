// The "system" section: the device's identity, clock, feature list, storage,
// logs and power schedule, and the maintenance actions. Each request member
// is a row: its key, the JSON type it takes and the function that answers it;
// values kept in the settings record or the live state are rows of the field
// kit read straight from there.
#include "json/json_system.h"

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

#include "camera/image_ctrl.h"
#include "cgi/upload.h"
#include "ipc/sys_port.h"
#include "json/json_access.h"
#include "json/json_image.h"
#include "json/json_section.h"
#include "net/net_config.h"
#include "support/log.h"
#include "support/owners.h"
#include "support/support.h"

namespace {

// ---- paths --------------------------------------------------------------------------
constexpr const char* kSdStatus = "/tmp/sd.status";
constexpr const char* kSdDevice = "/tmp/sddev";
constexpr const char* kSdMount = "/mnt/sd/";
constexpr const char* kSdFiles = "/mnt/sd/DCIM";
constexpr const char* kParamsFile = "/opt/ipnc/www/fw_params.bin";
constexpr const char* kParamsArchive = "/tmp/params.tar.gz";
constexpr const char* kWebTmp = "/opt/ipnc/www/tmp";
constexpr int kLogLinksMax = 128;

// ---- small readers ------------------------------------------------------------------

// The first line of a small file the other processes write, at most 127
// bytes, without its line end; empty when it cannot be read.
std::string small_file(const char* path) {
    char text[128] = "";
    if (file_read_text(path, text, sizeof text) < 0) return {};
    return std::string(text, std::strcspn(text, "\r\n"));
}

// The local time, with TZ taken from the settings record first so that every
// clock read follows the zone the user chose.
std::tm local_now() {
    const SysInfo* info = sys_info();
    if (info != nullptr) {
        const std::string zone(field_text(info->timezone));
        const char* now = std::getenv("TZ");
        if (now == nullptr || zone != now) {
            setenv("TZ", zone.c_str(), 1);
            tzset();
        }
    }
    const std::time_t t = std::time(nullptr);
    std::tm tm{};
    localtime_r(&t, &tm);
    return tm;
}

cJSON* date_text(const std::tm& tm) {
    char text[40];
    std::snprintf(text, sizeof text, "%d-%d-%d", tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday);
    return cJSON_CreateString(text);
}

// ---- the rows -------------------------------------------------------------------------

// What a member's value must be for its row to take it.
enum class Want : uint8_t { yes, any, text, number, object, yes_or_object };

bool wants(Want want, const cJSON* item) {
    switch (want) {
    case Want::yes: return cJSON_IsTrue(item);
    case Want::any: return true;
    case Want::text: return cJSON_IsString(item) && item->valuestring != nullptr;
    case Want::number: return cJSON_IsNumber(item);
    case Want::object: return cJSON_IsObject(item);
    case Want::yes_or_object: return cJSON_IsTrue(item) || cJSON_IsObject(item);
    }
    return false;
}

// Where a row's record value lives.
enum class Rec : uint8_t { none, info, state };

struct Row;
// Answers `item` under its own key in `answer`; 0, or -1 when it failed.
using Handler = int (*)(const Row& row, cJSON* item, cJSON* answer);

struct Row {
    std::string_view name;
    Want want;
    Handler handler;
    Rec rec = Rec::none;  // the record `value` is read from
    Field value{};        // a record value, read with the field kit
    const char* text = nullptr;
    SysCmd command{};
    uint8_t clock_half = 0;  // the clock rows: 0 the date, 1 the time
};

const uint8_t* record(Rec rec) {
    switch (rec) {
    case Rec::info: return reinterpret_cast<const uint8_t*>(sys_info());
    case Rec::state: return reinterpret_cast<const uint8_t*>(sys_state(1));
    case Rec::none: break;
    }
    return nullptr;
}

// Answers `value` (false when null); -1 when it was null.
int give(cJSON* item, cJSON* answer, cJSON* value) { return json_answer_value(answer, item, value) ? 0 : -1; }

cJSON* record_value(const Row& row) {
    const uint8_t* block = record(row.rec);
    return block != nullptr ? field_value(row.value, block) : nullptr;
}

int answer_record(const Row& row, cJSON* item, cJSON* answer) {
    return give(item, answer, record_value(row));
}
int answer_text(const Row& row, cJSON* item, cJSON* answer) {
    return give(item, answer, cJSON_CreateString(row.text));
}
// Asked of a camera that keeps no such setting: false, and no failure.
int answer_nothing(const Row&, cJSON* item, cJSON* answer) {
    json_answer_false(answer, item->string);
    return 0;
}

int get_login(const Row&, cJSON* item, cJSON* answer) {
    return give(item, answer,
                json_login_check(item->valuestring) == 0 ? cJSON_CreateNumber(json_access_key()) : nullptr);
}

int get_model(const Row&, cJSON* item, cJSON* answer) {
    const SysInfo* info = sys_info();
    const std::string model = info != nullptr ? std::string(field_text(info->model)) : std::string();
    return give(item, answer, model.empty() ? nullptr : cJSON_CreateString(model.c_str()));
}

int get_app_version(const Row&, cJSON* item, cJSON* answer) {
    char text[40];
    std::snprintf(text, sizeof text, "%s%s_%s", "V", kWebVersion, "2025-03-20");
    return give(item, answer, cJSON_CreateString(text));
}

int get_mcu_version(const Row&, cJSON* item, cJSON* answer) {
    char text[128];
    if (image_camera_version(text, sizeof text) != 0) std::snprintf(text, sizeof text, "V1.0");
    return give(item, answer, cJSON_CreateString(text));
}

int get_update(const Row&, cJSON* item, cJSON* answer) {
    const SysState* state = sys_state(1);
    return give(item, answer, cJSON_CreateNumber(state != nullptr ? state->updateProgress : 0));
}

int get_date(const Row&, cJSON* item, cJSON* answer) { return give(item, answer, date_text(local_now())); }

int get_time(const Row&, cJSON* item, cJSON* answer) {
    const std::tm tm = local_now();
    char text[40];
    std::snprintf(text, sizeof text, "%02d:%02d:%02d", tm.tm_hour, tm.tm_min, tm.tm_sec);
    return give(item, answer, cJSON_CreateString(text));
}

// The image summary is read through the image section's own table.
constexpr std::array<const char*, 10> kImageSummary{
    "focus_mode", "exposure_mode", "WB_mode", "brightness", "sharpness",
    "contrast",   "saturation",    "mirror",  "flip",       "vo_resolution",
};

int get_image(const Row&, cJSON* item, cJSON* answer) {
    cJSON* summary = cJSON_CreateObject();
    if (summary == nullptr) return give(item, answer, nullptr);
    for (const char* key : kImageSummary) json_image_read_key(key, summary);
    return give(item, answer, summary);
}

// ---- feature list ------------------------------------------------------------------------

cJSON* feature_fixed(const Field& row, const uint8_t*, int) { return cJSON_CreateNumber(row.arg); }
cJSON* feature_ndi(const Field&, const uint8_t*, int) {
    const SysInfo* info = sys_info();
    return cJSON_CreateNumber(info != nullptr ? (info->audio.ndiCap & 1) : 0);
}
cJSON* feature_control_hub(const Field&, const uint8_t*, int) {
    const SysState* state = sys_state(1);
    return cJSON_CreateNumber(state != nullptr ? state->controlHub : 0);
}

constexpr Field fixed_feature(std::string_view key, int value) {
    return own_field(key).with_arg(value).read_by(feature_fixed);
}

constexpr auto kFeatures = std::to_array<Field>({
    fixed_feature("audio", 1),
    fixed_feature("rtmp", 1),
    fixed_feature("rtp_multicast", 0),
    own_field("ndi").read_by(feature_ndi),
    own_field("hx3").read_by(feature_ndi),
    fixed_feature("srt", 1),
    fixed_feature("gb28181", 0),
    fixed_feature("FreeD", 0),
    fixed_feature("Auto_tracking", 0),
    fixed_feature("digital_zoom", 1),
    own_field("control_hub").read_by(feature_control_hub).only_in(kInWhole),
    fixed_feature("dante", 0),
    fixed_feature("iris", 0),
});

// The feature rows read no block; any non-null one will do.
constexpr uint8_t kNoBlock = 0;

int get_support(const Row&, cJSON* item, cJSON* answer) {
    return fields_read(kFeatures, &kNoBlock, item, answer);
}

// ---- power schedule ------------------------------------------------------------------------

constexpr auto kTaskFields = std::to_array<Field>({
    field("enable", FieldForm::u8, offsetof(PowerTask, enable)),
    field("mode", FieldForm::u8, offsetof(PowerTask, mode)),
    field("action", FieldForm::u8, offsetof(PowerTask, action)),
    field("year", FieldForm::u16, offsetof(PowerTask, year)),
    field("month", FieldForm::u8, offsetof(PowerTask, month)),
    field("day", FieldForm::u8, offsetof(PowerTask, day)),
    field("wday", FieldForm::u8, offsetof(PowerTask, weekday)),
    field("hour", FieldForm::u8, offsetof(PowerTask, hour)),
    field("min", FieldForm::u8, offsetof(PowerTask, minute)),
    field("sec", FieldForm::u8, offsetof(PowerTask, second)),
});
constexpr int kTasks = 8;
using Tasks = std::array<PowerTask, kTasks>;
static_assert(sizeof(Tasks) == sizeof(SysState::power) && sizeof(Tasks) == 96);

cJSON* read_task(const Field&, const uint8_t* block, int index) {
    if (index >= kTasks) return cJSON_CreateFalse();  // answered false, not a failure
    cJSON* task = cJSON_CreateObject();
    if (task != nullptr) fields_answer(kTaskFields, block + index * sizeof(PowerTask), task, kInAll);
    return task;
}

constexpr auto kPowerRows = std::to_array<Field>({own_field("task").indexed(kTasks).read_by(read_task)});

int get_power(const Row&, cJSON* item, cJSON* answer) {
    const SysState* state = sys_state(1);
    return fields_read(kPowerRows,
                       state != nullptr ? reinterpret_cast<const uint8_t*>(state->power) : nullptr, item,
                       answer);
}

// Each "taskN" object overwrites the numbers it carries; anything that is not
// such an object refuses the whole schedule.
int set_power(const Row&, cJSON* item, cJSON* answer) {
    const SysState* state = sys_state(1);
    if (state == nullptr) return give(item, answer, nullptr);
    Tasks tasks{};
    std::memcpy(tasks.data(), state->power, sizeof tasks);
    for (const cJSON* task = item->child; task != nullptr; task = task->next) {
        const char* key = task->string;
        if (key == nullptr || strncasecmp(key, "task", 4) != 0 || !cJSON_IsObject(task))
            return give(item, answer, nullptr);
        const int n = std::atoi(key + 4);
        if (n < 0 || n >= kTasks) continue;
        FieldWrite ctx{reinterpret_cast<uint8_t*>(&tasks[static_cast<size_t>(n)]), nullptr, nullptr};
        for (const Field& row : kTaskFields) {
            const cJSON* value = cJSON_GetObjectItem(task, std::string(row.name).c_str());
            if (cJSON_IsNumber(value)) field_store(row, ctx, value);
        }
    }
    if (sys_send_block<SysCmd::power_schedule>(tasks) != 0) return give(item, answer, nullptr);
    cJSON* all = cJSON_CreateTrue();
    const int result =
        fields_read(kPowerRows, reinterpret_cast<const uint8_t*>(tasks.data()), all, item->string, answer);
    cJSON_Delete(all);
    return result;
}

// ---- SD card ----------------------------------------------------------------------------

int sd_state() { return std::atoi(small_file(kSdStatus).c_str()); }

// Total or available size of the card in MiB, false when the card is not
// ready or its file system cannot be asked.
cJSON* sd_size(const Field& row, const uint8_t*, int) {
    struct statfs fs {};
    if (sd_state() != 1 || statfs(kSdMount, &fs) != 0) return cJSON_CreateFalse();
    const unsigned long long blocks = row.arg == 0 ? fs.f_blocks : fs.f_bavail;
    return cJSON_CreateNumber(
        static_cast<double>((blocks * static_cast<unsigned long long>(fs.f_bsize)) >> 20));
}
cJSON* sd_state_value(const Field&, const uint8_t*, int) { return cJSON_CreateNumber(sd_state()); }

cJSON* sd_filelist(const Field&, const uint8_t*, int) {
    DIR* dir = opendir(kSdFiles);
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
    own_field("storage size").with_arg(0).read_by(sd_size),
    own_field("avail size").with_arg(1).read_by(sd_size),
    own_field("filelist").read_by(sd_filelist).only_in(kInKeyed),
});

int get_sd(const Row&, cJSON* item, cJSON* answer) { return fields_read(kSdFields, &kNoBlock, item, answer); }

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
    const std::string path = std::string(kSdFiles) + "/" + std::string(text);
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
    if (lstat(kWebTmp, &st) != 0) {
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
    if (access("/tmp/system.log.0", F_OK) != 0) return give(item, answer, log_link(host, port, "system.log"));
    cJSON* links = cJSON_CreateArray();
    if (links == nullptr) return give(item, answer, nullptr);
    cJSON_AddItemToArray(links, log_link(host, port, "system.log"));
    for (int n = 0; n + 1 < kLogLinksMax; ++n) {
        char name[32];
        std::snprintf(name, sizeof name, "system.log.%d", n);
        if (access((std::string("/tmp/") + name).c_str(), F_OK) != 0) break;
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
    FilePtr out(std::fopen(kParamsFile, "wb"));
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
    FilePtr archive(std::fopen(kParamsArchive, "rb"));
    struct stat st {};
    if (!archive || fstat(fileno(archive.get()), &st) != 0 || st.st_size < 0 ||
        static_cast<uint64_t>(st.st_size) > UINT32_MAX - kParamsHeaderSize ||
        !write_params(archive.get(), static_cast<uint32_t>(st.st_size)))
        return give(item, answer, nullptr);
    char link[64];
    std::snprintf(link, sizeof link, "http://%s/fw_params.bin", net_eth0_dotted().c_str());
    return give(item, answer, cJSON_CreateString(link));
}

// ---- commands of the SET ---------------------------------------------------------------

// A number command: the value's low bytes (as many as the command carries),
// then the record value the row names (or true).
int send_number(const Row& row, cJSON* item, cJSON* answer) {
    if (sys_send_number(row.command, static_cast<uint32_t>(item->valueint)) != 0)
        return give(item, answer, nullptr);
    return give(item, answer, row.rec != Rec::none ? record_value(row) : cJSON_CreateTrue());
}

// The device name and serial number commands carry the member's key text,
// not its value: the system server expects exactly that.
int send_key_text(const Row& row, cJSON* item, cJSON* answer) {
    return give(item, answer, sys_send_text(row.command, item->string) == 0 ? cJSON_CreateTrue() : nullptr);
}

// The text goes whole; only one that a command's slice cannot carry is refused.
int set_time_zone(const Row& row, cJSON* item, cJSON* answer) {
    if (std::strlen(item->valuestring) > static_cast<size_t>(PROC_MEM_SIZE) ||
        sys_send_text(row.command, item->valuestring) != 0)
        return give(item, answer, nullptr);
    return give(item, answer, record_value(row));
}

struct Action {
    std::string_view name;
    SysCmd command;
    uint8_t byte;
};
constexpr auto kActions = std::to_array<Action>({
    {"image_reset", SysCmd::reset, 0},
    {"factory_reset", SysCmd::reset, 1},
    {"system_reset", SysCmd::reset, 2},
    {"system_reboot", SysCmd::reboot, 1},
    {"system_resume", SysCmd::standby, 0},
    {"system_suspend", SysCmd::standby, 1},
    {"default_save", SysCmd::defaults, 1},
    {"default_clear", SysCmd::defaults, 0},
    {"network_test", SysCmd::network_test, 0},
});

int system_control(const Row&, cJSON* item, cJSON* answer) {
    const Action* action = find_row(std::span<const Action>(kActions), item->valuestring);
    const bool done = action != nullptr && sys_send_number(action->command, action->byte) == 0;
    return give(item, answer, done ? cJSON_CreateTrue() : nullptr);
}

constexpr size_t kCredentialMax = 15;

int set_login(const Row&, cJSON* item, cJSON* answer) {
    std::string_view user;
    std::string_view password;
    if (json_login_split(item->valuestring, &user, &password) != 0 || user.empty() || password.empty() ||
        user.size() > kCredentialMax || password.size() > kCredentialMax)
        return give(item, answer, nullptr);
    const SysInfo* info = sys_info();
    if (info == nullptr) return give(item, answer, nullptr);
    std::array<uint8_t, 36> payload{};
    std::memcpy(payload.data(), user.data(), user.size());
    std::memcpy(payload.data() + 16, password.data(), password.size());
    std::memcpy(payload.data() + 32, &info->userWord, sizeof info->userWord);
    if (sys_send_block<SysCmd::login>(payload) != 0) return give(item, answer, nullptr);
    json_access_key_update();
    return give(item, answer, cJSON_CreateNumber(json_access_key()));
}

constexpr int kUpdatePortBase = 5000;
constexpr int kUpdatePortSpan = 1000;

// Starts the update companion on a free port drawn at random.
int start_update(const Row&, cJSON* item, cJSON* answer) {
    std::srand(static_cast<unsigned>(std::time(nullptr)));
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

// Sets the clock from a date (row arg 0) or a time (1), keeping the other
// half, and answers the half that was set as the clock now reads it.
int set_clock(const Row& row, cJSON* item, cJSON* answer) {
    const bool is_date = row.clock_half == 0;
    int a = 0, b = 0, c = 0;
    if (std::sscanf(item->valuestring, is_date ? "%d-%d-%d" : "%d:%d:%d", &a, &b, &c) != 3)
        return give(item, answer, nullptr);
    std::tm now = local_now();
    if (is_date) {
        now.tm_year = a - 1900;
        now.tm_mon = b - 1;
        now.tm_mday = c;
    } else {
        now.tm_hour = a;
        now.tm_min = b;
        now.tm_sec = c;
    }
    char line[160];
    std::snprintf(line, sizeof line, "date -s \"%d-%d-%d %d:%d:%d\";hwclock -w &", now.tm_year + 1900,
                  now.tm_mon + 1, now.tm_mday, now.tm_hour, now.tm_min, now.tm_sec);
    pox_system(line);
    const std::tm after = local_now();
    cJSON* value = nullptr;
    if (is_date) {
        value = date_text(after);
    } else {
        char text[40];
        std::snprintf(text, sizeof text, "%d:%d:%d", after.tm_hour, after.tm_min, after.tm_sec);
        value = cJSON_CreateString(text);
    }
    if (sys_send_number<SysCmd::clock_changed>(1) != 0) {
        cJSON_Delete(value);
        value = nullptr;
    }
    return give(item, answer, value);
}

// ---- the tables -----------------------------------------------------------------------------

constexpr Row record_row(std::string_view key, Want want, Rec rec, Field value) {
    return {key, want, answer_record, rec, value};
}
constexpr Row info_u8(std::string_view key, uint16_t offset) {
    return record_row(key, Want::yes, Rec::info, field(key, FieldForm::u8, offset));
}
constexpr Row state_u8(std::string_view key, uint16_t offset) {
    return record_row(key, Want::yes, Rec::state, field(key, FieldForm::u8, offset));
}
constexpr Row info_text(std::string_view key, uint16_t offset, uint16_t size) {
    return record_row(key, Want::yes, Rec::info, text_field(key, offset, size));
}
constexpr Row fixed_text(std::string_view key, const char* text) {
    return {key, Want::yes, answer_text, Rec::none, {}, text};
}
constexpr Row own(std::string_view key, Want want, Handler handler) { return {key, want, handler}; }

constexpr auto kGetRows = std::to_array<Row>({
    own("login", Want::text, get_login),
    own("power_ctrl", Want::yes_or_object, get_power),
    own("support", Want::yes_or_object, get_support),
    own("sd", Want::yes_or_object, get_sd),
    own("log", Want::text, get_log),
    record_row("workMode", Want::any, Rec::info,
               field("workMode", FieldForm::i32, offsetof(SysInfo, workMode))),
    own("language", Want::any, answer_nothing),
    info_text("device_name", offsetof(SysInfo, device_name), sizeof(SysInfo::device_name)),
    info_text("serial_number", offsetof(SysInfo, serial_number), sizeof(SysInfo::serial_number)),
    own("model", Want::yes, get_model),
    fixed_text("bootloader_version", "V1.0.0"),
    fixed_text("system_version", "V1.0.0"),
    fixed_text("hardware_version", "V1.0"),
    own("app_version", Want::yes, get_app_version),
    own("mcu_version", Want::yes, get_mcu_version),
    state_u8("user_info", offsetof(SysState, user_info)),
    own("update", Want::yes, get_update),
    own("params", Want::yes, get_params),
    info_u8("ndi_enable", offsetof(SysInfo, ndi_enable)),
    state_u8("dante_enable", offsetof(SysState, dante_enable)),
    state_u8("suspend", offsetof(SysState, standby)),
    state_u8("mainLock", offsetof(SysState, mainLock)),
    info_text("TZ", offsetof(SysInfo, timezone), sizeof(SysInfo::timezone)),
    fixed_text("web_preview", "webRTC"),
    own("date", Want::yes, get_date),
    own("time", Want::yes, get_time),
    own("image", Want::yes, get_image),
});

// A number command answered with a record value (or true).
constexpr Row number_command(std::string_view key, SysCmd command, Rec rec = Rec::none, uint16_t offset = 0) {
    return {key, Want::number, send_number, rec, field(key, FieldForm::u8, offset), nullptr, command};
}
constexpr Row key_command(std::string_view key, SysCmd command) {
    return {key, Want::text, send_key_text, Rec::none, {}, nullptr, command};
}
constexpr Row clock_row(std::string_view key, uint8_t is_time) {
    return {key, Want::text, set_clock, Rec::none, {}, nullptr, SysCmd::clock_changed, is_time};
}

constexpr auto kSetRows = std::to_array<Row>({
    own("system_control", Want::text, system_control),
    own("login", Want::text, set_login),
    own("update", Want::number, start_update),
    own("post_update", Want::text, post_update),
    number_command("ndi_enable", SysCmd::ndi, Rec::info, offsetof(SysInfo, ndi_enable)),
    number_command("dante_enable", SysCmd::dante, Rec::state, offsetof(SysState, dante_enable)),
    number_command("suspend", SysCmd::standby, Rec::state, offsetof(SysState, standby)),
    {"TZ", Want::text, set_time_zone, Rec::info,
     text_field("TZ", offsetof(SysInfo, timezone), sizeof(SysInfo::timezone)), nullptr, SysCmd::time_zone},
    number_command("language", SysCmd::language),
    own("sd", Want::object, set_sd),
    own("power_ctrl", Want::object, set_power),
    clock_row("date", 0),
    clock_row("time", 1),
    number_command("workMode", SysCmd::work_mode),
    key_command("device_name", SysCmd::device_name),
    key_command("serial_number", SysCmd::serial_number),
});

int walk(std::span<const Row> table, cJSON* member, cJSON* reply) {
    return json_section_walk(member, reply, [table](cJSON* item, cJSON* answer, int& result) {
        const Row* row = find_row(table, item->string);
        if (row == nullptr || !wants(row->want, item)) {
            json_answer_false(answer, item->string);
            result = -1;
            return;
        }
        if (row->handler(*row, item, answer) != 0) result = -1;
    });
}

}  // namespace

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

int json_system_get_ctrl(cJSON* member, cJSON* reply) { return walk(kGetRows, member, reply); }
int json_system_set_ctrl(cJSON* member, cJSON* reply) { return walk(kSetRows, member, reply); }
