// Stand-in for the board's firmware library on machines that do not have it; the name is the library's own,
// so that the including source is the same on both.
#pragma once

// Starts the firmware's message channel on a real board; here there is none, and nothing is done. Main
// thread, once.
extern "C" void bcm_host_init();
