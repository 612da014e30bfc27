// Small helpers for descriptors and files.
#pragma once

#include <memory>
#include <optional>
#include <string>

namespace sim {

// Closes its descriptor when the last owner goes.
using Descriptor = std::shared_ptr<const int>;

// Owns the descriptor; throws std::runtime_error, with its purpose and errno's text, when it is none.
Descriptor own_descriptor(int fd, const std::string& purpose);

// All of a file; none when it can't be opened.
std::optional<std::string> file_contents(const std::string& path);

}  // namespace sim
