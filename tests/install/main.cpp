#include "every_header.h"

#include <cstdio>
#include <cstring>

// Compiled against an installed tree, once by CMake and once with pkg-config's flags: the version
// that the package announces is the one of its headers, and the library that is loaded answers.
int main()
{
    if (std::strcmp(PACKAGE_VERSION, DATABASE_VERSION_STR) != 0) {
        std::fprintf(stderr, "package %s, headers %s\n", PACKAGE_VERSION, DATABASE_VERSION_STR);
        return 1;
    }
    try {
        throw Exception(QStringLiteral("thrown by the host"));
    } catch (const Exception &e) {
        if (e.message != QLatin1String("thrown by the host") || e.stack.isEmpty()) {
            std::fprintf(stderr, "the exception lost its message or its stack\n");
            return 1;
        }
    }
    return 0;
}
