// The "gb28181" and "FreeD" sections of the JSON control API: settings of
// services that other processes of the camera run.
#pragma once

struct cJSON;

int json_gb28181_get_ctrl(cJSON* member, cJSON* reply);
int json_gb28181_set_ctrl(cJSON* member, cJSON* reply);
int json_freed_get_ctrl(cJSON* member, cJSON* reply);
int json_freed_set_ctrl(cJSON* member, cJSON* reply);
