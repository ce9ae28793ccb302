#include "cgi/reply.h"

#include <cstdio>

#include <cJSON.h>

#include "cgi/output.h"

void reply_header(std::string_view block) { out_write(block.data(), block.size()); }

// The message goes in as it is, without quotes: clients read it that way.
void reply_error(const char* message) {
    reply_header(kHdrJson);
    out_printf("{\"status\":-1,\"message\":%s}", message ? message : "");
}

int reply_ok() {
    reply_header(kHdrJson);
    out_printf("{\"status\":1}");
    return 0;
}

int reply_data(const char* json_text) {
    reply_header(kHdrJson);
    out_printf("{\"status\":1,\"data\":%s}", json_text ? json_text : "null");
    return 0;
}

int hex_digit_value(int c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// Escapes decode only to bytes 1..126. An invalid high digit counts -16 and
// an invalid low digit -1, so "%2z" still gives 0x1F while "%z2" never
// decodes; whatever does not decode leaves its '%' in place and the two
// characters after it are copied as ordinary text. '+' is not a space here.
void url_decode(const char* source, char* destination) {
    const char* s = source;
    char* d = destination;
    while (*s != '\0') {
        if (*s == '%' && s[1] != '\0' && s[2] != '\0') {
            int high = hex_digit_value(static_cast<unsigned char>(s[1]));
            int low = hex_digit_value(static_cast<unsigned char>(s[2]));
            int code = (high < 0 ? -16 : high * 16) + low;
            if (code >= 1 && code <= 126) {
                *d++ = static_cast<char>(code);
                s += 3;
                continue;
            }
        }
        *d++ = *s++;
    }
    *d = '\0';
}

void url_decode_checked(const char* source, char* destination) {
    if (source == nullptr || destination == nullptr) return;
    url_decode(source, destination);
}

int json_get_int(const cJSON* object, const char* key) {
    const cJSON* item = cJSON_GetObjectItemCaseSensitive(object, key);
    return cJSON_IsNumber(item) ? item->valueint : -1;
}

const char* json_get_string(const cJSON* object, const char* key) {
    const cJSON* item = cJSON_GetObjectItemCaseSensitive(object, key);
    return cJSON_IsString(item) ? item->valuestring : nullptr;
}

std::string json_escaped(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (const char c : text) {
        const auto u = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (u < 0x20) {
            char code[8];
            std::snprintf(code, sizeof code, "\\u%04x", u);
            out += code;
        } else {
            out += c;
        }
    }
    return out;
}
