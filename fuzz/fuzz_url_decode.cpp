// Fuzz target for the query decoding applied to every GET request.
// Checks that decoding stays inside a destination as large as the source,
// never grows the text, and that an escape is only ever decoded to a byte
// from 1 to 126. See fuzz/README.md for building and running.
#include <cstring>
#include <vector>

#include "cgi/reply.h"

namespace {

// The decoded text must follow from the source: an escape with two
// characters behind its '%' whose code is 1 to 126 becomes that one byte,
// everything else is copied. Walks both texts in step and fails on the
// first difference.
bool decoded_matches(const char* src, const char* dst) {
    while (*src != '\0') {
        if (*dst == '\0') return false;
        int code = 0;
        if (*src == '%' && src[1] != '\0' && src[2] != '\0') {
            const int high = hex_digit_value(static_cast<unsigned char>(src[1]));
            const int low = hex_digit_value(static_cast<unsigned char>(src[2]));
            code = (high < 0 ? -16 : high * 16) + low;
        }
        if (code >= 1 && code <= 126) {
            if (static_cast<unsigned char>(*dst) != code) return false;
            src += 3;
        } else {
            if (*src != *dst) return false;
            ++src;
        }
        ++dst;
    }
    return *dst == '\0';
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // The front end decodes zero-terminated text: stop at the first zero.
    std::vector<char> source(size + 1, '\0');
    if (size > 0) std::memcpy(source.data(), data, size);
    const size_t length = std::strlen(source.data());

    // Exactly as large as the source, so that any overrun shows up under
    // the address sanitizer.
    std::vector<char> decoded(length + 1);
    url_decode(source.data(), decoded.data());
    if (std::strlen(decoded.data()) > length) __builtin_trap();
    if (!decoded_matches(source.data(), decoded.data())) __builtin_trap();

    url_decode_checked(nullptr, decoded.data());
    url_decode_checked(source.data(), nullptr);
    return 0;
}

#include "replay_main.h"
