#include "require.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>

void require(bool ok, const std::string &what)
{
    if (!ok) {
        std::fprintf(stderr, "%s: failed: %s\n", program_invocation_short_name, what.c_str());
        std::exit(1);
    }
}
