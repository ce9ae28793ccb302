// The sliced shared-memory segment, read and written through bounded copies.
// Every copy attaches the segment anew and detaches it afterwards.
#include "ipc/share_mem.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <sys/ipc.h>
#include <sys/shm.h>

#include "records/records.h"
#include "support/log.h"

namespace {

int g_shm_id = -1;

int get_segment(int key) {
    int id = shmget(key, kShmSize, IPC_CREAT | 0660);
    if (id < 0) id = shmget(key, 0, 0);
    return id;
}

// Size of the segment as the kernel has it; an existing segment attached
// with size 0 may be smaller than the full 27 slices.
int64_t segment_size(int id) {
    shmid_ds ds{};
    if (shmctl(id, IPC_STAT, &ds) < 0) return 0;
    return static_cast<int64_t>(ds.shm_segsz);
}

enum class Dir { read, write };

// The copy stays within one slice and within the segment. Negative offsets
// and lengths would leave the segment and are refused as overflows too.
bool copy_allowed(int offset, const void* mem, int length) {
    const int64_t end = static_cast<int64_t>(offset) + length;
    return length < PROC_MEM_SIZE + 1 && end < kShmSize + 1 && offset >= 0 && length >= 0 && mem != nullptr;
}

// Attaches the segment for this one copy and returns the detach result.
int attached_copy(Dir dir, int offset, void* mem, int length, bool allowed) {
    void* base = shmat(g_shm_id, nullptr, 0);
    if (base == reinterpret_cast<void*>(-1)) return -1;
    // An existing segment attached with size 0 may be shorter than 27 slices.
    if (allowed && offset + length <= segment_size(g_shm_id)) {
        auto* at = static_cast<uint8_t*>(base) + offset;
        if (dir == Dir::read)
            std::memcpy(mem, at, static_cast<size_t>(length));
        else
            std::memcpy(at, mem, static_cast<size_t>(length));
    }
    return shmdt(base);
}

}  // namespace

int ShareMemInit(int key) {
    g_shm_id = get_segment(key);
    LOG_DBG("shared memory id:%d\n", g_shm_id);
    return g_shm_id < 0 ? -1 : g_shm_id;
}

int pShareMemInit(int key) {
    LOG_DBG("shared memory size 0x%x\n", kShmSize);
    const int id = get_segment(key);
    LOG_DBG("shared memory id:%d\n", id);
    return id < 0 ? -1 : id;
}

int ShareMemRead(int offset, void* buf, int length) {
    const bool allowed = copy_allowed(offset, buf, length);
    if (!allowed) LOG_ERR("ShareMemRead:Overflow!%d  %d  %d  %d\n", offset, length, PROC_MEM_SIZE, kShmSize);
    return attached_copy(Dir::read, offset, buf, length, allowed);
}

int ShareMemWrite(int offset, const void* buf, int length) {
    const bool allowed = copy_allowed(offset, buf, length);
    if (!allowed) LOG_ERR("ShareMemWrite:Overflow!%d  %d  %d  %d\n", offset, length, PROC_MEM_SIZE, kShmSize);
    return attached_copy(Dir::write, offset, const_cast<void*>(buf), length, allowed);
}
