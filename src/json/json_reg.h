// The "reg" (32-bit registers by physical address) and "file ctrl" (bytes
// written into a file of the device) sections of the JSON control API.
#pragma once

struct cJSON;

int json_reg_get_ctrl(cJSON* member, cJSON* reply);
int json_reg_set_ctrl(cJSON* member, cJSON* reply);
// Below a platform root of a test or fuzzing run, "file ctrl" stays inside
// it (paths with ".." refused).
int json_file_ctrl_set_ctrl(cJSON* member, cJSON* reply);
