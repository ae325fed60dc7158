#pragma once

#include "database/database_global.h"

/// Packed decimal arithmetic: numbers of up to 63 significant digits in raw memory.
///
/// A number is a type word and its digit bytes. The type word (BCDIIType) holds the scale L (digits
/// after the point, -62..62) in bits 0-7 and the precision H (significant digits, 1..63) in bits
/// 8-15, both as signed bytes. H - L digits stand before the point. A negative L means that the
/// last -L integer digits are implied zeros; L > H means that the first L - H fraction digits are.
///
/// What is always true of a well-formed number (BCDIICheck tests it):
///  (1) Digits are big-endian base-100 bytes (0..99), pairs aligned on the decimal point:
///      (H - L + 1) >> 1 integer bytes, then (L + 1) >> 1 fraction bytes (flooring shifts). Because
///      of that alignment numbers of different types compare and add byte by byte.
///  (2) When H - L is odd the first byte holds one digit (0..9); when L is odd the last byte holds
///      one digit in its tens place (0, 10, ..., 90).
///  (3) Bit 7 of the first byte is the sign. Zero is always positive.
///  (4) A first byte of 101 marks NULL; the arithmetic takes any first byte above 99 (without the
///      sign bit) for NULL.
///
/// No function throws or allocates (the text conversions excepted); each returns a status word, an
/// OR of BCDIIStatus bits. On overflow and on NULL input the destination is left NULL, so that a
/// failed operation never leaves a plausible number behind. An invalid type is a programming error
/// and hits an assertion. All functions may be called from any thread.
///
/// The overloads without type arguments take self-describing numbers: a 16-bit type word in memory
/// order, directly followed by the digit bytes. They round with BCDII_ROUND_HALF_UP.
typedef quint32 BCDIIType;

/// How the first digit that is dropped decides about the last one that is kept.
enum BCDIIroundstyle {
    BCDII_ROUND_HALF_UP = 0, ///< up in magnitude when the first dropped digit is 5 or more
    BCDII_ROUND_CEIL = 1,    ///< towards plus infinity
    BCDII_ROUND_FLOOR = 2,   ///< towards minus infinity
    BCDII_ROUND_UP = 3,      ///< away from zero
    BCDII_ROUND_DOWN = 4     ///< towards zero
};

/// Bits of a status word; 0 means an exact, positive, non-zero result.
enum BCDIIStatus : quint32 {
    BCDII_OVERFLOW = 0x01,    ///< does not fit the destination, which is NULL now
    BCDII_ZERO = 0x02,        ///< the result is zero
    BCDII_NEGATIVE = 0x04,    ///< the result is negative
    BCDII_NULL_RESULT = 0x10, ///< the result is NULL
    BCDII_MALFORMED = 0x20,   ///< an input is malformed
    BCDII_INEXACT = 0x40,     ///< non-zero digits were dropped
    BCDII_NULL_OPERAND = 0x80 ///< an input is NULL
};

/// Number of digit bytes of a number of type \p type; 0 when the precision is 0.
constexpr unsigned BCDIILength(BCDIIType type)
{
    return ((type >> 8) & 0xFF) ? (type >> 9) + ((type | (type >> 8)) & 1) : 0;
}

/// 1 when the precision is 1..63 and the scale -62..62, else 0.
DATABASE_EXPORT int BCDIICheckType(BCDIIType type);
/// The type word of a self-describing number.
DATABASE_EXPORT BCDIIType BCDIIGetType(const uchar *number);

/// Makes the number NULL. The second form is the self-describing one: it stores \p type in the word
/// that \p number points to and marks the digits behind it.
DATABASE_EXPORT void BCDIIInit(uchar *digits, BCDIIType type);
DATABASE_EXPORT void BCDIIInit(quint16 *number, BCDIIType type);

/// Tells whether the bytes are a well-formed number: 0x20 for an invalid type or malformed bytes,
/// 0xA0 for NULL, 0x02 for zero, 0x04 for a negative number, else 0. Never reads past the type's
/// length.
DATABASE_EXPORT quint32 BCDIICheck(const uchar *digits, BCDIIType type);
DATABASE_EXPORT quint32 BCDIICheck(const uchar *number);

DATABASE_EXPORT void BCDIISetZero(uchar *number);
/// The largest number of the type: every digit 9.
DATABASE_EXPORT void BCDIISetMax(uchar *digits, BCDIIType type);
DATABASE_EXPORT void BCDIISetMax(uchar *number);
/// The smallest number of the type: every digit 9, negative.
DATABASE_EXPORT void BCDIISetMin(uchar *digits, BCDIIType type);
DATABASE_EXPORT void BCDIISetMin(uchar *number);

/// Negates in place. \return 0xB0 for NULL and 0x02 for zero (both unchanged), else 0x04 or 0 by
/// the new sign.
DATABASE_EXPORT quint32 BCDIINeg(uchar *digits, BCDIIType type);
DATABASE_EXPORT quint32 BCDIINeg(uchar *number);

/// Converts \p src to the destination's type, rounding by \p style. Source and destination may be
/// the same memory or overlap. \return 0 or 0x04 when exact, 0x02 for zero, 0x40 or 0x44 when
/// rounded, 0x42 when everything was rounded away (the zero is positive), 0xB0 for a NULL source,
/// 0x11 when the value does not fit, 0x51 when the carry of rounding does not fit. A destination of
/// scale zero or below whose last position lies above every significant digit of the source does
/// not round up to one unit: it becomes NULL with 0x11 (half up, up) or 0x15 (ceil, floor).
DATABASE_EXPORT quint32 BCDIICopy(uchar *dst, BCDIIType dstType, const uchar *src,
                                  BCDIIType srcType, int style);
