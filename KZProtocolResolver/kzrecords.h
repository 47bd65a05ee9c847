// Generated from protocol/*.table by protocol/kzgen: do not edit. After changing the
// table, refresh with: cmake --build <build dir> --target protocol_refresh

/// \file kzrecords.h
/// Record types carried by the messages of KZProtocolResolver: plain value types, copied
/// field by field.
#ifndef KZRESOLVER_KZRECORDS_H
#define KZRESOLVER_KZRECORDS_H

#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>
#include <QVariant>

// Users -------------------------------------------------------------------------------------------

/// One user account, filed in a (first-level, second-level) group.
struct user_info
{
    QString name;       ///< the account's name; unique inside its group pair
    QString text2;      ///< second account string (the second string of lanAddUser)
    QString text3;      ///< third account string (the third string of lanAddUser)
    int permission = 0; ///< the permission value that lanUpdateUserPermission sets
    bool flag = false;  ///< the account flag (the boolean of lanAddUser)
    QString lv1Group;   ///< first-level group that holds the user
    QString lv2Group;   ///< second-level group (inside lv1Group)
    /// The groups the user may see: first-level name to its second-level names (what
    /// lanUpdateUserGroupPermission sets).
    QMap<QString, QStringList> groupPermission;
};

/// Equal when every field is equal (lists and maps entry by entry).
inline bool operator==(const user_info& a, const user_info& b)
{
    return a.name == b.name && a.text2 == b.text2 && a.text3 == b.text3 &&
           a.permission == b.permission && a.flag == b.flag && a.lv1Group == b.lv1Group &&
           a.lv2Group == b.lv2Group && a.groupPermission == b.groupPermission;
}
/// Not equal: some field differs.
inline bool operator!=(const user_info& a, const user_info& b) { return !(a == b); }

// Operators ---------------------------------------------------------------------------------------

/// One machine operator (a person working at the machines), kept apart from the user accounts. A
/// default record has empty strings and both flags false.
struct operator_user
{
    QString name;       ///< identifying string: the key of the operator table
    QString text2;      ///< second operator string
    QString text3;      ///< third operator string
    QString text4;      ///< fourth operator string
    QString text5;      ///< fifth operator string
    bool flagA = false; ///< first operator flag
    bool flagB = false; ///< second operator flag
};

/// Equal when every field is equal (lists and maps entry by entry).
inline bool operator==(const operator_user& a, const operator_user& b)
{
    return a.name == b.name && a.text2 == b.text2 && a.text3 == b.text3 && a.text4 == b.text4 &&
           a.text5 == b.text5 && a.flagA == b.flagA && a.flagB == b.flagB;
}
/// Not equal: some field differs.
inline bool operator!=(const operator_user& a, const operator_user& b) { return !(a == b); }

// Permissions -------------------------------------------------------------------------------------

/// A permission word: nineteen one-bit flags (bits 0 to 18) and a 13-bit field (bits 19 to 31). On
/// the wire it is the 32-bit word with each field at its own bit position; word() and the word
/// constructor convert field by field, so the conversion does not depend on the compiler's
/// bit-field layout.
struct fctp_user2_power
{
    unsigned int flag0 : 1;  ///< bit 0
    unsigned int flag1 : 1;  ///< bit 1
    unsigned int flag2 : 1;  ///< bit 2
    unsigned int flag3 : 1;  ///< bit 3
    unsigned int flag4 : 1;  ///< bit 4
    unsigned int flag5 : 1;  ///< bit 5
    unsigned int flag6 : 1;  ///< bit 6
    unsigned int flag7 : 1;  ///< bit 7
    unsigned int flag8 : 1;  ///< bit 8
    unsigned int flag9 : 1;  ///< bit 9
    unsigned int flag10 : 1; ///< bit 10
    unsigned int flag11 : 1; ///< bit 11
    unsigned int flag12 : 1; ///< bit 12
    unsigned int flag13 : 1; ///< bit 13
    unsigned int flag14 : 1; ///< bit 14
    unsigned int flag15 : 1; ///< bit 15
    unsigned int flag16 : 1; ///< bit 16
    unsigned int flag17 : 1; ///< bit 17
    unsigned int flag18 : 1; ///< bit 18
    unsigned int upper : 13; ///< bits 19 to 31

