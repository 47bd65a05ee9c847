// Tests of the kzapin frame library: CRC and body coding, objects, packing
// and splitting, and the receive path (resync, damage, limits, reassembly).
#include <kzapin/kzapin.h>
extern "C" {
#include "kzapin_internal.h" // the checksum entry points the engine uses
}

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#if defined(__SANITIZE_ADDRESS__)
#define KZ_TEST_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KZ_TEST_ASAN 1
#endif
#endif

#ifdef KZ_TEST_ASAN
// From the sanitizer runtime (not every compiler ships its header).
extern "C" size_t __sanitizer_get_current_allocated_bytes(void);
#else
#include <malloc.h>
#endif

namespace {

// Bytes currently allocated on the heap by the whole process.
size_t heapInUse()
{
#ifdef KZ_TEST_ASAN
    return __sanitizer_get_current_allocated_bytes();
#else
    struct mallinfo2 mi = mallinfo2();
    return mi.uordblks + mi.hblkhd;
#endif
}

std::string randomBytes(size_t n, uint32_t seed)
{
    std::mt19937 rng(seed);
    std::string s(n, '\0');
    for (auto& c : s) c = static_cast<char>(rng() & 0xFF);
    return s;
}

using Bodies = std::vector<std::string>;

// ---------------------------------------------------------------------------
// An independent writer of the documented frame layout, used to check the
// packer and to forge hostile frames.

void put(std::string& s, uint32_t v, int bytes)
{
    for (int i = 0; i < bytes; ++i) s += static_cast<char>((v >> (8 * i)) & 0xFF);
}

struct FrameFields
{
    uint32_t seq = 0;
    std::string attr, data;
    bool piece = false;
    uint32_t id = 0, total = 0, offset = 0;
    int64_t claimedLength = -1; // data length written in the header, -1 = real
};

std::string rawFrame(const FrameFields& f)
{
    std::string s = "KZ\x01";
    s += static_cast<char>(f.piece ? 1 : 0);
    put(s, f.seq, 4);
    put(s, static_cast<uint32_t>(f.attr.size()), 2);
    put(s, static_cast<uint32_t>(f.claimedLength < 0 ? int64_t(f.data.size()) : f.claimedLength),
        4);
    if (f.piece) {
        put(s, f.id, 4);
        put(s, f.total, 4);
        put(s, f.offset, 4);
    }
    put(s, kz_crc32(0, s.data(), s.size()), 4);
    s += f.attr + f.data;
    put(s, kz_crc32(0, s.data(), s.size()), 4);
    return s;
}

std::string wholeFrame(uint32_t seq, const std::string& attr, const std::string& data)
{
    FrameFields f;
    f.seq = seq;
    f.attr = attr;
    f.data = data;
    return rawFrame(f);
}

FrameFields pieceFields(uint32_t id, uint32_t total, uint32_t offset, const std::string& data)
{
    FrameFields f;
    f.seq = id;
    f.data = data;
    f.piece = true;
    f.id = id;
    f.total = total;
    f.offset = offset;
    return f;
}

// Just the header and header CRC of a frame: all that a receiver reads
// before it decides whether to wait for the rest.
std::string headerOnly(const FrameFields& f) { return rawFrame(f).substr(0, f.piece ? 30 : 18); }

FrameFields claiming(int64_t length)
{
    FrameFields f;
    f.claimedLength = length;
    return f;
}

// ---------------------------------------------------------------------------

struct EngineDeleter
{
    void operator()(void* p) const { kz_type_delete(p); }
};
using EnginePtr = std::unique_ptr<void, EngineDeleter>;

struct Ev
{
    int type;
    std::string name, data;
    int length, length2;
    bool operator==(const Ev& o) const
    {
        return type == o.type && name == o.name && data == o.data && length == o.length &&
               length2 == o.length2;
    }
};

std::ostream& operator<<(std::ostream& os, const Ev& e)
{
    return os << "{type " << e.type << ", name \"" << e.name << "\", " << e.data.size()
              << " data bytes, length " << e.length << ", length2 " << e.length2 << "}";
}

// A receiving engine that records every event it raises.
class Receiver
{
public:
    explicit Receiver(int maxBody = KZ_DEFAULT_MAX_BODY)
        : engine_(kz_type_new(kz__protoiot, KZ_OPT_MAX_BODY, maxBody, 0))
    {
        auto* o = static_cast<kz_object*>(engine_.get());
        o->user = this;
        o->handler = &Receiver::onEvent;
    }
    void* engine() const { return engine_.get(); }
    int feed(const std::string& bytes)
    {
        return kz_protoiot_engine.input(engine(), bytes.data(), static_cast<int>(bytes.size()));
    }
    void feedBytewise(const std::string& bytes)
    {
        for (char c : bytes) kz_protoiot_engine.input(engine(), &c, 1);
    }
    void reset() { kz_protoiot_engine.reset(engine()); }
    std::vector<Ev> ofType(int type) const
    {
        std::vector<Ev> out;
        std::copy_if(events.begin(), events.end(), std::back_inserter(out),
                     [type](const Ev& e) { return e.type == type; });
        return out;
    }
    Bodies bodies() const
    {
        Bodies out;
        for (const auto& e : ofType(KZ_EVENT_DATA)) out.push_back(e.data);
        return out;
    }
    size_t noticeCount() const { return ofType(KZ_EVENT_NOTICE).size(); }
    // The text of every notice.
    std::vector<std::string> notices() const
    {
        std::vector<std::string> out;
        for (const auto& e : ofType(KZ_EVENT_NOTICE)) out.push_back(e.data);
        return out;
    }

