#include "gateway/video_reader.h"

#include <pthread.h>

#include <cstdio>
#include <memory>
#include <utility>

#include "formats/access_units.h"

namespace gateway {
namespace {

using namespace std::chrono_literals;

constexpr int look_ms = 100;
constexpr auto retry_interval = 1s;

struct Closer {
    void operator()(ArdenvueVideo* video) const { ardenvue_video_close(video); }
};

}  // namespace

VideoReader::VideoReader(std::string ring_name, VideoHub& hub, OnFrame on_frame)
    : ring_name_{std::move(ring_name)}, hub_{hub}, on_frame_{std::move(on_frame)}, thread_{[this] {
          run();
      }} {}

VideoReader::~VideoReader() {
    stops_ = true;
    thread_.join();
}

void VideoReader::run() {
    pthread_setname_np(pthread_self(), "video");
    std::string told;
    TimePoint next_try{};
    while (!stops_) {
        passes_ += 1;
        if (Clock::now() < next_try) {
            std::this_thread::sleep_for(50ms);
            continue;
        }
        next_try = Clock::now() + retry_interval;
        ArdenvueVideo* opened = nullptr;
        char reason[ARDENVUE_REASON_SIZE];
        if (ardenvue_video_open(&opened, ring_name_.c_str(), ARDENVUE_START_KEY, reason, sizeof reason) ==
            0) {
            const std::unique_ptr<ArdenvueVideo, Closer> video{opened};
            read(opened);
        } else if (std::exchange(told, reason) != reason) {
            std::fprintf(stderr, "ardenvue-gateway: %s; trying again\n", reason);
        }
    }
}

// The library takes up a ring that is made anew by itself.
void VideoReader::read(ArdenvueVideo* video) {
    bool has_new_header = false;
    formats::AccessUnits pictures{
        [&](const formats::AccessUnit& unit) { has_new_header = hub_.add(unit) || has_new_header; }};
    for (int silence_ms = 0; !stops_;) {
        passes_ += 1;
        ArdenvueFrame frame{};
        if (ardenvue_video_next(video, &frame, look_ms) != 0) {
            silence_ms += look_ms;
            if (silence_ms >= formats::AccessUnits::silence_ms) {
                pictures.flush();
            }
        } else {
            silence_ms = 0;
            if (frame.missed_before > 0 || frame.follows_restart) {
                pictures.drop();
            }
            pictures.add({frame.data, frame.size}, frame.time_ns);
            frames_ += 1;
            bytes_ += frame.size;
            missed_ += frame.missed_before;
            newest_ns_ = frame.time_ns;
            on_frame_(std::exchange(has_new_header, false));
        }
    }
}

}  // namespace gateway