    /// All fields 0.
    fctp_user2_power() : fctp_user2_power(0u) {}
    /// The fields of a 32-bit word.
    explicit fctp_user2_power(quint32 w)
        : flag0(w & 1), flag1(w >> 1 & 1), flag2(w >> 2 & 1), flag3(w >> 3 & 1), flag4(w >> 4 & 1),
          flag5(w >> 5 & 1), flag6(w >> 6 & 1), flag7(w >> 7 & 1), flag8(w >> 8 & 1),
          flag9(w >> 9 & 1), flag10(w >> 10 & 1), flag11(w >> 11 & 1), flag12(w >> 12 & 1),
          flag13(w >> 13 & 1), flag14(w >> 14 & 1), flag15(w >> 15 & 1), flag16(w >> 16 & 1),
          flag17(w >> 17 & 1), flag18(w >> 18 & 1), upper(w >> 19)
    {}
    /// The 32-bit word of these fields.
    quint32 word() const
    {
        return quint32(flag0) | quint32(flag1) << 1 | quint32(flag2) << 2 | quint32(flag3) << 3 |
               quint32(flag4) << 4 | quint32(flag5) << 5 | quint32(flag6) << 6 |
               quint32(flag7) << 7 | quint32(flag8) << 8 | quint32(flag9) << 9 |
               quint32(flag10) << 10 | quint32(flag11) << 11 | quint32(flag12) << 12 |
               quint32(flag13) << 13 | quint32(flag14) << 14 | quint32(flag15) << 15 |
               quint32(flag16) << 16 | quint32(flag17) << 17 | quint32(flag18) << 18 |
               quint32(upper) << 19;
    }
};

/// Equal when the words are equal.
inline bool operator==(fctp_user2_power a, fctp_user2_power b) { return a.word() == b.word(); }
/// Not equal: some field differs.
inline bool operator!=(fctp_user2_power a, fctp_user2_power b) { return !(a == b); }

/// One per-machine permission entry.
struct mac_user_power
{
    QString key1;           ///< first identifying string of the entry
    QString key2;           ///< second identifying string
    QString key3;           ///< third identifying string
    fctp_user2_power power; ///< the entry's permission bits
};

/// Equal when every field is equal (lists and maps entry by entry).
inline bool operator==(const mac_user_power& a, const mac_user_power& b)
{
    return a.key1 == b.key1 && a.key2 == b.key2 && a.key3 == b.key3 && a.power == b.power;
}
/// Not equal: some field differs.
inline bool operator!=(const mac_user_power& a, const mac_user_power& b) { return !(a == b); }

// Machine registry --------------------------------------------------------------------------------

/// One machine of the registry, filed in a (first-level, second-level) group.
struct mac_info
{
    QString mac;       ///< the machine's identifying string: the key of every machine message
    QString text2;     ///< second machine string
    quint8 code = 0;   ///< a small numeric attribute
    QString text4;     ///< fourth machine string
    QString lv1Group;  ///< first-level group that holds the machine
    QString lv2Group;  ///< second-level group (inside lv1Group)
    qint32 value7 = 0; ///< a numeric attribute carried only by the full listing (lanMacInfo)
};

/// Equal when every field is equal (lists and maps entry by entry).
inline bool operator==(const mac_info& a, const mac_info& b)
{
    return a.mac == b.mac && a.text2 == b.text2 && a.code == b.code && a.text4 == b.text4 &&
           a.lv1Group == b.lv1Group && a.lv2Group == b.lv2Group && a.value7 == b.value7;
}
/// Not equal: some field differs.
inline bool operator!=(const mac_info& a, const mac_info& b) { return !(a == b); }

// Machine status reports --------------------------------------------------------------------------

/// One entry of a machine's work log. lanMacWorkLog carries text1, text2, value3, value4, text5 and
/// text8; value6 and value7 travel only in the log queries.
struct work_log
{
    QString text1;     ///< first log string
    QString text2;     ///< second log string
    qint32 value3 = 0; ///< first log number
    qint32 value4 = 0; ///< second log number
    QString text5;     ///< third log string
    qint32 value6 = 0; ///< third log number
    qint32 value7 = 0; ///< fourth log number
    QString text8;     ///< fourth log string
};

/// Equal when every field is equal (lists and maps entry by entry).
inline bool operator==(const work_log& a, const work_log& b)
{
    return a.text1 == b.text1 && a.text2 == b.text2 && a.value3 == b.value3 &&
           a.value4 == b.value4 && a.text5 == b.text5 && a.value6 == b.value6 &&
           a.value7 == b.value7 && a.text8 == b.text8;
}
/// Not equal: some field differs.
inline bool operator!=(const work_log& a, const work_log& b) { return !(a == b); }

