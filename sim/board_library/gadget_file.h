// Gadget files as the kernel's gadgetfs gives them (drivers/usb/gadget/legacy/inode.c), over connections to
// the simulated cable. The descriptor that the program holds is the connection itself, so poll works on it,
// and a transfer blocks in recvmsg, so a thread waiting in it can be cancelled.
#pragma once

#include <poll.h>
#include <sys/types.h>

#include <cstddef>

namespace board_library {

// True for a descriptor that open_gadget_file gave out. Cheap: it is asked at every read and write.
bool is_gadget_file(int fd);

// As open, read, write and ioctl do: -1 with errno set on failure. name is the file's name in /dev/gadget.
int open_gadget_file(const char* name, int flags);
ssize_t read_gadget_file(int fd, void* buffer, std::size_t length);
ssize_t write_gadget_file(int fd, const void* data, std::size_t length);
int control_gadget_file(int fd, unsigned long request);

// To be called before the descriptor is closed.
void forget_gadget_file(int fd);

// True while the controller file is open and configured; while an OUT endpoint is.
bool gadget_device_is_open();
bool out_endpoint_is_open();

// Events read from the connection but not yet by the program make the controller file readable too: marks the
// entries of the set for which this is so, and returns their number. An entry of the controller file counts
// as failed while the fault "poll" is asked for: -1.
int poll_pending_events(pollfd* entries, nfds_t count);

// Before a setup is answered the controller file has no events for poll, whatever has come: its entry is
// passed over while it is hidden.
void hide_unanswered_device(pollfd* entries, nfds_t count, bool hide);

}  // namespace board_library
