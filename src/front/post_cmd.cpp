#include "front/post_cmd.h"

#include <strings.h>

#include <array>
#include <memory>

#include <cJSON.h>

#include "camera/image_ctrl.h"
#include "cgi/output.h"
#include "cgi/reply.h"
#include "remote/aw_ptz.h"
#include "support/log.h"
#include "support/owners.h"
#include "support/words.h"

namespace {

enum class Axis { PanTilt, Home, Focus, Zoom };

// One row per movement type. Pan-tilt rows carry the VISCA pan and tilt
// direction bytes (1 and 2 the two senses, 3 stop); focus rows the drive
// direction (0 stop, 1 near, 2 far), zoom rows (0 stop, 1 in, 2 out). The
// home, focus and zoom drives log their own movement.
struct Movement {
    int type;
    Axis axis;
    int first;
    int second;
    const char* log_text;
};

constexpr std::array<Movement, 12> kMovements{{
    {0, Axis::PanTilt, 3, 3, "PTZ Stop\n"},
    {1, Axis::Home, 0, 0, nullptr},
    {2, Axis::PanTilt, 3, 1, "PTZ Up\n"},
    {3, Axis::PanTilt, 2, 3, "PTZ Right\n"},
    {4, Axis::PanTilt, 3, 2, "PTZ Down\n"},
    {5, Axis::PanTilt, 1, 3, "PTZ Left\n"},
    {6, Axis::Focus, 2, 0, nullptr},
    {7, Axis::Focus, 1, 0, nullptr},
    {8, Axis::Focus, 0, 0, nullptr},
    {9, Axis::Zoom, 1, 0, nullptr},
    {10, Axis::Zoom, 2, 0, nullptr},
    {11, Axis::Zoom, 0, 0, nullptr},
}};

// Preset actions of the camera command set: 0 store, 1 recall, 2 clear.
constexpr WordCode kPresetWords[] = {{"add", 0}, {"set", 1}, {"del", 2}};

}  // namespace

int json_ptz_ctrl(int type, int speed) {
    for (const Movement& m : kMovements) {
        if (m.type != type) continue;
        switch (m.axis) {
        case Axis::PanTilt: {
            LOG_DBG("%s", m.log_text);
            int s = speed & 0xFF;  // only the low byte reaches the camera
            return image_ptz_drive(m.first, s, m.second, s);
        }
        case Axis::Home: return json_ptz_home();
        case Axis::Focus: return json_ptz_focus(m.first, speed);
        case Axis::Zoom: return json_ptz_zoom(m.first, speed);
        }
    }
    return 0;
}

int sendPTZ(const char* body) {
    JsonTree root(cJSON_Parse(body ? body : ""));
    if (!root) {
        reply_error("this is no json");
        return -1;
    }
    const cJSON* type_item = cJSON_GetObjectItemCaseSensitive(root.get(), "type");
    const cJSON* speed_item = cJSON_GetObjectItemCaseSensitive(root.get(), "speed");
    if (type_item == nullptr || speed_item == nullptr) {
        reply_error("Invalid params");
        return -1;
    }
    int type = json_get_int(root.get(), "type");
    int speed = json_get_int(root.get(), "speed");
    json_ptz_ctrl(type, speed);
    reply_header(kHdrJson);
    out_printf("{\"status\":1,\"type\":%d,\"speed\":%d}", type, speed);
    return 0;
}

int sendPreset(const char* body) {
    JsonTree root(cJSON_Parse(body ? body : ""));
    if (!root) {
        reply_error("this is no json");
        return -1;
    }
    const cJSON* index_item = cJSON_GetObjectItemCaseSensitive(root.get(), "index");
    const char* control = json_get_string(root.get(), "control");
    if (!cJSON_IsNumber(index_item) || control == nullptr || index_item->valueint == -1) {
        reply_error("Invalid params");
        return -1;
    }
    int index = index_item->valueint;
    int status = 0;
    if (const WordCode* w = word_find(kPresetWords, control); w != nullptr)
        status = image_preset_ctrl(w->code, index & 0xFF) == 0 ? 1 : 0;
    reply_header(kHdrJson);
    // The control word is echoed inside quotes: escaped, so the answer stays JSON.
    out_printf("{\"status\":%d,\"index\":%d,\"speed\":\"%s\"}", status, index, json_escaped(control).c_str());
    return 0;
}
