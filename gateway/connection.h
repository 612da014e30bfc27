// One client's connection and the request on it, as the server keeps them between the library's calls.
#pragma once

#include <microhttpd.h>

#include <memory>
#include <string>

#include "gateway/interface.h"
#include "gateway/stream.h"

namespace gateway {

// A TCP connection.
struct Connection {
    int descriptor = -1;
    TimePoint waits_since{};  // for a whole request
    bool has_request = false;
};

// A request under way, from its headers to the last byte of its reply.
struct Exchange {
    MHD_Connection* connection = nullptr;
    Connection* client = nullptr;
    Request request;
    int awaited_command = 0;         // the reply waits for it
    std::unique_ptr<Stream> stream;  // the reply has no end
    Reply::Body kind = Reply::Body::text;
    bool is_suspended = false;
    bool is_over = false;  // the client has gone, or the server goes
};

// The request's line and headers, as the interface asks for them.
Request describe(MHD_Connection* connection, const char* path, const char* method);

// Queues a reply with the headers that every reply has.
MHD_Result queue(Exchange& exchange, const Reply& reply, const std::string& allowed_origin);
// The same for a reply without end, of the exchange's stream.
MHD_Result queue_stream(Exchange& exchange, const Reply& reply, const std::string& allowed_origin,
                        MHD_ContentReaderCallback read);

}  // namespace gateway
