// What the API description says of each key, built by every section from
// its own table. Only the description program calls these functions: the
// responder never does, and its link leaves them out.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "json/json_fields.h"
#include "support/words.h"

enum class KeyType : uint8_t {
    number,  // a JSON number (an integer)
    text,    // a string
    word,    // a string out of `words`
    ipv4,    // dotted IPv4 text
    mac,     // "xx:xx:xx:xx:xx:xx"
    object,  // an object of its own members (a special flow)
    yes,     // only `true` is taken: an action
    any,     // taken as it comes
};

struct KeyInfo {
    std::string_view section{};
    std::string_view path{};  // the object inside the section holding the key; empty at the top
    std::string_view key{};
    bool read = true;
    bool write = true;
    KeyType type = KeyType::number;
    Words words{};
    long long min = 0, max = 0;  // the range, when max > min
    unsigned length = 0;         // a text's room in bytes, its zero included
    unsigned count = 0;          // an indexed key: key0 .. key(count-1)
};
using KeyList = std::vector<KeyInfo>;

// A section as the dispatcher takes it: the forms its value may have.
struct SectionInfo {
    std::string_view name{};
    bool get = false, set = false;
    bool get_true = false;  // GET takes `true` for the whole section (else an object naming keys)
};
std::vector<SectionInfo> json_sections_describe();

// The rows of a field table, each as its form says.
void fields_describe(KeyList& out, std::string_view section, std::string_view path, Fields fields);

void json_image_get_describe(KeyList& out);  // the read table
void json_image_set_describe(KeyList& out);  // the write table
void json_system_describe(KeyList& out);
void json_block_sections_describe(KeyList& out);  // gb28181, FreeD
void json_audio_describe(KeyList& out);
void json_record_describe(KeyList& out);
void json_ntp_describe(KeyList& out);
void json_ethernet_describe(KeyList& out);
void json_venc_describe(KeyList& out);
void json_stream_out_describe(KeyList& out);  // rtmp, rtp multicast
void json_full_ndi_describe(KeyList& out);
void json_ai_describe(KeyList& out);
