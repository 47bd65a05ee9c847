// Round trips of the machines messages.
#include "loop.h"
