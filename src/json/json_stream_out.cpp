// The stream output sections: where the two encoded streams, "main" and
// "sub", are pushed besides the device's own servers. RTMP pushes live in
// the state record and change member by member; the multicast blocks live
// in the settings record and change whole.
#include "json/json_stream_out.h"
#include "json/json_describe.h"

#include <array>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "ipc/sys_port.h"
#include "json/json_block.h"
#include "json/json_section.h"
#include "net/net_config.h"
#include "support/owners.h"

namespace {

// One stream of a section: its name, its RTMP commands and its multicast
// RTSP path (the multicast commands are its settings block's).
struct Stream {
    std::string_view name;
    SysCmd url_command;
    SysCmd enable_command;
    const char* path;
};
constexpr std::array<Stream, 2> kStreams{{
    {"main", SysCmd::rtmp_url_main, SysCmd::rtmp_enable_main, "multicast/main"},
    {"sub", SysCmd::rtmp_url_sub, SysCmd::rtmp_enable_sub, "multicast/sub"},
}};

size_t index_of(const Stream& s) { return static_cast<size_t>(&s - kStreams.data()); }

template <typename Serve>
int stream_walk(cJSON* member, cJSON* reply, bool objects_only, Serve serve) {
    return json_rows_walk(std::span<const Stream>(kStreams), member, reply, objects_only, serve);
}

// ---- rtmp ------------------------------------------------------------------------
constexpr auto kRtmpFields = std::to_array<Field>({
    field("enable", FieldForm::u8, offsetof(RtmpPush, enable)),
    text_field("url", offsetof(RtmpPush, url), sizeof(RtmpPush::url)),
    field("status", FieldForm::u8, offsetof(RtmpPush, status)),
});
static_assert(fields_fit(kRtmpFields, sizeof(RtmpPush)));

const uint8_t* rtmp_block(const Stream& stream) {
    const SysState* state = sys_state(1);
    if (state == nullptr) return nullptr;
    return reinterpret_cast<const uint8_t*>(&state->rtmp[index_of(stream)]);
}

// The stream answered under `key` (the request's spelling): `true` (or no
// request) answers
// every key; an object answers its true "enable" and "url", skips other
// keys, answers other values false; "status" always comes last.
bool rtmp_answer(const Stream& stream, const cJSON* request, const char* key, cJSON* answer) {
    const uint8_t* block = rtmp_block(stream);
    cJSON* out = block != nullptr ? cJSON_CreateObject() : nullptr;
    if (out == nullptr) {
        json_answer_false(answer, key);
        return false;
    }
    // Every key is taken, but only "enable" and "url" answer; "status" comes
    // last whatever was asked.
    const bool whole = request == nullptr || cJSON_IsTrue(request);
    json_read_rule(
        request, out, [&](cJSON* o) { fields_answer(kRtmpFields, block, o, kInWhole); },
        [](const cJSON*) { return true; },
        [&](const cJSON* m, cJSON* o) {
            if (same_word(m->string, "enable") || same_word(m->string, "url"))
                json_answer(o, m->string, field_value(*find_row(Fields(kRtmpFields), m->string), block));
        });
    if (!whole) json_answer(out, "status", field_value(kRtmpFields[2], block));
    json_answer(answer, key, out);
    return true;
}

bool rtmp_read(const Stream& stream, const cJSON* request, cJSON* answer) {
    return rtmp_answer(stream, request, request->string, answer);
}

bool rtmp_take(const Stream& stream, const cJSON* m) {
    if (same_word(m->string, "url") && cJSON_IsString(m) && m->valuestring != nullptr) {
        return std::strlen(m->valuestring) < sizeof(RtmpPush::url) &&
               sys_send_text(stream.url_command, m->valuestring) == 0;
    }
    if (same_word(m->string, "enable") && cJSON_IsNumber(m)) {
        return sys_send_number(stream.enable_command, static_cast<uint32_t>(m->valueint)) == 0;
    }
    return false;
}

// Every member is sent as it comes; the first one alone decides the answer:
// taken, the whole stream as it now stands; refused (or none), false.
bool rtmp_write(const Stream& stream, cJSON* request, cJSON* answer) {
    bool first_taken = false;
    for (const cJSON* m = request->child; m != nullptr; m = m->next) {
        const bool taken = rtmp_take(stream, m);
        if (m == request->child) first_taken = taken;
    }
    if (!first_taken) {
        json_answer_false(answer, request->string);
        return false;
    }
    return rtmp_answer(stream, nullptr, request->string, answer);
}

// ---- rtp multicast -----------------------------------------------------------------

// The RTSP link of the stream: through the multicast relay (the RTSP port
// plus 8000) in the whole answer, and on the RTSP port itself when asked by
// key. Both forms are what clients use.
cJSON* rtsp_link(const uint8_t* block, int offset) {
    const SysInfo* info = sys_info();
    if (info == nullptr) return nullptr;
    const bool sub = block == reinterpret_cast<const uint8_t*>(&info->mcastSub);
    char link[96];
    std::snprintf(link, sizeof link, "rtsp://%s:%1d/%s", net_eth0_dotted().c_str(),
                  (info->rtspPort + offset) % 65536, kStreams[sub ? 1 : 0].path);
    return cJSON_CreateString(link);
}

cJSON* rtp_link(const Field&, const uint8_t* block, int) {
    const auto* m = reinterpret_cast<const McastParams*>(block);
    char link[64];
    std::snprintf(link, sizeof link, "rtp://%s:%1d", net_dotted(m->addr).c_str(), static_cast<int>(m->port));
    return cJSON_CreateString(link);
}

constexpr int kRelayOffset = 8000;
cJSON* rtsp_through_relay(const Field&, const uint8_t* block, int) { return rtsp_link(block, kRelayOffset); }
cJSON* rtsp_on_its_port(const Field&, const uint8_t* block, int) { return rtsp_link(block, 0); }

constexpr auto kMulticastFields = std::to_array<Field>({
    field("enable", FieldForm::u32, offsetof(McastParams, enable)),
    field("ip", FieldForm::ipv4, offsetof(McastParams, addr)),
    field("port", FieldForm::u32, offsetof(McastParams, port)),
    own_field("rtsp").read_only().read_by(rtsp_through_relay).only_in(kInWhole),
    own_field("rtsp").read_only().read_by(rtsp_on_its_port).only_in(kInKeyed),
    own_field("rtp").read_only().read_by(rtp_link).only_in(kInWhole | kInKeyed),
});

constexpr std::array<SettingsBlock, 2> kMulticastBlocks{{
    {kMulticastFields, offsetof(SysInfo, mcastMain), sizeof(McastParams), SysCmd::multicast_main},
    {kMulticastFields, offsetof(SysInfo, mcastSub), sizeof(McastParams), SysCmd::multicast_sub},
}};
static_assert(settings_block_ok(kMulticastBlocks[0]) && settings_block_ok(kMulticastBlocks[1]));

}  // namespace

