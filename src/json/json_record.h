// The "record" section of the JSON control API.
#pragma once

struct cJSON;

int json_record_get_ctrl(cJSON* member, cJSON* reply);
int json_record_set_ctrl(cJSON* member, cJSON* reply);
