// The "audio" section of the JSON control API.
#pragma once

struct cJSON;

int json_audio_get_ctrl(cJSON* member, cJSON* reply);
int json_audio_set_ctrl(cJSON* member, cJSON* reply);
