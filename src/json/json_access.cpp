// The access key of the JSON control API and the login check: the key is
// derived from the credentials, the address and the MAC, and proves a
// request that changes the device.
#include "json/json_access.h"

#include <array>
#include <cstring>
#include <string>
#include <string_view>

#include "ipc/sys_port.h"
#include "net/net_config.h"
#include "support/log.h"
#include "support/words.h"

namespace {

// ---- access key -----------------------------------------------------------------

// k0 in the lowest byte; the key lives for the whole process. Until the
// settings record has been read once there is no key, and no number matches.
uint32_t g_access_key = 0;
bool g_access_key_known = false;

constexpr size_t kLoginMax = 255;

}  // namespace

uint32_t json_access_key_compute(const char* user, const char* password, const char* dotted,
                                 const unsigned char mac[6]) {
    std::array<uint8_t, 4> k{};
    size_t i = 0;
    for (const char* part : {user, password, dotted}) {
        if (part == nullptr) continue;
        for (const char* c = part; *c != '\0'; ++c, ++i)
            k[i % 4] = static_cast<uint8_t>(k[i % 4] + static_cast<uint8_t>(*c));
    }
    if (mac != nullptr) {
        k[0] = static_cast<uint8_t>(k[0] + mac[0] + mac[4]);
        k[1] = static_cast<uint8_t>(k[1] + mac[1] + mac[5]);
        k[2] = static_cast<uint8_t>(k[2] + mac[2]);
        k[3] = static_cast<uint8_t>(k[3] + mac[3]);
    }
    return k[0] | (uint32_t{k[1]} << 8) | (uint32_t{k[2]} << 16) | (uint32_t{k[3]} << 24);
}

void json_access_key_update() {
    const SysInfo* info = sys_info();
    if (info == nullptr) {
        LOG_ERR("GetSysInfo failed!\n");
        return;
    }
    const std::string user(field_text(info->user));
    const std::string password(field_text(info->password));
    const std::string dotted = info->dhcp != 0 ? net_eth0_dotted() : net_dotted(info->ip);
    g_access_key = json_access_key_compute(user.c_str(), password.c_str(), dotted.c_str(), info->mac);
    g_access_key_known = true;
}

int json_access_key_match(int32_t key) {
    return g_access_key_known && key == static_cast<int32_t>(g_access_key) ? 1 : 0;
}

uint32_t json_access_key() { return g_access_key; }

int json_login_split(const char* login, std::string_view* user, std::string_view* password) {
    if (login == nullptr) return -1;
    const size_t length = strnlen(login, kLoginMax + 1);
    if (length > kLoginMax) return -1;
    const std::string_view text(login, length);
    const size_t colon = text.find(':');
    if (colon == std::string_view::npos) return -1;
    if (user != nullptr) *user = text.substr(0, colon);
    if (password != nullptr) *password = text.substr(colon + 1);
    return 0;
}

int json_login_check(const char* login) {
    json_access_key_update();
    std::string_view user;
    std::string_view password;
    if (json_login_split(login, &user, &password) != 0) return -1;
    const SysInfo* info = sys_info();
    if (info == nullptr) return -1;
    return user == field_text(info->user) && password == field_text(info->password) ? 0 : -1;
}
