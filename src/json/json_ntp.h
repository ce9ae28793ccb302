// The "NTP" section of the JSON control API.
#pragma once

struct cJSON;

int json_ntp_get_ctrl(cJSON* member, cJSON* reply);
int json_ntp_set_ctrl(cJSON* member, cJSON* reply);
