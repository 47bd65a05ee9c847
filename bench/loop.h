// Shared by the benchmarks: two resolvers joined by a byte buffer.
#ifndef KZBENCH_LOOP_H
#define KZBENCH_LOOP_H

#include "kzprotocolresolver.h"

#include <benchmark/benchmark.h>

#include <QByteArray>

#include <cstdlib>

struct Loop
{
    KZProtocolResolver sender;
    KZProtocolResolver receiver;
    QByteArray wire;
    int delivered = 0;

    Loop()
    {
        sender.setReceiveData(this);
        sender.setParsePackResult([](void* ctx, char* bytes, int n) {
            static_cast<Loop*>(ctx)->wire.append(bytes, n);
            std::free(bytes);
        });
        receiver.setReceiveData(this);
        wire.reserve(2 << 20);
    }
    void flush()
    {
        receiver.parseReceive(wire);
        wire.resize(0);
    }
};

inline Loop& loopOf(void* ctx) { return *static_cast<Loop*>(ctx); }

inline void finish(benchmark::State& state, const Loop& loop, qint64 bytesPerMessage)
{
    if (loop.delivered != int(state.iterations())) state.SkipWithError("a message was lost");
    state.SetItemsProcessed(state.iterations());
    state.SetBytesProcessed(state.iterations() * bytesPerMessage);
}

#endif
