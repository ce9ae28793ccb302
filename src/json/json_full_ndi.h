// The "full ndi" section of the JSON control API and the encoder board's
// configuration file behind it.
#pragma once

#include <cstddef>

struct cJSON;

int json_full_ndi_get_ctrl(cJSON* member, cJSON* reply);
int json_full_ndi_set_ctrl(cJSON* member, cJSON* reply);

// The board's configuration file read into `buffer` (terminated) or written
// whole; the board's export is mounted for the call when the file is not
// already reachable. 0, or -1 (or the failed address lookup's result).
int fullndi_config_load(char* buffer, size_t size);
int fullndi_config_save(const char* text, size_t length);
