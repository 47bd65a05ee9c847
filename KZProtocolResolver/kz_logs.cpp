// Log queries and the data messages that answer them: every message is
// regular and comes from protocol/logs.table.
#include "kzprotocolresolver_p.h"

#include "kz_logs.inc"
