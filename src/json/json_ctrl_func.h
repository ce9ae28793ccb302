// JSON control API: the two dispatchers, the access key and the shape every
// section handler shares.
#pragma once

#include <cstdint>

struct cJSON;

// A section handler gets the request member (its key is the section name)
// and the reply object; it adds its answer and returns 0 or -1.
using json_section_fn = int (*)(cJSON* member, cJSON* reply);

int json_get_ctrl(const char* text);
int json_set_ctrl(const char* text);
int json_login_check(const char* login);
void json_access_key_update();
int json_access_key_match(int32_t key);
uint32_t json_access_key();
