// A tree of cJSON that deletes itself. Who includes this links cJSON.
#pragma once

#include <memory>

#include <cjson/cJSON.h>

namespace formats {

struct JsonDeleter {
    void operator()(cJSON* json) const { cJSON_Delete(json); }
};
using Json = std::unique_ptr<cJSON, JsonDeleter>;

}  // namespace formats
