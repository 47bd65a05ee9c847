// Tests of the kzapin frame library: CRC and body coding, packing and
// splitting, the receive path (resync, damage, limits, reassembly), the
// pending list and the typed objects.
#include <kzapin/kzapin.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdint>
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

// ---------------------------------------------------------------------------
// An independent writer of the documented frame layout, used to check the
// packer and to forge hostile frames.

void put16(std::string& s, uint32_t v)
{
    s += static_cast<char>(v & 0xFF);
    s += static_cast<char>((v >> 8) & 0xFF);
}

void put32(std::string& s, uint32_t v)
{
    for (int i = 0; i < 4; ++i) s += static_cast<char>((v >> (8 * i)) & 0xFF);
}

uint32_t crcOf(const std::string& s) { return kz_crc32(0, s.data(), s.size()); }

struct FrameSpec
{
    uint32_t seq = 0;
    std::string attr;
    std::string data;
    bool piece = false;
    uint32_t id = 0;
    uint32_t total = 0;
    uint32_t offset = 0;
    int64_t claimedLength = -1; // data length written in the header, -1 = real
    int version = 1;
};

std::string rawFrame(const FrameSpec& f)
{
    std::string s = "KZ";
    s += static_cast<char>(f.version);
    s += static_cast<char>(f.piece ? 1 : 0);
    put32(s, f.seq);
    put16(s, static_cast<uint32_t>(f.attr.size()));
    put32(s, f.claimedLength < 0 ? static_cast<uint32_t>(f.data.size())
                                 : static_cast<uint32_t>(f.claimedLength));
    if (f.piece) {
        put32(s, f.id);
        put32(s, f.total);
        put32(s, f.offset);
    }
    put32(s, crcOf(s));
    s += f.attr;
    s += f.data;
    put32(s, crcOf(s));
    return s;
}

std::string wholeFrame(uint32_t seq, const std::string& attr, const std::string& data)
{
    FrameSpec f;
    f.seq = seq;
    f.attr = attr;
    f.data = data;
    return rawFrame(f);
}

std::string pieceFrame(uint32_t seq, uint32_t id, uint32_t total, uint32_t offset,
                       const std::string& data, const std::string& attr = "")
{
    FrameSpec f;
    f.seq = seq;
    f.attr = attr;
    f.data = data;
    f.piece = true;
    f.id = id;
    f.total = total;
    f.offset = offset;
    return rawFrame(f);
}

// Just the header and header CRC of a frame: all that a receiver reads
// before it decides whether to wait for the rest.
std::string headerOnly(const FrameSpec& f) { return rawFrame(f).substr(0, f.piece ? 30 : 18); }

// ---------------------------------------------------------------------------

struct EngineDeleter
{
    void operator()(void* p) const { kz_type_delete(p); }
};
using EnginePtr = std::unique_ptr<void, EngineDeleter>;

struct Ev
{
    int type;
    std::string name;
    std::string data;
    int length;
    int length2;
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
    explicit Receiver(void* engine) : engine_(engine)
    {
        auto* o = static_cast<kz_object*>(engine);
        o->user = this;
        o->handler = &Receiver::onEvent;
    }
    Receiver() : Receiver(kz_type_new(kz__protoiot, 0)) {}
    Receiver(const Receiver&) = delete;
    Receiver& operator=(const Receiver&) = delete;

    void* engine() const { return engine_.get(); }

    int feed(const std::string& bytes)
    {
        return kz_protoiot_engine.input(engine(), bytes.data(), static_cast<int>(bytes.size()));
    }
    void feedBytewise(const std::string& bytes)
    {
        for (char c : bytes) kz_protoiot_engine.input(engine(), &c, 1);
    }

    std::vector<Ev> ofType(int type) const
    {
        std::vector<Ev> out;
        for (const auto& e : events)
            if (e.type == type) out.push_back(e);
        return out;
    }
    std::vector<std::string> bodies() const
    {
        std::vector<std::string> out;
        for (const auto& e : events)
            if (e.type == KZ_EVENT_DATA) out.push_back(e.data);
        return out;
    }
    size_t noticeCount() const { return ofType(KZ_EVENT_NOTICE).size(); }

    std::vector<Ev> events;
    std::function<void(kz_event*)> hook;

private:
    static int onEvent(kz_event* e)
    {
        auto* self = static_cast<Receiver*>(static_cast<kz_object*>(e->object)->user);
        Ev ev{e->type, e->name ? e->name : "<null>", "", e->length, e->length2};
        if (e->type == KZ_EVENT_DATA) {
            EXPECT_NE(e->data, nullptr);
            ev.data.assign(static_cast<const char*>(e->data), e->length);
        } else if (e->type == KZ_EVENT_NOTICE) {
            EXPECT_NE(e->data, nullptr);
            EXPECT_STREQ(static_cast<const char*>(e->data), e->name);
            EXPECT_GE(e->length, 0);
            if (e->data) ev.data = static_cast<const char*>(e->data);
        }
        self->events.push_back(ev);
        if (self->hook) self->hook(e);
        return 0;
    }

    EnginePtr engine_;
};

