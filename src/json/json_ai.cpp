// The "ai" section: auto-tracking switches sent to the camera as VISCA
// packets, answered from the tracking process's information area.
#include "json/json_ai.h"
#include "json/json_describe.h"

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
// A value the operation cannot carry is refused before anything is sent.
bool sent(const visca::Row& op, int status) {
    return status == 0 || (status == -1 && op.kind == visca::Kind::SetWait);
}

// Each writer is named by its row with the operation's place in the table.
template <int Op>
bool send_number(const Field&, FieldWrite&, const cJSON* item, int) {
    const visca::Row& op = visca::kRows[Op];
    return cJSON_IsNumber(item) && sent(op, image_row_set(op, item->valueint));
}
template <int Op>
bool send_word(const Field&, FieldWrite&, const cJSON* item, int) {
    const visca::Row& op = visca::kRows[Op];
    return cJSON_IsString(item) && sent(op, image_row_choose(op, item->valuestring));
}
template <int Op>
bool send_true(const Field&, FieldWrite&, const cJSON* item, int) {
    const visca::Row& op = visca::kRows[Op];
    return cJSON_IsTrue(item) && sent(op, image_row_set(op, 0));
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

consteval Field area(std::string_view key, uint16_t offset, Field::Writer send) {
    return field(key, FieldForm::u8, offset).written_by(send);
}
consteval Field action(std::string_view key, Field::Writer send) {
    return own_field(key).only_in(0).written_by(send);
}
consteval Field limit(uint8_t in, Field::Reader read) {
    return action("PTLimit", send_number<visca::index_of("ai_pt_limit_set")>).only_in(in).read_by(read);
}

constexpr auto kFields = std::to_array<Field>({
    area("enable", offsetof(AiInfo, enable), send_number<visca::index_of("ai_enable_set")>),
    area("mode", offsetof(AiInfo, mode), send_number<visca::index_of("ai_mode_set")>),
    area("peoplePos", offsetof(AiInfo, peoplePos), send_number<visca::index_of("ai_people_pos_set")>),
    area("peopleRation", offsetof(AiInfo, peopleRation),
         send_number<visca::index_of("ai_people_ration_set")>),
    area("bodyRatio", offsetof(AiInfo, bodyRatio), send_number<visca::index_of("ai_body_ratio_set")>),
    area("switchTime", offsetof(AiInfo, switchTime), send_number<visca::index_of("ai_switch_time_set")>),
    area("boardDetectEn", offsetof(AiInfo, boardDetectEn),
         send_number<visca::index_of("ai_board_detect_set")>),
    area("highLightTarget", offsetof(AiInfo, highLightTarget),
         send_number<visca::index_of("ai_highlight_set")>),
    area("zoomLock", offsetof(AiInfo, zoomLock), send_number<visca::index_of("ai_zoom_lock_set")>),
    area("tiltLock", offsetof(AiInfo, tiltLock), send_number<visca::index_of("ai_tilt_lock_set")>),
    limit(kInWhole | kInKeyed, read_limit),
    limit(kInAfter, read_limit_after),
    action("peopleChange", send_word<visca::index_of("ai_people_change")>),
    action("framingOnePush", send_true<visca::index_of("ai_framing_one_push")>),
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

void json_ai_describe(KeyList& out) { fields_describe(out, "ai", "", kFields); }