/// Production figures of one process (the value of a map keyed by process name). The work log
/// carries both figures as text with six significant digits.
struct oee_process_data
{
    double figure1 = 0; ///< first figure
    qint32 count = 0;   ///< a count
    double figure2 = 0; ///< second figure
};

/// Equal when every field is equal (lists and maps entry by entry).
inline bool operator==(const oee_process_data& a, const oee_process_data& b)
{
    return a.figure1 == b.figure1 && a.count == b.count && a.figure2 == b.figure2;
}
/// Not equal: some field differs.
inline bool operator!=(const oee_process_data& a, const oee_process_data& b) { return !(a == b); }

// Planned stops and work time ---------------------------------------------------------------------

/// One planned work-time span. On the wire: first, second, then amount.
struct oee_worktime_item
{
    double amount = 0; ///< the span's numeric value; travels as text with six significant digits
    QString first;     ///< first text of the span
    QString second;    ///< second text of the span
};

/// Equal when every field is equal (lists and maps entry by entry).
inline bool operator==(const oee_worktime_item& a, const oee_worktime_item& b)
{
    return a.amount == b.amount && a.first == b.first && a.second == b.second;
}
/// Not equal: some field differs.
inline bool operator!=(const oee_worktime_item& a, const oee_worktime_item& b) { return !(a == b); }

/// A group of planned stops, the value of oee_shut_item::stops. It has the shape of the body of
/// lanAddPlanShutItem: a text, a stop map and names.
struct oee_shut_group
{
    QString text; ///< the group's text
    /// Stops by number; each entry is two texts and a number (a QString, a QString and a double;
    /// the number travels with six significant digits).
    QMap<int, QList<QVariant>> stops;
    QStringList names; ///< the group's names
};

/// Equal when every field is equal (lists and maps entry by entry).
inline bool operator==(const oee_shut_group& a, const oee_shut_group& b)
{
    return a.text == b.text && a.stops == b.stops && a.names == b.names;
}
/// Not equal: some field differs.
inline bool operator!=(const oee_shut_group& a, const oee_shut_group& b) { return !(a == b); }

/// One date's set of planned stops, as lanOeeShutItemList pushes it.
struct oee_shut_item
{
    int id = 0;                                 ///< the set's identifier
    int kind = 0;                               ///< the set's kind
    QString date;                               ///< the date it applies to (free text)
    QStringList names;                          ///< names of the set
    QMap<QString, oee_worktime_item> workTimes; ///< planned work-time spans by key
    QMap<QString, oee_shut_group> stops;        ///< stop groups by key
};

/// Equal when every field is equal (lists and maps entry by entry).
inline bool operator==(const oee_shut_item& a, const oee_shut_item& b)
{
    return a.id == b.id && a.kind == b.kind && a.date == b.date && a.names == b.names &&
           a.workTimes == b.workTimes && a.stops == b.stops;
}
/// Not equal: some field differs.
inline bool operator!=(const oee_shut_item& a, const oee_shut_item& b) { return !(a == b); }

// OEE data ----------------------------------------------------------------------------------------

/// One element of oee_date_data::items: a text and its number.
struct oee_date_item
{
    QString text;  ///< the element's text
    int value = 0; ///< the element's number
};

/// Equal when every field is equal (lists and maps entry by entry).
inline bool operator==(const oee_date_item& a, const oee_date_item& b)
{
    return a.text == b.text && a.value == b.value;
}
/// Not equal: some field differs.
inline bool operator!=(const oee_date_item& a, const oee_date_item& b) { return !(a == b); }

/// The OEE data of one key (a date or a machine, as the asking side chose) in the reply of
/// lanLoadOEEData. Travels in the order first, second, amount, counts, process, items, values.
struct oee_date_data
{
    QMap<QString, int> counts; ///< counts by name
    QString first;             ///< first text
    QString second;            ///< second text
    double amount = 0;         ///< a figure; travels with six significant digits
    /// Per-process figures. They travel as three whole numbers: the two figures arrive truncated
    /// toward zero (outside the 32-bit range: -2147483648).
    QMap<QString, oee_process_data> process;
    QList<oee_date_item> items;   ///< texts with a number each, in order
    QMap<QString, double> values; ///< figures by name; six significant digits
};

/// Equal when every field is equal (lists and maps entry by entry).
inline bool operator==(const oee_date_data& a, const oee_date_data& b)
{
    return a.counts == b.counts && a.first == b.first && a.second == b.second &&
           a.amount == b.amount && a.process == b.process && a.items == b.items &&
           a.values == b.values;
}
/// Not equal: some field differs.
inline bool operator!=(const oee_date_data& a, const oee_date_data& b) { return !(a == b); }

