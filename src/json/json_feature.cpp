// Feature slots: a stored camera preset per slot plus the slot's size and
// position in the slot file, which the web pages show next to the pictures
// under /opt/ipnc/www/images/feature.
#include "json/json_feature.h"

#include <sys/stat.h>

#include <array>
#include <charconv>
#include <cstdio>
#include <string>
#include <string_view>

#include <cjson/cJSON.h>

#include "camera/image_ctrl.h"
#include "json/json_section.h"
#include "platform/platform.h"
#include "support/support.h"

namespace {

constexpr const char* kFeatureFile = "/opt/params/feature.ini";
constexpr const char* kFeatureWebDir = "/opt/ipnc/www/images/feature";
constexpr const char* kFeatureLink = "ln -s /opt/params/feature /opt/ipnc/www/images/feature";

struct SlotValue {
    std::string_view name;
};
constexpr auto kSlotValues = std::to_array<SlotValue>({{"size"}, {"x"}, {"y"}});

constexpr int kPresetStored = 1;
constexpr int kPresetStore = 0;  // preset action: store the current position

using SlotName = std::array<char, 12>;

SlotName slot_name(int slot) {
    SlotName name{};
    std::snprintf(name.data(), name.size(), "%d", slot);
    return name;
}

// The slot a member key names ("0" to "7"), or -1.
int slot_of(const char* key) {
    if (key == nullptr) return -1;
    const std::string_view text(key);
    int slot = -1;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), slot);
    if (error != std::errc() || end != text.data() + text.size()) return -1;
    return slot >= 0 && slot < kFeatureSlots ? slot : -1;
}

void ensure_web_link() {
    struct stat info {};
    if (lstat(platform_path(kFeatureWebDir).c_str(), &info) != 0) pox_system(kFeatureLink);
}

// The slot's values as they stand in the file, or null when one is missing.
cJSON* slot_values(int slot) {
    const SlotName section = slot_name(slot);
    cJSON* values = cJSON_CreateObject();
    if (values == nullptr) return nullptr;
    for (const SlotValue& field : kSlotValues) {
        std::array<char, 64> text{};
        long number = 0;
        const std::string key(field.name);
        if (ini_get_value(platform_path(kFeatureFile).c_str(), section.data(), key.c_str(), text.data(),
                          text.size()) != 1 ||
            std::sscanf(text.data(), "%ld", &number) != 1) {
            cJSON_Delete(values);
            return nullptr;
        }
        cJSON_AddItemToObject(values, key.c_str(), cJSON_CreateNumber(static_cast<double>(number)));
    }
    return values;
}

// A stored slot answers its values; any other slot answers false.
void answer_slot(cJSON* answer, const char* key, int slot) {
    cJSON* values =
        image_preset_query(kFeaturePresetBase + slot) == kPresetStored ? slot_values(slot) : nullptr;
    if (values != nullptr)
        json_answer(answer, key, values);
    else
        json_answer_false(answer, key);
}

// Stores one slot; 0 when the preset and all three values were written.
int store_slot(int slot, const cJSON* values) {
    if (!cJSON_IsObject(values)) return -1;
    std::array<long, kSlotValues.size()> numbers{};
    for (size_t i = 0; i < kSlotValues.size(); ++i) {
        const std::string key(kSlotValues[i].name);
        const cJSON* number = cJSON_GetObjectItem(values, key.c_str());
        if (!cJSON_IsNumber(number)) return -1;
        numbers[i] = number->valueint;
    }
    if (image_preset_ctrl(kPresetStore, kFeaturePresetBase + slot) != 0) return -1;
    const SlotName section = slot_name(slot);
    for (size_t i = 0; i < kSlotValues.size(); ++i) {
        std::array<char, 24> text{};
        std::snprintf(text.data(), text.size(), "%ld", numbers[i]);
        const std::string key(kSlotValues[i].name);
        if (ini_set_value(platform_path(kFeatureFile).c_str(), section.data(), key.c_str(), text.data()) < 0)
            return -1;
    }
    return 0;
}

}  // namespace

cJSON* json_feature_read(const cJSON* request) {
    const bool all = request == nullptr || cJSON_IsTrue(request);
    if (!all && !cJSON_IsObject(request)) return nullptr;
    cJSON* answer = cJSON_CreateObject();
    if (answer == nullptr) return nullptr;
    ensure_web_link();
    json_read_rule(
        request, answer,
        [](cJSON* out) {
            for (int slot = 0; slot < kFeatureSlots; ++slot) answer_slot(out, slot_name(slot).data(), slot);
        },
        [](const cJSON* m) { return slot_of(m->string) >= 0; },
        [](const cJSON* m, cJSON* out) { answer_slot(out, m->string, slot_of(m->string)); });
    return answer;
}

int json_feature_write(const cJSON* request, cJSON** answer) {
    *answer = nullptr;
    if (!cJSON_IsObject(request)) return -1;
    cJSON* slots = cJSON_CreateObject();
    if (slots == nullptr) return -1;
    int result = 0;
    for (const cJSON* member = request->child; member != nullptr; member = member->next) {
        const int slot = slot_of(member->string);
        cJSON* values = slot >= 0 && store_slot(slot, member) == 0 ? slot_values(slot) : nullptr;
        if (values != nullptr) {
            json_answer(slots, member->string, values);
        } else {
            json_answer_false(slots, member->string);
            result = -1;
        }
    }
    *answer = slots;
    return result;
}
