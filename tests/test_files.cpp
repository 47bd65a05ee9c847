// Machine files: file operations, transfer tasks and shared files. One row
// per message direction, then hand-built and cut payloads for what a row
// cannot show: the two ways status bytes decode, content lengths that do not
// match the data, blocks cut short, the exchange table's dropped text and
// repeated keys, and the list budgets.
#include "rows.h"

using namespace kztest;

namespace {

const QString a = QStringLiteral("a"), b = QStringLiteral("b"), c = QStringLiteral("c"),
              d = QStringLiteral("d"), e = QStringLiteral("e"), k = QStringLiteral("k"),
              m = QStringLiteral("m"), x = QStringLiteral("x"), none;
const QStringList ab{a, b};
const QByteArray block("0123456789abcdef");
#define BLOCK "30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66"
using FileMap = QMap<QString, QStringList>;

/// Texts as strz, one after the other.
QByteArray texts(std::initializer_list<const char*> list)
{
    QByteArray out;
    for (const char* t : list) out += QByteArray(t) + '\0';
    return out;
}

} // namespace

TEST(Files, Messages)
{
    checkRows({
        // file operations: the mode is one signed byte (256 -> 0, 255 -> -1)
        KZ_ROW(lanMacFiles(a, b, 256), "61 00 62 00 00", LanMacFilesCB, a, b, 0),
        KZ_ROW(lanMacFiles(a, b, 255), "61 00 62 00 ff", LanMacFilesCB, a, b, -1),
        KZ_ROW(lanMacFiles(a, b, 200), "61 00 62 00 c8", LanMacFilesCB, a, b, -56),
        // the count ahead of the value, the entries after both
        KZ_ROW(lanMacFilesResponse(a, 3, ab), "61 00 02 00 03 00 61 00 62 00", LanMacFilesResultCB,
               a, 3, ab),
        KZ_ROW(lanMacFilesResponse(a, 0x1FFFE, {}), "61 00 00 00 fe ff", LanMacFilesResultCB, a, -2,
               QStringList()),
        KZ_ROW(lanMacRenameFile(a, b, c), "61 00 62 00 63 00", LanMacRenameFileCB, a, b, c),
        KZ_ROW(lanMacRenameFileResponse(true), "00", LanMacRenameFileResultCB, true),
        KZ_ROW(lanMacExecuteFile(a, b), "61 00 62 00", LanMacExecuteFileCB, a, b),
        KZ_ROW(lanMacExecuteFileResponse(false), "01", LanMacExecuteFileResultCB, false),
        KZ_ROW(lanMacDeleteFile(a, ab), "61 00 02 00 61 00 62 00", LanMacDeleteFileCB, a, ab),
        KZ_ROW(lanMacDeleteFileResponse(true), "00", LanMacDeleteFileResultCB, true),

        // transfer tasks: four texts per key go out, the last three arrive
        KZ_ROW(lanMacTsfExchangeFile({{k, {a, b, c, d}}}), "01 00 6b 00 61 00 62 00 63 00 64 00",
               LanMacTsfExchangeFileCB, FileMap{{k, {b, c, d}}}),
        // a list of three texts writes its key alone, which the receiver
        // cannot read as an entry
        KZ_ROW(lanMacTsfExchangeFile({{k, {a, b, c}}}), "01 00 6b 00", LanMacTsfExchangeFileCB,
               FileMap()),
        // the first flag after the texts, ahead of the second
        KZ_ROW(lanMacTsfFileAddTask(true, a, b, c, false, ab),
               "61 00 62 00 63 00 00 01 02 00 61 00 62 00", LanMacTsfFileAddTaskCB, true, a, b, c,
               false, ab)
            .otherFlag(Cb::LanMacTsfFileAddTaskUiCB),
        // the reply-flag form: n between the second and third texts, ok last
        KZ_ROW(lanMacTsfFileAddTaskUi(true, a, b, 2, c, d, e),
               "61 00 62 00 02 00 00 00 63 00 64 00 65 00 00", LanMacTsfFileAddTaskUiCB, true, a, b,
               2, c, d, e)
            .otherFlag(Cb::LanMacTsfFileAddTaskCB),
        KZ_ROW(lanMacTsfFileTaskStart(), "", LanMacTsfFileTaskStartCB),
        KZ_ROW(lanMacTsfFileTaskBegin(1, block), "01 00 00 00 " BLOCK, LanMacTsfFileTaskBeginCB, 1,
               block),
        // a short block goes out padded with zero bytes, a long one cut
        KZ_ROW(lanMacTsfFileTaskBegin(-1, QByteArray("ab")),
               "ff ff ff ff 61 62 00 00 00 00 00 00 00 00 00 00 00 00 00 00",
               LanMacTsfFileTaskBeginCB, -1, QByteArray("ab") + QByteArray(14, '\0')),
        KZ_ROW(lanMacTsfFileClose(1, 2, block + "zz"), "01 00 00 00 02 00 00 00 " BLOCK,
               LanMacTsfFileCloseCB, 1, 2, block),
        // the answer to TaskBegin, under a code of its own
        KZ_ROW(lanMacTsfFileBeginResponse(1, 2, -1), "01 00 00 00 02 00 00 00 ff ff ff ff",
               LanMacTsfFileBeginResultCB, 1, 2, -1),
        KZ_ROW(lanMacTsfFileContent(1, 2, 3, 2, block, QByteArray("xy")),
               "01 00 00 00 02 00 00 00 03 00 00 00 02 00 00 00 " BLOCK " 78 79",
               LanMacTsfFileContentCB, 1, 2, 3, 2, block, QByteArray("xy")),
        KZ_ROW(lanMacTsfFileContent(1, 2, 3, 0, block, QByteArray()),
               "01 00 00 00 02 00 00 00 03 00 00 00 00 00 00 00 " BLOCK, LanMacTsfFileContentCB, 1,
               2, 3, 0, block, QByteArray()),
        KZ_ROW(lanMacTsfFileContentResponse(1, 2), "01 00 00 00 02 00 00 00",
               LanMacTsfFileContentResultCB, 1, 2),
        KZ_ROW(lanMacTsfFileEnd(7, x, true), "07 00 00 00 78 00 00", LanMacTsfFileEndCB, 7, x,
               true),
        KZ_ROW(lanMacTsfFileEnd(7, x, false), "07 00 00 00 78 00 01", LanMacTsfFileEndCB, 7, x,
               false),
        // percent under the reply flag, speed under the request flag: each
        // fires nothing under the other
        KZ_ROW(lanMacTsfFilePercent(1, 2, 3), "01 00 00 00 02 00 00 00 03 00 00 00",
               LanMacTsfFilePercentCB, 1, 2, 3),
        KZ_ROW(lanMacTsfFileSpeed(1, 2, 3), "01 00 00 00 02 00 00 00 03 00 00 00",
               LanMacTsfFileSpeedCB, 1, 2, 3),
        KZ_ROW(lanMacTsfFilePause(a, 1), "61 00 01 00 00 00", LanMacTsfFilePauseCB, a, 1),
        KZ_ROW(lanMacTsfFileResume(a, 2), "61 00 02 00 00 00", LanMacTsfFileResumeCB, a, 2),
        KZ_ROW(lanMacTsfFileCancel(none, -1), "00 ff ff ff ff", LanMacTsfFileCancelCB, none, -1),

        // shared files: the text ahead of the integer's byte (300 -> 0x2C)
        KZ_ROW(lanLoadSharedFiles(300, a), "61 00 2c", LanLoadSharedFilesCB, 44, a),
        // an empty first list: the second count follows the first directly
        KZ_ROW(lanLoadSharedFilesResponse(a, {}, ab), "61 00 00 00 02 00 61 00 62 00",
               LanLoadSharedFilesResultCB, a, QStringList(), ab),
        KZ_ROW(lanDownloadSharedFiles(-1, a, ab, {c}), "ff 61 00 02 00 61 00 62 00 01 00 63 00",
               LanDownloadSharedFilesCB, -1, a, ab, QStringList{c}),
        KZ_ROW(lanAppLoadSharedFiles(a), "61 00", LanAppLoadSharedFilesCB, a),
        // the text (last argument) ahead of the lists
        KZ_ROW(lanAppLoadSharedFilesResult(ab, {}, m), "6d 00 02 00 61 00 62 00 00 00",
               LanAppLoadSharedFilesResultCB, ab, QStringList(), m),
    });
}

