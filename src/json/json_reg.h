// The "reg" (32-bit registers by physical address) and "file ctrl" (bytes
// written into a file of the device) sections of the JSON control API.
#pragma once

struct cJSON;

int json_reg_get_ctrl(cJSON* member, cJSON* reply);
int json_reg_set_ctrl(cJSON* member, cJSON* reply);
int json_file_ctrl_set_ctrl(cJSON* member, cJSON* reply);

// Confines "file ctrl" to `dir` (paths with ".." refused); null or "" is the
// device's own root again. For tests and fuzzing runs.
void json_file_ctrl_set_root(const char* dir);