int json_rtmp_get_ctrl(cJSON* member, cJSON* reply) { return stream_walk(member, reply, false, rtmp_read); }
int json_rtmp_set_ctrl(cJSON* member, cJSON* reply) { return stream_walk(member, reply, true, rtmp_write); }

int json_multicast_get_ctrl(cJSON* member, cJSON* reply) {
    return stream_walk(member, reply, false, [](const Stream& stream, cJSON* item, cJSON* answer) {
        // Inside a stream a key it does not know, or a value that is not
        // true, answers false without failing the request.
        constexpr ReadRules kLenient{.non_true_fails = false, .unknown_fails = false};
        return fields_read(kMulticastFields, block_stored(kMulticastBlocks[index_of(stream)]), item, answer,
                           kLenient) == 0;
    });
}

// All or nothing per stream: one refused member and nothing is sent.
int json_multicast_set_ctrl(cJSON* member, cJSON* reply) {
    return stream_walk(member, reply, true, [](const Stream& stream, cJSON* item, cJSON* answer) {
        return block_section_write(kMulticastBlocks[index_of(stream)], item, answer) == 0;
    });
}

void json_stream_out_describe(KeyList& out) {
    for (std::string_view stream : {"main", "sub"}) {
        fields_describe(out, "rtmp", stream, kRtmpFields);
        fields_describe(out, "rtp multicast", stream, kMulticastFields);
    }
}