// Packs one message the way the resolver does: the first frame from the
// pack call, then every pending node in list order.
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
    while (kz_list_node* node = kz_list_node_at(pending, 0)) {
        EXPECT_EQ(kz_list_take_node(pending, node), node);
        const char* text = node->bytes;
        const char* after = kz_strnxt(text);
        int dataLen = node->total - static_cast<int>(std::strlen(text)) - 1;
        if (node->flags & KZ_NODE_PACKED) {
            frames.emplace_back(after, static_cast<size_t>(dataLen));
        } else {
            int pieceSeq = (node->flags & KZ_NODE_OWN_SEQ) ? node->seq : seq++;
            std::string buf(static_cast<size_t>(capacity), '\0');
            int m = kz_protocol_pack(engine, buf.data(), capacity, pieceSeq, text, after, dataLen);
            EXPECT_GT(m, 0);
            EXPECT_LE(m, capacity);
            frames.push_back(buf.substr(0, static_cast<size_t>(std::max(m, 0))));
        }
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

// ---------------------------------------------------------------------------
// CRC-32 and body coding

uint32_t bitwiseCrc(const unsigned char* p, size_t n)
{
    uint32_t c = 0xFFFFFFFFu;
    for (size_t i = 0; i < n; ++i) {
        c ^= p[i];
        for (int k = 0; k < 8; ++k) c = (c & 1) ? (c >> 1) ^ 0xEDB88320u : c >> 1;
    }
    return ~c;
}

TEST(Crc32, MatchesZlibCheckValueAndBitwiseReference)
{
    EXPECT_EQ(kz_crc32(0, "123456789", 9), 0xCBF43926u);
    EXPECT_EQ(kz_crc32(0, "", 0), 0u);

    const std::string data = randomBytes(300, 1);
    const auto* p = reinterpret_cast<const unsigned char*>(data.data());
    for (size_t start = 0; start < 8; ++start) {
        for (size_t n = 0; n < 80; ++n) {
            ASSERT_EQ(kz_crc32(0, p + start, n), bitwiseCrc(p + start, n))
                << "start " << start << " length " << n;
        }
    }
    // Continuing from a previous value equals one pass over the whole run.
    for (size_t cut : {0, 1, 7, 8, 9, 150, 299, 300}) {
        uint32_t c = kz_crc32(0, p, cut);
        EXPECT_EQ(kz_crc32(c, p + cut, 300 - cut), bitwiseCrc(p, 300)) << "cut " << cut;
    }
}

TEST(Coding, RoundTripsInPlaceAndBetweenBuffers)
{
    for (int n : {1, 2, 7, 8, 9, 15, 16, 17, 63, 64, 65, 1000, 4099}) {
        const std::string plain = randomBytes(static_cast<size_t>(n), static_cast<uint32_t>(n));
        // Sentinels on both sides catch writes past the run.
        std::string coded(static_cast<size_t>(n) + 2, '\x5C');
        kz_coding_encrypt_fast(&coded[1], plain.data(), n);
        EXPECT_EQ(coded.front(), '\x5C');
        EXPECT_EQ(coded.back(), '\x5C');
        coded = coded.substr(1, static_cast<size_t>(n));
        if (n >= 4) {
            EXPECT_NE(coded, plain) << n;
        }

        std::string inPlace = plain;
        kz_coding_encrypt_fast(inPlace.data(), inPlace.data(), n);
        EXPECT_EQ(inPlace, coded) << n;

        std::string back(static_cast<size_t>(n), '\0');
        kz_coding_decrypt_fast(back.data(), coded.data(), n);
        EXPECT_EQ(back, plain) << n;
        kz_coding_decrypt_fast(inPlace.data(), inPlace.data(), n);
        EXPECT_EQ(inPlace, plain) << n;
    }
}

TEST(Coding, KeystreamDependsOnPositionInTheRun)
{
    const std::string zeros(64, '\0');
    std::string coded(64, '\0');
    kz_coding_encrypt_fast(coded.data(), zeros.data(), 64);
    for (size_t i = 0; i < 64; i += 8) {
        for (size_t j = i + 8; j < 64; j += 8) EXPECT_NE(coded.substr(i, 8), coded.substr(j, 8));
    }
    // The same bytes coded as a shorter run starting one byte later code
    // differently: position counts from the start of the run.
    std::string tail(63, '\0');
    kz_coding_encrypt_fast(tail.data(), zeros.data() + 1, 63);
    EXPECT_NE(tail, coded.substr(1));

    std::string untouched = "abc";
    kz_coding_encrypt_fast(untouched.data(), untouched.data(), 0);
    kz_coding_decrypt_fast(untouched.data(), untouched.data(), -3);
    EXPECT_EQ(untouched, "abc");
}

// ---------------------------------------------------------------------------
// Objects

TEST(Objects, CreationOptionsAreChecked)
{
    EnginePtr plain(kz_type_new(kz__protoiot, 0));
    ASSERT_NE(plain, nullptr);
    auto* o = static_cast<kz_object*>(plain.get());
    EXPECT_EQ(o->type, kz__protoiot);
    EXPECT_EQ(o->handler, &kz_protoiot_event_handler);
    EXPECT_EQ(o->user, nullptr);
    kz_event e{KZ_EVENT_DATA, o, "data", nullptr, 0, 1};
    EXPECT_EQ(kz_protoiot_event_handler(&e), 0);

    EnginePtr all(kz_type_new(kz__protoiot, KZ_OPT_CAPACITY, 4096, KZ_OPT_MAX_BODY, 1,
                              KZ_OPT_PIECES, KZ_PIECES_PACKED, 0));
    EXPECT_NE(all, nullptr);

    EXPECT_EQ(kz_type_new(kz__protoiot, KZ_OPT_CAPACITY, 0, 0), nullptr);
    EXPECT_EQ(kz_type_new(kz__protoiot, KZ_OPT_CAPACITY, -1, 0), nullptr);
    EXPECT_EQ(kz_type_new(kz__protoiot, KZ_OPT_MAX_BODY, 0, 0), nullptr);
    EXPECT_EQ(kz_type_new(kz__protoiot, KZ_OPT_PIECES, 3, 0), nullptr);
    EXPECT_EQ(kz_type_new(kz__protoiot, KZ_OPT_PIECES, -1, 0), nullptr);
    EXPECT_EQ(kz_type_new(kz__protoiot, 99, 1, 0), nullptr);
    EXPECT_EQ(kz_type_new(kz__object, 0), nullptr);
    EXPECT_EQ(kz_type_new(kz__protocol, 0), nullptr);
    EXPECT_EQ(kz_type_new(nullptr, 0), nullptr);
    kz_type_delete(nullptr);
}

TEST(Objects, CastWalksParentsAndReportsFailuresOnce)
{
    EnginePtr engine(kz_type_new(kz__protoiot, 0));
    void* e = engine.get();

    testing::internal::CaptureStderr();
    EXPECT_EQ(kz_type_cast2(e, kz__protoiot, "L", "f", 1), e);
    EXPECT_EQ(kz_type_cast2(e, kz__protocol, "L", "f", 1), e);
    EXPECT_EQ(kz_type_cast2(e, kz__object, "L", "f", 1), e);
    EXPECT_EQ(kz_type_cast2(nullptr, kz__object, "L", "f", 1), nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");

    // A type the engine does not derive from.
    static const kz_type other[1] = {{"test_other", kz__object, sizeof(kz_object)}};
    testing::internal::CaptureStderr();
    EXPECT_EQ(kz_type_cast2(e, other, "castLabel", "castfile.cpp", 123), nullptr);
    std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << err;
    for (const char* part : {"castLabel", "castfile.cpp", "123", "kz__protoiot", "test_other"})
        EXPECT_NE(err.find(part), std::string::npos) << part << " missing in: " << err;

    // Something that is not a live object at all.
    kz_object fake{};
    fake.type = kz__protoiot;
    testing::internal::CaptureStderr();
    EXPECT_EQ(kz_type_cast2(&fake, kz__object, "fakeLabel", "fake.cpp", 7), nullptr);
    err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << err;
    EXPECT_NE(err.find("fakeLabel"), std::string::npos) << err;
    EXPECT_NE(err.find("fake.cpp:7"), std::string::npos) << err;

    // Foreign pointers are refused by the engine operations too.
    char out[64];
    EXPECT_EQ(kz_protocol_pack(&fake, out, 64, 0, nullptr, "x", 1), 0);
    EXPECT_EQ(kz_protocol_pending(&fake), nullptr);
    EXPECT_EQ(kz_protoiot_engine.input(&fake, "x", 1), -1);
    kz_type_delete(&fake); // not live: ignored
}

// ---------------------------------------------------------------------------
// Packing

TEST(Pack, SmallBodyIsOneFrameInTheDocumentedLayout)
{
    EnginePtr engine(kz_type_new(kz__protoiot, 0));
    const std::string body = randomBytes(40, 2);
    std::string out(2048, '\x77');
    int n = kz_protocol_pack(engine.get(), out.data(), 2048, 0x01020304, "abc", body.data(), 40);
    ASSERT_EQ(n, KZ_FRAME_OVERHEAD + 3 + 40);
    EXPECT_EQ(hex(out.substr(0, static_cast<size_t>(n))), hex(wholeFrame(0x01020304, "abc", body)));
    EXPECT_EQ(out[static_cast<size_t>(n)], '\x77');
    EXPECT_EQ(kz_protocol_pending(engine.get())->count, 0);

    // NULL attr is the empty attr; a negative seq is stored as its u32 bits.
    n = kz_protocol_pack(engine.get(), out.data(), 2048, -1, nullptr, body.data(), 40);
    EXPECT_EQ(out.substr(0, static_cast<size_t>(n)), wholeFrame(0xFFFFFFFFu, "", body));
}

TEST(Pack, LogoutBodyMatchesTheWorkedExample)
{
    // The example frame of docs/frame-format.md: the logout body
    // 00 11 02 00 07 00 00 00 00 with bytes 1..8 coded, sequence 0, no attr.
    unsigned char body[9] = {0x00, 0x11, 0x02, 0x00, 0x07, 0x00, 0x00, 0x00, 0x00};
    kz_coding_encrypt_fast(body + 1, body + 1, 8);
    EnginePtr engine(kz_type_new(kz__protoiot, 0));
    std::string out(2048, '\0');
    int n = kz_protocol_pack(engine.get(), out.data(), 2048, 0, nullptr, body, 9);
    ASSERT_EQ(n, 31);
    EXPECT_EQ(hex(out.substr(0, 31)), "4b 5a 01 00 00 00 00 00 00 00 09 00 00 00 69 e7 42 0a "
                                      "00 78 cc 92 ae 3c 62 d0 d2 57 81 8e fc");
}

TEST(Pack, CapacityLimitsAreHonoured)
{
    EnginePtr engine(kz_type_new(kz__protoiot, KZ_OPT_CAPACITY, 100, 0));
    void* e = engine.get();
    const std::string body = randomBytes(300, 3);
    std::string out(400, '\x33');
    const std::string untouched = out;

    // Exactly fitting is one whole frame.
    EXPECT_EQ(kz_protocol_pack(e, out.data(), 22 + 2 + 10, 1, "ab", body.data(), 10), 34);
    // Too small to carry a single body byte: nothing written.
    out = untouched;
    EXPECT_EQ(kz_protocol_pack(e, out.data(), 22 + 2, 1, "ab", body.data(), 10), 0);
    EXPECT_EQ(kz_protocol_pack(e, out.data(), 5, 1, nullptr, body.data(), 1), 0);
    // Room for a whole frame of one byte but not for a piece of one byte.
    EXPECT_EQ(kz_protocol_pack(e, out.data(), 34, 1, nullptr, body.data(), 20), 0);
    EXPECT_EQ(out, untouched);
    EXPECT_EQ(kz_protocol_pending(e)->count, 0);

    // Bad arguments.
    EXPECT_EQ(kz_protocol_pack(nullptr, out.data(), 100, 1, nullptr, body.data(), 5), 0);
    EXPECT_EQ(kz_protocol_pack(e, nullptr, 100, 1, nullptr, body.data(), 5), 0);
    EXPECT_EQ(kz_protocol_pack(e, out.data(), 100, 1, nullptr, nullptr, 5), 0);
    EXPECT_EQ(kz_protocol_pack(e, out.data(), 100, 1, nullptr, body.data(), -1), 0);
    std::string longAttr(65536, 'a');
    EXPECT_EQ(kz_protocol_pack(e, out.data(), 400, 1, longAttr.c_str(), body.data(), 5), 0);
    EXPECT_EQ(out, untouched);

    // Capacity 0 takes the engine's default (100): a 300-byte body splits.
    int n = kz_protocol_pack(e, out.data(), 0, 1, nullptr, body.data(), 300);
    EXPECT_EQ(n, 100);
    EXPECT_EQ(out.substr(0, 100), pieceFrame(1, 1, 300, 0, body.substr(0, 66)));
    EXPECT_EQ(out[100], '\x33');
    EXPECT_EQ(kz_protocol_pending(e)->count, 4); // 66 + 66 + 66 + 66 + 36
}

TEST(Pack, LongestAttrFits)
{
    EnginePtr engine(kz_type_new(kz__protoiot, 0));
    std::string attr(65535, 'a');
    std::string out(70000, '\0');
    int n = kz_protocol_pack(engine.get(), out.data(), 70000, 5, attr.c_str(), "xyz", 3);
    ASSERT_EQ(n, 22 + 65535 + 3);
    Receiver rx;
    rx.feed(out.substr(0, static_cast<size_t>(n)));
    ASSERT_EQ(rx.events.size(), 1u);
    EXPECT_EQ(rx.events[0].name, "data," + attr);
}

TEST(Pack, PieceTagsAreParsedStrictly)
{
    EnginePtr engine(kz_type_new(kz__protoiot, 0));
    void* e = engine.get();
    std::string out(256, '\x11');
    const std::string untouched = out;
    for (const char* tag : {"\x01", "\x01P", "\x01P1", "\x01P1:10", "\x01P1:10:", "\x01P1:10:2x",
                            "\x01P1:10:2 ", "\x01Q1:10:2", "\x01P01:10:2", "\x01P1:010:2",
                            "\x01P-1:10:2", "\x01P+1:10:2", "\x01P1::2", "\x01P1:4294967296:2",
                            "\x01P99999999999:10:2", "\x01P1:10:9", "\x01P1:0:0"}) {
        EXPECT_EQ(kz_protocol_pack(e, out.data(), 256, 7, tag, "abc", 3), 0) << hex(tag);
        EXPECT_EQ(out, untouched) << hex(tag);
    }
    // A tag needs data, and its piece must fit the capacity.
    EXPECT_EQ(kz_protocol_pack(e, out.data(), 256, 7, "\x01P1:10:2", "abc", 0), 0);
    EXPECT_EQ(kz_protocol_pack(e, out.data(), 36, 7, "\x01P1:10:2", "abc", 3), 0);

    int n = kz_protocol_pack(e, out.data(), 256, 7, "\x01P4294967295:10:7", "abc", 3);
    EXPECT_EQ(out.substr(0, static_cast<size_t>(n)), pieceFrame(7, 4294967295u, 10, 7, "abc"));
    n = kz_protocol_pack(e, out.data(), 37, 7, "\x01P0:3:0", "abc", 3);
    EXPECT_EQ(out.substr(0, static_cast<size_t>(n)), pieceFrame(7, 0, 3, 0, "abc"));
    // A tag's text is never sent as an attr.
    EXPECT_EQ(kz_protocol_pending(e)->count, 0);
}

// Packs a large body in each piece mode and checks the nodes, the frames and
// that the receiver turns them into exactly one data event.
class SplitModes : public testing::TestWithParam<int>
{
};

TEST_P(SplitModes, SplitBodyReassemblesIntoOneDataEvent)
{
    const int mode = GetParam();
    const int capacity = 512;
    EnginePtr engine(kz_type_new(kz__protoiot, KZ_OPT_PIECES, mode, 0));
    void* e = engine.get();
    const std::string body = randomBytes(10000, 4);

    std::string out(capacity, '\0');
    const int messageSeq = 41;
    int n = kz_protocol_pack(e, out.data(), capacity, messageSeq, "file.bin", body.data(), 10000);
    ASSERT_EQ(n, capacity);
    kz_list* pending = kz_protocol_pending(e);
    const int first = capacity - KZ_PIECE_OVERHEAD - 8;
    const int step = capacity - KZ_PIECE_OVERHEAD;
    const int expectedNodes = (10000 - first + step - 1) / step;
    ASSERT_EQ(pending->count, expectedNodes);

    int offset = first;
    for (int i = 0; i < pending->count; ++i) {
        kz_list_node* node = kz_list_node_at(pending, i);
        ASSERT_NE(node, nullptr);
        const int len = std::min(step, 10000 - offset);
        const size_t textLen = std::strlen(node->bytes);
        EXPECT_EQ(node->seq, messageSeq);
        if (mode == KZ_PIECES_PACKED) {
            EXPECT_EQ(node->flags, static_cast<unsigned>(KZ_NODE_PACKED));
            EXPECT_EQ(textLen, 0u);
            EXPECT_EQ(node->total, 1 + KZ_PIECE_OVERHEAD + len);
            EXPECT_EQ(std::string(kz_strnxt(node->bytes), static_cast<size_t>(node->total - 1)),
                      pieceFrame(messageSeq, messageSeq, 10000, static_cast<uint32_t>(offset),
                                 body.substr(static_cast<size_t>(offset), len)));
        } else {
            EXPECT_EQ(node->flags,
                      mode == KZ_PIECES_OWN_SEQ ? static_cast<unsigned>(KZ_NODE_OWN_SEQ) : 0u);
            EXPECT_EQ(std::string(node->bytes), "\x01P41:10000:" + std::to_string(offset));
            EXPECT_EQ(node->total, static_cast<int>(textLen) + 1 + len);
            EXPECT_EQ(std::string(kz_strnxt(node->bytes), static_cast<size_t>(len)),
                      body.substr(static_cast<size_t>(offset), static_cast<size_t>(len)));
        }
        offset += len;
    }
    EXPECT_EQ(offset, 10000);
    EXPECT_EQ(kz_list_node_at(pending, pending->count), nullptr);

    // Drain like the resolver and feed the frames to a receiver.
    int seq = messageSeq + 1;
    std::vector<std::string> frames{out};
    while (kz_list_node* node = kz_list_node_at(pending, 0)) {
        kz_list_take_node(pending, node);
        const int dataLen = node->total - static_cast<int>(std::strlen(node->bytes)) - 1;
        if (node->flags & KZ_NODE_PACKED) {
            frames.emplace_back(kz_strnxt(node->bytes), static_cast<size_t>(dataLen));
        } else {
            const int pieceSeq = (node->flags & KZ_NODE_OWN_SEQ) ? node->seq : seq++;
            std::string buf(capacity, '\0');
            int m = kz_protocol_pack(e, buf.data(), capacity, pieceSeq, node->bytes,
                                     kz_strnxt(node->bytes), dataLen);
            ASSERT_GT(m, 0);
            ASSERT_LE(m, capacity);
            frames.push_back(buf.substr(0, static_cast<size_t>(m)));
        }
        kz_list_node_destroy(node);
    }
    EXPECT_EQ(pending->count, 0);
    EXPECT_EQ(seq, mode == KZ_PIECES_FRESH_SEQ ? messageSeq + 1 + expectedNodes : messageSeq + 1);
    for (const auto& f : frames) EXPECT_LE(f.size(), static_cast<size_t>(capacity));

    Receiver rx;
    EXPECT_EQ(rx.feed(join(frames)), 1);
    ASSERT_EQ(rx.events.size(), 1u);
    EXPECT_EQ(rx.events[0],
              (Ev{KZ_EVENT_DATA, "data,file.bin", body, 10000, static_cast<int>(frames.size())}));
}

INSTANTIATE_TEST_SUITE_P(AllModes, SplitModes,
                         testing::Values(KZ_PIECES_FRESH_SEQ, KZ_PIECES_OWN_SEQ, KZ_PIECES_PACKED));

TEST(Pack, SplitNeedsRoomForOnePieceByte)
{
    // 57 bytes carry a whole frame of one byte with this 23-byte attr, but
    // not a first piece of one byte: the split is refused, nothing is left.
    EnginePtr engine(kz_type_new(kz__protoiot, 0));
    std::string out(58, '\0');
    const std::string body(100, 'b');
    const char* attr = "a-long-attribute-text!!";
    EXPECT_EQ(kz_protocol_pack(engine.get(), out.data(), 57, 1, attr, body.data(), 1), 46);
    EXPECT_EQ(kz_protocol_pack(engine.get(), out.data(), 57, 1, attr, body.data(), 100), 0);
    EXPECT_EQ(kz_protocol_pending(engine.get())->count, 0);
    EXPECT_EQ(kz_protocol_pack(engine.get(), out.data(), 58, 1, attr, body.data(), 100), 58);
    EXPECT_EQ(kz_protocol_pending(engine.get())->count, 5); // 1 byte, then 99 in 24s
}

TEST(PendingList, NodesCanBeFoundTakenAndDestroyed)
{
    EnginePtr engine(kz_type_new(kz__protoiot, KZ_OPT_CAPACITY, 64, 0));
    void* e = engine.get();
    kz_list* list = kz_protocol_pending(e);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(kz_protocol_pending(nullptr), nullptr);
    EXPECT_EQ(list->count, 0);
    EXPECT_EQ(kz_list_node_at(list, 0), nullptr);

    // 30 data bytes per frame: 150 bytes = 5 frames, 4 nodes.
    std::string out(64, '\0');
    const std::string body = randomBytes(150, 5);
    ASSERT_EQ(kz_protocol_pack(e, out.data(), 0, 9, nullptr, body.data(), 150), 64);
    ASSERT_EQ(list->count, 4);
    kz_list_node* nodes[4];
    for (int i = 0; i < 4; ++i) nodes[i] = kz_list_node_at(list, i);
    EXPECT_EQ(kz_list_node_at(list, -1), nullptr);
    EXPECT_EQ(kz_list_node_at(list, 4), nullptr);
    EXPECT_EQ(kz_list_node_at(nullptr, 0), nullptr);

    // Middle, then last, then first.
    EXPECT_EQ(kz_list_take_node(list, nodes[1]), nodes[1]);
    EXPECT_EQ(kz_list_take_node(list, nodes[1]), nullptr);
    EXPECT_EQ(list->count, 3);
    EXPECT_EQ(kz_list_node_at(list, 1), nodes[2]);
    EXPECT_EQ(kz_list_take_node(list, nodes[3]), nodes[3]);
    EXPECT_EQ(kz_list_take_node(list, nodes[0]), nodes[0]);
    EXPECT_EQ(list->count, 1);
    EXPECT_EQ(kz_list_node_at(list, 0), nodes[2]);
    EXPECT_EQ(kz_list_take_node(nullptr, nodes[2]), nullptr);
    EXPECT_EQ(kz_list_take_node(list, nullptr), nullptr);

    // A new split appends after the remaining node (the tail was kept right).
    ASSERT_EQ(kz_protocol_pack(e, out.data(), 0, 10, nullptr, body.data(), 150), 64);
    EXPECT_EQ(list->count, 5);
    EXPECT_EQ(kz_list_node_at(list, 0), nodes[2]);
    EXPECT_EQ(std::string(kz_list_node_at(list, 1)->bytes), "\x01P10:150:30");
    EXPECT_EQ(std::string(kz_list_node_at(list, 4)->bytes), "\x01P10:150:120");

    for (kz_list_node* n : {nodes[0], nodes[1], nodes[3]}) kz_list_node_destroy(n);
    kz_list_node_destroy(nullptr);

    const char two[] = "ab\0cd";
    EXPECT_EQ(kz_strnxt(two), two + 3);
    const char* empty = "";
    EXPECT_EQ(kz_strnxt(empty), empty + 1);
    EXPECT_EQ(kz_strnxt(nullptr), nullptr);
    // The engine frees the nodes still in its list when deleted.
}

// ---------------------------------------------------------------------------
// Receiving

// A stream exercising every kind of event: whole frames with and without
// attr, a split body, a damaged frame and garbage around them.
std::string mixedStream()
{
    EnginePtr sender(kz_type_new(kz__protoiot, 0));
    int seq = 100;
    std::string s = "garbage K KZ \x4B";
    s += join(packMessage(sender.get(), 2048, seq, "one", "first body"));
    s += join(packMessage(sender.get(), 2048, seq, nullptr, randomBytes(700, 6)));
    s += "\x4B\x5A\x01";
    s += join(packMessage(sender.get(), 200, seq, "split", randomBytes(900, 7)));
    std::string damaged = wholeFrame(5, "", "this frame gets a bad byte");
    damaged[20] ^= 0x40;
    s += damaged;
    s += randomBytes(50, 8);
    s += join(packMessage(sender.get(), 2048, seq, "last", "last body"));
    return s;
}

TEST(Receive, EverySplitOfTheStreamGivesTheSameEvents)
{
    const std::string stream = mixedStream();
    Receiver reference;
    reference.feed(stream);
    ASSERT_EQ(reference.bodies().size(), 4u);
    EXPECT_EQ(reference.bodies()[0], "first body");
    EXPECT_EQ(reference.events[0].name, "data,one");
    EXPECT_EQ(reference.ofType(KZ_EVENT_DATA)[1].name, "data");
    EXPECT_EQ(reference.ofType(KZ_EVENT_DATA)[2].name, "data,split");
    EXPECT_EQ(reference.ofType(KZ_EVENT_DATA)[2].length2, 6); // 900 bytes, 200-byte frames
    EXPECT_EQ(reference.bodies()[3], "last body");
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
        for (size_t pos = 0; pos < stream.size();) {
            size_t n = std::min<size_t>(rng() % 40 + 1, stream.size() - pos);
            rx.feed(stream.substr(pos, n));
            pos += n;
        }
        ASSERT_EQ(rx.events, reference.events) << "round " << round;
    }
}

TEST(Receive, InputCountsEventsAndIgnoresEmptyInput)
{
    Receiver rx;
    std::string two = wholeFrame(1, "", "a") + wholeFrame(2, "", "b");
    EXPECT_EQ(rx.feed(two), 2);
    EXPECT_EQ(kz_protoiot_engine.input(rx.engine(), nullptr, 5), 0);
    EXPECT_EQ(kz_protoiot_engine.input(rx.engine(), "KZ", 0), 0);
    EXPECT_EQ(kz_protoiot_engine.input(rx.engine(), "KZ", -2), 0);
    EXPECT_EQ(kz_protoiot_engine.input(nullptr, "KZ", 2), -1);
    EXPECT_EQ(rx.bodies(), (std::vector<std::string>{"a", "b"}));
    // The empty input above left nothing behind.
    EXPECT_EQ(rx.feed(wholeFrame(3, "", "c")), 1);
}

TEST(Receive, GarbageBeforeAndBetweenFramesIsSkipped)
{
    FrameSpec badVersion;
    badVersion.data = "never";
    badVersion.version = 2;
    FrameSpec badFlags = badVersion;
    badFlags.version = 1;
    std::string flags = rawFrame(badFlags);
    flags[3] = 0x02;
    std::string badHeaderCrc = wholeFrame(1, "", "never either");
    badHeaderCrc[14] ^= 1;

    std::string stream = randomBytes(333, 10) + "KKKZZ" + wholeFrame(1, "", "alpha") + "KZ" +
                         rawFrame(badVersion) + flags + badHeaderCrc + "KZ\x01" +
                         wholeFrame(2, "x", "beta") + randomBytes(1000, 11) +
                         wholeFrame(3, "", "gamma") + "K";
    Receiver rx;
    rx.feed(stream);
    EXPECT_EQ(rx.bodies(), (std::vector<std::string>{"alpha", "beta", "gamma"}));
    EXPECT_EQ(rx.noticeCount(), 0u); // garbage is not a dropped frame
    Receiver bytewise;
    bytewise.feedBytewise(stream);
    EXPECT_EQ(bytewise.events, rx.events);
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
            ASSERT_EQ(rx.bodies(), (std::vector<std::string>{"first frame", "third frame"}))
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
    std::string stream = wholeFrame(1, "", "one") + b.substr(0, b.size() - 10) +
                         wholeFrame(3, "", "three") + wholeFrame(4, "", std::string(200, 'f'));
    Receiver rx;
    rx.feed(stream);
    EXPECT_EQ(rx.bodies(), (std::vector<std::string>{"one", "three", std::string(200, 'f')}));
    EXPECT_EQ(rx.noticeCount(), 1u);
    Receiver bytewise;
    bytewise.feedBytewise(stream);
    EXPECT_EQ(bytewise.events, rx.events);
}

TEST(Receive, HugeClaimsAreDroppedWithoutAllocating)
{
    FrameSpec whole;
    whole.claimedLength = 0xFFFFFFFFll;
    FrameSpec piece;
    piece.piece = true;
    piece.id = 1;
    piece.total = 0xFFFFFFFFu;
    piece.claimedLength = 10;
    FrameSpec overLimit;
    overLimit.claimedLength = KZ_DEFAULT_MAX_BODY + 1;

    Receiver rx;
    const size_t before = heapInUse();
    rx.feed(headerOnly(whole) + headerOnly(piece) + headerOnly(overLimit) +
            wholeFrame(1, "", "still here"));
    EXPECT_LT(heapInUse() - before, 64u * 1024);
    EXPECT_EQ(rx.bodies(), (std::vector<std::string>{"still here"}));
    auto notices = rx.ofType(KZ_EVENT_NOTICE);
    ASSERT_EQ(notices.size(), 3u);
    // Each names the body size it claimed (capped at INT_MAX).
    EXPECT_EQ(notices[0].length, INT_MAX);
    EXPECT_EQ(notices[1].length, INT_MAX);
    EXPECT_EQ(notices[2].length, KZ_DEFAULT_MAX_BODY + 1);
    for (const auto& n : notices) EXPECT_EQ(n.length2, KZ_DROP_TOO_LARGE);

    // A legal but large claim: only the bytes that arrived are buffered.
    FrameSpec big;
    big.claimedLength = KZ_DEFAULT_MAX_BODY;
    const size_t start = heapInUse();
    rx.feed(headerOnly(big) + std::string(1000, 'x'));
    EXPECT_LT(heapInUse() - start, 64u * 1024);
    for (int i = 0; i < 100; ++i) rx.feed(std::string(1000, 'x'));
    EXPECT_LT(heapInUse() - start, 512u * 1024);
    EXPECT_EQ(rx.bodies().size(), 1u);
    kz_protoiot_engine.reset(rx.engine());
    EXPECT_LT(heapInUse(), start + 16u * 1024);
    rx.feed(wholeFrame(2, "", "after reset"));
    EXPECT_EQ(rx.bodies().back(), "after reset");
}

TEST(Receive, HeadersClaimingHugeFramesEveryFewBytesCostLinearWork)
{
    // Well-formed headers, one every 18 bytes, each claiming the largest
    // frame: checking every one of them over the bytes that follow would
    // cost a full-frame checksum per 18 bytes received. Once the resync
    // allowance is spent a failed frame is skipped whole, so this finishes
    // at once; with a checksum per header it would run for hours.
    const int maxBody = 4 << 20;
    Receiver rx(kz_type_new(kz__protoiot, KZ_OPT_MAX_BODY, maxBody, 0));
    FrameSpec claim;
    claim.claimedLength = maxBody;
    const std::string header = headerOnly(claim);
    std::string attack;
    while (attack.size() < size_t(3 * maxBody)) attack += header;
    for (size_t at = 0; at < attack.size(); at += 64 * 1024) rx.feed(attack.substr(at, 64 * 1024));
    // The last claim still holds the stream until its bytes have come.
    rx.feed(std::string(maxBody + 64, '\0') + wholeFrame(9, "", "after the flood"));
    EXPECT_EQ(rx.bodies(), std::vector<std::string>{"after the flood"});

    // Which failed frames are skipped whole depends on the stream alone, not
    // on how it was cut.
    const int smallBody = 64 << 10;
    FrameSpec smallClaim;
    smallClaim.claimedLength = smallBody;
    std::string flood = wholeFrame(1, "", "before");
    while (flood.size() < size_t(4 * smallBody)) flood += headerOnly(smallClaim);
    flood += std::string(smallBody + 64, '\0') + wholeFrame(2, "", "after");
    Receiver whole(kz_type_new(kz__protoiot, KZ_OPT_MAX_BODY, smallBody, 0));
    Receiver bytewise(kz_type_new(kz__protoiot, KZ_OPT_MAX_BODY, smallBody, 0));
    whole.feed(flood);
    bytewise.feedBytewise(flood);
    EXPECT_EQ(whole.bodies(), (std::vector<std::string>{"before", "after"}));
    EXPECT_EQ(bytewise.events, whole.events);
}

TEST(Receive, BuffersAtMostOneFrame)
{
    // A block of many frames arriving after a buffered partial candidate is
    // not copied whole into the receive buffer.
    std::string many;
    for (uint32_t i = 0; i < 2000; ++i) many += wholeFrame(i, "", std::string(1000, 'm'));
    many += many.substr(0, 10); // a partial frame left buffered at the end
    EnginePtr engine(kz_type_new(kz__protoiot, 0));
    const std::string frame = wholeFrame(1, "", "x");
    EXPECT_EQ(kz_protoiot_engine.input(engine.get(), frame.data(), 5), 0);
    const size_t before = heapInUse();
    EXPECT_EQ(kz_protoiot_engine.input(engine.get(), frame.data() + 5,
                                       static_cast<int>(frame.size() - 5)),
              1);
    EXPECT_EQ(kz_protoiot_engine.input(engine.get(), "KZ", 2), 0);
    EXPECT_EQ(kz_protoiot_engine.input(engine.get(), many.data(), static_cast<int>(many.size())),
              2000);
    EXPECT_LT(heapInUse() - before, 64u * 1024);
}

TEST(Receive, InvalidPieceHeadersAreDropped)
{
    Receiver rx;
    FrameSpec empty;
    empty.piece = true;
    empty.id = 1;
    empty.total = 10;
    FrameSpec pastTotal = empty;
    pastTotal.data = "abcdef";
    pastTotal.offset = 5;
    FrameSpec laterAttr = empty;
    laterAttr.data = "abc";
    laterAttr.offset = 3;
    laterAttr.attr = "x";
    rx.feed(rawFrame(empty) + rawFrame(pastTotal) + rawFrame(laterAttr) + wholeFrame(1, "", "ok"));
    EXPECT_EQ(rx.bodies(), (std::vector<std::string>{"ok"}));
    auto notices = rx.ofType(KZ_EVENT_NOTICE);
    ASSERT_EQ(notices.size(), 3u);
    for (const auto& n : notices) EXPECT_EQ(n.data, "frame header out of limits");
}

TEST(Receive, MaxBodyOptionIsHonoured)
{
    Receiver rx(kz_type_new(kz__protoiot, KZ_OPT_MAX_BODY, 100, 0));
    const std::string hundred = randomBytes(100, 12);
    rx.feed(wholeFrame(1, "", hundred));
    rx.feed(wholeFrame(2, "", hundred + "!"));
    EXPECT_EQ(rx.bodies(), (std::vector<std::string>{hundred}));
    EXPECT_EQ(rx.noticeCount(), 1u);

    // The same limit applies to split bodies, counted on their total.
    EnginePtr sender(kz_type_new(kz__protoiot, 0));
    int seq = 0;
    rx.events.clear();
    rx.feed(join(packMessage(sender.get(), 60, seq, nullptr, hundred + "!")));
    EXPECT_TRUE(rx.bodies().empty());
    rx.feed(join(packMessage(sender.get(), 60, seq, nullptr, hundred)));
    EXPECT_EQ(rx.bodies(), (std::vector<std::string>{hundred}));
}

TEST(Reassembly, LostPieceDropsTheBodyAndTheNextArrives)
{
    EnginePtr sender(kz_type_new(kz__protoiot, 0));
    int seq = 0;
    const std::string a = randomBytes(500, 13);
    const std::string b = randomBytes(500, 14);
    auto framesA = packMessage(sender.get(), 134, seq, nullptr, a); // 100 bytes per piece
    auto framesB = packMessage(sender.get(), 134, seq, nullptr, b);
    ASSERT_EQ(framesA.size(), 5u);

    Receiver rx;
    for (size_t i = 0; i < framesA.size(); ++i)
        if (i != 2) rx.feed(framesA[i]);
    rx.feed(join(framesB));
    EXPECT_EQ(rx.bodies(), (std::vector<std::string>{b}));
    auto notices = rx.ofType(KZ_EVENT_NOTICE);
    ASSERT_EQ(notices.size(), 2u);
    EXPECT_EQ(notices[0].data, "piece out of order, partial body dropped");
    EXPECT_EQ(notices[0].length, 300); // two pieces held, one arriving
    EXPECT_EQ(notices[1].data, "piece without a start");

    // Losing the first piece: every later one is an orphan.
    rx.events.clear();
    auto framesC = packMessage(sender.get(), 134, seq, nullptr, a);
    for (size_t i = 1; i < framesC.size(); ++i) rx.feed(framesC[i]);
    EXPECT_TRUE(rx.bodies().empty());
    EXPECT_EQ(rx.noticeCount(), 4u);

    // A repeated piece breaks the order as well.
    rx.events.clear();
    auto framesD = packMessage(sender.get(), 134, seq, nullptr, a);
    rx.feed(framesD[0] + framesD[1] + framesD[1] + framesD[2]);
    EXPECT_TRUE(rx.bodies().empty());
}

TEST(Reassembly, InterleavedBodiesAndRestartsReassemble)
{
    EnginePtr sender(kz_type_new(kz__protoiot, 0));
    int seq = 0;
    const std::string a = randomBytes(450, 15);
    const std::string b = randomBytes(380, 16);
    auto fa = packMessage(sender.get(), 134, seq, "A", a);
    auto fb = packMessage(sender.get(), 134, seq, "B", b);
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
    auto fc = packMessage(sender.get(), 134, seq, "C", a);
    rx.feed(fc[0] + fc[1] + fc[0]);
    for (size_t i = 1; i < fc.size(); ++i) rx.feed(fc[i]);
    ASSERT_EQ(rx.events.size(), 2u);
    EXPECT_EQ(rx.events[0].data, "partial body replaced by a new start");
    EXPECT_EQ(rx.events[0].length, 199); // 99 bytes beside the attr, then 100
    EXPECT_EQ(rx.events[1], (Ev{KZ_EVENT_DATA, "data,C", a, 450, 5}));
}

TEST(Reassembly, AtMostFourPartialBodiesAndTheOldestGoes)
{
    EnginePtr sender(kz_type_new(kz__protoiot, 0));
    int seq = 0;
    std::vector<std::vector<std::string>> messages;
    std::vector<std::string> bodies;
    for (int m = 0; m < 5; ++m) {
        bodies.push_back(randomBytes(300, static_cast<uint32_t>(20 + m)));
        messages.push_back(packMessage(sender.get(), 134, seq, nullptr, bodies.back()));
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
    EXPECT_EQ(rx.bodies(), std::vector<std::string>(bodies.begin() + 1, bodies.end()));
    EXPECT_EQ(rx.noticeCount(), 2u); // the rest of message 0: orphans
}

TEST(Reassembly, PartialBodiesStayWithinTheBodyLimit)
{
    // Bytes held by all partial bodies together stay within the limit.
    Receiver rx(kz_type_new(kz__protoiot, KZ_OPT_MAX_BODY, 1000, 0));
    EnginePtr sender(kz_type_new(kz__protoiot, 0));
    int seq = 0;
    auto a = packMessage(sender.get(), 134, seq, nullptr, randomBytes(1000, 30));
    auto b = packMessage(sender.get(), 134, seq, nullptr, randomBytes(1000, 31));
    for (int i = 0; i < 6; ++i) rx.feed(a[static_cast<size_t>(i)]);
    EXPECT_EQ(rx.noticeCount(), 0u);
    for (int i = 0; i < 6; ++i) rx.feed(b[static_cast<size_t>(i)]);
    auto notices = rx.ofType(KZ_EVENT_NOTICE);
    ASSERT_EQ(notices.size(), 1u);
    EXPECT_EQ(notices[0].data, "partial body discarded to make room");
    for (size_t i = 6; i < b.size(); ++i) rx.feed(b[i]);
    EXPECT_EQ(rx.bodies().size(), 1u);

    // Many large bodies started and never finished: memory stays bounded by
    // the limit, not by what the senders claimed.
    Receiver big(kz_type_new(kz__protoiot, KZ_OPT_MAX_BODY, 1 << 20, 0));
    const std::string chunk = randomBytes(60000, 32);
    const size_t before = heapInUse();
    for (uint32_t id = 0; id < 100; ++id) {
        big.feed(pieceFrame(id, id, 1 << 20, 0, chunk) + pieceFrame(id, id, 1 << 20, 60000, chunk));
    }
    EXPECT_LT(heapInUse() - before, (1u << 20) + 256u * 1024);
    EXPECT_EQ(big.noticeCount(), 96u);
}

TEST(Receive, ResetForgetsBufferedBytesAndPartialBodies)
{
    const std::string frame = wholeFrame(1, "", "complete me");
    Receiver rx;
    rx.feed(frame.substr(0, 20));
    kz_protoiot_engine.reset(rx.engine());
    rx.feed(frame.substr(20));
    EXPECT_TRUE(rx.events.empty());

    EnginePtr sender(kz_type_new(kz__protoiot, 0));
    int seq = 0;
    auto pieces = packMessage(sender.get(), 134, seq, nullptr, randomBytes(300, 33));
    rx.feed(pieces[0]);
    kz_protoiot_engine.reset(rx.engine());
    rx.feed(pieces[1] + pieces[2] + frame);
    EXPECT_EQ(rx.bodies(), (std::vector<std::string>{"complete me"}));
    EXPECT_EQ(rx.noticeCount(), 2u);
    kz_protoiot_engine.reset(nullptr);
}

TEST(Receive, HandlersMayResetButNotFeed)
{
    Receiver rx;
    int nested = 0;
    rx.hook = [&](kz_event* e) {
        nested = kz_protoiot_engine.input(e->object, "KZ", 2);
        kz_protoiot_engine.reset(e->object);
    };
    const std::string three = wholeFrame(1, "", "a") + wholeFrame(2, "", "b") + "KZ\x01";
    EXPECT_EQ(rx.feed(three), 1);
    EXPECT_EQ(nested, -1);
    rx.hook = nullptr;
    // The reset took the rest of that input and the buffered tail with it.
    EXPECT_EQ(rx.feed(wholeFrame(3, "", "c")), 1);
    EXPECT_EQ(rx.bodies(), (std::vector<std::string>{"a", "c"}));
}

TEST(Receive, MutatedStreamsNeverYieldForgedBodies)
{
    EnginePtr sender(kz_type_new(kz__protoiot, 0));
    int seq = 0;
    std::vector<std::string> originals;
    std::string stream;
    for (int m = 0; m < 8; ++m) {
        originals.push_back(randomBytes(static_cast<size_t>(50 + 97 * m), 40u + m));
        stream +=
            join(packMessage(sender.get(), 256, seq, m % 2 ? "x" : nullptr, originals.back()));
    }
    std::mt19937 rng(41);
    for (int round = 0; round < 300; ++round) {
        std::string s = stream;
        const int edits = static_cast<int>(rng() % 6);
        for (int k = 0; k < edits && !s.empty(); ++k) {
            size_t at = rng() % s.size();
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
                break;
            }
        }
        Receiver rx;
        for (size_t pos = 0; pos < s.size();) {
            size_t n = std::min<size_t>(rng() % 200 + 1, s.size() - pos);
            ASSERT_GE(rx.feed(s.substr(pos, n)), 0);
            pos += n;
        }
        for (const auto& body : rx.bodies()) {
            EXPECT_NE(std::find(originals.begin(), originals.end(), body), originals.end())
                << "round " << round;
        }
        if (edits == 0) {
            EXPECT_EQ(rx.bodies(), originals);
        }
    }
}

} // namespace
