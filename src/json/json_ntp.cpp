// The "NTP" section: the time client's block of the settings record. It is
// the one block written straight into the shared record; the command that
// follows tells the system server to take it up.
#include "json/json_ntp.h"
#include "json/json_describe.h"

#include <unistd.h>

#include <array>
#include <cstddef>

#include "ipc/sys_port.h"
#include "json/json_fields.h"
#include "json/json_section.h"
#include "support/owners.h"
#include "platform/platform.h"

namespace {

constexpr const char* kReadyFile = "/tmp/ntpready";  // made by the time service once in step

// 1 once the time service has synchronised.
cJSON* read_state(const Field&, const uint8_t*, int) {
    return cJSON_CreateNumber(access(platform_path(kReadyFile).c_str(), F_OK) == 0 ? 1 : 0);
}

constexpr auto kFields = std::to_array<Field>({
    field("enable", FieldForm::u32, offsetof(NtpParams, enable)),
    text_field("server address", offsetof(NtpParams, serverAddress), sizeof(NtpParams::serverAddress)),
    field("port", FieldForm::u32, offsetof(NtpParams, port)),
    field("update interval", FieldForm::u32, offsetof(NtpParams, updateInterval)),
    own_field("state").only_in(kInKeyed).read_only().read_by(read_state),
});
static_assert(fields_fit(kFields, sizeof(NtpParams)) && sizeof(NtpParams) == sys_cmd_width(SysCmd::ntp));

uint8_t* stored_block() {
    SysInfo* info = sys_info();
    return info != nullptr ? reinterpret_cast<uint8_t*>(&info->ntp) : nullptr;
}

}  // namespace

int json_ntp_get_ctrl(cJSON* member, cJSON* reply) {
    return fields_read(kFields, stored_block(), member, reply, {.non_true_fails = false});
}

// Each member lands in the record as it comes and is answered true; a
// refused one (wrong type, unknown key, a server address too long for its
// field) answers false and nothing is sent, what was written staying. When
// all were taken, the command goes out and the taken members are answered
// with their values.
int json_ntp_set_ctrl(cJSON* member, cJSON* reply) {
    if (member == nullptr) return -1;
    uint8_t* block = stored_block();
    JsonTree taken(block != nullptr ? cJSON_CreateObject() : nullptr);
    if (!taken) {
        json_answer_false(reply, member->string);
        return -1;
    }
    FieldWrite ctx{block, nullptr, reply};
    if (fields_apply(kFields, ctx, member, taken.get()) != 0 ||
        sys_send_block<SysCmd::ntp>(*reinterpret_cast<const NtpParams*>(block)) != 0) {
        json_answer_false(reply, member->string);
        return -1;
    }
    return fields_read(kFields, block, taken.get(), member->string, reply, {.non_true_fails = false});
}

void json_ntp_describe(KeyList& out) { fields_describe(out, "NTP", "", kFields); }
