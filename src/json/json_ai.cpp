// The "ai" section: auto-tracking switches sent to the camera as VISCA
// packets, answered from the tracking process's information area.
#include "json/json_ai.h"

#include <array>
#include <cstddef>

#include "camera/image_ctrl.h"
#include "camera/visca_ops.h"
#include "ipc/sys_port.h"
#include "json/json_fields.h"
#include "json/json_section.h"

namespace {

// ---- writing: each member sends its operation ------------------------------------------

// A waited send's result is not looked at: the answer comes from the area.
const visca::Row& op_of(const Field& row) { return visca::kRows[row.arg]; }
// A value the operation cannot carry is refused before anything is sent.
bool sent(const visca::Row& op, int status) {
    return status == 0 || (status == -1 && op.kind == visca::Kind::SetWait);
}

bool send_number(const Field& row, FieldWrite&, const cJSON* item, int) {
    return cJSON_IsNumber(item) && sent(op_of(row), image_row_set(op_of(row), item->valueint));
}
bool send_word(const Field& row, FieldWrite&, const cJSON* item, int) {
    return cJSON_IsString(item) && sent(op_of(row), image_row_choose(op_of(row), item->valuestring));
}
bool send_true(const Field& row, FieldWrite&, const cJSON* item, int) {
    return cJSON_IsTrue(item) && sent(op_of(row), image_row_set(op_of(row), 0));
}

// ---- reading: the area's bytes, and the pan-tilt limit from the camera -----------------

cJSON* read_limit(const Field&, const uint8_t*, int) {
    const int limit = image_row_get(visca::row("ai_pt_limit_get"));
    return limit >= 0 ? cJSON_CreateNumber(limit) : nullptr;
}
// After a write the limit is always answered: -1 when the camera did not say.
cJSON* read_limit_after(const Field&, const uint8_t*, int) {
    return cJSON_CreateNumber(image_row_get(visca::row("ai_pt_limit_get")));
}

// A row's `arg` is its operation's place in the operation table.
consteval Field area(std::string_view key, uint16_t offset, std::string_view op) {
    return field(key, FieldForm::u8, offset).with_arg(visca::index_of(op)).written_by(send_number);
}
consteval Field action(std::string_view key, std::string_view op, Field::Writer send) {
    return own_field(key).only_in(0).with_arg(visca::index_of(op)).written_by(send);
}
consteval Field limit(uint8_t in, Field::Reader read) {
    return action("PTLimit", "ai_pt_limit_set", send_number).only_in(in).read_by(read);
}

constexpr auto kFields = std::to_array<Field>({
    area("enable", offsetof(AiInfo, enable), "ai_enable_set"),
    area("mode", offsetof(AiInfo, mode), "ai_mode_set"),
    area("peoplePos", offsetof(AiInfo, peoplePos), "ai_people_pos_set"),
    area("peopleRation", offsetof(AiInfo, peopleRation), "ai_people_ration_set"),
    area("bodyRatio", offsetof(AiInfo, bodyRatio), "ai_body_ratio_set"),
    area("switchTime", offsetof(AiInfo, switchTime), "ai_switch_time_set"),
    area("boardDetectEn", offsetof(AiInfo, boardDetectEn), "ai_board_detect_set"),
    area("highLightTarget", offsetof(AiInfo, highLightTarget), "ai_highlight_set"),
    area("zoomLock", offsetof(AiInfo, zoomLock), "ai_zoom_lock_set"),
    area("tiltLock", offsetof(AiInfo, tiltLock), "ai_tilt_lock_set"),
    limit(kInWhole | kInKeyed, read_limit),
    limit(kInAfter, read_limit_after),
    action("peopleChange", "ai_people_change", send_word),
    action("framingOnePush", "ai_framing_one_push", send_true),
});
static_assert(fields_fit(kFields, sizeof(AiInfo)));

const uint8_t* area_bytes() { return reinterpret_cast<const uint8_t*>(sys_ai_info()); }

}  // namespace

int json_ai_set_ctrl(cJSON* member, cJSON* reply) {
    if (member == nullptr) return -1;
    if (reply == nullptr || area_bytes() == nullptr || !cJSON_IsObject(member)) {
        json_answer_false(reply, member->string);
        return -1;
    }
    FieldWrite ctx{nullptr, nullptr, reply};
    if (fields_apply(kFields, ctx, member) != 0) {  // the good members are sent all the same
        json_answer_false(reply, member->string);
        return -1;
    }
    return block_answer(kFields, area_bytes(), member->string, reply, kInAfter);
}

int json_ai_get_ctrl(cJSON* member, cJSON* reply) {
    return fields_read(kFields, area_bytes(), member, reply);
}
