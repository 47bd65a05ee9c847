// Round trips of the file transfer: one content chunk out and its
// acknowledgement back per iteration, through two pairs of resolvers.
#include "loop.h"

namespace {

// A file sent in chunks of state.range(0) bytes, each with a 16-byte block
// (the host's digest, computed once here: the library only carries it).
void BM_TransferChunk(benchmark::State& state)
{
    const int chunkBytes = int(state.range(0));
    Loop out;  // content: sender -> receiver
    Loop back; // acknowledgement: receiver -> sender
    int acked = 0;
    back.receiver.setReceiveData(&acked);
    out.receiver.setLanMacTsfFileContentCB(
        [](void* ctx, int, int, int, int len, const QByteArray& block, const QByteArray& data) {
            if (block.size() == 16 && data.size() == len) ++loopOf(ctx).delivered;
        });
    back.receiver.setLanMacTsfFileContentResultCB(
        [](void* ctx, int, int) { ++*static_cast<int*>(ctx); });

    QByteArray file(1 << 20, '\0');
    for (int i = 0; i < file.size(); ++i) file[i] = char((i * 131 + (i >> 12)) & 0xFF);
    const QByteArray block(16, '\x5a');
    int chunk = 0;
    for (auto _ : state) {
        const int offset = (chunk * chunkBytes) % file.size();
        const QByteArray data = QByteArray::fromRawData(file.constData() + offset,
                                                        qMin(chunkBytes, file.size() - offset));
        out.sender.lanMacTsfFileContent(1, chunk, offset, data.size(), block, data);
        out.flush();
        back.sender.lanMacTsfFileContentResponse(chunk, offset + data.size());
        back.flush();
        ++chunk;
    }
    if (acked != chunk) state.SkipWithError("an acknowledgement was lost");
    finish(state, out, chunkBytes);
}
BENCHMARK(BM_TransferChunk)->Arg(4 * 1024)->Arg(64 * 1024);

} // namespace