    std::vector<Ev> events;
    std::vector<uint32_t> seqs; // of the data events
    std::function<void(kz_event*)> hook;

private:
    static int onEvent(kz_event* e)
    {
        auto* self = static_cast<Receiver*>(static_cast<kz_object*>(e->object)->user);
        Ev ev{e->type, e->name ? e->name : "<null>", "", e->length, e->length2};
        if (e->type == KZ_EVENT_DATA) {
            EXPECT_NE(e->data, nullptr);
            ev.data.assign(static_cast<const char*>(e->data), e->length);
            self->seqs.push_back(e->seq);
        } else if (e->type == KZ_EVENT_NOTICE) {
            EXPECT_NE(e->data, nullptr);
            EXPECT_STREQ(static_cast<const char*>(e->data), e->name);
            if (e->data) ev.data = static_cast<const char*>(e->data);
        }
        self->events.push_back(ev);
        if (self->hook) self->hook(e);
        return 0;
    }
    EnginePtr engine_;
};

// Packs one message the way the resolver does: the first frame from the
// pack call, then every pending node in list order, each taken off the front.
std::vector<std::string> packMessage(void* engine, int capacity, int& seq, const char* attr,
                                     const std::string& body)
{
    std::vector<std::string> frames;
    std::string out(static_cast<size_t>(capacity), '\0');
    int n = kz_protocol_pack(engine, out.data(), capacity, seq++, attr, body.data(),
                             static_cast<int>(body.size()));
    EXPECT_GT(n, 0);
    EXPECT_LE(n, capacity);
    frames.push_back(out.substr(0, static_cast<size_t>(std::max(n, 0))));
    kz_list* pending = kz_protocol_pending(engine);
    while (kz_list_node* node = kz_list_take_node(pending, kz_list_node_at(pending, 0))) {
        const char* text = node->bytes;
        const int dataLen = node->total - static_cast<int>(std::strlen(text)) - 1;
        if (node->flags & KZ_NODE_PACKED) {
            frames.emplace_back(kz_strnxt(text), static_cast<size_t>(dataLen));
        } else {
            int pieceSeq = (node->flags & KZ_NODE_OWN_SEQ) ? node->seq : seq++;
            std::string buf(static_cast<size_t>(capacity), '\0');
            int m = kz_protocol_pack(engine, buf.data(), capacity, pieceSeq, text, kz_strnxt(text),
                                     dataLen);
            EXPECT_GT(m, 0);
            frames.push_back(buf.substr(0, static_cast<size_t>(std::max(m, 0))));
        }
        EXPECT_LE(frames.back().size(), static_cast<size_t>(capacity));
        kz_list_node_destroy(node);
    }
    return frames;
}

std::string join(const std::vector<std::string>& parts)
{
    std::string s;
    for (const auto& p : parts) s += p;
    return s;
}

std::string hex(const std::string& s)
{
    static const char digits[] = "0123456789abcdef";
    std::string out;
    for (unsigned char c : s) {
        if (!out.empty()) out += ' ';
        out += digits[c >> 4];
        out += digits[c & 15];
    }
    return out;
}

// A sender and its running sequence number.
struct Sender
{
    EnginePtr engine{kz_type_new(kz__protoiot, 0)};
    int seq = 0;
    std::vector<std::string> pack(int capacity, const std::string& body, const char* attr = nullptr)
    {
        return packMessage(engine.get(), capacity, seq, attr, body);
    }
};

// ---------------------------------------------------------------------------
// CRC-32, body coding, objects

TEST(Crc32, MatchesCheckValueAndBitwiseReference)
{
    EXPECT_EQ(kz_crc32(0, "123456789", 9), 0xCBF43926u);
    const std::string data = randomBytes(1200, 1);
    const auto* p = reinterpret_cast<const unsigned char*>(data.data());
    const auto bitwise = [p](size_t from, size_t n) {
        uint32_t c = 0xFFFFFFFFu;
        for (size_t i = from; i < from + n; ++i) {
            c ^= p[i];
            for (int k = 0; k < 8; ++k) c = (c & 1) ? (c >> 1) ^ 0xEDB88320u : c >> 1;
        }
        return ~c;
    };
    // Every short length and the lengths around the block sizes of the
    // vector code (16 and 64 bytes), at every alignment.
    std::vector<size_t> lengths;
    for (size_t n = 0; n < 80; ++n) lengths.push_back(n);
    for (size_t n : {95, 96, 97, 127, 128, 129, 143, 144, 195, 511, 512, 1000, 1180})
        lengths.push_back(n);
    for (size_t start = 0; start < 16; ++start)
        for (size_t n : lengths)
            ASSERT_EQ(kz_crc32(0, p + start, n), bitwise(start, n)) << start << " " << n;
    // Continuing from a previous value equals one pass over the whole run.
    for (size_t cut : {0, 1, 7, 8, 9, 150, 300})
        EXPECT_EQ(kz_crc32(kz_crc32(0, p, cut), p + cut, 300 - cut), bitwise(0, 300)) << cut;
}

// Inside a frame the checksum code may load around a short run: every run at
// every place in windows of 16 bytes and more gives kz_crc32's value, and
// both frame checksum implementations (the one chosen for this processor
// and the portable one) agree with kz_crc32, checking and writing alike.
TEST(Crc32, RunsInsideAWindowAndBothFrameChecksums)
{
    const std::string data = randomBytes(96, 3);
    const auto* base = reinterpret_cast<const unsigned char*>(data.data());
    for (size_t lo = 0; lo < 8; lo += 3)
        for (size_t hi = lo + 16; hi <= 96; hi += 13)
            for (size_t from = lo; from < hi; ++from)
                for (size_t to = from; to <= hi; ++to)
                    ASSERT_EQ(kz_crc32_in(0x1234u, base + from, to - from, base + lo, base + hi),
                              kz_crc32(0x1234u, base + from, to - from))
                        << lo << " " << hi << " " << from << " " << to;
    for (kz_frame_crcs_fn crcs : {kz_frame_crcs, &kz_frame_crcs_portable})
        for (size_t head : {14, 26})
            for (size_t end = head + 4; end <= data.size(); ++end) {
                std::string frame = data.substr(0, end);
                auto* f = reinterpret_cast<unsigned char*>(&frame[0]);
                uint32_t whole = 0;
                const uint32_t h = crcs(nullptr, f, head, end, &whole);
                ASSERT_EQ(h, kz_crc32(0, f, head)) << head << " " << end;
                ASSERT_EQ(whole, kz_crc32(0, f, end)) << head << " " << end;
                crcs(f, f, head, end, &whole);
                uint32_t stored = 0;
                std::memcpy(&stored, f + head, 4); // little-endian hosts
                ASSERT_EQ(stored, h);
                ASSERT_EQ(whole, kz_crc32(0, f, end)) << head << " " << end;
            }
}

TEST(Coding, RoundTripsAndTheKeystreamFollowsThePosition)
{
    for (int n : {1, 7, 8, 9, 16, 17, 64, 65, 4099}) {
        const std::string plain = randomBytes(static_cast<size_t>(n), static_cast<uint32_t>(n));
        std::string coded(static_cast<size_t>(n) + 2, '\x5C'); // sentinels on both sides
        kz_coding_encrypt_fast(&coded[1], plain.data(), n);
        EXPECT_EQ(coded.front(), '\x5C');
        EXPECT_EQ(coded.back(), '\x5C');
        coded = coded.substr(1, static_cast<size_t>(n));
        EXPECT_TRUE(n < 4 || coded != plain) << n;
        std::string inPlace = plain;
        kz_coding_encrypt_fast(inPlace.data(), inPlace.data(), n);
        EXPECT_EQ(inPlace, coded) << n;
        kz_coding_decrypt_fast(inPlace.data(), coded.data(), n);
        EXPECT_EQ(inPlace, plain) << n;
    }
    // Equal blocks code differently, and position counts from the run's start.
    const std::string zeros(64, '\0');
    std::string coded(64, '\0'), tail(63, '\0');
    kz_coding_encrypt_fast(coded.data(), zeros.data(), 64);
    for (size_t i = 8; i < 64; i += 8) EXPECT_NE(coded.substr(0, 8), coded.substr(i, 8)) << i;
    kz_coding_encrypt_fast(tail.data(), zeros.data() + 1, 63);
    EXPECT_NE(tail, coded.substr(1));
}

TEST(Coding, EveryByteTakesTheKeystreamByteOfItsPosition)
{
    // Byte p of a run is XORed with byte p % 8 (little-endian) of the
    // splitmix64 finaliser of (p / 8) * 0x9E3779B97F4A7C15 + "KZAPIN01".
    const auto key = [](uint64_t pos) {
        uint64_t z = (pos / 8) * 0x9E3779B97F4A7C15ull + 0x4B5A4150494E3031ull;
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        z ^= z >> 31;
        return static_cast<unsigned char>(z >> (8 * (pos % 8)));
    };
    const std::string plain = randomBytes(1100, 9);
    for (int64_t position : {0ll, 1ll, 5ll, 8ll, 13ll, 199ll, 255ll, 256ll, 1000003ll})
        for (int n : {1, 7, 8, 9, 31, 32, 33, 63, 64, 65, 100, 257, 1100}) {
            std::string out(static_cast<size_t>(n), '\0');
            kz_coding_code_at(out.data(), plain.data(), n, position);
            for (int i = 0; i < n; ++i)
                ASSERT_EQ(static_cast<unsigned char>(out[size_t(i)]),
                          static_cast<unsigned char>(plain[size_t(i)] ^ key(position + i)))
                    << "position " << position << ", " << n << " bytes, byte " << i;
        }
    // A run coded piece by piece equals the run coded whole.
    std::string whole(plain.size(), '\0'), pieces = plain;
    kz_coding_encrypt_fast(whole.data(), plain.data(), int(plain.size()));
    for (size_t at = 0, n = 1; at < pieces.size(); at += n, n = n * 3 + 1) {
        n = std::min(n, pieces.size() - at);
        kz_coding_code_at(&pieces[at], &pieces[at], int(n), int64_t(at));
    }
    EXPECT_EQ(pieces, whole);
}

// Runs the kernels of one level for the life of the object, then the widest
// again.
struct KernelLevel
{
    explicit KernelLevel(int level) : inEffect(kz_kernels_limit(level)) {}
    ~KernelLevel() { kz_kernels_limit(KZ_KERNELS_BEST); }
    KernelLevel(const KernelLevel&) = delete;
    KernelLevel& operator=(const KernelLevel&) = delete;
    const int inEffect;
};

// Every kernel level this processor runs (the portable one, AVX2 with
// PCLMULQDQ, AVX-512 with VPCLMULQDQ) codes and checksums as the portable
// one does: runs of the lengths around every block size of the vector code
// and random ones, at every alignment of the bytes and of the keystream,
// out of place (nothing written outside the run) and in place, coding and
// checksum in one call on both sides, and both checksums of long frames.
TEST(Kernels, EveryLevelCodesAndChecksumsAsThePortableOne)
{
    const std::string data = randomBytes(70000, 30);
    struct Case
    {
        size_t n, align;
        int64_t position;
    };
    std::vector<Case> cases;
    const int64_t positions[] = {0, 1, 5, 7, 8, 9, 255, 256, 257, 1000003, (int64_t(1) << 40) + 3};
    for (size_t n : {0,  1,   2,   3,   4,   7,   8,   9,   15,  16,  17,  31,  32,  33,  63,  64,
                     65, 127, 128, 129, 191, 192, 193, 255, 256, 257, 319, 320, 321, 511, 512, 513})
        for (size_t align = 0; align < 16; ++align)
            for (int64_t position : positions) cases.push_back({n, align, position});
    std::mt19937 rng(30);
    size_t k = 0;
    for (size_t n : {2014, 2047, 4095, 4096, 4097, 65535, 65536, 65537})
        cases.push_back({n, k % 64, positions[k % 11]}), ++k;
    for (int i = 0; i < 200; ++i)
        cases.push_back({rng() % 69000, rng() % 64, int64_t(rng() % 3) * int64_t(rng() % 100000)});

    struct Result
    {
        std::string coded, inPlace, fused, back;
        uint32_t crc, head, whole, sent, received;
    };
    const auto runAll = [&] {
        std::vector<Result> out;
        for (const Case& c : cases) {
            const char* src = data.data() + c.align;
            Result r;
            std::string guarded(c.n + 2, '\x5C');
            kz_coding_code_at(&guarded[1], src, int(c.n), c.position);
            EXPECT_EQ(guarded.front(), '\x5C') << c.n;
            EXPECT_EQ(guarded.back(), '\x5C') << c.n;
            r.coded = guarded.substr(1, c.n);
            r.inPlace.assign(src, c.n);
            kz_coding_code_at(&r.inPlace[0], r.inPlace.data(), int(c.n), c.position);
            r.crc = kz_crc32(0x1234u, src, c.n);
            // Coding and checksum in one call: the CRC covers the coded
            // bytes, written by the sender, read (in place) by the receiver.
            std::string fused(c.n + 2, '\x5C');
            r.sent = kz_coding_encrypt_crc32(&fused[1], src, int(c.n), c.position, 0x1234u);
            EXPECT_EQ(fused.front(), '\x5C') << c.n;
            EXPECT_EQ(fused.back(), '\x5C') << c.n;
            r.fused = fused.substr(1, c.n);
            r.back = r.fused;
            r.received =
                kz_coding_decrypt_crc32(&r.back[0], r.back.data(), int(c.n), c.position, 0x1234u);
            r.head = r.whole = 0;
            if (c.n >= 30) {
                const auto* f = reinterpret_cast<const unsigned char*>(src);
                r.head = kz_frame_crcs(nullptr, f, 26, c.n, &r.whole);
            }
            out.push_back(r);
        }
        return out;
    };
    std::vector<Result> portable;
    {
        const KernelLevel level(KZ_KERNELS_PORTABLE);
        ASSERT_EQ(level.inEffect, KZ_KERNELS_PORTABLE);
        portable = runAll();
    }
    for (int want : {KZ_KERNELS_PORTABLE, KZ_KERNELS_AVX2, KZ_KERNELS_AVX512}) {
        const KernelLevel level(want);
        if (level.inEffect != want) std::printf("kernel level %d: not on this processor\n", want);
        const std::vector<Result> got = runAll();
        for (size_t i = 0; i < cases.size(); ++i) {
            const Case& c = cases[i];
            SCOPED_TRACE(testing::Message()
                         << "level " << level.inEffect << ", " << c.n << " bytes at +" << c.align
                         << ", keystream at " << c.position);
            ASSERT_EQ(got[i].coded, portable[i].coded);
            ASSERT_EQ(got[i].inPlace, portable[i].coded);
            ASSERT_EQ(got[i].crc, portable[i].crc);
            ASSERT_EQ(got[i].head, portable[i].head);
            ASSERT_EQ(got[i].whole, portable[i].whole);
            ASSERT_EQ(got[i].fused, portable[i].coded);
            ASSERT_EQ(got[i].back, data.substr(c.align, c.n));
            const uint32_t codedCrc = kz_crc32(0x1234u, portable[i].coded.data(), c.n);
            ASSERT_EQ(got[i].sent, codedCrc);
            ASSERT_EQ(got[i].received, codedCrc);
        }
    }
}

TEST(Objects, OptionsAndCastsAreChecked)
{
    EXPECT_NE(EnginePtr(kz_type_new(kz__protoiot, KZ_OPT_CAPACITY, 4096, KZ_OPT_MAX_BODY, 1,
                                    KZ_OPT_PIECES, KZ_PIECES_PACKED, 0)),
              nullptr);
    const int bad[][2] = {{KZ_OPT_CAPACITY, 0}, {KZ_OPT_CAPACITY, -1}, {KZ_OPT_MAX_BODY, 0},
                          {KZ_OPT_PIECES, 3},   {KZ_OPT_PIECES, -1},   {99, 1}};
    for (const auto& o : bad)
        EXPECT_EQ(kz_type_new(kz__protoiot, o[0], o[1], 0), nullptr) << o[0] << " " << o[1];
    EXPECT_EQ(kz_type_new(kz__protocol, 0), nullptr); // abstract

    // A cast walks the parents; a failed one is reported in one line.
    EnginePtr engine(kz_type_new(kz__protoiot, 0));
    EXPECT_EQ(kz_type_cast2(engine.get(), kz__protocol, "L", "f", 1), engine.get());
    static const kz_type other[1] = {{"test_other", kz__object, sizeof(kz_object)}};
    kz_object fake{}; // not a live object
    fake.type = kz__protoiot;
    testing::internal::CaptureStderr();
    EXPECT_EQ(kz_type_cast2(engine.get(), other, "castLabel", "castfile.cpp", 123), nullptr);
    EXPECT_EQ(kz_type_cast2(&fake, kz__object, "fakeLabel", "fake.cpp", 7), nullptr);
    // Engine operations refuse a foreign pointer too.
    char out[64];
    EXPECT_EQ(kz_protocol_pack(&fake, out, 64, 0, nullptr, "x", 1), 0);
    EXPECT_EQ(kz_protoiot_engine.input(&fake, "x", 1), -1);
    kz_type_delete(&fake);
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 2) << err;
    for (const char* part : {"castLabel", "castfile.cpp", "123", "test_other", "fake.cpp:7"})
        EXPECT_NE(err.find(part), std::string::npos) << part << " missing in: " << err;
}

