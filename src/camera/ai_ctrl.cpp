#include "camera/ai_ctrl.h"

#include <strings.h>

#include <array>
#include <cstring>

#include "ipc/CamMsgDrv.h"
#include "records/records.h"

namespace {

// How the value reaches the packet: whole in one byte, split into the high
// and low nibble of its low byte, or not at all (fixed packets).
enum class Enc { Byte, Nibbles, Fixed };

struct AiOp {
    AiParam param;
    std::array<uint8_t, 8> packet;
    uint8_t length;
    uint8_t value_at;  // first value byte
    Enc enc;
    bool wait;
};

constexpr std::array<AiOp, 13> kOps{{
    {{"enable", AiArg::Number}, {0x81, 0x01, 0x04, 0xC8, 0, 0xFF}, 6, 4, Enc::Byte, true},
    {{"mode", AiArg::Number}, {0x81, 0x01, 0x04, 0xC8, 0x01, 0, 0xFF}, 7, 5, Enc::Byte, true},
    {{"peoplePos", AiArg::Number}, {0x81, 0x01, 0x04, 0xCB, 0, 0xFF}, 6, 4, Enc::Byte, true},
    {{"peopleRation", AiArg::Number}, {0x81, 0x01, 0x04, 0xCC, 0, 0, 0xFF}, 7, 4, Enc::Nibbles, true},
    {{"bodyRatio", AiArg::Number}, {0x81, 0x01, 0x04, 0xCC, 0x01, 0, 0, 0xFF}, 8, 5, Enc::Nibbles, true},
    {{"switchTime", AiArg::Number}, {0x81, 0x01, 0x04, 0xCD, 0, 0, 0xFF}, 7, 4, Enc::Nibbles, true},
    {{"boardDetectEn", AiArg::Number}, {0x81, 0x01, 0x04, 0xCE, 0, 0xFF}, 6, 4, Enc::Byte, true},
    {{"highLightTarget", AiArg::Number}, {0x81, 0x01, 0x04, 0xCF, 0, 0xFF}, 6, 4, Enc::Byte, true},
    {{"zoomLock", AiArg::Number}, {0x81, 0x01, 0x04, 0xD6, 0x00, 0, 0xFF}, 7, 5, Enc::Byte, true},
    {{"tiltLock", AiArg::Number}, {0x81, 0x01, 0x04, 0xD6, 0x01, 0, 0xFF}, 7, 5, Enc::Byte, true},
    {{"PTLimit", AiArg::Number}, {0x81, 0x01, 0x04, 0xD7, 0, 0xFF}, 6, 4, Enc::Byte, false},
    {{"peopleChange", AiArg::Word}, {0x81, 0x01, 0x04, 0xCA, 0, 0xFF}, 6, 4, Enc::Byte, false},
    {{"framingOnePush", AiArg::True}, {0x81, 0x01, 0x04, 0xC8, 0x02, 0x01, 0xFF}, 7, 0, Enc::Fixed, false},
}};

// "peopleChange": the person to switch to, as the camera numbers the sides.
struct Word {
    const char* word;
    uint8_t code;
};
constexpr std::array<Word, 2> kSides{{{"left", 0x03}, {"right", 0x02}}};

int send(const AiOp& op, int value) {
    std::array<uint8_t, kViscaMax> pkt{};
    std::memcpy(pkt.data(), op.packet.data(), op.length);
    const auto v = static_cast<uint8_t>(value);
    if (op.enc == Enc::Byte) {
        pkt[op.value_at] = v;
    } else if (op.enc == Enc::Nibbles) {
        pkt[op.value_at] = (v >> 4) & 0x0F;
        pkt[op.value_at + 1] = v & 0x0F;
    }
    if (op.wait) {
        TramsMsg2Cam(pkt.data(), op.length, nullptr);  // the answer is read from the area
        return 0;
    }
    return TramsMsg2CamNowait(pkt.data(), op.length) < 0 ? -1 : 0;
}

}  // namespace

int ai_ctrl_find(std::string_view key) {
    for (size_t i = 0; i < kOps.size(); ++i) {
        const auto& k = kOps[i].param.key;
        if (k.size() == key.size() && strncasecmp(k.data(), key.data(), k.size()) == 0)
            return static_cast<int>(i);
    }
    return -1;
}

const AiParam& ai_ctrl_param(int row) { return kOps[static_cast<size_t>(row)].param; }

int ai_ctrl_send(int row, int value) {
    if (row < 0 || static_cast<size_t>(row) >= kOps.size()) return -1;
    const AiOp& op = kOps[static_cast<size_t>(row)];
    if (op.param.arg == AiArg::Word) return -1;
    return send(op, value);
}

int ai_ctrl_send_word(int row, const char* word) {
    if (row < 0 || static_cast<size_t>(row) >= kOps.size() || !word) return -1;
    const AiOp& op = kOps[static_cast<size_t>(row)];
    if (op.param.arg != AiArg::Word) return -1;
    for (const Word& w : kSides)
        if (strcasecmp(w.word, word) == 0) return send(op, w.code);
    return -1;
}

int ai_ptlimit_get() {
    uint8_t pkt[kViscaMax] = {0x81, 0x09, 0x04, 0xD7, 0xFF};
    int capacity = 5;
    int n = TramsMsg2Cam(pkt, 5, &capacity);
    if (n < 3 || pkt[1] != 0x50) return -1;
    return pkt[2];
}
