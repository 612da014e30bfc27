// The example that reads the ring, beside a writer that clears, restarts with a burst and laps it: what it
// writes is what a decoder takes from the first byte on.
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <filesystem>

#include "ardenvue.h"
#include "sim/aircraft/packet.h"
#include "sim/remote/clip.h"
#include "tests/blackbox/harness.h"

namespace {

using namespace blackbox;
namespace fs = std::filesystem;

// The clip over and over, payload by payload, on its way to the service.
class Stream {
  public:
    explicit Stream(Service& service) : service_{service} {
        for (const sim::AccessUnit& unit : sim::load_clip(SIM_CLIPS "/1280x720.h264")) {
            payloads_.insert(payloads_.end(), unit.payloads.begin(), unit.payloads.end());
        }
    }
    void send(int count) {
        Bytes frames;
        for (int i = 0; i < count; ++i) {
            last_ = payloads_[next_++ % payloads_.size()];
            const Bytes frame = sim::encode_frame(formats::FrameType::video, last_);
            frames.insert(frames.end(), frame.begin(), frame.end());
        }
        ASSERT_TRUE(service_.send_frames(frames));
    }
    void begin_anew() { next_ = 0; }
    Bytes first(std::size_t count) const {
        Bytes joined;
        for (std::size_t i = 0; i < count; ++i) {
            joined.insert(joined.end(), payloads_[i].begin(), payloads_[i].end());
        }
        return joined;
    }
    std::size_t size() const { return payloads_.size(); }
    const Bytes& last() const { return last_; }

  private:
    Service& service_;
    std::vector<Bytes> payloads_;
    std::size_t next_ = 0;
    Bytes last_;
};

class Dump {
  public:
    explicit Dump(const std::string& ring) {
        const std::string command =
            "exec " EXAMPLE_RING_DUMP " " + ring + " 1000000 >" + file_.string() + " 2>" + said_.string();
        std::string shell = "/bin/sh";
        std::string option = "-c";
        std::string text = command;
        char* arguments[] = {shell.data(), option.data(), text.data(), nullptr};
        EXPECT_EQ(posix_spawn(&process_, "/bin/sh", nullptr, nullptr, arguments, environ), 0);
    }
    ~Dump() {
        end();
        fs::remove(file_);
        fs::remove(said_);
    }
    Dump(const Dump&) = delete;
    Dump& operator=(const Dump&) = delete;

    void signal(int number) const { kill(process_, number); }
    void end() {
        if (process_ > 0) {
            signal(SIGKILL);
            waitpid(std::exchange(process_, -1), nullptr, 0);
        }
    }
    Bytes bytes() const { return contents(file_); }
    std::string said() const {
        const Bytes text = contents(said_);
        return {text.begin(), text.end()};
    }
    const fs::path& file() const { return file_; }

    // Waits until it has written the stream up to its last payload.
    bool has_caught_up_with(const Stream& stream) const {
        return eventually([&] {
            const Bytes written = bytes();
            const Bytes& tail = stream.last();
            return written.size() >= tail.size() && std::equal(tail.rbegin(), tail.rend(), written.rbegin());
        });
    }

  private:
    const fs::path file_ = fs::temp_directory_path() / ("ring_dump-" + std::to_string(getpid()) + ".h264");
    const fs::path said_ = file_.string() + ".said";
    pid_t process_ = -1;
};

TEST(RingDump, WritesWhatADecoderTakesFromTheFirstByteOn) {
    Service service;
    ASSERT_NO_FATAL_FAILURE(service.stream(Milliseconds{20}));
    Stream stream{service};
    ASSERT_NO_FATAL_FAILURE(stream.send(7));
    Dump dump{service.board().shm_name(ardenvue::frame_ring_name)};
    const int round = static_cast<int>(stream.size());
    // In the middle of the clip: it waits for the next parameter set.
    ASSERT_TRUE(eventually([&] {
        stream.send(3);
        return !dump.bytes().empty();
    }));
    ASSERT_TRUE(dump.has_caught_up_with(stream));

    const auto ring = service.board().shared_memory(ardenvue::frame_ring_name);
    ASSERT_TRUE(ring);
    ring->data.get()[0] = 1;
    for (int i = 0; i < round; i += 10) {
        ASSERT_NO_FATAL_FAILURE(stream.send(10));
    }
    ASSERT_TRUE(eventually([&] { return dump.said().find("cleared") != std::string::npos; })) << dump.said();
    ASSERT_TRUE(dump.has_caught_up_with(stream)) << dump.said();

    service.stop_keep_alive();
    service.cable().pull();
    ASSERT_EQ(service.end_code(), 3);
    service.start();
    ASSERT_NO_FATAL_FAILURE(service.stream(Milliseconds{20}));
    const std::size_t before = dump.bytes().size();
    stream.begin_anew();
    ASSERT_NO_FATAL_FAILURE(stream.send(60));
    ASSERT_TRUE(dump.has_caught_up_with(stream)) << dump.said();
    const Bytes written = dump.bytes();
    EXPECT_EQ(Bytes(written.begin() + static_cast<std::ptrdiff_t>(before), written.end()), stream.first(60));

    dump.signal(SIGSTOP);
    for (int i = 0; i < 300; i += 30) {
        ASSERT_NO_FATAL_FAILURE(stream.send(30));
    }
    dump.signal(SIGCONT);
    ASSERT_TRUE(eventually([&] { return dump.said().find("missed 2") != std::string::npos; })) << dump.said();
    ASSERT_NO_FATAL_FAILURE(stream.send(round));
    ASSERT_TRUE(dump.has_caught_up_with(stream)) << dump.said();
    dump.end();

    std::FILE* const decoder =
        popen(("ffmpeg -v error -i " + dump.file().string() + " -f null - 2>&1").c_str(), "r");
    std::string complaints;
    for (int character = std::fgetc(decoder); character != EOF; character = std::fgetc(decoder)) {
        complaints += static_cast<char>(character);
    }
    EXPECT_EQ(pclose(decoder), 0);
    EXPECT_EQ(complaints, "");
}

}  // namespace
