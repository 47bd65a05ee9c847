// The byte stream as a peer sends it: arbitrary bytes, cut at points the
// fuzzer picks, fed to parseReceive of a resolver with every callback set.
//
// Input: u8 n (cut count, taken modulo 32), n x u16 cut offsets (taken
// modulo the stream length + 1), then the stream.
#include "fuzz_util.h"
#include "kernels.h"
#include "sinks.h"

#include <algorithm>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const int kernels = kzfuzz::pinKernels();
    (void)kernels;
    static const bool quiet = kzfuzz::quietDebug();
    (void)quiet;

    kzfuzz::Input in(data, size);
    const int cutCount = in.u8() % 32;
    std::vector<quint16> raw;
    for (int i = 0; i < cutCount; ++i) raw.push_back(in.u16());
    const QByteArray stream = in.rest();

    std::vector<int> cuts;
    for (quint16 c : raw) cuts.push_back(int(c % (stream.size() + 1)));
    std::sort(cuts.begin(), cuts.end());
    cuts.push_back(stream.size());

    KZProtocolResolver resolver;
    kzfuzz::Observer observer;
    kzfuzz::attachAll(resolver, &observer);
    int from = 0;
    for (int to : cuts) {
        resolver.parseReceive(stream.mid(from, to - from));
        from = to;
    }
    return 0;
}
