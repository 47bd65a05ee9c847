// The payload primitives: exact bytes of every wire form, and a reader that
// never leaves its data however short or malformed the payload.
#include "payload.h"
#include "support.h"
#include "trace.h"

#include <gtest/gtest.h>
#include <kzapin/kzapin.h>

#include <utility>

using namespace kz;
using kztest::hex;
using kztest::unhex;

namespace {
Reader readerOf(const QByteArray& b)
{
    return Reader(reinterpret_cast<const uchar*>(b.constData()), b.size());
}
} // namespace

TEST(Writer, WireFormsAreExact)
{
    const QString empty, abc = QStringLiteral("abc"), uml = QString::fromUtf8("\xC3\xA4");
    const QStringList two{QStringLiteral("a"), QStringLiteral("b")};
    const QMap<QString, QStringList> gm{{QStringLiteral("B"), {}},
                                        {QStringLiteral("A"), {QStringLiteral("x")}}};
    const QMap<QString, int> sim{{QStringLiteral("k"), -2}};
    const QByteArray blob("\x01\x02", 2);
    const struct
    {
        Payload p;
        const char* bytes;
    } cases[] = {
        {Payload() << u8{0xAB}, "ab"},
        {Payload() << u16{0x0102}, "02 01"},
        {Payload() << u32{0x01020304}, "04 03 02 01"},
        {Payload() << i32{-2}, "fe ff ff ff"},
        {Payload() << flag8{true} << flag8{false}, "00 01"},
        {Payload() << strz{empty}, "00"},
        {Payload() << strz{uml}, "c3 a4 00"},
        {Payload() << str16{abc}, "04 00 61 62 63 00"},
        {Payload() << str16{empty}, "01 00 00"},
        {Payload() << strlist{two}, "02 00 61 00 62 00"},
        {Payload() << dtext{0.5}, "30 2e 35 00"},
        {Payload() << dtext{1234567.0}, "31 2e 32 33 34 35 37 65 2b 30 36 00"},
        {Payload() << itext{-12}, "2d 31 32 00"},
        {Payload() << groupmap{gm}, "02 00 41 00 01 00 78 00 42 00 00 00"},
        {Payload() << strintmap{sim}, "01 00 6b 00 fe ff ff ff"},
        {Payload() << blob32{blob}, "02 00 00 00 01 02"},
        {Payload() << count16(65537), "01 00"},
    };
    for (const auto& c : cases) EXPECT_EQ(hex(c.p.bytes()), QString::fromLatin1(c.bytes));
}

TEST(Reader, ReadsWhatTheWriterWrote)
{
    const QStringList list{QStringLiteral("x"), QString(), QStringLiteral("\u00e9")};
    const QMap<QString, QStringList> gm{{QStringLiteral("A"), list}, {QStringLiteral("B"), {}}};
    const QMap<QString, int> sim{{QStringLiteral("a"), 1}, {QStringLiteral("b"), -1}};
    const QByteArray blob(300, 'q');
    const QString s = QStringLiteral("name");
    const Payload p = Payload() << u8{7} << u16{65535} << u32{0xDEADBEEF} << i32{-5} << flag8{true}
                                << flag8{false} << strz{s} << str16{s} << strlist{list}
                                << dtext{2.25} << itext{42} << groupmap{gm} << strintmap{sim}
                                << blob32{blob};
    const QByteArray bytes = p.bytes();
    Reader r = readerOf(bytes);
    EXPECT_EQ(r.u8(), 7);
    EXPECT_EQ(r.u16(), 65535);
    EXPECT_EQ(r.u32(), 0xDEADBEEFu);
    EXPECT_EQ(r.i32(), -5);
    EXPECT_TRUE(r.flag8());
    EXPECT_FALSE(r.flag8());
    EXPECT_EQ(r.strz(), s);
    EXPECT_EQ(r.str16(), s);
    EXPECT_EQ(r.strlist(), list);
    EXPECT_EQ(r.dtext(), 2.25);
    EXPECT_EQ(r.itext(), 42);
    EXPECT_EQ(r.groupmap(), gm);
    EXPECT_EQ(r.strintmap(), sim);
    EXPECT_EQ(r.blob32(), blob);
    EXPECT_TRUE(r.atEnd());
    EXPECT_FALSE(r.isShort());
}

