// The "ethernet" section: the wired interface's addressing, its MAC address
// and the service ports. A write merges the request onto the record, checks
// the merged values, and sends a command for each value that changed, in a
// fixed order; the first failing step stops the rest.
#include "json/json_ethernet.h"
#include "json/json_describe.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <array>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

#include "camera/image_ctrl.h"
#include "ipc/sys_port.h"
#include "json/json_access.h"
#include "json/json_fields.h"
#include "json/json_section.h"
#include "net/net_config.h"
#include "support/log.h"
#include "support/owners.h"

namespace {

constexpr const char* kIf = "eth0";
constexpr size_t kMacTextMax = 20;
constexpr int kMacPayload = sys_cmd_width(SysCmd::mac);  // "xx:xx:xx:xx:xx:xx" and its zero

// ---- reading ------------------------------------------------------------------------

cJSON* dotted(uint32_t addr) { return cJSON_CreateString(net_dotted(addr).c_str()); }

// The addressing is read live from the interface, not from the record.
cJSON* live_ip(const Field&, const uint8_t*, int) { return dotted(net_get_ifaddr(kIf)); }
cJSON* live_netmask(const Field&, const uint8_t*, int) { return dotted(net_get_netmask(kIf)); }
cJSON* live_gateway(const Field&, const uint8_t*, int) { return dotted(net_get_gateway()); }
cJSON* live_dns(const Field&, const uint8_t*, int) { return dotted(net_get_dns1()); }

// The MAC text a request gives is kept aside: it is compared and sent as text.
struct Pending {
    std::string mac;
};

bool take_mac(const Field&, FieldWrite& ctx, const cJSON* item, int) {
    if (!cJSON_IsString(item) || item->valuestring == nullptr || std::strlen(item->valuestring) > kMacTextMax)
        return false;
    static_cast<Pending*>(ctx.extra)->mac = item->valuestring;
    return true;
}

constexpr Field address(std::string_view key, uint16_t offset, Field::Reader live) {
    return field(key, FieldForm::ipv4, offset).read_by(live);
}
constexpr Field port(std::string_view key, uint16_t offset) { return field(key, FieldForm::u16, offset); }

constexpr auto kFields = std::to_array<Field>({
    field("dhcp", FieldForm::u8, offsetof(SysInfo, dhcp)),
    address("ip", offsetof(SysInfo, ip), live_ip),
    address("netmask", offsetof(SysInfo, netmask), live_netmask),
    address("gateway", offsetof(SysInfo, gateway), live_gateway),
    address("dns", offsetof(SysInfo, dns), live_dns),
    field("mac", FieldForm::mac, offsetof(SysInfo, mac)).written_by(take_mac),
    port("httpPort", offsetof(SysInfo, httpPort)),
    port("webPort", offsetof(SysInfo, webPort)),
    port("rtspPort", offsetof(SysInfo, rtspPort)),
    port("rtsp encrypt", offsetof(SysInfo, rtspEncrypt)),
    port("rtmpPort", offsetof(SysInfo, rtmpPort)),
    port("viscaPort", offsetof(SysInfo, viscaPort)),
    port("onvifPort", offsetof(SysInfo, onvifPort)),
    port("controlHubPort", offsetof(SysInfo, controlHubPort)),
    field("ssdp", FieldForm::u8, offsetof(SysInfo, ssdp)),
});

// ---- the commands, in the order they go out ----------------------------------------------

// Which step of a write sends a command.
enum class Step : uint8_t { dhcp, address, port };

// A command that carries a setting's new value, as little-endian bytes (as
// many as the command's width); the four server ports must be free first,
// and the name server goes into the resolver's file first.
struct Command {
    std::string_view key;
    SysCmd command;
    Step step;
    bool must_be_free = false;
    bool resolver = false;
};
constexpr std::array<Command, 14> kCommands{{
    {"dhcp", SysCmd::dhcp, Step::dhcp},
    {"ip", SysCmd::ip, Step::address},
    {"netmask", SysCmd::netmask, Step::address},
    {"gateway", SysCmd::gateway, Step::address},
    {"dns", SysCmd::dns, Step::address, false, true},
    {"httpPort", SysCmd::http_port, Step::port, true},
    {"webPort", SysCmd::web_port, Step::port, true},
    {"rtspPort", SysCmd::rtsp_port, Step::port, true},
    {"rtsp encrypt", SysCmd::rtsp_encrypt, Step::port},
    {"rtmpPort", SysCmd::rtmp_port, Step::port, true},
    {"viscaPort", SysCmd::visca_port, Step::port},
    {"onvifPort", SysCmd::onvif_port, Step::port},
    {"controlHubPort", SysCmd::control_hub_port, Step::port},
    {"ssdp", SysCmd::ssdp, Step::port},
}};
// Every command names a row of the table.
constexpr bool commands_name_rows() {
    for (const Command& c : kCommands)
        if (!names_a_row(kFields, c.key)) return false;
    return true;
}
static_assert(commands_name_rows(), "a command names no row of the ethernet table");
static_assert(fields_fit(kFields, sizeof(SysInfo)));

// Sends, in table order, the commands of `step` whose value differs from
// the record; false at the first that fails.
bool send_changed(Step step, const SysInfo& w, const SysInfo& now) {
    for (const Command& c : kCommands) {
        if (c.step != step) continue;
        const Field& row = *find_row(Fields(kFields), c.key);
        const auto to = static_cast<uint32_t>(field_number(row, reinterpret_cast<const uint8_t*>(&w)));
        if (to == field_number(row, reinterpret_cast<const uint8_t*>(&now))) continue;
        if (c.must_be_free && net_check_port(static_cast<unsigned short>(to)) != 0) return false;
        if (c.resolver && net_set_dns1(net_dotted(to).c_str()) != 0) return false;
        if (sys_send_number(c.command, to) != 0) return false;
    }
    return true;
}

// The four server ports differ from each other, and only the HTTP port may be 80.
bool ports_consistent(const SysInfo& w) {
    const std::array<uint16_t, 4> ports{w.httpPort, w.webPort, w.rtspPort, w.rtmpPort};
    for (size_t i = 0; i < ports.size(); ++i) {
        if (i > 0 && ports[i] == 80) return false;
        for (size_t j = i + 1; j < ports.size(); ++j)
            if (ports[i] == ports[j]) return false;
    }
    return true;
}

// The host part of an address (its last `octets` octets) is neither all
// zeros nor all ones.
bool host_part_usable(uint32_t addr, int octets) {
    const auto* b = reinterpret_cast<const uint8_t*>(&addr);
    bool zeros = true, ones = true;
    for (int i = 4 - octets; i < 4; ++i) {
        zeros = zeros && b[i] == 0;
        ones = ones && b[i] == 255;
    }
    return !zeros && !ones;
}

// The address and the gateway fit the address's class.
bool class_consistent(uint32_t ip, uint32_t gateway) {
    const uint8_t first = reinterpret_cast<const uint8_t*>(&ip)[0];
    int octets = 0;
    if (first >= 1 && first <= 126) {
        LOG_DBG("IP IS A class\n");
        octets = 3;
    } else if (first >= 128 && first <= 191) {
        LOG_DBG("IP IS B class\n");
        octets = 2;
    } else if (first >= 192 && first <= 223) {
        LOG_DBG("IP IS C class\n");
        octets = 1;
    } else {
        return true;
    }
    return host_part_usable(ip, octets) && host_part_usable(gateway, octets);
}

std::string mac_text(const uint8_t* mac) {
    char text[kMacPayload];
    std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4],
                  mac[5]);
    return text;
}

