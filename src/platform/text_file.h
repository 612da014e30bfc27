#pragma once

// Opens path for writing (created, or truncated when it exists), writes the text with nothing added, closes
// it. Returns 0, or -1 when the file can't be opened; nothing is printed. Main thread and USB reader thread.
int write_text_file(const char* path, const char* text);
