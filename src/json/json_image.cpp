#include "json/json_image.h"
int json_image_get_ctrl(cJSON*, cJSON*) { return -1; }
int json_image_set_ctrl(cJSON*, cJSON*) { return -1; }
