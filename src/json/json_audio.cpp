// The "audio" section: the audio block of the settings record, written whole
// with one command when it changed, and the volume and the HDMI and NDI audio
// switches with a command each.
#include "json/json_audio.h"
#include "json/json_describe.h"

#include <array>
#include <cstddef>

#include "ipc/sys_port.h"
#include "json/json_block.h"
#include "json/json_section.h"

namespace {

constexpr int kCodecAac = 5;
constexpr int kCodecOpus = 6;
constexpr uint32_t kCompressedBitrate = 96000;

constexpr WordCode kInputs[] = {{"LineIn", 0}, {"Mic", 1}};
// The per-key reading of "inputSel" looks at the sound mode, the other way round.
constexpr WordCode kInputsBySoundMode[] = {{"Mic", 0}, {"LineIn", 1}};
constexpr WordCode kSoundModes[] = {{"Mono", 0}, {"Stereo", 1}};
constexpr WordCode kCodecs[] = {{"G711A", 0}, {"G711U", 1}, {"ADPCMA", 2}, {"G726", 3},
                                {"LPCM", 4},  {"AAC", 5},   {"OPUS", 6}};

// Volume, HDMI audio and NDI audio are not part of the block's command: they
// are kept aside (absent as -1) for commands of their own, in this order.
struct Aside {
    SysCmd command;
};
constexpr std::array<Aside, 3> kAside{{{SysCmd::volume}, {SysCmd::hdmi_audio}, {SysCmd::ndi_audio}}};
using AsideValues = std::array<int32_t, kAside.size()>;

// Kept aside in its slot (the row's writer names it).
template <size_t Slot>
bool keep_aside(const Field&, FieldWrite& ctx, const cJSON* item, int) {
    if (!cJSON_IsNumber(item)) return false;
    (*static_cast<AsideValues*>(ctx.extra))[Slot] = item->valueint;
    return true;
}

// A codec word zeroes the bit rate first; AAC and OPUS then bring their own.
// An unknown word keeps the codec, with the bit rate already zeroed.
bool write_codec(const Field& row, FieldWrite& ctx, const cJSON* item, int) {
    if (!cJSON_IsString(item)) return false;
    auto* audio = reinterpret_cast<AudioParams*>(ctx.block);
    audio->bitrate = 0;
    const WordCode* codec = word_find(row.words, item->valuestring);
    if (codec == nullptr) return true;
    audio->encMode = static_cast<uint32_t>(codec->code);
    if (codec->code == kCodecAac || codec->code == kCodecOpus) audio->bitrate = kCompressedBitrate;
    return true;
}

bool compressed(const uint8_t* block) {
    const auto* audio = reinterpret_cast<const AudioParams*>(block);
    return audio->encMode == kCodecAac || audio->encMode == kCodecOpus;
}

constexpr uint8_t kRead = kInWhole | kInKeyed;
constexpr uint16_t kCode = 4;  // the codes are 32-bit words

template <size_t Slot>
constexpr Field aside(std::string_view key, FieldForm form, uint16_t offset) {
    return field(key, form, offset).written_by(keep_aside<Slot>);
}

constexpr auto kFields = std::to_array<Field>({
    word_field("inputSel", offsetof(AudioParams, inputSel), kCode, kInputs).only_in(kInWhole),
    field("enable", FieldForm::i32, offsetof(AudioParams, enable)),
    field("samplerate", FieldForm::u32, offsetof(AudioParams, samplerate)),
    field("bitwidth", FieldForm::u32, offsetof(AudioParams, bitwidth)),
    word_field("soundMode", offsetof(AudioParams, soundMode), kCode, kSoundModes),
    word_field("encMode", offsetof(AudioParams, encMode), kCode, kCodecs).written_by(write_codec),
    field("bitrate", FieldForm::u32, offsetof(AudioParams, bitrate)).only_in(kRead),
    field("bitrate", FieldForm::u32, offsetof(AudioParams, bitrate))
        .only_in(kInAfter)
        .read_only()
        .shown_when(compressed),
    aside<0>("volume", FieldForm::u16, offsetof(AudioParams, volume)),
    aside<1>("hdmiAudEn", FieldForm::u8, offsetof(AudioParams, hdmiAudEn)),
    aside<2>("ndiAudEn", FieldForm::u8, offsetof(AudioParams, ndiAudEn)),
    word_field("inputSel", offsetof(AudioParams, soundMode), kCode, kInputsBySoundMode)
        .only_in(kInKeyed)
        .read_only(),
});

constexpr SettingsBlock kBlock{kFields, offsetof(SysInfo, audio), sizeof(AudioParams), SysCmd::audio};
static_assert(settings_block_ok(kBlock));

}  // namespace

int json_audio_get_ctrl(cJSON* member, cJSON* reply) {
    return fields_read(kFields, block_stored(kBlock), member, reply);
}

int json_audio_set_ctrl(cJSON* member, cJSON* reply) {
    if (member == nullptr) return -1;
    if (block_stored(kBlock) == nullptr) {
        json_answer_false(reply, member->string);
        return -1;
    }
    AsideValues aside{-1, -1, -1};
    FieldWrite ctx{nullptr, &aside, reply};
    int result = block_write(kBlock, member, ctx, {.all_or_nothing = false, .only_changed = true});
    for (size_t i = 0; i < kAside.size(); ++i) {
        if (aside[i] == -1) continue;
        if (sys_send_number(kAside[i].command, static_cast<uint32_t>(aside[i])) != 0) result = -1;
    }
    if (result != 0) {
        json_answer_false(reply, member->string);
        return -1;
    }
    return block_answer(kFields, block_stored(kBlock), member->string, reply, kInAfter);
}

void json_audio_describe(KeyList& out) { fields_describe(out, "audio", "", kFields); }