TEST(Writer, LongSharedCopiedAndMovedPayloadsKeepTheirBytes)
{
    // Past the room kept inside the object, with large arrays shared (not
    // copied) between bytes of its own, and after copies and moves.
    QByteArray big(10000, Qt::Uninitialized);
    for (int i = 0; i < big.size(); ++i) big[i] = char(i * 7 + i / 256);
    const QByteArray small(100, 's');
    Payload p;
    QByteArray expected;
    for (int i = 0; i < 40; ++i) {
        const QString item = QStringLiteral("item%1").arg(i);
        p << strz{item};
        expected += item.toLatin1() + '\0';
    }
    p << blob32{big} << u8{9} << rawbytes{small} << rawbytes{big}
      << strz{QString::fromUtf8("a\xC3\xA4")};
    expected += QByteArray::fromHex("10270000") + big + '\x09' + small + big + "a\xC3\xA4" + '\0';
    EXPECT_EQ(p.size(), expected.size());
    EXPECT_EQ(p.bytes(), expected);
    EXPECT_EQ(p.contiguous(), nullptr);

    // Any window of it, run by run, in order.
    for (int from : {0, 1, 299, 300, 5000, 10300, 20000})
        for (int n : {0, 1, 17, 4000, 30000}) {
            const int len = qMin(n, expected.size() - from);
            QByteArray got;
            p.forEachRun(size_t(from), size_t(len), [&](const char* d, size_t k) {
                EXPECT_GT(k, 0u);
                got.append(d, int(k));
            });
            ASSERT_EQ(got, expected.mid(from, len)) << from << " " << n;
        }

    Payload copy(p);
    Payload moved(std::move(copy));
    EXPECT_EQ(moved.bytes(), expected);
    Payload inlineOnly;
    inlineOnly << u16{0x0201};
    Payload assigned;
    assigned = std::move(inlineOnly);
    assigned << u8{3};
    EXPECT_EQ(hex(assigned.bytes()), QStringLiteral("01 02 03"));
    assigned = moved;
    EXPECT_EQ(assigned.bytes(), expected);
}

TEST(Reader, CodedDataReadsAsPlainData)
{
    // A body still coded as it arrived is decoded as the reads reach it; a
    // large byte field is decoded straight into its array. Every value and
    // the reader's state match a reader of the plain bytes, also for data
    // cut anywhere.
    const QString longText(600, QLatin1Char('t'));
    const QStringList list{QStringLiteral("x"), QString(), longText};
    QByteArray big(5000, Qt::Uninitialized);
    for (int i = 0; i < big.size(); ++i) big[i] = char(i * 13);
    const QByteArray plain = (Payload() << u32{0xA1B2C3D4} << strz{longText} << strlist{list}
                                        << blob32{QByteArray(300, 'b')} << blob32{big} << i32{-9}
                                        << strz{QStringLiteral("end")} << flag8{true})
                                 .bytes();
    const qint64 position = 3; // body offset 4: the keystream starts at body byte 1
    for (int cut : {int(plain.size()), int(plain.size()) - 1, 4000, 2000, 1300, 620, 300, 3, 0}) {
        QByteArray a = plain.left(cut), b = a;
        kz_coding_code_at(b.data(), b.constData(), b.size(), position);
        Reader ra = readerOf(a);
        Reader rb(reinterpret_cast<const uchar*>(b.constData()), b.size());
        rb.setCoded(reinterpret_cast<uchar*>(b.data()), position);
        EXPECT_EQ(rb.u32(), ra.u32()) << cut;
        EXPECT_EQ(rb.strz(), ra.strz()) << cut;
        EXPECT_EQ(rb.strlist().join(QLatin1Char('|')).toStdString(),
                  ra.strlist().join(QLatin1Char('|')).toStdString())
            << cut;
        EXPECT_EQ(rb.blob32(), ra.blob32()) << cut;
        EXPECT_EQ(rb.blob32(), ra.blob32()) << cut;
        EXPECT_EQ(rb.i32(), ra.i32()) << cut;
        EXPECT_EQ(rb.strz(), ra.strz()) << cut;
        EXPECT_EQ(rb.flag8(), ra.flag8()) << cut;
        EXPECT_EQ(rb.isShort(), ra.isShort()) << cut;
        EXPECT_EQ(rb.atEnd(), ra.atEnd()) << cut;
    }
}

