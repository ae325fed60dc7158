#pragma once

#include <cstddef>
#include <string>
#include <vector>

/// The least that saving and loading bytes can cost. Each ends the program when it fails.

/// write() and fsync().
void writeFile(const std::string &path, const void *bytes, size_t size);
std::vector<char> readFile(const std::string &path);
/// Bare zlib, gzip framing, level 6, into a buffer. \return the packed size
size_t packedSize(const std::vector<char> &bytes);
