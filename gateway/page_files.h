// The files of the page and the description of the interface, as CMake put them into the executable.
#pragma once

#include <span>
#include <string_view>

namespace gateway {

struct PageFile {
    std::string_view path;  // "/app.js"
    std::string_view type;  // "text/javascript"
    std::string_view content;
};

std::span<const PageFile> page_files();

// OpenAPI 3.
std::string_view interface_description();

}  // namespace gateway
