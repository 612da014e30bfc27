#include "platform/diagnostics.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string_view>
#include <utility>

#include "platform/clock.h"
#include "platform/thread.h"

namespace {

constexpr std::size_t queue_capacity = 65'536;
// The longest text, a command's words within a datagram of 10,000 bytes. stdio hands it on in pieces of
// BUFSIZ.
constexpr std::size_t longest_text = 10'240;
constexpr int drain_pauses = 100;  // of a millisecond

// Texts on their way to the stream, and how many did not get into the queue behind them.
struct Batch {
    char bytes[queue_capacity];
    std::size_t size;
    unsigned lost;
};

std::mutex queue_lock;  // held for a copy or a swap, never for a write
// Counts what was enqueued; the writer waits for it to change. (A condition variable of the library would
// wait at exit for its waiter to be gone.)
std::atomic<std::uint32_t> queued;
Batch batches[2];
Batch* filling = &batches[0];  // this and the three below: guarded by queue_lock
bool writing = false;          // a batch is on its way out
bool dropping = false;         // the beginning of the present text was lost, so its rest is lost, too
bool going_on = false;         // the last text taken has no end yet

// The writer thread's own.
unsigned failed = 0;   // lines that the stream did not take
bool cut_off = false;  // the last of them in its middle

unsigned lines_in(std::string_view text) {
    return static_cast<unsigned>(std::count(text.begin(), text.end(), '\n'));
}

// Writes until the stream has taken all, however long it stalls; returns how much it took before it failed.
std::size_t write_all(std::string_view text) {
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t count = write(STDERR_FILENO, text.data() + done, text.size() - done);
        if (count > 0) {
            done += static_cast<std::size_t>(count);
        } else if (count < 0 && errno == EAGAIN) {  // others set the descriptor so
            pollfd room{STDERR_FILENO, POLLOUT, 0};
            poll(&room, 1, -1);
        } else if (count == 0 || errno != EINTR) {
            break;
        }
    }
    return done;
}

// False when there is a loss to tell of and the stream does not take that line either.
bool tell_losses() {
    if (failed == 0) {
        return true;
    }
    char line[64];
    const int size =
        std::snprintf(line, sizeof line, "%s%u diagnostic lines lost\n", cut_off ? "\n" : "", failed);
    if (write_all({line, static_cast<std::size_t>(size)}) < static_cast<std::size_t>(size)) {
        return false;
    }
    failed = 0;
    cut_off = false;
    return true;
}

void write_out(const Batch& batch) {
    const std::string_view text{batch.bytes, batch.size};
    const std::size_t done = tell_losses() ? write_all(text) : 0;
    if (done < text.size()) {
        failed += lines_in(text.substr(done));
        cut_off = cut_off || (done > 0 && text[done - 1] != '\n');
    }
    failed += batch.lost;
    tell_losses();
}

bool is_empty(const Batch& batch) {
    return batch.size == 0 && batch.lost == 0;
}

// What has been queued, for the writer, which empties it; null when there is nothing. The writer is done with
// the one that it took before.
Batch* take_batch() {
    const std::lock_guard guard{queue_lock};
    writing = !is_empty(*filling);
    return writing ? std::exchange(filling, filling == &batches[0] ? &batches[1] : &batches[0]) : nullptr;
}

void* diagnostics_thread(void*) {
    for (;;) {
        const std::uint32_t seen = queued;
        Batch* const batch = take_batch();
        if (batch == nullptr) {
            queued.wait(seen);
            continue;
        }
        write_out(*batch);
        batch->size = 0;
        batch->lost = 0;
    }
}

// Of the stream that stands for stderr. Takes a text, or a piece of one that stdio could not hand on whole,
// or drops it.
ssize_t enqueue(void* /*cookie*/, const char* text, std::size_t size) {
    const bool ends = size > 0 && text[size - 1] == '\n';
    const std::lock_guard guard{queue_lock};
    Batch& batch = *filling;
    const std::size_t needed = ends || going_on ? size : size + longest_text;
    if (dropping || needed > sizeof batch.bytes - batch.size || (batch.lost > 0 && !going_on)) {
        batch.lost += ends ? 1 : 0;
        dropping = !ends;
    } else {
        std::memcpy(batch.bytes + batch.size, text, size);
        batch.size += size;
        going_on = !ends;
    }
    ++queued;
    queued.notify_one();
    return static_cast<ssize_t>(size);
}

bool is_drained() {
    const std::lock_guard guard{queue_lock};
    return !writing && is_empty(*filling);
}

void open_standard_descriptors() {
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        if (fcntl(fd, F_GETFD) < 0) {
            [[maybe_unused]] const int opened =
                open("/dev/null", O_RDWR);  // the lowest one free, so this one
        }
    }
}

void outlive_readers() {
    struct sigaction action {};
    action.sa_handler = [](int) {};  // and not SIG_IGN, which exec would hand down
    action.sa_flags = SA_RESTART;
    sigaction(SIGPIPE, &action, nullptr);
}

}  // namespace

void start_diagnostics() {
    open_standard_descriptors();
    outlive_readers();
    std::FILE* const queue =
        fopencookie(nullptr, "w", {.read = nullptr, .write = enqueue, .seek = nullptr, .close = nullptr});
    pthread_t thread{};
    if (queue == nullptr || start_thread(diagnostics_thread, thread, "diagnostics") != 0) {
        return;
    }
    std::setvbuf(queue, nullptr, _IONBF, 0);
    stderr = queue;
}

void drain_diagnostics() {
    for (int pause = 0; pause < drain_pauses && !is_drained(); ++pause) {
        sleep_ms(1);
    }
}