// ---------------------------------------------------------------------------
// Packing

TEST(Pack, FramesFollowTheDocumentedLayout)
{
    EnginePtr engine(kz_type_new(kz__protoiot, 0));
    const std::string body = randomBytes(40, 2);
    std::string out(2048, '\x77');
    int n = kz_protocol_pack(engine.get(), out.data(), 2048, 0x01020304, "abc", body.data(), 40);
    EXPECT_EQ(hex(out.substr(0, static_cast<size_t>(n))), hex(wholeFrame(0x01020304, "abc", body)));
    EXPECT_EQ(out[static_cast<size_t>(n)], '\x77');
    // NULL attr is the empty attr; a negative seq is stored as its u32 bits.
    n = kz_protocol_pack(engine.get(), out.data(), 2048, -1, nullptr, body.data(), 40);
    EXPECT_EQ(out.substr(0, static_cast<size_t>(n)), wholeFrame(0xFFFFFFFFu, "", body));

    // The worked example of docs/frame-format.md: the logout body
    // 00 11 02 00 07 00 00 00 00 with bytes 1..8 coded, sequence 0, no attr.
    unsigned char logout[9] = {0x00, 0x11, 0x02, 0x00, 0x07, 0x00, 0x00, 0x00, 0x00};
    kz_coding_encrypt_fast(logout + 1, logout + 1, 8);
    n = kz_protocol_pack(engine.get(), out.data(), 2048, 0, nullptr, logout, 9);
    EXPECT_EQ(hex(out.substr(0, static_cast<size_t>(n))),
              "4b 5a 01 00 00 00 00 00 00 00 09 00 00 00 69 e7 42 0a "
              "00 78 cc 92 ae 3c 62 d0 d2 57 81 8e fc");

    // The longest attr fits and comes back in the event name.
    const std::string attr(65535, 'a');
    out.assign(70000, '\0');
    n = kz_protocol_pack(engine.get(), out.data(), 70000, 5, attr.c_str(), "xyz", 3);
    ASSERT_EQ(n, 22 + 65535 + 3);
    Receiver rx;
    rx.feed(out.substr(0, static_cast<size_t>(n)));
    ASSERT_EQ(rx.events.size(), 1u);
    EXPECT_EQ(rx.events[0].name, "data," + attr);
}

