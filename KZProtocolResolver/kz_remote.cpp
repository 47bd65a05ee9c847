// Remote panel: every message comes from protocol/remote.table. Written here:
// where the data of an update reply starts, for a large one received straight
// into its array.
#include "kzprotocolresolver_p.h"

using namespace kz;

int KZProtocolResolverPrivate::updateDataAt(Reader& r)
{
    r.strz(); // mac
    r.u32();  // count of the data
    return r.offset();
}

#include "kz_remote.inc"
