// What the gateway keeps apart from its sockets: pictures for fast and slow viewers, events, the controls.
#include <deque>
#include <thread>

#include <gmock/gmock.h>

#include "gateway/control.h"
#include "gateway/event_log.h"
#include "gateway/video_hub.h"
#include "gateway/video_reader.h"
#include "sim/remote/clip.h"
#include "tests/unit/written_ring.h"

namespace {

using namespace gateway;
using namespace std::chrono_literals;

const TimePoint start{1000s};

// Puts a clip's pictures into a hub, one each 40 ms, again and again.
class Source {
  public:
    explicit Source(VideoHub& hub, const char* clip) : hub_{hub}, clip_{sim::load_clip(clip)} {}

    void add() {
        for (const sim::Bytes& payload : clip_[next_++ % clip_.size()].payloads) {
            assembler_.add(payload, std::chrono::nanoseconds{now.time_since_epoch()}.count());
        }
        assembler_.flush();
        now += 40ms;
    }
    void add(int pictures) {
        for (int i = 0; i < pictures; ++i) {
            add();
        }
    }

    TimePoint now = start;
    std::deque<bool> keys;  // of each fragment, whether it is a key picture

  private:
    VideoHub& hub_;
    std::vector<sim::AccessUnit> clip_;
    std::size_t next_ = 0;
    formats::AccessUnits assembler_{[this](const formats::AccessUnit& unit) {
        keys.push_back(unit.is_key);
        hub_.add(unit);
    }};
};

bool is_header(const SharedBytes& bytes) {
    return bytes && std::string_view{reinterpret_cast<const char*>(bytes->data()), bytes->size()}.substr(
                        4, 4) == "ftyp";
}

// What a viewer is given until there is nothing more.
int take_all(VideoHub& hub, Viewer& viewer, TimePoint now) {
    int count = 0;
    while (hub.next(viewer, now)) {
        ++count;
    }
    return count;
}

TEST(VideoHub, EachViewerBeginsAtTheNewestKeyPictureAndMissesNothing) {
    VideoHub hub;
    Source source{hub, SIM_CLIPS "/1280x720.h264"};
    Viewer early;
    EXPECT_EQ(hub.next(early, source.now), nullptr);
    EXPECT_FALSE(hub.has_next(early));
    EXPECT_TRUE(hub.snapshot().empty());
    source.add(70);
    const auto last_key = std::find(source.keys.rbegin(), source.keys.rend(), true) - source.keys.rbegin();
    Viewer late;
    EXPECT_TRUE(hub.has_next(late));
    EXPECT_TRUE(is_header(hub.next(late, source.now)));
    EXPECT_EQ(take_all(hub, late, source.now), last_key + 1);
    source.add(3);
    EXPECT_EQ(take_all(hub, late, source.now), 3);
    EXPECT_EQ(late.skipped, 0U);
    EXPECT_GT(hub.facts().generation, 0U);
    EXPECT_EQ(hub.facts().size.width, 1280);
    EXPECT_EQ(hub.facts().origin_ns, std::chrono::nanoseconds{start.time_since_epoch()}.count());
}

TEST(VideoHub, WhoCannotFollowSkipsToAKeyPicture) {
    VideoHub hub;
    Source source{hub, SIM_CLIPS "/1280x720.h264"};
    source.add(1);
    Viewer slow;
    take_all(hub, slow, source.now);
    std::uint64_t taken = slow.next;
    for (int round = 0; round < 200; ++round) {
        source.add(20);
        const std::uint64_t skipped = slow.skipped;
        if (hub.next(slow, source.now + VideoHub::newcomers_time) && slow.skipped != skipped) {
            // What follows on a gap is a key picture.
            EXPECT_TRUE(source.keys[static_cast<std::size_t>(slow.next - 2)]) << round;
        }
        EXPECT_GE(slow.next, taken);
        taken = slow.next;
    }
    EXPECT_GT(slow.skipped, 3000U);
}

TEST(VideoHub, AnotherPictureSizeComesWithItsHeader) {
    VideoHub hub;
    Source small{hub, SIM_CLIPS "/1280x720.h264"};
    Source large{hub, SIM_CLIPS "/1920x1080.h264"};
    Viewer viewer;
    small.add(2);
    take_all(hub, viewer, small.now);
    large.now = small.now;
    large.add(2);
    EXPECT_TRUE(is_header(hub.next(viewer, large.now)));
    EXPECT_FALSE(is_header(hub.next(viewer, large.now)));
    EXPECT_EQ(hub.facts().generation, 2U);
    // A newcomer is told of the new size alone.
    Viewer newcomer;
    EXPECT_TRUE(is_header(hub.next(newcomer, large.now)));
    EXPECT_EQ(take_all(hub, newcomer, large.now), 2);
}

TEST(VideoReader, APictureWhosePiecesComeApartIsNotCutShort) {
    WrittenRing ring;
    VideoHub hub;
    VideoReader reader{ring.name, hub, [](bool) {}};
    sim::Bytes whole = sim::load_clip(SIM_CLIPS "/1280x720.h264").front().payloads.front();
    whole.resize(60'000, 'x');  // its slice, longer than one piece
    const auto cut = whole.begin() + 48'000;
    const auto wait_for = [](const auto& condition) {
        for (int i = 0; i < 2'000 && !condition(); ++i) {
            std::this_thread::sleep_for(10ms);
        }
    };
    const TimePoint began = Clock::now();
    ring.write({whole.begin(), cut});
    wait_for([&] { return reader.totals().frames == 1; });
    std::this_thread::sleep_for(200ms);  // as on a machine that is busy
    ring.write({cut, whole.end()});
    if (Clock::now() - began > 400ms) {
        GTEST_SKIP() << "the machine is too busy to tell";
    }
    wait_for([&] { return reader.totals().frames == 2 && !hub.snapshot().empty(); });
    EXPECT_GT(hub.snapshot().size(), whole.size());
}

TEST(EventLog, ANewcomerHearsWhatIsAndOneWhoComesBackWhatWas) {
    EventLog log{100};
    log.add(EventKind::control, "c1");
    log.add(EventKind::command, "old");
    log.add(EventKind::control, "c2");
    log.set_state("s1");
    Listener newcomer;
    EXPECT_TRUE(log.has_news(newcomer, start));
    std::string text;
    log.tell(newcomer, start, text);
    EXPECT_EQ(text, "retry: 1000\n\nevent: control\nid: 103\ndata: c2\n\nevent: state\ndata: s1\n\n");
    EXPECT_FALSE(log.has_news(newcomer, start + 1s));
    EXPECT_TRUE(log.has_news(newcomer, start + EventLog::heartbeat));

    log.add(EventKind::command, "new");
    log.set_state("s2");
    log.set_state("s3");
    text.clear();
    log.tell(newcomer, start, text);
    EXPECT_EQ(text, "event: command\nid: 104\ndata: new\n\nevent: state\ndata: s3\n\n");

    // Of another gateway's ids, or of ones to come, nothing is made up.
    for (const auto& [after, hears_old] :
         {std::pair{101U, true}, std::pair{102U, false}, std::pair{999U, false}}) {
        Listener back;
        back.after = after;
        text.clear();
        log.tell(back, start, text);
        EXPECT_EQ(text.find("data: old") != std::string::npos, hears_old) << after;
        EXPECT_EQ(text.find("data: new") != std::string::npos, after < 104) << after;
    }
    for (std::size_t i = 0; i < 2 * EventLog::most_events; ++i) {
        log.add(EventKind::command, "flood");
    }
    text.clear();
    log.tell(newcomer, start, text);
    EXPECT_LT(text.size(), EventLog::most_events * 40);
}

TEST(EventLog, DatagramsAreToldWholeToWhoWantsThem) {
    EventLog log{0};
    log.add_report("before");
    Listener listener;
    listener.hears_reports = true;
    std::string text;
    log.tell(listener, start, text);
    for (const auto& [bytes, encoded] :
         {std::pair{"f", "Zg=="}, std::pair{"fo", "Zm8="}, std::pair{"foo", "Zm9v"},
          std::pair{"\xFF\xFE\xFD\xFC", "//79/A=="}}) {
        text.clear();
        log.add_report(bytes);
        log.tell(listener, start, text);
        EXPECT_EQ(text, "event: report\ndata: " + std::string{encoded} + "\n\n");
    }
    for (std::size_t i = 0; i < 3 * EventLog::most_reports; ++i) {
        log.add_report("many");
    }
    text.clear();
    log.tell(listener, start, text);
    EXPECT_EQ(text.size(),
              EventLog::most_reports * std::string_view{"event: report\ndata: bWFueQ==\n\n"}.size());
}

TEST(Control, ChangesHandsByWillByForceAndBySilence) {
    Control control;
    const std::string phone = control.take("phone\n\x1b[2J", false, start)->token;
    EXPECT_EQ(control.holder()->name, "phone[2J");
    EXPECT_EQ(phone.size(), 32U);
    EXPECT_EQ(control.take("laptop", false, start + 4s), nullptr);
    EXPECT_FALSE(control.renew("", start));
    EXPECT_TRUE(control.renew(phone, start + 4s));
    EXPECT_FALSE(control.expire(start + 8s));
    const Control::Holder laptop = *control.take("laptop", true, start + 8s);
    EXPECT_NE(laptop.token, phone);
    EXPECT_FALSE(control.is_holder(phone));
    EXPECT_FALSE(control.give(phone));
    EXPECT_FALSE(control.renew(laptop.token, start + 13s));
    EXPECT_FALSE(control.holder());
    EXPECT_FALSE(control.is_holder(""));
    EXPECT_EQ(control.take("", false, start + 13s)->name, "somebody");
}

TEST(Tokens, AreTheSameOrNot) {
    for (const auto& [a, b, same] :
         {std::tuple{"", "", true}, std::tuple{"a", "", false}, std::tuple{"", "a", false},
          std::tuple{"abc", "abc", true}, std::tuple{"abc", "abd", false}, std::tuple{"abab", "ab", false},
          std::tuple{"ab", "abab", false}}) {
        EXPECT_EQ(equal_in_constant_time(a, b), same) << a << b;
    }
}

}  // namespace
