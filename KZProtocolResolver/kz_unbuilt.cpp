// Decoders of the message families that are not implemented yet: their codes
// are recognised and routed here, and the message is dropped. A family that
// gets built turns its line below into an empty macro and defines its
// decoders in its own source file.
#include "kzprotocolresolver_p.h"

#define KZ_DROP(name)                                                                              \
    void KZProtocolResolverPrivate::decode##name(uchar, kz::Reader&) {}

#define KZ_FAMILY_Session(name)
#define KZ_FAMILY_Users(name)
#define KZ_FAMILY_Groups(name)
#define KZ_FAMILY_Operators(name)
#define KZ_FAMILY_Permissions(name)
#define KZ_FAMILY_MacRegistry(name)
#define KZ_FAMILY_MacStatus(name)
#define KZ_FAMILY_Remote(name)
#define KZ_FAMILY_Plans(name)
#define KZ_FAMILY_Workshop(name)
#define KZ_FAMILY_Stops(name)
#define KZ_FAMILY_Oee(name)

#define KZ_FAMILY_MacFiles(name)
#define KZ_FAMILY_SharedFiles(name)
#define KZ_FAMILY_Transfer(name)

#define KZ_FAMILY_Logs(name)
#define KZ_FAMILY_Statistics(name)
#define KZ_FAMILY_FilePrices(name)

#define KZ_METHOD(name, code, family) KZ_FAMILY_##family(name)
#include "methods.def"
#undef KZ_METHOD
