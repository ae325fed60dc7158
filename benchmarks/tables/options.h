#pragma once

#include <string>

/// What the programs over the market's tables are told on their command line.
struct Options {
    bool quick = false;
    int rows = 0;          ///< 0: those that the program measures by itself
    int rounds = 0;        ///< 5, or 3 when quick, unless told
    std::string only;      ///< the only contender or case to measure; all when empty
    std::string directory; ///< for files; empty when not told
};

/// Reads [--quick] [--rows N] [--rounds N] [--only NAME] [DIRECTORY]; ends the program with a
/// message on anything else.
Options readOptions(int argc, char *argv[]);
