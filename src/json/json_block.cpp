// The block writer: settings blocks copied out of the record, changed by the
// field kit and sent whole with their command.
#include "json/json_block.h"

#include <array>
#include <cstring>

#include "ipc/sys_port.h"

const uint8_t* block_stored(const SettingsBlock& block) {
    const SysInfo* info = sys_info();
    return info != nullptr ? reinterpret_cast<const uint8_t*>(info) + block.offset : nullptr;
}

int block_write(const SettingsBlock& block, const cJSON* member, FieldWrite& ctx, BlockRules rules) {
    const uint8_t* stored = block_stored(block);
    if (stored == nullptr || block.size > kBlockMax) return -1;
    std::array<uint8_t, kBlockMax> work{};
    std::memcpy(work.data(), stored, block.size);
    ctx.block = work.data();
    int result = fields_apply(block.fields, ctx, member);
    if (rules.check != nullptr && !rules.check(work.data())) result = -1;
    if (result != 0 && rules.all_or_nothing) return -1;
    if (rules.only_changed && std::memcmp(work.data(), stored, block.size) == 0) return result;
    if (sys_send(block.command, work.data(), static_cast<int>(block.size)) != 0) return -1;
    return result;
}

int block_section_write(const SettingsBlock& block, cJSON* member, cJSON* reply, BlockRules rules) {
    if (member == nullptr) return -1;
    FieldWrite ctx{nullptr, nullptr, reply};
    if (block_write(block, member, ctx, rules) != 0) {
        json_answer_false(reply, member->string);
        return -1;
    }
    return block_answer(block.fields, block_stored(block), member->string, reply, kInWhole);
}
