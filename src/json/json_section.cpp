// The top-level walk of the dispatchers and the shared section helpers.
#include "json/json_section.h"

void json_answer(cJSON* answer, const char* key, cJSON* item) {
    if (item == nullptr) return;
    if (answer == nullptr || key == nullptr || !cJSON_AddItemToObject(answer, key, item)) cJSON_Delete(item);
}

int json_section_dispatch(std::span<const JsonSection> table, cJSON* request, cJSON* reply) {
    bool failed = false;
    for (cJSON* member = request != nullptr ? request->child : nullptr; member != nullptr;
         member = member->next) {
        const JsonSection* section = find_row(table, member->string);
        if (section != nullptr && section->handler == nullptr) continue;  // "key"
        if (section == nullptr || (section->value == SectionValue::object && !cJSON_IsObject(member))) {
            json_answer_false(reply, member->string);
            failed = true;
            continue;
        }
        // Only -1 is a failure; the image reader may hand back a preset state.
        if (section->handler(member, reply) == -1) failed = true;
    }
    json_answer(reply, "status", cJSON_CreateBool(failed ? 0 : 1));
    return failed ? -1 : 0;
}

int json_section_pending(cJSON* member, cJSON* reply) {
    if (member != nullptr) json_answer_false(reply, member->string);
    return -1;
}

int json_section_refused(cJSON*, cJSON*) { return -1; }
