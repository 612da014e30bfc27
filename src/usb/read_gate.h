// gadgetfs gives an endpoint's file to one caller at a time: whoever wants to clear its halt waits for the
// end of the read in progress, which before the first data may never come. The gate gets the reader out of
// its read, and keeps it out for as long as it is closed. One reader, one closer.
#pragma once

#include <pthread.h>

#include <atomic>

class ReadGate {
  public:
    // Makes the signal that interrupts a read do nothing else. Main thread, before any reader.
    static void prepare_signal();
    // Lets the calling reader thread be interrupted.
    static void accept_signal();

    // The reader is out of its read when this returns, and none goes in until open. No data is lost: a read
    // that was interrupted has taken none.
    void close(pthread_t reader);
    void open() { is_closed_ = false; }

    // The reader, between two tries to pass. Cancellation point.
    void wait_until_open() const;

    // A read is made while this lives; false when the gate is closed.
    class Pass {
      public:
        explicit Pass(ReadGate& gate);
        ~Pass() { gate_.is_reading_ = false; }
        Pass(const Pass&) = delete;
        Pass& operator=(const Pass&) = delete;
        explicit operator bool() const { return granted_; }

      private:
        ReadGate& gate_;
        bool granted_;
    };

  private:
    std::atomic<bool> is_closed_{false};
    std::atomic<bool> is_reading_{false};
};
