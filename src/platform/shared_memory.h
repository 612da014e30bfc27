#pragma once

#include <cstddef>

// What is written to the standard error stream, whole lines; empty for nothing.
struct SharedMemoryNotices {
    const char* opened = "";
    const char* creating = "";
};

// Opens the POSIX shared-memory object of that name read-write, creates it (for the owner only) when that
// fails, sets its size, also when it existed, and maps all of it read-write and shared. The memory is
// reserved as well: a write through the mapping never meets a full /dev/shm. Returns its address, or null
// when any step failed. Mapping and descriptor are kept for the life of the process, and the object outlives
// it. Any thread.
void* map_shared_memory(const char* name, std::size_t size, const SharedMemoryNotices& notices = {});
