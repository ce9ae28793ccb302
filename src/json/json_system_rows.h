// The rows of the "system" section, shared by its two files: the settings
// (json_system.cpp) and the maintenance members (json_system_maint.cpp).
#pragma once

#include <cstdint>
#include <string_view>

#include "ipc/sys_commands.h"
#include "json/json_fields.h"
#include "support/compiled.h"

namespace system_section {

// What a member's value must be for its row to take it.
enum class Want : uint8_t { yes, any, text, number, object, yes_or_object };

inline bool wants(Want want, const cJSON* item) {
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

// A row as the build compiles it from its written line: texts in the
// section's block, the handler by its place, the record value as its form,
// place and size.
struct Row {
    Text name;
    Want want;
    uint8_t handler;
    Rec rec;  // the record the value is read from
    FieldForm form;
    uint16_t offset, size;
    Text text;  // a fixed answer
    SysCmd command;
    uint8_t clock_half;  // the clock rows: 0 the date, 1 the time
};

// The record a row's value lives in (null when it is not there).
const uint8_t* record(Rec rec);
// Answers `value` under the item's key (false when null); -1 when it was null.
int give(cJSON* item, cJSON* answer, cJSON* value);
// A row's value read from its record, or null.
cJSON* record_value(const Row& row);

// The maintenance members: the SD card, the logs, the parameter export and
// the firmware update.
int get_sd(const Row& row, cJSON* item, cJSON* answer);
int set_sd(const Row& row, cJSON* item, cJSON* answer);
int get_log(const Row& row, cJSON* item, cJSON* answer);
int get_params(const Row& row, cJSON* item, cJSON* answer);
int start_update(const Row& row, cJSON* item, cJSON* answer);
int post_update(const Row& row, cJSON* item, cJSON* answer);

}  // namespace system_section