TEST(Pack, ABodyPlacedInTheFrameIsFramedAsPackFramesIt)
{
    EnginePtr engine{kz_type_new(kz__protoiot, KZ_OPT_CAPACITY, 64, 0)};
    for (int n : {0, 1, 9, 42}) {
        const std::string body = randomBytes(size_t(n), uint32_t(n) + 1);
        std::string expect(size_t(KZ_FRAME_OVERHEAD + n), '\0'), got(expect.size(), '\0');
        ASSERT_EQ(kz_protocol_pack(engine.get(), &expect[0], 0, 7, "", body.data(), n),
                  int(expect.size()));
        std::copy(body.begin(), body.end(), got.begin() + KZ_FRAME_DATA_AT(0));
        EXPECT_EQ(kz_protocol_pack_whole(engine.get(), &got[0], 7, n), int(got.size()));
        EXPECT_EQ(got, expect) << n;
    }
    // Refused, nothing written: over the capacity, a negative length, no
    // engine, no buffer.
    std::string out(100, 'x');
    EXPECT_EQ(kz_protocol_pack_whole(engine.get(), &out[0], 1, 64 - KZ_FRAME_OVERHEAD + 1), 0);
    EXPECT_EQ(kz_protocol_pack_whole(engine.get(), &out[0], 1, -1), 0);
    EXPECT_EQ(kz_protocol_pack_whole(nullptr, &out[0], 1, 1), 0);
    EXPECT_EQ(kz_protocol_pack_whole(engine.get(), nullptr, 1, 1), 0);
    EXPECT_EQ(out, std::string(100, 'x'));
}

TEST(Pack, CapacityAndArgumentLimits)
{
    EnginePtr engine(kz_type_new(kz__protoiot, KZ_OPT_CAPACITY, 100, 0));
    void* e = engine.get();
    const std::string body = randomBytes(300, 3);
    const std::string longAttr(65536, 'a');
    const char* attr23 = "a-long-attribute-text!!";
    std::string out(400, '\x33');
    const std::string untouched = out;
    const struct
    {
        int capacity;
        const char* attr;
        int length;
        int written;
        int pending;
    } rows[] = {
        {22 + 2 + 10, "ab", 10, 34, 0},   // exactly fitting: one whole frame
        {22 + 2, "ab", 10, 0, 0},         // no room for a body byte
        {5, nullptr, 1, 0, 0},            // not even a header
        {34, nullptr, 20, 0, 0},          // a whole frame of one byte, not a piece of one
        {57, attr23, 1, 46, 0},           // the same with an attr...
        {57, attr23, 100, 0, 0},          // ...and a split refused
        {58, attr23, 100, 58, 5},         // 1 byte, then 99 in pieces of 24
        {400, longAttr.c_str(), 5, 0, 0}, // attr longer than 65535
        {100, nullptr, -1, 0, 0},
        {0, nullptr, 300, 100, 4}, // 0 takes the engine's capacity: 66 per piece
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(testing::Message() << "capacity " << r.capacity << " length " << r.length);
        out = untouched;
        EXPECT_EQ(kz_protocol_pack(e, out.data(), r.capacity, 1, r.attr, body.data(), r.length),
                  r.written);
        EXPECT_EQ(out.substr(static_cast<size_t>(r.written)),
                  untouched.substr(static_cast<size_t>(r.written)));
        EXPECT_EQ(kz_protocol_pending(e)->count, r.pending);
        if (r.capacity == 0) { // the first piece, in the documented layout
            EXPECT_EQ(out.substr(0, 100), rawFrame(pieceFields(1, 300, 0, body.substr(0, 66))));
        }
        while (kz_list_node* node = kz_list_take_node(kz_protocol_pending(e),
                                                      kz_list_node_at(kz_protocol_pending(e), 0)))
            kz_list_node_destroy(node);
    }
    EXPECT_EQ(kz_protocol_pack(nullptr, out.data(), 100, 1, nullptr, body.data(), 5), 0);
    EXPECT_EQ(kz_protocol_pack(e, nullptr, 100, 1, nullptr, body.data(), 5), 0);
    EXPECT_EQ(kz_protocol_pack(e, out.data(), 100, 1, nullptr, nullptr, 5), 0);
}

// A large body in each piece mode: the nodes the resolver drains, and one data
// event at the receiver.
class SplitModes : public testing::TestWithParam<int>
{
};

TEST_P(SplitModes, SplitBodyReassemblesIntoOneDataEvent)
{
    const int mode = GetParam();
    EnginePtr engine(kz_type_new(kz__protoiot, KZ_OPT_PIECES, mode, 0));
    const std::string body = randomBytes(10000, 4);
    std::string out(512, '\0');
    ASSERT_EQ(kz_protocol_pack(engine.get(), out.data(), 512, 41, "file.bin", body.data(), 10000),
              512);
    kz_list* pending = kz_protocol_pending(engine.get());
    const int first = 512 - KZ_PIECE_OVERHEAD - 8, step = 512 - KZ_PIECE_OVERHEAD;
    const int nodes = (10000 - first + step - 1) / step;
    ASSERT_EQ(pending->count, nodes);
    const unsigned flags[] = {0u, KZ_NODE_OWN_SEQ, KZ_NODE_PACKED};
    for (int i = 0; i < nodes; ++i) {
        EXPECT_EQ(kz_list_node_at(pending, i)->seq, 41);
        EXPECT_EQ(kz_list_node_at(pending, i)->flags, flags[mode]);
    }
    const std::string tag =
        mode == KZ_PIECES_PACKED ? "" : "\x01P41:10000:" + std::to_string(first);
    EXPECT_EQ(std::string(kz_list_node_at(pending, 0)->bytes), tag);
    while (kz_list_node* node = kz_list_take_node(pending, kz_list_node_at(pending, 0)))
        kz_list_node_destroy(node);

    int seq = 41;
    auto frames = packMessage(engine.get(), 512, seq, "file.bin", body);
    EXPECT_EQ(seq, mode == KZ_PIECES_FRESH_SEQ ? 42 + nodes : 42);
    Receiver rx;
    EXPECT_EQ(rx.feed(join(frames)), 1);
    ASSERT_EQ(rx.events.size(), 1u);
    EXPECT_EQ(rx.events[0], (Ev{KZ_EVENT_DATA, "data,file.bin", body, 10000, nodes + 1}));
}

