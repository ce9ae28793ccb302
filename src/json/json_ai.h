// The "ai" (auto-tracking) section of the JSON control API.
#pragma once

struct cJSON;

int json_ai_get_ctrl(cJSON* member, cJSON* reply);
int json_ai_set_ctrl(cJSON* member, cJSON* reply);