TEST(Files, DecodesHandBuiltAndCutPayloads)
{
    const QByteArray ints = unhex("01 00 00 00 02 00 00 00 03 00 00 00");
    const struct
    {
        QByteArray body;
        Call arrival;
    } cases[] = {
        // File-operation status bytes flip the low bit: 2 is true. Transfer
        // status bytes test for zero: 2 is false.
        {unhex("01 11 01 05 02"), arrives<Cb::LanMacRenameFileResultCB>(true)},
        {unhex("01 11 03 05 01"), arrives<Cb::LanMacDeleteFileResultCB>(false)},
        {unhex("00 11 0d 05 07 00 00 00 78 00 02"), arrives<Cb::LanMacTsfFileEndCB>(7, x, false)},
        {unhex("00 11 07 05 61 00 62 00 63 00 02 00 00 00"),
         arrives<Cb::LanMacTsfFileAddTaskCB>(false, a, b, c, true, QStringList())},
        // A file count beyond the entries stops at the end of the data; a
        // negative one is an empty list, and the value after it still reads.
        {unhex("01 11 00 05 61 00 05 00 03 00 61 00 62 00"),
         arrives<Cb::LanMacFilesResultCB>(a, 3, ab)},
        {unhex("01 11 00 05 61 00 ff ff 03 00 61 00"),
         arrives<Cb::LanMacFilesResultCB>(a, 3, QStringList())},
        {unhex("00 11 03 05 61 00 09 00 61 00 62"), arrives<Cb::LanMacDeleteFileCB>(a, ab)},
        // Content takes exactly len bytes after the block: fewer when the
        // data ends first, none for a negative len.
        {unhex("00 11 0b 05") + ints + unhex("0a 00 00 00") + block + "ab",
         arrives<Cb::LanMacTsfFileContentCB>(1, 2, 3, 10, block, QByteArray("ab"))},
        {unhex("00 11 0b 05") + ints + unhex("01 00 00 00") + block + "ab",
         arrives<Cb::LanMacTsfFileContentCB>(1, 2, 3, 1, block, QByteArray("a"))},
        {unhex("00 11 0b 05") + ints + unhex("ff ff ff ff") + block + "ab",
         arrives<Cb::LanMacTsfFileContentCB>(1, 2, 3, -1, block, QByteArray())},
        // A block cut by the end of the data holds what there was.
        {unhex("00 11 0b 05") + ints + unhex("02 00 00 00") + block.left(5),
         arrives<Cb::LanMacTsfFileContentCB>(1, 2, 3, 2, block.left(5), QByteArray())},
        {unhex("00 11 0c 05 01 00 00 00"), arrives<Cb::LanMacTsfFileCloseCB>(1, 0, QByteArray())},
        // A repeated key keeps its last entry; an entry cut off is none.
        {unhex("00 11 06 05 03 00") +
             texts({"k", "a", "b", "c", "d", "k", "e", "f", "g", "h", "m", "a"}),
         arrives<Cb::LanMacTsfExchangeFileCB>(
             FileMap{{k, {QStringLiteral("f"), QStringLiteral("g"), QStringLiteral("h")}}})},
        {unhex("00 11 06 05 00 80 6b 00 61 00 62 00 63 00 64 00"),
         arrives<Cb::LanMacTsfExchangeFileCB>(FileMap())},
        // Shared lists: an entry of the first list needs two bytes of the
        // budget, so a lone last byte is no entry (and no second count).
        {unhex("01 11 04 05 61 00 02 00 61 00 78"),
         arrives<Cb::LanLoadSharedFilesResultCB>(a, QStringList{a}, QStringList())},
        {unhex("01 11 04 05 61 00 01 00 61 00 01 00 78"),
         arrives<Cb::LanLoadSharedFilesResultCB>(a, QStringList{a}, QStringList{x})},
        {unhex("01 11 01 08 61 00 02 00 61 00 62 00 07 00 63 00"),
         arrives<Cb::LanAppLoadSharedFilesResultCB>(ab, QStringList{c}, a)},
        {unhex("00 11 05 05 c8 61 00 ff ff 01 00 62 00"),
         arrives<Cb::LanDownloadSharedFilesCB>(-56, a, QStringList(), QStringList{b})},
        {unhex("00 11 05 05 05"),
         arrives<Cb::LanDownloadSharedFilesCB>(5, none, QStringList(), QStringList())},
    };
    for (const auto& t : cases)
        EXPECT_EQ(dispatchBody(t.body), calls({t.arrival})) << hex(t.body).toStdString();
}