// Log queries -------------------------------------------------------------------------------------

/// One entry of a processing log: a text and seven numbers. The log records carry the host's own
/// values (machines, files, times, counts, durations, codes) without interpretation; their fields
/// are named by position and kind. A field named "not carried" keeps its default on the receiving
/// side.
struct kz_log_process_entry
{
    QString text1;     ///< the entry's text
    qint32 value2 = 0; ///< first number
    qint32 value3 = 0; ///< second number
    qint32 value4 = 0; ///< third number
    qint32 value5 = 0; ///< fourth number
    qint32 value6 = 0; ///< fifth number
    qint32 value7 = 0; ///< sixth number
    qint32 value8 = 0; ///< seventh number
};

/// Equal when every field is equal (lists and maps entry by entry).
inline bool operator==(const kz_log_process_entry& a, const kz_log_process_entry& b)
{
    return a.text1 == b.text1 && a.value2 == b.value2 && a.value3 == b.value3 &&
           a.value4 == b.value4 && a.value5 == b.value5 && a.value6 == b.value6 &&
           a.value7 == b.value7 && a.value8 == b.value8;
}
/// Not equal: some field differs.
inline bool operator!=(const kz_log_process_entry& a, const kz_log_process_entry& b)
{
    return !(a == b);
}

/// The processing log of one job: three texts and its entries.
struct kz_log_process
{
    QString text1;                       ///< first text
    QString text2;                       ///< second text
    QString text3;                       ///< third text
    QList<kz_log_process_entry> entries; ///< the job's entries, in order
};

/// Equal when every field is equal (lists and maps entry by entry).
inline bool operator==(const kz_log_process& a, const kz_log_process& b)
{
    return a.text1 == b.text1 && a.text2 == b.text2 && a.text3 == b.text3 && a.entries == b.entries;
}
/// Not equal: some field differs.
inline bool operator!=(const kz_log_process& a, const kz_log_process& b) { return !(a == b); }

/// One entry of a run-time log: two texts and three numbers.
struct kz_log_runtime_entry
{
    QString text1;     ///< first text
    QString text2;     ///< second text
    qint32 value3 = 0; ///< first number
    qint32 value4 = 0; ///< second number
    qint32 value5 = 0; ///< third number
};

/// Equal when every field is equal (lists and maps entry by entry).
inline bool operator==(const kz_log_runtime_entry& a, const kz_log_runtime_entry& b)
{
    return a.text1 == b.text1 && a.text2 == b.text2 && a.value3 == b.value3 &&
           a.value4 == b.value4 && a.value5 == b.value5;
}
/// Not equal: some field differs.
inline bool operator!=(const kz_log_runtime_entry& a, const kz_log_runtime_entry& b)
{
    return !(a == b);
}

/// A run-time log: three texts and its entries.
struct kz_log_runtime
{
    QString text1;                       ///< first text
    QString text2;                       ///< second text
    QString text3;                       ///< third text
    QList<kz_log_runtime_entry> entries; ///< the log's entries, in order
};

/// Equal when every field is equal (lists and maps entry by entry).
inline bool operator==(const kz_log_runtime& a, const kz_log_runtime& b)
{
    return a.text1 == b.text1 && a.text2 == b.text2 && a.text3 == b.text3 && a.entries == b.entries;
}
/// Not equal: some field differs.
inline bool operator!=(const kz_log_runtime& a, const kz_log_runtime& b) { return !(a == b); }

/// One abnormal event. The data message of the first generation carries text2, text0, text4..text7
/// and value8 (text1 stays empty); the second generation adds text1. reserved3 travels in neither.
struct kz_abnormal_info
{
    QString text0;     ///< first text
    QString text1;     ///< second text (second generation only)
    QString text2;     ///< third text
    QString reserved3; ///< not carried
    QString text4;     ///< fifth text
    QString text5;     ///< sixth text
    QString text6;     ///< seventh text
    QString text7;     ///< eighth text
    int value8 = 0;    ///< the event's number
};

/// Equal when every field is equal (lists and maps entry by entry).
inline bool operator==(const kz_abnormal_info& a, const kz_abnormal_info& b)
{
    return a.text0 == b.text0 && a.text1 == b.text1 && a.text2 == b.text2 &&
           a.reserved3 == b.reserved3 && a.text4 == b.text4 && a.text5 == b.text5 &&
           a.text6 == b.text6 && a.text7 == b.text7 && a.value8 == b.value8;
}
/// Not equal: some field differs.
inline bool operator!=(const kz_abnormal_info& a, const kz_abnormal_info& b) { return !(a == b); }

