// The dispatcher: any datagram, the packets of which the simulated camera must take for commands. The same
// datagram gives the same packets again; without its "!" it gives none.
#include "camera_end.h"
#include "fuzz.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(data, data + size);
    const auto packets = fuzz::dispatch("!" + text);
    fuzz::require(packets.size() <= 3, "too many packets");
    fuzz::require(fuzz::dispatch("!" + text) == packets, "another time");
    fuzz::require(text.starts_with('!') || fuzz::dispatch(text).empty(), "without its mark");
    return 0;
}