// Steps 3 to 7 of a write: false at the first step that fails.
bool apply(const SysInfo& w, const SysInfo& now, const Pending& pending) {
    if (!send_changed(Step::dhcp, w, now)) return false;
    if (!ports_consistent(w)) return false;
    if (w.dhcp == 0) {
        SysState* state = sys_state(1);
        if (w.ip != INADDR_ANY && w.ip != INADDR_BROADCAST && state != nullptr &&
            w.ip != state->lastAnnouncedAddr && image_announce_addr(w.ip) == 0)
            state->lastAnnouncedAddr = w.ip;
        if (!class_consistent(w.ip, w.gateway)) return false;
        if (!send_changed(Step::address, w, now)) return false;
    }
    if (!pending.mac.empty() && pending.mac != mac_text(now.mac)) {
        std::array<char, kMacPayload> text{};
        std::memcpy(text.data(), pending.mac.data(), std::min(pending.mac.size(), text.size() - 1));
        if (sys_send_block<SysCmd::mac>(text) != 0) return false;
    }
    return send_changed(Step::port, w, now);
}

// Each member of the request in its order: a taken one with its value as
// the record now holds it, a refused one false.
cJSON* echo(const cJSON* taken, const SysInfo& info) {
    cJSON* out = cJSON_CreateObject();
    for (const cJSON* m = taken->child; m != nullptr && out != nullptr; m = m->next) {
        const Field* row = find_row(std::span<const Field>(kFields), m->string);
        if (!cJSON_IsTrue(m) || row == nullptr) {
            json_answer_false(out, m->string);
            continue;
        }
        Field stored = *row;
        stored.read = nullptr;  // the record, not the interface
        json_answer(out, m->string, field_value(stored, reinterpret_cast<const uint8_t*>(&info)));
    }
    return out;
}

int write_eth0(cJSON* item, cJSON* answer) {
    const SysInfo* info = sys_info();
    JsonTree taken(info != nullptr ? cJSON_CreateObject() : nullptr);
    if (!taken) {
        json_answer_false(answer, item->string);
        return -1;
    }
    SysInfo work = *info;
    Pending pending;
    FieldWrite ctx{reinterpret_cast<uint8_t*>(&work), &pending, nullptr};
    fields_apply(kFields, ctx, item, taken.get());  // a refused member fails only itself
    if (!apply(work, *info, pending)) {
        json_answer_false(answer, item->string);
        return -1;
    }
    json_answer(answer, item->string, echo(taken.get(), *info));
    return 0;
}

// The one interface the section knows.
struct Interface {
    std::string_view name;
};
constexpr std::array<Interface, 1> kInterfaces{{{kIf}}};

}  // namespace

int json_ethernet_get_ctrl(cJSON* member, cJSON* reply) {
    const auto* info = reinterpret_cast<const uint8_t*>(sys_info());
    return json_rows_walk(std::span<const Interface>(kInterfaces), member, reply, false,
                          [info](const Interface&, cJSON* item, cJSON* answer) {
                              return fields_read(kFields, info, item, answer, {.non_true_fails = false}) == 0;
                          });
}

int json_ethernet_set_ctrl(cJSON* member, cJSON* reply) {
    const int result = json_rows_walk(
        std::span<const Interface>(kInterfaces), member, reply, true,
        [](const Interface&, cJSON* item, cJSON* answer) { return write_eth0(item, answer) == 0; });
    json_access_key_update();  // the key follows the network identity
    return result;
}

void json_ethernet_describe(KeyList& out) { fields_describe(out, "ethernet", kIf, kFields); }
