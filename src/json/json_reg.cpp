// Service tools of the JSON control API: "reg" reads and writes single
// registers through the physical-memory device, "file ctrl" writes bytes
// into a file.
#include "json/json_reg.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <string>

#include "platform/platform.h"
#include "json/json_section.h"
#include "support/memmap.h"

namespace {

// A register address or value: hexadecimal after "0x" (any case), decimal
// otherwise. False for a text that is neither.
bool parse_number(const char* text, uint32_t& out) {
    if (text == nullptr || *text == '\0') return false;
    const bool hex = text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    const char* digits = hex ? text + 2 : text;
    if (*digits == '\0') return false;
    char* end = nullptr;
    const unsigned long long v = std::strtoull(digits, &end, hex ? 16 : 10);
    if (*end != '\0' || v > UINT32_MAX || *digits == '-' || *digits == '+') return false;
    out = static_cast<uint32_t>(v);
    return true;
}

// The windows of the physical address space the section may reach, set
// when the product is built (whole space unless the build narrows it).
struct Window {
    uint32_t first;
    uint32_t last;  // included
};
#ifndef WEB_REG_WINDOWS
#define WEB_REG_WINDOWS {0x00000000u, 0xFFFFFFFFu},
#endif
constexpr Window kWindows[] = {WEB_REG_WINDOWS};
static_assert(std::size(kWindows) > 0, "the register section needs at least one window");

// A register is one aligned 32-bit word inside a window: an unaligned word,
// or one that runs past the end of the space or of its window, would fault
// the bus on the device and is never handed to it.
bool reachable(uint32_t address) {
    if (address % 4 != 0 || address > UINT32_MAX - 3) return false;
    for (const Window& w : kWindows)
        if (address >= w.first && w.last >= 3 && address <= w.last - 3) return true;
    return false;
}

// The register a member's key names, when it parses and may be reached.
bool register_of(const char* key, uint32_t& address) {
    return parse_number(key, address) && reachable(address);
}

void answer_register(cJSON* answer, const char* key, uint32_t address) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%x", static_cast<uint32_t>(ambmd(address)));
    json_answer(answer, key, cJSON_CreateString(text));
}

// The path to open: on the device any path; below a test or fuzzing run's
// root, "" when the path would leave it.
std::string file_path(const char* path) {
    const char* root = platform().root;
    if (root == nullptr || *root == '\0') return path;
    const std::string p = path;
    if (p.find("..") != std::string::npos) return {};
    return std::string(root) + "/" + p;
}

}  // namespace

// Every member's key is a register; its value does not matter. An address
// that does not parse or may not be reached is answered false without
// failing the section.
int json_reg_get_ctrl(cJSON* member, cJSON* reply) {
    return json_section_walk(member, reply, [](cJSON* item, cJSON* answer, int&) {
        uint32_t address = 0;
        if (register_of(item->string, address))
            answer_register(answer, item->string, address);
        else
            json_answer_false(answer, item->string);
    });
}

// Every member's key is a register and its string value the new contents;
// the register is written, read back and answered.
int json_reg_set_ctrl(cJSON* member, cJSON* reply) {
    return json_section_walk(member, reply, [](cJSON* item, cJSON* answer, int& result) {
        uint32_t address = 0;
        uint32_t value = 0;
        if (!cJSON_IsString(item) || !register_of(item->string, address) ||
            !parse_number(item->valuestring, value) || ambmm(address, value) != 0) {
            json_answer_false(answer, item->string);
            result = -1;
            return;
        }
        answer_register(answer, item->string, address);
    });
}

// "path" is required; "rewrite" true removes the file first; the bytes of
// "data" go in at "index" (or 0) without truncating, up to the first element
// that is not a number. Answered true whenever there was a path, even when
// the file could not be opened.
int json_file_ctrl_set_ctrl(cJSON* member, cJSON* reply) {
    if (member == nullptr) return -1;
    const cJSON* path = cJSON_GetObjectItem(member, "path");
    if (!cJSON_IsString(path) || path->valuestring == nullptr) {
        json_answer_false(reply, member->string);
        return -1;
    }
    const std::string file = file_path(path->valuestring);
    if (!file.empty() && cJSON_IsTrue(cJSON_GetObjectItem(member, "rewrite"))) unlink(file.c_str());
    const int fd = file.empty() ? -1 : open(file.c_str(), O_RDWR | O_CREAT, 0755);
    if (fd >= 0) {
        const cJSON* index = cJSON_GetObjectItem(member, "index");
        if (cJSON_IsNumber(index) && index->valuedouble >= 0)
            lseek(fd, static_cast<off_t>(index->valuedouble), SEEK_SET);
        const cJSON* data = cJSON_GetObjectItem(member, "data");
        for (const cJSON* b = cJSON_IsArray(data) ? data->child : nullptr; cJSON_IsNumber(b); b = b->next) {
            const auto byte = static_cast<uint8_t>(b->valueint);
            if (write(fd, &byte, 1) != 1) break;
        }
        close(fd);
    }
    json_answer_true(reply, member->string);
    return 0;
}
