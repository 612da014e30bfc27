// A USB peripheral through the kernel's gadgetfs, mounted on /dev/gadget: a static description of a device
// becomes one that hosts can enumerate, and its data endpoints can be read and written with plain blocking
// calls. What flows over them is not known here.
//
// Descriptors and requests are those of USB 2.0, chapter 9; the files and events are those of
// linux/usb/gadgetfs.h. Failures are reported by result, with errno set. The layer takes no locks: events,
// and with them every change of the list of endpoints, belong to one thread, while other threads may read and
// write the endpoints they hold.
#pragma once

#include <linux/usb/ch9.h>
#include <sys/types.h>

#include <atomic>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

struct usb_gadget_string {
    std::uint8_t id;  // the index that descriptors refer to
    const char* s;    // UTF-8
};

struct usb_gadget_strings {
    std::uint16_t language;            // for example 0x0409, English (United States)
    const usb_gadget_string* strings;  // ended by an entry without text
};

// The caller's description. It is referred to, never copied or changed, so it must outlive the handle. Both
// lists end with a null entry and begin with a configuration descriptor; its total length is filled in on the
// way out.
struct usb_gadget_device {
    const usb_device_descriptor* device;
    const usb_descriptor_header* const* config;     // full speed
    const usb_descriptor_header* const* hs_config;  // high speed, or null
    const usb_gadget_strings* strings;
};

enum class usb_gadget_event_kind : std::uint32_t {
    endpoint_enabled,   // an endpoint file has been opened for the host's configuration
    endpoint_disabled,  // the host deselected the configuration; the record is closed, the file right after
    connected,
    disconnected,
    suspended,
};

struct usb_gadget_event {
    usb_gadget_event_kind kind;
    std::uint32_t number;  // endpoint number, of the two endpoint kinds only
};

struct usb_gadget_handle;
using usb_gadget_event_cb = void (*)(usb_gadget_handle* handle, const usb_gadget_event* event,
                                     void* argument);
using usb_gadget_hold_cb = void (*)(usb_gadget_handle* handle, bool hold);

// One endpoint file. A record stays valid after its file was closed (fd is -1 then, its name empty) until
// usb_gadget_close, so a thread that still holds it gets a failure, never a released record.
struct usb_gadget_endpoint {
    char name[NAME_MAX + 1];  // of the file in /dev/gadget; byte by byte through platform/relaxed.h
    const usb_endpoint_descriptor* desc;
    const usb_endpoint_descriptor* hs_desc;  // of the same number, or null
    usb_gadget_handle* handle;
    std::atomic<std::int32_t> fd;
};

struct usb_gadget_handle {
    std::unique_ptr<usb_gadget_endpoint> ep0;  // the controller's file
    const usb_gadget_device* device;
    std::vector<usb_gadget_endpoint*> endpoints;  // the open data endpoints, newest first
    usb_gadget_event_cb event_cb;
    void* event_arg;
    usb_gadget_hold_cb hold_cb;
    std::int32_t debug_level;
    std::atomic<std::int32_t> speed;  // the kernel's code of the connection's speed, 0 while there is none
    std::vector<std::unique_ptr<usb_gadget_endpoint>> records;  // every data endpoint since the opening
};

// Writes the device's configuration to the first file of /dev/gadget that is a known device controller: from
// then on a host sees the device. Returns null on failure; errno is EINVAL when the description lacks its
// device descriptor or its full-speed list.
usb_gadget_handle* usb_gadget_open(const usb_gadget_device* device);

// Closes all files and releases the handle with every endpoint it ever had. Returns 0; -1 with EINVAL without
// a handle. No other thread may hold one of its endpoints any more.
int usb_gadget_close(usb_gadget_handle* handle);

// The callback hears of events on the thread that handles them; null for none.
void usb_gadget_set_event_cb(usb_gadget_handle* handle, usb_gadget_event_cb callback, void* argument);

// gadgetfs lets nobody clear an endpoint's halt while a transfer waits on it. The callback is asked, on the
// thread that handles events, to see to it that no thread is inside a transfer, with true before halts are
// cleared and false after it; null for none.
void usb_gadget_set_hold_cb(usb_gadget_handle* handle, usb_gadget_hold_cb callback);

// Diagnostic lines are printed at level 2 and above; 0 at first.
void usb_gadget_set_debug_level(usb_gadget_handle* handle, std::int32_t level);

// The file to poll for events.
int usb_gadget_control_fd(const usb_gadget_handle* handle);

// Reads up to five pending events and handles them: answers the host's control requests, opens and closes
// endpoint files as it selects configurations, tells the callback. Returns the number of events, negative
// when none could be read. Always the same thread; blocks when the control file is not readable.
int usb_gadget_handle_events(usb_gadget_handle* handle);

// Number 0 gives the control endpoint; else the newest open endpoint with that number, whatever its
// direction; null when there is none. The thread of usb_gadget_handle_events.
usb_gadget_endpoint* usb_gadget_find_endpoint(const usb_gadget_handle* handle, std::uint32_t number);

// Closes an endpoint's file and takes it off the list. Null, and one already closed, are left alone. Not
// beside usb_gadget_handle_events.
void usb_gadget_endpoint_close(usb_gadget_endpoint* endpoint);

// One blocking transfer of at most one packet: 512 bytes at high speed and 64 else, with the usual bulk
// descriptors. Return the bytes moved, or -1; errno is EINVAL for a closed endpoint and for a length above
// the packet size, EINTR (nothing moved) when a signal came. Any thread; cancellation points.
ssize_t usb_gadget_endpoint_read(usb_gadget_endpoint* endpoint, void* buffer, std::size_t length);
ssize_t usb_gadget_endpoint_write(usb_gadget_endpoint* endpoint, const void* data, std::size_t length);

// Builds the string descriptor (USB 2.0, 9.6.7) of the text with the given id, at most 126 UTF-16 units, in a
// buffer of at least 256 bytes; id 0 gives the language. Returns its length, or -EINVAL for an unknown id and
// for text that is not UTF-8 of up to three bytes a character.
int usb_gadget_get_string(const usb_gadget_strings* strings, std::uint8_t id, std::uint8_t* buffer);

// Prints and flushes a diagnostic line on the standard error stream, from debug level 2 on, whatever its own
// level.
[[gnu::format(printf, 3, 4)]] void usb_gadget_debug(const usb_gadget_handle* handle, int level,
                                                    const char* format, ...);
