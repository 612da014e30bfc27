#include "usb/gadget.h"

#include <cerrno>
#include <new>

#include <gtest/gtest.h>

#include "io/usb_link.h"

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
}  // namespace