TEST(Reader, InvertedFlagRules)
{
    const QByteArray b = unhex("00 01 02 00 01 02");
    Reader r = readerOf(b);
    EXPECT_TRUE(r.flag8());
    EXPECT_FALSE(r.flag8());
    EXPECT_FALSE(r.flag8()); // zero test: any non-zero byte is false
    EXPECT_TRUE(r.flag8x());
    EXPECT_FALSE(r.flag8x());
    EXPECT_TRUE(r.flag8x()); // low-bit flip: 2 ^ 1 is non-zero
    EXPECT_FALSE(r.flag8()); // past the end: never a success
    EXPECT_FALSE(r.flag8x());
}

TEST(Reader, ShortAndMalformedInputStaysInside)
{
    const struct
    {
        const char* bytes;
        QString (*read)(Reader&);
        QString expected;
        int isShort; // -1: either
    } rows[] = {
        {"01 02 03", [](Reader& r) { return QString::number(r.u32()); }, QStringLiteral("0"), 1},
        {"61 62 63", [](Reader& r) { return r.strz(); }, QStringLiteral("abc"), 1}, // no zero
        {"ff ff 61 00", [](Reader& r) { return r.strlist().join(QLatin1Char(',')); }, QString(),
         -1}, // count -1
        {"10 00 61 00 62 00", [](Reader& r) { return r.strlist().join(QLatin1Char(',')); },
         QStringLiteral("a,b"), -1}, // claims 16 items, holds 2
        {"ff ff ff 7f 01 02", [](Reader& r) { return hex(r.blob32()); }, QStringLiteral("01 02"),
         1}, // a 2 GiB block holding 2 bytes
        {"f0 ff 61 62", [](Reader& r) { return r.str16(); }, QString(), -1}, // negative length
        {"09 00 61 62", [](Reader& r) { return r.str16(); }, QStringLiteral("ab"), 1},
    };
    for (const auto& row : rows) {
        const QByteArray b = unhex(row.bytes); // exactly these bytes: ASan sees any over-read
        Reader r = readerOf(b);
        EXPECT_EQ(row.read(r), row.expected) << row.bytes;
        EXPECT_TRUE(row.isShort < 0 || r.isShort() == bool(row.isShort)) << row.bytes;
        EXPECT_EQ(r.i32(), 0) << row.bytes; // nothing left to read
    }
}

TEST(Reader, EveryPrefixOfAPayloadIsSafe)
{
    const QStringList list{QStringLiteral("one"), QStringLiteral("two")};
    const QMap<QString, QStringList> gm{{QStringLiteral("A"), list}};
    const QMap<QString, int> sim{{QStringLiteral("k"), 3}};
    const QString s = QStringLiteral("s");
    const QByteArray blob(40, 'b');
    const QByteArray full = (Payload() << str16{s} << strlist{list} << groupmap{gm}
                                       << strintmap{sim} << dtext{1.5} << blob32{blob} << i32{1})
                                .bytes();
    for (int n = 0; n <= full.size(); ++n) {
        // A copy of exactly n bytes, so that the sanitizer sees any over-read.
        QByteArray prefix(full.constData(), n);
        Reader r = readerOf(prefix);
        r.str16();
        r.strlist();
        r.groupmap();
        r.strintmap();
        r.dtext();
        r.blob32();
        r.i32();
        EXPECT_EQ(r.isShort(), n < full.size()) << n;
        EXPECT_TRUE(r.atEnd()) << n;
    }
}

TEST(Reader, TraceNamesEachField)
{
    const QStringList list{QStringLiteral("a"), QStringLiteral("b")};
    const QByteArray b = (Payload() << strlist{list} << flag8{true}).bytes();
    Trace trace;
    Reader r = readerOf(b);
    TracingReader t(r, trace);
    t.label("names");
    t.strlist();
    t.flag8();
    ASSERT_EQ(trace.items.size(), 2);
    EXPECT_STREQ(trace.items[0].kind, "strlist");
    EXPECT_STREQ(trace.items[0].name, "names");
    EXPECT_EQ(trace.items[0].text, QStringLiteral("[2]{\"a\",\"b\"}"));
    EXPECT_EQ(trace.items[0].children.size(), 2);
    EXPECT_EQ(trace.items[1].offset, 6);
    EXPECT_EQ(trace.items[1].text, QStringLiteral("true"));
    EXPECT_EQ(trace.items[1].value, QVariant(true));
    EXPECT_EQ(trace.cutAt, -1);
}
