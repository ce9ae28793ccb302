// The API description program: a host tool, not part of the responder. It
// asks every section for the keys its own tables hold, adds the one-line
// descriptions (which stay out of the responder's binary) and writes either
// the JSON document the settings pages read, or the reference in Markdown.
// Usage: api_describe json|markdown  (to standard output)
#include <cjson/cJSON.h>

#include <cctype>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "camera/visca_ops.h"
#include "describe/descriptions.h"
#include "json/json_describe.h"

namespace {

constexpr std::string_view kTypeNames[] = {"number", "text", "word", "ipv4", "mac", "object", "true", "any"};

std::string_view type_name(KeyType t) { return kTypeNames[static_cast<size_t>(t)]; }

// The values a camera row's encoding can carry, for an image number that has
// a setter row named after its key ("image_<key>_set", lower case, blanks as
// underscores). Here and not in the section, so that the rows' names never
// reach the responder.
void range_from_row(KeyInfo& k) {
    std::string name = "image_";
    for (char c : k.key)
        name += c == ' ' ? '_' : static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    name += "_set";
    for (const visca::Line& l : visca::kLines) {
        if (l.name != name) continue;
        switch (l.enc) {
        case visca::Enc::Nibble: k.max = 0x0F; break;
        case visca::Enc::Mask7F: k.max = 0x7F; break;
        case visca::Enc::Flag: k.max = 1; break;
        case visca::Enc::Byte:
        case visca::Enc::Nib2: k.max = 0xFF; break;
        case visca::Enc::Nib4: k.max = 0xFFFF; break;
        case visca::Enc::Index: k.max = static_cast<long long>(l.codes.size()) - 1; break;
        default: break;
        }
    }
}

KeyList all_keys() {
    KeyList keys;
    using Describe = void (*)(KeyList&);
    for (Describe d : {json_image_get_describe, json_image_set_describe, json_system_describe,
                       json_block_sections_describe, json_audio_describe, json_record_describe,
                       json_ntp_describe, json_ethernet_describe, json_venc_describe,
                       json_stream_out_describe, json_full_ndi_describe, json_ai_describe})
        d(keys);
    // A key named by a read table and a write table is one key of the API.
    KeyList merged;
    for (const KeyInfo& k : keys) {
        KeyInfo* same = nullptr;
        for (KeyInfo& m : merged)
            if (m.section == k.section && m.path == k.path && m.key == k.key) same = &m;
        if (same == nullptr) {
            merged.push_back(k);
            continue;
        }
        if (k.write && !same->write) {  // the writer's form is what a form sends
            const bool read = same->read;
            const Words words = same->words;
            *same = k;
            same->read = read;
            if (same->words.empty()) same->words = words;
            if (same->type == KeyType::text && !words.empty()) same->type = KeyType::word;
        }
        same->read = same->read || k.read;
        same->write = same->write || k.write;
    }
    for (KeyInfo& k : merged)
        if (k.section == "image" && k.type == KeyType::number && k.write && k.max <= k.min) range_from_row(k);
    return merged;
}

std::string text_of(std::string_view s) { return std::string(s); }

cJSON* key_json(const KeyInfo& k) {
    cJSON* o = cJSON_CreateObject();
    cJSON_AddStringToObject(o, "key", text_of(k.key).c_str());
    if (!k.path.empty()) cJSON_AddStringToObject(o, "path", text_of(k.path).c_str());
    cJSON_AddBoolToObject(o, "read", k.read);
    cJSON_AddBoolToObject(o, "write", k.write);
    cJSON_AddStringToObject(o, "type", text_of(type_name(k.type)).c_str());
    if (!k.words.empty()) {
        cJSON* words = cJSON_AddArrayToObject(o, "words");
        for (const WordCode& w : k.words)
            cJSON_AddItemToArray(words, cJSON_CreateString(text_of(w.word).c_str()));
    }
    if (k.max > k.min) {
        cJSON_AddNumberToObject(o, "min", static_cast<double>(k.min));
        cJSON_AddNumberToObject(o, "max", static_cast<double>(k.max));
    }
    if (k.length != 0) cJSON_AddNumberToObject(o, "length", k.length);
    if (k.count != 0) cJSON_AddNumberToObject(o, "count", k.count);
    cJSON_AddStringToObject(o, "text", text_of(key_description(k.section, k.key)).c_str());
    return o;
}

int write_json() {
    const KeyList keys = all_keys();
    std::unique_ptr<cJSON, void (*)(cJSON*)> doc(cJSON_CreateObject(), cJSON_Delete);
    cJSON* sections = cJSON_AddArrayToObject(doc.get(), "sections");
    for (const SectionInfo& s : json_sections_describe()) {
        cJSON* o = cJSON_CreateObject();
        cJSON_AddStringToObject(o, "name", text_of(s.name).c_str());
        cJSON_AddBoolToObject(o, "get", s.get);
        cJSON_AddBoolToObject(o, "set", s.set);
        cJSON_AddBoolToObject(o, "whole", s.get_true);
        cJSON_AddStringToObject(o, "text", text_of(section_description(s.name)).c_str());
        cJSON* list = cJSON_AddArrayToObject(o, "keys");
        for (const KeyInfo& k : keys)
            if (k.section == s.name) cJSON_AddItemToArray(list, key_json(k));
        cJSON_AddItemToArray(sections, o);
    }
    std::unique_ptr<char, void (*)(void*)> text(cJSON_PrintUnformatted(doc.get()), cJSON_free);
    std::printf("%s\n", text.get());
    return 0;
}

std::string values_of(const KeyInfo& k) {
    std::string v;
    for (const WordCode& w : k.words) v += (v.empty() ? "\"" : ", \"") + std::string(w.word) + "\"";
    if (k.max > k.min) v += std::to_string(k.min) + " to " + std::to_string(k.max);
    if (k.length != 0) v += "up to " + std::to_string(k.length - 1) + " bytes";
    if (k.count != 0)
        v += (v.empty() ? "" : "; ") + std::string("indexed 0 to ") + std::to_string(k.count - 1);
    return v;
}

int write_markdown() {
    const KeyList keys = all_keys();
    std::printf(
        "# The JSON API, key by key\n\n"
        "Generated by `api_describe markdown` from the responder's own tables; do not edit.\n"
        "Requests are `/cgi-bin/web.fcgi?func=get{...}` and `func=set{...}` (see the README for the\n"
        "envelope, the key and the login). A section that takes `true` answers all its keys; every\n"
        "section takes an object naming keys (`true` to read one, a value to write one). The same\n"
        "document as JSON is installed with the pages as `api.json`.\n");
    for (const SectionInfo& s : json_sections_describe()) {
        std::printf("\n## \"%s\"\n\n%s\n\n", text_of(s.name).c_str(),
                    text_of(section_description(s.name)).c_str());
        std::printf("GET: %s. SET: %s.\n\n",
                    s.get ? (s.get_true ? "`true` or an object" : "an object") : "no",
                    s.set ? "an object" : "no");
        bool any = false;
        for (const KeyInfo& k : keys) {
            if (k.section != s.name) continue;
            if (!any)
                std::printf(
                    "| Key | Read | Write | Type | Values | Description |\n|---|---|---|---|---|---|\n");
            any = true;
            const std::string key =
                k.path.empty() ? text_of(k.key) : text_of(k.path) + " / " + text_of(k.key);
            std::printf("| \"%s\" | %s | %s | %s | %s | %s |\n", key.c_str(), k.read ? "yes" : "",
                        k.write ? "yes" : "", text_of(type_name(k.type)).c_str(), values_of(k).c_str(),
                        text_of(key_description(k.section, k.key)).c_str());
        }
    }
    return 0;
}

}  // namespace

