#include "formats/board_file.h"

#include <fstream>

namespace formats {

std::optional<std::map<std::string, std::string>> read_board_file(const std::string& directory) {
    std::ifstream file{directory + "/env"};
    if (!file) {
        return std::nullopt;
    }
    std::map<std::string, std::string> names;
    for (std::string line; std::getline(file, line);) {
        if (const std::size_t equals = line.find('='); equals != std::string::npos) {
            names[line.substr(0, equals)] = line.substr(equals + 1);
        }
    }
    return names;
}

}  // namespace formats
