/* The floor of the benchmark: a FastCGI responder that does nothing but
 * answer every request with a two-byte body. Whatever the product costs
 * beyond this is its own. */
#include <fcgi_stdio.h>

int main(void) {
    while (FCGI_Accept() >= 0) printf("Content-type: text/plain\r\n\r\nok");
    return 0;
}