// A text for a section or key that no table has any more is an error.
int stale_texts() {
    const KeyList keys = all_keys();
    const std::vector<SectionInfo> sections = json_sections_describe();
    int stale = 0;
    for (const Description& d : kSectionTexts) {
        bool found = false;
        for (const SectionInfo& s : sections) found = found || s.name == d.section;
        if (!found)
            std::fprintf(stderr, "api_describe: no section \"%.*s\"\n", int(d.section.size()),
                         d.section.data());
        stale += found ? 0 : 1;
    }
    for (const Description& d : kKeyTexts) {
        bool found = false;
        for (const KeyInfo& k : keys) found = found || (k.section == d.section && k.key == d.key);
        if (!found)
            std::fprintf(stderr, "api_describe: no key \"%.*s\" in \"%.*s\"\n", int(d.key.size()),
                         d.key.data(), int(d.section.size()), d.section.data());
        stale += found ? 0 : 1;
    }
    return stale;
}

int main(int argc, char** argv) {
    if (stale_texts() != 0) return 1;
    if (argc == 2 && std::strcmp(argv[1], "json") == 0) return write_json();
    if (argc == 2 && std::strcmp(argv[1], "markdown") == 0) return write_markdown();
    std::fprintf(stderr, "usage: %s json|markdown\n", argv[0]);
    return 2;
}
