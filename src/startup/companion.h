#pragma once

// Starts the companion executable from the working directory, without waiting for it, unless a process of its
// name runs. Nothing is done when that can't be found out. Main thread.
void keep_companion_running();
