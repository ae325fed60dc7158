#pragma once

#include <string>

/// Ends the program unless \p ok: what follows would measure something else.
void require(bool ok, const std::string &what);
