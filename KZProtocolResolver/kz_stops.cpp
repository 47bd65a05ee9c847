// Planned stops and work time: every message is regular and comes from
// protocol/stops.table.
#include "kzprotocolresolver_p.h"

#include "kz_stops.inc"
