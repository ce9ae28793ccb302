// The "full ndi" section: the full-bandwidth NDI encoder's configuration,
// kept by the encoder board as a JSON file that this process reaches over
// NFS. The API's flat keys map onto members of the file's "ndi" object; a
// write saves the whole file and tells the board to load it again.
#include "json/json_full_ndi.h"
#include "json/json_describe.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "camera/image_ctrl.h"
#include "ipc/sys_port.h"
#include "json/json_section.h"
#include "platform/platform.h"
#include "support/log.h"
#include "support/owners.h"
#include "support/support.h"
#include "net/net_config.h"

namespace {

constexpr const char* kConfig = "/mnt/fpga/ndi_config.json";
constexpr size_t kConfigMax = 1024;
constexpr uint32_t kUnknown = 0xFFFFFFFFu;
constexpr mode_t kSaveMode = 755;  // decimal, as the board's tools have always written it

// ---- the board's export ---------------------------------------------------------------

// Makes the configuration file reachable: used in place when it is there,
// otherwise the board's export is mounted (`mounted` then says so). 0, or
// the failed address lookup's result, logged under the caller's name.
int board_attach(bool& mounted, const char* caller) {
    mounted = false;
    if (access(platform_path(kConfig).c_str(), F_OK) == 0) return 0;
    SysState* state = sys_state(1);
    uint32_t addr = state != nullptr ? state->encoderBoardAddr : kUnknown;
    if (addr == kUnknown) {
        addr = fpga_get_ip();
        if (addr == kUnknown) {
            LOG_ERR_AS(caller, "fpga_get_ip failed!\n");
            return -1;
        }
        if (state != nullptr) state->encoderBoardAddr = addr;
    }
    char line[160];
    std::snprintf(line, sizeof line,
                  "mount -t nfs -o nolock -o tcp -o rsize=32768,wsize=32768 %s:/opt/ndi /mnt/fpga",
                  net_dotted(addr).c_str());
    pox_system(line);
    mounted = true;
    return 0;
}

void board_detach(bool mounted) {
    if (mounted) pox_system("umount -fl /mnt/fpga");
}

// ---- the key mapping --------------------------------------------------------------------
enum class Kind : uint8_t { number, text, multicast, discovery };

struct NdiKey {
    std::string_view name;
    std::array<const char*, 3> path;  // members below "ndi", the last one holds the value
    Kind kind;
};
constexpr std::array<NdiKey, 8> kKeys{{
    {"enable", {"enable"}, Kind::number},
    {"format", {"format"}, Kind::text},
    {"device name", {"machinename"}, Kind::text},
    {"channel name", {"channel name"}, Kind::text},
    {"groups", {"groups", "send"}, Kind::text},
    {"quality", {"codec", "shq", "quality"}, Kind::number},
    {"multicast", {"multicast", "send"}, Kind::multicast},
    {"discovery server", {"networks", "discovery"}, Kind::discovery},
}};

// The multicast object's API members and the file's.
struct Pair {
    const char* api;
    const char* file;
};
constexpr std::array<Pair, 3> kMulticast{{{"IP", "netprefix"}, {"Mask", "netmask"}, {"TTL", "ttl"}}};

size_t depth(const NdiKey& key) {
    size_t n = 0;
    while (n < key.path.size() && key.path[n] != nullptr) ++n;
    return n;
}

const cJSON* find_member(const cJSON* ndi, const NdiKey& key) {
    const cJSON* at = ndi;
    for (size_t i = 0; i < depth(key) && at != nullptr; ++i)
        at = cJSON_GetObjectItemCaseSensitive(at, key.path[i]);
    return at;
}

// The API value of a key, or null when the file lacks it.
cJSON* api_value(const cJSON* ndi, const NdiKey& key) {
    const cJSON* v = find_member(ndi, key);
    switch (key.kind) {
    case Kind::number: return cJSON_IsNumber(v) ? cJSON_CreateNumber(v->valuedouble) : nullptr;
    case Kind::text: return cJSON_IsString(v) ? cJSON_CreateString(v->valuestring) : nullptr;
    case Kind::discovery: return cJSON_CreateString(cJSON_IsString(v) ? v->valuestring : "");
    case Kind::multicast: {
        if (!cJSON_IsObject(v)) return nullptr;
        cJSON* out = cJSON_CreateObject();
        json_answer_number(out, "enable",
                           cJSON_IsTrue(cJSON_GetObjectItemCaseSensitive(v, "enable")) ? 1 : 0);
        for (const Pair& p : kMulticast) {
            const cJSON* m = cJSON_GetObjectItemCaseSensitive(v, p.file);
            if (m != nullptr) json_answer(out, p.api, cJSON_Duplicate(m, 1));
        }
        return out;
    }
    }
    return nullptr;
}

// The object `name` of `parent`, made (or made again) when it is not one.
cJSON* object_in(cJSON* parent, const char* name) {
    cJSON* at = cJSON_GetObjectItemCaseSensitive(parent, name);
    if (cJSON_IsObject(at)) return at;
    cJSON* made = cJSON_CreateObject();
    if (made == nullptr) return nullptr;
    if (at != nullptr) {
        cJSON_ReplaceItemInObjectCaseSensitive(parent, name, made);
    } else {
        cJSON_AddItemToObject(parent, name, made);
    }
    return made;
}

void put(cJSON* parent, const char* name, cJSON* value) {
    if (value == nullptr) return;
    if (cJSON_GetObjectItemCaseSensitive(parent, name) != nullptr) {
        cJSON_ReplaceItemInObjectCaseSensitive(parent, name, value);
    } else {
        cJSON_AddItemToObject(parent, name, value);
    }
}

// Writes one API member into the file's "ndi" object; false for an unknown
// key or a wrong type.
bool file_write(cJSON* ndi, const cJSON* item) {
    const NdiKey* key = find_row(std::span<const NdiKey>(kKeys), item->string);
    if (key == nullptr) return false;
    const bool fits = key->kind == Kind::number      ? cJSON_IsNumber(item)
                      : key->kind == Kind::multicast ? cJSON_IsObject(item)
                                                     : cJSON_IsString(item);
    if (!fits) return false;
    cJSON* parent = ndi;
    for (size_t i = 0; i + 1 < depth(*key) && parent != nullptr; ++i)
        parent = object_in(parent, key->path[i]);
    if (parent == nullptr) return false;
    const char* last = key->path[depth(*key) - 1];
    if (key->kind != Kind::multicast) {
        put(parent, last, cJSON_Duplicate(item, 1));
        return true;
    }
    cJSON* send = object_in(parent, last);
    if (send == nullptr) return false;
    for (const cJSON* m = item->child; m != nullptr; m = m->next) {
        if (same_word(m->string, "enable")) {
            put(send, "enable", cJSON_CreateBool(cJSON_IsTrue(m) || (cJSON_IsNumber(m) && m->valueint != 0)));
            continue;
        }
        for (const Pair& p : kMulticast)
            if (same_word(m->string, p.api)) put(send, p.file, cJSON_Duplicate(m, 1));
    }
    return true;
}

JsonTree load_tree(bool& loaded) {
    std::array<char, kConfigMax> text{};
    loaded = fullndi_config_load(text.data(), text.size()) == 0;
    return JsonTree(loaded ? cJSON_Parse(text.data()) : nullptr);
}

}  // namespace

