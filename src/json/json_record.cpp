// The "record" section: the recording block of the settings record with its
// four scheduled tasks, sent whole with one command once every member was
// taken and the enabled tasks neither run backwards nor overlap.
#include "json/json_record.h"
#include "json/json_describe.h"

#include <array>
#include <cstddef>

#include "json/json_block.h"
#include "json/json_section.h"

namespace {

const RecordParams& params(const uint8_t* block) { return *reinterpret_cast<const RecordParams*>(block); }

// ---- tasks: "task0".."task3", each {"enable", "start", "stop"} ------------------------

cJSON* read_task(const Field&, const uint8_t* block, int index) {
    if (index >= kRecordTasks) return cJSON_CreateFalse();  // answered false, not a failure
    const RecordParams& rec = params(block);
    const auto i = static_cast<size_t>(index);
    cJSON* task = cJSON_CreateObject();
    json_answer_number(task, "enable", rec.taskEnable[i]);
    json_answer_number(task, "start", rec.taskStart[i]);
    json_answer_number(task, "stop", rec.taskStop[i]);
    return task;
}

bool write_task(const Field&, FieldWrite& ctx, const cJSON* item, int index) {
    if (index >= kRecordTasks || !cJSON_IsObject(item)) return false;
    auto& rec = *reinterpret_cast<RecordParams*>(ctx.block);
    const auto i = static_cast<size_t>(index);
    if (const cJSON* v = cJSON_GetObjectItem(item, "enable"); cJSON_IsNumber(v))
        rec.taskEnable[i] = static_cast<uint8_t>(v->valueint);
    if (const cJSON* v = cJSON_GetObjectItem(item, "start"); cJSON_IsNumber(v))
        rec.taskStart[i] = v->valueint;
    if (const cJSON* v = cJSON_GetObjectItem(item, "stop"); cJSON_IsNumber(v)) rec.taskStop[i] = v->valueint;
    return true;
}

// Every enabled task runs forwards over its half-open span, and no two
// enabled tasks share a moment; touching ends are allowed, disabled tasks
// count for nothing.
bool schedule_ok(const uint8_t* block) {
    const RecordParams& rec = params(block);
    for (size_t i = 0; i < kRecordTasks; ++i) {
        if (rec.taskEnable[i] == 0) continue;
        if (rec.taskStart[i] >= rec.taskStop[i]) return false;
        for (size_t j = i + 1; j < kRecordTasks; ++j) {
            if (rec.taskEnable[j] == 0) continue;
            if (rec.taskStart[i] < rec.taskStop[j] && rec.taskStart[j] < rec.taskStop[i]) return false;
        }
    }
    return true;
}

constexpr Field byte(std::string_view key, uint16_t offset) { return field(key, FieldForm::u8, offset); }

constexpr auto kFields = std::to_array<Field>({
    byte("enable", offsetof(RecordParams, enable)),
    byte("sel", offsetof(RecordParams, sel)),
    byte("timeCnt", offsetof(RecordParams, timeCnt)),
    byte("mode", offsetof(RecordParams, mode)),
    byte("loopRec", offsetof(RecordParams, loopRec)),
    byte("format", offsetof(RecordParams, format)),
    own_field("task").indexed(kRecordTasks).read_by(read_task).written_by(write_task),
    byte("manual", offsetof(RecordParams, manual)),
    // kept by the recorder
    byte("state", offsetof(RecordParams, state)).read_only(),
    field("keepTime", FieldForm::i32, offsetof(RecordParams, keepTime)).read_only(),
    text_field("filename", offsetof(RecordParams, filename), sizeof(RecordParams::filename)).read_only(),
});

constexpr SettingsBlock kBlock{kFields, offsetof(SysInfo, record), sizeof(RecordParams), SysCmd::record};
static_assert(settings_block_ok(kBlock));

}  // namespace

int json_record_get_ctrl(cJSON* member, cJSON* reply) {
    return fields_read(kFields, block_stored(kBlock), member, reply, {.other_is_empty = true});
}

int json_record_set_ctrl(cJSON* member, cJSON* reply) {
    return block_section_write(kBlock, member, reply, {.check = schedule_ok});
}

void json_record_describe(KeyList& out) { fields_describe(out, "record", "", kFields); }
