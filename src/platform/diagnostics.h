// The standard error stream of a service that must not wait for whoever reads it: a terminal stopped by
// Ctrl-S, a pipe or a socket that nobody empties, a disk that stalls or is full, a reader that has gone.
#pragma once

// Makes descriptors 0 to 2 open where they are not, so that nothing else that the process opens is taken for
// one of them, and lets no reader that has gone end it by SIGPIPE; programs that it starts have that signal
// as usual. From then on what is written to stderr goes into a queue that a thread of its own writes out:
// each text whole, in order, or not at all when the queue is full; as soon as there is room again a line says
// how many were lost. Without that thread, which is only when it can't be started, texts are written as
// before. Main thread, before anything else.
void start_diagnostics();

// Gives the queue a moment, 100 ms at the most, to be written out: for the last words of a process, and
// before a child writes to the same stream. Any thread.
void drain_diagnostics();