DATABASE_EXPORT quint32 BCDIICopy(uchar *dst, const uchar *src);

/// Compares by value: -1, 0 or 1. NULL is not looked at: its marker compares as the digit pair 101.
DATABASE_EXPORT int BCDIICmp(const uchar *a, BCDIIType aType, const uchar *b, BCDIIType bType);
DATABASE_EXPORT int BCDIICmp(const uchar *a, const uchar *b);

/// Stores value x 10^-scale (scale -62..62), truncated to the destination's type. \return as
/// BCDIICopy.
DATABASE_EXPORT quint32 BCDIIGetFromInt64(uchar *dst, BCDIIType type, qint64 value, int scale);
DATABASE_EXPORT quint32 BCDIIGetFromInt64(uchar *dst, qint64 value, int scale);
DATABASE_EXPORT quint32 BCDIIGetFromUInt64(uchar *dst, BCDIIType type, quint64 value, int scale);
DATABASE_EXPORT quint32 BCDIIGetFromUInt64(uchar *dst, quint64 value, int scale);

/// Stores the number x 10^scale, rounded to an integer by \p style, into \p out. The rounding is
/// that of BCDIICopy into an integer of 19 digits, with its statuses; outside the 64-bit range it
/// is 0x11. Whenever the status says BCDII_NULL_RESULT \p out is left alone.
DATABASE_EXPORT quint32 BCDII2Int64(qint64 *out, const uchar *src, BCDIIType type, int scale,
                                    int style);
DATABASE_EXPORT quint32 BCDII2Int64(qint64 *out, const uchar *src, int scale);

/// The number as a double, accumulated digit pair by digit pair and divided once by a power of ten.
/// \return 0xB0 for NULL (\p out is left alone), 0x02 for zero, 0x04 for a negative number, else 0.
DATABASE_EXPORT quint32 BCDII2Double(double *out, const uchar *src, BCDIIType type);
DATABASE_EXPORT quint32 BCDII2Double(double *out, const uchar *src);

/// Stores floor(|value| x 10^scale + 0.5), computed in double precision, with the sign of the
/// value: rounded half up in magnitude. From 2^53 on, the digits behind the sixteenth or so are
/// those that double arithmetic gives; the number still reads back as the same double.
/// \return 0x02 for zero (also for what rounds to zero), 0x04 for a negative number, 0x11
/// (and NULL) when it does not fit, else 0. NaN gives zero digits and 0.
DATABASE_EXPORT quint32 BCDIIGetFromDouble(uchar *dst, double value, BCDIIType type);
DATABASE_EXPORT quint32 BCDIIGetFromDouble(uchar *dst, double value);

/// a + b into \p dst, which may be one of the operands. To subtract, negate with BCDIINeg and add.
/// \return as BCDIICopy; 0xB0 when an operand is NULL, 0x02 when the sum is zero.
DATABASE_EXPORT quint32 BCDIIAdd(uchar *dst, BCDIIType dstType, const uchar *a, BCDIIType aType,
                                 const uchar *b, BCDIIType bType, int style);
DATABASE_EXPORT quint32 BCDIIAdd(uchar *dst, const uchar *a, const uchar *b);

/// a x b into \p dst, which may be one of the operands. \return as BCDIIAdd.
DATABASE_EXPORT quint32 BCDIIMul(uchar *dst, BCDIIType dstType, const uchar *a, BCDIIType aType,
                                 const uchar *b, BCDIIType bType, int style);
DATABASE_EXPORT quint32 BCDIIMul(uchar *dst, const uchar *a, const uchar *b);

/// The number as text: "-" when negative, the integer digits without leading zeros (none at all
/// below 1), "." and every fraction digit. 0.5 at scale 1 is ".5", an integer zero is "", NULL is
/// "NULL".
/// \param previous  an earlier result to release with free(), or null
/// \return a zero-terminated text that the caller releases with free(); null when out of memory
DATABASE_EXPORT char *BCDII2StringSequence(const uchar *src, BCDIIType type, char *previous);
DATABASE_EXPORT char *BCDII2StringSequence(const uchar *src, char *previous);

/// Parses white space, an optional sign, digits and an optional fraction behind "." or ","; what
/// follows is ignored. The precision stays and the scale of \p type becomes the number of fraction
/// digits found, at most 62: further ones are rounded away, half up. The scale decides about the
/// length, so \p dst needs room for precision / 2 + 1 bytes; a byte that the old type used and the
/// new one does not becomes 0. Linear in the length of the text.
/// \return as BCDIICopy; 0x30 when there is no digit and 0x11 when there are more integer digits
/// than \p type had places for, both NULL with \p type left as it was; 0x11 (and NULL) also when
/// integer and fraction digits together exceed the precision.
DATABASE_EXPORT quint32 BCDIIFromString(uchar *dst, BCDIIType *type, const char *text);
/// The same for a self-describing number, whose type word receives the new scale.
/// \param ok  set to whether the result is an exact number, when given
DATABASE_EXPORT quint32 BCDIIFromString(uchar *dst, const char *text, bool *ok = nullptr);
