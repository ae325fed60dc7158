#pragma once

#include "feed.h"

#include <QtCore/qbytearray.h>

/// Reads one snapshot from the bytes of a CSV file.
///
/// The first line names the columns, in any order and with others among them; every further line
/// that is not empty is one strike with its call, its put and its stock:
///
///   Stock, Expiry, Strike          key: text, date, price
///   CE_LTP, CE_OI, CE_Volume       call: last price (0: never traded), open interest, volume
///   PE_LTP, PE_OI, PE_Volume       put: the same
///   Stock_LTP, Stock_High, Stock_Low, Stock_%_Change
///                                  the stock; where its rows disagree the last one counts
///   timestamp                      "yyyy-MM-dd HH:mm:ss"; the latest is the snapshot's time
///
/// Numbers are read exactly: prices to hundredths, the percentage to thousandths, open interest and
/// volume as whole numbers. A field may stand in quotes, in which a comma is text and two quotes
/// are one, but not a line break. Lines end with LF or CR LF, the last one also without; a byte
/// order mark is skipped.
///
/// \throws QString "file:line: what is wrong: 'text'" for the first fault: a column that is missing
/// or stands twice, a line with more or fewer fields than the first one, a field that does not
/// read, a key that came before, no line at all or none behind the first one
Snapshot readCsvSnapshot(const QString &fileName, const QByteArray &bytes);
