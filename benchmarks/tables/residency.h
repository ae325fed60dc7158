#pragma once

#include <functional>

/// The resident anonymous bytes that \p work adds, measured in a child process so that no other
/// work has left memory behind. Call it before the process starts a thread.
double residentBytes(const std::function<void()> &work);
