#include "json/json_ai.h"
int json_ai_get_ctrl(cJSON*, cJSON*) { return -1; }
int json_ai_set_ctrl(cJSON*, cJSON*) { return -1; }
