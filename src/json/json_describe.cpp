#include "json/json_describe.h"

#include <limits>

namespace {

template <typename T>
void range_of(KeyInfo& k) {
    k.min = std::numeric_limits<T>::min();
    k.max = std::numeric_limits<T>::max();
}

}  // namespace

void fields_describe(KeyList& out, std::string_view section, std::string_view path, Fields fields) {
    for (const Field& f : fields) {
        KeyInfo k{.section = section, .path = path, .key = f.name, .write = f.writable, .count = f.count};
        switch (f.form) {
        case FieldForm::u8: range_of<uint8_t>(k); break;
        case FieldForm::u16: range_of<uint16_t>(k); break;
        case FieldForm::i16: range_of<int16_t>(k); break;
        case FieldForm::i32: range_of<int32_t>(k); break;
        case FieldForm::u32: range_of<uint32_t>(k); break;
        case FieldForm::text:
            k.type = KeyType::text;
            k.length = f.size;
            break;
        case FieldForm::ipv4: k.type = KeyType::ipv4; break;
        case FieldForm::mac: k.type = KeyType::mac; break;
        case FieldForm::words:
            k.type = KeyType::word;
            k.words = f.words;
            break;
        case FieldForm::own:
            k.type = f.words.empty() ? KeyType::object : KeyType::word;
            k.words = f.words;
            k.write = f.writable && f.write != nullptr;
            break;
        }
        if ((f.in & kInKeyed) == 0 && (f.in & kInWhole) == 0) k.read = false;
        out.push_back(k);
    }
}
