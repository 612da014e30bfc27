#pragma once

// Starts the companion executable from the working directory unless a process of its name runs. It is looked
// for on a thread of its own, and nobody waits for that: a pidof or a shell that hangs must not hold up the
// watchdog. Nothing is done while the check before is still under way, and when the check can't be made. Main
// thread.
void keep_companion_running();
