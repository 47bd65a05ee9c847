// The three-level group tree that account and machine listings travel in:
// first-level groups, their second-level groups, the records of each pair.
//
//     u16 n1 { strz lv1, u16 n2 { strz lv2, u16 n3 { entry } } }
//
// Groups and records keep the order in which they first appear in the input
// list; a record whose key already occurs in its (lv1, lv2) pair is dropped,
// so the first one wins.
#ifndef KZRESOLVER_GROUPING_H
#define KZRESOLVER_GROUPING_H

#include "payload.h"

#include <QHash>
#include <QList>
#include <QPair>
#include <QSet>
#include <QString>
#include <QVector>

namespace kz {

template <class T>
struct Lv2Group
{
    QString name;
    QVector<const T*> records; // point into the grouped list
};

template <class T>
struct Lv1Group
{
    QString name;
    QVector<Lv2Group<T>> groups;
};

/// Groups `records` by (lv1, lv2) in first-appearance order; within a pair a
/// repeated `key` is dropped. The result points into `records`.
template <class T>
QVector<Lv1Group<T>> groupByPair(const QList<T>& records, QString T::*lv1, QString T::*lv2,
                                 QString T::*key)
{
    struct Pair
    {
        int lv1, lv2;       // indexes into the tree
        QSet<QString> keys; // keys already taken
    };
    QVector<Lv1Group<T>> tree;
    QHash<QString, int> lv1At;
    QHash<QPair<QString, QString>, Pair> pairs;
    for (const T& rec : records) {
        const QPair<QString, QString> id(rec.*lv1, rec.*lv2);
        auto p = pairs.find(id);
        if (p == pairs.end()) {
            auto l = lv1At.find(id.first);
            if (l == lv1At.end()) {
                l = lv1At.insert(id.first, tree.size());
                tree.append(Lv1Group<T>{id.first, {}});
            }
            QVector<Lv2Group<T>>& groups = tree[*l].groups;
            p = pairs.insert(id, Pair{*l, int(groups.size()), {}});
            groups.append(Lv2Group<T>{id.second, {}});
        }
        const int before = p->keys.size();
        p->keys.insert(rec.*key);
        if (p->keys.size() != before) tree[p->lv1].groups[p->lv2].records.append(&rec);
    }
    return tree;
}

/// Writes `records` as the group tree; `entry(payload, record)` writes one
/// record (without its two group names). Counts are truncated to 16 bits.
template <class T, class Entry>
void writeGroupTree(Payload& p, const QList<T>& records, QString T::*lv1, QString T::*lv2,
                    QString T::*key, Entry entry)
{
    const QVector<Lv1Group<T>> tree = groupByPair(records, lv1, lv2, key);
    p << count16(tree.size());
    for (const Lv1Group<T>& g1 : tree) {
        p << strz{g1.name} << count16(g1.groups.size());
        for (const Lv2Group<T>& g2 : g1.groups) {
            p << strz{g2.name} << count16(g2.records.size());
            for (const T* rec : g2.records) entry(p, *rec);
        }
    }
}

} // namespace kz

#endif // KZRESOLVER_GROUPING_H
