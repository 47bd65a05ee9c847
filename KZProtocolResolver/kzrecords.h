/// \file kzrecords.h
/// Record types carried by the messages of KZProtocolResolver: plain value
/// types, copied field by field.
#ifndef KZRESOLVER_KZRECORDS_H
#define KZRESOLVER_KZRECORDS_H

#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>

// -- accounts ---------------------------------------------------------------

// -- machines ---------------------------------------------------------------

#endif // KZRESOLVER_KZRECORDS_H
