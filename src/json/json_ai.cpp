// The "ai" section: auto-tracking switches sent to the camera, answered from
// the tracking process's information area.
#include "json/json_ai.h"

#include <cjson/cJSON.h>
#include <strings.h>

#include <array>
#include <cstddef>
#include <string_view>

#include "camera/ai_ctrl.h"
#include "ipc/sys_port.h"

namespace {

// The values answered, in answer order, with their bytes in the area.
struct AreaField {
    std::string_view key;
    size_t offset;
};
constexpr std::array<AreaField, 10> kFields{{
    {"enable", offsetof(AiInfo, enable)},
    {"mode", offsetof(AiInfo, mode)},
    {"peoplePos", offsetof(AiInfo, peoplePos)},
    {"peopleRation", offsetof(AiInfo, peopleRation)},
    {"bodyRatio", offsetof(AiInfo, bodyRatio)},
    {"switchTime", offsetof(AiInfo, switchTime)},
    {"boardDetectEn", offsetof(AiInfo, boardDetectEn)},
    {"highLightTarget", offsetof(AiInfo, highLightTarget)},
    {"zoomLock", offsetof(AiInfo, zoomLock)},
    {"tiltLock", offsetof(AiInfo, tiltLock)},
}};
constexpr std::string_view kPtLimit = "PTLimit";

bool same(std::string_view a, const char* b) {
    return b && a.size() == std::char_traits<char>::length(b) && strncasecmp(a.data(), b, a.size()) == 0;
}

int area_value(const AiInfo* ai, size_t offset) {
    return reinterpret_cast<const uint8_t*>(ai)[offset];
}

void add_number(cJSON* obj, std::string_view key, double value) {
    cJSON_AddItemToObject(obj, key.data(), cJSON_CreateNumber(value));  // keys are literals
}

// Every area value, then the pan-tilt limit: -1 when the camera does not
// answer after a write, left out when it does not answer a read.
void answer_all(cJSON* obj, const AiInfo* ai, bool limit_always) {
    for (const auto& f : kFields) add_number(obj, f.key, area_value(ai, f.offset));
    int limit = ai_ptlimit_get();
    if (limit >= 0 || limit_always) add_number(obj, kPtLimit, limit);
}

// The section key with false, as the answer to a section that failed.
int fail_section(cJSON* member, cJSON* reply) {
    if (reply && member && member->string) cJSON_AddItemToObject(reply, member->string, cJSON_CreateFalse());
    return -1;
}

// One member of a write: sends its packet; false when refused.
bool send_member(const cJSON* item) {
    int row = ai_ctrl_find(item->string ? item->string : "");
    if (row < 0) return false;
    switch (ai_ctrl_param(row).arg) {
    case AiArg::Number:
        return cJSON_IsNumber(item) && ai_ctrl_send(row, item->valueint) == 0;
    case AiArg::Word:
        return cJSON_IsString(item) && ai_ctrl_send_word(row, item->valuestring) == 0;
    case AiArg::True:
        return cJSON_IsTrue(item) && ai_ctrl_send(row, 0) == 0;
    }
    return false;
}

// One member of an object read: its number, or false.
bool read_member(cJSON* answer, const cJSON* item, const AiInfo* ai) {
    const char* key = item->string ? item->string : "";
    if (!cJSON_IsTrue(item)) {
        cJSON_AddItemToObject(answer, key, cJSON_CreateFalse());
        return false;
    }
    for (const auto& f : kFields) {
        if (same(f.key, key)) {
            cJSON_AddItemToObject(answer, key, cJSON_CreateNumber(area_value(ai, f.offset)));
            return true;
        }
    }
    if (same(kPtLimit, key)) {
        int limit = ai_ptlimit_get();
        cJSON_AddItemToObject(answer, key, limit >= 0 ? cJSON_CreateNumber(limit) : cJSON_CreateFalse());
        return limit >= 0;
    }
    cJSON_AddItemToObject(answer, key, cJSON_CreateFalse());
    return false;
}

}  // namespace

int json_ai_set_ctrl(cJSON* member, cJSON* reply) {
    const AiInfo* ai = sys_ai_info();
    if (!member || !reply || !ai || !cJSON_IsObject(member)) return fail_section(member, reply);
    bool ok = true;
    cJSON* item = nullptr;
    cJSON_ArrayForEach(item, member) {
        if (!send_member(item)) ok = false;  // the remaining members are still sent
    }
    if (!ok) return fail_section(member, reply);
    cJSON* answer = cJSON_CreateObject();
    if (!answer) return fail_section(member, reply);
    answer_all(answer, ai, true);
    cJSON_AddItemToObject(reply, member->string, answer);
    return 0;
}

int json_ai_get_ctrl(cJSON* member, cJSON* reply) {
    const AiInfo* ai = sys_ai_info();
    if (!member || !reply || !ai) return fail_section(member, reply);
    if (cJSON_IsTrue(member)) {
        cJSON* answer = cJSON_CreateObject();
        if (!answer) return fail_section(member, reply);
        answer_all(answer, ai, false);
        cJSON_AddItemToObject(reply, member->string, answer);
        return 0;
    }
    if (!cJSON_IsObject(member)) return fail_section(member, reply);
    cJSON* answer = cJSON_CreateObject();
    if (!answer) return fail_section(member, reply);
    int result = 0;
    cJSON* item = nullptr;
    cJSON_ArrayForEach(item, member) {
        if (!read_member(answer, item, ai)) result = -1;
    }
    cJSON_AddItemToObject(reply, member->string, answer);
    return result;
}
