#ifndef KZRESOLVER_METHODS_H
#define KZRESOLVER_METHODS_H

#include <QtGlobal>

namespace kz {

/// The method code of every message, from methods.def.
enum class Method : quint16 {
#define KZ_METHOD(name, code, family) name = code,
#include "methods.def"
#undef KZ_METHOD
};

/// Message flag: request or reply.
enum Flag : uchar { Request = 0, Reply = 1 };

/// The message type byte of every body.
constexpr uchar kMessageType = 17;

/// The message name of a code ("DeleteUser"), or null for an unknown code.
const char* methodName(quint16 code);

} // namespace kz

#endif // KZRESOLVER_METHODS_H
