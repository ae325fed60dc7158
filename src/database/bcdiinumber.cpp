#include "database/bcdii.h"

#include "database/bcdiipairs.h"

// The self-describing forms: a type word, then the digits it describes.

namespace
{

constexpr int kTypeSize = sizeof(quint16);

uchar *digitsOf(uchar *number)
{
    return number + kTypeSize;
}

const uchar *digitsOf(const uchar *number)
{
    return number + kTypeSize;
}

} // namespace

BCDIIType BCDIIGetType(const uchar *number)
{
    quint16 type;
    std::memcpy(&type, number, sizeof type);
    return type;
}

void BCDIIInit(quint16 *number, BCDIIType type)
{
    *number = quint16(type);
    BCDIIInit(reinterpret_cast<uchar *>(number + 1), type);
}

quint32 BCDIICheck(const uchar *number)
{
    return BCDIICheck(digitsOf(number), BCDIIGetType(number));
}

void BCDIISetZero(uchar *number)
{
    const BCDIIType type = BCDIIGetType(number);
    Q_ASSERT(BCDIICheckType(type));
    std::memset(digitsOf(number), 0, BCDIILength(type));
}

void BCDIISetMax(uchar *number)
{
    BCDIISetMax(digitsOf(number), BCDIIGetType(number));
}

void BCDIISetMin(uchar *number)
{
    BCDIISetMin(digitsOf(number), BCDIIGetType(number));
}

quint32 BCDIINeg(uchar *number)
{
    return BCDIINeg(digitsOf(number), BCDIIGetType(number));
}

quint32 BCDIICopy(uchar *dst, const uchar *src)
{
    return BCDIICopy(digitsOf(dst), BCDIIGetType(dst), digitsOf(src), BCDIIGetType(src),
                     BCDII_ROUND_HALF_UP);
}

int BCDIICmp(const uchar *a, const uchar *b)
{
    return BCDIICmp(digitsOf(a), BCDIIGetType(a), digitsOf(b), BCDIIGetType(b));
}

quint32 BCDIIGetFromInt64(uchar *dst, qint64 value, int scale)
{
    return BCDIIGetFromInt64(digitsOf(dst), BCDIIGetType(dst), value, scale);
}

quint32 BCDIIGetFromUInt64(uchar *dst, quint64 value, int scale)
{
    return BCDIIGetFromUInt64(digitsOf(dst), BCDIIGetType(dst), value, scale);
}

quint32 BCDII2Int64(qint64 *out, const uchar *src, int scale)
{
    return BCDII2Int64(out, digitsOf(src), BCDIIGetType(src), scale, BCDII_ROUND_HALF_UP);
}

quint32 BCDII2Double(double *out, const uchar *src)
{
    return BCDII2Double(out, digitsOf(src), BCDIIGetType(src));
}

quint32 BCDIIGetFromDouble(uchar *dst, double value)
{
    return BCDIIGetFromDouble(digitsOf(dst), value, BCDIIGetType(dst));
}

quint32 BCDIIAdd(uchar *dst, const uchar *a, const uchar *b)
{
    return BCDIIAdd(digitsOf(dst), BCDIIGetType(dst), digitsOf(a), BCDIIGetType(a), digitsOf(b),
                    BCDIIGetType(b), BCDII_ROUND_HALF_UP);
}

quint32 BCDIIMul(uchar *dst, const uchar *a, const uchar *b)
{
    return BCDIIMul(digitsOf(dst), BCDIIGetType(dst), digitsOf(a), BCDIIGetType(a), digitsOf(b),
                    BCDIIGetType(b), BCDII_ROUND_HALF_UP);
}

char *BCDII2StringSequence(const uchar *src, char *previous)
{
    return BCDII2StringSequence(digitsOf(src), BCDIIGetType(src), previous);
}

quint32 BCDIIFromString(uchar *dst, const char *text, bool *ok)
{
    constexpr quint32 kNotExact =
        BCDII_OVERFLOW | BCDII_NULL_RESULT | BCDII_MALFORMED | BCDII_INEXACT | BCDII_NULL_OPERAND;
    BCDIIType type = BCDIIGetType(dst);
    const quint32 status = BCDIIFromString(digitsOf(dst), &type, text);
    const quint16 word = quint16(type);
    std::memcpy(dst, &word, sizeof word);
    if (ok)
        *ok = !((status | BCDIICheck(dst)) & kNotExact);
    return status;
}
