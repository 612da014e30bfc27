// libardenvue: all that a main application needs, for C11 and C++17. Each header may also be included alone.
//
// No function keeps global state, starts a thread or throws; each says in its comment what it costs and who
// may call it. Structures and enumerations never change within one version of the shared object: what is
// added gets names of its own.
#ifndef ARDENVUE_CLIENT_H
#define ARDENVUE_CLIENT_H

#include "ardenvue.h"
#include "ardenvue/capture.h"
#include "ardenvue/commands.h"
#include "ardenvue/error.h"
#include "ardenvue/json.h"
#include "ardenvue/state.h"
#include "ardenvue/sticks.h"
#include "ardenvue/video.h"

#endif
