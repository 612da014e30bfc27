// JSON as the gateway writes it; cJSON's printer knows how to escape a text, all else is put together here.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "formats/json.h"

namespace gateway {

using formats::Json;

// An object on one line.
inline std::string to_text(const Json& json) {
    const std::unique_ptr<char, decltype(&cJSON_free)> text{cJSON_PrintUnformatted(json.get()), &cJSON_free};
    return text ? text.get() : "{}";
}

// A member's text; empty where there is none, or it is no text.
inline std::string text_of(const cJSON* object, const char* name) {
    const char* const text = cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(object, name));
    return text == nullptr ? "" : text;
}

}  // namespace gateway
