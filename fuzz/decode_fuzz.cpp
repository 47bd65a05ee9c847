// The decoders: the fuzzer picks the flag, the method and the payload; the
// body is coded and framed as a peer would, so every decoder is reached
// (nothing stops at the checksum), with every callback set.
//
// Input: u8 flag, u8 method index (into the table of codes; an index past
// its end selects the raw code that follows), u16 raw code, then the payload.
//
// Each body is decoded twice: through parseReceive (the whole receive path),
// and by the dispatcher straight from a heap block of exactly the body's
// bytes without its terminating zero, so that a decoder reading even one
// byte past the data is caught.
#include "fuzz_util.h"
#include "kzprotocolresolver_p.h"
#include "sinks.h"

#include <memory>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const bool quiet = kzfuzz::quietDebug();
    (void)quiet;

    kzfuzz::Input in(data, size);
    const quint8 flag = in.u8();
    const quint8 index = in.u8();
    const quint16 rawCode = in.u16();
    const QByteArray payload = in.rest();
    const quint16 code = index < kzfuzz::kCodeCount ? kzfuzz::kCodes[index] : rawCode;
    const QByteArray body = kzfuzz::body(flag, code, payload);

    KZProtocolResolver resolver;
    kzfuzz::Observer observer;
    kzfuzz::attachAll(resolver, &observer);
    resolver.parseReceive(kzfuzz::frame(body));

    // The body without its terminating zero, in a block of exactly its size.
    const int n = body.size() - 1;
    std::unique_ptr<uchar[]> exact(new uchar[size_t(n)]);
    std::memcpy(exact.get(), body.constData(), size_t(n));
    KZProtocolResolverPrivate::get(&resolver)->dispatch(exact.get(), n - 4);
    return 0;
}
