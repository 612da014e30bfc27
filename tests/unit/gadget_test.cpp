#include "usb/gadget.h"

#include <cerrno>
#include <new>

#include <gtest/gtest.h>

#include "io/usb_link.h"
#include "platform/thread.h"

// ThreadSanitizer's own allocator can't be replaced; the others can.
#ifndef __SANITIZE_THREAD__

// The receive buffer's allocation fails while this is set.
static bool memory_is_short = false;

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return memory_is_short && size == rx_buffer_size ? nullptr : ::operator new[](size);
}

TEST(Gadget, SaysWhenMemoryIsShort) {
    testing::internal::CaptureStderr();
    memory_is_short = true;
    const int result = gadget_open(0x18D1, 0x2D00);
    memory_is_short = false;
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Couldn't allocate memory\n");
    EXPECT_EQ(result, -1);
    EXPECT_EQ(usb_link().handle, nullptr);
}

#endif

namespace {
TEST(Gadget, HandlesWithoutADeviceAreRefused) {
    errno = 0;
    EXPECT_EQ(usb_gadget_open(nullptr), nullptr);
    EXPECT_EQ(errno, EINVAL);
    const usb_gadget_device nothing{};
    errno = 0;
    EXPECT_EQ(usb_gadget_open(&nothing), nullptr);
    EXPECT_EQ(errno, EINVAL);
    errno = 0;
    EXPECT_EQ(usb_gadget_close(nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
    usb_gadget_endpoint_close(nullptr);
}

TEST(Gadget, NothingIsWrittenWithoutAnEndpoint) {
    const std::uint8_t byte = 0x55;
    usb_link().streaming = 1;
    EXPECT_EQ(usb_write_locked({&byte, 1}), 0);
    usb_link().streaming = 0;
}

// A host that selects a configuration and takes it back, or goes, in the same moment: the reader that has
// just been started finds its endpoint closed. That is no failed read, which would end the process.
TEST(Gadget, AReaderWhoseEndpointWasTakenAwayWaitsToBeCancelled) {
    usb_gadget_handle handle{};
    usb_gadget_endpoint endpoint{};
    endpoint.handle = &handle;
    endpoint.fd = -1;
    UsbLink& link = usb_link();
    std::uint8_t buffer[usb_read_size];
    ASSERT_EQ(fair_lock_init(link.lock), 0);
    link.handle = &handle;
    link.rx_buffer = buffer;
    link.ep_out = &endpoint;
    pthread_t reader{};
    ASSERT_EQ(start_thread(usbRead_thread, reader, "usb-reader"), 0);
    std::uint32_t reads = 0;
    while (reads == 0) {
        pthread_mutex_lock(&link.lock.mutex);
        reads = link.lock.now_serving;
        pthread_mutex_unlock(&link.lock.mutex);
    }
    void* result = nullptr;
    pthread_cancel(reader);
    pthread_join(reader, &result);
    EXPECT_EQ(result, PTHREAD_CANCELED);
    EXPECT_EQ(reads, 1);
    link.rx_buffer = nullptr;
    link.ep_out = nullptr;
    link.handle = nullptr;
    fair_lock_destroy(link.lock);
}
}  // namespace
