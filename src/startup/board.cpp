#include "startup/board.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include <bcm_host.h>

#include "ardenvue.h"
#include "platform/file_descriptor.h"
#include "platform/text_file.h"

namespace {
constexpr const char* model_path = "/sys/firmware/devicetree/base/model";
constexpr std::size_t max_model_length = 100;

constexpr std::string_view supported_models[] = {
    "Raspberry Pi 4 Model B",
    "Raspberry Pi 3 Model A",
    "Raspberry Pi Zero W",
};
}  // namespace

std::string read_board_model() {
    char text[max_model_length + 1] = {};
    const FileDescriptor file{open(model_path, O_RDONLY | O_CLOEXEC)};
    if (!file || read(file.get(), text, max_model_length) < 0) {
        return {};
    }
    return text;  // up to the zero byte that ends device tree texts
}

bool is_board_supported(std::string_view model) {
    return std::ranges::any_of(supported_models, [&](std::string_view supported) {
        return model.find(supported) != std::string_view::npos;
    });
}

bool check_board() {
    const std::string model = read_board_model();
    std::fprintf(stderr, "Board model: %s\n", model.c_str());
    const bool is_supported = is_board_supported(model);
    std::fputs(is_supported ? "Board supported\n" : "Board not supported\n", stderr);
    write_text_file(ardenvue::board_supported_path, is_supported ? "1" : "0");
    return is_supported;
}

void init_bcm_host() {
    static bool is_started = false;
    if (!is_started) {
        bcm_host_init();
        is_started = true;
    }
}
