// POSIX shared memory that other processes write, resize and unlink as they like.
#pragma once

#include <cstddef>

// What is written to the standard error stream, whole lines; empty for nothing.
struct SharedMemoryNotices {
    const char* opened = "";
    const char* creating = "";
};

// Opens the POSIX shared-memory object of that name read-write, creates it (for the owner only) when that
// fails, sets its size, also when it existed, and maps all of it read-write and shared. The memory is
// reserved as well: a write through the mapping never meets a full /dev/shm. Only a regular file of root's or
// of the process's own user is taken: whoever owns it can end or mislead its users. Returns its address, or
// null, with a line that says why, when any step failed. The object outlives the process; the mapping is kept
// until unmap_shared_memory. At most four at a time. The name must outlive the mapping. Any thread.
//
// Another process that makes the object shorter does not end this one: in the place of the mapping there is
// memory of the process's own then, all 0, until restore_shared_memory.
void* map_shared_memory(const char* name, std::size_t size, const SharedMemoryNotices& notices = {});

// Gives up a mapping of map_shared_memory, or nothing when the address is null. Any thread that knows that
// nobody uses it any more.
void unmap_shared_memory(void* address);

// Where the name of a mapped object leads now.
enum class SharedMemoryName {
    to_it,
    nowhere,     // it was unlinked
    to_another,  // and made anew, perhaps as something that can't be opened
};
SharedMemoryName shared_memory_name(const void* address);

// Says once of each object that was made shorter under its mapping what happened, and maps it again when it
// has its size. Main thread, once a second.
void restore_shared_memory();
