// The responder's own small C++ runtime. Nothing in the responder throws or
// catches: where the standard library would throw (an allocation that
// fails, a string past its maximum size) the process ends instead, as it
// would have for an exception nobody catches. With these few definitions
// linked first, the library's throwing helpers, the personality routine and
// the unwinder are never pulled into the binary (the build checks it).
// Linked into the responder alone: the tests and the simulators keep the
// library's own.
#include <cstddef>
#include <cstdlib>
#include <new>

// The library's throwing helpers (declared by <bits/functexcept.h>).
namespace std {
void __throw_bad_alloc() { abort(); }
void __throw_bad_array_new_length() { abort(); }
void __throw_bad_function_call() { abort(); }
void __throw_length_error(const char*) { abort(); }
void __throw_logic_error(const char*) { abort(); }
void __throw_out_of_range(const char*) { abort(); }
void __throw_out_of_range_fmt(const char*, ...) { abort(); }
void __throw_invalid_argument(const char*) { abort(); }
void __throw_runtime_error(const char*) { abort(); }
void __throw_system_error(int) { abort(); }
}  // namespace std

// What the library's own compiled code refers to for unwinding through it:
// with nothing ever thrown, never reached.
extern "C" {
void _Unwind_Resume(void*) { abort(); }
int __gxx_personality_v0(int, int, unsigned long, void*, void*) { abort(); }
}

// Allocation that ends the process instead of throwing.
void* operator new(std::size_t size) {
    if (void* p = std::malloc(size != 0 ? size : 1)) return p;
    abort();
}
void* operator new[](std::size_t size) { return operator new(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return std::malloc(size != 0 ? size : 1);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return std::malloc(size != 0 ? size : 1);
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }
