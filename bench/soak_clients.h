// Those who use the service at once during a soak, each a thread of its own from its construction to end().
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <mutex>
#include <random>
#include <span>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "ardenvue/client.h"
#include "bench/campaign.h"
#include "ctl/relay_client.h"
#include "ctl/video_feed.h"
#include "formats/stream_reader.h"
#include "sim/board/board.h"
#include "sim/board/loopback.h"

namespace campaign {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto command_interval = 200ms;
constexpr auto misbehaviour_interval = 20ms;
constexpr auto sample_interval = 1s;

// Each becomes one packet, whose meaning the camera tells in the same words.
constexpr const char* commands[] = {"iso 400",  "shutter 1/500", "ev -0.3",
                                    "iso 1600", "shutter 1/60",  "iso 3200"};

// The commands on their way: sent, and not yet at the camera. The service keeps their order.
class Commands {
  public:
    void sent(const std::string& meaning) {
        const std::lock_guard lock{mutex_};
        under_way_.push_back({meaning, Clock::now()});
        ++sent_;
    }
    void arrived(const std::string& meaning) {
        const std::lock_guard lock{mutex_};
        for (auto at = under_way_.begin(); at != under_way_.end(); ++at) {
            if (at->meaning == meaning) {
                milliseconds_.push_back(
                    std::chrono::duration<double, std::milli>(Clock::now() - at->time).count());
                lost_ += static_cast<std::uint64_t>(at - under_way_.begin());
                under_way_.erase(under_way_.begin(), at + 1);
                return;
            }
        }
    }
    std::uint64_t sent() const { return sent_; }
    std::uint64_t lost() {
        const std::lock_guard lock{mutex_};
        return lost_ + under_way_.size();
    }
    std::vector<double> milliseconds() {
        const std::lock_guard lock{mutex_};
        return milliseconds_;
    }

  private:
    struct Command {
        std::string meaning;
        Clock::time_point time;
    };
    std::mutex mutex_;
    std::deque<Command> under_way_;
    std::vector<double> milliseconds_;
    std::uint64_t lost_ = 0;
    std::atomic<std::uint64_t> sent_{0};
};

// The main application: reads every frame of the ring, takes in the status, sends the commands, and looks at
// the service's figures.
class Application {
  public:
    Application(ArdenvueLink* link, const sim::Board& board, Commands& under_way)
        : link_{link},
          under_way_{under_way},
          process_{board.process()},
          video_{board.shm_name(ardenvue::frame_ring_name), board.directory() + "/run"} {
        if (!video_.open()) {
            throw std::runtime_error{video_.problem()};
        }
        thread_ = std::thread{[this] { run(); }};
    }
    ~Application() { end(); }

    std::uint64_t frames_read() const { return frames_read_; }
    std::uint16_t command_port() const { return command_port_; }
    void send_no_more() { sending_ = false; }
    void end() {
        ending_ = true;
        if (thread_.joinable()) {
            thread_.join();
        }
    }

    // Once it has ended.
    const ctl::VideoFeed& video() const { return video_; }
    const std::vector<ProcessFigures>& samples() const { return samples_; }

  private:
    void run() {
        auto command = Clock::now() + 1s;
        auto sample = Clock::now();
        while (!ending_) {
            ardenvue_link_wait(link_, ARDENVUE_ANY_REPORT, 5);
            video_.poll();
            frames_read_ = video_.totals().frames;
            const std::string name = ardenvue_link_service(link_);
            if (command_port_ == 0 && !name.empty()) {
                command_port_ = static_cast<std::uint16_t>(std::stoi(name.substr(name.find(':') + 1)));
            }
            if (sending_ && command_port_ != 0 && Clock::now() >= command) {
                command += command_interval;
                const char* const words = commands[under_way_.sent() % std::size(commands)];
                under_way_.sent(words);
                ardenvue_send(link_, words);
            }
            if (sending_ && Clock::now() >= sample) {
                sample += sample_interval;
                samples_.push_back(figures_of(process_));
            }
        }
    }

    ArdenvueLink* link_;
    Commands& under_way_;
    const pid_t process_;
    ctl::VideoFeed video_;
    std::vector<ProcessFigures> samples_;
    std::atomic<std::uint64_t> frames_read_{0};
    std::atomic<std::uint16_t> command_port_{0};
    std::atomic<bool> sending_{true}, ending_{false};
    std::thread thread_;
};

// A client of the relay that reads all it gets.
class Laptop {
  public:
    explicit Laptop(std::uint16_t port) {
        if (!relay_.connect("127.0.0.1", port)) {
            throw std::runtime_error{"the relay does not listen"};
        }
        thread_ = std::thread{[this] { run(); }};
    }
    ~Laptop() { end(); }
    void end() {
        ending_ = true;
        if (thread_.joinable()) {
            thread_.join();
        }
    }

    std::uint64_t bytes() const { return bytes_; }
    std::uint64_t frames() const { return frames_; }
    bool dropped() const { return dropped_; }
    // Once it has ended.
    const formats::VideoTally& video() const { return video_; }

  private:
    void run() {
        std::span<const std::uint8_t> bytes;
        while (!ending_) {
            switch (relay_.receive(bytes, Clock::now() + 100ms)) {
                case ctl::RelayClient::Outcome::bytes:
                    bytes_ += bytes.size();
                    reader_.add(bytes);
                    break;
                case ctl::RelayClient::Outcome::nothing:
                    break;
                case ctl::RelayClient::Outcome::closed:
                    dropped_ = true;
                    return;
            }
        }
    }

    ctl::RelayClient relay_;
    formats::VideoTally video_;
    formats::StreamReader reader_{[this](formats::FrameType type, std::span<const std::uint8_t> payload) {
        if (type == formats::FrameType::video) {
            video_.add(payload);
            frames_ = video_.frames;
        }
    }};
    std::atomic<std::uint64_t> bytes_{0}, frames_{0};
    std::atomic<bool> ending_{false}, dropped_{false};
    std::thread thread_;
};

// Sends to the command port what no main application would, but for the empty datagram, which ends the
// service.
class Misbehaving {
  public:
    explicit Misbehaving(const Application& application)
        : thread_{[this, &application] {
              for (; !ending_; std::this_thread::sleep_for(misbehaviour_interval)) {
                  if (application.command_port() != 0) {
                      sent_ += socket_.send(datagram(), application.command_port());
                  }
              }
          }} {}
    ~Misbehaving() { end(); }
    void end() {
        ending_ = true;
        if (thread_.joinable()) {
            thread_.join();
        }
    }
    std::uint64_t sent() const { return sent_; }

  private:
    sim::Bytes datagram() {
        const std::string whole = R"(!{"cmd":"gimbal","param":"position","value":"normal"})";
        switch (random_() % 6) {
            case 0:
                return bytes_of(R"(!{"cmd":"iso","param":400,]})");
            case 1:
                return bytes_of(whole.substr(0, 1 + random_() % (whole.size() - 1)));
            case 2:
                return bytes_of("!{\"cmd\":\"" + std::string(9'000 + random_() % 20'000, 'x') + "\"}");
            case 3:
                return bytes_of("!{\"cmd\":\"" + word() + "\",\"param\":\"" + word() + "\"}");
            case 4:
                return bytes_of("!" + std::string(5'000, '['));
            default:
                return noise();
        }
    }
    static sim::Bytes bytes_of(const std::string& text) { return {text.begin(), text.end()}; }
    std::string word() {
        std::string word(1 + random_() % 12, 'a');
        for (char& letter : word) {
            letter = static_cast<char>('a' + random_() % 26);
        }
        return word + '_';  // so that it is no command's
    }
    sim::Bytes noise() {
        sim::Bytes bytes(1 + random_() % 200);
        for (std::uint8_t& byte : bytes) {
            byte = static_cast<std::uint8_t>(random_());
        }
        return bytes;
    }

    sim::UdpSocket socket_;
    std::mt19937 random_{2};
    std::uint64_t sent_ = 0;
    std::atomic<bool> ending_{false};
    std::thread thread_;
};

}  // namespace campaign
