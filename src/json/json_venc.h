// The "venc" section of the JSON control API and its read-only companion
// "VencAbility".
#pragma once

#include <cstddef>
#include <cstdint>

struct cJSON;

int json_venc_get_ctrl(cJSON* member, cJSON* reply);
int json_venc_set_ctrl(cJSON* member, cJSON* reply);
int json_venc_ability_get_ctrl(cJSON* member, cJSON* reply);

// The name of a picture format ("1920X1080P@29.97Hz"), or "Unknow Format".
void json_venc_format_name(uint32_t col, uint32_t line, uint32_t rate, uint32_t frac, char* out, size_t size);
