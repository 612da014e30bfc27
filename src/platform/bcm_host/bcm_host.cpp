#include "bcm_host.h"

extern "C" void bcm_host_init() {}