/// One entry of an alarm log: three texts and a number.
struct kz_log_alarm_entry
{
    QString text1;     ///< first text
    QString text2;     ///< second text
    QString text3;     ///< third text
    qint32 value4 = 0; ///< the alarm's number
};

/// Equal when every field is equal (lists and maps entry by entry).
inline bool operator==(const kz_log_alarm_entry& a, const kz_log_alarm_entry& b)
{
    return a.text1 == b.text1 && a.text2 == b.text2 && a.text3 == b.text3 && a.value4 == b.value4;
}
/// Not equal: some field differs.
inline bool operator!=(const kz_log_alarm_entry& a, const kz_log_alarm_entry& b)
{
    return !(a == b);
}

/// An alarm log: three texts and its entries.
struct kz_log_alarm
{
    QString text1;                     ///< first text
    QString text2;                     ///< second text
    QString text3;                     ///< third text
    QList<kz_log_alarm_entry> entries; ///< the log's entries, in order
};

/// Equal when every field is equal (lists and maps entry by entry).
inline bool operator==(const kz_log_alarm& a, const kz_log_alarm& b)
{
    return a.text1 == b.text1 && a.text2 == b.text2 && a.text3 == b.text3 && a.entries == b.entries;
}
/// Not equal: some field differs.
inline bool operator!=(const kz_log_alarm& a, const kz_log_alarm& b) { return !(a == b); }

/// One processing stop.
struct kz_log_processstop
{
    QString text1;     ///< first text
    QString text2;     ///< second text
    int code3 = 0;     ///< a small code: one byte on the wire, arrives as 0..255 (its low 8 bits)
    QString text4;     ///< third text
    QString text5;     ///< fourth text
    qint32 value6 = 0; ///< the stop's number
};

/// Equal when every field is equal (lists and maps entry by entry).
inline bool operator==(const kz_log_processstop& a, const kz_log_processstop& b)
{
    return a.text1 == b.text1 && a.text2 == b.text2 && a.code3 == b.code3 && a.text4 == b.text4 &&
           a.text5 == b.text5 && a.value6 == b.value6;
}
/// Not equal: some field differs.
inline bool operator!=(const kz_log_processstop& a, const kz_log_processstop& b)
{
    return !(a == b);
}

/// One shutdown.
struct kz_log_shutdown
{
    QString text1;     ///< first text
    QString text2;     ///< second text
    QString text3;     ///< third text
    QString text4;     ///< fourth text
    qint32 value5 = 0; ///< the shutdown's number
};

/// Equal when every field is equal (lists and maps entry by entry).
inline bool operator==(const kz_log_shutdown& a, const kz_log_shutdown& b)
{
    return a.text1 == b.text1 && a.text2 == b.text2 && a.text3 == b.text3 && a.text4 == b.text4 &&
           a.value5 == b.value5;
}
/// Not equal: some field differs.
inline bool operator!=(const kz_log_shutdown& a, const kz_log_shutdown& b) { return !(a == b); }

/// One processing record of the second generation. figure7 arrives rounded to a whole number
/// (halves to even); figure9, figure11, figure12 and figure14 arrive with six significant digits.
struct kz_log_process_detail
{
    QString text0;       ///< first text
    QString text1;       ///< second text
    QString text2;       ///< third text
    QString text3;       ///< fourth text
    int value4 = 0;      ///< first number
    int value5 = 0;      ///< second number
    int value6 = 0;      ///< third number
    double figure7 = 0;  ///< a figure sent as a whole number
    int value8 = 0;      ///< fourth number
    double figure9 = 0;  ///< a figure sent as text
    QString text10;      ///< fifth text
    double figure11 = 0; ///< a figure sent as text
    double figure12 = 0; ///< a figure sent as text
    QString text13;      ///< sixth text
    double figure14 = 0; ///< a figure sent as text
    bool flag15 = false; ///< the record's flag
};

