// The "venc" section and its read-only companion "VencAbility": the two
// encoded streams, "main" (stream 0) and "sub" (stream 1). A stream is one
// record of 13 words in the settings record, sent whole with command 35;
// which words carry the bit rate and the key-frame interval depends on the
// codec.
#include "json/json_venc.h"
#include "json/json_describe.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "ipc/sys_port.h"
#include "json/json_image.h"
#include "json/json_section.h"
#include "net/net_config.h"
#include "support/owners.h"

namespace {

constexpr int kKeyFramesMax = 60;

// ---- the record ----------------------------------------------------------------------
enum Word : size_t {
    kIndex,
    kEnable,
    kCol,
    kLine,
    kRate,
    kFrac,
    kCodec,
    kRc,
    kW8,
    kW9,
    kW10,
    kMinQp,
    kMaxQp
};
enum Codec : uint32_t { kH264 = 0, kMjpeg = 1, kH265 = 2 };
enum Rc : uint32_t { kCbr = 0, kVbr = 1 };

constexpr WordCode kCodecs[] = {{"h264", kH264}, {"mjpeg", kMjpeg}, {"h265", kH265}};
constexpr WordCode kRcModes[] = {{"cbr", kCbr}, {"vbr", kVbr}};
constexpr WordCode kProfiles[] = {{"baseline", 0}, {"MP", 1}, {"HP", 2}, {"SVC-T", 3}};

constexpr uint32_t kMjpegQuality = 85;
constexpr uint32_t kMinQpVbr = 8;
constexpr uint32_t kMaxQpVbr = 45;
constexpr uint32_t kNdiBitrateMax = 122800;

using Record = std::array<uint32_t, 13>;

// Where the codec keeps its bit rate and interval (-1: it has none). An
// MJPEG stream has a bit rate only under rate control 0 or 1.
int bitrate_word(const Record& r) {
    switch (r[kCodec]) {
    case kH264: return int{kW10};
    case kH265: return int{kW9};
    case kMjpeg: return r[kRc] <= kVbr ? int{kW8} : -1;
    default: return -1;
    }
}
int interval_word(const Record& r) {
    if (r[kRc] >= 4) return -1;
    return r[kCodec] == kH264 ? int{kW9} : r[kCodec] == kH265 ? int{kW8} : -1;
}

// ---- resolution names ----------------------------------------------------------------------
enum Group : uint8_t { kG2160 = 1, kG1080 = 2, kG720 = 4, kGSmall = 8, kGAll = 15 };

struct Size {
    uint32_t col, line;
    uint8_t group;
};
constexpr std::array<Size, 7> kSizes{{
    {3840, 2160, kG2160},
    {1920, 1080, kG1080},
    {1280, 720, kG720},
    {1024, 576, kGSmall},
    {720, 480, kGSmall},
    {640, 480, kGSmall},
    {640, 360, kGSmall},
}};

struct RateName {
    uint32_t rate;
    uint32_t frac;
    std::string_view text;
    uint8_t groups;
};
// 23.976 Hz is "23.98" at 1920X1080 and "23.97" everywhere else.
constexpr std::array<RateName, 11> kRates{{
    {24, 0, "24", kG2160 | kG1080 | kGSmall},
    {24, 1, "23.97", kG2160 | kGSmall},
    {24, 1, "23.98", kG1080},
    {25, 0, "25", kGAll},
    {30, 0, "30", kGAll},
    {30, 1, "29.97", kGAll},
    {50, 0, "50", kGAll},
    {60, 0, "60", kGAll},
    {60, 1, "59.94", kGAll},
    {100, 0, "100", kG1080 | kG720},
    {120, 0, "120", kG1080 | kG720},
}};

const Size* size_of(uint32_t col, uint32_t line) {
    for (const Size& s : kSizes)
        if (s.col == col && s.line == line) return &s;
    return nullptr;
}

// The picture format's name, or false when it has none.
bool parse_format(const char* name, Record& r) {
    unsigned col = 0, line = 0;
    char rate[16] = "";
    char tail = 0;
    if (name == nullptr || std::sscanf(name, "%uX%uP@%15[0-9.]Hz%c", &col, &line, rate, &tail) != 3)
        return false;
    const Size* size = size_of(col, line);
    if (size == nullptr) return false;
    for (const RateName& n : kRates) {
        if ((n.groups & size->group) == 0 || n.text != rate) continue;
        r[kCol] = col;
        r[kLine] = line;
        r[kRate] = n.rate;
        r[kFrac] = n.frac;
        return true;
    }
    return false;
}

}  // namespace

