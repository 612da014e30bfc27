// What the fuzz targets share. Each target is one file, NAME_fuzz.cpp, that gives libFuzzer its function;
// beside what the sanitizers see, it compares what the code did with a second way of knowing it. scripts/fuzz
// builds and runs them.
#pragma once

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace fuzz {

// Takes an input apart from its front. An input that is used up goes on as zeros, or as nothing.
class Input {
  public:
    Input(const std::uint8_t* data, std::size_t size) : rest_{data, size} {}

    bool empty() const { return rest_.empty(); }
    std::uint8_t byte() {
        const auto one = bytes(1);
        return one.empty() ? std::uint8_t{0} : one[0];
    }
    std::uint16_t word() {
        const std::uint8_t low = byte();
        return static_cast<std::uint16_t>(low | byte() << 8);
    }
    // So many bytes, or what is left.
    std::span<const std::uint8_t> bytes(std::size_t count) {
        const auto taken = rest_.first(std::min(count, rest_.size()));
        rest_ = rest_.subspan(taken.size());
        return taken;
    }
    std::span<const std::uint8_t> rest() { return bytes(rest_.size()); }

  private:
    std::span<const std::uint8_t> rest_;
};

// Ends the run as a find when the two ways of knowing disagree. Written to stdout: what the code under test
// says on stderr is thrown away.
inline void require(bool agreed, const std::string& otherwise) {
    if (!agreed) {
        std::printf("DISAGREE: %s\n", otherwise.c_str());
        std::fflush(stdout);
        std::abort();
    }
}

// For what another thread does: far longer than it takes, far shorter than libFuzzer waits.
void wait_until(const std::string& what, auto is_so) {
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds{10};
    while (!is_so()) {
        require(std::chrono::steady_clock::now() < limit, what);
        usleep(50);
    }
}

}  // namespace fuzz