/// Equal when every field is equal (lists and maps entry by entry).
inline bool operator==(const kz_log_process_detail& a, const kz_log_process_detail& b)
{
    return a.text0 == b.text0 && a.text1 == b.text1 && a.text2 == b.text2 && a.text3 == b.text3 &&
           a.value4 == b.value4 && a.value5 == b.value5 && a.value6 == b.value6 &&
           a.figure7 == b.figure7 && a.value8 == b.value8 && a.figure9 == b.figure9 &&
           a.text10 == b.text10 && a.figure11 == b.figure11 && a.figure12 == b.figure12 &&
           a.text13 == b.text13 && a.figure14 == b.figure14 && a.flag15 == b.flag15;
}
/// Not equal: some field differs.
inline bool operator!=(const kz_log_process_detail& a, const kz_log_process_detail& b)
{
    return !(a == b);
}

/// One run-time record of the second generation.
struct kz_log_runtime_info
{
    QString text0;  ///< first text
    QString text1;  ///< second text
    QString text2;  ///< third text
    QString text3;  ///< fourth text
    QString text4;  ///< fifth text
    int value5 = 0; ///< first number
    int value6 = 0; ///< second number
    int value7 = 0; ///< third number
};

/// Equal when every field is equal (lists and maps entry by entry).
inline bool operator==(const kz_log_runtime_info& a, const kz_log_runtime_info& b)
{
    return a.text0 == b.text0 && a.text1 == b.text1 && a.text2 == b.text2 && a.text3 == b.text3 &&
           a.text4 == b.text4 && a.value5 == b.value5 && a.value6 == b.value6 &&
           a.value7 == b.value7;
}
/// Not equal: some field differs.
inline bool operator!=(const kz_log_runtime_info& a, const kz_log_runtime_info& b)
{
    return !(a == b);
}

/// One alarm record of the second generation. figure6 arrives rounded to a whole number (halves to
/// even).
struct kz_log_alarm_info
{
    QString text0;      ///< first text
    QString text1;      ///< second text
    QString text2;      ///< third text
    QString text3;      ///< fourth text
    QString text4;      ///< fifth text
    QString text5;      ///< sixth text
    double figure6 = 0; ///< a figure sent as a whole number
};

/// Equal when every field is equal (lists and maps entry by entry).
inline bool operator==(const kz_log_alarm_info& a, const kz_log_alarm_info& b)
{
    return a.text0 == b.text0 && a.text1 == b.text1 && a.text2 == b.text2 && a.text3 == b.text3 &&
           a.text4 == b.text4 && a.text5 == b.text5 && a.figure6 == b.figure6;
}
/// Not equal: some field differs.
inline bool operator!=(const kz_log_alarm_info& a, const kz_log_alarm_info& b) { return !(a == b); }

// Machine data and statistics ---------------------------------------------------------------------

/// One machine start (the run-time logs of the app queries).
struct boot_record
{
    QString text1;     ///< first text
    QString text2;     ///< second text
    int value3 = 0;    ///< first number
    int reserved4 = 0; ///< not carried
    int value5 = 0;    ///< second number
};

/// Equal when every field is equal (lists and maps entry by entry).
inline bool operator==(const boot_record& a, const boot_record& b)
{
    return a.text1 == b.text1 && a.text2 == b.text2 && a.value3 == b.value3 &&
           a.reserved4 == b.reserved4 && a.value5 == b.value5;
}
/// Not equal: some field differs.
inline bool operator!=(const boot_record& a, const boot_record& b) { return !(a == b); }

/// One alarm of the app queries' alarm logs.
struct alarm_log_info
{
    QString text1; ///< first text
    QString text2; ///< second text
};

/// Equal when every field is equal (lists and maps entry by entry).
inline bool operator==(const alarm_log_info& a, const alarm_log_info& b)
{
    return a.text1 == b.text1 && a.text2 == b.text2;
}
/// Not equal: some field differs.
inline bool operator!=(const alarm_log_info& a, const alarm_log_info& b) { return !(a == b); }

/// One item of a processing statistic.
struct QueryStatisticItem
{
    QString text1;  ///< first text
    int value2 = 0; ///< the item's number
    QString text3;  ///< second text
};

/// Equal when every field is equal (lists and maps entry by entry).
inline bool operator==(const QueryStatisticItem& a, const QueryStatisticItem& b)
{
    return a.text1 == b.text1 && a.value2 == b.value2 && a.text3 == b.text3;
}
/// Not equal: some field differs.
inline bool operator!=(const QueryStatisticItem& a, const QueryStatisticItem& b)
{
    return !(a == b);
}

/// Processing statistics: per key (ascending), its items in order.
using MapQueryStatistic = QMap<QString, QList<QueryStatisticItem>>;

#endif // KZRESOLVER_KZRECORDS_H
