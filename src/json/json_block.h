// The block writer: a block of the settings record that one system command
// carries whole, copied, changed by the field kit and sent.
#pragma once

#include <cstddef>
#include <cstdint>

#include <cjson/cJSON.h>

#include "ipc/sys_commands.h"
#include "json/json_fields.h"
#include "records/records.h"

// A block of the settings record that is sent whole with one command. Its
// size is the command's width (settings_block checks it when it compiles).
struct SettingsBlock {
    Fields fields;
    size_t offset;  // in SysInfo
    size_t size;
    SysCmd command;
};

// A settings block is as large as its command carries, and holds its rows.
constexpr bool settings_block_ok(const SettingsBlock& b) {
    return static_cast<int>(b.size) == sys_cmd_width(b.command) && fields_fit(b.fields, b.size);
}

// The one writer of settings blocks: copies the block out of the record,
// applies the members to the copy, and sends the copy. With `all_or_nothing`
// a refused member (or a failed `check`) sends nothing; otherwise the taken
// members are sent all the same. With `only_changed` a copy equal to the
// stored block is not sent. 0 when every member was taken and the block
// sent (or left unsent as unchanged), else -1.
struct BlockRules {
    bool all_or_nothing = true;
    bool only_changed = false;
    bool (*check)(const uint8_t* work) = nullptr;
};
inline constexpr size_t kBlockMax = 1024;  // the largest block a section sends, with room
int block_write(const SettingsBlock& block, const cJSON* member, FieldWrite& ctx, BlockRules rules = {});

// A section that is one block: block_write, then the section answered false,
// or whole from the record as it now stands. 0 or -1.
int block_section_write(const SettingsBlock& block, cJSON* member, cJSON* reply, BlockRules rules = {});

// The stored block of the settings record, or null when the record is not there.
const uint8_t* block_stored(const SettingsBlock& block);
