#include "front/web.h"

int main() { return web_main(); }
