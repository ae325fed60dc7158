#pragma once

#include "database/services/logwriter.h"

#include <memory>

/// The handler that takes Qt's messages to a log. May be called from any thread.
namespace LogMessages
{

/// Puts \p writer in place of the one that gets the messages now, if there is one.
void sendTo(std::shared_ptr<LogWriter> writer);
/// Restores the handler before the first sendTo(), if messages go to \p writer, or to any if that
/// is null. A message that is on its way may still reach the writer.
void stop(const LogWriter *writer = nullptr);

} // namespace LogMessages
