// Viewers of a fragmented MP4 over HTTP or plain TCP, as light as they can be: they count the bytes and know
// each picture by its end, without decoding it.
//   gateway_viewers CLIP PORT PATH FOLDER SECONDS COUNT [stalled] [slow]
// PATH is what is asked for by HTTP, - for a server of plain TCP. One of the viewers may be told to read
// nothing after its first two seconds (stalled), and one to read 1 Mbit/s (slow). Each writes a file
// FOLDER/NUMBER.pictures, a line a picture: seconds of CLOCK_MONOTONIC at which it was there, and its number
// in the clip, or - when it is none of the clip's. Prints a line a viewer: number, kind, bytes, seconds,
// whether the server ended it; and the processor time of all.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "formats/ipv4.h"
#include "platform/file_descriptor.h"
#include "sim/remote/clip.h"

namespace {

constexpr double bits_of_slow = 1e6;
constexpr double stalls_after = 2;
constexpr int slow_receive_buffer = 16'384;  // the kernel's would hold half a minute of it

enum class Kind { prompt, stalled, slow };
constexpr std::array kind_names{"prompt", "stalled", "slow"};

double now() {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

// Pictures by their last bytes, which no two of a clip share.
class Pictures {
  public:
    explicit Pictures(const std::string& path) {
        const std::vector<sim::AccessUnit> clip = sim::load_clip(path);
        for (std::size_t number = 0; number < clip.size(); ++number) {
            std::string all;
            for (const sim::Bytes& payload : clip[number].payloads) {
                all.append(payload.begin(), payload.end());
            }
            is_usable_ = numbers_.emplace(end_of(all), number).second && is_usable_;
        }
        is_usable_ = is_usable_ && !clip.empty();
    }

    bool is_usable() const { return is_usable_; }

    // The number, or "-".
    std::string name(std::string_view bytes) const {
        const auto found = numbers_.find(end_of(bytes));
        return found == numbers_.end() ? "-" : std::to_string(found->second);
    }

  private:
    // Zero bytes at the end belong to no NAL unit (ITU-T H.264, B.1.1).
    static std::string end_of(std::string_view bytes) {
        const std::size_t end = bytes.find_last_not_of('\0') + 1;
        return std::string{
            bytes.substr(end - std::min(end, std::size_t{24}), std::min(end, std::size_t{24}))};
    }

    std::map<std::string, std::size_t> numbers_;
    bool is_usable_ = true;
};

// The body of a response, without the sizes of its chunks (RFC 9112, 7.1).
class Body {
  public:
    explicit Body(bool is_http) : in_{is_http ? In::head : In::plain} {}

    // Appends what of the bytes is body. False when the response is not the one wished for.
    bool add(std::string_view bytes, std::string& out) {
        while (!bytes.empty()) {
            if (in_ == In::plain || in_ == In::chunk) {
                const std::size_t count = in_ == In::plain ? bytes.size() : std::min(bytes.size(), left_);
                out.append(bytes.substr(0, count));
                bytes.remove_prefix(count);
                left_ -= in_ == In::plain ? 0 : count;
                in_ = in_ == In::chunk && left_ == 0 ? In::end_of_chunk : in_;
                continue;
            }
            line_ += bytes.front();
            bytes.remove_prefix(1);
            if (in_ == In::head ? line_.ends_with("\r\n\r\n") : line_.ends_with("\r\n")) {
                if (!take_line()) {
                    return false;
                }
                line_.clear();
            }
        }
        return true;
    }

  private:
    enum class In { plain, head, size, chunk, end_of_chunk };

    bool take_line() {
        switch (in_) {
            case In::head:
                in_ = line_.find("hunked") == std::string::npos ? In::plain : In::size;
                return line_.starts_with("HTTP/1.1 200");
            case In::size:
                in_ = In::chunk;
                return std::from_chars(line_.data(), line_.data() + line_.size(), left_, 16).ec ==
                           std::errc{} &&
                       left_ > 0;
            default:
                in_ = In::size;
                return line_ == "\r\n";
        }
    }

    In in_;
    std::string line_;
    std::size_t left_ = 0;
};

// Finds the pictures in a stream of boxes (ISO/IEC 14496-12, 4.2), from the next fragment on.
class Boxes {
  public:
    // Calls take with each mdat's content.
    template <typename Take>
    void cut(std::string& bytes, Take take) {
        if (!is_in_step_) {
            const std::size_t type = bytes.find("moof");
            if (type == std::string::npos || type < 4) {
                return;
            }
            bytes.erase(0, type - 4);
            is_in_step_ = true;
        }
        std::size_t begin = 0;
        while (bytes.size() - begin >= 8) {
            std::size_t size = 0;
            for (std::size_t i = 0; i < 4; ++i) {
                size = size << 8 | static_cast<std::uint8_t>(bytes[begin + i]);
            }
            if (size < 8 || bytes.size() - begin < size) {
                break;
            }
            const std::string_view box{bytes.data() + begin, size};
            if (box.substr(4, 4) == "mdat") {
                take(box.substr(8));
            }
            begin += size;
        }
        bytes.erase(0, begin);
    }

  private:
    bool is_in_step_ = false;
};

struct Viewer {
    Kind kind;
    FileDescriptor socket;
    Body body;
    Boxes boxes{};
    std::string bytes{};
    std::string log{};
    std::size_t received = 0;
    double began = 0;
    double ended = 0;  // 0: by us
};

bool connect_to(Viewer& viewer, std::uint16_t port, const std::string& path) {
    viewer.socket = FileDescriptor{::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    if (viewer.kind == Kind::slow) {
        setsockopt(viewer.socket.get(), SOL_SOCKET, SO_RCVBUF, &slow_receive_buffer,
                   sizeof slow_receive_buffer);
    }
    const sockaddr_in address = formats::loopback(port);
    viewer.began = now();
    const std::string request =
        "GET " + path + " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) + "\r\n\r\n";
    return connect(viewer.socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
           (path == "-" || write(viewer.socket.get(), request.data(), request.size()) ==
                               static_cast<ssize_t>(request.size()));
}

// Whether it reads now.
bool is_due(const Viewer& viewer, double time) {
    switch (viewer.kind) {
        case Kind::stalled:
            return time < viewer.began + stalls_after;
        case Kind::slow:
            return static_cast<double>(viewer.received) * 8 < bits_of_slow * (time - viewer.began);
        default:
            return true;
    }
}

// Takes what is there. False at the end of the connection, or of what makes sense.
bool read_some(Viewer& viewer, const Pictures& pictures) {
    static std::vector<char> buffer(262'144);
    const std::size_t most = viewer.kind == Kind::slow ? 4'096 : buffer.size();
    const ssize_t count = recv(viewer.socket.get(), buffer.data(), most, MSG_DONTWAIT);
    if (count <= 0) {
        return count < 0 && errno == EAGAIN;
    }
    viewer.received += static_cast<std::size_t>(count);
    const double time = now();
    if (!viewer.body.add({buffer.data(), static_cast<std::size_t>(count)}, viewer.bytes)) {
        return false;
    }
    viewer.boxes.cut(viewer.bytes, [&](std::string_view picture) {
        std::array<char, 32> seconds{};
        std::snprintf(seconds.data(), seconds.size(), "%.6f ", time);
        viewer.log += seconds.data() + pictures.name(picture) + '\n';
    });
    return true;
}

void watch(std::span<Viewer> viewers, const Pictures& pictures, double until) {
    std::vector<pollfd> polled(viewers.size());
    while (now() < until) {
        const double time = now();
        for (std::size_t i = 0; i < viewers.size(); ++i) {
            const bool is_open = viewers[i].ended == 0;
            const short events = is_open && is_due(viewers[i], time) ? POLLIN : 0;
            polled[i] = {is_open ? viewers[i].socket.get() : -1, events, 0};
        }
        poll(polled.data(), polled.size(), 5);
        for (std::size_t i = 0; i < viewers.size(); ++i) {
            if (polled[i].revents != 0 && !read_some(viewers[i], pictures)) {
                viewers[i].ended = now();
            }
        }
    }
}

bool write_log(const std::string& path, const std::string& text) {
    FILE* const file = std::fopen(path.c_str(), "we");
    if (file == nullptr) {
        return false;
    }
    const bool is_written = std::fwrite(text.data(), 1, text.size(), file) == text.size();
    return std::fclose(file) == 0 && is_written;
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> words{argv + 1, argv + argc};
    if (words.size() < 6) {
        std::fputs("gateway_viewers CLIP PORT PATH FOLDER SECONDS COUNT [stalled] [slow]\n", stderr);
        return 64;
    }
    const Pictures pictures{words[0]};
    if (!pictures.is_usable()) {
        std::fprintf(stderr, "%s: no clip of pictures that differ\n", words[0].c_str());
        return 2;
    }
    std::vector<Viewer> viewers;
    const auto count = static_cast<std::size_t>(std::atoi(words[5].c_str()));
    const bool has_stalled = std::find(words.begin() + 6, words.end(), kind_names[1]) != words.end();
    const bool has_slow = std::find(words.begin() + 6, words.end(), kind_names[2]) != words.end();
    for (std::size_t i = 0; i < count; ++i) {
        const bool stalls = has_stalled && i + 1 == count;
        const bool is_slow = has_slow && i + 1 + (has_stalled ? 1 : 0) == count;
        viewers.push_back({stalls    ? Kind::stalled
                           : is_slow ? Kind::slow
                                     : Kind::prompt,
                           {},
                           Body{words[2] != "-"}});
        if (!connect_to(viewers.back(), static_cast<std::uint16_t>(std::atoi(words[1].c_str())), words[2])) {
            std::perror("gateway_viewers: connect");
            return 2;
        }
    }
    watch(viewers, pictures, now() + std::atof(words[4].c_str()));
    const double end = now();
    for (std::size_t i = 0; i < viewers.size(); ++i) {
        const Viewer& viewer = viewers[i];
        if (!write_log(words[3] + "/" + std::to_string(i) + ".pictures", viewer.log)) {
            std::perror("gateway_viewers: log");
            return 2;
        }
        std::printf("%zu %s %zu %.3f %.6f %s\n", i, kind_names[static_cast<std::size_t>(viewer.kind)],
                    viewer.received, (viewer.ended != 0 ? viewer.ended : end) - viewer.began, viewer.began,
                    viewer.ended != 0 ? "ended" : "open");
    }
    rusage used{};
    getrusage(RUSAGE_SELF, &used);
    std::printf("processor %.3f\n",
                static_cast<double>(used.ru_utime.tv_sec + used.ru_stime.tv_sec) +
                    static_cast<double>(used.ru_utime.tv_usec + used.ru_stime.tv_usec) / 1e6);
    return 0;
}
