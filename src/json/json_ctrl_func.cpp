#include "json/json_ctrl_func.h"
int json_get_ctrl(const char*) { return -1; }
int json_set_ctrl(const char*) { return -1; }
int json_login_check(const char*) { return -1; }
void json_access_key_update() {}
int json_access_key_match(int32_t) { return 0; }
uint32_t json_access_key() { return 0; }