INSTANTIATE_TEST_SUITE_P(AllModes, SplitModes,
                         testing::Values(KZ_PIECES_FRESH_SEQ, KZ_PIECES_OWN_SEQ, KZ_PIECES_PACKED));

// ---------------------------------------------------------------------------
// Receiving

TEST(Receive, DataEventsCarryTheSequenceNumberOfTheFirstFrame)
{
    EnginePtr tx(kz_type_new(kz__protoiot, 0));
    int seq = 41;
    std::string stream = join(packMessage(tx.get(), 200, seq, "", randomBytes(900, 3)));
    stream += join(packMessage(tx.get(), 2048, seq, "", "whole"));
    ASSERT_EQ(seq, 48); // six pieces, one whole frame
    Receiver rx;
    rx.feed(stream);
    EXPECT_EQ(rx.seqs, (std::vector<uint32_t>{41, 47}));
}

TEST(Receive, EverySplitOfTheStreamGivesTheSameEvents)
{
    // Every kind of event: whole frames with and without attr, a split body,
    // a damaged frame and garbage around them.
    Sender tx;
    tx.seq = 100;
    std::string damaged = wholeFrame(5, "", "this frame gets a bad byte");
    damaged[20] ^= 0x40;
    const std::string stream = "garbage K KZ \x4B" + join(tx.pack(2048, "first body", "one")) +
                               join(tx.pack(2048, randomBytes(700, 6))) + "\x4B\x5A\x01" +
                               join(tx.pack(200, randomBytes(900, 7), "split")) + damaged +
                               randomBytes(50, 8) + join(tx.pack(2048, "last body", "last"));
    Receiver reference;
    EXPECT_EQ(reference.feed(stream), 5);
    const auto data = reference.ofType(KZ_EVENT_DATA);
    ASSERT_EQ(data.size(), 4u);
    EXPECT_EQ(data[0], (Ev{KZ_EVENT_DATA, "data,one", "first body", 10, 1}));
    EXPECT_EQ(data[1].name, "data");
    EXPECT_EQ(data[2].name, "data,split");
    EXPECT_EQ(data[2].length2, 6); // 900 bytes, 200-byte frames
    EXPECT_EQ(data[3].data, "last body");
    EXPECT_EQ(reference.noticeCount(), 1u);

    for (size_t cut = 0; cut <= stream.size(); ++cut) {
        Receiver rx;
        rx.feed(stream.substr(0, cut));
        rx.feed(stream.substr(cut));
        ASSERT_EQ(rx.events, reference.events) << "cut at " << cut;
    }
    Receiver bytewise;
    bytewise.feedBytewise(stream);
    EXPECT_EQ(bytewise.events, reference.events);
    std::mt19937 rng(9);
    for (int round = 0; round < 50; ++round) {
        Receiver rx;
        for (size_t pos = 0, n; pos < stream.size(); pos += n) {
            n = std::min<size_t>(rng() % 40 + 1, stream.size() - pos);
            rx.feed(stream.substr(pos, n));
        }
        ASSERT_EQ(rx.events, reference.events) << "round " << round;
    }
}

TEST(Receive, GarbageBeforeAndBetweenFramesIsSkipped)
{
    std::string badVersion = wholeFrame(1, "", "never"), badFlags = badVersion;
    badVersion[2] = 0x02;
    badFlags[3] = 0x02;
    std::string badHeaderCrc = wholeFrame(1, "", "never either");
    badHeaderCrc[14] ^= 1;
    // A wrong header CRC under a frame CRC that matches the bytes as sent.
    std::string onlyHeaderCrc = wholeFrame(1, "", "nor this");
    onlyHeaderCrc[15] ^= 4;
    onlyHeaderCrc.resize(onlyHeaderCrc.size() - 4);
    put(onlyHeaderCrc, kz_crc32(0, onlyHeaderCrc.data(), onlyHeaderCrc.size()), 4);
    const std::string stream = randomBytes(333, 10) + "KKKZZ" + wholeFrame(1, "", "alpha") + "KZ" +
                               badVersion + badFlags + badHeaderCrc + onlyHeaderCrc + "KZ\x01" +
                               wholeFrame(2, "x", "beta") + randomBytes(1000, 11) +
                               wholeFrame(3, "", "gamma") + "K";
    Receiver rx;
    rx.feed(stream);
    EXPECT_EQ(rx.bodies(), (Bodies{"alpha", "beta", "gamma"}));
    EXPECT_EQ(rx.noticeCount(), 0u); // garbage is not a dropped frame
    Receiver bytewise;
    bytewise.feedBytewise(stream);
    EXPECT_EQ(bytewise.events, rx.events);
    // The counts, copied and where the engine keeps them: the final "K" is
    // taken in but waits for the rest of its frame.
    kz_rx_stats copied{};
    ASSERT_EQ(kz_protocol_rx_stats(rx.engine(), &copied), 0);
    const kz_rx_stats* kept = kz_protocol_rx_counts(rx.engine());
    ASSERT_NE(kept, nullptr);
    EXPECT_EQ(copied.bytes_in, stream.size());
    EXPECT_EQ(copied.frames, 3u);
    EXPECT_EQ(kept->bytes_in, copied.bytes_in);
    EXPECT_EQ(kept->frames, copied.frames);
    EXPECT_EQ(kept->skipped, copied.skipped);
    EXPECT_EQ(kz_protocol_rx_counts(nullptr), nullptr);
    // Empty input is ignored and leaves nothing behind.
    EXPECT_EQ(kz_protoiot_engine.input(rx.engine(), nullptr, 5), 0);
    EXPECT_EQ(kz_protoiot_engine.input(rx.engine(), "KZ", -2), 0);
    EXPECT_EQ(kz_protoiot_engine.input(nullptr, "KZ", 2), -1);
    EXPECT_EQ(rx.feed(wholeFrame(4, "", "c")), 1);
}

TEST(Receive, AnyCorruptedByteLosesOnlyItsFrame)
{
    const std::string a = wholeFrame(1, "at", "first frame");
    const std::string b = wholeFrame(2, "bt", "second frame, the one that gets damaged");
    const std::string c = wholeFrame(3, "", "third frame");
    for (size_t i = 0; i < b.size(); ++i) {
        for (unsigned char flip : {0x01, 0x80, 0xFF}) {
            std::string damaged = b;
            damaged[i] = static_cast<char>(damaged[i] ^ flip);
            Receiver rx;
            rx.feed(a + damaged + c);
            ASSERT_EQ(rx.bodies(), (Bodies{"first frame", "third frame"}))
                << "byte " << i << " flip " << int(flip);
            if (i >= 18) { // past the header: a checksum drop of the whole frame
                auto notices = rx.ofType(KZ_EVENT_NOTICE);
                ASSERT_EQ(notices.size(), 1u) << "byte " << i;
                EXPECT_EQ(notices[0].length, static_cast<int>(b.size()));
            }
        }
    }
}

TEST(Receive, TruncatedFrameDoesNotSwallowTheNextOnes)
{
    // The header of the second frame is intact but 10 of its bytes never
    // arrive: the receiver waits, finds the checksum wrong, and rescans the
    // bytes it held, which contain the following frames.
    const std::string b = wholeFrame(2, "", std::string(100, 'b'));
    const std::string stream = wholeFrame(1, "", "one") + b.substr(0, b.size() - 10) +
                               wholeFrame(3, "", "three") +
                               wholeFrame(4, "", std::string(200, 'f'));
    Receiver rx, bytewise;
    rx.feed(stream);
    EXPECT_EQ(rx.bodies(), (Bodies{"one", "three", std::string(200, 'f')}));
    EXPECT_EQ(rx.noticeCount(), 1u);
    bytewise.feedBytewise(stream);
    EXPECT_EQ(bytewise.events, rx.events);
}

