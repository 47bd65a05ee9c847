// The protobuf column: the values of a file chunk and of a logout carried
// by protobuf the way a host would carry them, for comparison with the
// resolver's rows of the same run (BM_FastFileChunk, BM_FastLogout). Each
// iteration encodes the Qt values, frames the message (a varint length in
// front, as protobuf's delimited streams do), takes the frame apart again,
// decodes it, turns it back into Qt values and calls a callback with them.
#include "compare.pb.h"

#include <benchmark/benchmark.h>
#include <google/protobuf/io/coded_stream.h>

#include <QByteArray>

#include <cstdint>
#include <vector>

namespace {

using google::protobuf::io::CodedInputStream;
using google::protobuf::io::CodedOutputStream;

struct Wire
{
    std::vector<uint8_t> bytes;
    long delivered = 0;

    // Writes `m` behind its length.
    template <class M>
    void frame(const M& m)
    {
        const size_t n = m.ByteSizeLong();
        bytes.resize(CodedOutputStream::VarintSize32(uint32_t(n)) + n);
        uint8_t* p = CodedOutputStream::WriteVarint32ToArray(uint32_t(n), bytes.data());
        m.SerializeWithCachedSizesToArray(p);
    }
    // Reads the message behind the length; false when the frame is short.
    template <class M>
    bool unframe(M& m) const
    {
        CodedInputStream in(bytes.data(), int(bytes.size()));
        uint32_t n = 0;
        if (!in.ReadVarint32(&n)) return false;
        const auto limit = in.PushLimit(int(n));
        const bool ok = m.ParseFromCodedStream(&in) && in.ConsumedEntireMessage();
        in.PopLimit(limit);
        return ok;
    }
};

using ChunkCallback = void (*)(void* ctx, int p, int q, int r, int len, const QByteArray& block,
                               const QByteArray& data);

void onChunk(void* ctx, int, int, int, int, const QByteArray&, const QByteArray& data)
{
    if (!data.isEmpty()) ++static_cast<Wire*>(ctx)->delivered;
}

void BM_ProtobufFileChunk(benchmark::State& state)
{
    Wire wire;
    const QByteArray block(16, '\x42');
    QByteArray data(int(state.range(0)), Qt::Uninitialized);
    for (int i = 0; i < data.size(); ++i) data[i] = char(i * 131 + 7);
    const ChunkCallback callback = &onChunk;
    for (auto _ : state) {
        kzbench::FileContent out;
        out.set_p(1), out.set_q(2), out.set_r(3), out.set_len(data.size());
        out.set_block(block.constData(), size_t(block.size()));
        out.set_data(data.constData(), size_t(data.size()));
        wire.frame(out);
        kzbench::FileContent in;
        if (!wire.unframe(in)) break;
        const QByteArray gotBlock(in.block().data(), int(in.block().size()));
        const QByteArray gotData(in.data().data(), int(in.data().size()));
        callback(&wire, in.p(), in.q(), in.r(), in.len(), gotBlock, gotData);
    }
    if (wire.delivered != long(state.iterations())) state.SkipWithError("a message was lost");
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_ProtobufFileChunk)->Arg(1 << 10)->Arg(64 << 10);

void BM_ProtobufLogout(benchmark::State& state)
{
    Wire wire;
    void (*callback)(void*, int) = [](void* ctx, int) { ++static_cast<Wire*>(ctx)->delivered; };
    for (auto _ : state) {
        kzbench::Logout out;
        out.set_value(7);
        wire.frame(out);
        kzbench::Logout in;
        if (!wire.unframe(in)) break;
        callback(&wire, in.value());
    }
    if (wire.delivered != long(state.iterations())) state.SkipWithError("a message was lost");
}
BENCHMARK(BM_ProtobufLogout);

} // namespace
