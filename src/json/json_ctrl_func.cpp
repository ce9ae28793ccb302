// JSON control API: the get and set dispatchers, the access rule for
// requests not made with GET, the access key and the login check.
#include "json/json_ctrl_func.h"
#include "json/json_describe.h"

#include <array>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "cgi/output.h"
#include "cgi/reply.h"
#include "ipc/sys_port.h"
#include "json/json_ai.h"
#include "json/json_audio.h"
#include "json/json_ethernet.h"
#include "json/json_full_ndi.h"
#include "json/json_gb28181.h"
#include "json/json_image.h"
#include "json/json_ntp.h"
#include "json/json_record.h"
#include "json/json_reg.h"
#include "json/json_section.h"
#include "json/json_stream_out.h"
#include "json/json_system.h"
#include "json/json_venc.h"
#include "net/net_config.h"
#include "support/log.h"
#include "support/owners.h"

namespace {

// ---- section tables, in the order names are tried ---------------------------

constexpr std::array<JsonSection, 18> kGetSections{{
    {"key", SectionValue::any, nullptr},
    {"ndi", SectionValue::any, json_section_pending},
    {"full ndi", SectionValue::any, json_full_ndi_get_ctrl},
    {"srt", SectionValue::any, json_section_pending},
    {"gb28181", SectionValue::any, json_gb28181_get_ctrl},
    {"FreeD", SectionValue::any, json_freed_get_ctrl},
    {"record", SectionValue::any, json_record_get_ctrl},
    {"audio", SectionValue::any, json_audio_get_ctrl},
    {"ai", SectionValue::any, json_section_refused},
    {"NTP", SectionValue::any, json_ntp_get_ctrl},
    {"venc", SectionValue::object, json_venc_get_ctrl},
    {"VencAbility", SectionValue::object, json_venc_ability_get_ctrl},
    {"ethernet", SectionValue::object, json_ethernet_get_ctrl},
    {"system", SectionValue::object, json_system_get_ctrl},
    {"image", SectionValue::object, json_image_get_ctrl},
    {"rtmp", SectionValue::object, json_rtmp_get_ctrl},
    {"rtp multicast", SectionValue::object, json_multicast_get_ctrl},
    {"reg", SectionValue::object, json_reg_get_ctrl},
}};

constexpr std::array<JsonSection, 18> kSetSections{{
    {"key", SectionValue::any, nullptr},
    {"venc", SectionValue::object, json_venc_set_ctrl},
    {"audio", SectionValue::object, json_audio_set_ctrl},
    {"ai", SectionValue::object, json_ai_set_ctrl},
    {"ethernet", SectionValue::object, json_ethernet_set_ctrl},
    {"image", SectionValue::object, json_image_set_ctrl},
    {"system", SectionValue::object, json_system_set_ctrl},
    {"rtmp", SectionValue::object, json_rtmp_set_ctrl},
    {"rtp multicast", SectionValue::object, json_multicast_set_ctrl},
    {"file ctrl", SectionValue::object, json_file_ctrl_set_ctrl},
    {"NTP", SectionValue::object, json_ntp_set_ctrl},
    {"reg", SectionValue::object, json_reg_set_ctrl},
    {"ndi", SectionValue::object, json_section_pending},
    {"full ndi", SectionValue::object, json_full_ndi_set_ctrl},
    {"srt", SectionValue::object, json_section_pending},
    {"gb28181", SectionValue::object, json_gb28181_set_ctrl},
    {"FreeD", SectionValue::object, json_freed_set_ctrl},
    {"record", SectionValue::object, json_record_set_ctrl},
}};

// True when the request proves itself with the key or a correct login. The
// key must be spelled exactly "key"; the login is found like any other
// section and member name, without regard to case.
bool access_granted(const cJSON* request) {
    const cJSON* key = cJSON_GetObjectItemCaseSensitive(request, "key");
    if (cJSON_IsNumber(key) && json_access_key_match(static_cast<int32_t>(key->valueint)) == 1) return true;
    const cJSON* system = cJSON_GetObjectItem(request, "system");
    if (!cJSON_IsObject(system)) return false;
    const cJSON* login = cJSON_GetObjectItem(system, "login");
    return cJSON_IsString(login) && login->valuestring != nullptr &&
           json_login_check(login->valuestring) == 0;
}

struct Dispatched {
    int result;
    JsonText printed;  // the reply as printed, for the get dispatcher's log
};

Dispatched dispatch(const char* text, std::span<const JsonSection> sections) {
    JsonTree request(text != nullptr ? cJSON_Parse(text) : nullptr);
    // Only an object with members is a request; a bare array or value is not.
    if (!cJSON_IsObject(request.get()) || request->child == nullptr) {
        reply_error("This is no json");
        return {-1, nullptr};
    }
    JsonTree reply(cJSON_CreateObject());
    if (!reply) {
        reply_error("This is no json");
        return {-1, nullptr};
    }

    const char* method = std::getenv("REQUEST_METHOD");
    if ((method == nullptr || std::strcmp(method, "GET") != 0) && !access_granted(request.get())) {
        for (const cJSON* member = request->child; member != nullptr; member = member->next)
            json_answer_false(reply.get(), member->string);
        cJSON_AddItemToObject(reply.get(), "status", cJSON_CreateFalse());
    } else {
        json_section_dispatch(sections, request.get(), reply.get());
    }

    reply_header(kHdrJson);
    JsonText printed(cJSON_Print(reply.get()));
    // Out of memory while printing: the reply still says the request failed.
    out_printf("%s\n", printed ? printed.get() : "{\n\t\"status\":\tfalse\n}");
    return {0, std::move(printed)};
}

}  // namespace

int json_get_ctrl(const char* text) {
    const Dispatched done = dispatch(text, kGetSections);
    if (done.printed) LOG_DBG("%s\n", done.printed.get());
    return done.result;
}

int json_set_ctrl(const char* text) { return dispatch(text, kSetSections).result; }

std::vector<SectionInfo> json_sections_describe() {
    std::vector<SectionInfo> out;
    const auto entry = [&out](std::string_view name) -> SectionInfo& {
        for (SectionInfo& s : out)
            if (s.name == name) return s;
        return out.emplace_back(SectionInfo{.name = name});
    };
    for (const JsonSection& s : kGetSections) {
        if (s.handler == nullptr || s.handler == json_section_pending || s.handler == json_section_refused)
            continue;
        SectionInfo& e = entry(s.name);
        e.get = true;
        e.get_true = s.value == SectionValue::any;
    }
    for (const JsonSection& s : kSetSections) {
        if (s.handler == nullptr || s.handler == json_section_pending || s.handler == json_section_refused)
            continue;
        entry(s.name).set = true;
    }
    return out;
}