void json_venc_format_name(uint32_t col, uint32_t line, uint32_t rate, uint32_t frac, char* out,
                           size_t size) {
    const Size* s = size_of(col, line);
    for (const RateName& n : kRates) {
        if (s == nullptr || (n.groups & s->group) == 0 || n.rate != rate || n.frac != (frac != 0 ? 1u : 0u))
            continue;
        std::snprintf(out, size, "%uX%uP@%.*sHz", col, line, static_cast<int>(n.text.size()), n.text.data());
        return;
    }
    std::snprintf(out, size, "Unknow Format");
}

namespace {

// ---- streams -------------------------------------------------------------------------------
struct Stream {
    std::string_view name;
    const char* rtsp_path;
    int index;
};
constexpr std::array<Stream, 2> kStreams{{{"main", "stream/main", 0}, {"sub", "stream/sub", 1}}};

Record record_of(const SysInfo& info, const Stream& s) {
    Record r{};
    std::memcpy(r.data(), info.stream[s.index].word, sizeof r);
    r[kIndex] = static_cast<uint32_t>(s.index);
    return r;
}

void add_number(cJSON* out, const char* key, uint32_t value) { json_answer_number(out, key, value); }
void add_text(cJSON* out, const char* key, const char* text) {
    json_answer(out, key, cJSON_CreateString(text));
}

// The whole stream as a client sees it.
cJSON* stream_answer(const SysInfo& info, const Stream& s) {
    const Record r = record_of(info, s);
    cJSON* out = cJSON_CreateObject();
    if (out == nullptr) return nullptr;
    char text[128];
    add_number(out, "enable", r[kEnable]);
    json_venc_format_name(r[kCol], r[kLine], r[kRate], r[kFrac], text, sizeof text);
    add_text(out, "format", text);
    const char* codec = word_of(kCodecs, static_cast<int>(r[kCodec]));
    if (codec != nullptr) add_text(out, "mode", codec);
    add_number(out, "col", r[kCol]);
    add_number(out, "line", r[kLine]);
    if (r[kCodec] == kH265) {
        add_text(out, "profile", "MP");
    } else if (r[kCodec] == kH264 && r[kW8] < 4) {
        add_text(out, "profile", word_of(kProfiles, static_cast<int>(r[kW8])));
    }
    const int bitrate = bitrate_word(r);
    add_number(out, "bitrate", bitrate >= 0 ? r[static_cast<size_t>(bitrate)] : 0);
    add_number(out, "frmrate", r[kRate]);
    if (r[kRc] <= kVbr) {
        add_text(out, "rcmode", word_of(kRcModes, static_cast<int>(r[kRc])));
        if (r[kCodec] == kH264 && r[kRc] == kVbr) {
            add_number(out, "min_qp", r[kMinQp]);
            add_number(out, "max_qp", r[kMaxQp]);
        }
    }
    const int interval = interval_word(r);
    add_number(out, "interval", interval >= 0 ? r[static_cast<size_t>(interval)] : 0);

    const std::string dotted = net_eth0_dotted();
    const char* host = dotted.c_str();
    std::snprintf(text, sizeof text, "rtsp://%s:%1d/%s", host, info.rtspPort, s.rtsp_path);
    add_text(out, "rtspUrl", text);
    std::snprintf(text, sizeof text, "rtmp://%s:%1d/app/rtmpstream%d", host, info.rtmpPort, s.index);
    add_text(out, "rtmpUrl", text);
    std::snprintf(text, sizeof text, "http://%s:%1d/app/rtmpstream%d.flv", host, 8080, s.index);
    add_text(out, "httpFlvUrl", text);
    std::snprintf(text, sizeof text, "ws://%s:%1d/%s", host, 9000, s.index == 0 ? "main" : "sub");
    add_text(out, "webRtcUrl", text);
    const SysState* state = sys_state(1);
    const uint32_t preview = state == nullptr ? 5 : s.index == 0 ? state->previewMain : state->previewSub;
    add_text(out, "preview", preview < 5 ? "webRTC" : "httpflv");
    return out;
}

// `true` answers the whole stream; an object answers its true members, each
// with its value in the whole answer, under the request's spelling.
cJSON* selected(cJSON* whole, const cJSON* request) {
    if (whole == nullptr || cJSON_IsTrue(request)) return whole;
    JsonTree all(whole);
    cJSON* out = cJSON_CreateObject();
    if (out == nullptr) return nullptr;
    json_read_rule(
        request, out, [](cJSON*) {},
        [&](const cJSON* m) { return cJSON_GetObjectItem(all.get(), m->string) != nullptr; },
        [&](const cJSON* m, cJSON* o) {
            json_answer(o, m->string, cJSON_Duplicate(cJSON_GetObjectItem(all.get(), m->string), 1));
        });
    return out;
}

// The walk of both read sections and of the write: "main" and "sub" with a
// value the handler takes; `build` makes the stream's answer (null: false).
template <typename Build>
int stream_walk(cJSON* member, cJSON* reply, bool objects_only, Build build) {
    return json_rows_walk(std::span<const Stream>(kStreams), member, reply, objects_only,
                          [&](const Stream& s, cJSON* item, cJSON* answer) {
                              return json_answer_value(answer, item, build(s, item));
                          });
}

// ---- the write -----------------------------------------------------------------------------

// The bit rate a new codec or rate control starts from, or false when the
// picture is too large for it to fit its word (the switch is then refused,
// never wrapped).
bool default_bitrate(const Record& r, uint32_t& out) {
    const uint64_t rate = uint64_t{r[kCol]} * r[kLine] / 400;
    if (rate > UINT32_MAX) return false;
    out = static_cast<uint32_t>(rate);
    return true;
}

// The codec words of a record switched to `codec`, kept consistent; false
// (the record unchanged) when a computed word would not fit.
bool switch_codec(Record& r, uint32_t codec, const Stream& s) {
    uint32_t bitrate = 0;
    if (codec != kMjpeg && !default_bitrate(r, bitrate)) return false;
    const uint32_t from = r[kCodec];
    r[kCodec] = codec;
    if (codec == kMjpeg) {
        r[kRc] = 2;
        r[kW8] = kMjpegQuality;
        r[kW9] = r[kW10] = 0;
        return true;
    }
    const SavedCodecs* saved = from != kMjpeg ? sys_saved_codecs() : nullptr;
    const size_t slot = codec == kH265 ? 1 : 0;
    // A slot never saved is all zeros: no picture size.
    if (saved != nullptr && saved->magic == kInfoMagic &&
        saved->stream[s.index][slot].word[kCodec] == codec && saved->stream[s.index][slot].word[kCol] != 0) {
        for (size_t w = kRc; w <= kMaxQp; ++w) r[w] = saved->stream[s.index][slot].word[w];
        return true;
    }
    r[kRc] = kCbr;
    r[kW8] = r[kW9] = r[kW10] = 0;
    if (codec == kH264) r[kW8] = 1;  // MP
    if (const int w = interval_word(r); w >= 0) r[static_cast<size_t>(w)] = r[kRate];
    if (const int w = bitrate_word(r); w >= 0) r[static_cast<size_t>(w)] = bitrate;
    return true;
}

// A new rate control: an MJPEG stream trades its bit rate for its quality
// word and back; an H.264 stream going variable gets its quantiser range.
// False (the record unchanged) when the bit rate would not fit its word.
bool switch_rc(Record& r, uint32_t rc) {
    const bool had_bitrate = bitrate_word(r) >= 0;
    Record next = r;
    next[kRc] = rc;
    if (next[kCodec] == kMjpeg && !had_bitrate && bitrate_word(next) >= 0 &&
        !default_bitrate(next, next[kW8]))
        return false;
    if (next[kCodec] == kH264 && rc == kVbr) {
        next[kMinQp] = kMinQpVbr;
        next[kMaxQp] = kMaxQpVbr;
    }
    r = next;
    return true;
}

// The main stream of an NDI camera: a bit rate for its codec, size and rate,
// at most 122800.
uint32_t ndi_bitrate(const Record& r) {
    const uint64_t pixels = uint64_t{r[kCol]} * r[kLine] * r[kRate];
    const uint64_t per_kbit = r[kCodec] == kH265 ? 1600 : r[kCodec] == kMjpeg ? 200 : 800;
    const uint64_t rate = pixels / per_kbit;
    return static_cast<uint32_t>(rate > kNdiBitrateMax ? kNdiBitrateMax : rate);
}

// What a request asks of a stream, gathered before any of it is applied
// (-1: not asked).
enum Ask : size_t {
    kAskCodec,
    kAskRc,
    kAskProfile,
    kAskBitrate,
    kAskInterval,
    kAskMinQp,
    kAskMaxQp,
    kAskKeyFrames,
    kAsks
};
using Wanted = std::array<int64_t, kAsks>;

bool take_format(const cJSON* m, Record& r) { return cJSON_IsString(m) && parse_format(m->valuestring, r); }

// One member of a write: a choice among `words` or a number up to `max`,
// put straight into a record word or gathered into a slot of the request.
struct Member {
    std::string_view name;
    Words words;
    int word = -1;
    int ask = -1;
    int64_t max = UINT32_MAX;
    bool (*own)(const cJSON* m, Record& r) = nullptr;
};
constexpr std::array<Member, 13> kMembers{{
    {"enable", {}, kEnable},
    {"format", {}, -1, -1, UINT32_MAX, take_format},
    {"mode", kCodecs, -1, kAskCodec},
    {"rcmode", kRcModes, -1, kAskRc},
    {"profile", kProfiles, -1, kAskProfile},
    {"col", {}, kCol},
    {"line", {}, kLine},
    {"frmrate", {}, kRate},
    {"bitrate", {}, -1, kAskBitrate},
    {"interval", {}, -1, kAskInterval},
    {"min_qp", {}, -1, kAskMinQp},
    {"max_qp", {}, -1, kAskMaxQp},
    {"Iframe", {}, -1, kAskKeyFrames, kKeyFramesMax},
}};

bool take(const cJSON* m, Record& r, Wanted& w) {
    const Member* row = find_row(std::span<const Member>(kMembers), m->string);
    if (row == nullptr) return false;
    if (row->own != nullptr) return row->own(m, r);
    int64_t value = 0;
    if (!row->words.empty()) {
        const WordCode* c = cJSON_IsString(m) ? word_find(row->words, m->valuestring) : nullptr;
        if (c == nullptr) return false;
        value = c->code;
    } else {
        // The number itself, not cJSON's int view of it (which saturates).
        if (!cJSON_IsNumber(m) || !(m->valuedouble >= 0) || m->valuedouble > static_cast<double>(row->max))
            return false;
        value = static_cast<int64_t>(m->valuedouble);
    }
    if (row->word >= 0) {
        r[static_cast<size_t>(row->word)] = static_cast<uint32_t>(value);
    } else {
        w[static_cast<size_t>(row->ask)] = value;
    }
    return true;
}

cJSON* write_stream(const Stream& s, cJSON* request) {
    const SysInfo* info = sys_info();
    if (info == nullptr) return nullptr;
    Record r = record_of(*info, s);
    Wanted w;
    w.fill(-1);
    JsonTree taken(cJSON_CreateObject());
    for (const cJSON* m = request->child; m != nullptr && taken; m = m->next)
        json_answer(taken.get(), m->string, cJSON_CreateBool(take(m, r, w)));
    auto asked = [&w](Ask a) { return w[a] >= 0; };
    auto value = [&w](Ask a) { return static_cast<uint32_t>(w[a]); };
    // A switch whose computed words do not fit is refused: its member answers false.
    auto refuse = [&taken](const char* key) {
        if (cJSON* m = cJSON_GetObjectItem(taken.get(), key); m != nullptr) m->type = cJSON_False;
    };
    if (asked(kAskCodec) && value(kAskCodec) != r[kCodec] && !switch_codec(r, value(kAskCodec), s))
        refuse("mode");
    if (asked(kAskRc) && value(kAskRc) != r[kRc] && !switch_rc(r, value(kAskRc))) refuse("rcmode");
    if (asked(kAskProfile) && r[kCodec] == kH264) r[kW8] = value(kAskProfile);
    const int bitrate = bitrate_word(r), interval = interval_word(r);
    if (asked(kAskBitrate) && bitrate >= 0) r[static_cast<size_t>(bitrate)] = value(kAskBitrate);
    if (asked(kAskInterval) && interval >= 0) r[static_cast<size_t>(interval)] = value(kAskInterval);
    if (asked(kAskMinQp)) r[kMinQp] = value(kAskMinQp);
    if (asked(kAskMaxQp)) r[kMaxQp] = value(kAskMaxQp);
    if (s.index == 0 && info->ndiFlag518 != 0 && info->ndi_enable != 0 && bitrate >= 0)
        r[static_cast<size_t>(bitrate)] = ndi_bitrate(r);

    if (sys_send_block<SysCmd::stream>(r) != 0) return nullptr;
    for (int64_t i = 0; i < w[kAskKeyFrames]; ++i)
        if (sys_send_number<SysCmd::key_frame>(static_cast<uint32_t>(s.index)) != 0) return nullptr;
    cJSON* out = stream_answer(*sys_info(), s);
    // Members the stream could not take stay false in the answer.
    for (const cJSON* m = taken ? taken->child : nullptr; m != nullptr && out != nullptr; m = m->next) {
        if (same_word(m->string, "Iframe") || !cJSON_IsTrue(m)) {
            cJSON_DeleteItemFromObjectCaseSensitive(out, m->string);
            json_answer(out, m->string, cJSON_CreateBool(cJSON_IsTrue(m)));
        }
    }
    return out;
}

// ---- abilities -------------------------------------------------------------------------
struct Ability {
    std::array<uint32_t, 8> resolution;
    size_t resolutions;
    uint32_t bitrate[2];
    uint32_t interval_min;
    uint64_t formats;
};
constexpr Ability kMain{
    {3840, 2160, 1920, 1080, 1280, 720, 1024, 576}, 8, {512, 32768}, 1, 0xc000001f9f83fULL};
constexpr Ability kSub{{720, 480, 640, 480, 640, 360}, 6, {512, 5120}, 1, 0x3ffff00000000ULL};
constexpr Ability kSubNdi{{640, 360}, 2, {512, 2048}, 5, 0x3f00000000ULL};

cJSON* numbers(const uint32_t* values, size_t count) {
    cJSON* list = cJSON_CreateArray();
    for (size_t i = 0; i < count && list != nullptr; ++i)
        cJSON_AddItemToArray(list, cJSON_CreateNumber(values[i]));
    return list;
}

cJSON* ability_answer(const Stream& s) {
    const SysInfo* info = sys_info();
    if (info == nullptr) return nullptr;
    const Ability& a = s.index == 0                                       ? kMain
                       : (info->ndiFlag516 != 0 && info->ndi_enable != 0) ? kSubNdi
                                                                          : kSub;
    cJSON* out = cJSON_CreateObject();
    if (out == nullptr) return nullptr;
    const uint32_t rates[2] = {15, 60};
    const uint32_t interval[2] = {a.interval_min, 120};
    json_answer_number(out, "mode", 3);
    json_answer(out, "resolution", numbers(a.resolution.data(), a.resolutions));
    json_answer(out, "bitrate", numbers(a.bitrate, 2));
    json_answer(out, "frmrate", numbers(rates, 2));
    json_answer_number(out, "rcmode", 3);
    json_answer(out, "interval", numbers(interval, 2));
    json_answer(out, "format", json_format_list(a.formats, 0));
    return out;
}

}  // namespace

int json_venc_get_ctrl(cJSON* member, cJSON* reply) {
    return stream_walk(member, reply, false, [](const Stream& s, cJSON* item) -> cJSON* {
        const SysInfo* info = sys_info();
        return info != nullptr ? selected(stream_answer(*info, s), item) : nullptr;
    });
}

int json_venc_set_ctrl(cJSON* member, cJSON* reply) { return stream_walk(member, reply, true, write_stream); }

int json_venc_ability_get_ctrl(cJSON* member, cJSON* reply) {
    return stream_walk(member, reply, false, [](const Stream& s, cJSON* item) -> cJSON* {
        return selected(ability_answer(s), item);
    });
}

void json_venc_describe(KeyList& out) {
    for (const Stream& s : kStreams)
        for (const Member& m : kMembers) {
            KeyInfo k{.section = "venc", .path = s.name, .key = m.name, .words = m.words};
            if (!m.words.empty())
                k.type = KeyType::word;
            else if (m.own != nullptr)
                k.type = KeyType::text;
            else
                k.max = m.max;
            out.push_back(k);
        }
}
