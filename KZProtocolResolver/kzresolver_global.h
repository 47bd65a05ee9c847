/// \file kzresolver_global.h
/// The export macro of the library's public classes.
#ifndef KZRESOLVER_GLOBAL_H
#define KZRESOLVER_GLOBAL_H

#include <QtGlobal>

/// Marks the library's public API. The library is built with hidden
/// symbols; only what carries this macro is exported.
#if defined(KZRESOLVER_STATIC)
#define KZRESOLVER_EXPORT
#elif defined(KZRESOLVER_BUILDING)
#define KZRESOLVER_EXPORT Q_DECL_EXPORT
#else
#define KZRESOLVER_EXPORT Q_DECL_IMPORT
#endif

#endif // KZRESOLVER_GLOBAL_H
