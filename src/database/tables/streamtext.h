#pragma once

#include <QtCore/qglobal.h>

class QDataStream;
class QString;

/// Reads a text as QDataStream writes a QString, without believing its length: memory is taken in
/// steps that follow the bytes which the stream delivered, so that a damaged length of gigabytes
/// costs no more than the stream is long. A text that is not whole leaves \p text null and the
/// stream's status other than Ok.
void readText(QDataStream &stream, QString *text);
