#include <cstdlib>

#include "front/web.h"

// Nothing of ours throws, so an uncaught exception can only be a broken
// process: end it at once. Replacing the runtime's verbose handler also
// keeps its symbol demangler out of the linked-in C++ runtime.
namespace __gnu_cxx {
void __verbose_terminate_handler() { std::abort(); }
}  // namespace __gnu_cxx

int main() { return web_main(); }
