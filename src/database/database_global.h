#pragma once

#include <QtCore/qglobal.h>

/// Marks what the shared library offers to its host; everything else stays hidden.
#if defined(DATABASE_LIBRARY)
#define DATABASE_EXPORT Q_DECL_EXPORT
#else
#define DATABASE_EXPORT Q_DECL_IMPORT
#endif

#define DATABASE_VERSION_MAJOR 1
#define DATABASE_VERSION_MINOR 0
#define DATABASE_VERSION_PATCH 0
#define DATABASE_VERSION_STR "1.0.0"
