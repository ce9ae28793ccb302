// The "system" section: the device's identity, clock, feature list, storage,
// logs and power schedule, and the maintenance actions. Each request member
// is a row: its key, the JSON type it takes and the function that answers it;
// values kept in the settings record or the live state are rows of the field
// kit read straight from there.
#include "json/json_system.h"
#include "json/json_describe.h"

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
#include "json/json_fields.h"
#include "json/json_section.h"
#include "json/json_system_rows.h"
#include "net/net_config.h"
#include "platform/platform.h"
#include "support/log.h"
#include "support/owners.h"
#include "support/support.h"

namespace system_section {

const uint8_t* record(Rec rec) {
    switch (rec) {
    case Rec::info: return reinterpret_cast<const uint8_t*>(sys_info());
    case Rec::state: return reinterpret_cast<const uint8_t*>(sys_state(1));
    case Rec::none: break;
    }
    return nullptr;
}

int give(cJSON* item, cJSON* answer, cJSON* value) { return json_answer_value(answer, item, value) ? 0 : -1; }

cJSON* record_value(const Row& row) {
    const uint8_t* block = record(row.rec);
    return block != nullptr
               ? field_value(Field{.name = {}, .form = row.form, .offset = row.offset, .size = row.size},
                             block)
               : nullptr;
}

}  // namespace system_section

namespace {

using namespace system_section;

// ---- small readers ------------------------------------------------------------------

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
    const std::time_t t = platform_now();
    std::tm tm{};
    localtime_r(&t, &tm);
    return tm;
}

cJSON* date_text(const std::tm& tm) {
    char text[40];
    std::snprintf(text, sizeof text, "%d-%d-%d", tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday);
    return cJSON_CreateString(text);
}

