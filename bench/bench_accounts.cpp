// Round trips of the accounts messages.
#include "loop.h"
