// The "gb28181" and "FreeD" sections: one block of the settings record each,
// sent whole with one command, all or nothing.
#include "json/json_gb28181.h"
#include "json/json_describe.h"

#include <arpa/inet.h>

#include <array>
#include <cstddef>

#include "json/json_block.h"
#include "json/json_section.h"
#include "net/net_config.h"

namespace {

// ---- GB28181 ---------------------------------------------------------------------------

using Gb = Gb28181Params;

constexpr auto kGbFields = std::to_array<Field>({
    field("enable", FieldForm::i32, offsetof(Gb, enable)),
    field("sip port", FieldForm::u16, offsetof(Gb, sipPort)),
    text_field("server sip id", offsetof(Gb, serverSipId), sizeof(Gb::serverSipId)),
    field("server sip addr", FieldForm::ipv4, offsetof(Gb, serverSipAddr)),
    field("server sip port", FieldForm::u16, offsetof(Gb, serverSipPort)),
    text_field("sip id", offsetof(Gb, sipId), sizeof(Gb::sipId)),
    text_field("sip password", offsetof(Gb, sipPassword), sizeof(Gb::sipPassword)),
    field("register valid time", FieldForm::i32, offsetof(Gb, registerValidTime)),
    field("register state", FieldForm::i32, offsetof(Gb, registerState)).read_only(),  // the service's own
    field("heartbeat cycle", FieldForm::i32, offsetof(Gb, heartbeatCycle)),
    field("stream sel", FieldForm::i32, offsetof(Gb, streamSel)),
    field("max heartbeat timeout", FieldForm::i32, offsetof(Gb, maxHeartbeatTimeout)).exact(),
});

constexpr SettingsBlock kGbBlock{kGbFields, offsetof(SysInfo, gb28181), sizeof(Gb), SysCmd::gb28181};
static_assert(settings_block_ok(kGbBlock));

// ---- FreeD -------------------------------------------------------------------------------

using Freed = FreedParams;

Freed& freed(uint8_t* block) { return *reinterpret_cast<Freed*>(block); }
const Freed& freed(const uint8_t* block) { return *reinterpret_cast<const Freed*>(block); }

constexpr WordCode kModes[] = {{"always", 0}, {"ondemand", 1}, {"genlock", 2}};

cJSON* read_client(const Field&, const uint8_t* block, int index) {
    if (index >= kFreedClients) return nullptr;  // false, and a failure
    const Freed& fd = freed(block);
    const auto i = static_cast<size_t>(index);
    cJSON* client = cJSON_CreateObject();
    json_answer_number(client, "enable", fd.clientEnable[i]);
    json_answer(client, "ip", cJSON_CreateString(net_dotted(fd.clientIp[i]).c_str()));
    json_answer_number(client, "port", fd.clientPort[i]);
    return client;
}

// A receiver's address and port as its members give them; false when one of
// them is of the wrong type or does not parse.
bool set_receiver(Freed& fd, size_t i, const cJSON* enable, const cJSON* ip, const cJSON* port) {
    in_addr addr{};
    if ((enable != nullptr && !cJSON_IsNumber(enable)) || (port != nullptr && !cJSON_IsNumber(port)) ||
        (ip != nullptr && (!cJSON_IsString(ip) || inet_aton(ip->valuestring, &addr) == 0)))
        return false;
    if (enable != nullptr) fd.clientEnable[i] = static_cast<uint8_t>(enable->valueint);
    if (ip != nullptr) fd.clientIp[i] = addr.s_addr;
    if (port != nullptr) fd.clientPort[i] = static_cast<uint16_t>(port->valueint);
    return true;
}

// "clientN": a receiver beyond the fourth is answered false on its own.
bool write_client(const Field&, FieldWrite& ctx, const cJSON* item, int index) {
    if (index >= kFreedClients) {
        json_answer_false(ctx.reply, item->string);
        return false;
    }
    if (!cJSON_IsObject(item)) return false;
    return set_receiver(freed(ctx.block), static_cast<size_t>(index), cJSON_GetObjectItem(item, "enable"),
                        cJSON_GetObjectItem(item, "ip"), cJSON_GetObjectItem(item, "port"));
}

// The top-level "ip" and "port" are receiver 0's, and switch it on.
bool write_first_ip(const Field&, FieldWrite& ctx, const cJSON* item, int) {
    if (!set_receiver(freed(ctx.block), 0, nullptr, item, nullptr)) return false;
    freed(ctx.block).clientEnable[0] = 1;
    return true;
}
bool write_first_port(const Field&, FieldWrite& ctx, const cJSON* item, int) {
    if (!set_receiver(freed(ctx.block), 0, nullptr, nullptr, item)) return false;
    freed(ctx.block).clientEnable[0] = 1;
    return true;
}

// "interval" and "frequency" each set their word and make it the one that applies.
template <uint16_t Freed::*Word, uint16_t Selector>
bool write_rate(const Field&, FieldWrite& ctx, const cJSON* item, int) {
    if (!cJSON_IsNumber(item)) return false;
    freed(ctx.block).*Word = static_cast<uint16_t>(item->valueint);
    freed(ctx.block).rateSel = Selector;
    return true;
}
bool by_frequency(const uint8_t* block) { return freed(block).rateSel != 0; }
bool by_interval(const uint8_t* block) { return freed(block).rateSel == 0; }

constexpr auto kFreedFields = std::to_array<Field>({
    field("enable", FieldForm::i16, offsetof(Freed, enable)),
    field("ID", FieldForm::u8, offsetof(Freed, id)),
    word_field("mode", offsetof(Freed, mode), 1, kModes),
    own_field("client").indexed(kFreedClients).read_by(read_client).written_by(write_client),
    field("ip", FieldForm::ipv4, offsetof(Freed, clientIp)).written_by(write_first_ip),
    field("port", FieldForm::u16, offsetof(Freed, clientPort)).written_by(write_first_port),
    field("frequency", FieldForm::u16, offsetof(Freed, frequency))
        .written_by(write_rate<&Freed::frequency, 1>)
        .shown_when(by_frequency),
    field("interval", FieldForm::u16, offsetof(Freed, interval))
        .written_by(write_rate<&Freed::interval, 0>)
        .shown_when(by_interval),
});

constexpr SettingsBlock kFreedBlock{kFreedFields, offsetof(SysInfo, freed), sizeof(Freed), SysCmd::freed};
static_assert(settings_block_ok(kFreedBlock));

// ---- the handlers -------------------------------------------------------------------------

constexpr ReadRules kReadRules{.other_is_empty = true};

}  // namespace

int json_gb28181_get_ctrl(cJSON* member, cJSON* reply) {
    return fields_read(kGbFields, block_stored(kGbBlock), member, reply, kReadRules);
}
int json_gb28181_set_ctrl(cJSON* member, cJSON* reply) {
    return block_section_write(kGbBlock, member, reply);
}
int json_freed_get_ctrl(cJSON* member, cJSON* reply) {
    return fields_read(kFreedFields, block_stored(kFreedBlock), member, reply, kReadRules);
}
int json_freed_set_ctrl(cJSON* member, cJSON* reply) {
    return block_section_write(kFreedBlock, member, reply);
}

void json_block_sections_describe(KeyList& out) {
    fields_describe(out, "gb28181", "", kGbFields);
    fields_describe(out, "FreeD", "", kFreedFields);
}
