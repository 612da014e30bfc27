// The public header, first and alone, as a main application in C has it. The layout is asserted in it.
#include <ardenvue.h>
