// Mappings of physical memory, kept in a list in the order they were made
// and shared by reference count when one already covers a request.
#include "support/memmap.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>

#include "platform/platform.h"
#include "support/log.h"

namespace {

constexpr uint32_t kPage = 4096;
constexpr uint32_t kRegisterWindow = 128;
constexpr const char* kDevice = "/dev/ambad";

// One mapping. Addresses and lengths are kept in 32 bits: a mapping the
// kernel places above 4 GiB is given up rather than truncated.
struct MapNode {
    uint32_t base;    // page-aligned physical address
    uint32_t vaddr;   // where it is mapped in the process
    uint32_t length;  // mapped bytes
    uint32_t refs;
    MapNode* next;
};

MapNode* g_head = nullptr;

// The list keeps process addresses in 32 bits, so a mapping must lie below
// 4 GiB: the first free place from kLowStart on is taken, and a mapping that
// can find none there fails rather than be kept truncated.
constexpr uintptr_t kLowStart = 0x30000000;
constexpr uintptr_t kLowEnd = 0x100000000ULL;
constexpr int kLowTries = 4096;

void* map_low(int fd, size_t length, uint32_t offset) {
    uintptr_t at = kLowStart;
    for (int i = 0; i < kLowTries && at + length <= kLowEnd; ++i) {
        void* addr = mmap(reinterpret_cast<void*>(at), length, PROT_READ | PROT_WRITE,
                          MAP_SHARED | MAP_FIXED_NOREPLACE, fd, static_cast<off_t>(offset));
        if (addr != MAP_FAILED) {
            if (reinterpret_cast<uintptr_t>(addr) == at) return addr;
            // A kernel (or an emulator) that took the place as a hint only and
            // mapped elsewhere: the place was taken, try the next one.
            munmap(addr, length);
        } else if (errno != EEXIST) {
            return MAP_FAILED;
        }
        at += length > (1u << 20) ? length : (1u << 20);
    }
    return MAP_FAILED;
}

}  // namespace

uintptr_t memmap(uint32_t phys, uint32_t size) {
    if (size == 0) {
        LOG_ERR("memmap():size can't be zero!\n");
        return 0;
    }
    const uint64_t end = uint64_t{phys} + size;
    for (MapNode* n = g_head; n != nullptr; n = n->next) {
        if (phys >= n->base && end <= uint64_t{n->base} + n->length) {
            ++n->refs;
            return uintptr_t{n->vaddr} + (phys - n->base);
        }
    }
    const uint32_t base = phys & ~(kPage - 1);
    const uint64_t length = ((uint64_t{size} + (phys % kPage) - 1) & ~uint64_t{kPage - 1}) + kPage;
    if (length > UINT32_MAX) {
        LOG_ERR("memmap():mmap @ 0x%x error!\n", base);
        return 0;
    }
    // The device below the platform's root, open only while a new mapping
    // is made (the mapping outlives the descriptor).
    const PlatformPath device = platform_path(kDevice);
    const int fd = open(device.c_str(), O_RDWR | O_SYNC);
    if (fd < 0) {
        LOG_ERR("memmap():open %s error!\n", device.c_str());
        return 0;
    }
    void* addr = map_low(fd, static_cast<size_t>(length), base);
    close(fd);
    if (addr == MAP_FAILED) {
        LOG_ERR("memmap():mmap @ 0x%x error!\n", base);
        return 0;
    }
    const auto where = reinterpret_cast<uintptr_t>(addr);
    auto* node = static_cast<MapNode*>(std::malloc(sizeof(MapNode)));
    if (node == nullptr) {
        LOG_ERR("memmap():malloc new node failed!\n");
        return 0;
    }
    *node = {base, static_cast<uint32_t>(where), static_cast<uint32_t>(length), 1, nullptr};
    MapNode** tail = &g_head;
    while (*tail != nullptr) tail = &(*tail)->next;
    *tail = node;
    return where + (phys % kPage);
}

int memunmap(uintptr_t addr) {
    MapNode** link = &g_head;
    while (*link != nullptr) {
        MapNode* n = *link;
        if (addr >= n->vaddr && addr <= uintptr_t{n->vaddr} + n->length) {
            if (--n->refs == 0) {
                *link = n->next;
                if (munmap(reinterpret_cast<void*>(uintptr_t{n->vaddr}), n->length) != 0)
                    LOG_ERR("memunmap(): munmap failed!\n");
                std::free(n);
            }
            return 0;
        }
        link = &n->next;
    }
    if (g_head == nullptr)
        LOG_ERR("memunmap(): address have not been mmaped!\n");
    else
        LOG_INFO("memunmap(): address have not been mmaped!\n");
    return -1;
}

int ambmm(uint32_t phys, uint32_t value) {
    const uintptr_t at = memmap(phys, kRegisterWindow);
    if (at == 0) {
        LOG_ERR("%s:memmap error.\n", "ambmm");
        return -1;
    }
    *reinterpret_cast<volatile uint32_t*>(at) = value;
    memunmap(at);
    return 0;
}

int64_t ambmd(uint32_t phys) {
    const uintptr_t at = memmap(phys, kRegisterWindow);
    if (at == 0) {
        LOG_ERR("%s:memmap error.\n", "ambmd");
        return -1;
    }
    const uint32_t value = *reinterpret_cast<volatile const uint32_t*>(at);
    memunmap(at);
    return value;
}

namespace {

// A whole file mapped shared. The read-write form creates the file; the
// read-only one's two map texts end with a line break, the other's do not.
void* map_file(const char* path, uint32_t length, bool writable) {
    const int fd = writable ? open(path, O_RDWR | O_CREAT, 0644) : open(path, O_RDONLY | O_SYNC);
    if (fd < 0) {
        LOG_ERR("Open file %s error.\n", path);
        return nullptr;
    }
    void* addr = mmap(nullptr, length, writable ? PROT_READ | PROT_WRITE : PROT_READ, MAP_SHARED, fd, 0);
    close(fd);
    const char* end = writable ? "" : "\n";
    // The comparison with 0 is kept as the library always made it.
    if (addr == nullptr) {
        LOG_ERR("Memory Map Failure. Map File %s, length:0x%08lX%s", path, static_cast<unsigned long>(length),
                end);
        return nullptr;
    }
    LOG_ERR("Memory Map OK. Map File: %s, length:%#X, addr:0x%08lX%s", path, length,
            static_cast<unsigned long>(reinterpret_cast<uintptr_t>(addr)), end);
    return addr;
}

}  // namespace

void* mmapfile(const char* path, uint32_t length) { return map_file(path, length, true); }
void* mmapfile_r(const char* path, uint32_t length) { return map_file(path, length, false); }