TEST(Receive, HugeClaimsAreDroppedWithoutAllocating)
{
    FrameFields piece = pieceFields(1, 0xFFFFFFFFu, 0, "");
    piece.claimedLength = 10;
    Receiver rx;
    const size_t before = heapInUse();
    rx.feed(headerOnly(claiming(0xFFFFFFFFll)) + headerOnly(piece) +
            headerOnly(claiming(KZ_DEFAULT_MAX_BODY + 1)) + wholeFrame(1, "", "still here"));
    EXPECT_LT(heapInUse() - before, 64u * 1024);
    EXPECT_EQ(rx.bodies(), (Bodies{"still here"}));
    auto notices = rx.ofType(KZ_EVENT_NOTICE);
    ASSERT_EQ(notices.size(), 3u);
    // Each names the body size it claimed (capped at INT_MAX).
    EXPECT_EQ(notices[0].length, INT_MAX);
    EXPECT_EQ(notices[1].length, INT_MAX);
    EXPECT_EQ(notices[2].length, KZ_DEFAULT_MAX_BODY + 1);
    for (const auto& n : notices) EXPECT_EQ(n.length2, KZ_DROP_TOO_LARGE);

    // A legal but large claim: only the bytes that arrived are buffered.
    const size_t start = heapInUse();
    rx.feed(headerOnly(claiming(KZ_DEFAULT_MAX_BODY)) + std::string(1000, 'x'));
    EXPECT_LT(heapInUse() - start, 64u * 1024);
    for (int i = 0; i < 100; ++i) rx.feed(std::string(1000, 'x'));
    EXPECT_LT(heapInUse() - start, 512u * 1024);
    rx.reset();
    EXPECT_LT(heapInUse(), start + 16u * 1024);
    rx.feed(wholeFrame(2, "", "after reset"));
    EXPECT_EQ(rx.bodies().back(), "after reset");

    // A block of many frames arriving after a buffered partial frame is not
    // copied whole into the receive buffer.
    std::string many;
    for (uint32_t i = 0; i < 2000; ++i) many += wholeFrame(i, "", std::string(1000, 'm'));
    many += many.substr(0, 10);
    EnginePtr plain(kz_type_new(kz__protoiot, 0)); // events not recorded
    EXPECT_EQ(kz_protoiot_engine.input(plain.get(), "KZ", 2), 0);
    const size_t held = heapInUse();
    EXPECT_EQ(kz_protoiot_engine.input(plain.get(), many.data(), int(many.size())), 2000);
    EXPECT_LT(heapInUse() - held, 64u * 1024);
}

TEST(Receive, HeadersClaimingHugeFramesEveryFewBytesCostLinearWork)
{
    // Well-formed headers, one every 18 bytes, each claiming the largest
    // frame: checking every one of them over the bytes that follow would
    // cost a full-frame checksum per 18 bytes received. Once the resync
    // allowance is spent a failed frame is skipped whole, so this finishes
    // at once; with a checksum per header it would run for hours.
    const int maxBody = 4 << 20;
    Receiver rx(maxBody);
    const std::string header = headerOnly(claiming(maxBody));
    std::string attack;
    while (attack.size() < size_t(3 * maxBody)) attack += header;
    for (size_t at = 0; at < attack.size(); at += 64 * 1024) rx.feed(attack.substr(at, 64 * 1024));
    // The last claim still holds the stream until its bytes have come.
    rx.feed(std::string(maxBody + 64, '\0') + wholeFrame(9, "", "after the flood"));
    EXPECT_EQ(rx.bodies(), Bodies{"after the flood"});

    // Which failed frames are skipped whole depends on the stream alone, not
    // on how it was cut.
    const int smallBody = 64 << 10;
    std::string flood = wholeFrame(1, "", "before");
    while (flood.size() < size_t(4 * smallBody)) flood += headerOnly(claiming(smallBody));
    flood += std::string(smallBody + 64, '\0') + wholeFrame(2, "", "after");
    Receiver whole(smallBody), bytewise(smallBody);
    whole.feed(flood);
    bytewise.feedBytewise(flood);
    EXPECT_EQ(whole.bodies(), (Bodies{"before", "after"}));
    EXPECT_EQ(bytewise.events, whole.events);
}

TEST(Receive, BodyLimitAndPieceHeaderLimits)
{
    // Pieces that are empty, run past their total, or carry an attr after
    // the first.
    FrameFields pastTotal = pieceFields(1, 10, 5, "abcdef"),
                laterAttr = pieceFields(1, 10, 3, "abc");
    laterAttr.attr = "x";
    Receiver rx(100);
    rx.feed(rawFrame(pieceFields(1, 10, 0, "")) + rawFrame(pastTotal) + rawFrame(laterAttr));
    EXPECT_EQ(rx.notices(), std::vector<std::string>(3, "frame header out of limits"));

    // The max-body option, on whole frames and on split bodies' totals.
    const std::string hundred = randomBytes(100, 12);
    rx.events.clear();
    rx.feed(wholeFrame(1, "", hundred) + wholeFrame(2, "", hundred + "!"));
    EXPECT_EQ(rx.bodies(), (Bodies{hundred}));
    EXPECT_EQ(rx.noticeCount(), 1u);
    // Small frames too (those are checked the short way).
    Receiver eight(8);
    eight.feed(wholeFrame(1, "", "12345678") + wholeFrame(2, "", "123456789"));
    EXPECT_EQ(eight.bodies(), (Bodies{"12345678"}));
    EXPECT_EQ(eight.notices(), std::vector<std::string>{"body over the receive limit"});
    Sender tx;
    rx.events.clear();
    rx.feed(join(tx.pack(60, hundred + "!")) + join(tx.pack(60, hundred)));
    EXPECT_EQ(rx.bodies(), (Bodies{hundred}));
}

// The limit changed on a live engine: raised, a large body that was refused
// passes; lowered, whole frames and split bodies over it are refused; a
// frame whose header came before the change is checked again at its end.
TEST(Receive, TheBodyLimitChangesBetweenInputs)
{
    const std::string hundred = randomBytes(100, 13), fifty = hundred.substr(0, 50);
    Receiver rx(60);
    EXPECT_EQ(kz_protocol_set_max_body(rx.engine(), 0), -1);
    EXPECT_EQ(kz_protocol_set_max_body(nullptr, 100), -1);
    rx.feed(wholeFrame(1, "", hundred));
    EXPECT_EQ(rx.noticeCount(), 1u);
    ASSERT_EQ(kz_protocol_set_max_body(rx.engine(), 100), 0);
    EXPECT_EQ(kz_protocol_option(rx.engine(), KZ_OPT_MAX_BODY), 100);
    Sender tx;
    rx.feed(wholeFrame(2, "", hundred) + join(tx.pack(40, hundred)));
    EXPECT_EQ(rx.bodies(), (Bodies{hundred, hundred}));

    ASSERT_EQ(kz_protocol_set_max_body(rx.engine(), 60), 0);
    rx.events.clear();
    rx.feed(wholeFrame(3, "", hundred) + join(tx.pack(40, hundred)) + wholeFrame(4, "", fifty));
    EXPECT_EQ(rx.bodies(), (Bodies{fifty}));
    EXPECT_EQ(rx.notices(), std::vector<std::string>(2, "body over the receive limit"));

    // Half a frame under a high limit, the limit lowered, the other half.
    ASSERT_EQ(kz_protocol_set_max_body(rx.engine(), 100), 0);
    const std::string frame = wholeFrame(5, "", hundred);
    rx.events.clear();
    rx.feed(frame.substr(0, 40));
    ASSERT_EQ(kz_protocol_set_max_body(rx.engine(), 60), 0);
    rx.feed(frame.substr(40) + wholeFrame(6, "", fifty));
    EXPECT_EQ(rx.bodies(), (Bodies{fifty}));

    // Not from inside input(): a handler's call is refused.
    int fromHandler = 0;
    rx.hook = [&](kz_event*) { fromHandler = kz_protocol_set_max_body(rx.engine(), 1000); };
    rx.feed(wholeFrame(7, "", fifty));
    EXPECT_EQ(fromHandler, -1);
    EXPECT_EQ(kz_protocol_option(rx.engine(), KZ_OPT_MAX_BODY), 60);
}

