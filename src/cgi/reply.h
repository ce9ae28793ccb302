// Reply envelopes, header blocks and query decoding shared by every route.
#pragma once

#include <string>
#include <string_view>

struct cJSON;

inline constexpr std::string_view kHdrJson = "Content-type: application/json\r\nStatus: 200 OK\r\n\r\n";
inline constexpr std::string_view kHdrText = "Content-type: text/plain\r\nStatus: 200 OK\r\n\r\n";
inline constexpr std::string_view kHdrNoContent = "Status: 204 No Content\r\n\r\n";
inline constexpr std::string_view kHdrJpeg = "Content-type: image/jpeg\r\nStatus: 200 OK\r\n\r\n";

void reply_header(std::string_view block);
void reply_error(const char* message);
int reply_ok();
int reply_data(const char* json_text);

int hex_digit_value(int c);
void url_decode(const char* source, char* destination);
void url_decode_checked(const char* source, char* destination);  // null-safe

int json_get_int(const cJSON* object, const char* key);
const char* json_get_string(const cJSON* object, const char* key);

// `text` made fit to stand between the quotes of a JSON string: quotes,
// backslashes and control characters escaped, every other byte as it is.
std::string json_escaped(std::string_view text);
