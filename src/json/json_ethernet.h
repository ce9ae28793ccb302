// The "ethernet" section of the JSON control API.
#pragma once

struct cJSON;

int json_ethernet_get_ctrl(cJSON* member, cJSON* reply);
int json_ethernet_set_ctrl(cJSON* member, cJSON* reply);