int answer_record(const Row& row, cJSON* item, cJSON* answer) {
    return give(item, answer, record_value(row));
}
const char* row_text(Text text);
int answer_text(const Row& row, cJSON* item, cJSON* answer) {
    return give(item, answer, cJSON_CreateString(row_text(row.text)));
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

template <int Value>
cJSON* feature_fixed(const Field&, const uint8_t*, int) {
    return cJSON_CreateNumber(Value);
}
cJSON* feature_ndi(const Field&, const uint8_t*, int) {
    const SysInfo* info = sys_info();
    return cJSON_CreateNumber(info != nullptr ? (info->audio.ndiCap & 1) : 0);
}
cJSON* feature_control_hub(const Field&, const uint8_t*, int) {
    const SysState* state = sys_state(1);
    return cJSON_CreateNumber(state != nullptr ? state->controlHub : 0);
}

template <int Value>
constexpr Field fixed_feature(std::string_view key) {
    return own_field(key).read_by(feature_fixed<Value>);
}

constexpr auto kFeatures = std::to_array<Field>({
    fixed_feature<1>("audio"),
    fixed_feature<1>("rtmp"),
    fixed_feature<0>("rtp_multicast"),
    own_field("ndi").read_by(feature_ndi),
    own_field("hx3").read_by(feature_ndi),
    fixed_feature<1>("srt"),
    fixed_feature<0>("gb28181"),
    fixed_feature<0>("FreeD"),
    fixed_feature<0>("Auto_tracking"),
    fixed_feature<1>("digital_zoom"),
    own_field("control_hub").read_by(feature_control_hub).only_in(kInWhole),
    fixed_feature<0>("dante"),
    fixed_feature<0>("iris"),
});

int get_support(const Row&, cJSON* item, cJSON* answer) {
    return fields_read(kFeatures, nullptr, item, answer);
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
static_assert(fields_fit(kTaskFields, sizeof(PowerTask)));
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

// A row as it is written.
struct Line {
    std::string_view name;
    Want want;
    Handler handler;
    Rec rec = Rec::none;  // the record `value` is read from
    Field value{};        // a record value, read with the field kit
    std::string_view text{};
    SysCmd command{};
    uint8_t clock_half = 0;
};

constexpr Line record_row(std::string_view key, Want want, Rec rec, Field value) {
    return {key, want, answer_record, rec, value};
}
constexpr Line info_u8(std::string_view key, uint16_t offset) {
    return record_row(key, Want::yes, Rec::info, field(key, FieldForm::u8, offset));
}
constexpr Line state_u8(std::string_view key, uint16_t offset) {
    return record_row(key, Want::yes, Rec::state, field(key, FieldForm::u8, offset));
}
constexpr Line info_text(std::string_view key, uint16_t offset, uint16_t size) {
    return record_row(key, Want::yes, Rec::info, text_field(key, offset, size));
}
constexpr Line fixed_text(std::string_view key, const char* text) {
    return {key, Want::yes, answer_text, Rec::none, {}, text};
}
constexpr Line own(std::string_view key, Want want, Handler handler) { return {key, want, handler}; }

constexpr auto kGetLines = std::to_array<Line>({
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
constexpr Line number_command(std::string_view key, SysCmd command, Rec rec = Rec::none,
                              uint16_t offset = 0) {
    return {key, Want::number, send_number, rec, field(key, FieldForm::u8, offset), {}, command};
}
constexpr Line key_command(std::string_view key, SysCmd command) {
    return {key, Want::text, send_key_text, Rec::none, {}, {}, command};
}
constexpr Line clock_row(std::string_view key, uint8_t is_time) {
    return {key, Want::text, set_clock, Rec::none, {}, {}, SysCmd::clock_changed, is_time};
}

constexpr auto kSetLines = std::to_array<Line>({
    own("system_control", Want::text, system_control),
    own("login", Want::text, set_login),
    own("update", Want::number, start_update),
    own("post_update", Want::text, post_update),
    number_command("ndi_enable", SysCmd::ndi, Rec::info, offsetof(SysInfo, ndi_enable)),
    number_command("dante_enable", SysCmd::dante, Rec::state, offsetof(SysState, dante_enable)),
    number_command("suspend", SysCmd::standby, Rec::state, offsetof(SysState, standby)),
    {"TZ",
     Want::text,
     set_time_zone,
     Rec::info,
     text_field("TZ", offsetof(SysInfo, timezone), sizeof(SysInfo::timezone)),
     {},
     SysCmd::time_zone},
    number_command("language", SysCmd::language),
    own("sd", Want::object, set_sd),
    own("power_ctrl", Want::object, set_power),
    clock_row("date", 0),
    clock_row("time", 1),
    number_command("workMode", SysCmd::work_mode),
    key_command("device_name", SysCmd::device_name),
    key_command("serial_number", SysCmd::serial_number),
});

// Both tables compile together, so their texts share one block.
constexpr auto kLines = [] {
    std::array<Line, kGetLines.size() + kSetLines.size()> all{};
    size_t n = 0;
    for (const Line& l : kGetLines) all[n++] = l;
    for (const Line& l : kSetLines) all[n++] = l;
    return all;
}();
constexpr auto kHandlers = distinct_of<kLines, &Line::handler>();
constexpr auto kRows = compile_lines<kLines, [](const Line& l, auto& texts) {
    return Row{texts.add(l.name),
               l.want,
               place_in(kHandlers, l.handler),
               l.rec,
               l.value.form,
               l.value.offset,
               l.value.size,
               texts.add(l.text),
               l.command,
               l.clock_half};
}>();
constexpr std::span<const Row> kGetRows(kRows.begin(), kGetLines.size());
constexpr std::span<const Row> kSetRows(kRows.begin() + kGetLines.size(), kSetLines.size());

const char* row_text(Text text) { return kRows.texts.c_str(text); }

int walk(std::span<const Row> table, cJSON* member, cJSON* reply) {
    return json_section_walk(member, reply, [table](cJSON* item, cJSON* answer, int& result) {
        const Row* row = nullptr;
        for (const Row& r : table)
            if (row == nullptr && same_word(item->string, kRows[r.name])) row = &r;
        if (row == nullptr || !wants(row->want, item)) {
            json_answer_false(answer, item->string);
            result = -1;
            return;
        }
        if (kHandlers[row->handler](*row, item, answer) != 0) result = -1;
    });
}

}  // namespace

int json_system_get_ctrl(cJSON* member, cJSON* reply) { return walk(kGetRows, member, reply); }
int json_system_set_ctrl(cJSON* member, cJSON* reply) { return walk(kSetRows, member, reply); }

namespace {
KeyInfo system_key(const Line& l) {
    KeyInfo k{.section = "system", .key = l.name};
    switch (l.want) {
    case Want::yes: k.type = KeyType::yes; break;
    case Want::any: k.type = KeyType::any; break;
    case Want::text: k.type = KeyType::text; break;
    case Want::number: k.type = KeyType::number; break;
    case Want::object:
    case Want::yes_or_object: k.type = KeyType::object; break;
    }
    if (l.value.form == FieldForm::text) k.length = l.value.size;
    return k;
}
}  // namespace

void json_system_describe(KeyList& out) {
    for (const Line& l : kGetLines) {
        KeyInfo k = system_key(l);
        k.write = false;
        out.push_back(k);
    }
    for (const Line& l : kSetLines) {
        KeyInfo k = system_key(l);
        k.read = false;
        out.push_back(k);
    }
}
