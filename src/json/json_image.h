// The "image" section of the JSON control API.
#pragma once

struct cJSON;

int json_image_get_ctrl(cJSON* member, cJSON* reply);
int json_image_set_ctrl(cJSON* member, cJSON* reply);