TEST(Reassembly, LostRepeatedAndOrphanPieces)
{
    Sender tx;
    const std::string a = randomBytes(500, 13), b = randomBytes(500, 14);
    auto framesA = tx.pack(134, a); // 100 bytes per piece
    ASSERT_EQ(framesA.size(), 5u);
    Receiver rx;
    for (size_t i = 0; i < framesA.size(); ++i)
        if (i != 2) rx.feed(framesA[i]);
    rx.feed(join(tx.pack(134, b)));
    EXPECT_EQ(rx.bodies(), (Bodies{b}));
    auto notices = rx.ofType(KZ_EVENT_NOTICE);
    ASSERT_EQ(notices.size(), 2u);
    EXPECT_EQ(notices[0].data, "piece out of order, partial body dropped");
    EXPECT_EQ(notices[0].length, 300); // two pieces held, one arriving
    EXPECT_EQ(notices[1].data, "piece without a start");

    // Losing the first piece: every later one is an orphan.
    rx.events.clear();
    auto framesC = tx.pack(134, a);
    for (size_t i = 1; i < framesC.size(); ++i) rx.feed(framesC[i]);
    EXPECT_EQ(rx.notices(), std::vector<std::string>(4, "piece without a start"));
    // A repeated piece breaks the order as well.
    rx.events.clear();
    auto framesD = tx.pack(134, a);
    rx.feed(framesD[0] + framesD[1] + framesD[1] + framesD[2]);
    EXPECT_TRUE(rx.bodies().empty());
}

TEST(Reassembly, InterleavedBodiesAndRestartsReassemble)
{
    Sender tx;
    const std::string a = randomBytes(450, 15), b = randomBytes(380, 16);
    auto fa = tx.pack(134, a, "A"), fb = tx.pack(134, b, "B");
    Receiver rx;
    for (size_t i = 0; i < std::max(fa.size(), fb.size()); ++i) {
        if (i < fb.size()) rx.feed(fb[i]);
        if (i < fa.size()) rx.feed(fa[i]);
    }
    ASSERT_EQ(rx.events.size(), 2u);
    EXPECT_EQ(rx.events[0], (Ev{KZ_EVENT_DATA, "data,B", b, 380, 4}));
    EXPECT_EQ(rx.events[1], (Ev{KZ_EVENT_DATA, "data,A", a, 450, 5}));

    // A new start with the same message id replaces the partial body.
    rx.events.clear();
    auto fc = tx.pack(134, a, "C");
    rx.feed(fc[0] + fc[1] + join(fc));
    ASSERT_EQ(rx.events.size(), 2u);
    EXPECT_EQ(rx.events[0].data, "partial body replaced by a new start");
    EXPECT_EQ(rx.events[0].length, 199); // 99 bytes beside the attr, then 100
    EXPECT_EQ(rx.events[1], (Ev{KZ_EVENT_DATA, "data,C", a, 450, 5}));
}

TEST(Reassembly, PartialBodiesAreBoundedInNumberAndBytes)
{
    // At most four partial bodies: the oldest goes.
    Sender tx;
    std::vector<std::vector<std::string>> messages;
    Bodies bodies;
    for (uint32_t m = 0; m < 5; ++m) {
        bodies.push_back(randomBytes(300, 20 + m));
        messages.push_back(tx.pack(134, bodies.back()));
    }
    Receiver rx;
    for (const auto& m : messages) rx.feed(m[0]);
    auto notices = rx.ofType(KZ_EVENT_NOTICE);
    ASSERT_EQ(notices.size(), 1u);
    EXPECT_EQ(notices[0].data, "partial body discarded to make room");
    EXPECT_EQ(notices[0].length, 100);
    rx.events.clear();
    for (const auto& m : messages)
        for (size_t i = 1; i < m.size(); ++i) rx.feed(m[i]);
    EXPECT_EQ(rx.bodies(), Bodies(bodies.begin() + 1, bodies.end()));
    EXPECT_EQ(rx.noticeCount(), 2u); // the rest of message 0: orphans

    // The bytes held by all partial bodies together stay within the limit.
    Receiver limited(1000);
    auto a = tx.pack(134, randomBytes(1000, 30)), b = tx.pack(134, randomBytes(1000, 31));
    for (size_t i = 0; i < 6; ++i) limited.feed(a[i]);
    EXPECT_EQ(limited.noticeCount(), 0u);
    for (size_t i = 0; i < 6; ++i) limited.feed(b[i]);
    EXPECT_EQ(limited.notices(), (std::vector<std::string>{"partial body discarded to make room"}));
    for (size_t i = 6; i < b.size(); ++i) limited.feed(b[i]);
    EXPECT_EQ(limited.bodies().size(), 1u);

    // Many large bodies started and never finished: memory is bounded by the
    // limit, not by what the senders claimed.
    Receiver big(1 << 20);
    const std::string chunk = randomBytes(60000, 32);
    const size_t before = heapInUse();
    for (uint32_t id = 0; id < 100; ++id)
        big.feed(rawFrame(pieceFields(id, 1 << 20, 0, chunk)) +
                 rawFrame(pieceFields(id, 1 << 20, 60000, chunk)));
    EXPECT_LT(heapInUse() - before, (1u << 20) + 256u * 1024);
    EXPECT_EQ(big.noticeCount(), 96u);
}

TEST(Reassembly, ABodysBufferServesTheNextAndIsReleasedWhenIdle)
{
    // Bodies of all sizes in a row, each reassembled in the buffer the one
    // before left (larger or smaller than it needs).
    Sender tx;
    Receiver rx;
    const Bodies bodies{randomBytes(300000, 40), randomBytes(5000, 41), randomBytes(70000, 42),
                        randomBytes(2100, 43)};
    for (const auto& b : bodies) rx.feed(join(tx.pack(2048, b)));
    EXPECT_EQ(rx.bodies(), bodies);

    // The buffer is kept while split bodies come, and let go after a run of
    // whole frames, or by a reset.
    EnginePtr plain(kz_type_new(kz__protoiot, 0)); // events not recorded
    const std::string big = join(tx.pack(2048, randomBytes(300000, 44)));
    std::string wholes;
    for (uint32_t i = 0; i < 32; ++i) wholes += wholeFrame(i, "", "small");
    const size_t before = heapInUse();
    EXPECT_EQ(kz_protoiot_engine.input(plain.get(), big.data(), int(big.size())), 1);
    EXPECT_GE(heapInUse() - before, 300000u);
    EXPECT_EQ(kz_protoiot_engine.input(plain.get(), wholes.data(), int(wholes.size())), 32);
    EXPECT_LT(heapInUse() - before, 64u * 1024);
    EXPECT_EQ(kz_protoiot_engine.input(plain.get(), big.data(), int(big.size())), 1);
    EXPECT_GE(heapInUse() - before, 300000u);
    kz_protoiot_engine.reset(plain.get());
    EXPECT_LT(heapInUse() - before, 64u * 1024);
}

// A body sink that takes the bodies whose event name is "data,T" and keeps
// a log of its calls: "open", "put <offset>", "close <complete>".
struct Sink
{
    struct Body
    {
        std::string bytes;
    };
    std::vector<std::string> log;
    std::vector<std::unique_ptr<Body>> bodies;
    bool failPut = false;

