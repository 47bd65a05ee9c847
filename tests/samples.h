// The sample messages of the fast-path figures, shared by the benchmark that
// measures them and the test that pins their frames: ten 8-character user
// names, and an account with a 3 x 3 group permission map.
#ifndef KZTEST_SAMPLES_H
#define KZTEST_SAMPLES_H

#include "kzrecords.h"

#include <QStringList>

namespace kzsamples {

/// "user0001" … "user0010".
inline QStringList tenNames()
{
    QStringList names;
    for (int i = 1; i <= 10; ++i) names << QStringLiteral("user%1").arg(i, 4, 10, QLatin1Char('0'));
    return names;
}

/// mchen_07 of Weaving/Line 3, permission 0x1f3, halls A–C each with lines 1–3.
inline user_info sampleUser()
{
    user_info u;
    u.name = QStringLiteral("mchen_07");
    u.text2 = QStringLiteral("Mei Chen");
    u.text3 = QStringLiteral("night shift lead");
    u.lv1Group = QStringLiteral("Weaving");
    u.lv2Group = QStringLiteral("Line 3");
    u.flag = true;
    u.permission = 0x1f3;
    const QStringList lines{QStringLiteral("Line 1"), QStringLiteral("Line 2"),
                            QStringLiteral("Line 3")};
    for (const char* hall : {"Hall A", "Hall B", "Hall C"})
        u.groupPermission.insert(QString::fromLatin1(hall), lines);
    return u;
}

} // namespace kzsamples

#endif
