#pragma once

#include "chain.h"

#include <QtCore/qtextstream.h>

/// Draws the implied volatility of a chain's calls and puts over their strikes, a line per strike.
/// Strikes without a volatility on either side are left out; nothing is drawn when none has one.
void printSmile(QTextStream &out, const Chain &chain);