    kz_body_sink table()
    {
        kz_body_sink t{};
        t.context = this;
        t.open = [](void* c, const char* name, uint32_t total, const void*, size_t) -> void* {
            auto* self = static_cast<Sink*>(c);
            if (std::string(name) != "data,T") return nullptr;
            self->log.push_back("open " + std::to_string(total));
            self->bodies.push_back(std::make_unique<Body>());
            return self->bodies.back().get();
        };
        t.put = [](void* c, void* body, uint32_t offset, const void* data, size_t n) {
            auto* self = static_cast<Sink*>(c);
            auto* b = static_cast<Body*>(body);
            self->log.push_back("put " + std::to_string(offset));
            if (self->failPut || offset != b->bytes.size()) return 0;
            b->bytes.append(static_cast<const char*>(data), n);
            return 1;
        };
        t.close = [](void* c, void*, int complete) {
            static_cast<Sink*>(c)->log.push_back("close " + std::to_string(complete));
        };
        return t;
    }
};

TEST(Reassembly, ABodySinkTakesTheBodiesItOpensAndEndsEachOnce)
{
    Sender tx;
    const std::string a = randomBytes(450, 50), b = randomBytes(380, 51);
    Receiver rx;
    Sink sink;
    const kz_body_sink table = sink.table();
    ASSERT_EQ(kz_protocol_set_body_sink(rx.engine(), &table), 0);
    std::string taken;
    rx.hook = [&](kz_event* e) {
        if (e->type != KZ_EVENT_TAKEN) return;
        taken = static_cast<Sink::Body*>(e->data)->bytes;
        sink.log.push_back("event");
    };
    // Interleaved with a body the sink leaves to the engine.
    auto ft = tx.pack(134, a, "T"), fe = tx.pack(134, b, "E");
    for (size_t i = 0; i < ft.size(); ++i) rx.feed(ft[i] + (i < fe.size() ? fe[i] : ""));
    EXPECT_EQ(taken, a);
    EXPECT_EQ(sink.log, (std::vector<std::string>{"open 450", "put 0", "put 99", "put 199",
                                                  "put 299", "put 399", "event", "close 1"}));
    ASSERT_EQ(rx.events.size(), 2u);
    EXPECT_EQ(rx.events[0], (Ev{KZ_EVENT_DATA, "data,E", b, 380, 4}));
    EXPECT_EQ(rx.events[1].type, KZ_EVENT_TAKEN);
    EXPECT_EQ(rx.events[1].name, "data,T");
    EXPECT_EQ(rx.events[1].length, 450);
    EXPECT_EQ(rx.events[1].length2, 5);

    using Notices = std::vector<std::string>;
    // Every way a taken body ends unfinished closes it once: out of order,
    // replaced by a new start, refused by put, reset, the engine destroyed.
    const auto unfinished = [&](const std::function<void(Receiver&)>& run) {
        auto r = std::make_unique<Receiver>(1000);
        sink.log.clear();
        kz_protocol_set_body_sink(r->engine(), &table);
        run(*r);
        const Notices notices = r->notices();
        r.reset();
        const auto closes = std::count(sink.log.begin(), sink.log.end(), "close 0");
        return std::make_pair(int(closes), notices);
    };
    auto t = tx.pack(134, a, "T");
    EXPECT_EQ(unfinished([&](Receiver& r) { r.feed(t[0] + t[2]); }),
              std::make_pair(1, Notices{"piece out of order, partial body dropped"}));
    EXPECT_EQ(unfinished([&](Receiver& r) { r.feed(t[0] + join(t)); }),
              std::make_pair(1, Notices{"partial body replaced by a new start"}));
    sink.failPut = true;
    EXPECT_EQ(unfinished([&](Receiver& r) { r.feed(join(t)); }),
              std::make_pair(1, Notices{"out of memory, bytes dropped", "piece without a start",
                                        "piece without a start", "piece without a start",
                                        "piece without a start"}));
    sink.failPut = false;
    EXPECT_EQ(unfinished([&](Receiver& r) { r.feed(t[0] + t[1]), r.reset(); }),
              std::make_pair(1, Notices{}));
    EXPECT_EQ(unfinished([&](Receiver& r) { r.feed(t[0]); }), std::make_pair(1, Notices{}));
    // A taken body counts at its whole total: a second body that starts
    // within the limit of 1000 bytes pushes it out.
    auto big = tx.pack(134, randomBytes(900, 52), "T"), other = tx.pack(134, randomBytes(300, 53));
    EXPECT_EQ(unfinished([&](Receiver& r) { r.feed(big[0] + other[0] + other[1]); }),
              std::make_pair(1, Notices{"partial body discarded to make room"}));

    // No sink, or one without its other functions, is refused or ends the offers.
    kz_body_sink half = table;
    half.close = nullptr;
    EXPECT_EQ(kz_protocol_set_body_sink(nullptr, &table), -1);
    EXPECT_EQ(kz_protocol_set_body_sink(rx.engine(), &half), -1);
    EXPECT_EQ(kz_protocol_set_body_sink(rx.engine(), nullptr), 0);
    rx.events.clear();
    rx.feed(join(tx.pack(134, a, "T")));
    EXPECT_EQ(rx.bodies(), (Bodies{a}));
}

TEST(Receive, ResetForgetsBufferedBytesAndPartialBodiesAndHandlersMayReset)
{
    const std::string frame = wholeFrame(1, "", "complete me");
    Receiver rx;
    rx.feed(frame.substr(0, 20));
    rx.reset();
    rx.feed(frame.substr(20));
    EXPECT_TRUE(rx.events.empty());
    Sender tx;
    auto pieces = tx.pack(134, randomBytes(300, 33));
    rx.feed(pieces[0]);
    rx.reset();
    rx.feed(pieces[1] + pieces[2] + frame);
    EXPECT_EQ(rx.bodies(), (Bodies{"complete me"}));
    EXPECT_EQ(rx.noticeCount(), 2u);

    // A handler may reset the engine, but not feed it.
    Receiver hooked;
    int nested = 0;
    hooked.hook = [&](kz_event* e) {
        nested = kz_protoiot_engine.input(e->object, "KZ", 2);
        kz_protoiot_engine.reset(e->object);
    };
    EXPECT_EQ(hooked.feed(wholeFrame(1, "", "a") + wholeFrame(2, "", "b") + "KZ\x01"), 1);
    EXPECT_EQ(nested, -1);
    hooked.hook = nullptr;
    // The reset took the rest of that input and the buffered tail with it.
    EXPECT_EQ(hooked.feed(wholeFrame(3, "", "c")), 1);
    EXPECT_EQ(hooked.bodies(), (Bodies{"a", "c"}));
}

TEST(Receive, MutatedStreamsNeverYieldForgedBodies)
{
    Sender tx;
    Bodies originals;
    std::string stream;
    for (uint32_t m = 0; m < 8; ++m) {
        originals.push_back(randomBytes(50 + 97 * m, 40 + m));
        stream += join(tx.pack(256, originals.back(), m % 2 ? "x" : nullptr));
    }
    std::mt19937 rng(41);
    for (int round = 0; round < 300; ++round) {
        std::string s = stream;
        const int edits = static_cast<int>(rng() % 6);
        for (int k = 0; k < edits && !s.empty(); ++k) {
            const size_t at = rng() % s.size();
            switch (rng() % 4) {
            case 0:
                s[at] = static_cast<char>(rng());
                break;
            case 1:
                s.erase(at, rng() % 300);
                break;
            case 2:
                s.insert(at, randomBytes(rng() % 40, rng()));
                break;
            default:
                s.insert(at, s.substr(rng() % s.size(), rng() % 300));
            }
        }
        Receiver rx;
        for (size_t pos = 0, n; pos < s.size(); pos += n) {
            n = std::min<size_t>(rng() % 200 + 1, s.size() - pos);
            ASSERT_GE(rx.feed(s.substr(pos, n)), 0);
        }
        for (const auto& body : rx.bodies())
            EXPECT_NE(std::find(originals.begin(), originals.end(), body), originals.end())
                << "round " << round;
        EXPECT_TRUE(edits != 0 || rx.bodies() == originals) << "round " << round;
    }
}

} // namespace
