#include "gateway/connection.h"

#include <sys/socket.h>

#include "gateway/address.h"

namespace gateway {
namespace {

// What a streamed reply is read in; the library's own buffer, of the connection's memory, is what bounds a
// piece.
constexpr std::size_t block_size = 32'768;

// The page uses nothing from elsewhere, nobody puts it into a frame, and what is sent is what it says it is.
constexpr std::pair<const char*, const char*> common_headers[] = {
    {"Content-Security-Policy",
     "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' blob: data:; media-src blob:; "
     "connect-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
    {"X-Content-Type-Options", "nosniff"},
    {"Referrer-Policy", "no-referrer"},
    {"Cache-Control", "no-store"},
};

std::optional<std::string> value_of(MHD_Connection* connection, MHD_ValueKind kind, const char* name) {
    const char* value = nullptr;
    std::size_t size = 0;
    if (MHD_lookup_connection_value_n(connection, kind, name, std::char_traits<char>::length(name), &value,
                                      &size) != MHD_YES) {
        return std::nullopt;
    }
    return value == nullptr ? std::string{} : std::string{value, size};
}

MHD_Result queue_response(Exchange& exchange, const Reply& reply, const std::string& allowed_origin,
                          MHD_Response* response) {
    if (response == nullptr) {
        return MHD_NO;
    }
    for (const auto& [name, value] : common_headers) {
        MHD_add_response_header(response, name, value);
    }
    MHD_add_response_header(response, "Content-Type", reply.type.c_str());
    MHD_add_response_header(response, "Cross-Origin-Resource-Policy",
                            allowed_origin.empty() ? "same-origin" : "cross-origin");
    if (!allowed_origin.empty()) {
        MHD_add_response_header(response, "Access-Control-Allow-Origin", allowed_origin.c_str());
        MHD_add_response_header(response, "Access-Control-Allow-Methods", "GET, POST");
        MHD_add_response_header(response, "Access-Control-Allow-Headers",
                                "Authorization, Content-Type, Last-Event-ID, X-Ardenvue-Control");
        MHD_add_response_header(response, "Vary", "Origin");
    }
    if (reply.status == 401) {
        MHD_add_response_header(response, "WWW-Authenticate", "Bearer");
    }
    if (reply.status == 503 || reply.status == 429) {
        MHD_add_response_header(response, "Retry-After", reply.status == 429 ? "60" : "1");
    }
    const MHD_Result result = MHD_queue_response(exchange.connection, reply.status, response);
    MHD_destroy_response(response);
    return result;
}

}  // namespace

Request describe(MHD_Connection* connection, const char* path, const char* method) {
    Request request;
    request.path = path;
    request.method = method;
    const MHD_ConnectionInfo* const info =
        MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CLIENT_ADDRESS);
    sockaddr_storage address{};
    if (info != nullptr && info->client_addr != nullptr) {
        const bool is_ipv6 = info->client_addr->sa_family == AF_INET6;
        __builtin_memcpy(&address, info->client_addr, is_ipv6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in));
    }
    request.address = host_text(address);
    request.header = [connection](const char* name) { return value_of(connection, MHD_HEADER_KIND, name); };
    request.argument = [connection](const char* name) {
        return value_of(connection, MHD_GET_ARGUMENT_KIND, name);
    };
    return request;
}

MHD_Result queue(Exchange& exchange, const Reply& reply, const std::string& allowed_origin) {
    return queue_response(
        exchange, reply, allowed_origin,
        MHD_create_response_from_buffer(reply.body.size(), const_cast<char*>(reply.body.data()),
                                        MHD_RESPMEM_MUST_COPY));
}

MHD_Result queue_stream(Exchange& exchange, const Reply& reply, const std::string& allowed_origin,
                        MHD_ContentReaderCallback read) {
    return queue_response(
        exchange, reply, allowed_origin,
        MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, block_size, read, &exchange, nullptr));
}

}  // namespace gateway
