// The board that this process was given, and the faults asked of it.
#pragma once

#include <climits>
#include <cstddef>
#include <cstdint>

namespace board_library {

struct Board {
    char directory[PATH_MAX];   // empty: no board, every call goes to libc
    char shm_prefix[NAME_MAX];  // of the names of shared-memory objects, with its leading slash
    int relay_port;             // bound instead of TCP port 6000; 0: the kernel chooses; -1: unchanged
    int notice_port;            // sent to instead of UDP port 5255; -1: unchanged
};

// Read from the environment before main; without a board until then.
const Board& board();

// Where the board keeps what the program calls path: the path itself, or one built in buffer.
const char* board_path(const char* path, char (&buffer)[PATH_MAX]);

// The file's name when the path names a gadget file, else null.
const char* gadget_file_name(const char* path);

// True, with errno set, when the named fault is asked for: a file of that name in the board's directory
// "faults". The detail, when given, is appended after a dot.
bool fault(const char* name, int error, const char* detail = nullptr);

// Appends a line to a file of the board's directory.
void note(const char* file, const char* line);

}  // namespace board_library
