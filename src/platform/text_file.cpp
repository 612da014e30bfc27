#include "platform/text_file.h"

#include <fcntl.h>

#include <cstring>

#include "platform/file_descriptor.h"

int write_text_file(const char* path, const char* text) {
    const FileDescriptor file{open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644)};
    if (!file) {
        return -1;
    }
    // A short or failed write leaves a short file: the next change of the value writes it anew.
    [[maybe_unused]] const ssize_t written = write(file.get(), text, std::strlen(text));
    return 0;
}
