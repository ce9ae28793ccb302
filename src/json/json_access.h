// The access key of the JSON control API and the login check.
#pragma once

#include <cstdint>
#include <string_view>

int json_login_check(const char* login);
void json_access_key_update();
int json_access_key_match(int32_t key);
uint32_t json_access_key();

// The key from its parts: user name, password and dotted address bytes summed
// into four bytes by position, then the MAC bytes added. Pure; for tests.
uint32_t json_access_key_compute(const char* user, const char* password, const char* dotted,
                                 const unsigned char mac[6]);
// Splits "user:password" at the first colon (the password may hold more
// colons). -1 for a null text, a text over 255 characters or no colon.
int json_login_split(const char* login, std::string_view* user, std::string_view* password);
