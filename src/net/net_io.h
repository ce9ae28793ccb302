// What the interface library's files share: where the kernel's files are
// read from, and owned descriptors, files and interface requests.
#pragma once

#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <string>

#include "support/owners.h"

namespace net_io {

// An owned descriptor.
class Fd {
public:
    explicit Fd(int fd) : fd_(fd) {}
    ~Fd() {
        if (fd_ >= 0) close(fd_);
    }
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;
    int get() const { return fd_; }
    bool ok() const { return fd_ >= 0; }

private:
    int fd_;
};

FilePtr open_file(const std::string& path, const char* mode);
// An interface request naming `ifname`.
ifreq make_ifreq(const char* ifname);
// A datagram socket for the interface ioctls.
Fd inet_socket();
// An IPv4 socket address (port 0) of an address in network byte order.
sockaddr_in inet_sockaddr(uint32_t addr);

}  // namespace net_io