int fullndi_config_load(char* buffer, size_t size) {
    if (buffer == nullptr || size == 0) return -1;
    bool mounted = false;
    const int attached = board_attach(mounted, __func__);
    if (attached != 0) return attached;
    const int result = file_read_text(platform_path(kConfig).c_str(), buffer, size) < 0 ? -1 : 0;
    if (result != 0) LOG_ERR("Read config failed!\n");
    board_detach(mounted);
    return result;
}

int fullndi_config_save(const char* text, size_t length) {
    bool mounted = false;
    const int attached = board_attach(mounted, __func__);
    if (attached != 0) return attached;
    const int fd = open(platform_path(kConfig).c_str(), O_WRONLY | O_CREAT | O_TRUNC, kSaveMode);
    if (fd >= 0) {
        for (size_t done = 0; done < length;) {
            const ssize_t n = write(fd, text + done, length - done);
            if (n <= 0) break;
            done += static_cast<size_t>(n);
        }
        fsync(fd);
        syncfs(fd);
        close(fd);
        sync();
    }
    board_detach(mounted);
    return 0;
}

int json_full_ndi_get_ctrl(cJSON* member, cJSON* reply) {
    if (member == nullptr) return -1;
    bool loaded = false;
    JsonTree tree = load_tree(loaded);
    cJSON* answer = cJSON_IsObject(tree.get()) ? cJSON_CreateObject() : nullptr;
    if (answer == nullptr) {
        LOG_ERR("Read config failed!\n");
        json_answer_false(reply, member->string);
        return -1;
    }
    // `true` answers every key the file has, in table order; an object
    // answers the keys it names with true (a key the file lacks answers
    // nothing), and false for any other member.
    const cJSON* ndi = cJSON_GetObjectItemCaseSensitive(tree.get(), "ndi");
    if (cJSON_IsTrue(member) || cJSON_IsObject(member)) {  // any other value asks for nothing: {}
        const auto key_of = [](const cJSON* m) {
            return find_row(std::span<const NdiKey>(kKeys), m->string);
        };
        json_read_rule(
            member, answer,
            [&](cJSON* out) {
                for (const NdiKey& key : kKeys)
                    if (ndi != nullptr) json_answer(out, key.name.data(), api_value(ndi, key));
            },
            [&](const cJSON* m) { return key_of(m) != nullptr; },
            [&](const cJSON* m, cJSON* out) {
                if (ndi != nullptr) json_answer(out, m->string, api_value(ndi, *key_of(m)));
            });
    }
    json_answer(reply, member->string, answer);
    return 0;
}

int json_full_ndi_set_ctrl(cJSON* member, cJSON* reply) {
    if (member == nullptr) return -1;
    bool loaded = false;
    JsonTree tree = load_tree(loaded);
    if (loaded && !cJSON_IsObject(tree.get())) tree.reset(cJSON_CreateObject());
    cJSON* ndi = loaded && tree ? object_in(tree.get(), "ndi") : nullptr;
    bool taken = ndi != nullptr;
    for (const cJSON* item = member->child; item != nullptr && taken; item = item->next)
        taken = file_write(ndi, item);
    if (!taken) {
        json_answer_false(reply, member->string);
        return -1;
    }
    // A file the next read could not take whole would be lost to the board:
    // such a write is refused and nothing is saved.
    JsonText printed(cJSON_Print(tree.get()));
    if (!printed || std::strlen(printed.get()) >= kConfigMax) {
        LOG_ERR("config too long, not saved\n");
        json_answer_false(reply, member->string);
        return -1;
    }
    json_answer(reply, member->string, cJSON_Duplicate(tree.get(), 1));
    fullndi_config_save(printed.get(), std::strlen(printed.get()));
    return image_encoder_reload() < 0 ? -1 : 0;
}

void json_full_ndi_describe(KeyList& out) {
    for (const NdiKey& k : kKeys) {
        const KeyType type = k.kind == Kind::number      ? KeyType::number
                             : k.kind == Kind::multicast ? KeyType::object
                                                         : KeyType::text;
        out.push_back(KeyInfo{.section = "full ndi", .key = k.name, .type = type});
    }
}
